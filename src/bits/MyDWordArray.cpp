#include "dorvik/MyDWordArray.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

#include "bits/SortedSearch.h"
#include "dorvik/BitArray.h"
#include "dorvik/Exceptions.h"
#include "dorvik/File.h"
#include "frame/Block.h"
#include "frame/Coding.h"

namespace dorvik::classic {
namespace {
constexpr int kGrowBy = 80;

// Where writes to positions outside the array go, so that the reference forms never
// point outside the data.
thread_local DWORD g_scratch = 0;

bool Selected(DWORD element, DWORD value, int op) {
    return ((op & opEqual) && element == value) || ((op & opGreater) && element > value) ||
           ((op & opLess) && element < value);
}

// How view element i stands to `value`, compared unsigned, for the sorted search.
auto ViewOrder(const CMyDWordArray& array, DWORD value) {
    return [&array, value](int i) {
        DWORD element = array.GetAt(i);
        return element == value ? 0 : (element > value ? 1 : -1);
    };
}
}  // namespace

CMyDWordArray::CMyDWordArray() { m_nGrowBy = kGrowBy; }

CMyDWordArray::~CMyDWordArray() = default;

bool CMyDWordArray::Load(const char* fileName) {
    CFileStatus status;
    if (!CFile::GetStatus(fileName, status)) return true;
    CFile file(fileName, CFile::shareDenyNone);
    DWORD count = file.GetLength() / 4;
    DWORD* block = nullptr;
    if (count > 0) {
        block = new (std::nothrow) DWORD[count]();
        if (!block) throw CMemoryException();
        try {
            file.Read(block, count * 4);
        } catch (...) {
            delete[] block;
            throw;
        }
        dorvik::FixedToHost32(block, count);
    }
    Attach(block, static_cast<int>(count));
    return true;
}

void CMyDWordArray::Save(const char* fileName) {
    CFile file(fileName, CFile::modeCreate | CFile::modeWrite | CFile::shareDenyNone);
    dorvik::WriteFixed32(m_pData, static_cast<std::size_t>(m_nSize),
                         [&file](const unsigned char* bytes, std::size_t n) {
                             file.Write(bytes, static_cast<UINT>(n));
                         });
    file.Close();
}

void CMyDWordArray::Attach(DWORD* buffer, int size) {
    if (buffer != m_pData) delete[] m_pData;
    m_pData = buffer;
    m_nSize = m_nMaxSize = (buffer && size > 0) ? size : 0;
    m_bModified = false;
}

DWORD* CMyDWordArray::Detach() {
    DWORD* data = m_pData;
    m_pData = nullptr;
    m_nSize = m_nMaxSize = 0;
    return data;
}

void CMyDWordArray::Init(const unsigned char* buffer, int length) {
    int count = (buffer && length > 0) ? length / 4 : 0;
    DWORD* block = nullptr;
    if (count > 0) {
        block = new (std::nothrow) DWORD[static_cast<std::size_t>(count)];
        if (!block) throw CMemoryException();
        for (int i = 0; i < count; ++i) block[i] = dorvik::DecodeFixed32(buffer + 4 * i);
    }
    delete[] m_pData;
    m_pData = block;
    m_nSize = m_nMaxSize = count;
    m_bModified = false;
}

void CMyDWordArray::SetIndexFile(CMyDWordArray* index) {
    // Every lookup goes down the chain of index arrays: one that came back here would
    // never end.
    for (CMyDWordArray* link = index; link; link = link->m_pIndexFile) {
        if (link == this) return;
    }
    m_pIndexFile = index;
}

int CMyDWordArray::Physical(int index) const {
    if (!m_pIndexFile) return index;
    CMyDWordArray* idx = m_pIndexFile;
    int p = idx->Physical(index);
    idx->m_bModified = true;
    if (p < 0 || p >= idx->m_nSize) return -1;
    DWORD physical = idx->m_pData[p];
    return physical > 0x7FFFFFFF ? -1 : static_cast<int>(physical);
}

DWORD CMyDWordArray::GetAt(int index) const {
    int p = Physical(index);
    return (p >= 0 && p < m_nSize) ? m_pData[p] : 0;
}

DWORD& CMyDWordArray::ElementAt(int index) {
    m_bModified = true;
    int p = Physical(index);
    if (p >= 0 && p < m_nSize) return m_pData[p];
    g_scratch = 0;
    return g_scratch;
}

void CMyDWordArray::SetAt(int index, DWORD value) {
    m_bModified = true;
    int p = Physical(index);
    if (p >= 0 && p < m_nSize) m_pData[p] = value;
}

void CMyDWordArray::SetAtGrow(int index, DWORD value) {
    m_bModified = true;
    CDWordArray::SetAtGrow(index, value);
}

int CMyDWordArray::Add(DWORD value) {
    m_bModified = true;
    return CDWordArray::Add(value);
}

int CMyDWordArray::Append(const CDWordArray& other) {
    m_bModified = true;
    return CDWordArray::Append(other);
}

void CMyDWordArray::Copy(const CDWordArray& other) {
    m_bModified = true;
    CDWordArray::Copy(other);
}

void CMyDWordArray::SetSize(int size, int growBy) {
    CDWordArray::SetSize(size, growBy == -1 ? kGrowBy : growBy);
}

bool CMyDWordArray::operator==(const CDWordArray& other) const {
    if (m_nSize != other.GetSize()) return false;
    return m_nSize == 0 ||
           std::memcmp(m_pData, other.GetData(), static_cast<std::size_t>(m_nSize) * 4) == 0;
}

void CMyDWordArray::Sort(CMyDWordArray* target) {
    if (!target) return;
    // The signed value in the high half and the position in the low half: one plain
    // sort of these keys orders by value and keeps equal values in physical order, in
    // O(n log n) whatever the input.
    std::vector<std::uint64_t> keys(static_cast<std::size_t>(m_nSize));
    for (int i = 0; i < m_nSize; ++i)
        keys[static_cast<std::size_t>(i)] =
            (static_cast<std::uint64_t>(m_pData[i] ^ 0x80000000u) << 32) | static_cast<DWORD>(i);
    std::sort(keys.begin(), keys.end());
    CDWordArray order;
    order.SetSize(m_nSize, 0);
    for (int i = 0; i < m_nSize; ++i)
        order.GetData()[i] = static_cast<DWORD>(keys[static_cast<std::size_t>(i)]);
    target->RemoveAll();
    target->Append(order);
}

int CMyDWordArray::Find(DWORD value) {
    if (!m_pIndexFile) {
        for (int i = 0; i < m_nSize; ++i)
            if (m_pData[i] == value) return i;
        return -1;
    }
    dorvik::SortedRun run = dorvik::FindSortedRun(m_nSize, ViewOrder(*this, value));
    return run.found ? Physical(run.low) : -1;
}

int CMyDWordArray::Find(DWORD value, Operation op, DWORD*& list) {
    const int flags = op;
    if (!m_pIndexFile) {
        int count = 0;
        for (int i = 0; i < m_nSize; ++i) count += Selected(m_pData[i], value, flags) ? 1 : 0;
        if (count == 0) return 0;
        DWORD* block = dorvik::GrabOrThrow<DWORD>(static_cast<std::size_t>(count) * 4).release();
        int n = 0;
        for (int i = 0; i < m_nSize; ++i)
            if (Selected(m_pData[i], value, flags)) block[n++] = static_cast<DWORD>(i);
        list = block;
        return count;
    }
    auto [found, low, high] = dorvik::FindSortedRun(m_nSize, ViewOrder(*this, value));
    // The view splits into [0, low) below, [low, high] equal (when found) and
    // (high, size) above the value.
    int count = 0;
    if (flags & opLess) count += low;
    if ((flags & opEqual) && found) count += high - low + 1;
    if (flags & opGreater) count += m_nSize - high - 1;
    if (count == 0) return 0;
    DWORD* block = dorvik::GrabOrThrow<DWORD>(static_cast<std::size_t>(count) * 4).release();
    int n = 0;
    auto put = [&](int first, int last) {
        for (int i = first; i <= last; ++i) block[n++] = static_cast<DWORD>(Physical(i));
    };
    if (flags & opLess) put(0, low - 1);
    if ((flags & opEqual) && found) put(low, high);
    if (flags & opGreater) put(high + 1, m_nSize - 1);
    list = block;
    return count;
}

int CMyDWordArray::Find(DWORD value, Operation op, CBitArray& bits, bool sortedPositions) {
    const int flags = op;
    int count = 0;
    if (!m_pIndexFile) {
        // Falling order: the first bit set grows the array once to its final length.
        for (int i = m_nSize - 1; i >= 0; --i) {
            if (Selected(m_pData[i], value, flags)) {
                bits.SetAt(i);
                ++count;
            }
        }
        return count;
    }
    auto [found, low, high] = dorvik::FindSortedRun(m_nSize, ViewOrder(*this, value));
    auto put = [&](int first, int last) {
        if (first > last) return;
        count += last - first + 1;
        if (sortedPositions) {
            bits.SetRange(first, last);
            return;
        }
        for (int i = last; i >= first; --i) {
            int p = Physical(i);
            if (p >= 0) bits.SetAt(p);
        }
    };
    if (flags & opLess) put(0, low - 1);
    if ((flags & opEqual) && found) put(low, high);
    if (flags & opGreater) put(high + 1, m_nSize - 1);
    return count;
}

}  // namespace dorvik::classic
