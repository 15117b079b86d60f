// CNDimBinFile: a record file holding a tree of record files. A record may hold the
// whole image of a record file (table included, entries relative to the image), whose
// records may hold further images, to any depth; there is no format of its own. A
// path (`dim` numbers in `indices`) leads from the top file down: indices[0] is a
// record of the top file, indices[1] a record of the file held there, and so on; dim 0
// names the top file itself. Reads walk the stored tables, a few words per level,
// without loading enclosing files; a change of length rebuilds every enclosing image,
// inside out, in memory. A record of length 0 where a nested file is expected is a
// file that does not exist yet.
//
// Every table word read on the walk is checked against the image it stands in: a
// corrupt nested image makes its path lead nowhere, never a read outside it. The path
// operations work in safe and in not safe mode (the top file's own table is taken
// from memory). The caller owns `indices`, which no operation changes. Negative numbers
// in a path lead nowhere, and a change through them (other than an Insert's last number
// -1, the front) changes nothing.
#pragma once

#include <functional>

#include "BaseMemFile.h"
#include "BinFile.h"
#include "BitArray.h"

namespace dorvik::classic {
class DORVIK_API CNDimBinFile : public CBinFile {
public:
    CNDimBinFile();
    CNDimBinFile(const char* path, UINT flags);
    ~CNDimBinFile() override;

    using CBinFile::Add;
    using CBinFile::Delete;
    using CBinFile::GetRecord;
    using CBinFile::GetRecordCount;
    using CBinFile::GetRecordLength;
    using CBinFile::GetRecordsBitmap;
    using CBinFile::Init;
    using CBinFile::Insert;
    using CBinFile::Modify;

    // The bytes at the path in a new GrabBlock block of length + 1 bytes (release with
    // DropBlock); null and 0 when the path leads nowhere or to an empty record. dim 0
    // gives the whole image of the top file, table included.
    virtual void GetRecord(int dim, int* indices, unsigned char*& buffer, int& length);
    // The length at the path; 0 when it leads nowhere.
    virtual int GetRecordLength(int dim, int* indices);
    // Inserts a record behind record indices[dim - 1] (-1: in front) of the file named
    // by the first dim - 1 numbers, creating missing levels. dim 0 or less: nothing.
    virtual void Insert(int dim, int* indices, unsigned char* data, int length);
    // Inserts the whole image of another record file as one record (a nested file);
    // the source is completed with its table for the copy and keeps its mode.
    virtual void Insert(int dim, int* indices, CBinFile* source);
    // Replaces the record at the path, creating it, the records before it and every
    // missing level. dim 0 or less: nothing.
    virtual void Modify(int dim, int* indices, unsigned char* data, int length);
    // Appends a record to the file named by the whole path (dim 0: the top file).
    virtual void Add(int dim, int* indices, unsigned char* data, int length);
    // Removes records first..last of the file named by the whole path. A path that
    // leads nowhere gets an empty nested file.
    virtual void Delete(int dim, int* indices, int first, int last);
    // Empties `bits`, then sets a bit for every non-empty record of the file named by
    // the path; a path that leads nowhere, or to bytes that are no record file image
    // (where GetRecordCount gives 0), leaves `bits` as it was.
    virtual void GetRecordsBitmap(int dim, int* indices, CBitArray& bits);
    // Hands the bytes at the path to `file`, which owns them afterwards; false (file
    // untouched) when the path leads nowhere or to an empty record.
    virtual bool GetFile(int dim, int* indices, CBaseMemFile& file);

    // Creates every level and record of the path that is missing below the top file;
    // the last record stays empty. Does not extend the top file. A number that no file
    // below 2 GiB can hold (INT_MAX) throws CFileException(diskFull).
    void Init(int dim, int* indices);
    // The number of records of the file named by the path; 0 when it leads nowhere or
    // the bytes there are no record file image.
    int GetRecordCount(int dim, int* indices);

private:
    // The range of the bytes at the path inside the top image; false when it leads
    // nowhere or to an empty record. With `create` the path is made first (MakePath).
    bool GetFileInfo(int dim, int* indices, int& length, int& address, bool create);
    // Finds the path (dim 1 or more) without changing anything: false when it leads
    // nowhere; true with `size` 0 when it ends at an empty record.
    bool WalkPath(int dim, int* indices, DWORD& address, DWORD& size);
    // Makes the path exist below the top file: each missing nested file is created and
    // each file too short grows to hold the record the path names. The top file is not
    // extended; a path that leads into bytes that are no record file image throws
    // CFileException from the change on them.
    void MakePath(int dim, int* indices);
    bool ReadFile(int dim, int* indices, unsigned char*& buffer, int& length, bool create);
    void WriteFile(int dim, int* indices, unsigned char* data, int length);
    // One step of the walk: the range of record `index` inside the image that ends at
    // `imageEnd` and has `size` bytes; -1 in `size` when the image holds no such record.
    bool Step(int index, DWORD& imageEnd, DWORD& size);
    unsigned char* ReadTopImage(int& length);
    // Reads the file at the path into memory (a new empty file when there is none),
    // applies `change` to it and writes the new image back in its place.
    void ChangeFile(int dim, int* indices, const std::function<void(CBinFile&)>& change);
};

}  // namespace dorvik::classic

using dorvik::classic::CNDimBinFile;
