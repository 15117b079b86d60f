// CBitArray's compressed form (the form itself is in CompressedForm) and the statics on
// raw plain buffers.
#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>

#include "bits/CompressedForm.h"
#include "bits/Words.h"
#include "dorvik/BitArray.h"
#include "dorvik/Exceptions.h"
#include "frame/Block.h"

namespace dorvik::classic {
using dorvik::bits::TrimmedLength;
using dorvik::bits::Word;

// ---- Members ---------------------------------------------------------------------------

void CBitArray::Compress() {
    if (m_bCompressed || m_nLength == 0) return;
    unsigned char* packed = nullptr;
    int packedLength = 0;
    Compress(m_pBuffer, m_nLength, packed, packedLength);
    FreeBuffer();
    m_pBuffer = packed;
    m_nLength = m_nCapacity = packedLength;
    m_bCompressed = true;
}

void CBitArray::Decompress() {
    if (!m_bCompressed || m_nLength == 0) return;
    Decompress(m_pBuffer, m_nLength, -1);
    m_nCapacity = m_nLength;
    m_bCompressed = false;
    // The count and index, if any were taken, described the compressed bytes.
    bool modified = m_bModified;
    SetModified();
    m_bModified = modified;
}

// ---- Statics on the compressed form ------------------------------------------------------

void CBitArray::Compress(const unsigned char* source, int length, unsigned char*& target,
                         int& targetLength) {
    dorvik::form::Encode(source, length, target, targetLength);
}

void CBitArray::Decompress(unsigned char*& buffer, int& length, int limit) {
    if (!buffer || length <= 0) return;
    std::size_t n = static_cast<std::size_t>(length);
    int plainLength = 0;
    dorvik::Block<> out;
    if (limit < 0) {
        out = dorvik::form::Decode(buffer, n, plainLength);
    } else {
        std::int64_t plain = dorvik::form::Expand(buffer, n, 1, limit, nullptr);
        if (plain > INT_MAX) throw CMemoryException();
        if (plain > 0) {
            // Every plain byte is written, zero runs included: no fill beforehand.
            out = dorvik::GrabUnfilledOrThrow(static_cast<std::size_t>(plain));
            std::size_t at = 1;
            dorvik::form::ExpandInto(buffer, n, at, out.get(), 0, static_cast<std::size_t>(plain));
            plainLength = static_cast<int>(plain);
        }
    }
    DropBlock(buffer);
    buffer = out.release();
    length = plainLength;
}

int CBitArray::DecompressLength(const unsigned char* buffer, int length) {
    if (!buffer || length <= 0) return 0;
    std::int64_t plain =
        dorvik::form::Expand(buffer, static_cast<std::size_t>(length), 0, -1, nullptr);
    return plain > INT_MAX ? -1 : static_cast<int>(plain);
}

bool CBitArray::GetAt(const unsigned char* buffer, int length, int bit) {
    return dorvik::form::TestBit(buffer, length, bit);
}

bool CBitArray::SetAt(unsigned char*& buffer, int& length, int bit) {
    return dorvik::form::SetBit(buffer, length, bit);
}

// ---- Statics on plain buffers --------------------------------------------------------------

void CBitArray::Mem(Operation op, const unsigned char* source, int sourceLength,
                    unsigned char*& target, int& targetLength) {
    if (!source || sourceLength < 0) sourceLength = 0;
    if (!target || targetLength < 0) targetLength = 0;
    if (op == opAnd) {
        int n = std::min(sourceLength, targetLength);
        CombineBytes(opAnd, target, source, static_cast<std::size_t>(n));
        targetLength = n ? TrimmedLength(target, n) : 0;
        return;
    }
    if (targetLength < sourceLength) {
        std::size_t size = static_cast<std::size_t>(sourceLength);
        if (targetLength == 0) {
            target = dorvik::GrabOrThrow(size).release();
        } else {
            // The block may hold leftovers past the length (an earlier opAnd trims
            // without shrinking), which must not come back as set bits.
            target = static_cast<unsigned char*>(RegrowBlock(target, size));
            std::memset(target + targetLength, 0, size - static_cast<std::size_t>(targetLength));
        }
        targetLength = sourceLength;
    }
    if (op == opCopy || op == opOr || op == opXor)
        CombineBytes(op, target, source, static_cast<std::size_t>(sourceLength));
}

int CBitArray::BitsNot(unsigned char* buffer, int length, int bits) {
    if (!buffer || length <= 0 || bits <= 0) return 0;
    int needed = bits / 8 + (bits % 8 != 0);
    int n = std::min(needed, length);
    for (int i = 0; i < n; ++i) buffer[i] = static_cast<unsigned char>(~buffer[i]);
    if (n == needed && bits % 8)
        buffer[n - 1] &= static_cast<unsigned char>((1u << (bits % 8)) - 1);
    return n;
}

int CBitArray::GetBitsValue(const unsigned char* buffer, int from, int bits) {
    if (!buffer || from < 0 || bits <= 0) return 0;
    bits = std::min(bits, 32);
    const unsigned char* p = buffer + (from >> 3);
    int shift = from & 7;
    int bytes = (shift + bits + 7) / 8;
    Word w = 0;
    for (int i = 0; i < bytes; ++i) w |= static_cast<Word>(p[i]) << (8 * i);
    w = (w >> shift) & ((Word{1} << bits) - 1);
    return static_cast<int>(static_cast<std::uint32_t>(w));
}

}  // namespace dorvik::classic
