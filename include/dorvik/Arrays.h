// Growable arrays of the platform: 32-bit numbers and untyped pointers.
#pragma once

#include "Platform.h"

namespace dorvik::classic {
// A growable array of DWORD. The data block is contiguous and made with new[];
// derived classes (CMyDWordArray) work on the four fields directly.
class DORVIK_API CDWordArray : public CObject {
public:
    CDWordArray() = default;
    ~CDWordArray() override;

    int GetSize() const { return m_nSize; }
    int GetUpperBound() const { return m_nSize - 1; }
    // Sets the size; added elements are 0. `growBy` -1 keeps the grow step, another
    // value replaces it (0: a step chosen from the size). A size below 0 counts as 0.
    // Throws CMemoryException when the block cannot be had or would reach 2 GiB; the
    // array is then unchanged.
    void SetSize(int newSize, int growBy = -1);
    void RemoveAll();

    // Elements outside 0 .. size - 1 read as 0, and SetAt ignores them.
    DWORD GetAt(int index) const;
    void SetAt(int index, DWORD value);
    // Unchecked: `index` must lie in 0 .. size - 1.
    DWORD& ElementAt(int index) { return m_pData[index]; }
    DWORD operator[](int index) const { return GetAt(index); }
    DWORD& operator[](int index) { return m_pData[index]; }
    const DWORD* GetData() const { return m_pData; }
    DWORD* GetData() { return m_pData; }

    // Grows the array to index + 1 when needed, then sets the element. Throws
    // CMemoryException as SetSize does (INT_MAX among them).
    void SetAtGrow(int index, DWORD value);
    // Appends; returns the index of the new element.
    int Add(DWORD value);
    // Appends all of `other`; returns the index of its first element here.
    int Append(const CDWordArray& other);
    // Becomes a copy of `other`.
    void Copy(const CDWordArray& other);

protected:
    DWORD* m_pData = nullptr;
    int m_nSize = 0;
    int m_nMaxSize = 0;
    int m_nGrowBy = 0;
};

// A growable array of void*. It owns none of the pointees.
class DORVIK_API CPtrArray : public CObject {
public:
    CPtrArray() = default;
    ~CPtrArray() override;

    int GetSize() const { return m_nSize; }
    int GetUpperBound() const { return m_nSize - 1; }
    // Added slots are null; otherwise as CDWordArray::SetSize.
    void SetSize(int newSize, int growBy = -1);
    void RemoveAll();
    // Removes `count` slots from `index` on, clamped to the array.
    void RemoveAt(int index, int count = 1);

    // Slots outside 0 .. size - 1 read as null, and SetAt ignores them.
    void* GetAt(int index) const;
    void SetAt(int index, void* value);
    void SetAtGrow(int index, void* value);
    int Add(void* value);
    void* operator[](int index) const { return GetAt(index); }
    // Unchecked: `index` must lie in 0 .. size - 1.
    void*& operator[](int index) { return m_pData[index]; }
    void*& ElementAt(int index) { return m_pData[index]; }
    void** GetData() { return m_pData; }

protected:
    void** m_pData = nullptr;
    int m_nSize = 0;
    int m_nMaxSize = 0;
    int m_nGrowBy = 0;
};

}  // namespace dorvik::classic

using dorvik::classic::CDWordArray;
using dorvik::classic::CPtrArray;
