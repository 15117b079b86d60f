// In-memory arrays of bit arrays that an indexer fills and then folds into bit record
// files in one pass.
//
// File forms. Plain array: a CBitsBinFile whose record i is element i. Packed array:
// record 0 is a bit array of the element indexes present, record k (from 1) the k-th
// element saved in rising index order (Init reads such a file as a plain array).
// Collection: a CBinFile whose record i is the whole image of a CBitsBinFile holding
// element i; a collection of plain arrays reads as a two-dimensional CNDimBitsBinFile.
#pragma once

#include "Arrays.h"
#include "BinFile.h"
#include "BitArray.h"
#include "BitsBinFile.h"
#include "Operation.h"

// A growable array of owned CBitArray elements, loaded from and saved to a bit record
// file. Not safe for concurrent use.
class DORVIK_API CBitArrayArray : public CPtrArray {
public:
    using Progress = bool (*)(int, int);

    // Elements this object creates get `compressed` as their compressed flag.
    explicit CBitArrayArray(bool compressed = false);
    ~CBitArrayArray() override;

    // Opens (creating it empty when missing) the bit record file at `path` and loads
    // it; see the next form. Throws CFileException when it cannot be opened.
    void Init(const char* path, Progress progress);
    // Replaces the content by records m_nFirst .. m_nLast (-1: the last) of `file`, in
    // memory at once; the range is cut to the file. Compressed elements get the stored
    // bytes, plain ones the expanded bytes. m_nMaxLength becomes the longest element
    // length. `progress` gets (index, count).
    void Init(CBitsBinFile* file, Progress progress);
    // The element at `index`, made on demand: an index past the end grows the array
    // (slots between stay null) and a null slot gets a new empty element, so the size
    // can change on a const call. Null only for a negative index. Owned by the array.
    // Throws CMemoryException when the slots cannot be had, always from index
    // 2^28 - 1 on (2 GiB of slots).
    CBitArray* GetAt(int index) const;
    CBitArray* operator[](int index) const { return GetAt(index); }
    // The last element (made on demand), or null for an empty array.
    CBitArray* GetTail();
    // Opens the file at `path` (created when missing, truncated for opCopy) and saves.
    void Save(const char* path, Operation op, bool free, bool packed, Progress progress);
    // Saves elements m_nFirst .. m_nLast into `file`. opCopy replaces all records;
    // opOr and opXor merge each element with its old record through a temporary file
    // that then replaces `file` (which is reopened on its path, or reloaded when it
    // is a memory twin; the temporary is removed); any other op keeps the old records.
    // A file without records is written directly. With `free` each saved element is
    // deleted and its slot set null. With `packed` the packed form is written. Both
    // files stay in not safe mode during the run; `file`'s mode is restored. A merge
    // into a closed file that has no path and is no memory twin throws
    // CFileException(invalidFile) before anything changes.
    void Save(CBitsBinFile* file, Operation op, bool free, bool packed, Progress progress);
    // Deletes every element and empties the array; m_nMaxLength stays.
    void RemoveAll();

    bool m_bCompressed;
    int m_nFirst = 0;
    int m_nLast = -1;
    int m_nMaxLength = 0;
};

// A growable array of owned CBitArrayArray elements kept in a record file, one bit
// record file image per record. Not safe for concurrent use.
class DORVIK_API CBitArrayCollection : public CPtrArray {
public:
    using Progress = bool (*)(int, int);

    explicit CBitArrayCollection(bool compressed = false);
    ~CBitArrayCollection() override;

    // Opens (creating it empty when missing) the record file at `path` and loads it.
    void Init(const char* path, Progress progress);
    // Replaces the content by the arrays held in records m_nFirst .. m_nLast of `file`.
    void Init(CBinFile* file, Progress progress);
    // The array at `index`, made on demand as CBitArrayArray::GetAt does.
    CBitArrayArray* GetAt(int index) const;
    CBitArrayArray* operator[](int index) const { return GetAt(index); }
    // Opens the file at `path` (created when missing) and saves.
    void Save(const char* path, Operation op, bool free, bool packed, Progress progress);
    // Saves every array m_nFirst .. m_nLast into its record of `file` with the array's
    // Save (same op, free and packed flags); a file with records is merged through a
    // temporary file that then replaces it, and `file` is reopened on its path (a
    // memory twin is reloaded from it; a file with neither throws as above). A
    // record without an array stays as it was in a merge and becomes the image of an
    // empty file in a direct run. `progress` gets (index, count) for every index.
    void Save(CBinFile* file, Operation op, bool free, bool packed, Progress progress);
    void RemoveAll();

    bool m_bCompressed;
    int m_nFirst = 0;
    int m_nLast = -1;
};
