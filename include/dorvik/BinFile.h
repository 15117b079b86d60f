// CBinFile: a record file. Records are byte strings of any length, numbered from 0,
// packed behind each other with nothing between them; behind the data stands the
// address table, count + 1 little-endian 32-bit offsets, entry i being where record i
// starts and the last entry the offset of the table itself. No header, no magic
// number. The whole table lives in memory while the file is open.
//
// Safe mode (the default) keeps a complete record file on disk after every change.
// Not safe mode keeps only the data on disk and appends the table once, at Close,
// at destruction or at SetSafeMode(true): bulk building goes that way, and there
// small writes gather in memory (CFile::SetWriteBehind) until one of those or the
// next read.
//
// What safe mode guarantees, and what it does not:
//  - between operations the file on disk is a complete record file, as far as the
//    operating system has it: nothing calls fsync, so a crash of the machine may still
//    lose or tear recent changes (Flush writes through to the disk);
//  - a change survives the death of its process whole or not at all: before it
//    overwrites stored bytes it copies them to the rollback journal "<path>.journal"
//    beside the file and sets the file's last byte to 0xFF (no complete record file ends
//    so) until the change is complete. The next open of the file, read-only included,
//    puts the journal's bytes back, so the file shows the records before the change or
//    after it, never others; a marked file whose journal is missing or damaged (the
//    journal's CRC-32C checksums fail, or it is cut short) fails IsValidBinFile and
//    opens as none, and the journal is kept for repair by hand. The journal lives while an object that changed
//    the file is open and goes with the last one; when a change throws, it is undone at
//    once. A change costs the copy of the bytes it overwrites (an append overwrites only
//    the table) and a few small writes of the journal and the mark;
//  - each object keeps its own copy of the table: a second object on the same file does
//    not see the changes of the first and reads with a stale table until it reopens; a
//    change through it, once the file's length has moved, is refused with
//    CFileException and writes nothing;
//  - not safe mode keeps no table on disk at all until Close, destruction or
//    SetSafeMode(true): a process that dies before leaves the data without a table, a
//    file that fails to open or shows wrong records.
//
// All storage goes through the virtuals Seek, SetLength, GetLength, Read, Write and
// Close, so a memory twin redirects them and the same logic runs over a memory block.
// Failures of the file layer are CFileException (CMemoryException on a memory twin)
// and pass to the caller. Not safe for concurrent use: one object, one thread; objects
// on different files may be used on different threads at once.
#pragma once

#include <memory>

#include "Arrays.h"
#include "File.h"

namespace dorvik::classic {
class CBaseMemFile;
class CBitArray;

class DORVIK_API CBinFile : public CFile {
public:
    // A closed object in safe mode with no table.
    CBinFile();
    // Opens with the CFile constructor (which throws CFileException when it cannot),
    // then loads the table. A file that is no record file gives an open object with no
    // table and 0 records. A file of 1 to 3 bytes throws CFileException(badSeek).
    CBinFile(const char* path, UINT flags);
    // In not safe mode writes the table first; errors of that write are dropped
    // (call Close to see them). Releases the table.
    ~CBinFile() override;

    // Opens and loads the table. Returns nonzero on success; 0 when the file cannot be
    // opened or its last word is no table offset (negative, or leaving less than one
    // table word before the end); the object then holds no table. The count is the words
    // behind the offset less one, rounding down. A damaged table (bytes behind the offset
    // that are no whole number of words, or a last entry that is not the offset) still
    // loads, but no record reaches past the offset, and every change throws as below.
    // A 0-byte file becomes the 4-byte empty record file when it is opened for writing
    // (in safe mode); opened read-only it stays at 0 bytes with 0 records. A file of 1
    // to 3 bytes throws CFileException(badSeek). A second Open on an open object closes
    // it first.
    BOOL Open(const char* path, UINT flags, CFileException* error = nullptr) override;
    // In not safe mode appends the table (extending the data with zeros first when
    // reserved records at its end were never written, so that the table lands where
    // its last word says); releases the table; closes. Safe mode survives Close.
    void Close() override;
    // The length the file has, or will have with its table: in not safe mode, while a
    // table is loaded, the data end (reserved bytes included) plus 4 * (count + 1).
    DWORD GetLength() const override;

    // True from a successful Open (or opening constructor) until Close; false on a twin.
    bool IsOpen() const { return m_bOpen; }
    // True in safe mode.
    bool IsSafeMode() const { return m_bSafeMode; }
    // Switching off loads the table if needed and cuts the file at the data end;
    // switching on appends the table. Nothing happens when the mode does not change.
    void SetSafeMode(bool safe);
    // Loads the table if none is loaded, then gives the number of records (0 when the
    // file holds no valid table).
    int GetRecordCount();
    // True for a record file: the 4-byte empty file, or a last word T with
    // 0 < T <= length - 4 and a 0 word at offset T (entry 0). Reads two words; it does
    // not look further into the table, so a damaged table may pass (its reads still stay
    // inside the data and its changes throw, see Open). A 0-byte file is not one. A file
    // of 1 to 3 bytes throws CFileException(badSeek).
    bool IsValidBinFile();
    // The same test on a path; false when the path does not exist or cannot be opened.
    // A file of 1 to 3 bytes can be opened and throws CFileException(badSeek) as above.
    static bool IsValidBinFile(const char* path);

    // Makes sure the file has at least `count` records by appending empty ones; never
    // shrinks. Throws CFileException(invalidFile) on a file with no valid table.
    virtual void Init(int count);
    // Table entry `index` for 0 .. count; 0xFFFFFFFF otherwise.
    virtual DWORD GetAddress(int index);
    // Entries `first` to `last` (last may equal the count), `length` in bytes. With
    // `allocate` the caller gets a GrabBlock block to release with DropBlock; without,
    // `buffer` is the caller's and `length` is its room on entry. A bad range sets
    // `buffer` to null (whatever `allocate` says) and `length` to 0.
    virtual void GetAddresses(int first, int last, DWORD*& buffer, int& length, bool allocate);
    // The record as little-endian 32-bit numbers; a tail of 1 to 3 bytes is not read.
    virtual void GetRecord(int index, CDWordArray& array);
    // The record handed to a memory file, which takes the block; an empty record
    // leaves the memory file empty.
    virtual void GetRecord(int index, CBaseMemFile& file);
    // The record's bytes. With `allocate`: a GrabBlock block of length + 1 bytes (the
    // last one 0, so text reads as a C string) that the caller releases with DropBlock;
    // an empty or absent record gives null and 0. Without: `buffer` is the caller's,
    // `length` its room on entry and the bytes delivered on return (the first bytes of
    // a longer record); nothing delivered leaves `buffer` alone and `length` 0.
    virtual void GetRecord(int index, unsigned char*& buffer, int& length, bool allocate);
    // The bytes of records `first` to `last` in one piece, as GetRecord. A range
    // whose table entries do not fit the data (a corrupt table) delivers nothing, so a
    // block is never larger than the file. On an exception `buffer` is left as it was
    // and no block is lost.
    virtual void GetRecords(int first, int last, unsigned char*& buffer, int& length,
                            bool allocate);
    // The record's length; 0 at or past the count (and for a corrupt table entry).
    virtual int GetRecordLength(int index);
    // The largest record length over all records; 0 for an empty file.
    virtual int GetMaxRecordLength();

    // Changes. Every change on a file with no valid table, a damaged table (see Open), or
    // table entries that do not rise, throws CFileException(invalidFile) and writes nothing. A
    // change that would take the file to 2 GiB or beyond (a record number or a length out of reach,
    // INT_MAX among them) throws CFileException(diskFull) and writes nothing. When no
    // memory can be had to move the data behind a change, the message "Can't move file
    // data.\r\nNot enough memory!" is shown, the records and the table stay as they
    // were (records that an insertion past the end had appended first stay), nothing is
    // written, and CMemoryException is thrown.

    // Removes records `first` to `last`; `last` is clamped to the last record, a
    // `first` past the end or a `last` below `first` does nothing.
    virtual void Delete(int first, int last);
    // CBinFile::Delete(index, index).
    virtual void Delete(int index);
    // Inserts all records of the record file at `path` behind record `after` (-1: in
    // front); returns their number. An invalid file counts as empty and gives 0; a
    // path that cannot be opened throws CFileException.
    virtual int Insert(int after, const char* path);
    // The same from an open record file, which is only read (it may be this file).
    // Throws CFileException(invalidFile) when its table does not fit its data.
    virtual int Insert(int after, CBinFile* source);
    // Inserts one record behind `after` (-1: in front). Past the end, empty records
    // fill the gap and one more empty record follows the new one. Null `data` with a
    // `length` reserves the bytes without writing them.
    virtual void Insert(int after, unsigned char* data, int length);
    // Replaces record `index` by the whole content of `source`, copied in pieces of at
    // most 4 MiB.
    virtual void Modify(int index, CFile& source);
    // Replaces record `index` by the content of a memory file, which ends up empty.
    virtual void Modify(int index, CBaseMemFile* source);
    // Replaces record `index`, creating it (and empty records before it) when needed.
    // The same length writes in place; null `data` leaves the bytes as they lie.
    virtual void Modify(int index, unsigned char* data, int length);
    // Appends one record: CBinFile::Insert(count - 1, data, length).
    virtual void Add(unsigned char* data, int length);
    // The first record behind `after` holding exactly these bytes, or -1. An empty
    // record is never found; a `length` of 0, or an `after` at or past the count, gives
    // -1. Reads at most length + 1 bytes of each record.
    virtual int Find(int after, const unsigned char* data, int length);
    // Empties `bits`, then sets bit i for every record i that is not empty.
    virtual void GetRecordsBitmap(CBitArray& bits);
    // Removes all empty records; returns how many went.
    virtual int DeleteEmpty();
    // Removes every record: the 4-byte empty file in safe mode, 0 bytes otherwise.
    void DeleteAll();

protected:
    // Loads the table; false when the stored last word is no table offset.
    virtual bool LoadAddresses();
    // Releases the table: pointer null, bytes 0, count 0.
    virtual void FreeAddresses();
    // Writes the table from entry `first` on: over the stored tail in safe mode,
    // appended behind the data otherwise. Nothing without a table.
    virtual void UpdateAddresses(int first);

    // Loads the table when none is loaded; throws CFileException(invalidFile) when the
    // file has none or its entries do not rise.
    void RequireTable();
    // Start and length of records `first` .. `last`; false when the entries do not
    // describe bytes inside the data.
    bool RecordSpan(int first, int last, DWORD& start, DWORD& length) const;
    // One change of the stored file, as a scope: the changes made inside it (through any
    // object method) become one, kept or undone whole. Defined in recordfile/Change.h.
    class Change;
    // Overwrites `length` stored bytes at `at` (inside the data) as one change.
    void WriteStored(DWORD at, const unsigned char* data, int length);

    DWORD* m_pAddresses = nullptr;
    DWORD m_nAddressBytes = 0;
    int m_nRecordCount = 0;
    bool m_bSafeMode = true;
    bool m_bOpen = false;

private:
    struct Changing;  // the state of the change under way, with its journal

    bool m_bTableChecked = false;
    bool m_bTableDamaged = false;  // as loaded, entry count was not the table offset
    std::unique_ptr<Changing> m_pChanging;

    // Moves `bytes` bytes from `from` to `to` inside the storage, ranges overlapping
    // freely; false (after the message) when not even one byte of memory can be had.
    bool MoveFileBuffer(int from, int to, int bytes);
    // Moves entries `from` .. `to` to `dest` and adds `delta` to the moved entries.
    void MoveFileAddresses(int from, int to, int delta, int dest);
    Changing& ChangingState();
    // Brings the file back to a complete state when a change of a process that died
    // inside it was left behind (see the journal above); `flags` are those of the open.
    void Recover(UINT flags);
    // Frees the table and closes the journal (at Close and destruction).
    void Release();
    // The index of the first record inserted behind `after`; throws CFileException
    // (diskFull) when `records` new records of `length` bytes there would take the file
    // to 2 GiB.
    int InsertPosition(int after, int length, int records = 1);
    void EnsureAddressRoom(int lastEntry, DWORD spare);
    void WriteTableBehindData();
};

}  // namespace dorvik::classic

using dorvik::classic::CBaseMemFile;
using dorvik::classic::CBinFile;
using dorvik::classic::CBitArray;
