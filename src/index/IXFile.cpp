#include "dorvik/IXFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "bits/SortedSearch.h"
#include "dorvik/BitArray.h"
#include "dorvik/Exceptions.h"
#include "dorvik/SortTree.h"
#include "frame/Block.h"
#include "frame/Coding.h"
#include "frame/Journal.h"
#include "index/IXRecords.h"

namespace dorvik::classic {
namespace {
constexpr std::size_t kJournalPiece = 8 << 20;  // the largest block a journal copy takes
using dorvik::EncodeIXRecord;
constexpr std::int64_t kMaxFile = dorvik::kMaxFileLength;
// Records per piece where a scan or a fill goes piece by piece.
constexpr int kPiece = 65536;

using Block = dorvik::Block<BYTE>;
using dorvik::GrabOrThrow;

bool Selected(int record, int value, int op) {
    return ((op & opEqual) && record == value) || ((op & opGreater) && record > value) ||
           ((op & opLess) && record < value);
}

void CheckRecordSize(int recordSize, const char* path) {
    if (recordSize < 1 || recordSize > 4)
        throw CFileException(CFileException::invalidFile, EINVAL, path);
}
}  // namespace

CIXFile::CIXFile(int recordSize) : m_nRecordSize(recordSize) {
    CheckRecordSize(recordSize, nullptr);
}

CIXFile::CIXFile(const char* fileName, UINT openFlags, int recordSize) : m_nRecordSize(recordSize) {
    CheckRecordSize(recordSize, fileName);
    CFileException error;
    if (!Open(fileName, openFlags, &error)) throw error;
}

CIXFile::~CIXFile() {
    if (m_pJournal) m_pJournal->Close(*this);
}

BOOL CIXFile::Open(const char* path, UINT flags, CFileException* error) {
    if (m_pJournal) m_pJournal->Close(*this);
    if (!CFile::Open(path, flags, error)) return 0;
    if (!dorvik::Journal::Recover(*this, (flags & modeCreate) && !(flags & modeNoTruncate),
                                  false)) {
        // A damaged journal beside it: the file may be half moved, and is not read.
        CFile::Close();
        if (error) *error = CFileException(CFileException::invalidFile, -1, path);
        return 0;
    }
    return 1;
}

void CIXFile::Close() {
    if (m_pJournal) m_pJournal->Close(*this);
    CFile::Close();
}

void CIXFile::AsOneChange(DWORD from, const std::function<void()>& move) {
    if (m_hFile == hFileNull) {  // a memory twin: nothing to journal
        move();
        return;
    }
    if (!m_pJournal) m_pJournal = std::make_unique<dorvik::Journal>();
    const DWORD length = GetLength();
    // The journal copies the bytes through one block, as the move does; without one, in
    // small pieces.
    const std::size_t room =
        std::min<std::size_t>(length > from ? length - from : 0, kJournalPiece);
    dorvik::Block<> scratch = dorvik::Hold(room ? static_cast<BYTE*>(GrabBlock(room)) : nullptr);
    m_pJournal->Begin(*this, length, {{from, length}}, scratch.get(), scratch ? room : 0);
    try {
        move();
    } catch (...) {
        try {
            m_pJournal->Undo(*this);
        } catch (const CException&) {
            // The journal stays for the next open; the first error is the one to report.
        }
        throw;
    }
    m_pJournal->End();
}

int CIXFile::GetRecordCount() {
    return static_cast<int>(GetLength() / static_cast<DWORD>(m_nRecordSize));
}

int CIXFile::Decode(const BYTE* record) const {
    return dorvik::DecodeIXRecord(record, m_nRecordSize);
}

bool CIXFile::IsInitRecord(const BYTE* record) const {
    BYTE init[4];
    EncodeIXRecord(init, m_nInitValue, m_nRecordSize);
    return std::memcmp(record, init, static_cast<std::size_t>(m_nRecordSize)) == 0;
}

BYTE* CIXFile::ReadRecords(int first, int count) {
    std::size_t bytes =
        count > 0 ? static_cast<std::size_t>(count) * static_cast<std::size_t>(m_nRecordSize) : 0;
    Block block = GrabOrThrow<BYTE>(bytes);
    if (bytes > 0) {
        Seek(static_cast<LONG>(first * m_nRecordSize), begin);
        Read(block.get(), static_cast<UINT>(bytes));
    }
    return block.release();
}

void CIXFile::WriteRecord(int position, int value) {
    BYTE bytes[4];
    EncodeIXRecord(bytes, value, m_nRecordSize);
    Seek(static_cast<LONG>(position * m_nRecordSize), begin);
    Write(bytes, static_cast<UINT>(m_nRecordSize));
}

int CIXFile::PhysicalPosition(int position, int count) {
    if (position < 0 || position >= count) return -1;
    if (!m_pIndexFile) return position;
    int physical = m_pIndexFile->GetRecord(position);
    return (physical < 0 || physical >= count) ? -1 : physical;
}

void CIXFile::Init(int count) {
    const int records = GetRecordCount();
    if (count <= records) return;
    AsOneChange(static_cast<DWORD>(records * m_nRecordSize), [&] { Extend(count); });
}

void CIXFile::Extend(int count) {
    int records = GetRecordCount();
    if (count <= records) return;
    std::int64_t start = static_cast<std::int64_t>(records) * m_nRecordSize;
    std::int64_t bytes =
        (static_cast<std::int64_t>(count) - records + m_nGrowCount) * m_nRecordSize;
    if (start + bytes > kMaxFile)
        throw CFileException(CFileException::diskFull, EFBIG, GetFilePath());
    std::size_t piece = static_cast<std::size_t>(std::min<std::int64_t>(bytes, kPiece * 16));
    Block block = GrabOrThrow<BYTE>(piece);
    std::memset(block.get(), static_cast<BYTE>(m_nInitValue), piece);
    Seek(static_cast<LONG>(start), begin);
    while (bytes > 0) {
        UINT n = static_cast<UINT>(std::min<std::int64_t>(bytes, static_cast<std::int64_t>(piece)));
        Write(block.get(), n);
        bytes -= n;
    }
}

int CIXFile::ReadOne(int position) { return dorvik::ReadIXRecord(*this, position); }

void CIXFile::SetIndexFile(CIXFile* index) {
    // Every lookup goes down the chain of index files: one that came back here would
    // never end.
    for (CIXFile* link = index; link; link = link->m_pIndexFile) {
        if (link == this) return;
    }
    m_pIndexFile = index;
}

int CIXFile::GetRecord(int position) {
    int physical = PhysicalPosition(position, GetRecordCount());
    return physical < 0 ? m_nInitValue : ReadOne(physical);
}

int CIXFile::ViewRecord(int position, int count, int indexCount) {
    if (position < 0 || position >= count) return m_nInitValue;
    int physical = position;
    if (m_pIndexFile) {
        CIXFile* index = m_pIndexFile;
        if (index->m_pIndexFile)
            physical = index->GetRecord(position);
        else
            physical = position < indexCount ? index->ReadOne(position) : index->m_nInitValue;
        if (physical < 0 || physical >= count) return m_nInitValue;
    }
    return ReadOne(physical);
}

void CIXFile::IncRecord(int position) {
    Modify(position, static_cast<int>(static_cast<DWORD>(GetRecord(position)) + 1u));
}

void CIXFile::DecRecord(int position) {
    Modify(position, static_cast<int>(static_cast<DWORD>(GetRecord(position)) - 1u));
}

void CIXFile::Modify(int position, int value) {
    if (position < 0) return;
    int count = GetRecordCount();
    if (m_pIndexFile) {
        int physical = PhysicalPosition(position, count);
        if (physical >= 0) WriteRecord(physical, value);
        return;
    }
    if (position < count) {
        WriteRecord(position, value);
        return;
    }
    if ((static_cast<std::int64_t>(position) + 1) * m_nRecordSize > kMaxFile)
        throw CFileException(CFileException::diskFull, EFBIG, GetFilePath());
    // The extension and the write land together or not at all.
    AsOneChange(static_cast<DWORD>(count * m_nRecordSize), [&] {
        Extend(position + 1);
        WriteRecord(position, value);
    });
}

bool CIXFile::MoveData(DWORD from, DWORD to, DWORD length) {
    if (length == 0 || from == to) return true;
    std::size_t piece = length;
    Block block = dorvik::Hold(static_cast<BYTE*>(GrabBlock(piece)));
    while (!block && piece > 1) {
        piece /= 2;
        block.reset(static_cast<BYTE*>(GrabBlock(piece)));
    }
    if (!block) return false;
    auto move = [&](DWORD offset, DWORD n) {
        Seek(static_cast<LONG>(from + offset), begin);
        Read(block.get(), n);
        Seek(static_cast<LONG>(to + offset), begin);
        Write(block.get(), n);
    };
    if (to > from) {
        // Upwards the end goes first: a piece is written only over bytes that are
        // already moved or lie behind the data.
        for (DWORD left = length; left > 0;) {
            DWORD n = static_cast<DWORD>(std::min<std::size_t>(piece, left));
            left -= n;
            move(left, n);
        }
    } else {
        for (DWORD done = 0; done < length;) {
            DWORD n = static_cast<DWORD>(std::min<std::size_t>(piece, length - done));
            move(done, n);
            done += n;
        }
    }
    return true;
}

void CIXFile::Insert(int position, int value) {
    if (position < -1) position = -1;
    const std::int64_t records = GetRecordCount();
    const std::int64_t p = static_cast<std::int64_t>(position) + 1;
    // Behind the end the file first grows to p + 1 records; the record then goes at p.
    const std::int64_t grown = std::max(records, p + 1);
    if ((grown + 1) * m_nRecordSize > kMaxFile)
        throw CFileException(CFileException::diskFull, EFBIG, GetFilePath());
    if (p == records) {  // an append: one write
        WriteRecord(static_cast<int>(p), value);
        return;
    }
    const std::int64_t tail = (grown - p) * m_nRecordSize;
    bool moved = true;
    // The extension, the move and the write are one change.
    AsOneChange(static_cast<DWORD>(std::min(p, records) * m_nRecordSize), [&] {
        if (p > records) Extend(static_cast<int>(p + 1));
        moved = MoveData(static_cast<DWORD>(p * m_nRecordSize),
                         static_cast<DWORD>((p + 1) * m_nRecordSize), static_cast<DWORD>(tail));
        if (moved) WriteRecord(static_cast<int>(p), value);
    });
    if (!moved) AfxMessageBox("Can't move file data.\r\nNot enough memory!", 0, 0);
}

void CIXFile::Add(int value) { CIXFile::Insert(GetRecordCount() - 1, value); }

void CIXFile::AddRecords(const DWORD* values, int count) {
    if (!values || count <= 0) return;
    std::int64_t start = static_cast<std::int64_t>(GetRecordCount()) * m_nRecordSize;
    if (start + static_cast<std::int64_t>(count) * m_nRecordSize > kMaxFile)
        throw CFileException(CFileException::diskFull, EFBIG, GetFilePath());
    int piece = std::min(count, kPiece);
    Block block = GrabOrThrow<BYTE>(static_cast<std::size_t>(piece) *
                                    static_cast<std::size_t>(m_nRecordSize));
    // Written in pieces, the records land all together or not at all.
    AsOneChange(static_cast<DWORD>(start), [&] {
        Seek(static_cast<LONG>(start), begin);
        for (int done = 0; done < count;) {
            int n = std::min(piece, count - done);
            for (int i = 0; i < n; ++i)
                EncodeIXRecord(block.get() + i * m_nRecordSize, static_cast<int>(values[done + i]),
                               m_nRecordSize);
            Write(block.get(), static_cast<UINT>(n * m_nRecordSize));
            done += n;
        }
    });
}

void CIXFile::Delete(int from, int to) {
    if (from > to) return;
    int records = GetRecordCount();
    to = std::min(to, records - 1);
    from = std::max(std::min(from, records - 1), 0);
    if (to < from) {
        // Only an empty file (or a range below 0) gets here; an empty file loses a
        // partial record it may hold.
        if (records == 0 && GetLength() != 0) SetLength(0);
        return;
    }
    std::int64_t behind = static_cast<std::int64_t>(records - 1 - to) * m_nRecordSize;
    const DWORD length = static_cast<DWORD>((records - (to - from + 1)) * m_nRecordSize);
    if (behind == 0) {
        SetLength(length);  // one cut: nothing moves
        return;
    }
    AsOneChange(static_cast<DWORD>(from * m_nRecordSize), [&] {
        if (!MoveData(static_cast<DWORD>((to + 1) * m_nRecordSize),
                      static_cast<DWORD>(from * m_nRecordSize), static_cast<DWORD>(behind)))
            throw CMemoryException();
        SetLength(length);
    });
}

void CIXFile::Delete(int position) {
    if (m_pIndexFile) {
        position = PhysicalPosition(position, GetRecordCount());
        if (position < 0) return;
    }
    Delete(position, position);
}

void CIXFile::RemoveAll() { Delete(0, GetRecordCount() - 1); }

bool CIXFile::Locate(int value, int count, int indexCount, int& low, int& high, int& middle) {
    return dorvik::LocateSorted(
        count,
        [&](int i) {
            int record = ViewRecord(i, count, indexCount);
            return record == value ? 0 : (record > value ? 1 : -1);
        },
        low, high, middle);
}

int CIXFile::Find(int start, int value) {
    int count = GetRecordCount();
    if (m_pIndexFile) {
        int indexCount = m_pIndexFile->GetRecordCount();
        int low, high, middle;
        if (!Locate(value, count, indexCount, low, high, middle)) return -1;
        // A run of equal records is stepped over by a binary search, not one by one.
        FindRecordLimits(middle, count, value, low, high);
        return PhysicalPosition(low, count);
    }
    // Piece by piece, so that a loop that steps from hit to hit reads the file once.
    if (start >= count) return -1;
    int first = std::max(start, -1) + 1;
    while (first < count) {
        int n = std::min(kPiece, count - first);
        Block block(ReadRecords(first, n));
        for (int i = 0; i < n; ++i)
            if (Decode(block.get() + i * m_nRecordSize) == value) return first + i;
        first += n;
    }
    return -1;
}

void CIXFile::FindRecordLimits(int position, int count, int value, int& low, int& high) {
    const int indexCount = m_pIndexFile ? m_pIndexFile->GetRecordCount() : 0;
    dorvik::WidenSortedRun(
        position,
        [&](int i) {
            int record = ViewRecord(i, count, indexCount);
            return record == value ? 0 : (record > value ? 1 : -1);
        },
        low, high);
}

int CIXFile::Find(int value, Operation op, DWORD*& list) {
    const int flags = op;
    int count = GetRecordCount();
    if (!m_pIndexFile) {
        Block records(ReadRecords(0, count));
        int selected = 0;
        for (int i = 0; i < count; ++i)
            selected += Selected(Decode(records.get() + i * m_nRecordSize), value, flags) ? 1 : 0;
        if (selected == 0) return 0;
        Block out = GrabOrThrow<BYTE>(static_cast<std::size_t>(selected) * 4);
        DWORD* positions = reinterpret_cast<DWORD*>(out.get());
        int n = 0;
        for (int i = 0; i < count; ++i)
            if (Selected(Decode(records.get() + i * m_nRecordSize), value, flags))
                positions[n++] = static_cast<DWORD>(i);
        list = reinterpret_cast<DWORD*>(out.release());
        return selected;
    }
    int low, high, middle;
    bool found = Locate(value, count, m_pIndexFile->GetRecordCount(), low, high, middle);
    if (found) FindRecordLimits(middle, count, value, low, high);
    int selected = 0;
    if (flags & opLess) selected += low;
    if ((flags & opEqual) && found) selected += high - low + 1;
    if (flags & opGreater) selected += count - high - 1;
    if (selected == 0) return 0;
    Block out = GrabOrThrow<BYTE>(static_cast<std::size_t>(selected) * 4);
    DWORD* positions = reinterpret_cast<DWORD*>(out.get());
    int n = 0;
    CIXFile* index = m_pIndexFile;
    auto put = [&](int first, int last) {
        if (first > last) return;
        if (index->GetIndexFile()) {
            for (int i = first; i <= last; ++i)
                positions[n++] = static_cast<DWORD>(index->GetRecord(i));
            return;
        }
        // A plain index file: its records first..last in one read.
        int available = std::max(0, std::min(last, index->GetRecordCount() - 1) - first + 1);
        Block entries(index->ReadRecords(first, available));
        for (int i = 0; i < available; ++i)
            positions[n++] =
                static_cast<DWORD>(index->Decode(entries.get() + i * index->m_nRecordSize));
        for (int i = available; i < last - first + 1; ++i)
            positions[n++] = static_cast<DWORD>(index->m_nInitValue);
    };
    if (flags & opLess) put(0, low - 1);
    if ((flags & opEqual) && found) put(low, high);
    if (flags & opGreater) put(high + 1, count - 1);
    list = reinterpret_cast<DWORD*>(out.release());
    return selected;
}

int CIXFile::Find(int value, Operation op, CBitArray& bits, bool sortedPositions) {
    const int flags = op;
    int count = GetRecordCount();
    int selected = 0;
    if (!m_pIndexFile) {
        Block records(ReadRecords(0, count));
        // Falling order: the first bit set grows the array once to its final length.
        for (int i = count - 1; i >= 0; --i) {
            if (Selected(Decode(records.get() + i * m_nRecordSize), value, flags)) {
                bits.SetAt(i);
                ++selected;
            }
        }
    } else {
        int low, high, middle;
        bool found = Locate(value, count, m_pIndexFile->GetRecordCount(), low, high, middle);
        if (found) FindRecordLimits(middle, count, value, low, high);
        auto put = [&](int first, int last) {
            if (first > last) return;
            selected += last - first + 1;
            if (sortedPositions)
                bits.SetRange(first, last);
            else
                m_pIndexFile->GetRecords(first, last, bits);
        };
        if (flags & opLess) put(0, low - 1);
        if ((flags & opEqual) && found) put(low, high);
        if (flags & opGreater) put(high + 1, count - 1);
    }
    if ((flags & (opEqual | opNot)) == (opEqual | opNot)) bits.Invert(count);
    return selected;
}

void CIXFile::GetRecords(int count, const int* positions, int* values) {
    if (count <= 0 || !positions || !values) return;
    if (count < 10) {
        for (int i = 0; i < count; ++i) values[i] = GetRecord(positions[i]);
        return;
    }
    int records = GetRecordCount();
    Block block(ReadRecords(0, records));
    for (int i = 0; i < count; ++i) {
        int physical = PhysicalPosition(positions[i], records);
        values[i] = physical < 0 ? m_nInitValue : Decode(block.get() + physical * m_nRecordSize);
    }
}

void CIXFile::GetRecords(CBitArray* positions, CBitArray& values) {
    std::vector<int> wanted;
    if (positions) {
        const BYTE* bytes = positions->GetBuffer();
        int length = positions->GetLength();
        for (int b = 0; bytes && b < length; ++b) {
            for (unsigned v = bytes[b], k = 0; v; v >>= 1, ++k)
                if (v & 1) wanted.push_back(b * 8 + static_cast<int>(k));
        }
    }
    values.FreeBuffer();
    if (wanted.empty()) return;
    std::vector<int> found(wanted.size());
    GetRecords(static_cast<int>(wanted.size()), wanted.data(), found.data());
    int largest = *std::max_element(found.begin(), found.end());
    if (largest < 0) return;
    values.SetAt(largest);
    for (int v : found)
        if (v >= 0) values.SetAt(v);
}

void CIXFile::GetRecords(int from, int to, CBitArray& bits) {
    to = std::min(to, GetRecordCount() - 1);
    from = std::max(from, 0);
    if (to < from) return;
    int n = to - from + 1;
    Block block(ReadRecords(from, n));
    for (int i = n - 1; i >= 0; --i) {
        int v = GetRecordValue(block.get() + i * m_nRecordSize, m_nRecordSize);
        if (v >= 0) bits.SetAt(v);
    }
}

void CIXFile::GetRecordsBitmap(CBitArray& bits) {
    bits.FreeBuffer();
    int count = GetRecordCount();
    Block block(ReadRecords(0, count));
    for (int i = count - 1; i >= 0; --i)
        if (!IsInitRecord(block.get() + i * m_nRecordSize)) bits.SetAt(i);
}

int CIXFile::DeleteEmpty() {
    int count = GetRecordCount();
    Block block(ReadRecords(0, count));
    BYTE* data = block.get();
    const int size = m_nRecordSize;
    int first = 0;
    while (first < count && !IsInitRecord(data + first * size)) ++first;
    if (first == count) return 0;
    int kept = first;
    for (int i = first + 1; i < count; ++i) {
        if (IsInitRecord(data + i * size)) continue;
        std::memcpy(data + kept * size, data + i * size, static_cast<std::size_t>(size));
        ++kept;
    }
    AsOneChange(static_cast<DWORD>(first * size), [&] {
        Seek(static_cast<LONG>(first * size), begin);
        Write(data + first * size, static_cast<UINT>((kept - first) * size));
        SetLength(static_cast<DWORD>(kept * size));
    });
    return count - kept;
}

void CIXFile::UpdateFileLength() {
    int count = GetRecordCount();
    int kept = count;
    // From the end backwards, piece by piece: only the empty tail is read.
    while (kept > 0) {
        int n = std::min(kPiece, kept);
        Block block(ReadRecords(kept - n, n));
        int i = n;
        while (i > 0 && IsInitRecord(block.get() + (i - 1) * m_nRecordSize)) --i;
        kept -= n - i;
        if (i > 0) break;
    }
    DWORD length = static_cast<DWORD>(kept * m_nRecordSize);
    if (length != GetLength()) SetLength(length);
}

void CIXFile::Sort(CIXFile* target, bool (*progress)(int, int)) {
    if (!target) return;
    const int n = GetRecordCount();
    const int size = m_nRecordSize;
    Block block(ReadRecords(0, n));
    bool sorted = true;
    int largest = n > 0 ? GetRecordValue(block.get(), size) : 0;
    for (int i = 1; i < n; ++i) {
        if (progress) progress(i, n);
        int v = GetRecordValue(block.get() + i * size, size);
        if (v < largest) {
            sorted = false;
            break;
        }
        largest = v;
    }
    if (sorted) {
        // Already in order: the identity, written over the start of the target.
        const int targetSize = target->GetRecordSize();
        if (static_cast<std::int64_t>(n) * targetSize > kMaxFile)
            throw CFileException(CFileException::diskFull, EFBIG, target->GetFilePath());
        int piece = std::min(std::max(n, 1), kPiece);
        Block out = GrabOrThrow<BYTE>(static_cast<std::size_t>(piece) *
                                      static_cast<std::size_t>(targetSize));
        target->Seek(0, begin);
        for (int done = 0; done < n;) {
            int k = std::min(piece, n - done);
            for (int i = 0; i < k; ++i)
                EncodeIXRecord(out.get() + i * targetSize, done + i, targetSize);
            target->Write(out.get(), static_cast<UINT>(k * targetSize));
            done += k;
        }
        return;
    }
    // The signed value in the high half and the position in the low half: one plain
    // sort of these keys gives the order by value with equal values in file order, in
    // O(n log n) for any input, where an unbalanced tree could degrade to O(n^2) on
    // hostile data.
    std::vector<std::uint64_t> keys(static_cast<std::size_t>(n));
    for (int i = 0; i < n; ++i) {
        if (progress) progress(i, n);
        DWORD v = static_cast<DWORD>(GetRecordValue(block.get() + i * size, size));
        keys[static_cast<std::size_t>(i)] =
            (static_cast<std::uint64_t>(v ^ 0x80000000u) << 32) | static_cast<DWORD>(i);
    }
    block.reset();
    std::sort(keys.begin(), keys.end());
    std::vector<DWORD> order(static_cast<std::size_t>(n));
    for (int i = 0; i < n; ++i)
        order[static_cast<std::size_t>(i)] = static_cast<DWORD>(keys[static_cast<std::size_t>(i)]);
    keys.clear();
    keys.shrink_to_fit();
    target->RemoveAll();
    target->AddRecords(order.data(), n);
}

void CIXFile::Invert(bool (*progress)(int, int), CFile* target) {
    CFile* out = target ? target : this;
    const int n = GetRecordCount();
    const int size = m_nRecordSize;
    // Entries that end below 2 GiB; a larger value cannot be a position of any file.
    const int limit = static_cast<int>(kMaxFile / size);
    std::vector<int> values(static_cast<std::size_t>(n));
    int largest = -1;
    int kept = 0;
    {
        Block block(ReadRecords(0, n));
        for (int i = 0; i < n; ++i) {
            int v = Decode(block.get() + i * size);
            if (v == m_nInitValue || v < 0 || v >= limit) v = -1;
            values[static_cast<std::size_t>(i)] = v;
            if (v >= 0) {
                ++kept;
                largest = std::max(largest, v);
            }
        }
    }
    const std::int64_t entries = static_cast<std::int64_t>(largest) + 1;
    const BYTE fill = static_cast<BYTE>(m_nInitValue);
    auto write = [&] {
        out->Seek(0, begin);
        if (entries <= static_cast<std::int64_t>(n) + kPiece) {
            // Dense: the whole result in one block, no larger than this file plus a piece.
            std::size_t bytes = static_cast<std::size_t>(entries) * static_cast<std::size_t>(size);
            Block block = GrabOrThrow<BYTE>(bytes);
            std::memset(block.get(), fill, bytes);
            for (int i = 0; i < n; ++i) {
                if (progress) progress(i, n);
                int v = values[static_cast<std::size_t>(i)];
                if (v >= 0)
                    EncodeIXRecord(block.get() + static_cast<std::size_t>(v) * size, i, size);
            }
            out->Write(block.get(), static_cast<UINT>(bytes));
        } else {
            // Sparse: a few values far apart. Sorted (value, position) pairs fill the result
            // one piece at a time, so memory follows the record count, not the values.
            std::vector<std::uint64_t> pairs;
            pairs.reserve(static_cast<std::size_t>(kept));
            for (int i = 0; i < n; ++i) {
                if (progress) progress(i, n);
                int v = values[static_cast<std::size_t>(i)];
                if (v >= 0)
                    pairs.push_back((static_cast<std::uint64_t>(v) << 32) | static_cast<DWORD>(i));
            }
            values.clear();
            values.shrink_to_fit();
            std::sort(pairs.begin(), pairs.end());
            Block piece = GrabOrThrow<BYTE>(static_cast<std::size_t>(kPiece) *
                                            static_cast<std::size_t>(size));
            std::size_t next = 0;
            for (std::int64_t base = 0; base < entries; base += kPiece) {
                std::int64_t k = std::min<std::int64_t>(kPiece, entries - base);
                std::memset(piece.get(), fill, static_cast<std::size_t>(k * size));
                // Pairs of one value come in rising position order: the last one wins.
                for (;
                     next < pairs.size() && static_cast<std::int64_t>(pairs[next] >> 32) < base + k;
                     ++next)
                    EncodeIXRecord(
                        piece.get() +
                            ((pairs[next] >> 32) - static_cast<std::uint64_t>(base)) * size,
                        static_cast<int>(static_cast<DWORD>(pairs[next])), size);
                out->Write(piece.get(), static_cast<UINT>(k * size));
            }
        }
        out->SetLength(static_cast<DWORD>(entries * size));
    };
    // Into this file itself, the inverse overwrites the values: one change, journaled.
    if (out == this) {
        AsOneChange(0, write);
    } else {
        write();
    }
}

}  // namespace dorvik::classic
