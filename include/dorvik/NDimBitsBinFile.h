// CNDimBitsBinFile: a nested record file whose leaf records are bit arrays in the
// compressed form of CBitArray: a matrix of bit arrays of any number of dimensions in
// one file. An all-zero array is stored as an empty record, so absent and all-zero
// cells read alike (a null block, length 0). Paths are those of CNDimBinFile. The
// inherited byte readers (GetRecord without a limit, GetRecordLength, GetFile) and Add
// see stored bytes: Add stores what it is given, which must already be compressed.
#pragma once

#include "NDimBinFile.h"

namespace dorvik::classic {
class DORVIK_API CNDimBitsBinFile : public CNDimBinFile {
public:
    CNDimBitsBinFile();
    // Opens as CBinFile does.
    CNDimBitsBinFile(const char* path, UINT flags);
    ~CNDimBitsBinFile() override;

    using CNDimBinFile::GetRecord;
    using CNDimBinFile::GetRecords;
    using CNDimBinFile::Insert;
    using CNDimBinFile::Modify;

    // Take expanded bytes and store their compressed form (null data: an empty record).
    void Insert(int dim, int* indices, unsigned char* data, int length) override;
    void Modify(int dim, int* indices, unsigned char* data, int length) override;

    // The expanded bytes at the path in a new GrabBlock block (release with DropBlock);
    // `limit` (bytes, -1 for all) stops the expansion after the item that reaches it.
    // Null and 0 when the path leads nowhere or the record is empty. As in
    // CBitsBinFile, a record can expand to 21845 times its stored length by contract:
    // pass a `limit` on untrusted files.
    virtual void GetRecord(int dim, int* indices, unsigned char*& buffer, int& length, int limit);
    // The same handed to `bits`, which always gets expanded bytes and comes back
    // uncompressed.
    virtual void GetRecord(int dim, int* indices, CBitArray& bits, int limit);
    // Union (`unite`) or intersection of the listed records of the file at the path,
    // into `result` (uncompressed). An intersection of two or more records works on
    // their compressed forms, read as stored (CNDimBinFile::GetRecord), and stops reading
    // at the first empty one; its cost follows the stored bytes plus the result.
    virtual void GetRecords(int dim, int* indices, int count, int* records, CBitArray& result,
                            bool unite, int limit);
    // The same, the set bits of `selection` being the record numbers.
    virtual void GetRecords(int dim, int* indices, CBitArray& selection, CBitArray& result,
                            bool unite, int limit);
    // Set bits below `bit` when `bit` is set; -1 for a clear bit, a bit past the
    // record, a negative bit or an empty record. Unlike CBitsBinFile::GetBitIndex and
    // CBitArray::GetBitIndex, a clear bit gives -1, not the rank of the set bit below it
    // (the names are fixed by the interface).
    virtual int GetBitIndex(int dim, int* indices, int bit);
    // As CBitsBinFile::GetIndexBit: where a scan from bit 0 stops having passed `count`
    // set bits (0 for a count of 0, 8 * length when the bits run out).
    virtual int GetIndexBit(int dim, int* indices, int count);
    // SetAt and XOrAt create the path when needed; SetAt and ResetAt write only when
    // the bit changes, XOrAt always writes; GetAt reads the bit. A negative bit changes
    // nothing and reads as clear.
    virtual void SetAt(int dim, int* indices, int bit);
    virtual void ResetAt(int dim, int* indices, int bit);
    virtual void XOrAt(int dim, int* indices, int bit);
    virtual bool GetAt(int dim, int* indices, int bit);
};

}  // namespace dorvik::classic

using dorvik::classic::CNDimBitsBinFile;
