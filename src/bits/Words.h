// Word-at-a-time helpers shared by the bit array sources.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__x86_64__) && defined(__GNUC__)
// The population count instruction is not in the base x86-64 set; without it the
// compiler calls a slow library routine, so counting loops get a second version.
#define DORVIK_POPCOUNT_CLONES __attribute__((target_clones("popcnt", "default")))
#else
#define DORVIK_POPCOUNT_CLONES
#endif

namespace dorvik::bits {
using Word = std::uint64_t;
using Bits = std::int64_t;  // bit positions and bit totals, which can pass INT_MAX

// The 64 bits of a bitmap from byte `byte` on (a multiple of 8), bit 0 lowest; bytes
// at or past `size` read 0.
inline Word LoadWord(const unsigned char* p, std::size_t size, std::size_t byte) {
    Word w = 0;
    if (byte < size) std::memcpy(&w, p + byte, std::min<std::size_t>(8, size - byte));
    if constexpr (std::endian::native == std::endian::big) w = __builtin_bswap64(w);
    return w;
}
}  // namespace dorvik::bits
