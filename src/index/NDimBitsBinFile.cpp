// Nested bit record files: compressed bit arrays at the leaves of a nested file.
#include "dorvik/NDimBitsBinFile.h"

#include <memory>
#include <vector>

#include "index/BitRecord.h"

namespace dorvik::classic {
using dorvik::Block;
using dorvik::Hold;

namespace {
void ChangeBit(CNDimBitsBinFile& file, int dim, int* indices, int bit, dorvik::BitChange change) {
    dorvik::ChangeStoredBit(
        bit, change,
        [&](unsigned char*& record, int& length) {
            file.GetRecord(dim, indices, record, length, -1);
        },
        [&](unsigned char* record, int length) { file.Modify(dim, indices, record, length); });
}
}  // namespace

CNDimBitsBinFile::CNDimBitsBinFile() = default;

CNDimBitsBinFile::CNDimBitsBinFile(const char* path, UINT flags) : CNDimBinFile(path, flags) {}

CNDimBitsBinFile::~CNDimBitsBinFile() = default;

void CNDimBitsBinFile::Insert(int dim, int* indices, unsigned char* data, int length) {
    int n = 0;
    Block<> packed = dorvik::CompressBytes(data, length, n);
    CNDimBinFile::Insert(dim, indices, packed.get(), n);
}

void CNDimBitsBinFile::Modify(int dim, int* indices, unsigned char* data, int length) {
    int n = 0;
    Block<> packed = dorvik::CompressBytes(data, length, n);
    CNDimBinFile::Modify(dim, indices, packed.get(), n);
}

void CNDimBitsBinFile::GetRecord(int dim, int* indices, unsigned char*& buffer, int& length,
                                 int limit) {
    CNDimBinFile::GetRecord(dim, indices, buffer, length);
    dorvik::ExpandRecord(buffer, length, limit);
}

void CNDimBitsBinFile::GetRecord(int dim, int* indices, CBitArray& bits, int limit) {
    unsigned char* buffer = nullptr;
    int length = 0;
    GetRecord(dim, indices, buffer, length, limit);
    bits.SetCompressed(false);
    dorvik::AttachRecord(bits, buffer, length);
}

void CNDimBitsBinFile::GetRecords(int dim, int* indices, int count, int* records, CBitArray& result,
                                  bool unite, int limit) {
    if (dim < 0) return;
    std::vector<int> path(indices, indices + dim);
    path.push_back(0);
    if (!unite && count >= 2) {
        dorvik::IntersectStored(count, result, limit, [&](int k, unsigned char*& b, int& n) {
            path[static_cast<std::size_t>(dim)] = records[k];
            CNDimBinFile::GetRecord(dim + 1, path.data(), b, n);
        });
        return;
    }
    dorvik::Accumulate(count, result, unite, limit, [&](int k, CBitArray& bits, int cut) {
        path[static_cast<std::size_t>(dim)] = records[k];
        GetRecord(dim + 1, path.data(), bits, cut);
    });
}

void CNDimBitsBinFile::GetRecords(int dim, int* indices, CBitArray& selection, CBitArray& result,
                                  bool unite, int limit) {
    int* list = nullptr;
    int n = selection.Bmp2Array(list);
    std::unique_ptr<int[]> guard(n > 0 ? list : nullptr);
    GetRecords(dim, indices, n, n > 0 ? list : nullptr, result, unite, limit);
}

void CNDimBitsBinFile::SetAt(int dim, int* indices, int bit) {
    ChangeBit(*this, dim, indices, bit, dorvik::BitChange::set);
}

void CNDimBitsBinFile::ResetAt(int dim, int* indices, int bit) {
    ChangeBit(*this, dim, indices, bit, dorvik::BitChange::reset);
}

void CNDimBitsBinFile::XOrAt(int dim, int* indices, int bit) {
    ChangeBit(*this, dim, indices, bit, dorvik::BitChange::flip);
}

bool CNDimBitsBinFile::GetAt(int dim, int* indices, int bit) {
    unsigned char* raw = nullptr;
    int length = 0;
    CNDimBinFile::GetRecord(dim, indices, raw, length);
    Block<> hold = Hold(raw);
    return length > 0 && CBitArray::GetAt(raw, length, bit);
}

int CNDimBitsBinFile::GetBitIndex(int dim, int* indices, int bit) {
    unsigned char* record = nullptr;
    int length = 0;
    GetRecord(dim, indices, record, length, -1);
    Block<> hold = Hold(record);
    if (!dorvik::TestBit(record, length, bit)) return -1;
    return dorvik::CountBelow(record, bit);
}

int CNDimBitsBinFile::GetIndexBit(int dim, int* indices, int count) {
    unsigned char* record = nullptr;
    int length = 0;
    GetRecord(dim, indices, record, length, -1);
    Block<> hold = Hold(record);
    return dorvik::PositionPast(record, length, count);
}

}  // namespace dorvik::classic
