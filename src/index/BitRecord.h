// Helpers for expanded bit records (plain bitmaps in GrabBlock blocks), shared by the
// bit record files.
#pragma once

#include <bit>
#include <cstddef>
#include <memory>

#include "dorvik/Platform.h"

namespace dorvik {

using Block = std::unique_ptr<unsigned char, decltype(&DropBlock)>;

inline Block Hold(unsigned char* p) { return Block(p, &DropBlock); }

// Grows `block` (which may be null) to hold `bit`; `length` follows. New bytes are 0.
inline void GrowToBit(Block& block, int& length, int bit) {
    if (bit / 8 < length) return;
    length = bit / 8 + 1;
    block.reset(static_cast<unsigned char*>(RegrowBlock(block.release(), static_cast<std::size_t>(length))));
}

inline unsigned char Mask(int bit) { return static_cast<unsigned char>(1u << (bit & 7)); }

inline bool TestBit(const unsigned char* bytes, int length, int bit) {
    return bit >= 0 && bit / 8 < length && (bytes[bit / 8] & Mask(bit));
}

// Set bits in 0 .. bit - 1 (bit at most 8 * length).
inline int CountBelow(const unsigned char* bytes, int bit) {
    int count = 0;
    for (int i = 0; i < bit / 8; ++i) count += std::popcount(static_cast<unsigned>(bytes[i]));
    if (bit & 7) count += std::popcount(static_cast<unsigned>(bytes[bit / 8]) & ((1u << (bit & 7)) - 1));
    return count;
}

// The scan position that has passed `count` set bits: one past the count-th set bit,
// 0 for a count of 0, 8 * length when the bits run out.
inline int PositionPast(const unsigned char* bytes, int length, int count) {
    if (count <= 0) return 0;
    for (int i = 0; i < length; ++i) {
        int here = std::popcount(static_cast<unsigned>(bytes[i]));
        if (here < count) {
            count -= here;
            continue;
        }
        unsigned b = bytes[i];
        while (--count > 0) b &= b - 1;
        return i * 8 + std::countr_zero(b) + 1;
    }
    return length * 8;
}

}  // namespace dorvik
