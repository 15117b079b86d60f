// CMyDWordArray: a number array with a plain file form, adoption of ready-made blocks,
// a modified flag, searches, and an optional index array that gives a sorted view.
#pragma once

#include "Arrays.h"
#include "Operation.h"
#include "Platform.h"

namespace dorvik::classic {
class CBitArray;

// The file form has no header: element k is the little-endian 32-bit number at offset
// 4 * k, and the element count is the file length / 4.
//
// With an index array set (SetIndexFile, made by Sort) the elements have a second
// order: view position i is the element at physical position index[i]. GetAt, SetAt,
// ElementAt and both operator[] then take view positions, and the searches turn from a
// scan into a binary search; SetAtGrow, Add, Append, Copy, SetSize and operator== always
// work on the physical array. A look-up through the index array marks that array
// modified. Searches compare unsigned while Sort orders signed, so the binary search
// is good for values below 0x80000000.
//
// Positions outside the array read as 0 and writes to them are dropped (the reference
// forms then refer to a scratch element). Not safe for concurrent use.
class DORVIK_API CMyDWordArray : public CDWordArray {
public:
    // Empty, grow step 80 elements, no index array, not modified.
    CMyDWordArray();
    // The index array is not released.
    ~CMyDWordArray() override;

    // Replaces the content with the whole 32-bit elements of the file `fileName` (a
    // tail of fewer than 4 bytes is dropped); not modified afterwards. A missing file
    // leaves the array untouched. Returns true. Throws CFileException when an existing
    // file cannot be read, CMemoryException.
    bool Load(const char* fileName);
    // Creates or truncates `fileName` and writes the elements. Throws CFileException.
    void Save(const char* fileName);

    // Takes over `buffer` (made with new[], released by this array with delete[]) as
    // the data, with `size` elements; the old data is deleted; not modified.
    void Attach(DWORD* buffer, int size);
    // Gives the data block to the caller (release with delete[]); the array is empty
    // afterwards. Null when there was none. The modified flag stays.
    DWORD* Detach();
    // The size in bytes: 4 * GetSize().
    int GetLength() const { return m_nSize * 4; }
    // Replaces the content with the whole 32-bit elements of `length` bytes at `buffer`,
    // read little-endian as in the file form; not modified. Throws CMemoryException.
    void Init(const unsigned char* buffer, int length);

    // Element `index`, through the index array when one is set.
    DWORD GetAt(int index) const;
    DWORD operator[](int index) const { return GetAt(index); }
    // A reference to element `index`, through the index array; sets modified.
    DWORD& operator[](int index) { return ElementAt(index); }
    DWORD& ElementAt(int index);
    // Writes element `index`, through the index array; sets modified.
    void SetAt(int index, DWORD value);

    // The platform operations on the physical array; they set modified.
    void SetAtGrow(int index, DWORD value);
    int Add(DWORD value);
    int Append(const CDWordArray& other);
    void Copy(const CDWordArray& other);
    // The platform SetSize; `growBy` -1 makes the grow step 80 again. Does not set
    // modified. Throws CMemoryException.
    void SetSize(int size, int growBy = -1);

    bool IsModified() const { return m_bModified; }
    void SetModified(bool modified) { m_bModified = modified; }

    // Sizes, then all elements in physical order; the index array plays no part.
    bool operator==(const CDWordArray& other) const;
    bool operator!=(const CDWordArray& other) const { return !(*this == other); }

    // Links the index array (not owned); null unlinks it. An array whose chain of index
    // arrays leads back to this one (itself included) is refused: the old link stays.
    void SetIndexFile(CMyDWordArray* index);
    CMyDWordArray* GetIndexFile() const { return m_pIndexFile; }

    // Empties `target` and fills it with the physical positions of this array's
    // elements in rising order of value as signed numbers; equal values keep their
    // physical order. This array is not reordered: SetIndexFile(target) then gives the
    // sorted view. A null target does nothing. Throws CMemoryException.
    void Sort(CMyDWordArray* target);

    // The physical position of the first element equal to `value`: without index array
    // the lowest such position, with one the first in view order. -1 when none.
    int Find(DWORD value);
    // Positions whose element meets `op` (opEqual, opGreater, opLess combined with |;
    // opNot is not looked at), compared unsigned. Returns their number; when it is above
    // 0 `list` receives a block from GrabBlock holding the physical positions (rising
    // without index array, in view order with one), released by the caller with
    // DropBlock. With 0 no block is handed over and `list` is left as it was. Throws
    // CMemoryException.
    int Find(DWORD value, Operation op, DWORD*& list);
    // Sets the bits of the selected positions in `bits` without clearing it first and
    // returns their number. Physical positions, except with an index array and
    // `sortedPositions` true, when they are view positions.
    int Find(DWORD value, Operation op, CBitArray& bits, bool sortedPositions);

protected:
    // Physical position of view position `index` (unchanged without index array);
    // marks the index array modified. -1 when the index array has no such element.
    int Physical(int index) const;

    CMyDWordArray* m_pIndexFile = nullptr;
    bool m_bModified = false;
};

}  // namespace dorvik::classic

using dorvik::classic::CBitArray;
using dorvik::classic::CMyDWordArray;
