#include "frame/Journal.h"

#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "frame/Checksum.h"
#include "frame/Coding.h"

namespace dorvik {

namespace {

constexpr DWORD kMagic = 0x4A4B5644;  // "DVKJ"
constexpr DWORD kIdle = 0, kUndo = 1;
// The header: its fixed part (16 bytes), then the tail that every later update rewrites
// in one write (state, count, the records' checksum, the header's checksum).
constexpr DWORD kTailAt = 16, kTailBytes = 16, kHeaderBytes = 32;
constexpr DWORD kRecordHead = 8;
constexpr std::size_t kLocalRoom = 4096;

struct Header {
    DWORD magic = 0, oldLength = 0, state = 0, count = 0, recordsSum = 0, headerSum = 0;
    std::uint64_t inode = 0;
};

void Encode(unsigned char* out, const Header& h) {
    const DWORD words[8] = {h.magic,
                            h.oldLength,
                            static_cast<DWORD>(h.inode),
                            static_cast<DWORD>(h.inode >> 32),
                            h.state,
                            h.count,
                            h.recordsSum,
                            0};
    EncodeFixed32Array(out, words, 8);
    Crc32c sum;
    sum.Add(out, kHeaderBytes - 4);
    EncodeFixed32(out + kHeaderBytes - 4, sum.Value());
}

// The header in `in`; false when its checksum fails.
bool Decode(const unsigned char* in, Header& h) {
    h.magic = DecodeFixed32(in);
    h.oldLength = DecodeFixed32(in + 4);
    h.inode = DecodeFixed32(in + 8) | (std::uint64_t{DecodeFixed32(in + 12)} << 32);
    h.state = DecodeFixed32(in + 16);
    h.count = DecodeFixed32(in + 20);
    h.recordsSum = DecodeFixed32(in + 24);
    h.headerSum = DecodeFixed32(in + 28);
    Crc32c sum;
    sum.Add(in, kHeaderBytes - 4);
    return h.magic == kMagic && sum.Value() == h.headerSum;
}

std::uint64_t InodeOf(int descriptor) {
    struct stat st;
    return ::fstat(descriptor, &st) == 0 ? static_cast<std::uint64_t>(st.st_ino) : 0;
}

void WriteAt(CFile& file, DWORD at, const void* bytes, UINT count) {
    file.Seek(static_cast<LONG>(at), CFile::begin);
    file.Write(bytes, count);
}

// Output gathered in a scratch buffer and written in as few calls as it allows.
class Gather {
public:
    Gather(CFile& out, DWORD at, unsigned char* buffer, std::size_t room)
        : m_out(out), m_at(at), m_buffer(buffer), m_room(room) {}
    // Room for up to `most` bytes (at least one); Advance(n) keeps n of them.
    unsigned char* Reserve(std::size_t most, std::size_t& given) {
        if (m_used == m_room) Flush();
        given = std::min(most, m_room - m_used);
        return m_buffer + m_used;
    }
    void Advance(std::size_t n) { m_used += n; }
    void Put(const unsigned char* bytes, std::size_t n) {
        while (n > 0) {
            std::size_t given = 0;
            unsigned char* to = Reserve(n, given);
            std::copy(bytes, bytes + given, to);
            Advance(given);
            bytes += given;
            n -= given;
        }
    }
    void Flush() {
        if (m_used == 0) return;
        WriteAt(m_out, m_at, m_buffer, static_cast<UINT>(m_used));
        m_at += static_cast<DWORD>(m_used);
        m_used = 0;
    }

private:
    CFile& m_out;
    DWORD m_at;
    unsigned char* m_buffer;
    std::size_t m_room;
    std::size_t m_used = 0;
};

// Copies `n` stored bytes of `from` at `source` to `to` at `target`, in pieces, adding
// them to `sum` when one is given.
void Copy(CFile& from, DWORD source, CFile& to, DWORD target, DWORD n, unsigned char* scratch,
          std::size_t room, Crc32c* sum = nullptr) {
    for (DWORD done = 0; done < n;) {
        UINT piece = static_cast<UINT>(std::min<std::size_t>(room, n - done));
        from.Seek(static_cast<LONG>(source + done), CFile::begin);
        UINT got = from.Read(scratch, piece);
        if (got < piece) std::fill(scratch + got, scratch + piece, 0);
        if (sum) sum->Add(scratch, piece);
        WriteAt(to, target + done, scratch, piece);
        done += piece;
    }
}

// Whether the records [kHeaderBytes, h.count) of the journal sum to h.recordsSum.
bool RecordsSumUp(CFile& journal, const Header& h) {
    unsigned char piece[kLocalRoom];
    Crc32c sum;
    for (DWORD at = kHeaderBytes; at < h.count;) {
        const UINT n = static_cast<UINT>(std::min<DWORD>(sizeof piece, h.count - at));
        journal.Seek(static_cast<LONG>(at), CFile::begin);
        if (journal.Read(piece, n) != n) return false;
        sum.Add(piece, n);
        at += n;
    }
    return sum.Value() == h.recordsSum;
}

struct Record {
    DWORD at, offset, length;  // where its bytes lie in the journal, and in the file
};

// The records of a journal with header `h`, or false when they do not fit it: a
// journal that does not add up is never applied.
bool ReadRecords(CFile& journal, const Header& h, std::vector<Record>& out) {
    DWORD size = journal.CFile::GetLength();
    if (h.count < kHeaderBytes || h.count > size) return false;
    if (h.oldLength > kMaxFileLength) return false;
    for (DWORD at = kHeaderBytes; at < h.count;) {
        if (h.count - at < kRecordHead) return false;
        unsigned char head[kRecordHead];
        journal.Seek(static_cast<LONG>(at), CFile::begin);
        if (journal.Read(head, kRecordHead) != kRecordHead) return false;
        Record r{at + kRecordHead, DecodeFixed32(head), DecodeFixed32(head + 4)};
        if (r.length > h.count - r.at || r.offset > h.oldLength ||
            r.length > h.oldLength - r.offset)
            return false;
        out.push_back(r);
        at = r.at + r.length;
    }
    return true;
}

// Whether the records hold every byte of [stored, oldLength): what a change cut off or
// had not yet written back must come from the journal. A journal whose old length runs
// past its records is damaged, and applied it would grow the file with zeros.
bool CoversTail(std::vector<Record> records, DWORD stored, DWORD oldLength) {
    std::sort(records.begin(), records.end(),
              [](const Record& a, const Record& b) { return a.offset < b.offset; });
    DWORD reached = stored;
    for (const Record& r : records) {
        if (reached >= oldLength || r.offset > reached) break;
        reached = std::max(reached, r.offset + r.length);
    }
    return reached >= oldLength;
}

// Brings `target` back to the state before the change. The last byte of a record file
// stays 0xFF, its mark of a change under way, until all else is in place.
void Replay(CFile& journal, CFile& target, const Header& h, const std::vector<Record>& records) {
    unsigned char scratch[kLocalRoom];
    const unsigned char mark = 0xFF;
    if (h.oldLength == 0) {
        target.SetLength(0);
        return;
    }
    const DWORD lastAt = h.oldLength - 1;
    bool haveLast = false;
    unsigned char last = 0;
    for (const Record& r : records) {
        if (r.offset <= lastAt && lastAt < r.offset + r.length) {
            journal.Seek(static_cast<LONG>(r.at + (lastAt - r.offset)), CFile::begin);
            haveLast = journal.Read(&last, 1) == 1;
        }
    }
    DWORD stored = target.CFile::GetLength();
    if (stored < h.oldLength) {
        if (haveLast) {
            WriteAt(target, lastAt, &mark, 1);
        } else {
            target.SetLength(h.oldLength);
        }
    }
    for (const Record& r : records) {
        DWORD n = r.length;
        if (haveLast && r.offset + n > lastAt) n = lastAt - r.offset;  // the last byte comes last
        Copy(journal, r.at, target, r.offset, n, scratch, sizeof scratch);
    }
    if (stored > h.oldLength) {
        if (haveLast) WriteAt(target, lastAt, &mark, 1);
        target.SetLength(h.oldLength);
    }
    if (haveLast) WriteAt(target, lastAt, &last, 1);
}

// Holds an flock on a descriptor for a scope.
class ScopedLock {
public:
    ScopedLock(int descriptor, bool wait) {
        int rc;
        do {
            rc = ::flock(descriptor, LOCK_EX | (wait ? 0 : LOCK_NB));
        } while (rc != 0 && errno == EINTR);
        // Without lock support (ENOLCK) a single process is still safe: go on unlocked.
        m_held = rc == 0 || (errno != EWOULDBLOCK && wait);
        if (rc == 0) m_descriptor = descriptor;
    }
    ~ScopedLock() {
        if (m_descriptor != CFile::hFileNull) ::flock(m_descriptor, LOCK_UN);
    }
    ScopedLock(const ScopedLock&) = delete;
    ScopedLock& operator=(const ScopedLock&) = delete;
    bool Held() const { return m_held; }

private:
    int m_descriptor = CFile::hFileNull;
    bool m_held = false;
};

void RemoveQuietly(const CString& path) {
    try {
        CFile::Remove(path);
    } catch (const CFileException&) {
        // An idle journal that stays does no harm.
    }
}

}  // namespace

Journal::~Journal() {
    try {
        m_file.Close();
    } catch (const CFileException&) {
        // Nothing to report from a destructor; Close removed what was idle.
    }
    Unlock();
}

CString Journal::PathOf(const CString& path) { return path + ".journal"; }

bool Journal::Recover(CFile& file, bool created, bool marked) {
    const CString path = file.GetFilePath();
    if (path.IsEmpty() || file.m_hFile == CFile::hFileNull) return true;
    const CString journalPath = PathOf(path);
    struct stat st;
    if (::stat(journalPath, &st) != 0) return true;
    ScopedLock lock(file.m_hFile, false);
    if (!lock.Held()) return true;  // a change of another descriptor is under way
    CFile journal;
    if (!journal.Open(journalPath, CFile::modeReadWrite | CFile::shareDenyNone)) return true;
    const DWORD size = journal.CFile::GetLength();
    unsigned char head[kHeaderBytes];
    Header h;
    // An empty journal counts as damaged: it may be one cut to nothing.
    bool whole = journal.Read(head, kHeaderBytes) == kHeaderBytes && Decode(head, h) &&
                 h.count >= kHeaderBytes && h.count <= size;
    // Set to undo for this very file, its records must sum up before they are applied.
    const bool owed = whole && h.state == kUndo && !created && h.inode == InodeOf(file.m_hFile);
    if (owed) whole = RecordsSumUp(journal, h);
    // A file that marks itself while it changes is complete when unmarked, whatever
    // lies beside it; one the open created anew owes nothing to any journal.
    bool inside = !created;
    if (inside && marked) {
        unsigned char last = 0;
        const DWORD stored = file.CFile::GetLength();
        if (stored > 0) {
            file.Seek(static_cast<LONG>(stored - 1), CFile::begin);
            file.Read(&last, 1);
        }
        inside = last == 0xFF;
    }
    if (inside && !whole) return marked;  // kept for whoever repairs by hand
    if (inside && owed) {
        std::vector<Record> records;
        if (!ReadRecords(journal, h, records) ||
            !CoversTail(records, file.CFile::GetLength(), h.oldLength))
            return marked;  // summed up but does not fit the file: kept as well
        CFile target;
        if (!target.Open(path, CFile::modeReadWrite | CFile::shareDenyNone)) return marked;
        Replay(journal, target, h, records);
        target.Close();
        h.state = kIdle;
        Encode(head, h);
        try {
            WriteAt(journal, kTailAt, head + kTailAt, kTailBytes);
        } catch (const CFileException&) {
            // The file is whole again; the removal below is what counts.
        }
    }
    journal.Close();
    RemoveQuietly(journalPath);
    return true;
}

void Journal::Lock(int descriptor) {
    int rc;
    do {
        rc = ::flock(descriptor, LOCK_EX);
    } while (rc != 0 && errno == EINTR);
    m_locked = descriptor;
}

void Journal::Unlock() {
    if (m_locked == CFile::hFileNull) return;
    ::flock(m_locked, LOCK_UN);
    m_locked = CFile::hFileNull;
}

void Journal::Begin(CFile& file, DWORD length, std::initializer_list<Span> spans,
                    unsigned char* scratch, std::size_t room) {
    Lock(file.m_hFile);
    try {
        // Another object may have removed the journal at its close: then a new one.
        struct stat st;
        if (m_file.m_hFile != CFile::hFileNull &&
            (::fstat(m_file.m_hFile, &st) != 0 || st.st_nlink == 0))
            m_file.Close();
        if (m_file.m_hFile == CFile::hFileNull) {
            const CString path = PathOf(file.GetFilePath());
            const UINT mode = CFile::modeReadWrite | CFile::shareDenyNone;
            CFileException error;
            if (!m_file.Open(path, mode)) {
                Make(path);
                if (!m_file.Open(path, mode, &error)) throw error;
            }
        }
        m_nOldLength = length;
        m_nInode = InodeOf(file.m_hFile);
        m_covered.clear();
        for (Span s : spans) {
            s.end = std::min(s.end, length);
            if (s.begin < s.end) m_covered.push_back(s);
        }
        // Overlapping spans are recorded once: the covered set stays disjoint and rising.
        std::sort(m_covered.begin(), m_covered.end(),
                  [](Span a, Span b) { return a.begin < b.begin; });
        std::vector<Span> pieces;
        for (Span s : m_covered) {
            if (!pieces.empty() && s.begin <= pieces.back().end) {
                pieces.back().end = std::max(pieces.back().end, s.end);
            } else {
                pieces.push_back(s);
            }
        }
        m_covered = pieces;
        DWORD count = kHeaderBytes;
        for (Span p : pieces) count += kRecordHead + (p.end - p.begin);

        unsigned char local[kLocalRoom];
        if (!scratch || room < kLocalRoom) {
            scratch = local;
            room = kLocalRoom;
        }
        // The header first says idle and empty, so that a journal cut off while its
        // records are written is whole and unused; the tail then sets it to undo.
        m_nLength = kHeaderBytes;
        m_sum = Crc32c();
        unsigned char head[kHeaderBytes];
        EncodeHeader(head, kIdle);
        Gather out(m_file, 0, scratch, room);
        out.Put(head, kHeaderBytes);
        Crc32c sum;
        for (Span p : pieces) {
            unsigned char recordHead[kRecordHead];
            EncodeFixed32(recordHead, p.begin);
            EncodeFixed32(recordHead + 4, p.end - p.begin);
            out.Put(recordHead, kRecordHead);
            sum.Add(recordHead, kRecordHead);
            for (DWORD at = p.begin; at < p.end;) {
                std::size_t given = 0;
                unsigned char* to = out.Reserve(p.end - at, given);
                file.Seek(static_cast<LONG>(at), CFile::begin);
                UINT got = file.Read(to, static_cast<UINT>(given));
                std::fill(to + got, to + given, 0);
                sum.Add(to, given);
                out.Advance(given);
                at += static_cast<DWORD>(given);
            }
        }
        out.Flush();
        // Only a journal written whole may ever be applied.
        Commit(kUndo, count, sum);
    } catch (...) {
        // The file is untouched: a journal left half written would only stand in the way.
        DropFile();
        Unlock();
        throw;
    }
}

void Journal::Cover(CFile& file, Span span, unsigned char* scratch, std::size_t room) {
    span.end = std::min(span.end, m_nOldLength);
    // The parts of `span` that no covered span holds yet.
    std::vector<Span> missing;
    DWORD at = span.begin;
    for (Span c : m_covered) {
        if (at >= span.end) break;
        if (c.end <= at) continue;
        if (c.begin > at) missing.push_back({at, std::min(c.begin, span.end)});
        at = std::max(at, c.end);
    }
    if (at < span.end) missing.push_back({at, span.end});
    if (missing.empty()) return;
    unsigned char local[kLocalRoom];
    if (!scratch || room < kLocalRoom) {
        scratch = local;
        room = kLocalRoom;
    }
    DWORD count = m_nLength;
    Crc32c sum = m_sum;
    for (Span p : missing) {
        unsigned char recordHead[kRecordHead];
        EncodeFixed32(recordHead, p.begin);
        EncodeFixed32(recordHead + 4, p.end - p.begin);
        WriteAt(m_file, count, recordHead, kRecordHead);
        sum.Add(recordHead, kRecordHead);
        Copy(file, p.begin, m_file, count + kRecordHead, p.end - p.begin, scratch, room, &sum);
        count += kRecordHead + (p.end - p.begin);
    }
    // The records count once the tail says so: a piece cut off is never applied.
    Commit(kUndo, count, sum);
    m_covered.insert(m_covered.end(), missing.begin(), missing.end());
    std::sort(m_covered.begin(), m_covered.end(), [](Span a, Span b) { return a.begin < b.begin; });
}

void Journal::Make(const CString& path) {
    const CString fresh = path + ".new";
    CFile out;
    CFileException error;
    if (!out.Open(fresh, CFile::modeCreate | CFile::modeReadWrite | CFile::shareDenyNone, &error))
        throw error;
    Header h;
    h.magic = kMagic;
    h.state = kIdle;
    h.count = kHeaderBytes;
    unsigned char head[kHeaderBytes];
    Encode(head, h);
    WriteAt(out, 0, head, kHeaderBytes);
    out.Close();
    CFile::Rename(fresh, path);
}

void Journal::EncodeHeader(unsigned char* out, DWORD state) const {
    Header h;
    h.magic = kMagic;
    h.oldLength = m_nOldLength;
    h.inode = m_nInode;
    h.state = state;
    h.count = m_nLength;
    h.recordsSum = m_sum.Value();
    Encode(out, h);
}

void Journal::Commit(DWORD state, DWORD count, const Crc32c& sum) {
    const DWORD oldCount = m_nLength;
    const Crc32c oldSum = m_sum;
    m_nLength = count;
    m_sum = sum;
    unsigned char head[kHeaderBytes];
    EncodeHeader(head, state);
    try {
        WriteAt(m_file, kTailAt, head + kTailAt, kTailBytes);
    } catch (...) {
        m_nLength = oldCount;
        m_sum = oldSum;
        throw;
    }
}

void Journal::DropFile() {
    if (m_file.m_hFile == CFile::hFileNull) return;
    const CString path = m_file.GetFilePath();
    try {
        m_file.Close();
    } catch (const CFileException&) {
        // Closed all the same.
    }
    RemoveQuietly(path);
}

bool Journal::Covers(Span span) const {
    span.end = std::min(span.end, m_nOldLength);
    DWORD at = span.begin;
    for (Span c : m_covered) {
        if (at >= span.end) break;
        if (c.end <= at) continue;
        if (c.begin > at) return false;
        at = c.end;
    }
    return at >= span.end;
}

void Journal::End() {
    try {
        Commit(kIdle, m_nLength, m_sum);
    } catch (const CFileException&) {
        // The change is done: a journal that cannot say so goes instead.
        DropFile();
    }
    Unlock();
}

void Journal::Undo(CFile& file) {
    try {
        // What this object committed, whatever a failed write left in the header.
        Header h;
        h.oldLength = m_nOldLength;
        h.count = m_nLength;
        std::vector<Record> records;
        if (!ReadRecords(m_file, h, records))
            throw CFileException(CFileException::invalidFile, -1, m_file.GetFilePath());
        Replay(m_file, file, h, records);
    } catch (...) {
        Unlock();
        throw;
    }
    try {
        Commit(kIdle, m_nLength, m_sum);
    } catch (const CFileException&) {
        DropFile();  // the file is whole again
    }
    Unlock();
}

void Journal::Close(CFile& file) {
    if (m_file.m_hFile == CFile::hFileNull) return;
    try {
        const CString path = m_file.GetFilePath();
        if (file.m_hFile != CFile::hFileNull) {
            ScopedLock lock(file.m_hFile, true);
            struct stat mine, named;
            unsigned char head[kHeaderBytes] = {};
            m_file.Seek(0, CFile::begin);
            Header h;
            const bool idle = m_file.Read(head, kHeaderBytes) == kHeaderBytes && Decode(head, h) &&
                              h.state == kIdle;
            if (::fstat(m_file.m_hFile, &mine) == 0 && mine.st_nlink > 0 &&
                ::stat(path, &named) == 0 && named.st_ino == mine.st_ino && idle)
                RemoveQuietly(path);
            m_file.Close();
        } else {
            m_file.Close();
        }
    } catch (const CException&) {
        // An idle journal left behind is removed by the next open.
    }
    Unlock();
}

}  // namespace dorvik
