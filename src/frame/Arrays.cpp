#include "dorvik/Arrays.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <new>

#include "dorvik/Exceptions.h"

namespace dorvik::classic {
namespace {
// The new allocated size for `newSize` elements: whole grow steps, or a step chosen
// from the size when the step is 0, as the platform arrays do.
int NextCapacity(int newSize, int maxSize, int size, int growBy) {
    int step = growBy;
    if (step <= 0) step = std::min(1024, std::max(4, size / 8));
    long long wanted = std::max<long long>(newSize, static_cast<long long>(maxSize) + step);
    if (wanted > 0x7FFFFFFF / 8) wanted = newSize;
    return static_cast<int>(wanted);
}

// The size of an array that holds `index`: INT_MAX + 1 elements cannot be had.
int SizeThrough(int index) {
    if (index == INT_MAX) throw CMemoryException();
    return index + 1;
}

template <typename T>
void Resize(T*& data, int& size, int& maxSize, int& growBy, int newSize, int newGrowBy) {
    // A block stays below 2 GiB, as memory files do: a larger size is refused before
    // anything changes, instead of being filled element by element.
    if (newSize > 0 && static_cast<std::size_t>(newSize) > 0x7FFFFFFFu / sizeof(T))
        throw CMemoryException();
    if (newGrowBy != -1) growBy = newGrowBy;
    if (newSize < 0) newSize = 0;
    if (newSize == 0) {
        delete[] data;
        data = nullptr;
        size = maxSize = 0;
        return;
    }
    if (newSize <= maxSize) {
        if (newSize > size) std::fill(data + size, data + newSize, T());
        size = newSize;
        return;
    }
    int capacity = data ? NextCapacity(newSize, maxSize, size, growBy) : std::max(newSize, growBy);
    T* grown = new (std::nothrow) T[static_cast<std::size_t>(capacity)];
    if (!grown) throw CMemoryException();
    if (size > 0) std::copy(data, data + size, grown);
    std::fill(grown + size, grown + capacity, T());
    delete[] data;
    data = grown;
    size = newSize;
    maxSize = capacity;
}
}  // namespace

CDWordArray::~CDWordArray() { delete[] m_pData; }

void CDWordArray::SetSize(int newSize, int growBy) {
    Resize(m_pData, m_nSize, m_nMaxSize, m_nGrowBy, newSize, growBy);
}

void CDWordArray::RemoveAll() { SetSize(0, -1); }

DWORD CDWordArray::GetAt(int index) const {
    return (index >= 0 && index < m_nSize) ? m_pData[index] : 0;
}

void CDWordArray::SetAt(int index, DWORD value) {
    if (index >= 0 && index < m_nSize) m_pData[index] = value;
}

void CDWordArray::SetAtGrow(int index, DWORD value) {
    if (index < 0) return;
    if (index >= m_nSize) SetSize(SizeThrough(index), -1);
    m_pData[index] = value;
}

int CDWordArray::Add(DWORD value) {
    int index = m_nSize;
    SetAtGrow(index, value);
    return index;
}

int CDWordArray::Append(const CDWordArray& other) {
    int first = m_nSize;
    int n = other.m_nSize;
    if (n == 0) return first;
    if (&other == this) {
        SetSize(first + n, -1);
        std::memcpy(m_pData + first, m_pData, static_cast<std::size_t>(n) * sizeof(DWORD));
        return first;
    }
    SetSize(first + n, -1);
    std::memcpy(m_pData + first, other.m_pData, static_cast<std::size_t>(n) * sizeof(DWORD));
    return first;
}

void CDWordArray::Copy(const CDWordArray& other) {
    if (&other == this) return;
    SetSize(other.m_nSize, -1);
    if (other.m_nSize)
        std::memcpy(m_pData, other.m_pData,
                    static_cast<std::size_t>(other.m_nSize) * sizeof(DWORD));
}

CPtrArray::~CPtrArray() { delete[] m_pData; }

void CPtrArray::SetSize(int newSize, int growBy) {
    Resize(m_pData, m_nSize, m_nMaxSize, m_nGrowBy, newSize, growBy);
}

void CPtrArray::RemoveAll() { SetSize(0, -1); }

void CPtrArray::RemoveAt(int index, int count) {
    if (index < 0 || index >= m_nSize || count <= 0) return;
    if (count > m_nSize - index) count = m_nSize - index;
    std::copy(m_pData + index + count, m_pData + m_nSize, m_pData + index);
    std::fill(m_pData + m_nSize - count, m_pData + m_nSize, nullptr);
    m_nSize -= count;
}

void* CPtrArray::GetAt(int index) const {
    return (index >= 0 && index < m_nSize) ? m_pData[index] : nullptr;
}

void CPtrArray::SetAt(int index, void* value) {
    if (index >= 0 && index < m_nSize) m_pData[index] = value;
}

void CPtrArray::SetAtGrow(int index, void* value) {
    if (index < 0) return;
    if (index >= m_nSize) SetSize(SizeThrough(index), -1);
    m_pData[index] = value;
}

int CPtrArray::Add(void* value) {
    int index = m_nSize;
    SetAtGrow(index, value);
    return index;
}

}  // namespace dorvik::classic
