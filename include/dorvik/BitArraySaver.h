// CBitArraySaver: a spill stack that keeps bit arrays, number arrays and plain blocks
// out of memory. Push stores a block in a record file and returns its number; Pop
// fetches it by that number, as often as wanted: it neither removes the record nor
// lowers the top, which only rises.
//
// The file is a record file in safe mode (complete on disk after every Push). Record 0
// holds the top, the number of the last record pushed, as a signed 32-bit
// little-endian integer; record k from 1 up holds block k, in the compressed form of
// CBitArray when it was pushed with the compress flag, as it stands otherwise. Nothing
// in the file tells which records are compressed: pop with the flag you pushed with
// (the typed overloads do that by themselves).
//
// The file is either a temporary that the object makes on first use (prefix "egy", in
// $TMPDIR, else /tmp) and deletes when it is destroyed, or a file named with
// SetTempFile, which outlives the object and can be picked up again by a later one.
//
// Threads: Push and Pop may be called from any number of threads at the same time;
// each runs whole under the object's lock, also when it makes the temporary.
// SetTempFile must not overlap other calls on the object. Failures of the file layer
// (CFileException, CMemoryException) pass to the caller, and the lock is released
// on the way out.
#pragma once

#include <atomic>

#include "Arrays.h"
#include "BitArray.h"
#include "BitsBinFile.h"
#include "CriticalSection.h"
#include "String.h"

namespace dorvik::classic {
class DORVIK_API CBitArraySaver {
public:
    // No file yet: the first Push or Pop makes the temporary unless SetTempFile came
    // first.
    CBitArraySaver();
    // Deletes the temporary the object made, if it still works on it; a file named with
    // SetTempFile is only closed. Errors of that close or removal are dropped.
    virtual ~CBitArraySaver();
    CBitArraySaver(const CBitArraySaver&) = delete;
    CBitArraySaver& operator=(const CBitArraySaver&) = delete;

    // Works on `path` from now on, closing the present file. A path that does not
    // exist, or holds no record file (junk, or fewer than 4 bytes), is created or
    // truncated to a record file with top 0. An existing record file keeps its records
    // and its top when the stored top lies in 1 .. 9999, so numbering goes on behind it;
    // any other value (10000 and more included) counts as top 0 and the next Push
    // overwrites record 1. Returns true; a path that cannot be opened or created throws
    // CFileException and leaves the object without a file (the next Push or Pop then
    // makes a temporary).
    // Leaving the temporary the object made deletes that temporary at once; a file
    // named here is never deleted by the object.
    bool SetTempFile(const char* path);

    // Stores `length` bytes of `data` as the next record and returns its number: 1 for
    // the first Push on a new file, then one more each time. With `compress` the bytes
    // are stored in the compressed form (all-zero bytes as an empty record). Null `data`
    // or a `length` of 0 or less stores an empty record. Numbers keep rising past 10000
    // and Pop gives every one of them back on this object; a file reopened with such a
    // top starts again at 1 (see SetTempFile). Cost: besides the record, the address
    // table (4 bytes per record so far) is written again, as safe mode keeps the file
    // complete, so a long run of pushes costs time in proportion to its square.
    int Push(unsigned char* data, int length, bool compress);
    // Push of the array's bytes with the compress flag, whatever the array's own
    // compressed flag says; Pop into an array with the same flag gives them back.
    int Push(CBitArray& bits);
    // Push of the elements as 4 * size bytes, little-endian, uncompressed.
    int Push(CDWordArray& array);

    // Fetches record `number`: with `expand` the stored bytes read as a compressed form
    // and expanded, without it the stored bytes as they are. `buffer` gets a GrabBlock
    // block that the caller releases with DropBlock, `length` its bytes; an empty or
    // absent record gives null and 0, and so does a number above the top, except on a
    // file whose top was reset, where old records stay until pushed over. Number 0
    // without `expand` gives the 4 bytes of the top. Returns false, with null and 0, for
    // a negative number and for one above both 10000 and the top; such a call neither
    // takes the lock nor makes a file. A record popped with the other flag than it was
    // pushed with gives the compressed form (without `expand`) or the stored bytes
    // expanded as if they were one (never reading past the record; CMemoryException
    // when the result cannot be had).
    bool Pop(int number, unsigned char*& buffer, int& length, bool expand);
    // Empties `bits` (its compressed flag stays), then on true attaches the expanded
    // record: the bytes that Push(CBitArray&) was given.
    bool Pop(int number, CBitArray& bits);
    // Empties `array`, then on true fills it with the record's whole 4-byte elements
    // (a tail of 1 to 3 bytes is dropped).
    bool Pop(int number, CDWordArray& array);

protected:
    // Makes a temporary named "egy..." and works on it. Called under the lock.
    void InitTempFile();

    CCriticalSection m_Lock;
    CBitsBinFile m_File;
    // The last number pushed; -1 while there is no file, 0 for a file with nothing
    // pushed. Changed only under the lock; Pop reads it without the lock for its range
    // test.
    std::atomic<int> m_nTop;
    int m_nMaxIndex;
    // The object made the file at m_strPath and deletes it.
    bool m_bOwnFile;
    CString m_strPath;

private:
    // Closes the present file; deletes it when it is the object's own temporary and
    // `next` names another file.
    void LeaveFile(const char* next);
    // The stored top when it lies in 1 .. m_nMaxIndex - 1, else 0.
    int ReadTop();
    void WriteTop(int top);
};

}  // namespace dorvik::classic

using dorvik::classic::CBitArraySaver;
