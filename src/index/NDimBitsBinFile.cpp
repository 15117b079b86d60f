// Nested bit record files: compressed bit arrays at the leaves of a nested file.
#include "dorvik/NDimBitsBinFile.h"

#include <memory>
#include <vector>

#include "index/BitRecord.h"

using dorvik::Block;
using dorvik::Hold;

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
    if (length != 0) {
        CBitArray::Decompress(buffer, length, limit);
    } else {
        DropBlock(buffer);
        buffer = nullptr;
    }
}

void CNDimBitsBinFile::GetRecord(int dim, int* indices, CBitArray& bits, int limit) {
    unsigned char* buffer = nullptr;
    int length = 0;
    GetRecord(dim, indices, buffer, length, limit);
    bits.SetCompressed(false);
    bits.Attach(buffer, length);
    if (length <= 0) DropBlock(buffer);
}

void CNDimBitsBinFile::GetRecords(int dim, int* indices, int count, int* records, CBitArray& result,
                                  bool unite, int limit) {
    if (dim < 0) return;
    std::vector<int> path(indices, indices + dim);
    path.push_back(0);
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
    if (bit < 0) return;
    unsigned char* record = nullptr;
    int length = 0;
    GetRecord(dim, indices, record, length, -1);
    Block<> hold = Hold(record);
    dorvik::GrowToBit(hold, length, bit);
    if (dorvik::TestBit(hold.get(), length, bit)) return;
    hold.get()[bit / 8] |= dorvik::Mask(bit);
    Modify(dim, indices, hold.get(), length);
}

void CNDimBitsBinFile::ResetAt(int dim, int* indices, int bit) {
    unsigned char* record = nullptr;
    int length = 0;
    GetRecord(dim, indices, record, length, -1);
    Block<> hold = Hold(record);
    if (!dorvik::TestBit(record, length, bit)) return;
    record[bit / 8] &= static_cast<unsigned char>(~dorvik::Mask(bit));
    Modify(dim, indices, record, length);
}

void CNDimBitsBinFile::XOrAt(int dim, int* indices, int bit) {
    if (bit < 0) return;
    unsigned char* record = nullptr;
    int length = 0;
    GetRecord(dim, indices, record, length, -1);
    Block<> hold = Hold(record);
    dorvik::GrowToBit(hold, length, bit);
    hold.get()[bit / 8] ^= dorvik::Mask(bit);
    Modify(dim, indices, hold.get(), length);
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
