// Record file: opening, the address table, safe mode and reading.
#include "dorvik/BinFile.h"

#include <cstring>

#include "dorvik/BaseMemFile.h"
#include "frame/Block.h"
#include "frame/Coding.h"
#include "frame/Journal.h"
#include "recordfile/Change.h"
#include "recordfile/RecordTable.h"

namespace dorvik::classic {
namespace {
constexpr DWORD kFirstTableBytes = 102400;  // room for 25599 records in a new file
}  // namespace

CBinFile::CBinFile() = default;

CBinFile::CBinFile(const char* path, UINT flags) : CFile(path, flags) {
    Recover(flags);
    m_bOpen = true;
    LoadAddresses();
    SetWriteBehind(!m_bSafeMode);
}

CBinFile::~CBinFile() {
    try {
        if (!m_bSafeMode) UpdateAddresses(0);
    } catch (const CException&) {
        // A destructor cannot report; Close is the way to see this error.
    }
    Release();
}

BOOL CBinFile::Open(const char* path, UINT flags, CFileException* error) {
    if (m_bOpen || m_hFile != hFileNull) Close();
    BOOL opened = CFile::Open(path, flags, error);
    if (!opened) return 0;
    Recover(flags);
    if (!LoadAddresses()) return 0;
    SetWriteBehind(!m_bSafeMode);
    m_bOpen = true;
    return opened;
}

void CBinFile::Close() {
    if (!m_bSafeMode) UpdateAddresses(0);
    Release();
    CFile::Close();
    m_bOpen = false;
}

void CBinFile::Recover(UINT flags) {
    const bool created = (flags & modeCreate) && !(flags & modeNoTruncate);
    // A marked file beside a damaged journal stays marked and loads as none.
    static_cast<void>(dorvik::Journal::Recover(*this, created, true));
}

void CBinFile::Release() {
    FreeAddresses();
    if (m_pChanging) m_pChanging->journal.Close(*this);
}

DWORD CBinFile::GetLength() const {
    DWORD stored = CFile::GetLength();
    if (m_bSafeMode || !m_pAddresses) return stored;
    // The table will land at the data end, behind reserved bytes not yet written.
    DWORD dataEnd = m_pAddresses[m_nRecordCount];
    return (stored > dataEnd ? stored : dataEnd) + 4 * static_cast<DWORD>(m_nRecordCount + 1);
}

bool CBinFile::LoadAddresses() {
    FreeAddresses();
    DWORD length = GetLength();
    if (length == 0) {
        m_pAddresses = dorvik::GrabOrThrow<DWORD>(kFirstTableBytes).release();
        m_nAddressBytes = kFirstTableBytes;
        m_nRecordCount = 0;
        if (m_bSafeMode) {
            try {
                Seek(0, begin);
                dorvik::WriteTableEntries(*this, m_pAddresses, 1);
            } catch (const CException&) {
                // Read-only: the file stays at 0 bytes and has no records.
            }
        }
        return true;
    }
    dorvik::TableLocation table;
    if (!dorvik::LocateTable(*this, 0, length, table)) return false;
    DWORD bytes = length - table.offset;
    // Held until read: a constructor that throws here has no destructor to free it.
    dorvik::Block<DWORD> entries = dorvik::GrabOrThrow<DWORD>(bytes);
    dorvik::ReadTableEntries(*this, table.offset, entries.get(), table.count + 1);
    m_pAddresses = entries.release();
    m_nAddressBytes = bytes;
    m_nRecordCount = static_cast<int>(table.count);
    // Entry `count` bounds every span read. In a sound table it is the last word, the
    // table offset; a table out of step with the end, or one whose last entry is not the
    // data end, is damaged: its spans stay below the offset and changes refuse it.
    m_bTableDamaged = !table.inStep || m_pAddresses[table.count] != table.offset;
    if (m_pAddresses[table.count] > table.offset) m_pAddresses[table.count] = table.offset;
    if (!m_bSafeMode) {
        try {
            SetLength(table.offset);
        } catch (...) {
            FreeAddresses();  // the disk still holds the table: nothing may append another
            throw;
        }
    }
    return true;
}

void CBinFile::FreeAddresses() {
    DropBlock(m_pAddresses);
    m_pAddresses = nullptr;
    m_nAddressBytes = 0;
    m_nRecordCount = 0;
    m_bTableChecked = false;
    m_bTableDamaged = false;
}

void CBinFile::UpdateAddresses(int first) {
    if (!m_pAddresses) return;
    if (!m_bSafeMode) {
        WriteTableBehindData();
        return;
    }
    DWORD n = static_cast<DWORD>(m_nRecordCount + 1 - first);
    Seek(-static_cast<LONG>(4 * n), end);
    dorvik::WriteTableEntries(*this, m_pAddresses + first, n);
}

void CBinFile::WriteTableBehindData() {
    // The table must land where its last word says: reserved records at the end of the
    // data that were never written are filled with zeros first.
    DWORD dataEnd = m_pAddresses[m_nRecordCount];
    if (CFile::GetLength() != dataEnd) SetLength(dataEnd);
    const DWORD count = static_cast<DWORD>(m_nRecordCount);
    if (m_hFile != hFileNull) {
        // On disk the file takes its final length first, by a last byte 0xFF that marks
        // its last word as no table offset, and the last word comes last: a process that
        // dies meanwhile leaves a file that no open accepts, never a table cut short.
        const unsigned char mark = 0xFF;
        Seek(static_cast<LONG>(dataEnd + 4 * count + 3), begin);
        Write(&mark, 1);
        Seek(static_cast<LONG>(dataEnd), begin);
        dorvik::WriteTableEntries(*this, m_pAddresses, count);
        dorvik::WriteTableEntries(*this, m_pAddresses + count, 1);
        return;
    }
    Seek(static_cast<LONG>(dataEnd), begin);
    dorvik::WriteTableEntries(*this, m_pAddresses, count + 1);
}

void CBinFile::SetSafeMode(bool safe) {
    if (safe == m_bSafeMode) return;
    if (!safe) {
        if (!m_pAddresses) LoadAddresses();
        if (m_pAddresses) SetLength(m_pAddresses[m_nRecordCount]);
    } else {
        UpdateAddresses(0);
    }
    m_bSafeMode = safe;
    // Without a table on disk between changes, small writes may gather in memory:
    // bulk appends then cost no system call each.
    SetWriteBehind(!safe);
}

int CBinFile::GetRecordCount() {
    if (!m_pAddresses) LoadAddresses();
    return m_nRecordCount;
}

bool CBinFile::IsValidBinFile() {
    DWORD length = CFile::GetLength();
    if (length == 0) return false;
    dorvik::TableLocation table;
    if (!dorvik::LocateTable(*this, 0, length, table)) return false;
    if (length == 4) return true;  // the empty file: its one word is 0
    if (table.offset == 0) return false;
    DWORD first = 1;
    dorvik::ReadTableEntries(*this, table.offset, &first, 1);
    return first == 0;
}

bool CBinFile::IsValidBinFile(const char* path) {
    CFileStatus status;
    if (!CFile::GetStatus(path, status)) return false;
    CBinFile file;
    if (!file.Open(path, shareDenyNone, nullptr)) return false;
    return file.IsValidBinFile();
}

void CBinFile::RequireTable() {
    if (!m_pAddresses && !LoadAddresses())
        throw CFileException(CFileException::invalidFile, -1, m_strFileName);
    if (m_bTableChecked) return;
    // Changes trust the entries to rise to the data end; a corrupt table is refused
    // before a change could spread it over the data. Once checked, the changes keep it so.
    if (m_bTableDamaged) throw CFileException(CFileException::invalidFile, -1, m_strFileName);
    for (int i = 0; i < m_nRecordCount; ++i) {
        if (m_pAddresses[i + 1] < m_pAddresses[i])
            throw CFileException(CFileException::invalidFile, -1, m_strFileName);
    }
    m_bTableChecked = true;
}

DWORD CBinFile::GetAddress(int index) {
    if (!m_pAddresses || index < 0 || index > m_nRecordCount) return 0xFFFFFFFF;
    return m_pAddresses[index];
}

void CBinFile::GetAddresses(int first, int last, DWORD*& buffer, int& length, bool allocate) {
    if (!m_pAddresses || first < 0 || first > last || last > m_nRecordCount) {
        buffer = nullptr;
        length = 0;
        return;
    }
    int n = (last - first) * 4 + 4;
    if (allocate) {
        buffer = dorvik::GrabOrThrow<DWORD>(static_cast<std::size_t>(n)).release();
        length = n;
    } else if (length > n) {
        length = n;
    } else if (length < 0) {
        length = 0;
    }
    if (length > 0) std::memcpy(buffer, m_pAddresses + first, static_cast<std::size_t>(length));
}

bool CBinFile::RecordSpan(int first, int last, DWORD& start, DWORD& length) const {
    if (!m_pAddresses || first < 0 || first > last || last >= m_nRecordCount) return false;
    start = m_pAddresses[first];
    DWORD stop = m_pAddresses[last + 1];
    // Entry `count` is the data end: loading takes it from the file's last word, which
    // lies inside the file, and changes keep it so. A sound table never fails this; a
    // corrupt one must not drive a read or an allocation beyond the data.
    if (stop < start || stop > m_pAddresses[m_nRecordCount]) return false;
    length = stop - start;
    return true;
}

void CBinFile::GetRecords(int first, int last, unsigned char*& buffer, int& length, bool allocate) {
    DWORD start = 0, n = 0;
    if (!RecordSpan(first, last, start, n) || n == 0) {
        if (allocate) buffer = nullptr;
        length = 0;
        return;
    }
    // The seek comes first, and a block is handed out only once the read succeeded: a
    // failure leaves the caller's buffer as it was and no block behind.
    Seek(static_cast<LONG>(start), begin);
    if (allocate) {
        // The read fills the block; what a short read leaves, and the last byte, read 0.
        dorvik::Block<> held = dorvik::GrabUnfilledOrThrow(n + 1);
        UINT got = Read(held.get(), n);
        std::memset(held.get() + got, 0, n + 1 - got);
        buffer = held.release();
        length = static_cast<int>(n);
        return;
    }
    if (length < 0) length = 0;
    if (static_cast<DWORD>(length) > n) length = static_cast<int>(n);
    if (length > 0) Read(buffer, static_cast<UINT>(length));
}

void CBinFile::GetRecord(int index, unsigned char*& buffer, int& length, bool allocate) {
    GetRecords(index, index, buffer, length, allocate);
}

void CBinFile::GetRecord(int index, CDWordArray& array) {
    int length = GetRecordLength(index);
    array.SetSize(length / 4, -1);
    unsigned char* data = reinterpret_cast<unsigned char*>(array.GetData());
    int room = array.GetSize() * 4;
    if (room > 0) GetRecord(index, data, room, false);
    dorvik::FixedToHost32(array.GetData(), static_cast<std::size_t>(array.GetSize()));
}

void CBinFile::GetRecord(int index, CBaseMemFile& file) {
    unsigned char* block = nullptr;
    int length = 0;
    GetRecord(index, block, length, true);
    file.Attach(block, static_cast<DWORD>(length), 0);
}

int CBinFile::GetRecordLength(int index) {
    DWORD start = 0, n = 0;
    return RecordSpan(index, index, start, n) ? static_cast<int>(n) : 0;
}

int CBinFile::GetMaxRecordLength() {
    int best = 0;
    for (int i = 0; i < m_nRecordCount; ++i) {
        int n = GetRecordLength(i);
        if (n > best) best = n;
    }
    return best;
}

}  // namespace dorvik::classic
