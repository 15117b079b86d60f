// The rollback journal of a file changed in place: before a change overwrites stored
// bytes, they are copied to the journal "<path>.journal" beside the file, so that the
// next open can undo a change that a dying process left half done.
//
// Journal format, little-endian 32-bit words:
//   0   4A4B5644 ("DVKJ")
//   4   the file's length before the change
//   8   inode number of the file, low and high word
//   16  state: 0 idle (nothing to undo), 1 undo
//   20  bytes of the journal that count, these 32 included
//   24  CRC-32C of the records, the bytes from 32 up to that count
//   28  CRC-32C of bytes 0 to 27
//   32  records up to that count: stored offset, length, and the bytes the file held there
// Bytes 16 to 31 change together, in one write of 16 bytes that lands whole or not at all
// when the process dies (it lies within one page). Undo writes every record back, sets the
// old length and restores the file's last byte last. A journal that names another inode,
// or that lies beside a file just created, is stale and goes unused. A new journal is
// written idle and whole beside its place and renamed into it.
//
// Damage: a journal shorter than its header (empty included), whose header checksum
// fails, or that is set to undo for the file and
// whose records fail their checksum, reach outside it or past the old length, or leave
// bytes between the file's length and the old length uncovered, is never applied. It is
// kept for whoever repairs the file by hand, and the file does not open with its records:
// a file that marks itself reads as none (a record file fails IsValidBinFile), one that
// does not is refused (Recover returns false). Beside a marked file that is complete
// (unmarked) it is stale and goes.
//
// Order: the journal is written whole and only then set to undo, before the first byte
// of the file changes; it is set idle once the file is complete. Meanwhile the change
// holds an exclusive flock on the file's descriptor, so that an open by another object
// or process never undoes a change that is still running. A file that marks itself while
// it changes (a record file keeps its last byte 0xFF from the first write of a change to
// its last) is undone only while marked: unmarked, the change is complete, and a journal
// not yet set idle is stale. No fsync: the journal outlives the death of the process (the
// page cache keeps both files), not a power loss.
#pragma once

#include <vector>

#include "dorvik/File.h"
#include "frame/Checksum.h"

namespace dorvik {

// Stored bytes [begin, end).
struct Span {
    DWORD begin;
    DWORD end;
};

class Journal {
public:
    Journal() = default;
    ~Journal();
    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;

    // The journal's path for the file at `path`.
    static CString PathOf(const CString& path);

    // At open: undoes the change that a journal beside the file that `file` has open
    // records as cut off, through a second descriptor opened for writing, then removes
    // the journal. Does nothing while another descriptor holds the file's lock (its change
    // still runs), or when the file cannot be written (a record file then reads as none).
    // `created`: the file was just truncated by its open, so any journal is stale.
    // `marked`: the file marks itself while it changes (see above). Returns false when a
    // damaged journal lies beside an unmarked kind of file that may be half changed: the
    // caller refuses the open. Throws CFileException when the file fails while it is
    // written.
    [[nodiscard]] static bool Recover(CFile& file, bool created, bool marked);

    // Starts a change of `file`, whose stored length is `length` now: takes the lock
    // (waiting while a change of another object runs), copies the stored bytes of
    // `spans` (clipped to `length`) read through `file`, in pieces of `room` bytes of
    // `scratch`, and sets the journal to undo. On an exception nothing is recorded, the
    // file is untouched and the lock is released.
    void Begin(CFile& file, DWORD length, std::initializer_list<Span> spans, unsigned char* scratch,
               std::size_t room);
    // Adds those bytes of `span` (clipped to the old length) that the journal does not
    // hold yet, so that the running change may overwrite them.
    void Cover(CFile& file, Span span, unsigned char* scratch, std::size_t room);
    // Whether the journal holds the stored bytes of `span` (clipped to the old length).
    bool Covers(Span span) const;
    // The change is complete: sets the journal idle and releases the lock. When that
    // write fails the journal file is removed instead; errors are dropped.
    void End();
    // Undoes the running change through `file` from what this object committed to the
    // journal, and ends it. When the file cannot be written the journal stays for the
    // next open, the lock is released, and the exception passes on.
    void Undo(CFile& file);
    // At close: removes the journal file when it is idle and no change of another
    // object runs, and closes it. Never throws.
    void Close(CFile& file);

    bool Running() const { return m_locked != CFile::hFileNull; }

private:
    void Lock(int descriptor);
    void Unlock();
    // Makes the journal at `path` idle and empty: written beside it as "<path>.new" and
    // renamed into place, so that no journal is ever seen shorter than its header.
    static void Make(const CString& path);
    // The header of the journal as this object committed it, set to `state`.
    void EncodeHeader(unsigned char* out, DWORD state) const;
    // Writes the header's tail: `count` bytes of records summing to `sum` count now, in
    // `state`. On an exception the object keeps what it committed before.
    void Commit(DWORD state, DWORD count, const Crc32c& sum);
    // Closes and removes the journal file, dropping errors.
    void DropFile();
    CFile m_file;
    int m_locked = CFile::hFileNull;  // the file's descriptor whose lock is held
    DWORD m_nLength = 0;              // bytes of the journal that count
    Crc32c m_sum;                     // of its records up to there
    DWORD m_nOldLength = 0;
    std::uint64_t m_nInode = 0;
    std::vector<Span> m_covered;
};

}  // namespace dorvik
