// CIXFile: a file of fixed-size integers. Record i is the little-endian value at
// offset i * GetRecordSize(); there is no header and no table, and the record count is
// the file length divided by the record size (a partial record at the end is none).
#pragma once

#include <functional>
#include <memory>

#include "File.h"
#include "Operation.h"
#include "Platform.h"

namespace dorvik {
class Journal;
}

namespace dorvik::classic {
class CBitArray;

// Records are 1 to 4 bytes. GetRecord reads a 1- to 3-byte record whose top bit is set
// as -1 (how an unset record of 0xFF bytes reads) and a 4-byte record as a signed
// number; writes keep the low GetRecordSize() bytes of the value.
//
// A linked index file (SetIndexFile, made by Sort) gives a sorted view: position i of
// the view is the record at physical position index[i]. GetRecord, operator[],
// IncRecord, DecRecord, Modify and Delete(int) take view positions while an index file
// is set; everything else takes physical positions. Nothing keeps the index file in
// step with Insert and Delete; the owner rebuilds it.
//
// All file access goes through the virtual Seek, Read, Write, GetLength and SetLength,
// so a subclass may store the bytes elsewhere. File errors throw CFileException and
// pass through every operation. Not safe for concurrent use.
//
// Crash safety, for a file on disk: every change of more than one write (Insert, Delete,
// DeleteEmpty, Invert into the file itself, and the extensions: Init, AddRecords, and
// Modify, IncRecord, DecRecord or Insert past the end) keeps the bytes it overwrites and
// the old length in the rollback journal "<path>.journal" beside the file, as a record
// file does (BinFile.h), until it is done. When one fails, it puts them back and throws;
// when the process dies inside one, the next Open puts them back, so a file holds the
// records before or after each change, never a part of one. Writing one record inside
// the file (Modify, IncRecord, DecRecord) and appending one (Add) are a single
// write of 1 to 4 bytes and keep no journal. A move first copies the bytes it overwrites
// to the journal, which doubles its writes; an extension writes only the journal's
// header (three small writes and a lock); the journal never changes a byte of the file. A journal left set to undo is applied by the next CIXFile open even when
// another program has changed the file since: change such a file only through this class.
class DORVIK_API CIXFile : public CFile {
public:
    // A closed object. The record size must be 1 to 4: any other size is refused with
    // CFileException(invalidFile), so that no file is ever read or written with a
    // layout the value rules do not cover.
    explicit CIXFile(int recordSize = 4);
    // Opens `fileName` (CFile open flags). Throws CFileException when the file cannot
    // be opened, or when the record size is outside 1..4 (then no file is touched).
    CIXFile(const char* fileName, UINT openFlags, int recordSize = 4);
    // Closes the file; the index file is not touched.
    ~CIXFile() override;

    // CFile::Open, then puts back what a move cut off by the death of a process left
    // undone (see above). Throws CFileException when that write fails. A journal beside
    // the file that fails its checksums or does not fit the file is never applied: the
    // file may be half moved, so the open fails (FALSE, `error` set to invalidFile; the
    // constructor throws it) and the journal stays for whoever repairs the file.
    BOOL Open(const char* path, UINT flags, CFileException* error = nullptr) override;
    // Removes an idle journal, then closes.
    void Close() override;

    // Extends the file to at least `count` records, plus GetGrowCount() spare records,
    // every new byte being the low byte of the init value. Nothing happens when the
    // file already holds `count` records. Throws CFileException when the file would
    // reach 2 GiB.
    virtual void Init(int count);
    // The value of record `position` (a view position when an index file is set).
    // A position outside 0..GetRecordCount()-1, or one that the index file maps
    // outside the file, gives the init value. One read of one record.
    virtual int GetRecord(int position);
    // GetRecord.
    virtual int operator[](int position) { return GetRecord(position); }
    // IncRecord and DecRecord: Modify(position, GetRecord(position) + 1) and - 1; past
    // the end this starts from the init value and extends the file.
    virtual void IncRecord(int position);
    virtual void DecRecord(int position);
    // Bytes per record, 1 to 4.
    virtual int GetRecordSize() { return m_nRecordSize; }
    // Physical records from `from` to `to` inclusive go; the records behind move down.
    // Nothing happens when `from` is above `to`. Both are clamped to the last record
    // (so a range past the end removes the last record) and `from` to 0. On an empty
    // file the length becomes 0. Throws CMemoryException when not even one byte can be
    // had to move the tail (the file is then unchanged).
    virtual void Delete(int from, int to);
    // Delete(position, position), through the index file when one is set; a position
    // that the index file does not map into the file is ignored.
    virtual void Delete(int position);
    // Puts a record holding `value` behind physical record `position` (-1, or any
    // value below it, puts it first). Behind the end the file is extended (Init) to
    // position + 2 records, so one empty record follows the new one. The records behind
    // move up one record; when memory for the whole tail cannot be had it moves through
    // ever smaller blocks, and when not even one byte can be had the message "Can't move
    // file data.\r\nNot enough memory!" is shown (AfxMessageBox, type 0, help 0) and
    // nothing is written.
    virtual void Insert(int position, int value);
    // Writes `value` (its low record-size bytes) at `position` (a view position when an
    // index file is set), extending the file with Init(position + 1) when the position
    // is at or past the end. A negative position, or one that the index file does not
    // map into the file, writes nothing.
    virtual void Modify(int position, int value);
    // Appends a record: CIXFile::Insert(GetRecordCount() - 1, value).
    virtual void Add(int value);
    // Without index file: the first physical position after `start` whose record equals
    // `value` (start -1 searches from record 0), or -1; -1 too for a `start` at or past
    // the last record. With an index file `start` plays no part: a binary search of the
    // view gives the physical position of the first of the equal records in view order,
    // or -1. Signed comparison.
    virtual int Find(int start, int value);

    // Appends `count` records holding `values`, as `count` calls of CIXFile::Add
    // would, in one write. Nothing for a count of 0 or below.
    void AddRecords(const DWORD* values, int count);

    // The number of whole records: GetLength() / GetRecordSize().
    int GetRecordCount();

    // Positions whose record meets `op` (opEqual, opGreater, opLess combined with |;
    // opNot is not looked at), compared signed. Returns their number. When it is above
    // 0, `list` receives a block from GrabBlock, released by the caller with DropBlock;
    // with 0 no block is handed over and `list` is left as it was. Without index file
    // the positions are physical and rising; with one, a binary search gives them in
    // view order, still as physical positions. Throws CMemoryException.
    int Find(int value, Operation op, DWORD*& list);
    // Sets the bits of the positions whose record meets `op`, without clearing `bits`
    // first; returns the number selected. Without index file the bits are physical
    // positions. With one, the bits are view positions when `sortedPositions` is true
    // and physical positions (read from the index file) when it is false. When `op`
    // holds both opEqual and opNot, `bits` is then complemented within GetRecordCount()
    // bits; the result is still the number selected before that.
    int Find(int value, Operation op, CBitArray& bits, bool sortedPositions);

    // values[i] = GetRecord(positions[i]) for i in 0..count-1. From 10 positions up the
    // whole file is read in one block first. Throws CMemoryException.
    void GetRecords(int count, const int* positions, int* values);
    // Maps a set through the file: `values` is emptied (FreeBuffer), then for every bit
    // set in `positions` (a plain bitmap, read as GetRecord positions) the record value
    // is set as a bit in `values`. Values below 0 (empty records) are skipped. A null
    // `positions` leaves `values` empty. The largest value sizes `values` (up to 256 MiB
    // for a 4-byte record): an application reading untrusted files bounds the values
    // first, or limits memory (CMemoryException).
    void GetRecords(CBitArray* positions, CBitArray& values);
    // Reads physical records `from` to `to` in one read and sets in `bits` the bit
    // numbered by each record's GetRecordValue; `bits` is not cleared first. `to` is
    // clamped to the last record and `from` to 0; an empty range sets nothing; values
    // below 0 are skipped. As above, the largest value sizes `bits`.
    void GetRecords(int from, int to, CBitArray& bits);
    // `bits` is emptied, then bit i is set for every physical record whose bytes differ
    // from the low record-size bytes of the init value. The file is read in one block.
    // The array ends with the last non-empty record.
    void GetRecordsBitmap(CBitArray& bits);
    // Removes every record that holds the init value and returns how many went,
    // empty records at the end included. One read and one write of the file.
    int DeleteEmpty();
    // Delete(0, GetRecordCount() - 1): the file becomes empty.
    void RemoveAll();

    // Gives `target` the physical positions of this file's records in rising order of
    // value (decoded with GetRecordValue, signed; equal values keep file order); this
    // file is not changed. When the file is already in order, `target` is overwritten
    // from its start with 0..n-1 without being emptied first, so a longer old content
    // keeps its tail; otherwise it is emptied and the positions appended. Either way
    // the positions are written in the target's own record size. `progress`, when
    // given, gets (i, n) as records are examined; its result is ignored. A null target
    // does nothing. Throws CMemoryException.
    void Sort(CIXFile* target, bool (*progress)(int, int));
    // Writes the inverse of this map of record numbers: entry v of the result is the
    // last position i whose record holds v. Records are decoded as GetRecord does and
    // the entries are written in this file's record size; entries that no record names
    // hold the init value's low byte in every byte. Values that are the init value or
    // below 0 are skipped, and so are values that could not be a position in a file
    // below 2 GiB. `target` null means this file. The target is overwritten from its
    // start and cut to (largest value + 1) entries. Memory stays in proportion to this
    // file, however large a value. `progress` gets (i, n). Throws CMemoryException.
    void Invert(bool (*progress)(int, int), CFile* target);
    // Cuts the empty records (init value) at the end of the file, such as the spare
    // records of a grow count, and a partial record behind the last whole one.
    void UpdateFileLength();

    // GetGrowCount and SetGrowCount: extra records that every extension (Init) adds; a
    // negative count counts as 0.
    int GetGrowCount() { return m_nGrowCount; }
    void SetGrowCount(int count) { m_nGrowCount = count < 0 ? 0 : count; }
    // GetInitValue and SetInitValue: the value of an empty record, and what reads
    // outside the file give (-1 at first).
    // New records are filled with its low byte.
    int GetInitValue() { return m_nInitValue; }
    void SetInitValue(int value) { m_nInitValue = value; }
    // The linked index file (not owned), or null.
    CIXFile* GetIndexFile() { return m_pIndexFile; }
    // Links `index` (null unlinks). A file whose chain of index files leads back to this
    // one (this file itself included) is refused and the old link stays: lookups go down
    // the chain and would never end. Costs the length of the chain.
    void SetIndexFile(CIXFile* index);

protected:
    // Widens a hit at view `position` to the run of equal records: on return `low` and
    // `high` are its first and last view positions. On entry they are the bounds the
    // binary search reached.
    void FindRecordLimits(int position, int count, int value, int& low, int& high);

    // The physical position of view position `position`, or -1 outside the file.
    int PhysicalPosition(int position, int count);
    // GetRecord for a search that has measured this file (`count` records) and the
    // index file (`indexCount`) once: one or two reads, no length queries.
    int ViewRecord(int position, int count, int indexCount);
    // Reads and decodes physical record `position`, which lies in the file.
    int ReadOne(int position);
    // Decodes one record as GetRecord does.
    int Decode(const BYTE* record) const;
    // True when `record` holds the low record-size bytes of the init value.
    bool IsInitRecord(const BYTE* record) const;
    // Reads physical records first..first+count-1 into a new GrabBlock block, zero
    // beyond what the file holds. Throws CMemoryException.
    BYTE* ReadRecords(int first, int count);
    // Moves `length` bytes from `from` to `to` inside the file, through one block or,
    // when memory is short, through halved blocks in an order that reads every byte
    // before it is overwritten. Returns false when not even one byte could be had.
    bool MoveData(DWORD from, DWORD to, DWORD length);
    // The view search shared by the Find forms: true on a hit at `middle`; `low` and
    // `high` end as the binary search leaves them.
    bool Locate(int value, int count, int indexCount, int& low, int& high, int& middle);
    // Writes the low record-size bytes of `value` at physical position `position`.
    void WriteRecord(int position, int value);

    int m_nRecordSize;
    int m_nInitValue = -1;
    int m_nGrowCount = 0;
    CIXFile* m_pIndexFile = nullptr;

private:
    // Runs `move`, which overwrites stored bytes from `from` on, as one change: journaled
    // on a file on disk, and undone when it throws.
    void AsOneChange(DWORD from, const std::function<void()>& move);
    // Init's writes, inside a change that is already running.
    void Extend(int count);
    std::unique_ptr<dorvik::Journal> m_pJournal;
};

}  // namespace dorvik::classic

using dorvik::classic::CBitArray;
using dorvik::classic::CIXFile;
