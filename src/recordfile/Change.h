// One change of a record file, as a scope.
//
// In safe mode, on a file on disk, the writes of a change go in this order, so that a
// process that dies anywhere inside leaves the records before the change, those after
// it, or a file that neither opens nor passes IsValidBinFile and that the next open
// brings back to one of the two through the journal (frame/Journal.h):
//   1. the stored bytes that the change will overwrite go to the journal;
//   2. the top byte of the last word becomes 0xFF: the word reads as a negative table
//      offset, which no open and no validity test accepts;
//   3. a file that grows gets its new last byte first, 0xFF as well, so that its length
//      is final before anything moves and the last word stays marked;
//   4. data moves and record bytes, all below the new table;
//   5. the table from its first changed entry, but not its last word;
//   6. the last word, which completes a file that keeps its length; a file that shrinks
//      is completed by the cut that follows (until then the old last byte marks it);
//   7. the journal goes idle.
// Each mark is a single byte and the last word a single aligned word, so no write torn
// by the death of the process unmarks the file early; and since a file unmarked is
// complete, the journal undoes only a marked one.
//
// Changes nest: one made inside another (an insertion past the end that first appends
// empty records, DeleteEmpty deleting run by run, a nested file rebuilt level by level)
// joins it, adds to its journal what it overwrites below what is covered, and leaves
// the table and the last word to the outermost one.
//
// Not safe mode and the memory twins keep no journal and set no marks: the change
// writes its data, and in safe mode the table, as the bytes fall.
#pragma once

#include <climits>

#include "dorvik/BinFile.h"
#include "frame/Block.h"
#include "frame/Journal.h"

namespace dorvik::classic {

struct CBinFile::Changing {
    dorvik::Journal journal;
    int depth = 0;
    bool guarded = false;  // journal and marks: safe mode on a file on disk
    DWORD stored = 0;      // the stored length now
    DWORD oldLength = 0;
    DWORD oldDataEnd = 0;
    int oldCount = 0;
    int first = INT_MAX;  // the first table entry changed
};

class CBinFile::Change {
public:
    static constexpr DWORD kToEnd = 0xFFFFFFFF;

    // Starts a change that overwrites stored bytes in [from, to) and leaves the file
    // `length` bytes long (0: as the changes inside make it). `scratch` (`room` bytes, may
    // be null) serves the copy to the journal. `anyTable`: the table may be out of step
    // with the file (DeleteAll). Throws CFileException(invalidFile) when, in safe mode,
    // the stored length is not the one the table gives (another object changed the file
    // since this one loaded it), and whatever the journal or the file throw; nothing is
    // changed then.
    Change(CBinFile& file, DWORD from, DWORD length, DWORD to = kToEnd,
           unsigned char* scratch = nullptr, std::size_t room = 0, bool anyTable = false);
    // Undoes the change when it was not committed (an exception left it), and reloads
    // the table. When even that fails the object is left with no table, and the journal
    // stays for the next open.
    ~Change();
    Change(const Change&) = delete;
    Change& operator=(const Change&) = delete;

    // The table in memory is the new one, from entry `firstEntry` on: writes it and
    // completes the file (outermost change), or leaves that to the outer change.
    void Commit(int firstEntry);

    // Inserts `n` records into `file` behind record `after` as one change: together they
    // hold the `length` bytes of `data` (null: the bytes are left as they lie), record i
    // starting starts[i] - starts[0] bytes in (`starts` may be null for one record).
    // Returns the position of the first.
    static int InsertRecords(CBinFile& file, int after, const unsigned char* data, int length,
                             int n, const DWORD* starts);

private:
    void Grow(DWORD length);
    void Mark(DWORD at);
    void WriteEntries(int first, int last);
    void Abandon();

    CBinFile& m_file;
    Changing& m_state;
    bool m_outer;
    bool m_done = false;
};

// A block for moving `bytes` stored bytes: one block for the whole range when it is
// small, else pieces of a fixed size, halved while memory is short. When not even one
// byte can be had it shows "Can't move file data.\r\nNot enough memory!" and is not Ok.
class Mover {
public:
    explicit Mover(int bytes);
    bool Ok() const { return m_ok; }
    unsigned char* Scratch() const { return static_cast<unsigned char*>(m_block.get()); }
    std::size_t Room() const { return m_block ? static_cast<std::size_t>(m_chunk) : 0; }
    // Moves `bytes` bytes from `from` to `to` in `file`, ranges overlapping freely.
    void Move(CFile& file, int from, int to, int bytes);

private:
    Block<void> m_block;
    int m_chunk = 0;
    bool m_ok = true;
};

}  // namespace dorvik::classic
