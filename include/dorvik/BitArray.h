// A set of non-negative integers held as a growable bitmap, plain or in a compressed
// byte form; the set type that passes between all parts of the engine.
#pragma once

#include <cstddef>
#include <cstdint>

#include "Arrays.h"
#include "Operation.h"
#include "Platform.h"

namespace dorvik::classic {
// Bit n lies in byte n >> 3 under the mask 1 << (n & 7). The length counts bytes;
// a plain array covers bits 0 .. length * 8 - 1, and bytes at its end may be zero, so
// two arrays with the same bits can differ in length (and then compare unequal). Only
// Init (so assignment and copy), operator&= and Compress trim trailing zero bytes.
//
// Bit numbers are ints; a negative bit reads as clear and writing one does nothing.
// A range first..last (both inclusive) is cut to bits 0 and above; when nothing of it
// is left (last below first or below 0) the operation does nothing at all.
//
// Every operation that grows the buffer throws CMemoryException when the block cannot
// be had; unless said otherwise the array is then as it was before the call.
//
// While the compressed flag is set, only GetAt, operator[], SetAt(int), Compress,
// Decompress, GetLength (the compressed length), GetBuffer, IsCompressed,
// SetCompressed, Init, Attach, Detach and FreeBuffer mean anything; all other
// operations read the bytes as a plain bitmap. Not safe for concurrent use.
//
// Compressed form: a marker byte 1, then items to the end of the string. A byte of
// 1 .. 254 is a literal plain byte; 0x00 or 0xFF followed by a little-endian 16-bit
// count is a run of that many plain bytes of that value. An all-zero bitmap has the
// empty form (no marker). Writers never store 0x00 or 0xFF as literals, split runs at
// 65535 and never end with a 0x00 run. Readers take any byte string without reading
// past its end; a run cut short by the end of the string is ignored.
class DORVIK_API CBitArray {
public:
    // An empty array with the given compressed flag.
    explicit CBitArray(bool compressed = false);
    // An uncompressed copy of `other`, cached count and rank index included.
    CBitArray(const CBitArray& other);
    // Takes over the buffer, caches and flags of `other`, which is left empty.
    CBitArray(CBitArray&& other) noexcept;
    // Sets the compressed flag, then Init(buffer, length).
    CBitArray(const unsigned char* buffer, int length, bool compressed);
    virtual ~CBitArray();

    // ---- Storage -------------------------------------------------------------------

    // Releases buffer and rank index: length 0, buffer null. Both flags stay.
    void FreeBuffer();
    // Sets the length in bytes. 0 frees the buffer. Growth beyond the block adds a margin
    // of 100 bytes (none when compressed); every byte that comes in, or that a shrink
    // gives up, reads 0. A negative length is ignored. Sets the modified flag.
    void SetLength(int length);
    // The length in bytes (of the compressed form when compressed).
    int GetLength() const { return m_nLength; }
    // The bytes of the array (plain or compressed form), owned by the array; null
    // while it has none.
    unsigned char* GetBuffer() const { return m_pBuffer; }
    // Becomes a copy of `length` bytes of `buffer`, which stays the caller's. Trailing
    // zero bytes are trimmed unless the array is compressed (a compressed form may end
    // in a zero run count). A length of 0 or less, or a null buffer, leaves it empty.
    // `buffer` may point into this array's own bytes. Sets the modified flag.
    void Init(const unsigned char* buffer, int length);
    // Frees the old buffer and takes `buffer` (a GrabBlock or malloc block) as its own,
    // untrimmed; it is released with DropBlock later. With `length` 0 or less the block
    // stays the caller's and the array is empty. Sets the modified flag.
    void Attach(unsigned char* buffer, int length);
    // Gives the buffer to the caller, who releases it with DropBlock; the array is left
    // empty, flags unchanged. Null when there was no buffer.
    unsigned char* Detach();

    // IsModified and SetModified: the modified flag, set by every change of bits or
    // length, cleared only here.
    bool IsModified() const { return m_bModified; }
    void SetModified(bool modified) { m_bModified = modified; }
    // IsCompressed and SetCompressed: the compressed flag alone; the bytes are not
    // converted.
    bool IsCompressed() const { return m_bCompressed; }
    void SetCompressed(bool compressed) { m_bCompressed = compressed; }

    // ---- Bits and ranges -----------------------------------------------------------

    // GetAt and operator[]: the bit; false beyond the length or below 0. A compressed
    // array is read in place.
    bool GetAt(int bit) const;
    bool operator[](int bit) const { return GetAt(bit); }
    // Sets the bit, growing the array to (bit >> 3) + 1 bytes when needed. A compressed
    // array is changed in place (static SetAt below).
    void SetAt(int bit);
    // Clears the bit when it lies within the length; never grows.
    void ResetAt(int bit);
    // Clears every bit that is set in `other`, over the shorter of the two lengths;
    // never grows. A null `other` does nothing.
    void ResetAt(const CBitArray* other);
    // Flips the bit, growing as SetAt does.
    void XOrAt(int bit);
    // Sets bits from..to, growing to to / 8 + 1 bytes when needed.
    void SetRange(int from, int to);
    // Clears bits from..to that lie within the length; never grows.
    void ResetRange(int from, int to);
    // Flips bits from..to, growing as SetRange does.
    void XOrRange(int from, int to);
    // Every byte within the length becomes 0xFF (SetAll) or 0 (ResetAll); the length
    // stays, so SetAll on an empty array sets nothing.
    void SetAll();
    void ResetAll();
    // Makes bits from..to equal to those of `source`, growing to to / 8 + 1 bytes when
    // needed; `to` is first cut to the end of `source`. Other bits stay. When `from` lies
    // at or beyond the end of `source` nothing happens, the modified flag included.
    void CopyRange(const CBitArray& source, int from, int to);
    // Complements the set within bits 0 .. bits - 1: grows to (bits + 7) / 8 bytes when
    // needed, flips every byte, then clears every bit at or above `bits`; the length
    // stays. A negative `bits` does nothing.
    void Invert(int bits);
    // Opens a gap of `count` bits behind `bit` (-1: at the front) and fills it with
    // `value`; the bits above move up by `count`. The length grows to hold the old bits
    // plus `count` (plus the distance when `bit` lies beyond the end), and further when
    // `value` is true and the gap reaches beyond that. `count` 0 or less, or `bit` below
    // -1, does nothing. Throws CMemoryException, with the array unchanged, when the gap
    // or the bytes moved up would reach past bit 2^31 - 1.
    void Insert(int bit, int count, bool value);
    // Removes bits from..to (cut to the end) and moves the bits above down. The length
    // becomes the bytes that the remaining bits need, rounded up. `from` at or beyond the
    // end, or above `to`, does nothing.
    void Delete(int from, int to);

    // ---- Set logic -----------------------------------------------------------------

    // Becomes a copy of `source` by Init, then takes its cached count and rank index.
    // The compressed flag of this array stays. Sets the modified flag. Assigning an
    // array to itself does nothing, the modified flag included.
    void operator=(const CBitArray& source);
    // Union: grows to the other's length when that is longer; nothing is trimmed.
    void operator|=(const CBitArray& other);
    // Symmetric difference, grown as |=; nothing is trimmed.
    void operator^=(const CBitArray& other);
    // Intersection: the length becomes the shorter one, less trailing zero bytes; an
    // empty result frees the buffer (length 0, buffer null).
    void operator&=(const CBitArray& other);
    // An uncompressed copy of this array combined with `other` by the forms above.
    CBitArray operator&(const CBitArray& other) const;
    CBitArray operator|(const CBitArray& other) const;
    CBitArray operator^(const CBitArray& other) const;
    // Equal lengths and equal bytes; arrays that differ only in trailing zero bytes are
    // unequal.
    bool operator==(const CBitArray& other) const;
    bool operator!=(const CBitArray& other) const { return !(*this == other); }
    // True when the two arrays have a set bit in common.
    bool operator&&(const CBitArray& other) const;

    // ---- Queries -------------------------------------------------------------------

    // The number of set bits, cached until the next change.
    int GetCount() const;
    // The number of set bits in from..to; bits beyond the length count as clear.
    int GetRangeCount(int from, int to) const;
    // True when no bit is set (always for length 0).
    bool IsEmpty() const;
    // True when no bit in from..to is set (always for length 0 or an empty range).
    bool IsRangeEmpty(int from, int to) const;

    // ---- Compressed form -----------------------------------------------------------

    // Turns a plain array into its compressed form and sets the flag. Nothing happens
    // when it is compressed already or has length 0. An all-zero array ends empty with
    // the flag set. Drops the cached count and index; the modified flag stays.
    void Compress();
    // Turns a compressed array back into plain bytes and clears the flag. Nothing
    // happens when it is not compressed or has length 0 (the flag then stays). Drops the
    // cached count and index; the modified flag stays.
    void Decompress();

    // Writes the compressed form of `length` plain bytes of `source` (which stays the
    // caller's) to `target`: a new GrabBlock block, released with DropBlock, that may be
    // larger than `targetLength`. Only zero bytes: `target` null, `targetLength` 0. The
    // old value of `target` is overwritten, not released. Throws CMemoryException.
    static void Compress(const unsigned char* source, int length, unsigned char*& target,
                         int& targetLength);
    // Drops the compressed block `buffer` with DropBlock and puts in its place a new
    // GrabBlock block of the plain bytes, and their number in `length`; the block may be
    // up to an eighth larger, and its bytes past `length` read 0. `limit` below 0
    // expands everything in one pass over a dense form; otherwise expansion stops after
    // the item that reaches `limit` plain bytes, so up to 65534 more can come. When no
    // plain byte results, `buffer` becomes null and `length` 0. `length` 0 or less does
    // nothing. Throws CMemoryException when the plain bytes would pass 2^31 - 1 or
    // cannot be had.
    static void Decompress(unsigned char*& buffer, int& length, int limit);
    // The number of plain bytes that the items of `buffer` stand for, walking from its
    // first byte: a whole form counts its marker as one literal, so pass buffer + 1 and
    // length - 1 for the plain length. -1 when the count would pass 2^31 - 1.
    static int DecompressLength(const unsigned char* buffer, int length);
    // One bit of a compressed form; false beyond its end, below 0 or for length 0.
    static bool GetAt(const unsigned char* buffer, int length, int bit);
    // Sets one bit of a compressed form in place, regrowing `buffer` (a GrabBlock block,
    // or null for the empty form) to the exact new length when it grows; `length`
    // follows. True when the bit was clear and is set now; false when it was set
    // already (or `bit` is negative), with nothing changed. A run cut short at the end of
    // the string is dropped when a byte is appended behind it.
    static bool SetAt(unsigned char*& buffer, int& length, int bit);

    // ---- Plain bitmaps in raw buffers ------------------------------------------------

    // Combines `sourceLength` bytes of `source` into `target` by `op`. opAnd: the
    // length becomes the shorter one less trailing zero bytes; the block stays. opCopy,
    // opOr, opXor, and any other value: a shorter target first grows to `sourceLength`
    // (RegrowBlock, or a new GrabBlock block when `targetLength` is 0 or `target` null;
    // the added bytes read 0; a block left in `target` at length 0 is overwritten, not
    // released), then opCopy copies, opOr and opXor combine, any other value changes no
    // byte. A longer target keeps its tail. Throws CMemoryException when it cannot grow.
    static void Mem(Operation op, const unsigned char* source, int sourceLength,
                    unsigned char*& target, int& targetLength);
    // Complements bits 0 .. bits - 1 in place and clears the rest of the byte that holds
    // bit `bits` - 1. It works only within the `length` bytes given and never allocates:
    // returns the number of bytes complemented, (bits + 7) / 8 cut to `length` (0 for
    // bits or length 0 or less, or a null buffer).
    static int BitsNot(unsigned char* buffer, int length, int bits);
    // Bit i of the result is bit from + i of `buffer`, for i below `bits`; other bits are
    // 0. `bits` above 32 is cut to 32; `bits` 0 or less, `from` below 0 or a null buffer
    // give 0. Reads only the bytes that hold those bits.
    static int GetBitsValue(const unsigned char* buffer, int from, int bits);
    // Copies `bits` bits, set and clear alike, from `source` at `sourceBit` upward to
    // `target` at `targetBit` upward, as if one at a time in rising order (overlap
    // included). The buffers are not grown; negative arguments or null buffers do
    // nothing.
    static void SetAt(const unsigned char* source, int sourceBit, unsigned char* target,
                      int targetBit, int bits);

    // ---- Ranks and lists -------------------------------------------------------------

    // The names GetIndexBit and GetBitIndex are fixed by the interface; the bit record
    // files have members of the same names with other meanings (see their headers).
    // The set bit of rank `index` (0 is the lowest set bit); -1 when there is none.
    int GetIndexBit(int index) const;
    // One less than the number of set bits at or below `bit`: its rank when set, the rank
    // of the nearest set bit below when clear; -1 when no bit at or below it is set.
    int GetBitIndex(int bit) const;
    // GetHeadBit and GetTailBit: the lowest and the highest set bit; -1 when none is set.
    int GetHeadBit() const;
    int GetTailBit() const;
    // `bit` when it is set, else the nearest set bit below it; -1 when there is none.
    int GetActualBit(int bit) const;
    // The set bits in rising order in a new block from new[], which the caller releases
    // with delete[]. Returns their number; with no set bit returns 0 and leaves `list`
    // unwritten. The short form cuts bit numbers and the result to 16 bits.
    // Throws CMemoryException when the list cannot be had.
    unsigned short Bmp2Array(unsigned short*& list) const;
    int Bmp2Array(int*& list) const;
    // The set bits in rising order in place of the elements of `list`; returns their
    // number. With no set bit returns 0 and `list` stays as it was.
    int Bmp2Array(CDWordArray& list) const;
    // Frees the buffer, then sets each element of `list` (any order, repeats allowed;
    // values above 2^31 - 1 are skipped). An empty list leaves the array empty; after a
    // CMemoryException it may hold only part of the list.
    void Array2Bmp(const CDWordArray& list);
    // Brings `list`, which holds the lowest set bits in rising order, up to all set bits
    // by appending the higher ones. Returns the number appended (0 when there is no set
    // bit); a complete list is left alone and its size is returned. A list longer than
    // the set bits is rewritten whole and the result is negative.
    int Append2Array(CDWordArray& list) const;
    // Appends the set bits of from..to (cut to the end) to `list` in rising order and
    // returns their number; `from` at or beyond the end gives 0 and leaves `list` alone.
    int Range2Array(int from, int to, CDWordArray& list) const;

protected:
    // The empty state: no buffer, no index, count unknown, step 1, both flags false.
    void InitValues();
    // Drops the cached count and rank index and sets the modified flag.
    void SetModified();
    // Builds the rank index: every step-th set bit, step = count / 10240 + 1.
    void Index() const;

    // Combines `length` bytes of `source` into `target` by opOr, opAnd, opXor or opCopy.
    static void CombineBytes(Operation op, unsigned char* target, const unsigned char* source,
                             std::size_t length);

    unsigned char* m_pBuffer;     // from GrabBlock; null while there are no bytes
    int m_nLength;                // bytes in use
    int m_nCapacity;              // bytes of the block known to be usable
    mutable int m_nCount;         // cached number of set bits; -1 when unknown
    mutable int* m_pIndex;        // rank index from malloc; null when not built
    mutable int m_nIndexEntries;  // entries filled in the rank index
    mutable int m_nIndexStep;     // ranks per index entry
    bool m_bModified;
    bool m_bCompressed;

private:
    void Reserve(int length);
    void GrowTo(std::int64_t length);
    void CopyIndexFrom(const CBitArray& source);
};

}  // namespace dorvik::classic

using dorvik::classic::CBitArray;
