// Helpers for bit records (compressed on disk, plain bitmaps in GrabBlock blocks when
// expanded), shared by the flat and the nested bit record files.
#pragma once

#include <bit>
#include <cstddef>
#include <vector>

#include "bits/CompressedForm.h"
#include "dorvik/BitArray.h"
#include "dorvik/Platform.h"
#include "frame/Block.h"

namespace dorvik {

// The compressed form of `length` expanded bytes; null data or only zero bytes give
// null and 0 (an empty record).
inline Block<> CompressBytes(const unsigned char* data, int length, int& compressedLength) {
    unsigned char* out = nullptr;
    compressedLength = 0;
    if (data && length > 0) form::Encode(data, length, out, compressedLength);
    return Hold(out);
}

// Turns a stored record just read (a GrabBlock block, or null) into its expanded bytes,
// no further than `limit` (-1: all); an empty record becomes null and 0.
inline void ExpandRecord(unsigned char*& buffer, int& length, int limit) {
    if (length != 0) {
        CBitArray::Decompress(buffer, length, limit);
    } else {
        DropBlock(buffer);
        buffer = nullptr;
    }
}

// Hands an expanded record to `bits`, which owns it afterwards; an empty one empties it.
inline void AttachRecord(CBitArray& bits, unsigned char* buffer, int length) {
    bits.Attach(buffer, length);
    if (length <= 0) DropBlock(buffer);
}

// Grows `block` (which may be null) to hold `bit`; `length` follows. New bytes are 0.
inline void GrowToBit(Block<>& block, int& length, int bit) {
    if (bit / 8 < length) return;
    // RegrowBlock throws with the old block untouched: it stays held until the growth
    // has succeeded.
    void* grown = RegrowBlock(block.get(), static_cast<std::size_t>(bit / 8 + 1));
    (void)block.release();
    block.reset(static_cast<unsigned char*>(grown));
    length = bit / 8 + 1;
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

enum class BitChange { set, reset, flip };

// Changes one bit of a stored bit record. read(buffer, length) delivers the expanded
// record (a GrabBlock block, or null and 0), write(bytes, length) stores the new one.
// Set and flip grow the record to hold the bit; set and reset write only when the bit
// changes, flip always writes. A negative bit changes nothing.
template <class Read, class Write>
void ChangeStoredBit(int bit, BitChange change, Read read, Write write) {
    if (bit < 0) return;
    unsigned char* record = nullptr;
    int length = 0;
    read(record, length);
    Block<> hold = Hold(record);
    bool set = TestBit(hold.get(), length, bit);
    if ((change == BitChange::set && set) || (change == BitChange::reset && !set)) return;
    GrowToBit(hold, length, bit);
    hold.get()[bit / 8] ^= Mask(bit);
    write(hold.get(), length);
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

// The intersection of `count` stored records into `result`, which comes back
// uncompressed: the same bits and length as Accumulate with `unite` false gives, but
// worked out on the compressed forms, so that zero runs cost nothing to either side.
// readStored(k, buffer, length) delivers the k-th record as stored (a GrabBlock block,
// or null and 0). Reading stops at the first empty record, which empties the result.
template <class ReadStored>
void IntersectStored(int count, CBitArray& result, int limit, ReadStored readStored) {
    result.FreeBuffer();
    result.SetCompressed(false);
    std::vector<Block<>> held;
    std::vector<form::FormSpan> forms;
    for (int k = 0; k < count; ++k) {
        unsigned char* buffer = nullptr;
        int length = 0;
        readStored(k, buffer, length);
        held.push_back(Hold(buffer));
        if (!buffer || length <= 0) {
            result.Attach(nullptr, 0);
            return;
        }
        forms.push_back({buffer, static_cast<std::size_t>(length)});
    }
    int length = 0;
    Block<> plain = form::IntersectForms(forms.data(), forms.size(), limit, length);
    AttachRecord(result, plain.release(), length);
}

}  // namespace dorvik
