// Word-at-a-time helpers shared by the bit array sources.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "frame/Coding.h"

#if defined(__x86_64__) && defined(__GNUC__) && !defined(__SANITIZE_THREAD__)
// The population count instruction is not in the base x86-64 set; without it the
// compiler calls a slow library routine, so counting loops get a second version.
// Not under ThreadSanitizer: the version is chosen while the program is loaded, before
// the sanitizer's runtime is ready for the instrumented chooser.
#define DORVIK_POPCOUNT_CLONES __attribute__((target_clones("popcnt", "default")))
#else
#define DORVIK_POPCOUNT_CLONES
#endif

namespace dorvik::bits {
using Word = std::uint64_t;
using Bits = std::int64_t;  // bit positions and bit totals, which can pass INT_MAX

// Eight bytes as one word, in memory order.
inline Word Load(const unsigned char* p) {
    Word w;
    std::memcpy(&w, p, sizeof w);
    return w;
}

// The length less its trailing zero bytes.
inline int TrimmedLength(const unsigned char* p, int length) {
    while (length >= 8 && Load(p + length - 8) == 0) length -= 8;
    while (length > 0 && p[length - 1] == 0) --length;
    return length;
}

// The 64 bits of a bitmap from byte `byte` on (a multiple of 8), bit 0 lowest; bytes
// at or past `size` read 0.
inline Word LoadWord(const unsigned char* p, std::size_t size, std::size_t byte) {
    if (byte + 8 <= size) return DecodeFixed64(p + byte);
    unsigned char tail[8] = {};
    if (byte < size) std::memcpy(tail, p + byte, size - byte);
    return DecodeFixed64(tail);
}
}  // namespace dorvik::bits
