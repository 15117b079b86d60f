// The compressed form of a bit array, and its one owner: every writer and reader of the
// form, in the bit array and in the bit record files, goes through here.
//
// A marker byte 1, then items to the end of the string. A byte of 1 .. 254 is a literal
// plain byte; 0x00 or 0xFF followed by a little-endian 16-bit count is a run of that
// many plain bytes of that value. Writers never store 0x00 or 0xFF as literals, split
// runs at 65535 and never end with a 0x00 run; an all-zero bitmap has the empty form.
// Readers take any byte string: a run needs its three bytes inside the string, and a
// run cut short by the end is ignored, so no read passes the length.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "frame/Block.h"
#include "frame/Coding.h"

namespace dorvik::form {

inline constexpr unsigned char kMarker = 1;
inline constexpr std::size_t kMaxRun = 65535;

// One item: a stretch of literals (`plain` of them, one byte each, from `pos`) or one
// run (`plain` bytes of `value`, its three bytes from `pos`).
struct Item {
    std::size_t pos;
    std::size_t plain;
    bool run;
    unsigned char value;
};

// The number of leading bytes that can stand as literals (neither 0x00 nor 0xFF), for
// stretches longer than a few bytes.
std::size_t LongLiteralSpan(const unsigned char* p, std::size_t n);

// The number of leading bytes that can stand as literals. The stretches of a sparse
// form are a byte or two, looked at one by one before the wide scan.
inline std::size_t LiteralSpan(const unsigned char* p, std::size_t n) {
    for (std::size_t i = 0; i < 4; ++i)
        if (i == n || p[i] == 0 || p[i] == 0xFF) return i;
    return 4 + LongLiteralSpan(p + 4, n - 4);
}

// The count of the run whose first byte is at `run`, and its writer.
inline std::size_t RunCount(const unsigned char* run) { return DecodeFixed16(run + 1); }
inline void PutRunCount(unsigned char* run, std::size_t count) {
    EncodeFixed16(run + 1, static_cast<std::uint16_t>(count));
}

// Calls visit(item) for the items of p[pos..n) in order until it returns false.
template <typename Visit>
void WalkItems(const unsigned char* p, std::size_t n, std::size_t pos, Visit&& visit) {
    while (pos < n) {
        unsigned char b = p[pos];
        Item item{pos, 0, b == 0 || b == 0xFF, b};
        if (!item.run) {
            item.plain = LiteralSpan(p + pos, n - pos);
            pos += item.plain;
        } else {
            if (n - pos < 3) return;  // a run cut short by the end is no run
            item.plain = RunCount(p + pos);
            pos += 3;
        }
        if (!visit(item)) return;
    }
}

// Calls visit(bit) for every set bit of a whole form (marker first), rising, without
// expanding it: literals give their bits, 0xFF runs all theirs, 0x00 runs none.
template <class Visit>
void ForEachSetBit(const unsigned char* form, int length, Visit visit) {
    if (!form || length <= 1) return;
    long long done = 0;  // plain bytes passed
    WalkItems(form, static_cast<std::size_t>(length), 1, [&](const Item& item) {
        if (!item.run) {
            for (std::size_t k = 0; k < item.plain; ++k, ++done)
                for (unsigned v = form[item.pos + k]; v; v &= v - 1)
                    visit(done * 8 + std::countr_zero(v));
            return true;
        }
        long long count = static_cast<long long>(item.plain);
        if (item.value)
            for (long long bit = done * 8; bit < (done + count) * 8; ++bit) visit(bit);
        done += count;
        return true;
    });
}

// The plain bytes that the items of p[start..n) stand for, written to `out` unless it
// is null. With `limit` 0 or above it stops after the item that reaches `limit` plain
// bytes, a literal stretch counting as one item per byte; it also stops once the count
// passes INT_MAX (the caller treats that as too large).
std::int64_t Expand(const unsigned char* p, std::size_t n, std::size_t start, std::int64_t limit,
                    unsigned char* out);
// Writes the plain bytes of the items of p[i..n) to out[o..room), every one of them,
// zero runs included, and returns where the output stopped; `i` follows. Stops at the
// end of the items, at `room`, or before a run that does not fit whole. Bytes behind
// the returned place up to `room` may be overwritten.
std::size_t ExpandInto(const unsigned char* p, std::size_t n, std::size_t& i, unsigned char* out,
                       std::size_t o, std::size_t room);
// The plain bytes of a whole form of `n` bytes in a new block, in one pass where the
// form is dense; null with `plainLength` 0 when there are none. Throws
// CMemoryException past INT_MAX bytes or when memory runs out.
Block<> Decode(const unsigned char* p, std::size_t n, int& plainLength);

// A whole form (marker first) as it lies in a buffer.
struct FormSpan {
    const unsigned char* bytes;
    std::size_t length;
};

// The AND of the plain bitmaps of `count` whole forms over the shortest of them, less
// its trailing zero bytes, computed on the forms: a zero run of any form skips the
// others, and only bytes that all forms hold are written. The first form counts no
// further than its Expand with `limit` (-1: whole). A new GrabBlock block with the
// result's length in `length`, or null and 0 when no bit is left. Throws
// CMemoryException when the first form expands past INT_MAX bytes or memory runs out.
Block<> IntersectForms(const FormSpan* forms, std::size_t count, std::int64_t limit, int& length);

// For a whole form of `n` bytes (marker first) and rising bit numbers `bits`, sets
// held[i] to 1 when the form holds bits[i] and leaves it otherwise. One pass up to the
// last bit asked for, 64 stored bytes a step: literals are skipped by their stop mask and
// only runs are stepped through, so the cost follows the runs, not the bytes.
void MarkHeldBits(const unsigned char* form, std::size_t n, std::span<const std::uint32_t> bits,
                  char* held);
// The set bits of a whole form, counted item by item; INT_MAX at the most.
int CountSetBits(const unsigned char* form, int length);
// One bit of a whole form; false beyond its end, below 0 or for length 0.
bool TestBit(const unsigned char* form, int length, int bit);
// Sets one bit of a whole form in place; the contract of the static CBitArray::SetAt.
bool SetBit(unsigned char*& form, int& length, int bit);
// The form of `length` plain bytes in a new GrabBlock block; null and 0 when they are
// all zero. Throws CMemoryException.
void Encode(const unsigned char* plain, int length, unsigned char*& form, int& formLength);
// The form of the plain bitmap whose set bits are `bits` (rising, each at most once),
// byte for byte what encoding that bitmap gives, built without it.
std::vector<unsigned char> EncodeSortedBits(std::span<const unsigned> bits);

}  // namespace dorvik::form
