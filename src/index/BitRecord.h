// Helpers for expanded bit records (plain bitmaps in GrabBlock blocks), shared by the
// bit record files.
#pragma once

#include <bit>
#include <cstddef>
#include <memory>
#include <vector>

#include "dorvik/BitArray.h"
#include "dorvik/Platform.h"
#include "frame/Block.h"

namespace dorvik {

// The compressed form of `length` expanded bytes; null data or only zero bytes give
// null and 0 (an empty record).
inline Block<> CompressBytes(const unsigned char* data, int length, int& compressedLength) {
    unsigned char* out = nullptr;
    compressedLength = 0;
    if (data && length > 0) CBitArray::Compress(data, length, out, compressedLength);
    return Hold(out);
}

// Grows `block` (which may be null) to hold `bit`; `length` follows. New bytes are 0.
inline void GrowToBit(Block<>& block, int& length, int bit) {
    if (bit / 8 < length) return;
    length = bit / 8 + 1;
    block.reset(static_cast<unsigned char*>(
        RegrowBlock(block.release(), static_cast<std::size_t>(length))));
}

inline unsigned char Mask(int bit) { return static_cast<unsigned char>(1u << (bit & 7)); }

inline bool TestBit(const unsigned char* bytes, int length, int bit) {
    return bit >= 0 && bit / 8 < length && (bytes[bit / 8] & Mask(bit));
}

// Set bits in 0 .. bit - 1 (bit at most 8 * length).
inline int CountBelow(const unsigned char* bytes, int bit) {
    int count = 0;
    for (int i = 0; i < bit / 8; ++i) count += std::popcount(static_cast<unsigned>(bytes[i]));
    if (bit & 7)
        count += std::popcount(static_cast<unsigned>(bytes[bit / 8]) & ((1u << (bit & 7)) - 1));
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

// Calls visit(bit) for every set bit of a compressed form, rising, without expanding
// it: literals give their bits, 0xFF runs all theirs, 0x00 runs none. A run cut short
// by the end of the string is ignored, as every reader of the form does.
template <class Visit>
void ForEachCompressedBit(const unsigned char* form, int length, Visit visit) {
    long long done = 0;  // plain bytes passed
    for (int i = 1; i < length;) {
        unsigned char b = form[i];
        if (b != 0x00 && b != 0xFF) {
            for (unsigned v = b; v; v &= v - 1) visit(done * 8 + std::countr_zero(v));
            ++done;
            ++i;
            continue;
        }
        if (length - i < 3) break;
        long long count = form[i + 1] | (form[i + 2] << 8);
        if (b == 0xFF)
            for (long long bit = done * 8; bit < (done + count) * 8; ++bit) visit(bit);
        done += count;
        i += 3;
    }
}

// The compressed form of the plain bitmap whose set bits are `bits` (rising, each at
// most once), byte for byte what compressing that bitmap gives, built without it.
inline std::vector<unsigned char> CompressSortedBits(const std::vector<unsigned>& bits) {
    std::vector<unsigned char> out;
    if (bits.empty()) return out;
    out.push_back(1);
    long long done = 0;       // plain bytes written
    std::size_t fullRun = 0;  // where the 0xFF run that ends the form starts, or 0
    auto put = [&](unsigned byte, unsigned char value) {
        for (long long gap = byte - done; gap > 0;) {
            unsigned count = static_cast<unsigned>(gap < 65535 ? gap : 65535);
            out.insert(out.end(), {0x00, static_cast<unsigned char>(count),
                                   static_cast<unsigned char>(count >> 8)});
            gap -= count;
            fullRun = 0;
        }
        done = static_cast<long long>(byte) + 1;
        if (value != 0xFF) {
            out.push_back(value);
            fullRun = 0;
            return;
        }
        unsigned count = fullRun ? (out[fullRun + 1] | (out[fullRun + 2] << 8)) : 65535;
        if (count < 65535) {
            ++count;
            out[fullRun + 1] = static_cast<unsigned char>(count);
            out[fullRun + 2] = static_cast<unsigned char>(count >> 8);
            return;
        }
        fullRun = out.size();
        out.insert(out.end(), {0xFF, 1, 0});
    };
    unsigned byte = bits[0] / 8;
    unsigned char value = 0;
    for (unsigned bit : bits) {
        if (bit / 8 != byte) {
            put(byte, value);
            byte = bit / 8;
            value = 0;
        }
        value |= Mask(static_cast<int>(bit));
    }
    put(byte, value);
    return out;
}

// Union (`unite`) or intersection of `count` records into `result`, which comes back
// uncompressed; read(k, bits, limit) puts the k-th record, expanded, into `bits`. An
// empty start is refilled in a union; an intersection stops at the first empty result
// and expands later records no further than the result so far, which is all that an
// AND can keep of them.
template <class Read>
void Accumulate(int count, CBitArray& result, bool unite, int limit, Read read) {
    result.FreeBuffer();
    result.SetCompressed(false);
    CBitArray record(false);
    for (int k = 0; k < count; ++k) {
        if (result.GetLength() == 0) {
            read(k, result, limit);
        } else {
            read(k, record, limit);
            if (unite) {
                result |= record;
            } else {
                result &= record;
            }
            record.FreeBuffer();
        }
        if (!unite) {
            if (result.GetLength() == 0) break;
            if (limit < 0 || limit > result.GetLength()) limit = result.GetLength();
        }
    }
}

}  // namespace dorvik
