// Record file changes. Records lie packed, so a change of length moves every stored
// byte behind it in the file itself and corrects the table in memory; in safe mode the
// table tail is then written back from the first changed entry on.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "dorvik/BaseMemFile.h"
#include "dorvik/BinFile.h"
#include "dorvik/BitArray.h"
#include "frame/Block.h"
#include "recordfile/RecordTable.h"

namespace dorvik::classic {
namespace {
constexpr int kMoveChunk = 8 << 20;     // a move never holds more than this at once
constexpr DWORD kTableSpare = 102400;   // growth step of the table, in bytes
constexpr DWORD kCopyPiece = 0x400000;  // Modify from a file copies 4 MiB at a time
const char kNoMemoryText[] = "Can't move file data.\r\nNot enough memory!";
}  // namespace

bool CBinFile::MoveFileBuffer(int from, int to, int bytes) {
    if (bytes <= 0 || from == to) return true;
    // One block for the whole range when it is small; large ranges go in pieces of a
    // fixed size, and when memory is short the piece is halved until a block comes.
    int chunk = bytes < kMoveChunk ? bytes : kMoveChunk;
    void* block = GrabBlock(static_cast<std::size_t>(chunk));
    while (!block && chunk > 1) {
        chunk /= 2;
        block = GrabBlock(static_cast<std::size_t>(chunk));
    }
    if (!block) {
        AfxMessageBox(kNoMemoryText, 0, 0);
        return false;
    }
    dorvik::Block<void> guard = dorvik::Hold(block);
    int pieces = bytes / chunk + 1;
    // Moving down, the front goes first; moving up, the back goes first, so that no
    // byte is overwritten before it is read.
    for (int k = 0; k < pieces; ++k) {
        int p = from > to ? k : pieces - 1 - k;
        long long offset = static_cast<long long>(p) * chunk;
        int size = p == pieces - 1 ? bytes - static_cast<int>(offset) : chunk;
        if (size <= 0) continue;
        Seek(static_cast<LONG>(from + offset), begin);
        UINT got = Read(block, static_cast<UINT>(size));
        Seek(static_cast<LONG>(to + offset), begin);
        Write(block, got);
    }
    return true;
}

void CBinFile::MoveOrThrow(int from, int to, int bytes) {
    if (!MoveFileBuffer(from, to, bytes)) throw CMemoryException();
}

int CBinFile::InsertPosition(int after, int length, int records) {
    std::int64_t pos = after < -1 ? 0 : std::int64_t{after} + 1;
    // Past the end the file first grows to pos + 1 records; then come the new ones.
    std::int64_t total = std::max<std::int64_t>(m_nRecordCount, pos + 1) + records;
    dorvik::RequireRecordFileRoom(*this, std::int64_t{m_pAddresses[m_nRecordCount]} + length,
                                  total);
    return static_cast<int>(pos);
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

void CBinFile::Insert(int after, unsigned char* data, int length) {
    RequireTable();
    if (length < 0) length = 0;
    int pos = InsertPosition(after, length);
    if (pos > m_nRecordCount) Init(pos + 1);
    int at = static_cast<int>(m_pAddresses[pos]);
    // In not safe mode nothing lies behind the data end: an append moves nothing.
    if (m_bSafeMode || pos < m_nRecordCount)
        MoveOrThrow(at, at + length, static_cast<int>(CFile::GetLength()) - at);
    if (length != 0 && data) {
        Seek(at, begin);
        Write(data, static_cast<UINT>(length));
    }
    MoveFileAddresses(pos, m_nRecordCount, length, pos + 1);
    ++m_nRecordCount;
    if (m_bSafeMode) {
        SetLength(CFile::GetLength() + 4);
        UpdateAddresses(pos);
    }
}

void CBinFile::Modify(int index, unsigned char* data, int length) {
    RequireTable();
    if (length < 0) length = 0;
    if (index < 0) index = 0;
    {
        // The file as it will be: records through `index`, and the data grown by the
        // new length (the old record's bytes are not subtracted: a bound, not a size).
        std::int64_t records = std::max<std::int64_t>(m_nRecordCount, std::int64_t{index} + 1);
        dorvik::RequireRecordFileRoom(*this, std::int64_t{m_pAddresses[m_nRecordCount]} + length,
                                      records);
    }
    if (index >= m_nRecordCount) Init(index + 1);
    int start = static_cast<int>(m_pAddresses[index]);
    int next = static_cast<int>(m_pAddresses[index + 1]);
    int old = next - start;
    if (old == length) {
        if (length == 0) return;
        Seek(start, begin);
        if (data) Write(data, static_cast<UINT>(length));
        return;
    }
    if (m_bSafeMode && index == m_nRecordCount - 1) {
        // Only the table lies behind the last record: writing it afresh from memory
        // behind the new bytes costs one write, where moving it would read it as well.
        if (length != 0 && data) {
            Seek(start, begin);
            Write(data, static_cast<UINT>(length));
        }
        MoveFileAddresses(index + 1, m_nRecordCount, length - old, index + 1);
        DWORD table = static_cast<DWORD>(m_nRecordCount + 1) * 4;
        Seek(start + length, begin);
        Write(m_pAddresses, table);
        if (length < old) SetLength(static_cast<DWORD>(start + length) + table);
        return;
    }
    // In not safe mode nothing lies behind the last record: changing it moves nothing.
    if (m_bSafeMode || index < m_nRecordCount - 1)
        MoveOrThrow(next, start + length, static_cast<int>(CFile::GetLength()) - next);
    if (length != 0) {
        Seek(start, begin);
        if (data) Write(data, static_cast<UINT>(length));
    }
    MoveFileAddresses(index + 1, m_nRecordCount, length - old, index + 1);
    if (length < old) SetLength(CFile::GetLength() + static_cast<DWORD>(length - old));
    if (m_bSafeMode) UpdateAddresses(index);
}

void CBinFile::Delete(int first, int last) {
    RequireTable();
    if (first < 0) first = 0;
    if (first > m_nRecordCount - 1 || last < first) return;
    if (last > m_nRecordCount - 1) last = m_nRecordCount - 1;
    int start = static_cast<int>(m_pAddresses[first]);
    int next = static_cast<int>(m_pAddresses[last + 1]);
    int removed = next - start;
    int stored = static_cast<int>(CFile::GetLength());
    MoveOrThrow(next, start, stored - next);
    MoveFileAddresses(last + 1, m_nRecordCount, -removed, first);
    int gone = last - first + 1;
    m_nRecordCount -= gone;
    if (m_bSafeMode) {
        SetLength(CFile::GetLength() - static_cast<DWORD>(removed) - 4 * static_cast<DWORD>(gone));
        UpdateAddresses(first);
    } else {
        SetLength(CFile::GetLength() - static_cast<DWORD>(removed));
    }
}

void CBinFile::Delete(int index) { CBinFile::Delete(index, index); }

void CBinFile::DeleteAll() {
    if (GetRecordCount() == 0) return;
    SetLength(0);
    LoadAddresses();
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
    int pos = InsertPosition(after, blockLength, n);
    if (pos > m_nRecordCount) Init(pos + 1);
    int at = static_cast<int>(m_pAddresses[pos]);
    int moved = static_cast<int>(m_pAddresses[m_nRecordCount]) - at;
    if (m_bSafeMode) moved += 4 * (m_nRecordCount + 1);
    MoveOrThrow(at, at + blockLength, moved);
    if (blockLength > 0) {
        Seek(at, begin);
        Write(block, static_cast<UINT>(blockLength));
    }
    MoveFileAddresses(pos, m_nRecordCount, blockLength, pos + n);
    m_nRecordCount += n;
    for (int i = 0; i < n; ++i)
        m_pAddresses[pos + i] = static_cast<DWORD>(at) + (entries[i] - entries[0]);
    if (m_bSafeMode) {
        SetLength(CFile::GetLength() + 4 * static_cast<DWORD>(n));
        UpdateAddresses(pos);
    }
    return n;
}

void CBinFile::Modify(int index, CFile& source) {
    DWORD n = source.GetLength();
    DWORD piece = n < kCopyPiece ? n : kCopyPiece;
    dorvik::Block<> buffer = dorvik::GrabOrThrow(piece);
    Modify(index, nullptr, static_cast<int>(n));
    Seek(static_cast<LONG>(GetAddress(index < 0 ? 0 : index)), begin);
    source.SeekToBegin();
    DWORD done = 0;
    while (done < n) {
        DWORD want = n - done < piece ? n - done : piece;
        UINT got = source.Read(buffer.get(), want);
        if (got == 0) break;
        Write(buffer.get(), got);
        done += got;
    }
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
    int deleted = 0;
    for (int i = 0; i < GetRecordCount(); ++i) {
        if (m_pAddresses[i] != m_pAddresses[i + 1]) continue;
        int run = 1;
        while (i + run < m_nRecordCount && m_pAddresses[i + run] == m_pAddresses[i + run + 1])
            ++run;
        Delete(i, i + run - 1);
        deleted += run;
    }
    return deleted;
}

}  // namespace dorvik::classic
