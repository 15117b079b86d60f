// Storage, bit and range operations, set logic and counts of CBitArray.
#include "dorvik/BitArray.h"

#include <algorithm>
#include <bit>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "dorvik/Exceptions.h"

#include "bits/Words.h"
#include "frame/Block.h"

namespace dorvik::classic {
namespace {
using dorvik::bits::Bits;
using dorvik::bits::Load;
using dorvik::bits::TrimmedLength;
using dorvik::bits::Word;
constexpr int kGrowthMargin = 100;

void Store(unsigned char* p, Word w) { std::memcpy(p, &w, sizeof w); }

unsigned char BitMask(Bits bit) { return static_cast<unsigned char>(1u << (bit & 7)); }

// Bits lo..hi (0..7, inclusive) of a byte.
unsigned char ByteMask(int lo, int hi) {
    return static_cast<unsigned char>((0xFFu << lo) & (0xFFu >> (7 - hi)));
}

Bits BitsOf(int length) { return static_cast<Bits>(length) * 8; }

// Cuts a range to bits 0 and above; false when nothing of it is left.
bool ClipRange(int& from, int to) {
    if (from < 0) from = 0;
    return to >= from;
}

template <typename Op>
void Combine(unsigned char* target, const unsigned char* source, std::size_t n, Op op) {
    std::size_t i = 0;
    for (; i + 8 <= n; i += 8) Store(target + i, op(Load(target + i), Load(source + i)));
    for (; i < n; ++i) target[i] = static_cast<unsigned char>(op(target[i], source[i]));
}

DORVIK_POPCOUNT_CLONES Bits CountBytes(const unsigned char* p, std::size_t n) {
    Bits count = 0;
    std::size_t i = 0;
    for (; i + 8 <= n; i += 8) count += std::popcount(Load(p + i));
    for (; i < n; ++i) count += std::popcount(static_cast<unsigned>(p[i]));
    return count;
}

bool AllZero(const unsigned char* p, std::size_t n) {
    std::size_t i = 0;
    for (; i + 8 <= n; i += 8)
        if (Load(p + i)) return false;
    for (; i < n; ++i)
        if (p[i]) return false;
    return true;
}

enum class Fill { set, reset, flip };

void FillByte(unsigned char& byte, unsigned char mask, Fill how) {
    if (how == Fill::set)
        byte |= mask;
    else if (how == Fill::reset)
        byte &= static_cast<unsigned char>(~mask);
    else
        byte ^= mask;
}

void FillBytes(unsigned char* p, std::size_t n, Fill how) {
    if (how != Fill::flip) {
        std::memset(p, how == Fill::set ? 0xFF : 0, n);
        return;
    }
    std::size_t i = 0;
    for (; i + 8 <= n; i += 8) Store(p + i, ~Load(p + i));
    for (; i < n; ++i) p[i] = static_cast<unsigned char>(~p[i]);
}

// Applies `how` to bits from..to (inclusive), which lie within the buffer.
void FillBits(unsigned char* p, Bits from, Bits to, Fill how) {
    Bits head = from >> 3, tail = to >> 3;
    if (head == tail) {
        FillByte(p[head], ByteMask(from & 7, to & 7), how);
        return;
    }
    FillByte(p[head], ByteMask(from & 7, 7), how);
    FillBytes(p + head + 1, static_cast<std::size_t>(tail - head - 1), how);
    FillByte(p[tail], ByteMask(0, to & 7), how);
}

// Set bits in from..to (inclusive), which lie within the buffer.
Bits CountBits(const unsigned char* p, Bits from, Bits to) {
    Bits head = from >> 3, tail = to >> 3;
    if (head == tail)
        return std::popcount(static_cast<unsigned>(p[head] & ByteMask(from & 7, to & 7)));
    Bits count = std::popcount(static_cast<unsigned>(p[head] & ByteMask(from & 7, 7)));
    count += CountBytes(p + head + 1, static_cast<std::size_t>(tail - head - 1));
    return count + std::popcount(static_cast<unsigned>(p[tail] & ByteMask(0, to & 7)));
}

// Bit pieces of up to 56 bits, read and written through exactly the bytes that hold
// them, so that they never touch a byte outside the bits named.
constexpr int kPiece = 56;

Word FromLittleEndian(Word w) {
    if constexpr (std::endian::native == std::endian::big) return __builtin_bswap64(w);
    return w;
}

std::size_t PieceBytes(Bits bit, int n) {
    return static_cast<std::size_t>(((bit & 7) + n + 7) / 8);
}

Word ReadPiece(const unsigned char* p, Bits bit, int n) {
    Word w = 0;
    std::memcpy(&w, p + (bit >> 3), PieceBytes(bit, n));
    return (FromLittleEndian(w) >> (bit & 7)) & ((Word{1} << n) - 1);
}

void WritePiece(unsigned char* p, Bits bit, int n, Word value) {
    std::size_t bytes = PieceBytes(bit, n);
    int shift = static_cast<int>(bit & 7);
    Word w = 0;
    std::memcpy(&w, p + (bit >> 3), bytes);
    Word mask = ((Word{1} << n) - 1) << shift;
    w = FromLittleEndian((FromLittleEndian(w) & ~mask) | (value << shift));
    std::memcpy(p + (bit >> 3), &w, bytes);
}

// Copies `count` bits from `from` to `to`. Moving up it works from the top piece down,
// moving down (or to another buffer) from the bottom up, so that no piece is
// overwritten before it is read.
void MoveBits(const unsigned char* source, Bits from, unsigned char* target, Bits to, Bits count,
              bool rising) {
    if (!rising) {
        for (Bits left = count; left > 0;) {
            int n = static_cast<int>(std::min<Bits>(kPiece, left));
            left -= n;
            WritePiece(target, to + left, n, ReadPiece(source, from + left, n));
        }
        return;
    }
    for (Bits done = 0; done < count;) {
        int n = static_cast<int>(std::min<Bits>(kPiece, count - done));
        WritePiece(target, to + done, n, ReadPiece(source, from + done, n));
        done += n;
    }
}

void MoveBits(unsigned char* p, Bits from, Bits to, Bits count) {
    MoveBits(p, from, p, to, count, to < from);
}
}  // namespace

// ---- Construction and storage --------------------------------------------------------

CBitArray::CBitArray(bool compressed) {
    InitValues();
    m_bCompressed = compressed;
}

CBitArray::CBitArray(const CBitArray& other) {
    InitValues();
    *this = other;
}

CBitArray::CBitArray(CBitArray&& other) noexcept
    : m_pBuffer(other.m_pBuffer),
      m_nLength(other.m_nLength),
      m_nCapacity(other.m_nCapacity),
      m_nCount(other.m_nCount),
      m_pIndex(other.m_pIndex),
      m_nIndexEntries(other.m_nIndexEntries),
      m_nIndexStep(other.m_nIndexStep),
      m_bModified(other.m_bModified),
      m_bCompressed(other.m_bCompressed) {
    other.InitValues();
    other.m_bCompressed = m_bCompressed;
}

CBitArray::CBitArray(const unsigned char* buffer, int length, bool compressed) {
    InitValues();
    m_bCompressed = compressed;
    Init(buffer, length);
}

CBitArray::~CBitArray() {
    DropBlock(m_pBuffer);
    std::free(m_pIndex);
}

void CBitArray::InitValues() {
    m_pBuffer = nullptr;
    m_nLength = 0;
    m_nCapacity = 0;
    m_nCount = -1;
    m_pIndex = nullptr;
    m_nIndexEntries = 0;
    m_nIndexStep = 1;
    m_bModified = false;
    m_bCompressed = false;
}

void CBitArray::FreeBuffer() {
    DropBlock(m_pBuffer);
    std::free(m_pIndex);
    m_pBuffer = nullptr;
    m_pIndex = nullptr;
    m_nIndexEntries = 0;
    m_nLength = 0;
    m_nCapacity = 0;
    m_nCount = -1;
}

void CBitArray::SetModified() {
    m_nCount = -1;
    std::free(m_pIndex);
    m_pIndex = nullptr;
    m_nIndexEntries = 0;
    m_bModified = true;
}

void CBitArray::Reserve(int length) {
    std::int64_t capacity = static_cast<std::int64_t>(length) + (m_bCompressed ? 0 : kGrowthMargin);
    capacity = std::min<std::int64_t>(capacity, INT_MAX);
    if (m_pBuffer) {
        m_pBuffer =
            static_cast<unsigned char*>(RegrowBlock(m_pBuffer, static_cast<std::size_t>(capacity)));
    } else {
        m_pBuffer = dorvik::GrabOrThrow(static_cast<std::size_t>(capacity)).release();
    }
    m_nCapacity = static_cast<int>(capacity);
}

void CBitArray::SetLength(int length) {
    if (length < 0) return;
    if (length == 0) {
        FreeBuffer();
        m_bModified = true;
        return;
    }
    if (length > m_nCapacity) Reserve(length);
    // Bytes past the length may hold leftovers (a trimmed intersection, an adopted
    // block), so whatever enters or leaves the length is cleared here.
    int low = std::min(length, m_nLength), high = std::max(length, m_nLength);
    std::memset(m_pBuffer + low, 0, static_cast<std::size_t>(high - low));
    bool shrink = length < m_nLength;
    m_nLength = length;
    if (shrink)
        SetModified();  // bits were dropped; growth adds only clear bits
    else
        m_bModified = true;
}

void CBitArray::GrowTo(std::int64_t length) {
    if (length > INT_MAX) throw CMemoryException();
    if (length > m_nLength) SetLength(static_cast<int>(length));
}

void CBitArray::Init(const unsigned char* buffer, int length) {
    unsigned char* copy = nullptr;
    if (buffer && length > 0) {
        copy = dorvik::GrabOrThrow(static_cast<std::size_t>(length)).release();
        std::memcpy(copy, buffer, static_cast<std::size_t>(length));
    } else {
        length = 0;
    }
    FreeBuffer();
    m_pBuffer = copy;
    m_nCapacity = length;
    m_nLength = m_bCompressed || !copy ? length : TrimmedLength(copy, length);
    SetModified();
}

void CBitArray::Attach(unsigned char* buffer, int length) {
    if (buffer == m_pBuffer) m_pBuffer = nullptr;  // re-attaching our own block keeps it
    FreeBuffer();
    if (buffer && length > 0) {
        m_pBuffer = buffer;
        m_nLength = m_nCapacity = length;
    }
    SetModified();
}

unsigned char* CBitArray::Detach() {
    unsigned char* buffer = m_pBuffer;
    m_pBuffer = nullptr;
    FreeBuffer();
    return buffer;
}

// ---- Bits and ranges -----------------------------------------------------------------

bool CBitArray::GetAt(int bit) const {
    if (bit < 0) return false;
    if (m_bCompressed) return GetAt(m_pBuffer, m_nLength, bit);
    return (bit >> 3) < m_nLength && (m_pBuffer[bit >> 3] & BitMask(bit));
}

void CBitArray::SetAt(int bit) {
    if (bit < 0) return;
    if (m_bCompressed) {
        SetAt(m_pBuffer, m_nLength, bit);
        m_nCapacity = m_nLength;
    } else {
        GrowTo((bit >> 3) + 1);
        m_pBuffer[bit >> 3] |= BitMask(bit);
    }
    SetModified();
}

void CBitArray::ResetAt(int bit) {
    if (bit < 0) return;
    if ((bit >> 3) < m_nLength) m_pBuffer[bit >> 3] &= static_cast<unsigned char>(~BitMask(bit));
    SetModified();
}

void CBitArray::ResetAt(const CBitArray* other) {
    if (!other) return;
    std::size_t n = static_cast<std::size_t>(std::min(m_nLength, other->m_nLength));
    Combine(m_pBuffer, other->m_pBuffer, n, [](auto a, auto b) { return a & ~b; });
    SetModified();
}

void CBitArray::XOrAt(int bit) {
    if (bit < 0) return;
    GrowTo((bit >> 3) + 1);
    m_pBuffer[bit >> 3] ^= BitMask(bit);
    SetModified();
}

void CBitArray::SetRange(int from, int to) {
    if (!ClipRange(from, to)) return;
    GrowTo((to >> 3) + 1);
    FillBits(m_pBuffer, from, to, Fill::set);
    SetModified();
}

void CBitArray::ResetRange(int from, int to) {
    if (!ClipRange(from, to)) return;
    Bits last = std::min<Bits>(to, BitsOf(m_nLength) - 1);
    if (from <= last) FillBits(m_pBuffer, from, last, Fill::reset);
    SetModified();
}

void CBitArray::XOrRange(int from, int to) {
    if (!ClipRange(from, to)) return;
    GrowTo((to >> 3) + 1);
    FillBits(m_pBuffer, from, to, Fill::flip);
    SetModified();
}

void CBitArray::SetAll() {
    if (m_nLength) std::memset(m_pBuffer, 0xFF, static_cast<std::size_t>(m_nLength));
    SetModified();
}

void CBitArray::ResetAll() {
    if (m_nLength) std::memset(m_pBuffer, 0, static_cast<std::size_t>(m_nLength));
    SetModified();
}

void CBitArray::CopyRange(const CBitArray& source, int from, int to) {
    if (!ClipRange(from, to) || from >= BitsOf(source.m_nLength)) return;
    Bits last = std::min<Bits>(to, BitsOf(source.m_nLength) - 1);
    GrowTo((last >> 3) + 1);
    Bits head = from >> 3, tail = last >> 3;
    auto merge = [&](Bits byte, unsigned char mask) {
        m_pBuffer[byte] =
            static_cast<unsigned char>((m_pBuffer[byte] & ~mask) | (source.m_pBuffer[byte] & mask));
    };
    if (head == tail) {
        merge(head, ByteMask(from & 7, last & 7));
    } else {
        merge(head, ByteMask(from & 7, 7));
        std::memmove(m_pBuffer + head + 1, source.m_pBuffer + head + 1,
                     static_cast<std::size_t>(tail - head - 1));
        merge(tail, ByteMask(0, last & 7));
    }
    SetModified();
}

void CBitArray::Invert(int bits) {
    if (bits < 0) return;
    if (bits > BitsOf(m_nLength)) GrowTo((static_cast<Bits>(bits) + 7) / 8);
    FillBytes(m_pBuffer, static_cast<std::size_t>(m_nLength), Fill::flip);
    if (bits < BitsOf(m_nLength)) FillBits(m_pBuffer, bits, BitsOf(m_nLength) - 1, Fill::reset);
    SetModified();
}

void CBitArray::Insert(int bit, int count, bool value) {
    if (count <= 0 || bit < -1) return;
    Bits bits = BitsOf(m_nLength);
    Bits first = static_cast<Bits>(bit) + 1;  // first bit of the gap
    Bits last = first + count - 1;
    Bits held = bits + count + std::max<Bits>(0, bit - bits);
    // Bit numbers are ints: neither the gap nor the bits moved above it may pass 2^31 - 1.
    if (last > INT_MAX || held > Bits{INT_MAX} + 1) throw CMemoryException();
    // One growth up front, to what the move and then the fill would each grow to.
    GrowTo(std::max((held + 7) / 8, value ? (last >> 3) + 1 : 0));
    if (first < bits) MoveBits(m_pBuffer, first, first + count, bits - first);
    if (value) {
        FillBits(m_pBuffer, first, last, Fill::set);
    } else if (first < BitsOf(m_nLength)) {
        FillBits(m_pBuffer, first, std::min(last, BitsOf(m_nLength) - 1), Fill::reset);
    }
    SetModified();
}

void CBitArray::Delete(int from, int to) {
    Bits bits = BitsOf(m_nLength);
    if (!ClipRange(from, to) || from >= bits) return;
    Bits last = std::min<Bits>(to, bits - 1);
    Bits gone = last - from + 1;
    Bits left = bits - gone;
    MoveBits(m_pBuffer, last + 1, from, bits - last - 1);
    FillBits(m_pBuffer, left, bits - 1, Fill::reset);
    m_nLength = static_cast<int>((left + 7) / 8);
    SetModified();
}

void CBitArray::SetAt(const unsigned char* source, int sourceBit, unsigned char* target,
                      int targetBit, int bits) {
    if (!source || !target || sourceBit < 0 || targetBit < 0 || bits <= 0) return;
    // A target that starts inside the source range, above its start, reads back bits
    // that the same copy has written; only a bit at a time gives that result.
    Bits distance =
        (reinterpret_cast<std::intptr_t>(target) - reinterpret_cast<std::intptr_t>(source)) * 8 +
        targetBit - sourceBit;
    if (distance > 0 && distance < bits) {
        for (Bits i = 0; i < bits; ++i)
            WritePiece(target, targetBit + i, 1, ReadPiece(source, sourceBit + i, 1));
        return;
    }
    MoveBits(source, sourceBit, target, targetBit, bits, true);
}

// ---- Set logic -----------------------------------------------------------------------

// The index is only a cache: when its copy cannot be had, the copy goes without.
void CBitArray::CopyIndexFrom(const CBitArray& source) {
    if (!source.m_pIndex) return;
    std::size_t bytes = static_cast<std::size_t>(std::max(source.m_nIndexEntries, 1)) * sizeof(int);
    m_pIndex = static_cast<int*>(std::malloc(bytes));
    if (!m_pIndex) return;
    std::memcpy(m_pIndex, source.m_pIndex,
                static_cast<std::size_t>(source.m_nIndexEntries) * sizeof(int));
    m_nIndexEntries = source.m_nIndexEntries;
    m_nIndexStep = source.m_nIndexStep;
}

void CBitArray::operator=(const CBitArray& source) {
    if (&source == this) return;
    Init(source.m_pBuffer, source.m_nLength);
    m_nCount = source.m_nCount;
    CopyIndexFrom(source);
}

void CBitArray::operator|=(const CBitArray& other) {
    GrowTo(other.m_nLength);
    Combine(m_pBuffer, other.m_pBuffer, static_cast<std::size_t>(other.m_nLength),
            [](auto a, auto b) { return a | b; });
    SetModified();
}

void CBitArray::operator^=(const CBitArray& other) {
    GrowTo(other.m_nLength);
    Combine(m_pBuffer, other.m_pBuffer, static_cast<std::size_t>(other.m_nLength),
            [](auto a, auto b) { return a ^ b; });
    SetModified();
}

void CBitArray::operator&=(const CBitArray& other) {
    int n = std::min(m_nLength, other.m_nLength);
    Combine(m_pBuffer, other.m_pBuffer, static_cast<std::size_t>(n),
            [](auto a, auto b) { return a & b; });
    m_nLength = n ? TrimmedLength(m_pBuffer, n) : 0;
    if (m_nLength == 0) FreeBuffer();
    SetModified();
}

CBitArray CBitArray::operator&(const CBitArray& other) const {
    CBitArray result(*this);
    result &= other;
    return result;
}

CBitArray CBitArray::operator|(const CBitArray& other) const {
    CBitArray result(*this);
    result |= other;
    return result;
}

CBitArray CBitArray::operator^(const CBitArray& other) const {
    CBitArray result(*this);
    result ^= other;
    return result;
}

bool CBitArray::operator==(const CBitArray& other) const {
    if (m_nLength != other.m_nLength) return false;
    return m_nLength == 0 ||
           std::memcmp(m_pBuffer, other.m_pBuffer, static_cast<std::size_t>(m_nLength)) == 0;
}

bool CBitArray::operator&&(const CBitArray& other) const {
    std::size_t n = static_cast<std::size_t>(std::min(m_nLength, other.m_nLength)), i = 0;
    for (; i + 8 <= n; i += 8)
        if (Load(m_pBuffer + i) & Load(other.m_pBuffer + i)) return true;
    for (; i < n; ++i)
        if (m_pBuffer[i] & other.m_pBuffer[i]) return true;
    return false;
}

void CBitArray::CombineBytes(Operation op, unsigned char* target, const unsigned char* source,
                             std::size_t length) {
    if (length == 0) return;
    if (op == opCopy)
        std::memmove(target, source, length);
    else if (op == opOr)
        Combine(target, source, length, [](auto a, auto b) { return a | b; });
    else if (op == opAnd)
        Combine(target, source, length, [](auto a, auto b) { return a & b; });
    else if (op == opXor)
        Combine(target, source, length, [](auto a, auto b) { return a ^ b; });
}

// ---- Queries -------------------------------------------------------------------------

int CBitArray::GetCount() const {
    if (m_nCount < 0)
        m_nCount = static_cast<int>(CountBytes(m_pBuffer, static_cast<std::size_t>(m_nLength)));
    return m_nCount;
}

int CBitArray::GetRangeCount(int from, int to) const {
    if (!ClipRange(from, to)) return 0;
    Bits last = std::min<Bits>(to, BitsOf(m_nLength) - 1);
    return from <= last ? static_cast<int>(CountBits(m_pBuffer, from, last)) : 0;
}

bool CBitArray::IsEmpty() const {
    if (m_nLength == 0) return true;
    if (m_nCount > 0) return false;
    return AllZero(m_pBuffer, static_cast<std::size_t>(m_nLength));
}

bool CBitArray::IsRangeEmpty(int from, int to) const {
    if (!ClipRange(from, to)) return true;
    Bits last = std::min<Bits>(to, BitsOf(m_nLength) - 1);
    if (from > last) return true;
    Bits head = from >> 3, tail = last >> 3;
    if (head == tail) return (m_pBuffer[head] & ByteMask(from & 7, last & 7)) == 0;
    return (m_pBuffer[head] & ByteMask(from & 7, 7)) == 0 &&
           (m_pBuffer[tail] & ByteMask(0, last & 7)) == 0 &&
           AllZero(m_pBuffer + head + 1, static_cast<std::size_t>(tail - head - 1));
}

}  // namespace dorvik::classic
