// CBitsBinFile: a record file whose every record is one bit array, stored in the
// compressed form of CBitArray. Taken whole, the file is a sparse boolean matrix:
// the record number is the row, the bit number the column. Records are compressed on
// the way in and expanded on the way out; layout, table and safe mode are CBinFile's.
// An all-zero array is stored as an empty record; empty and absent records read as a
// null block and length 0. The inherited byte readers (GetRecord with a bool,
// GetRecords, GetRecordLength, Find) see the stored, compressed bytes.
#pragma once

#include "BinFile.h"
#include "BitArray.h"

namespace dorvik::classic {
class DORVIK_API CBitsBinFile : public CBinFile {
public:
    // Gets (index, total) as Invert goes on; may be null; its result is not used.
    using Progress = bool (*)(int, int);

    // A closed object.
    CBitsBinFile();
    // Opens as CBinFile(path, flags) does.
    CBitsBinFile(const char* path, UINT flags);
    ~CBitsBinFile() override;

    using CBinFile::Add;
    using CBinFile::GetRecord;
    using CBinFile::GetRecords;
    using CBinFile::Insert;
    using CBinFile::Modify;

    // The writers below take expanded (plain) bytes and store their compressed form.
    // Null `data` stands for all-zero bytes: an empty record.
    void Insert(int after, unsigned char* data, int length) override;
    void Modify(int index, unsigned char* data, int length) override;
    void Add(unsigned char* data, int length) override;
    // Stores the whole content of `source` as an expanded bit array (compressed on the
    // way in); the source is read in one piece.
    void Modify(int index, CFile& source) override;

    // Union (`unite` true) or intersection of the records listed in `records`, into
    // `result`, which comes back uncompressed whatever its flag was. An intersection
    // stops reading at the first empty record. `limit` (bytes, -1 for all) bounds each
    // record's expansion (an item crossing it expands whole): bits below 8 * limit are
    // exact. An intersection of two or more records expands none of them: it walks their
    // compressed forms together, so a zero run of any record costs nothing to the
    // others; its cost follows the stored bytes plus the result's length. The records
    // are read as stored (CBinFile::GetRecord), not through an override of
    // GetRecord(int, CBitArray&, int).
    virtual void GetRecords(int count, int* records, CBitArray& result, bool unite, int limit);
    // The same over the set bits of `selection`; null selects every non-empty record.
    virtual void GetRecords(CBitArray* selection, CBitArray& result, bool unite, int limit);
    // Transposes the matrix: bit b of record r becomes bit r of the output record of
    // column b, numbered by the column's rank in `columns` (`byRank`) or by b itself.
    // `columns` null takes the union of all records. Bits outside an explicit column
    // set are skipped. The destination (`target`, or this file when null) loses all its
    // records first and is left in not safe mode. The whole source is read before the
    // destination is touched; memory is 2 or 4 bytes per set bit plus 4 bytes per
    // addressable column, never a dense matrix. `progress` gets (index, total); its
    // result is ignored. A file with no records changes nothing.
    virtual void Invert(CBitArray* columns, bool byRank, Progress progress, CBitsBinFile* target);
    // The record into `bits`: the stored bytes when `bits` is compressed (limit not
    // used), else the expanded bytes. The old content goes.
    // Mind the overloads: GetRecord(i, buffer, length, 1) passes an int and so picks the
    // expanding form below with a limit of 1 byte; pass true or false for the stored
    // bytes of CBinFile::GetRecord.
    virtual void GetRecord(int index, CBitArray& bits, int limit);
    // The expanded record in a new GrabBlock block (release with DropBlock), `limit`
    // as above; null and 0 for an empty or absent record. The stored bytes size the
    // block by contract: a 3-byte run stands for 65535 bytes, so a record can expand to
    // 21845 times its stored length. An application reading untrusted files passes a
    // `limit` (or uses GetAt and GetCount, which read the stored form in place).
    virtual void GetRecord(int index, unsigned char*& buffer, int& length, int limit);
    // Modify and Add store an array: a compressed one as it stands, a plain one
    // compressed.
    virtual void Modify(int index, CBitArray* bits);
    virtual void Add(CBitArray* bits);
    // Record-by-record union / intersection of another file into this one.
    virtual void Or(CBitsBinFile* other);
    // The other file by path, opened read-only; a path that cannot be opened throws.
    virtual void Or(const char* path);
    // The intersection, as Or.
    virtual void And(CBitsBinFile* other);
    virtual void And(const char* path);
    // Single bits of record `index`. SetAt extends the file when needed and writes only
    // when the bit was clear; ResetAt writes only when the bit was set (the record may
    // become empty); GetAt reads it. A negative bit changes nothing and reads as clear.
    // SetAt grows the record to bit / 8 + 1 bytes (256 MiB for bit 2^31 - 1;
    // CMemoryException when that cannot be had).
    // Cost: each change reads and expands the whole record, compresses it again and
    // rewrites it, which moves every stored byte behind it and, in safe mode, the table
    // tail. Building an index posting by posting is quadratic: 2,000 documents of 30
    // words take seconds this way and milliseconds through CBitArrayArray
    // (Collections.h) and one Save, which writes the same bytes (bench:
    // --benchmark_filter=Postings). Gather postings in a collection and save once.
    virtual void SetAt(int index, int bit);
    virtual void ResetAt(int index, int bit);
    virtual bool GetAt(int index, int bit);
    // The names GetBitIndex and GetIndexBit are fixed by the interface, and mean other
    // things here than in CBitArray and CNDimBitsBinFile; read each contract.
    // Set bits below `bit` (clamped to the record), less 1 when that bit is clear: the
    // rank of the bit or of the nearest set bit below it; -1 for none or an empty record.
    virtual int GetBitIndex(int index, int bit);
    // Scans from bit 0 past `count` set bits and returns where the scan stopped: 0 for
    // a count of 0, one past the count-th set bit, or 8 * length when the bits run out.
    // So it is one more than CBitArray::GetIndexBit(count - 1), which is zero-based.
    virtual int GetIndexBit(int index, int count);
    // The number of set bits of the record (counted on the compressed form).
    virtual int GetCount(int index);

    // For every source record, destination record |= source record; a longer source
    // extends the destination, and destination records past it stay.
    static void OrFiles(CBitsBinFile* source, CBitsBinFile* target);
    // For records below both counts, destination &= source; then every destination
    // record past the source's count goes, and so do trailing records left empty.
    static void AndFiles(CBitsBinFile* source, CBitsBinFile* target);
    // OrFiles and AndFiles by path: the source opened read-only, the destination
    // read-write; either failing to open throws CFileException.
    static void OrFiles(const char* source, const char* target);
    static void AndFiles(const char* source, const char* target);
};

}  // namespace dorvik::classic

using dorvik::classic::CBitsBinFile;
