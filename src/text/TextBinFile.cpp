// Text record file: the view (index file and filter), sorted insertion, changes through
// the view, and the sort-tree mode in which the whole file lies in two memory blocks.
#include "dorvik/TextBinFile.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "dorvik/BitArray.h"
#include "frame/Block.h"
#include "index/IXRecords.h"
#include "recordfile/RecordTable.h"

namespace dorvik::classic {
using dorvik::Block;
using dorvik::GrabOrThrow;

namespace {
constexpr int kDataGrowth = 102400;    // growth step of the data block in sort-tree mode
constexpr int kAddressGrowth = 10240;  // growth step of the offset block (2560 entries)
constexpr int kFirstBlock = 1024;      // both blocks of a new, empty file
constexpr int kIndexGrowCount = 1000;  // what FreeSortTree leaves on the index file

// Calls `remove(first, last)` for the runs of consecutive numbers of a rising list,
// the highest run first, so that numbers still to come keep their meaning.
template <class F>
void ForRunsDescending(const std::vector<int>& rising, F remove) {
    std::size_t end = rising.size();
    while (end > 0) {
        std::size_t begin = end - 1;
        while (begin > 0 && rising[begin - 1] + 1 == rising[begin]) --begin;
        remove(rising[begin], rising[end - 1]);
        end = begin;
    }
}
}  // namespace

CTextBinFile::CTextBinFile() { InitVariables(); }

CTextBinFile::CTextBinFile(const char* path, UINT flags) : CBinFile(path, flags) {
    InitVariables();
}

CTextBinFile::~CTextBinFile() {
    // Words still in sort-tree mode are dropped; the file on disk was not touched since
    // InitSortTree and stays as it was.
    delete m_pFilter;
    m_pFilter = nullptr;
    FreeFileMem();
}

void CTextBinFile::InitVariables() {
    m_pIndexFile = nullptr;
    m_pFilter = nullptr;
    m_bSortTree = false;
    m_bFileMem = false;
    m_pFileData = nullptr;
    m_nFileDataSize = 0;
    m_nFileDataCapacity = 0;
    m_pFileAddresses = nullptr;
    m_nFileAddressesSize = 0;
    m_nFileAddressesCapacity = 0;
    m_bAscending = true;
}

void CTextBinFile::Close() {
    if (m_bSortTree) FreeSortTree(m_bAscending, nullptr);
    CBinFile::Close();
}

void CTextBinFile::SetFilter(unsigned char* bits, int length) {
    if (m_bSortTree) return;
    delete m_pFilter;
    m_pFilter = nullptr;
    if (!bits || length == 0) return;
    CBitArray* filter = new (std::nothrow) CBitArray(bits, length, false);
    if (!filter) throw CMemoryException();
    m_pFilter = filter;
}

// ---- Numbering -------------------------------------------------------------------------

int CTextBinFile::StoredCount() {
    if (m_bFileMem) return m_nFileAddressesSize / 4 - 1;
    return CBinFile::GetRecordCount();
}

int CTextBinFile::GetRecordCount() {
    if (m_pFilter) return m_pFilter->GetCount();
    if (m_bSortTree) return m_SortTree.GetCount();
    return CBinFile::GetRecordCount();
}

int CTextBinFile::IndexCount(int viewCount) {
    (void)viewCount;
    return m_pIndexFile ? m_pIndexFile->GetRecordCount() : 0;
}

int CTextBinFile::ViewRecord(int serial, int indexCount) {
    int position = serial;
    if (m_pFilter) {
        position = m_pFilter->GetIndexBit(serial);
        if (position < 0) return -1;
    }
    if (!m_pIndexFile) return position;
    // Filter bits may reach past the index file; its init value must not pass as a record.
    if (position < 0 || position >= indexCount) return -1;
    if (m_pIndexFile->GetIndexFile()) return m_pIndexFile->GetRecord(position);
    // One read of one entry: the counts are known, so no length query is needed.
    return dorvik::ReadIXRecord(*m_pIndexFile, position);
}

int CTextBinFile::GetSerialRecord(int serial) {
    const int count = GetRecordCount();
    if (serial < 0 || serial >= count) return -1;
    int record = ViewRecord(serial, IndexCount(count));
    return (record < 0 || record >= StoredCount()) ? -1 : record;
}

int CTextBinFile::GetRecordSerial(int record) {
    if (record < 0 || record >= StoredCount()) return -1;
    int position = record;
    if (m_pIndexFile) {
        position = m_pIndexFile->Find(-1, record);
        if (position < 0) return -1;
    }
    if (m_pFilter) {
        if (!m_pFilter->GetAt(position)) return -1;
        position = m_pFilter->GetBitIndex(position);
    }
    return position;
}

// ---- Reading ---------------------------------------------------------------------------

void CTextBinFile::ReadRecordText(int record, CString& text) {
    text.Empty();
    if (record < 0 || record >= StoredCount()) return;
    if (m_bFileMem) {
        DWORD start = m_pFileAddresses[record];
        DWORD stop = m_pFileAddresses[record + 1];
        if (!m_pFileData || stop <= start || stop > static_cast<DWORD>(m_nFileDataSize)) return;
        int length = static_cast<int>(stop - start);
        std::memcpy(text.GetBuffer(length), m_pFileData + start, static_cast<std::size_t>(length));
        text.ReleaseBuffer(length);
    } else {
        int length = GetRecordLength(record);
        if (length <= 0) return;
        unsigned char* buffer = reinterpret_cast<unsigned char*>(text.GetBuffer(length));
        int got = length;
        GetRecords(record, record, buffer, got, false);
        text.ReleaseBuffer(got);
    }
    text.ReleaseBuffer(-1);  // a record with a zero byte reads as the part before it
}

void CTextBinFile::GetString(int index, CString& text, bool serial) {
    ReadRecordText(serial ? GetSerialRecord(index) : index, text);
}

CString CTextBinFile::operator[](int serial) {
    CString text;
    GetString(serial, text, true);
    return text;
}

void CTextBinFile::GetRecord(int serial, unsigned char*& buffer, int& length, bool allocate) {
    int record = GetSerialRecord(serial);
    if (record < 0) {
        if (allocate) buffer = nullptr;
        length = 0;
        return;
    }
    CBinFile::GetRecord(record, buffer, length, allocate);
}

// ---- Changing --------------------------------------------------------------------------

void CTextBinFile::Add(const char* text) {
    if (!text) text = "";
    int length = static_cast<int>(std::strlen(text));
    if (m_bSortTree) {
        int record = 0;
        AddToTree(text, length, record);
        return;
    }
    CBinFile::Add(reinterpret_cast<unsigned char*>(const_cast<char*>(text)), length);
}

bool CTextBinFile::Add(const char* text, int length, int& record, bool sorted, bool duplicates) {
    if (!text) {
        text = "";
        length = 0;
    }
    if (length < 0) length = static_cast<int>(std::strlen(text));
    if (m_bSortTree) return AddToTree(text, length, record);
    unsigned char* bytes = reinterpret_cast<unsigned char*>(const_cast<char*>(text));
    if (m_pIndexFile) sorted = true;
    int n = GetRecordCount();
    if (!sorted || n == 0) {
        record = InsertInView(n - 1, bytes, length);
        return true;
    }

    // One scratch buffer for all probes; length + 1 bytes tell a longer word from an
    // equal one without reading the rest of it.
    Block<> scratch = GrabOrThrow(static_cast<std::size_t>(length) + 2);
    const int indexCount = IndexCount(n);
    const int stored = StoredCount();
    int low = 0, high = n - 1, probe = 0, c = 1;
    while (low <= high) {
        probe = low + (high - low) / 2;
        unsigned char* buffer = scratch.get();
        int got = 0;
        int r = ViewRecord(probe, indexCount);
        if (r >= 0 && r < stored) {
            got = length + 1;
            GetRecords(r, r, buffer, got, false);
        }
        if (got <= 0) {
            c = 1;  // an empty record sorts below the text, an empty text included
        } else {
            int common = std::min(got, length);
            c = common > 0 ? std::memcmp(bytes, buffer, static_cast<std::size_t>(common)) : 0;
            if (c == 0 && got != length) c = got > length ? -1 : 1;
        }
        if (c == 0) break;
        if (c < 0)
            high = probe - 1;
        else
            low = probe + 1;
    }
    if (c == 0 && !duplicates) {
        record = GetSerialRecord(probe);
        return false;
    }
    int serial = c >= 0 ? probe + 1 : probe;  // where the new word stands in the view
    record = InsertInView(serial - 1, bytes, length);
    return true;
}

int CTextBinFile::InsertInView(int serial, unsigned char* data, int length) {
    if (!m_pFilter && !m_pIndexFile) {
        CBinFile::Insert(serial, data, length);
        return serial < -1 ? 0 : serial + 1;
    }
    // p: the view position (index file position, or record number without index file)
    // behind which the new one goes.
    int count = GetRecordCount();
    int positions = m_pIndexFile ? m_pIndexFile->GetRecordCount() : CBinFile::GetRecordCount();
    int p;
    if (serial < 0)
        p = -1;
    else if (serial >= count)
        p = positions - 1;
    else
        p = m_pFilter ? m_pFilter->GetIndexBit(serial) : serial;
    // The record first: a failure there leaves index file and filter as they were.
    if (m_pIndexFile) {
        int c = CBinFile::GetRecordCount();
        CBinFile::Insert(c - 1, data, length);
        m_pIndexFile->Insert(p, c);
        if (m_pFilter) m_pFilter->Insert(p, 1, true);
        return c;
    }
    CBinFile::Insert(p, data, length);
    m_pFilter->Insert(p, 1, true);
    return p + 1;
}

void CTextBinFile::Insert(int serial, unsigned char* data, int length) {
    if (m_bSortTree) return;
    InsertInView(serial, data, length);
}

void CTextBinFile::Modify(int serial, unsigned char* data, int length) {
    if (m_bSortTree || serial < 0) return;
    if (!m_pFilter && !m_pIndexFile) {
        CBinFile::Modify(serial, data, length);
        return;
    }
    int record = GetSerialRecord(serial);
    if (record >= 0) CBinFile::Modify(record, data, length);
}

void CTextBinFile::Delete(int first, int last) {
    if (m_bSortTree) return;
    if (!m_pFilter && !m_pIndexFile) {
        CBinFile::Delete(first, last);
        return;
    }
    DeleteInView(first, last);
}

void CTextBinFile::DeleteInView(int first, int last) {
    int n = GetRecordCount();
    if (first < 0) first = 0;
    if (last > n - 1) last = n - 1;
    if (first > last) return;
    const int stored = CBinFile::GetRecordCount();

    // The view positions of the serials, rising.
    std::vector<int> positions;
    positions.reserve(static_cast<std::size_t>(last - first + 1));
    for (int s = first; s <= last; ++s) {
        int p = m_pFilter ? m_pFilter->GetIndexBit(s) : s;
        if (p >= 0) positions.push_back(p);
    }

    std::vector<int> entries;
    if (m_pIndexFile) entries = dorvik::ReadIXRecords(*m_pIndexFile);
    auto recordAt = [&](int p) -> int {
        if (!m_pIndexFile) return p;
        return p < static_cast<int>(entries.size()) ? entries[static_cast<std::size_t>(p)] : -1;
    };

    // The records that go, rising and once each.
    std::vector<char> gone(static_cast<std::size_t>(stored), 0);
    for (int p : positions) {
        int r = recordAt(p);
        if (r >= 0 && r < stored) gone[static_cast<std::size_t>(r)] = 1;
    }
    std::vector<int> records;
    for (int r = 0; r < stored; ++r) {
        if (gone[static_cast<std::size_t>(r)]) records.push_back(r);
    }

    ForRunsDescending(records, [&](int a, int b) { CBinFile::Delete(a, b); });

    // Positions that go: those of the serials and, in an index file, any other entry
    // that named a removed record. The others' record numbers close up over the gaps.
    std::vector<int> dropped = positions;
    if (m_pIndexFile) {
        std::vector<char> drop(entries.size(), 0);
        for (int p : positions) {
            if (p < static_cast<int>(entries.size())) drop[static_cast<std::size_t>(p)] = 1;
        }
        std::vector<int> kept;
        kept.reserve(entries.size());
        dropped.clear();
        for (std::size_t i = 0; i < entries.size(); ++i) {
            int r = entries[i];
            bool named = r >= 0 && r < stored && gone[static_cast<std::size_t>(r)];
            if (drop[i] || named) {
                dropped.push_back(static_cast<int>(i));
                continue;
            }
            if (r >= 0)
                r -= static_cast<int>(std::lower_bound(records.begin(), records.end(), r) -
                                      records.begin());
            kept.push_back(r);
        }
        // Filter positions past the index file's end go too.
        for (int p : positions) {
            if (p >= static_cast<int>(entries.size())) dropped.push_back(p);
        }
        dorvik::WriteIXRecords(*m_pIndexFile, kept);
    }
    if (m_pFilter) ForRunsDescending(dropped, [&](int a, int b) { m_pFilter->Delete(a, b); });
}

// ---- Sort-tree mode --------------------------------------------------------------------

void CTextBinFile::InitFileMem() {
    if (m_bFileMem) return;
    RequireTable();
    const int n = m_nRecordCount;
    unsigned char* data = nullptr;
    int dataLength = 0;
    if (n > 0) GetRecords(0, n - 1, data, dataLength, true);
    Block<> dataGuard = dorvik::Hold(data);
    if (dataLength == 0 && n == 0) {
        Block<DWORD> addresses = GrabOrThrow<DWORD>(kFirstBlock);
        if (!dataGuard) dataGuard = GrabOrThrow(kFirstBlock);
        m_pFileAddresses = addresses.release();
        m_nFileAddressesCapacity = kFirstBlock;
        m_nFileAddressesSize = 4;
        m_pFileData = reinterpret_cast<char*>(dataGuard.release());
        m_nFileDataCapacity = kFirstBlock;
        m_nFileDataSize = 0;
    } else {
        DWORD* addresses = nullptr;
        int addressBytes = 0;
        GetAddresses(0, n, addresses, addressBytes, true);
        // Offsets into the data block, which starts at the first record's bytes.
        DWORD base = addresses[0];
        for (int i = 0; i <= n; ++i) addresses[i] -= base;
        m_pFileAddresses = addresses;
        m_nFileAddressesSize = m_nFileAddressesCapacity = addressBytes;
        m_pFileData = reinterpret_cast<char*>(dataGuard.release());
        m_nFileDataSize = m_nFileDataCapacity = dataLength;
    }
    m_bFileMem = true;
}

void CTextBinFile::FreeFileMem() {
    if (!m_bFileMem) return;
    m_bFileMem = false;
    DropBlock(m_pFileData);
    DropBlock(m_pFileAddresses);
    m_pFileData = nullptr;
    m_pFileAddresses = nullptr;
    m_nFileDataSize = m_nFileDataCapacity = 0;
    m_nFileAddressesSize = m_nFileAddressesCapacity = 0;
}

void CTextBinFile::InitSortTree(bool ascending, bool unique, char* /*reserved*/,
                                bool (*progress)(int, int)) {
    if (m_bSortTree) return;
    InitFileMem();
    try {
        m_SortTree.RemoveAll();
        m_SortTree.m_bCountOnly = unique;
        auto insert = [&](int r) {
            int start = static_cast<int>(m_pFileAddresses[r]);
            int length = static_cast<int>(m_pFileAddresses[r + 1]) - start;
            // Ids are record numbers, also when a repeated word is refused.
            m_SortTree.Insert(CBufferRef(&m_pFileData, start, length), r);
        };
        const int stored = StoredCount();
        if (m_pFilter) {
            const int n = m_pFilter->GetCount();
            for (int i = 0; i < n; ++i) {
                if (progress) progress(i, n);
                int r = GetSerialRecord(i);
                if (r >= 0) insert(r);
            }
        } else {
            for (int r = 0; r < stored; ++r) {
                if (progress) progress(r, stored);
                insert(r);
            }
        }
    } catch (...) {
        m_SortTree.RemoveAll();
        FreeFileMem();
        throw;
    }
    m_bSortTree = true;
    m_bAscending = ascending;
}

bool CTextBinFile::AddToTree(const char* text, int length, int& record) {
    const int next = m_nFileAddressesSize / 4 - 1;  // the number the word gets when stored
    if (length > INT_MAX - kDataGrowth - m_nFileDataSize) throw CMemoryException();
    if (m_nFileDataSize + length >= m_nFileDataCapacity) {
        int capacity = m_nFileDataSize + length + kDataGrowth;
        m_pFileData =
            static_cast<char*>(RegrowBlock(m_pFileData, static_cast<std::size_t>(capacity)));
        m_nFileDataCapacity = capacity;
    }
    // The offset block grows before the tree sees the key: once the tree holds a key,
    // its bytes must be kept.
    if (m_nFileAddressesSize + 4 >= m_nFileAddressesCapacity) {
        if (m_nFileAddressesSize > INT_MAX - kAddressGrowth) throw CMemoryException();
        int capacity = m_nFileAddressesSize + kAddressGrowth;
        m_pFileAddresses =
            static_cast<DWORD*>(RegrowBlock(m_pFileAddresses, static_cast<std::size_t>(capacity)));
        m_nFileAddressesCapacity = capacity;
    }
    // The bytes go behind the data without moving its end: a refused word is
    // overwritten by the next one.
    if (length > 0)
        std::memcpy(m_pFileData + m_nFileDataSize, text, static_cast<std::size_t>(length));
    auto* node = m_SortTree.Insert(CBufferRef(&m_pFileData, m_nFileDataSize, length), next);
    record = node->m_nID;
    if (node->m_nOccurrences != 1) return false;
    m_nFileDataSize += length;
    m_pFileAddresses[next + 1] = static_cast<DWORD>(m_nFileDataSize);
    m_nFileAddressesSize += 4;
    if (m_pFilter && !m_pIndexFile) m_pFilter->SetAt(next);
    return true;
}

void CTextBinFile::FreeSortTree(bool ascending, bool (*progress)(int, int)) {
    if (!m_bSortTree) return;
    if (m_pIndexFile) {
        m_pIndexFile->SetGrowCount(kIndexGrowCount);
        m_SortTree.Save(m_pIndexFile, ascending, progress);
    }
    UpdateFile();
    // Done: from here on nothing can fail.
    if (m_pIndexFile && m_pFilter) {
        delete m_pFilter;
        m_pFilter = nullptr;
    }
    m_bSortTree = false;
    FreeFileMem();
    m_SortTree.RemoveAll();
}

void CTextBinFile::Sort(bool ascending, bool unique, char* reserved, bool (*progress)(int, int)) {
    InitSortTree(ascending, unique, reserved, progress);
    FreeSortTree(ascending, progress);
}

void CTextBinFile::UpdateFile() {
    if (!m_bFileMem) return;
    Seek(0, begin);
    Write(m_pFileData, static_cast<UINT>(m_nFileDataSize));
    dorvik::WriteTableEntries(*this, m_pFileAddresses,
                              static_cast<DWORD>(m_nFileAddressesSize / 4));
    // The table now stands behind the data: the file is a complete record file, and
    // from here on every change lands whole.
    m_bSafeMode = true;
    SetWriteBehind(false);
    SetLength(static_cast<DWORD>(m_nFileDataSize) + static_cast<DWORD>(m_nFileAddressesSize));
    Flush();
    LoadAddresses();
}

}  // namespace dorvik::classic
