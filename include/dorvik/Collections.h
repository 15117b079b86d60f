// In-memory arrays of bit arrays that an indexer fills and then folds into bit record
// files in one pass.
//
// File forms. Plain array: a CBitsBinFile whose record i is element i. Packed array:
// record 0 is a bit array of the element indexes present, record k (from 1) the k-th
// element saved in rising index order (Init reads such a file as a plain array).
// Collection: a CBinFile whose record i is the whole image of a CBitsBinFile holding
// element i; a collection of plain arrays reads as a two-dimensional CNDimBitsBinFile.
//
// The number array collections (CMyDWordArrayArray, CMyDWordArrayCollection) and the
// linked list arrays (CLinkedListArray, CLinkedListCollection) save into the same
// forms; their elements are numbers, each becoming one set bit of its record.
#pragma once

#include "Arrays.h"
#include "BinFile.h"
#include "BitArray.h"
#include "BitsBinFile.h"
#include "File.h"
#include "MyDWordArray.h"
#include "Operation.h"
#include "String.h"

namespace dorvik::classic {
// A growable array of owned CBitArray elements, loaded from and saved to a bit record
// file. Not safe for concurrent use.
class DORVIK_API CBitArrayArray : public CPtrArray {
public:
    using Progress = bool (*)(int, int);  // gets (index, count); may be null; result unused

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
    CBitArray* operator[](int index) const { return GetAt(index); }  // as GetAt
    // The last element (made on demand), or null for an empty array.
    CBitArray* GetTail();
    // Opens the file at `path` (created when missing; truncated for opCopy when it is no
    // record file) and saves.
    void Save(const char* path, Operation op, bool free, bool packed, Progress progress);
    // Saves elements m_nFirst .. m_nLast into `file`. opCopy replaces all records (over
    // a file on disk that holds any, through a temporary "<path>.XXXXXX" beside it that
    // then replaces it, so that a process that dies midway leaves the old file);
    // opOr and opXor merge each element with its old record through a temporary file
    // (beside a file on disk, as for opCopy; in $TMPDIR for a memory twin without a
    // path) that then replaces `file` (which is reopened on its path, or reloaded when it
    // is a memory twin; the temporary is removed); any other op keeps the old records.
    // A file without records is written directly. With `free` each saved element is
    // deleted and its slot set null once the file is complete, so that an exception
    // midway loses nothing in memory. With `packed` the packed form is written. Both
    // files stay in not safe mode during the run; `file`'s mode is restored. A merge
    // into a closed file that has no path and is no memory twin throws
    // CFileException(invalidFile) before anything changes. A merge that fails midway
    // leaves `file` as it was and removes its temporary; one whose last step, reopening
    // `file` on the new records, fails throws with the new records in place.
    void Save(CBitsBinFile* file, Operation op, bool free, bool packed, Progress progress);
    // Deletes every element and empties the array; m_nMaxLength stays.
    void RemoveAll();

    bool m_bCompressed;    // the compressed flag of elements made here
    int m_nFirst = 0;      // the first index Init and Save work on
    int m_nLast = -1;      // the last one; -1: the last there is
    int m_nMaxLength = 0;  // the longest element length Init found
};

// A growable array of owned CBitArrayArray elements kept in a record file, one bit
// record file image per record. Not safe for concurrent use.
class DORVIK_API CBitArrayCollection : public CPtrArray {
public:
    using Progress = bool (*)(int, int);  // gets (index, count); may be null; result unused

    // Arrays this object creates pass `compressed` on to their elements.
    explicit CBitArrayCollection(bool compressed = false);
    ~CBitArrayCollection() override;

    // Opens (creating it empty when missing) the record file at `path` and loads it.
    void Init(const char* path, Progress progress);
    // Replaces the content by the arrays held in records m_nFirst .. m_nLast of `file`.
    void Init(CBinFile* file, Progress progress);
    // The array at `index`, made on demand as CBitArrayArray::GetAt does.
    CBitArrayArray* GetAt(int index) const;
    CBitArrayArray* operator[](int index) const { return GetAt(index); }  // as GetAt
    // Opens the file at `path` (created when missing) and saves.
    void Save(const char* path, Operation op, bool free, bool packed, Progress progress);
    // Saves every array m_nFirst .. m_nLast into its record of `file` with the array's
    // Save (same op and packed flag); a file with records is merged (or, for opCopy,
    // replaced) through a temporary file that then replaces it, so that a process
    // that dies midway leaves the old file, and `file` is reopened on its path (a
    // memory twin is reloaded from it; a file with neither throws as above). A
    // record without an array stays as it was in a merge and becomes the image of an
    // empty file in a direct run. With `free` each saved array is deleted and its
    // slot set null once the file is complete. `progress` gets (index, count) for
    // every index.
    void Save(CBinFile* file, Operation op, bool free, bool packed, Progress progress);
    void RemoveAll();  // deletes every array and empties the collection

    bool m_bCompressed;  // the compressed flag of the arrays made here
    int m_nFirst = 0;    // the first index Init and Save work on
    int m_nLast = -1;    // the last one; -1: the last there is
};

// A growable array of owned CMyDWordArray elements. It loads raw numbers and saves
// bit records: Init reads record i of a plain record file as little-endian 32-bit
// numbers (a tail of 1 to 3 bytes is dropped); Save writes record i of a bit record
// file with one bit set for each distinct number of element i. A saved file therefore
// reads back through Init as its compressed bytes taken as numbers; its numbers come
// back by reading the record as a bit array. Not safe for concurrent use.
class DORVIK_API CMyDWordArrayArray : public CPtrArray {
public:
    using Progress = bool (*)(int, int);  // gets (index, count); may be null; result unused

    CMyDWordArrayArray();
    ~CMyDWordArrayArray() override;

    // Opens (creating it empty when missing) the record file at `path` and loads it.
    // Throws CFileException when it cannot be opened.
    void Init(const char* path, Progress progress);
    // Replaces the content by records m_nFirst .. m_nLast (-1: the last) of `file`,
    // cut to the file; other slots stay null. `progress` gets (index, count).
    void Init(CBinFile* file, Progress progress);
    // The element at `index`, made on demand as CBitArrayArray::GetAt does. Null only
    // for a negative index. Owned by the array.
    CMyDWordArray* GetAt(int index) const;
    CMyDWordArray* operator[](int index) const { return GetAt(index); }  // as GetAt
    // Opens the bit record file at `path` (created when missing, never truncated: for
    // opCopy the records are deleted instead) and saves.
    void Save(const char* path, Operation op, bool free, bool packed, Progress progress);
    // Saves every element into its record of `file`. opOr sets the element's numbers
    // in the old record, opXor flips the bits of its distinct numbers (a number held
    // twice flips once), opCopy deletes all records first (DeleteAll) and writes the
    // numbers alone; any other op keeps the old records. A file with records is merged
    // through a temporary file that then replaces it, as CBitArrayArray::Save does
    // (records past the array go over unchanged); otherwise records are written
    // directly, and an element that sets no bit (a null slot, no numbers, another op)
    // writes no record: a later record fills the gap with empty ones. With `free` each
    // element is deleted and its slot set null once the file is complete. `progress`
    // gets (index, count) for every index.
    // Decisions: Save visits every index from 0 to the larger of size and record count,
    // whatever m_nFirst and m_nLast say, so a merge never drops a record; those two
    // bound Init only. `packed` is accepted and has no effect: there is no packed form
    // here. Numbers of 2^31 and above are not bit positions and are skipped.
    void Save(CBitsBinFile* file, Operation op, bool free, bool packed, Progress progress);
    // Deletes every element and empties the array.
    void RemoveAll();

    int m_nFirst = 0;  // the first index Init and Save work on
    int m_nLast = -1;  // the last one; -1: the last there is
};

// A growable array of owned CMyDWordArrayArray elements kept in a record file, one bit
// record file image per record, as CBitArrayCollection does. Not safe for concurrent
// use.
class DORVIK_API CMyDWordArrayCollection : public CPtrArray {
public:
    using Progress = bool (*)(int, int);  // gets (index, count); may be null; result unused

    CMyDWordArrayCollection();
    ~CMyDWordArrayCollection() override;

    // Opens (creating it empty when missing) the record file at `path` and loads it.
    void Init(const char* path, Progress progress);
    // Replaces the content by the arrays held in records m_nFirst .. m_nLast of
    // `file`; each element runs its Init on the record's image, so it holds the
    // image's records as raw numbers.
    void Init(CBinFile* file, Progress progress);
    // The array at `index`, made on demand.
    CMyDWordArrayArray* GetAt(int index) const;
    CMyDWordArrayArray* operator[](int index) const { return GetAt(index); }  // as GetAt
    // Opens the file at `path` (created when missing, never truncated) and saves.
    void Save(const char* path, Operation op, bool free, bool packed, Progress progress);
    // Saves every array m_nFirst .. m_nLast into its record of `file` with the array's
    // Save, as CBitArrayCollection::Save does.
    void Save(CBinFile* file, Operation op, bool free, bool packed, Progress progress);
    void RemoveAll();  // deletes every array and empties the collection

    int m_nFirst = 0;  // the first index Init and Save work on
    int m_nLast = -1;  // the last one; -1: the last there is
};

// Lists of numbers collected on disk at almost no memory cost: each AddValue appends
// a node to a temporary node file, and the array holds only the file position of
// each list's newest node. Save turns every list into a bit array and writes or merges
// it into a bit record file; nothing loads a list back from a saved file.
//
// Node file: a temporary named with the prefix "egy", made at construction and removed
// at destruction or by Save with the free flag, also when an operation throws. Node k
// lies at offset 8 * k: the value (signed 32-bit) and the link (unsigned 32-bit), both
// little-endian; the link is the position of the link field of the list's previous
// node, 0 for its first. Slot i holds the position of the link field of list i's
// newest node (4 for the first node of the file), 0 for a list without values; it is
// a number, not a pointer. Memory is one slot and one count per list, disk 8 bytes
// per value. GetRecord reads a list with one 8-byte read per value; Save reads the
// lists in batches of up to 2 million values, each batch in one pass over the node
// file from its end in reads of 1 MiB, so its memory stays below 10 MiB beyond the
// slots, the counts and one list.
//
// After Save with the free flag the array is spent: the node file is gone, and
// AddValue, GetRecord and Save throw CFileException(invalidFile) without changing
// anything; only destruction is left. Not safe for concurrent use.
class DORVIK_API CLinkedListArray : public CPtrArray {
public:
    using Progress = bool (*)(int, int);  // gets (index, count); may be null; result unused

    // Makes and opens the node file. Throws CFileException when it cannot; no file is
    // left behind then.
    CLinkedListArray();
    // Closes and removes the node file unless Save with the free flag did.
    ~CLinkedListArray() override;

    // Appends `value` to list `list`, growing the array to it (slots between become 0).
    // Returns 0. Any value is stored; a negative `list` does nothing. Writes are
    // gathered in memory (64 KiB), so a failed write of the node file surfaces as
    // CFileException from this or a later AddValue, GetRecord or Save (Save reports it
    // before it touches its file); the lists are incomplete then and the array is
    // best discarded. Throws CFileException(diskFull) before any change when the node
    // file would pass 2 GiB (268 million values).
    int AddValue(int list, int value);
    // Empties `bits` and sets the bit of every value of the list. Negative values are
    // no bit positions and are skipped. A list at or past the size (or negative)
    // leaves `bits` empty and reads nothing.
    void GetRecord(int list, CBitArray& bits);
    // Empties `values` and adds the values of the list, newest first, each as stored
    // (a negative value reads as its 32-bit two's complement).
    void GetRecord(int list, CDWordArray& values);
    // Opens the bit record file at `path` (created when missing; truncated for opCopy
    // when it is no record file) and saves.
    void Save(const char* path, Operation op, bool free, bool packed, Progress progress);
    // Saves lists m_nFirst .. m_nLast (-1: up to the larger of size and record count)
    // as CBitArrayArray::Save does, except that every index of the range counts: a
    // list without values is an empty element (in packed form it gets its map bit and
    // a record number). In a merge each record is read, combined (opOr, opXor; other
    // ops keep it) and written; in a direct run (after DeleteAll for opCopy, or into the
    // temporary that replaces a file with records, as CBitArrayArray::Save does) only
    // lists with a value set write their record. With `free` the node file is closed
    // and removed at the end and the array is spent; the slots stay.
    // Decision: a merge without `packed` keeps the records outside the range as they
    // are; with `packed`, old records past the last one written are dropped, as in
    // CBitArrayArray::Save.
    void Save(CBitsBinFile* file, Operation op, bool free, bool packed, Progress progress);

    int m_nFirst = 0;  // the first list Save works on
    int m_nLast = -1;  // the last one; -1: the last there is

protected:
    CString m_strTempName;  // path of the node file; empty once it is removed
    CFile m_TempFile;       // the node file, open from construction on

private:
    // Throws CFileException(invalidFile) in the spent state.
    void RequireNodeFile() const;
    // Calls visit(value) for each value of the list, newest first, one read per node.
    // A chain ends early at a node that does not lie whole within the node file or
    // whose link does not lead back.
    template <class Visit>
    void Walk(int list, Visit visit);
    // Calls visit(list, value) for every value of lists first .. last (within the
    // size), reading each piece of 1 MiB of the node file at most once, from the end
    // of the file to its start; a list's values come newest first. Chains end as above.
    template <class Visit>
    void Gather(int first, int last, Visit visit);
    // Closes and removes the node file; the array is spent afterwards.
    void EndNodeFile() noexcept;

    CDWordArray m_aCounts;  // values per list: Save reads as many lists at once as fit
};

// A growable array of owned CLinkedListArray elements, each with its own node file,
// saved into a record file of bit record file images as CBitArrayCollection does.
// There is no Init. Not safe for concurrent use.
class DORVIK_API CLinkedListCollection : public CPtrArray {
public:
    using Progress = bool (*)(int, int);  // gets (index, count); may be null; result unused

    CLinkedListCollection();
    ~CLinkedListCollection() override;

    // The array at `index`, made on demand; a new array makes a node file, so this
    // throws CFileException when none can be made. Null only for a negative index.
    CLinkedListArray* GetAt(int index) const;
    CLinkedListArray* operator[](int index) const { return GetAt(index); }  // as GetAt
    // Opens the file at `path` (created when missing, never truncated) and saves.
    void Save(const char* path, Operation op, bool free, bool packed, Progress progress);
    // Saves every array m_nFirst .. m_nLast into its record of `file`, as
    // CBitArrayCollection::Save does, with two differences: the safe mode of `file`
    // and of the merge's temporary is left as it is, and opCopy empties `file` with
    // DeleteAll. With `free` each saved array is deleted, which removes its node file.
    void Save(CBinFile* file, Operation op, bool free, bool packed, Progress progress);
    // Deletes every array, which removes their node files, and empties the collection.
    void RemoveAll();

    int m_nFirst = 0;  // the first list Save works on
    int m_nLast = -1;  // the last one; -1: the last there is
};

}  // namespace dorvik::classic

using dorvik::classic::CBitArrayArray;
using dorvik::classic::CBitArrayCollection;
using dorvik::classic::CLinkedListArray;
using dorvik::classic::CLinkedListCollection;
using dorvik::classic::CMyDWordArrayArray;
using dorvik::classic::CMyDWordArrayCollection;
