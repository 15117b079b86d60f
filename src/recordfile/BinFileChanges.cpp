// Record file changes. Records lie packed, so a change of length moves every stored
// byte of data behind it in the file itself and corrects the table in memory; in safe
// mode the table is then written back from the first changed entry on. Every change
// runs as a Change scope (recordfile/Change.h), which orders the writes and journals
// what they overwrite.
#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "dorvik/BaseMemFile.h"
#include "dorvik/BinFile.h"
#include "dorvik/BitArray.h"
#include "frame/Block.h"
#include "recordfile/Change.h"
#include "recordfile/RecordTable.h"

namespace dorvik::classic {
namespace {
constexpr int kMoveChunk = 8 << 20;         // a move never holds more than this at once
constexpr DWORD kFirstTableBytes = 102400;  // growth step of Init, in bytes
constexpr DWORD kTableSpare = 102400;       // growth step of the table on insertion
constexpr DWORD kCopyPiece = 0x400000;      // Modify from a file copies 4 MiB at a time
const char kNoMemoryText[] = "Can't move file data.\r\nNot enough memory!";
const unsigned char kMark = 0xFF;
}  // namespace

// ---- The change scope ------------------------------------------------------------------

CBinFile::Changing& CBinFile::ChangingState() {
    if (!m_pChanging) m_pChanging = std::make_unique<Changing>();
    return *m_pChanging;
}

CBinFile::Change::Change(CBinFile& file, DWORD from, DWORD length, DWORD to, unsigned char* scratch,
                         std::size_t room, bool anyTable)
    : m_file(file), m_state(file.ChangingState()), m_outer(m_state.depth == 0) {
    if (m_outer) {
        m_state.first = INT_MAX;
        m_state.oldCount = file.m_nRecordCount;
        m_state.oldDataEnd = file.m_pAddresses[file.m_nRecordCount];
        m_state.guarded = file.m_bSafeMode && file.m_hFile != hFileNull;
        // Only a guarded change works with the stored length; a file written record by
        // record in not safe mode saves a system call per record.
        m_state.stored = m_state.guarded ? file.CFile::GetLength() : 0;
        m_state.oldLength = m_state.stored;
        if (m_state.guarded) {
            // Another object on the same file may have changed it since this one loaded
            // its table: a table out of step with the stored length is never written.
            const DWORD expected =
                m_state.oldDataEnd + 4 * static_cast<DWORD>(m_state.oldCount + 1);
            if (!anyTable && m_state.stored != expected)
                throw CFileException(CFileException::invalidFile, -1, file.m_strFileName);
            int flags = ::fcntl(file.m_hFile, F_GETFL);
            if (flags != -1 && (flags & O_ACCMODE) == O_RDONLY) file.ThrowOsError(EBADF);
            const DWORD stored = m_state.stored;
            m_state.journal.Begin(file, stored, {{from, to}, {stored - 4, stored}}, scratch, room);
        }
    } else if (m_state.guarded) {
        m_state.journal.Cover(file, {from, to}, scratch, room);
    }
    ++m_state.depth;
    try {
        if (m_outer && m_state.guarded) Mark(m_state.stored - 1);
        Grow(length);
    } catch (...) {
        --m_state.depth;
        if (m_outer) Abandon();
        throw;
    }
}

CBinFile::Change::~Change() {
    --m_state.depth;
    if (!m_outer || m_done) return;
    Abandon();
}

void CBinFile::Change::Mark(DWORD at) {
    m_file.Seek(static_cast<LONG>(at), begin);
    m_file.Write(&kMark, 1);
}

void CBinFile::Change::Grow(DWORD length) {
    if (!m_state.guarded || length <= m_state.stored) return;
    // The length first, by one marked byte: data moved past the old end cannot then
    // become the file's last word.
    Mark(length - 1);
    m_state.stored = length;
}

void CBinFile::Change::Abandon() {
    if (!m_state.guarded) return;  // nothing to undo with: the error passes on as it is
    try {
        m_state.journal.Undo(m_file);
    } catch (...) {
        m_file.FreeAddresses();  // out of step with the file; the next open undoes it
        return;
    }
    try {
        m_file.LoadAddresses();
    } catch (...) {
        m_file.FreeAddresses();
    }
}

void CBinFile::Change::Commit(int firstEntry) {
    m_state.first = std::min(m_state.first, firstEntry);
    if (!m_outer) {
        m_done = true;
        return;
    }
    CBinFile& f = m_file;
    const int count = f.m_nRecordCount;
    const DWORD dataEnd = f.m_pAddresses[count];
    if (!f.m_bSafeMode) {
        // Only the data is stored: what lies behind its end now goes.
        if (dataEnd < m_state.oldDataEnd && f.CFile::GetLength() > dataEnd) f.SetLength(dataEnd);
        m_done = true;
        return;
    }
    const DWORD length = dataEnd + 4 * static_cast<DWORD>(count + 1);
    // A table that stays where it was is written from its first changed entry on, which
    // takes in the old last word; one that moved is written whole.
    int first = dataEnd == m_state.oldDataEnd ? std::min(m_state.first, m_state.oldCount) : 0;
    first = std::min(first, count);
    if (!m_state.guarded) {
        WriteEntries(first, count);
        if (f.CFile::GetLength() > length) f.SetLength(length);
        m_done = true;
        return;
    }
    Grow(length);
    WriteEntries(first, count - 1);
    WriteEntries(count, count);
    if (length < m_state.stored) {
        f.SetLength(length);
        m_state.stored = length;
    }
    m_state.journal.End();
    m_done = true;
}

void CBinFile::Change::WriteEntries(int first, int last) {
    if (first > last) return;
    m_file.Seek(static_cast<LONG>(m_file.m_pAddresses[m_file.m_nRecordCount] +
                                  4 * static_cast<DWORD>(first)),
                begin);
    dorvik::WriteTableEntries(m_file, m_file.m_pAddresses + first,
                              static_cast<DWORD>(last - first + 1));
}

void CBinFile::WriteStored(DWORD at, const unsigned char* data, int length) {
    if (length <= 0 || !data) return;
    RequireTable();
    Change change(*this, at, 0, at + static_cast<DWORD>(length));
    Seek(static_cast<LONG>(at), begin);
    Write(data, static_cast<UINT>(length));
    change.Commit(INT_MAX);
}

// ---- Moving data -----------------------------------------------------------------------

Mover::Mover(int bytes) {
    if (bytes <= 0) return;
    // One block for the whole range when it is small; large ranges go in pieces of a
    // fixed size, and when memory is short the piece is halved until a block comes.
    m_chunk = bytes < kMoveChunk ? bytes : kMoveChunk;
    void* block = GrabBlock(static_cast<std::size_t>(m_chunk));
    while (!block && m_chunk > 1) {
        m_chunk /= 2;
        block = GrabBlock(static_cast<std::size_t>(m_chunk));
    }
    if (!block) {
        AfxMessageBox(kNoMemoryText, 0, 0);
        m_ok = false;
        return;
    }
    m_block = Hold(block);
}

void Mover::Move(CFile& file, int from, int to, int bytes) {
    if (bytes <= 0 || from == to) return;
    int pieces = bytes / m_chunk + 1;
    // Moving down, the front goes first; moving up, the back goes first, so that no
    // byte is overwritten before it is read.
    for (int k = 0; k < pieces; ++k) {
        int p = from > to ? k : pieces - 1 - k;
        long long offset = static_cast<long long>(p) * m_chunk;
        int size = p == pieces - 1 ? bytes - static_cast<int>(offset) : m_chunk;
        if (size <= 0) continue;
        file.Seek(static_cast<LONG>(from + offset), CFile::begin);
        UINT got = file.Read(m_block.get(), static_cast<UINT>(size));
        file.Seek(static_cast<LONG>(to + offset), CFile::begin);
        file.Write(m_block.get(), got);
    }
}

bool CBinFile::MoveFileBuffer(int from, int to, int bytes) {
    if (bytes <= 0 || from == to) return true;
    Mover mover(bytes);
    if (!mover.Ok()) return false;
    mover.Move(*this, from, to, bytes);
    return true;
}

// ---- Table helpers ---------------------------------------------------------------------

int CBinFile::InsertPosition(int after, int length, int records) {
    std::int64_t pos = after < -1 ? 0 : std::int64_t{after} + 1;
    // Past the end the file first grows to pos + 1 records; then come the new ones.
    std::int64_t total = std::max<std::int64_t>(m_nRecordCount, pos + 1) + records;
    dorvik::RequireRecordFileRoom(*this, std::int64_t{m_pAddresses[m_nRecordCount]} + length,
                                  total);
    return static_cast<int>(pos);
}

void CBinFile::EnsureAddressRoom(int lastEntry, DWORD spare) {
    // Entries 0 .. lastEntry must fit; a file stays below 2 GiB, and so does its table.
    if (lastEntry < 0 || lastEntry > 0x1FFFFFFE - static_cast<int>(spare / 4))
        throw CMemoryException();
    DWORD needed = static_cast<DWORD>(lastEntry) * 4 + 4;
    if (needed <= m_nAddressBytes) return;
    DWORD bytes = static_cast<DWORD>(lastEntry) * 4 + spare;
    if (bytes < needed) bytes = needed;
    m_pAddresses = static_cast<DWORD*>(RegrowBlock(m_pAddresses, bytes));
    m_nAddressBytes = bytes;
}

void CBinFile::MoveFileAddresses(int from, int to, int delta, int dest) {
    RequireTable();
    int last = dest + to - from;
    EnsureAddressRoom(last, kTableSpare + 4);
    if (to >= from)
        std::memmove(m_pAddresses + dest, m_pAddresses + from,
                     static_cast<std::size_t>(to - from + 1) * 4);
    if (delta != 0) {
        for (int i = dest; i <= last; ++i) m_pAddresses[i] += static_cast<DWORD>(delta);
    }
}

// ---- The changes -----------------------------------------------------------------------

void CBinFile::Init(int count) {
    if (count <= m_nRecordCount) return;
    RequireTable();
    if (count <= m_nRecordCount) return;
    dorvik::RequireRecordFileRoom(*this, m_pAddresses[m_nRecordCount], count);
    EnsureAddressRoom(count, kFirstTableBytes);
    const int old = m_nRecordCount;
    const DWORD dataEnd = m_pAddresses[old];
    const DWORD tableEnd = dataEnd + 4 * static_cast<DWORD>(old + 1);
    // The new empty records lie at the end of the data: only the table grows.
    Change change(*this, tableEnd - 4, tableEnd + 4 * static_cast<DWORD>(count - old));
    for (int i = old + 1; i <= count; ++i) m_pAddresses[i] = dataEnd;
    m_nRecordCount = count;
    change.Commit(old);
}

void CBinFile::Insert(int after, unsigned char* data, int length) {
    RequireTable();
    Change::InsertRecords(*this, after, data, length < 0 ? 0 : length, 1, nullptr);
}

int CBinFile::Change::InsertRecords(CBinFile& file, int after, const unsigned char* data,
                                    int length, int n, const DWORD* starts) {
    const int pos = file.InsertPosition(after, length, n);
    // Records after the change: past the end the file first grows to pos + 1.
    const int count = (pos > file.m_nRecordCount ? pos + 1 : file.m_nRecordCount) + n;
    file.EnsureAddressRoom(count, kTableSpare + 4);
    const DWORD dataEnd = file.m_pAddresses[file.m_nRecordCount];
    const DWORD at = pos <= file.m_nRecordCount ? file.m_pAddresses[pos] : dataEnd;
    const int tail = static_cast<int>(dataEnd - at);
    Mover mover(length > 0 ? tail : 0);
    if (!mover.Ok()) throw CMemoryException();
    const DWORD added = static_cast<DWORD>(length);
    Change change(file, at, dataEnd + added + 4 * static_cast<DWORD>(count + 1), Change::kToEnd,
                  mover.Scratch(), mover.Room());
    if (pos > file.m_nRecordCount) file.Init(pos + 1);
    mover.Move(file, static_cast<int>(at), static_cast<int>(at + added), tail);
    if (length > 0 && data) {
        file.Seek(static_cast<LONG>(at), CFile::begin);
        file.Write(data, added);
    }
    file.MoveFileAddresses(pos, file.m_nRecordCount, length, pos + n);
    file.m_nRecordCount += n;
    for (int i = 1; i < n; ++i) file.m_pAddresses[pos + i] = at + (starts[i] - starts[0]);
    change.Commit(pos);
    return pos;
}

void CBinFile::Modify(int index, unsigned char* data, int length) {
    RequireTable();
    if (length < 0) length = 0;
    if (index < 0) index = 0;
    const DWORD dataEnd = m_pAddresses[m_nRecordCount];
    // The file as it will be: records through `index`, and the data grown by the new
    // length (the old record's bytes are not subtracted: a bound, not a size).
    dorvik::RequireRecordFileRoom(*this, std::int64_t{dataEnd} + length,
                                  std::max<std::int64_t>(m_nRecordCount, std::int64_t{index} + 1));
    const int count = std::max(m_nRecordCount, index + 1);  // after the change
    const bool inside = index < m_nRecordCount;
    const DWORD start = inside ? m_pAddresses[index] : dataEnd;
    const DWORD next = inside ? m_pAddresses[index + 1] : dataEnd;
    const int old = static_cast<int>(next - start);
    if (old == length) {
        // The same length writes in place and leaves the table alone.
        if (inside) {
            WriteStored(start, data, length);
        } else {
            Init(index + 1);
        }
        return;
    }
    EnsureAddressRoom(count, kFirstTableBytes);
    const int tail = static_cast<int>(dataEnd - next);
    Mover mover(tail);
    if (!mover.Ok()) throw CMemoryException();
    const DWORD newLength = dataEnd - static_cast<DWORD>(old) + static_cast<DWORD>(length) +
                            4 * static_cast<DWORD>(count + 1);
    Change change(*this, start, newLength, Change::kToEnd, mover.Scratch(), mover.Room());
    if (!inside) Init(index + 1);
    mover.Move(*this, static_cast<int>(next), static_cast<int>(start) + length, tail);
    if (length != 0 && data) {
        Seek(static_cast<LONG>(start), begin);
        Write(data, static_cast<UINT>(length));
    }
    MoveFileAddresses(index + 1, m_nRecordCount, length - old, index + 1);
    change.Commit(index + 1);
}

void CBinFile::Delete(int first, int last) {
    RequireTable();
    if (first < 0) first = 0;
    if (first > m_nRecordCount - 1 || last < first) return;
    if (last > m_nRecordCount - 1) last = m_nRecordCount - 1;
    const DWORD dataEnd = m_pAddresses[m_nRecordCount];
    const DWORD start = m_pAddresses[first];
    const DWORD next = m_pAddresses[last + 1];
    const int removed = static_cast<int>(next - start);
    const int gone = last - first + 1;
    const int tail = static_cast<int>(dataEnd - next);
    Mover mover(removed > 0 ? tail : 0);
    if (!mover.Ok()) throw CMemoryException();
    const DWORD newLength =
        dataEnd - static_cast<DWORD>(removed) + 4 * static_cast<DWORD>(m_nRecordCount - gone + 1);
    // Empty records take no data: then only the table changes, from entry `first` on.
    const DWORD from = removed > 0 ? start : dataEnd + 4 * static_cast<DWORD>(first);
    Change change(*this, from, newLength, Change::kToEnd, mover.Scratch(), mover.Room());
    mover.Move(*this, static_cast<int>(next), static_cast<int>(start), tail);
    MoveFileAddresses(last + 1, m_nRecordCount, -removed, first);
    m_nRecordCount -= gone;
    change.Commit(first);
}

void CBinFile::Delete(int index) { CBinFile::Delete(index, index); }

void CBinFile::DeleteAll() {
    if (GetRecordCount() == 0) return;
    if (!m_bSafeMode) {
        SetLength(0);
        LoadAddresses();
        return;
    }
    // One change to the 4-byte empty file; only its first word and the last word are
    // overwritten before the cut, so the journal holds 8 bytes whatever the file's size.
    Change change(*this, 0, 4, 4, nullptr, 0, true);
    m_nRecordCount = 0;
    m_pAddresses[0] = 0;
    change.Commit(0);
}

void CBinFile::Add(unsigned char* data, int length) {
    CBinFile::Insert(GetRecordCount() - 1, data, length);
}

int CBinFile::Insert(int after, const char* path) {
    CBinFile source(path, modeRead);
    return Insert(after, &source);
}

int CBinFile::Insert(int after, CBinFile* source) {
    int n = source->GetRecordCount();
    if (n <= 0) return 0;
    // The source's table is read and checked before anything here changes.
    DWORD* entries = nullptr;
    int entryBytes = 0;
    source->GetAddresses(0, n, entries, entryBytes, true);
    dorvik::Block<DWORD> entriesGuard = dorvik::Hold(entries);
    for (int i = 0; i < n; ++i) {
        if (!entries || entries[i + 1] < entries[i])
            throw CFileException(CFileException::invalidFile, -1, source->m_strFileName);
    }
    DWORD total = entries[n] - entries[0];
    unsigned char* block = nullptr;
    int blockLength = 0;
    source->GetRecords(0, n - 1, block, blockLength, true);
    dorvik::Block<> blockGuard = dorvik::Hold(block);
    if (static_cast<DWORD>(blockLength) != total)
        throw CFileException(CFileException::invalidFile, -1, source->m_strFileName);

    RequireTable();
    Change::InsertRecords(*this, after, block, blockLength, n, entries);
    return n;
}

void CBinFile::Modify(int index, CFile& source) {
    DWORD n = source.GetLength();
    DWORD piece = n < kCopyPiece ? n : kCopyPiece;
    dorvik::Block<> buffer = dorvik::GrabOrThrow(piece);
    RequireTable();
    if (index < 0) index = 0;
    // Making room and copying the bytes are one change: no moment shows the record
    // reserved but not yet written.
    const DWORD from = index < m_nRecordCount ? m_pAddresses[index] : m_pAddresses[m_nRecordCount];
    Change change(*this, from, 0, from + n);
    Modify(index, nullptr, static_cast<int>(n));
    Seek(static_cast<LONG>(GetAddress(index)), begin);
    source.SeekToBegin();
    DWORD done = 0;
    while (done < n) {
        DWORD want = n - done < piece ? n - done : piece;
        UINT got = source.Read(buffer.get(), want);
        if (got == 0) break;
        Write(buffer.get(), got);
        done += got;
    }
    change.Commit(INT_MAX);
}

void CBinFile::Modify(int index, CBaseMemFile* source) {
    DWORD n = source->GetLength();
    dorvik::Block<BYTE> block = dorvik::Hold(source->Detach());
    Modify(index, block.get(), static_cast<int>(n));
}

int CBinFile::Find(int after, const unsigned char* data, int length) {
    int count = GetRecordCount();
    // No record is longer than the data: a longer text needs no buffer to be missed.
    if (length <= 0 || !data || after >= count || count == 0 ||
        static_cast<DWORD>(length) > m_pAddresses[count])
        return -1;
    // Reading length + 1 bytes tells a longer record from an equal one.
    dorvik::Block<> scratch = dorvik::GrabOrThrow(static_cast<std::size_t>(length) + 1);
    for (int i = after < -1 ? 0 : after + 1; i < count; ++i) {
        unsigned char* buffer = scratch.get();
        int got = length + 1;
        GetRecord(i, buffer, got, false);
        if (got == length && std::memcmp(buffer, data, static_cast<std::size_t>(length)) == 0)
            return i;
    }
    return -1;
}

void CBinFile::GetRecordsBitmap(CBitArray& bits) {
    bits.FreeBuffer();
    int count = GetRecordCount();
    for (int i = 0; i < count; ++i) {
        if (m_pAddresses[i] != m_pAddresses[i + 1]) bits.SetAt(i);
    }
}

int CBinFile::DeleteEmpty() {
    int count = GetRecordCount();
    int firstEmpty = 0;
    int empties = 0;
    for (int i = count - 1; i >= 0; --i) {
        if (m_pAddresses[i] != m_pAddresses[i + 1]) continue;
        firstEmpty = i;
        ++empties;
    }
    if (empties == 0) return 0;
    RequireTable();
    // Run by run through the virtual Delete, as one change of the file.
    const DWORD dataEnd = m_pAddresses[count];
    Change change(*this, dataEnd + 4 * static_cast<DWORD>(firstEmpty),
                  dataEnd + 4 * static_cast<DWORD>(count - empties + 1));
    int deleted = 0;
    for (int i = firstEmpty; i < m_nRecordCount; ++i) {
        if (m_pAddresses[i] != m_pAddresses[i + 1]) continue;
        int run = 1;
        while (i + run < m_nRecordCount && m_pAddresses[i + run] == m_pAddresses[i + run + 1])
            ++run;
        Delete(i, i + run - 1);
        deleted += run;
    }
    change.Commit(firstEmpty);
    return deleted;
}

}  // namespace dorvik::classic
