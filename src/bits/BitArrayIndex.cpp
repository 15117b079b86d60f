// The rank index of CBitArray and the conversions between bitmaps and lists of bits.
#include <algorithm>
#include <bit>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

#include "dorvik/BitArray.h"
#include "dorvik/Exceptions.h"

#include "bits/Words.h"

namespace dorvik::classic {
namespace {
using dorvik::bits::Bits;
using dorvik::bits::LoadWord;
using dorvik::bits::Word;
constexpr int kIndexEntries = 10240;

// Calls visit(bit) for every set bit in from..end - 1, rising, until it returns false.
template <typename Visit>
void ForEachSetBit(const unsigned char* p, std::size_t size, Bits from, Bits end, Visit&& visit) {
    end = std::min<Bits>(end, static_cast<Bits>(size) * 8);
    for (Bits base = from & ~Bits{63}; base < end; base += 64) {
        Word w = LoadWord(p, size, static_cast<std::size_t>(base >> 3));
        if (base < from) w &= ~Word{0} << (from - base);
        if (end - base < 64) w &= (Word{1} << (end - base)) - 1;
        for (; w; w &= w - 1)
            if (!visit(base + std::countr_zero(w))) return;
    }
}

// Stores the bit of every step-th rank in `table` (at most `capacity` entries) and
// returns the number of set bits. Words without a sampled rank are passed by count.
DORVIK_POPCOUNT_CLONES Bits SampleRanks(const unsigned char* p, std::size_t size, Bits step,
                                        int* table, Bits capacity, int& entries) {
    Bits rank = 0;
    entries = 0;
    for (std::size_t byte = 0; byte < size; byte += 8) {
        Word w = LoadWord(p, size, byte);
        Bits bits = std::popcount(w);
        if (rank + bits <= entries * step) {
            rank += bits;
            continue;
        }
        for (; w; w &= w - 1, ++rank)
            if (rank % step == 0 && entries < capacity)
                table[entries++] =
                    static_cast<int>(static_cast<Bits>(byte) * 8 + std::countr_zero(w));
    }
    return rank;
}

// The n-th set bit (n >= 1) above `bit`; -1 when the array ends first.
DORVIK_POPCOUNT_CLONES Bits NthSetBitAbove(const unsigned char* p, std::size_t size, Bits bit,
                                           Bits n) {
    Bits from = bit + 1;
    for (Bits base = from & ~Bits{63}; static_cast<std::size_t>(base >> 3) < size; base += 64) {
        Word w = LoadWord(p, size, static_cast<std::size_t>(base >> 3));
        if (base < from) w &= ~Word{0} << (from - base);
        Bits bits = std::popcount(w);
        if (bits < n) {
            n -= bits;
            continue;
        }
        for (; n > 1; --n) w &= w - 1;
        return base + std::countr_zero(w);
    }
    return -1;
}

bool PlainBit(const unsigned char* p, int length, Bits bit) {
    return bit >= 0 && (bit >> 3) < length && (p[bit >> 3] >> (bit & 7) & 1);
}

// Writes the set bits from `from` on into list[at..count - 1]; returns the next place.
template <typename T>
int FillList(const unsigned char* p, int length, Bits from, T* list, int at, int count) {
    if (at >= count) return at;
    ForEachSetBit(p, static_cast<std::size_t>(length), from, Bits{length} * 8, [&](Bits bit) {
        list[at++] = static_cast<T>(bit);
        return at < count;
    });
    return at;
}

template <typename T>
int NewList(const unsigned char* p, int length, int count, T*& list) {
    if (count <= 0) return 0;
    T* block = new (std::nothrow) T[static_cast<std::size_t>(count)];
    if (!block) throw CMemoryException();
    FillList(p, length, 0, block, 0, count);
    list = block;
    return count;
}
}  // namespace

void CBitArray::Index() const {
    if (m_nLength == 0) return;
    int count = GetCount();
    int step = count / kIndexEntries + 1;
    Bits capacity = count / step + 1;
    int* table = static_cast<int*>(std::malloc(static_cast<std::size_t>(capacity) * sizeof(int)));
    if (!table) throw CMemoryException();
    std::free(m_pIndex);
    m_pIndex = table;
    int entries = 0;
    m_nCount = static_cast<int>(SampleRanks(m_pBuffer, static_cast<std::size_t>(m_nLength), step,
                                            table, capacity, entries));
    m_nIndexEntries = entries;
    m_nIndexStep = step;
}

int CBitArray::GetIndexBit(int index) const {
    if (index < 0 || index >= GetCount()) return -1;
    if (!m_pIndex) Index();
    int entry = index / m_nIndexStep;
    if (!m_pIndex || entry >= m_nIndexEntries) return -1;
    int left = index % m_nIndexStep;
    if (left == 0) return m_pIndex[entry];
    return static_cast<int>(
        NthSetBitAbove(m_pBuffer, static_cast<std::size_t>(m_nLength), m_pIndex[entry], left));
}

int CBitArray::GetBitIndex(int bit) const {
    if (bit < 0 || GetCount() == 0) return -1;
    if (!m_pIndex) Index();
    if (!m_pIndex) return -1;
    // Any entry at or below `bit` gives the rank; the last one needs the shortest count.
    const int* above = std::upper_bound(m_pIndex, m_pIndex + m_nIndexEntries, bit);
    if (above == m_pIndex) return -1;
    int entry = static_cast<int>(above - m_pIndex) - 1;
    int rank = entry * m_nIndexStep + GetRangeCount(m_pIndex[entry], bit - 1);
    return PlainBit(m_pBuffer, m_nLength, bit) ? rank : rank - 1;
}

int CBitArray::GetHeadBit() const {
    int head = -1;
    ForEachSetBit(m_pBuffer, static_cast<std::size_t>(m_nLength), 0, Bits{m_nLength} * 8,
                  [&](Bits bit) {
                      head = static_cast<int>(bit);
                      return false;
                  });
    return head;
}

int CBitArray::GetTailBit() const {
    std::size_t size = static_cast<std::size_t>(m_nLength);
    if (size == 0) return -1;
    for (std::size_t byte = (size - 1) & ~std::size_t{7};; byte -= 8) {
        if (Word w = LoadWord(m_pBuffer, size, byte))
            return static_cast<int>(byte * 8 + 63 - std::countl_zero(w));
        if (byte == 0) return -1;
    }
}

int CBitArray::GetActualBit(int bit) const {
    if (bit < 0) return -1;
    if (PlainBit(m_pBuffer, m_nLength, bit)) return bit;
    int rank = GetBitIndex(bit);
    return rank < 0 ? -1 : GetIndexBit(rank);
}

unsigned short CBitArray::Bmp2Array(unsigned short*& list) const {
    return static_cast<unsigned short>(NewList(m_pBuffer, m_nLength, GetCount(), list));
}

int CBitArray::Bmp2Array(int*& list) const {
    return NewList(m_pBuffer, m_nLength, GetCount(), list);
}

int CBitArray::Bmp2Array(CDWordArray& list) const {
    int count = GetCount();
    if (count <= 0) return 0;
    list.SetSize(count, -1);
    FillList(m_pBuffer, m_nLength, 0, list.GetData(), 0, count);
    return count;
}

void CBitArray::Array2Bmp(const CDWordArray& list) {
    FreeBuffer();
    const DWORD* values = list.GetData();
    int n = list.GetSize();
    if (m_bCompressed) {
        for (int i = 0; i < n; ++i)
            if (values[i] <= INT_MAX) SetAt(static_cast<int>(values[i]));
        return;
    }
    // One growth to the highest bit gives the length that setting them one by one gives.
    Bits top = -1;
    for (int i = 0; i < n; ++i)
        if (values[i] <= INT_MAX) top = std::max<Bits>(top, values[i]);
    if (top < 0) return;
    GrowTo((top >> 3) + 1);
    for (int i = 0; i < n; ++i)
        if (values[i] <= INT_MAX)
            m_pBuffer[values[i] >> 3] |= static_cast<unsigned char>(1u << (values[i] & 7));
    SetModified();
}

int CBitArray::Append2Array(CDWordArray& list) const {
    int count = GetCount();
    if (count == 0) return 0;
    int old = list.GetSize();
    if (old == count) return old;
    bool extend = old > 0 && old < count;
    Bits from = extend ? Bits{list[old - 1]} + 1 : 0;
    list.SetSize(count, -1);
    FillList(m_pBuffer, m_nLength, from, list.GetData(), extend ? old : 0, count);
    return count - old;
}

int CBitArray::Range2Array(int from, int to, CDWordArray& list) const {
    if (from < 0) from = 0;
    if (from >= Bits{m_nLength} * 8 || to < from) return 0;
    Bits last = std::min<Bits>(to, Bits{m_nLength} * 8 - 1);
    list.SetSize(list.GetSize(), 1024);
    int added = GetRangeCount(from, static_cast<int>(last));
    if (added == 0) return 0;
    int old = list.GetSize();
    list.SetSize(old + added, -1);
    ForEachSetBit(m_pBuffer, static_cast<std::size_t>(m_nLength), from, last + 1,
                  [&, at = old](Bits bit) mutable {
                      list.ElementAt(at++) = static_cast<DWORD>(bit);
                      return at < old + added;
                  });
    return added;
}

}  // namespace dorvik::classic
