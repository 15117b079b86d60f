// CTextBinFile: a dictionary of strings kept in a record file. A record's bytes are the
// text and nothing else: no length field, no terminator; bytes above 127 are ordinary
// characters and words order by their raw bytes as unsigned values, a prefix first.
//
// Two numbers run through the class:
//  - a record number is the place of a record in the file, in storage order;
//  - a serial is the place in the view: in the order of the attached index file (a
//    CIXFile whose entry p names the record at view position p), among the positions
//    that the filter (a CBitArray over those positions) lets through. Serials run from
//    0 to GetRecordCount() - 1; with neither index file nor filter they are the record
//    numbers.
//
// Words can be kept sorted three ways: sorted Add without index file (the records stay
// physically in order), sorted Add with an index file (records in order of arrival, the
// index file in word order), or the sort-tree mode (InitSortTree, Add, FreeSortTree or
// Sort), in which the whole file lies in two memory blocks, words go into an in-memory
// tree, and the file and the index file are written once at the end.
//
// The object owns its filter; the index file stays the caller's, who keeps it open for
// as long as it is attached and destroys it. Failures of the layers below pass through:
// CFileException from the files, CMemoryException when memory cannot be had. Nothing
// else is reported but by results. Not safe for concurrent use.
#pragma once

#include "BinFile.h"
#include "IXFile.h"
#include "Operation.h"
#include "SortTree.h"
#include "String.h"

namespace dorvik::classic {
class CBitArray;
class CNDimBitsBinFile;

// The eight Windows-1256 mark bytes F3 F0 F5 F1 F6 F2 F8 FA, then a zero byte: the
// marks of the wildcard index and of diacritization. Defined with the wildcard search.
extern DORVIK_API const char DiacriticMarks[9];

class DORVIK_API CTextBinFile : public CBinFile {
public:
    // A closed object: no file, no index file, no filter, plain mode.
    CTextBinFile();
    // Opens through the CBinFile constructor (which throws CFileException when the file
    // cannot be opened).
    CTextBinFile(const char* path, UINT flags);
    // Deletes the filter and releases the blocks; the index file is left alone. Words
    // added in sort-tree mode and not yet written by FreeSortTree or Close are lost: the
    // file stays as it was before InitSortTree.
    ~CTextBinFile() override;

    // The inherited forms stay visible; they take record numbers, except the GetRecord
    // forms and CBinFile::Find, which read through the GetRecord below and so take
    // serials. The inherited DeleteEmpty calls Delete with record numbers: use it only
    // without filter and index file.
    using CBinFile::Add;
    using CBinFile::Delete;
    using CBinFile::Find;
    using CBinFile::GetRecord;
    using CBinFile::Insert;
    using CBinFile::Modify;

    // In sort-tree mode writes the words back first, as FreeSortTree does (so no word
    // added in that mode is lost), then closes as CBinFile::Close does. Throws
    // CFileException from those writes; the object then stays in sort-tree mode.
    void Close() override;

    // ---- Attachments ---------------------------------------------------------------

    // Attaches an index file (null detaches); stores the pointer and nothing else. The
    // index file stays the caller's.
    void SetIndexFile(CIXFile* index) { m_pIndexFile = index; }
    CIXFile* GetIndexFile() const { return m_pIndexFile; }  // null when none
    // Replaces the filter by a copy of `length` bytes of `bits` (bit p set: view position
    // p belongs to the view); null bits or a length of 0 removes it, and a negative
    // length leaves an empty filter, an empty view. Ignored in sort-tree mode, where the
    // view must not change under the tree. Throws CMemoryException.
    void SetFilter(unsigned char* bits, int length);
    // The filter, or null. It stays the property of the file.
    CBitArray* GetFilter() const { return m_pFilter; }

    // ---- Numbering -------------------------------------------------------------------

    // The number of serials: the filter's count of set bits when there is a filter; else
    // in sort-tree mode the tree's count (a repeat that a unique tree refused does not
    // count); else the number of records. A serial whose index file entry names no
    // record reads as the empty string. This hides CBinFile::GetRecordCount (the name
    // is fixed): call CBinFile::GetRecordCount() for the number of records in the file.
    int GetRecordCount();
    // The record number of a serial; -1 when the serial lies outside the view or the
    // index file names no record of the file.
    int GetSerialRecord(int serial);
    // The serial of a record number: the first view position that names it, counted
    // among the filtered ones. -1 when the record is not in the file or not in the view.
    int GetRecordSerial(int record);

    // ---- Reading ---------------------------------------------------------------------

    // The text of a serial (`serial` true) or a record number (false), cut at its first
    // zero byte. Out of range (below 0, past the view or the file) gives the empty
    // string. In sort-tree mode it reads the blocks (words added in that mode included),
    // otherwise one read of the file.
    void GetString(int index, CString& text, bool serial);
    // GetString of a serial, by value.
    CString operator[](int serial);
    // CBinFile::GetRecord of the serial's record, with the allocate convention of
    // CBinFile; a serial outside the view delivers nothing. Always reads the file.
    void GetRecord(int serial, unsigned char*& buffer, int& length, bool allocate) override;

    // ---- Changing --------------------------------------------------------------------

    // Appends the text (strlen bytes) as a record; index file and filter are not
    // touched, so the word is outside a view that has either. In sort-tree mode it goes
    // to the tree like the five-argument Add.
    void Add(const char* text);
    // Adds a word of `length` bytes (-1: strlen; a null text is the empty word).
    // Cost: a sorted Add shifts the tail of the data file (without index file) or of the
    // index file (with one) for every word; to load many words use the sort-tree mode,
    // which writes both files once (bench: --benchmark_filter=TextBulkBuild against
    // --benchmark_filter=TextSortedAdd).
    // Plain mode: with `sorted` (always with an index file) a binary search over the
    // view finds its place, reading at most length + 1 bytes of each probed word; an
    // equal word found with `duplicates` false refuses the word. The word goes in behind
    // the equal word the search met, or at its place in order; without index file the
    // file stays physically sorted, with one the record is appended and the index file
    // gets its entry. With a filter the new word's bit is opened, so it joins the view.
    // An empty record sorts below every word, an empty one included.
    // Sort-tree mode: `sorted` and `duplicates` are not read; a tree made with `unique`
    // refuses a word it holds; the word is kept in memory until FreeSortTree.
    // Returns false when the word was refused. `record` receives the record number of
    // the new word, or of the equal word that refused it (in sort-tree mode: of the
    // first occurrence of the word, also when a repeat was stored).
    bool Add(const char* text, int length, int& record, bool sorted, bool duplicates);
    // Puts a new record behind serial `serial` (-1: in front of the view). With an index
    // file the record is appended and the index file gets the new position; with a
    // filter its bit is opened. A serial past the end of a view with filter or index
    // file puts the word at the end of the view; without them the file grows as
    // CBinFile::Insert does. Ignored in sort-tree mode.
    void Insert(int serial, unsigned char* data, int length) override;
    // Replaces the record of serial `serial`; no re-sorting (keeping the order is the
    // caller's). A serial outside the view does nothing; without filter and index file a
    // serial past the end grows the file as CBinFile::Modify does and a negative one
    // does nothing. Ignored in sort-tree mode.
    void Modify(int serial, unsigned char* data, int length) override;
    // Removes the records of serials `first` to `last` (both included; `last` is cut to
    // the view). With an index file its positions go, and its remaining entries are
    // corrected: each record number above a removed record goes down by the number of
    // removed records below it, so every serial still reads its word. With a filter its
    // bits of those positions go too. Ignored in sort-tree mode.
    void Delete(int first, int last) override;

    // ---- Sort-tree mode --------------------------------------------------------------

    // Enters sort-tree mode: reads the whole file into memory (one read) and puts the
    // records of the view into the tree (all records when there is no filter), each
    // with its record number as id. With `unique` the tree refuses repeated words; on a
    // file that already holds a word twice the later copies stay records but stay out of
    // the tree, and so out of the index file that FreeSortTree writes. `reserved` is not
    // read. Nothing happens in sort-tree mode. Throws CFileException(invalidFile) for a
    // file without a valid table, CMemoryException; the object then stays plain.
    void InitSortTree(bool ascending, bool unique, char* reserved, bool (*progress)(int, int));
    // Leaves sort-tree mode: the index file, when attached, is emptied and gets the
    // record numbers in word order (falling when not `ascending`; repeats behind their
    // first occurrence) and keeps a grow count of 1000; then the file is written whole
    // (UpdateFile). With an index file a filter is removed, since the index file now
    // lists exactly the words of the tree; without one, the filter has the bits of the
    // words added in the mode set. Nothing happens in plain mode. On an exception the
    // object stays in sort-tree mode with all its words, so the call can be repeated.
    void FreeSortTree(bool ascending, bool (*progress)(int, int));
    // InitSortTree then FreeSortTree: rebuilds the index file from the present words.
    void Sort(bool ascending, bool unique, char* reserved, bool (*progress)(int, int));
    // Writes the two blocks over the file (data, then table, two writes), switches to
    // safe mode, cuts the file, flushes and reloads the table. Nothing outside
    // sort-tree mode. Throws CFileException.
    void UpdateFile();

    // ---- Direct search ---------------------------------------------------------------

    // The serial of the next word that matches `text`, or -1 (also for a null text).
    // The scan leaves `start` out: forward it runs from start + 1 up, backward from
    // start - 1 down; -1 forward begins at serial 0. With `wrap` a second pass runs from
    // the other end up to and including `start`.
    // `ignore` (or null): bytes taken out of the text and of every record before they
    // are compared. Comparison is by unsigned bytes on the zero-terminated texts:
    //  - `anchored` and `exact`: the whole record equals the text;
    //  - `anchored` and `wholeWord`: the record equals the text or starts with it and a
    //    blank;
    //  - `anchored`: the record starts with the text;
    //  - `wholeWord` alone: the text stands in the record between the record's start or a
    //    blank and a blank or the record's end (an empty text finds nothing);
    //  - otherwise: the text stands anywhere in the record.
    // A `start` below -1 counts as -1, one above the count as the count: serials outside
    // the view are never tested.
    // `binary` bisects a view that must be sorted, and needs `anchored` (without it the
    // view is walked). A binary pass probes the middle (first + last) / 2 of its range:
    // a record that compares above the text moves `last` below the probe, any other
    // moves `first` above it. On a hit the pass turns round and walks the run of words
    // that begin with the text (strncmp over its length) back towards `start`, and
    // returns the first word of that run in the order of the search, which may differ
    // from the walk's answer. In the second pass of a wrap the run lies behind `start`,
    // so the probe's hit itself is returned: in the sorted view a, ab, ab cd, ab!, abab,
    // abc, abd, abd x, b, ba, bab, c, ca, cab a forward search for "a" from 7 with `wrap`
    // gives 3, where walking gives 0. Backward (a decision) the bisection is the same and
    // the walk runs upward over the words that compare as the hit did, giving the last
    // of them below `start`. Without `accept` and `ignore` the run is measured by
    // galloping, in reads logarithmic in its length; with either it is walked word by
    // word.
    // `accept` (or null) is called with each serial before it is tested, the probes of a
    // bisection and the steps of its walk included: -1 ends the search with -1, 1 tests
    // the word, any other value skips it. A probe that is skipped moves `first` above it,
    // as a record below the text would (a decision). A skipped step of the walk is
    // stepped over.
    // Throws CFileException from the reads.
    int Find(int start, const char* text, const char* ignore, bool backward, bool wholeWord,
             bool anchored, bool wrap, bool binary, bool exact, int (*accept)(int));

    // ---- Wildcard index and search ---------------------------------------------------
    // These live with the wildcard search, not with the storage. Their bits and cells
    // are record numbers as they were when the index was built; filter and index file
    // play no part.

    // Writes the wildcard index of all records (by record number) into the open `file`,
    // merging with what it holds. `marks` (or null) are the bytes that count as marks;
    // `progress` returning false ends the reading, and what was gathered is saved.
    void IndexForWildCards(CBinFile* file, const char* marks, bool (*progress)(int, int));
    // The same into a new file at `path` (created, or emptied when it exists).
    void IndexForWildCards(const char* path, const char* marks, bool (*progress)(int, int));
    // Clears `result`, then sets in it the records whose shape matches `pattern`, read
    // through the wildcard index alone. This is the engine's own dialect, not a shell
    // glob:
    //  - a letter is any byte that is not one of DiacriticMarks; a mark in the pattern
    //    must stand in that place of the run of marks on its letter, and marks that the
    //    pattern does not name are free, so a bare word finds all its marked forms;
    //  - `?` and the byte BF each stand for one letter;
    //  - without `*` the letter count is pinned: "ab" finds only words of two letters;
    //  - a `*` as the last character frees the length from there on: "ab*" finds the
    //    words that begin with ab; "b?*" finds "b" too, and "?*" finds nothing (no letter
    //    was read before the star);
    //  - leading stars try each start position: "*ab" finds the words that end in ab,
    //    "*ab*" the words that hold it;
    //  - any other `*` matches the rest of the pattern from the letter reached, and the
    //    part before it is tried at the first start position only: "*e*b" acts as "e*b"
    //    and misses ddeb, "*a*d" misses eedad;
    //  - "*" and "**" alone select every record, empty ones included; two or more stars
    //    at the end of anything else ("a**") select nothing;
    //  - an empty pattern selects nothing; a null one selects by emptiness: the
    //    non-empty records, or with `op` exactly opEqual the empty ones.
    // `op` with both opEqual and opNot (9) inverts the selection over GetRecordCount()
    // records; other values select as opEqual. `ignoreCase` also takes the other case of
    // each byte, by the C library's tolower and toupper under the process locale.
    // `marks` is carried along and never read: the marks of a pattern are always
    // DiacriticMarks. Returns 1 when `result` holds a record, -1 when it is empty.
    // Cost: no record of this file is read; the cells that the pattern names are read as
    // stored and intersected on their compressed forms, so a look-up walks the stored
    // bytes of those cells (a pattern with leading stars: once per start position), not
    // the dictionary. With `ignoreCase` each cell is expanded and ANDed in turn.
    int Find(CNDimBitsBinFile* index, const char* pattern, Operation op, const char* marks,
             bool ignoreCase, CBitArray& result);
    // The same through the wildcard index file at `path`, opened for the call.
    int Find(const char* path, const char* pattern, Operation op, const char* marks,
             bool ignoreCase, CBitArray& result);

protected:
    // The wildcard match of `pattern` with its first letter at level `startLevel`;
    // 1 when `result` holds a record, -1 otherwise.
    int FindTokenForWildCards(CNDimBitsBinFile* index, const char* pattern, Operation op,
                              const char* marks, bool ignoreCase, int startLevel,
                              CBitArray& result);

    // Sets the members below to false, 0 or null (the tree excepted).
    void InitVariables();
    // Loads the two blocks from the file (one read of the data; the table comes from
    // memory). Nothing when they are loaded. Throws CFileException(invalidFile) for a
    // file with no valid table.
    void InitFileMem();
    // Releases the two blocks.
    void FreeFileMem();

    CIXFile* m_pIndexFile;             // the view's permutation; the caller's
    CBitArray* m_pFilter;              // owned
    bool m_bSortTree;                  // sort-tree mode is on
    CSortTree<CBufferRef> m_SortTree;  // keys refer into m_pFileData
    bool m_bFileMem;                   // the file lies in the two blocks below
    char* m_pFileData;                 // all record bytes, back to back (GrabBlock)
    int m_nFileDataSize;               // bytes in use
    int m_nFileDataCapacity;           // bytes allocated
    DWORD* m_pFileAddresses;           // count + 1 offsets into m_pFileData (GrabBlock)
    int m_nFileAddressesSize;          // bytes in use: 4 * (count + 1)
    int m_nFileAddressesCapacity;      // bytes allocated

private:
    bool m_bAscending;  // the direction InitSortTree was given

    // Records held in the blocks (sort-tree mode) or in the file.
    int StoredCount();
    // The index file's record count as the view uses it (0 without index file).
    int IndexCount(int viewCount);
    // The record of a serial inside the view (0 .. view count - 1), the index file's
    // count measured once by the caller; -1 when the view names none. Not checked
    // against the file.
    int ViewRecord(int serial, int indexCount);
    // The text of record `record` into `text`, cut at the first zero; empty out of range.
    void ReadRecordText(int record, CString& text);
    // Insert behind serial `serial`; returns the new record's number.
    int InsertInView(int serial, unsigned char* data, int length);
    // Add in sort-tree mode.
    bool AddToTree(const char* text, int length, int& record);
    // Delete with a filter or an index file.
    void DeleteInView(int first, int last);
};

}  // namespace dorvik::classic

using dorvik::classic::CBitArray;
using dorvik::classic::CNDimBitsBinFile;
using dorvik::classic::CTextBinFile;
using dorvik::classic::DiacriticMarks;
