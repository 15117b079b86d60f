// Nested record files: path walks over stored tables, and inside-out rebuilds.
#include "dorvik/NDimBinFile.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "dorvik/MemBinFile.h"

namespace {
using CBlock = std::unique_ptr<unsigned char, decltype(&std::free)>;
CBlock HoldC(unsigned char* p) { return CBlock(p, &std::free); }
}  // namespace

CNDimBinFile::CNDimBinFile() = default;

CNDimBinFile::CNDimBinFile(const char* path, UINT flags) : CBinFile(path, flags) {}

CNDimBinFile::~CNDimBinFile() = default;

bool CNDimBinFile::Step(int index, DWORD& imageEnd, DWORD& size) {
    // The image under view is the stored range [imageEnd - size, imageEnd).
    if (size < 4) return false;
    Seek(static_cast<LONG>(imageEnd - 4), begin);
    LONG table = -1;
    Read(&table, 4);
    if (table < 0 || static_cast<DWORD>(table) > size - 4) return false;
    DWORD records = (size - static_cast<DWORD>(table)) / 4 - 1;
    if (index < 0 || static_cast<DWORD>(index) >= records) return false;
    DWORD entries[2] = {1, 0};
    Seek(static_cast<LONG>(imageEnd - 4 * (records + 1 - static_cast<DWORD>(index))), begin);
    Read(entries, 8);
    if (entries[0] > entries[1] || entries[1] > static_cast<DWORD>(table)) {
        size = static_cast<DWORD>(-1);  // corrupt: this path leads nowhere
        return false;
    }
    imageEnd -= size - entries[1];
    size = entries[1] - entries[0];
    return true;
}

bool CNDimBinFile::GetFileInfo(int dim, int* indices, int& length, int& address, bool create) {
    if (dim < 0) return false;
    if (dim == 0) {
        address = 0;
        length = static_cast<int>(GetLength());
        return true;
    }
    // Each creation makes one more level or record exist, so the walk restarts a
    // bounded number of times.
    for (int attempt = 0; attempt < 4 * dim + 8; ++attempt) {
        if (indices[0] < 0 || indices[0] >= GetRecordCount()) return false;
        DWORD first = m_pAddresses[indices[0]];
        DWORD last = m_pAddresses[indices[0] + 1];
        if (first > last || last > m_pAddresses[m_nRecordCount]) return false;
        DWORD imageEnd = last;
        DWORD size = last - first;
        int i = 1;
        bool again = false;
        while (!again) {
            if (size == 0) {
                if (i == dim || !create) return false;
                int saved = indices[i];
                indices[i] = -1;
                Insert(i + 1, indices, nullptr, 0);  // the nested file, with one empty record
                indices[i] = saved;
                again = true;
                break;
            }
            if (i == dim) break;
            if (!Step(indices[i], imageEnd, size)) {
                if (!create || indices[i] < 0 || size == static_cast<DWORD>(-1)) return false;
                Modify(i + 1, indices, nullptr, 0);  // makes the record exist
                again = true;
                break;
            }
            ++i;
        }
        if (again) continue;
        address = static_cast<int>(imageEnd - size);
        length = static_cast<int>(size);
        return true;
    }
    return false;
}

unsigned char* CNDimBinFile::ReadTopImage(int& length) {
    // Not safe mode: the disk holds the data only, the table comes from memory.
    DWORD dataEnd = m_pAddresses[m_nRecordCount];
    DWORD tableBytes = 4 * static_cast<DWORD>(m_nRecordCount + 1);
    auto* block =
        static_cast<unsigned char*>(GrabBlock(static_cast<std::size_t>(dataEnd) + tableBytes + 1));
    if (!block) throw CMemoryException();
    CBlock hold = HoldC(block);
    Seek(0, begin);
    Read(block, dataEnd);
    std::memcpy(block + dataEnd, m_pAddresses, tableBytes);
    length = static_cast<int>(dataEnd + tableBytes);
    return hold.release();
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
    auto* block = static_cast<unsigned char*>(GrabBlock(static_cast<std::size_t>(size) + 1));
    if (!block) throw CMemoryException();
    CBlock hold = HoldC(block);
    Seek(address, begin);
    Read(block, static_cast<UINT>(size));
    buffer = hold.release();
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
    CBlock owned = HoldC(nullptr);  // the image built by the previous level
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
    CMemBinFile image(0);
    unsigned char* block = nullptr;
    int blockLength = 0;
    if (ReadFile(dim, indices, block, blockLength, false))
        image.Attach(block, static_cast<DWORD>(blockLength), 0);
    change(image);
    int imageLength = static_cast<int>(image.GetLength());
    CBlock rebuilt = HoldC(image.Detach());
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
    auto* block = static_cast<unsigned char*>(GrabBlock(n));
    if (!block) throw CMemoryException();
    CBlock hold = HoldC(block);
    source->SeekToBegin();
    source->Read(block, n);
    if (!wasSafe) source->SetSafeMode(false);
    Insert(dim, indices, block, static_cast<int>(n));
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
    Seek(address + size - 4, begin);
    LONG table = -1;
    Read(&table, 4);
    if (table < 0 || table > size - 4) return 0;
    return (size - table) / 4 - 1;
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
    CMemBinFile image(block, static_cast<UINT>(length), 0);
    image.GetRecordsBitmap(bits);
}
