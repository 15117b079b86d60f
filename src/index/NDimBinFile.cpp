// Nested record files: path walks over stored tables, and inside-out rebuilds.
#include "dorvik/NDimBinFile.h"

#include <cstdint>
#include <vector>

#include "dorvik/MemBinFile.h"
#include "frame/Block.h"
#include "frame/Coding.h"
#include "recordfile/RecordTable.h"

namespace dorvik::classic {
using dorvik::Block;
using dorvik::GrabOrThrow;
using dorvik::Hold;

CNDimBinFile::CNDimBinFile() = default;

CNDimBinFile::CNDimBinFile(const char* path, UINT flags) : CBinFile(path, flags) {}

CNDimBinFile::~CNDimBinFile() = default;

bool CNDimBinFile::Step(int index, DWORD& imageEnd, DWORD& size) {
    // The image under view is the stored range [imageEnd - size, imageEnd).
    if (size < 4) return false;
    dorvik::TableLocation table;
    if (!dorvik::LocateTable(*this, imageEnd - size, size, table)) return false;
    if (index < 0 || static_cast<DWORD>(index) >= table.count) return false;
    DWORD entries[2] = {1, 0};
    // The entries are counted back from the image end, where the table ends.
    DWORD at = imageEnd - 4 * (table.count + 1 - static_cast<DWORD>(index));
    if (dorvik::ReadTableEntries(*this, at, entries, 2) != 2 || entries[0] > entries[1] ||
        entries[1] > table.offset) {
        size = static_cast<DWORD>(-1);  // corrupt: this path leads nowhere
        return false;
    }
    imageEnd -= size - entries[1];
    size = entries[1] - entries[0];
    return true;
}

bool CNDimBinFile::WalkPath(int dim, int* indices, DWORD& address, DWORD& size) {
    // The top file's own table comes from memory, so the walk works in not safe mode too.
    if (indices[0] < 0 || indices[0] >= GetRecordCount()) return false;
    DWORD first = m_pAddresses[indices[0]];
    DWORD last = m_pAddresses[indices[0] + 1];
    if (first > last || last > m_pAddresses[m_nRecordCount]) return false;
    DWORD imageEnd = last;
    size = last - first;
    for (int i = 1; i < dim; ++i) {
        if (size == 0 || !Step(indices[i], imageEnd, size)) return false;
    }
    address = imageEnd - size;
    return true;
}

void CNDimBinFile::MakePath(int dim, int* indices) {
    if (dim < 2 || indices[0] < 0 || indices[0] >= GetRecordCount()) return;
    // Level by level: the file at the first i numbers must hold record indices[i].
    for (int i = 1; i < dim; ++i) {
        DWORD address = 0, size = 0;
        if (!WalkPath(i, indices, address, size)) return;
        if (size > 0) {
            DWORD imageEnd = address + size, probe = size;
            if (Step(indices[i], imageEnd, probe)) continue;
            if (indices[i] < 0 || probe == static_cast<DWORD>(-1)) return;  // leads nowhere
        }
        // A missing nested file, or one too short: it grows to hold the record. Bytes
        // that are no record file image make this throw, before anything is written.
        std::int64_t records = indices[i] < 0 ? 1 : std::int64_t{indices[i]} + 1;
        dorvik::RequireRecordFileRoom(*this, 0, records);
        ChangeFile(i, indices,
                   [records](CBinFile& file) { file.CBinFile::Init(static_cast<int>(records)); });
        if (indices[i] < 0) return;
    }
}

bool CNDimBinFile::GetFileInfo(int dim, int* indices, int& length, int& address, bool create) {
    if (dim < 0) return false;
    if (dim == 0) {
        address = 0;
        length = static_cast<int>(GetLength());
        return true;
    }
    if (create) MakePath(dim, indices);
    DWORD at = 0, size = 0;
    if (!WalkPath(dim, indices, at, size) || size == 0) return false;
    address = static_cast<int>(at);
    length = static_cast<int>(size);
    return true;
}

unsigned char* CNDimBinFile::ReadTopImage(int& length) {
    // Not safe mode: the disk holds the data only, the table comes from memory.
    DWORD dataEnd = m_pAddresses[m_nRecordCount];
    DWORD tableBytes = 4 * static_cast<DWORD>(m_nRecordCount + 1);
    Block<> block = GrabOrThrow(static_cast<std::size_t>(dataEnd) + tableBytes + 1);
    Seek(0, begin);
    Read(block.get(), dataEnd);
    dorvik::EncodeFixed32Array(block.get() + dataEnd, m_pAddresses,
                               static_cast<std::size_t>(m_nRecordCount + 1));
    length = static_cast<int>(dataEnd + tableBytes);
    return block.release();
}

bool CNDimBinFile::ReadFile(int dim, int* indices, unsigned char*& buffer, int& length,
                            bool create) {
    buffer = nullptr;
    length = 0;
    int size = 0, address = 0;
    if (!GetFileInfo(dim, indices, size, address, create) || size <= 0) return false;
    if (dim == 0 && !m_bSafeMode && GetRecordCount() >= 0 && m_pAddresses) {
        buffer = ReadTopImage(length);
        return true;
    }
    Block<> block = GrabOrThrow(static_cast<std::size_t>(size) + 1);
    Seek(address, begin);
    Read(block.get(), static_cast<UINT>(size));
    buffer = block.release();
    length = size;
    return true;
}

void CNDimBinFile::WriteFile(int dim, int* indices, unsigned char* data, int length) {
    int size = 0, address = 0;
    if (GetFileInfo(dim, indices, size, address, true) && size == length) {
        Seek(address, begin);
        if (length > 0 && data) Write(data, static_cast<UINT>(length));
        return;
    }
    CMemBinFile image(0);
    Block<> owned;  // the image built by the previous level
    unsigned char* p = data;
    for (int i = dim - 1; i >= 1; --i) {
        unsigned char* block = nullptr;
        int blockLength = 0;
        if (ReadFile(i, indices, block, blockLength, false))
            image.Attach(block, static_cast<DWORD>(blockLength), 0);
        image.CBinFile::Modify(indices[i], p, length);
        length = static_cast<int>(image.GetLength());
        owned.reset(image.Detach());
        p = owned.get();
    }
    CBinFile::Modify(indices[0], p, length);
}

void CNDimBinFile::ChangeFile(int dim, int* indices, const std::function<void(CBinFile&)>& change) {
    // A negative number names no file: the rebuild would land on record 0 of its level.
    for (int i = 0; i < dim; ++i) {
        if (indices[i] < 0) return;
    }
    CMemBinFile image(0);
    unsigned char* block = nullptr;
    int blockLength = 0;
    if (ReadFile(dim, indices, block, blockLength, false))
        image.Attach(block, static_cast<DWORD>(blockLength), 0);
    change(image);
    int imageLength = static_cast<int>(image.GetLength());
    Block<> rebuilt = Hold(image.Detach());
    WriteFile(dim, indices, rebuilt.get(), imageLength);
}

void CNDimBinFile::Insert(int dim, int* indices, unsigned char* data, int length) {
    if (dim <= 0) return;
    if (dim == 1) {
        CBinFile::Insert(indices[0], data, length);
        return;
    }
    ChangeFile(dim - 1, indices,
               [&](CBinFile& file) { file.CBinFile::Insert(indices[dim - 1], data, length); });
}

void CNDimBinFile::Modify(int dim, int* indices, unsigned char* data, int length) {
    if (dim <= 0) return;
    if (dim == 1) {
        CBinFile::Modify(indices[0], data, length);
        return;
    }
    ChangeFile(dim - 1, indices,
               [&](CBinFile& file) { file.CBinFile::Modify(indices[dim - 1], data, length); });
}

void CNDimBinFile::Delete(int dim, int* indices, int first, int last) {
    if (dim <= 0) {
        CBinFile::Delete(first, last);
        return;
    }
    ChangeFile(dim, indices, [&](CBinFile& file) { file.CBinFile::Delete(first, last); });
}

void CNDimBinFile::Add(int dim, int* indices, unsigned char* data, int length) {
    if (dim < 0) return;
    std::vector<int> path(indices, indices + dim);
    path.push_back(GetRecordCount(dim, indices) - 1);
    CNDimBinFile::Insert(dim + 1, path.data(), data, length);
}

void CNDimBinFile::Insert(int dim, int* indices, CBinFile* source) {
    if (dim <= 0) return;
    bool wasSafe = source->IsSafeMode();
    if (!wasSafe) source->SetSafeMode(true);
    DWORD n = source->GetLength();
    Block<> block = GrabOrThrow(n);
    source->SeekToBegin();
    source->Read(block.get(), n);
    if (!wasSafe) source->SetSafeMode(false);
    Insert(dim, indices, block.get(), static_cast<int>(n));
}

void CNDimBinFile::GetRecord(int dim, int* indices, unsigned char*& buffer, int& length) {
    ReadFile(dim, indices, buffer, length, false);
}

int CNDimBinFile::GetRecordLength(int dim, int* indices) {
    int size = 0, address = 0;
    return GetFileInfo(dim, indices, size, address, false) ? size : 0;
}

int CNDimBinFile::GetRecordCount(int dim, int* indices) {
    if (dim == 0) return GetRecordCount();
    int size = 0, address = 0;
    if (!GetFileInfo(dim, indices, size, address, false) || size < 4) return 0;
    dorvik::TableLocation table;
    if (!dorvik::LocateTable(*this, static_cast<DWORD>(address), static_cast<DWORD>(size), table))
        return 0;
    return static_cast<int>(table.count);
}

void CNDimBinFile::Init(int dim, int* indices) {
    int size = 0, address = 0;
    GetFileInfo(dim, indices, size, address, true);
}

bool CNDimBinFile::GetFile(int dim, int* indices, CBaseMemFile& file) {
    unsigned char* block = nullptr;
    int length = 0;
    if (!ReadFile(dim, indices, block, length, false)) return false;
    file.Attach(block, static_cast<DWORD>(length), 0);
    return true;
}

void CNDimBinFile::GetRecordsBitmap(int dim, int* indices, CBitArray& bits) {
    if (dim <= 0) {
        CBinFile::GetRecordsBitmap(bits);
        return;
    }
    unsigned char* block = nullptr;
    int length = 0;
    if (!ReadFile(dim, indices, block, length, false)) return;
    // Bytes that are no record file image lead nowhere, as they do for GetRecordCount.
    dorvik::TableLocation table;
    if (length < 4 || !dorvik::TableFromLastWord(dorvik::DecodeFixed32(block + length - 4),
                                                 static_cast<DWORD>(length), table)) {
        DropBlock(block);
        return;
    }
    CMemBinFile image(block, static_cast<UINT>(length), 0);
    image.GetRecordsBitmap(bits);
}

}  // namespace dorvik::classic
