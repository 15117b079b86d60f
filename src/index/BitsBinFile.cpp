// Bit record file: records are compressed bit arrays.
#include "dorvik/BitsBinFile.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <memory>
#include <vector>

#include "frame/Coding.h"
#include "index/BitRecord.h"

namespace dorvik::classic {
using dorvik::Block;
using dorvik::CompressBytes;
using dorvik::Hold;

namespace {

void ChangeBit(CBitsBinFile& file, int index, int bit, dorvik::BitChange change) {
    dorvik::ChangeStoredBit(
        bit, change,
        [&](unsigned char*& record, int& length) { file.GetRecord(index, record, length, -1); },
        [&](unsigned char* record, int length) { file.Modify(index, record, length); });
}

// A growable list of record numbers of one column: entries of `width` bytes.
struct ColumnList {
    unsigned char* bytes = nullptr;
    std::size_t used = 0;
    std::size_t capacity = 0;
};

void Append(ColumnList& list, unsigned value, int width) {
    if (list.used + static_cast<std::size_t>(width) > list.capacity) {
        // Grows by a quarter, at least 100 entries: amortised linear, little slack.
        std::size_t step = list.capacity / 4;
        if (step < static_cast<std::size_t>(width) * 100)
            step = static_cast<std::size_t>(width) * 100;
        list.bytes = static_cast<unsigned char*>(RegrowBlock(list.bytes, list.capacity + step));
        list.capacity += step;
    }
    dorvik::EncodeFixed(list.bytes + list.used, value, width);
    list.used += static_cast<std::size_t>(width);
}
}  // namespace

CBitsBinFile::CBitsBinFile() = default;

CBitsBinFile::CBitsBinFile(const char* path, UINT flags) : CBinFile(path, flags) {}

CBitsBinFile::~CBitsBinFile() = default;

void CBitsBinFile::Insert(int after, unsigned char* data, int length) {
    int n = 0;
    Block<> packed = CompressBytes(data, length, n);
    CBinFile::Insert(after, packed.get(), n);
}

void CBitsBinFile::Modify(int index, unsigned char* data, int length) {
    int n = 0;
    Block<> packed = CompressBytes(data, length, n);
    CBinFile::Modify(index, packed.get(), n);
}

void CBitsBinFile::Add(unsigned char* data, int length) {
    int n = 0;
    Block<> packed = CompressBytes(data, length, n);
    CBinFile::Add(packed.get(), n);
}

void CBitsBinFile::Modify(int index, CFile& source) {
    DWORD n = source.GetLength();
    Block<> bytes = dorvik::GrabOrThrow(n);
    source.SeekToBegin();
    UINT got = source.Read(bytes.get(), n);
    Modify(index, bytes.get(), static_cast<int>(got));
}

void CBitsBinFile::GetRecord(int index, unsigned char*& buffer, int& length, int limit) {
    buffer = nullptr;
    length = 0;
    CBinFile::GetRecord(index, buffer, length, true);
    dorvik::ExpandRecord(buffer, length, limit);
}

void CBitsBinFile::GetRecord(int index, CBitArray& bits, int limit) {
    unsigned char* buffer = nullptr;
    int length = 0;
    if (bits.IsCompressed()) {
        CBinFile::GetRecord(index, buffer, length, true);
    } else {
        GetRecord(index, buffer, length, limit);
    }
    dorvik::AttachRecord(bits, buffer, length);
}

void CBitsBinFile::Modify(int index, CBitArray* bits) {
    if (bits->IsCompressed()) {
        CBinFile::Modify(index, bits->GetBuffer(), bits->GetLength());
    } else {
        Modify(index, bits->GetBuffer(), bits->GetLength());
    }
}

void CBitsBinFile::Add(CBitArray* bits) {
    if (bits->IsCompressed()) {
        CBinFile::Add(bits->GetBuffer(), bits->GetLength());
    } else {
        Add(bits->GetBuffer(), bits->GetLength());
    }
}

void CBitsBinFile::GetRecords(int count, int* records, CBitArray& result, bool unite, int limit) {
    if (!unite && count >= 2) {
        dorvik::IntersectStored(count, result, limit, [&](int k, unsigned char*& b, int& n) {
            CBinFile::GetRecord(records[k], b, n, true);
        });
        return;
    }
    dorvik::Accumulate(count, result, unite, limit,
                       [&](int k, CBitArray& bits, int cut) { GetRecord(records[k], bits, cut); });
}

void CBitsBinFile::GetRecords(CBitArray* selection, CBitArray& result, bool unite, int limit) {
    CBitArray all(false);
    if (!selection) {
        GetRecordsBitmap(all);
        selection = &all;
    }
    int* list = nullptr;
    int n = selection->Bmp2Array(list);
    std::unique_ptr<int[]> guard(n > 0 ? list : nullptr);
    GetRecords(n, n > 0 ? list : nullptr, result, unite, limit);
}

void CBitsBinFile::Invert(CBitArray* columns, bool byRank, Progress progress,
                          CBitsBinFile* target) {
    int n = GetRecordCount();
    if (n == 0) return;
    // Records are walked in their compressed form: a sparse record costs its stored
    // bytes, not its plain length.
    auto forEachRecordBit = [this](int record, auto visit) {
        unsigned char* raw = nullptr;
        int length = 0;
        CBinFile::GetRecord(record, raw, length, true);
        Block<> hold = Hold(raw);
        dorvik::form::ForEachSetBit(raw, length, visit);
    };
    CBitArray set(false);
    if (columns) {
        set = *columns;
        if (columns->IsCompressed()) {
            set.SetCompressed(true);
            set.Decompress();
        }
    } else {
        for (int r = 0; r < n; ++r)
            forEachRecordBit(r, [&set](long long bit) {
                if (bit <= 0x7FFFFFFF) set.SetAt(static_cast<int>(bit));
            });
    }
    int c = set.GetCount();
    std::size_t m = static_cast<std::size_t>(set.GetLength()) * 8;
    std::vector<int> rankToBit(static_cast<std::size_t>(c));
    {
        int rank = 0;
        const unsigned char* bytes = set.GetBuffer();
        for (std::size_t i = 0; i < static_cast<std::size_t>(set.GetLength()); ++i) {
            for (unsigned b = bytes[i]; b; b &= b - 1)
                rankToBit[static_cast<std::size_t>(rank++)] =
                    static_cast<int>(i * 8 + static_cast<std::size_t>(std::countr_zero(b)));
        }
    }
    set.FreeBuffer();
    // A table over all addressable columns answers a rank at once; when the columns
    // are very sparse, a binary search over the set ones keeps memory to the set.
    bool dense = m <= 8 * static_cast<std::size_t>(c) + (std::size_t{1} << 22);
    std::vector<int> bitToRank(dense ? m : 0, -1);
    for (int rank = 0; dense && rank < c; ++rank)
        bitToRank[static_cast<std::size_t>(rankToBit[static_cast<std::size_t>(rank)])] = rank;
    auto rankOf = [&](long long bit) -> int {
        if (bit < 0 || static_cast<std::size_t>(bit) >= m) return -1;
        if (dense) return bitToRank[static_cast<std::size_t>(bit)];
        auto at = std::lower_bound(rankToBit.begin(), rankToBit.end(), static_cast<int>(bit));
        return (at != rankToBit.end() && *at == static_cast<int>(bit))
                   ? static_cast<int>(at - rankToBit.begin())
                   : -1;
    };
    int width = n >= 65536 ? 4 : 2;
    std::vector<ColumnList> lists(static_cast<std::size_t>(c));
    struct Release {
        std::vector<ColumnList>& lists;
        ~Release() {
            for (ColumnList& l : lists) DropBlock(l.bytes);
        }
    } release{lists};

    for (int r = 0; r < n; ++r) {
        if (progress) progress(r, n);
        forEachRecordBit(r, [&](long long bit) {
            int rank = rankOf(bit);
            if (rank >= 0)
                Append(lists[static_cast<std::size_t>(rank)], static_cast<unsigned>(r), width);
        });  // bits outside the column set are skipped
    }
    std::vector<int>().swap(bitToRank);

    CBitsBinFile* out = target ? target : this;
    out->Delete(0, out->GetRecordCount() - 1);
    out->SetSafeMode(false);
    std::vector<unsigned> records;
    for (int i = 0; i < c; ++i) {
        if (progress) progress(i, c);
        ColumnList& list = lists[static_cast<std::size_t>(i)];
        if (!list.bytes) continue;
        records.clear();
        for (std::size_t at = 0; at < list.used; at += static_cast<std::size_t>(width)) {
            records.push_back(dorvik::DecodeFixed(list.bytes + at, width));
        }
        DropBlock(list.bytes);
        list = ColumnList();
        // The column's record numbers rise, so its compressed form is built directly.
        std::vector<unsigned char> form = dorvik::form::EncodeSortedBits(records);
        CBitArray packed(form.data(), static_cast<int>(form.size()), true);
        out->Modify(byRank ? i : rankToBit[static_cast<std::size_t>(i)], &packed);
    }
}

void CBitsBinFile::SetAt(int index, int bit) {
    ChangeBit(*this, index, bit, dorvik::BitChange::set);
}

void CBitsBinFile::ResetAt(int index, int bit) {
    ChangeBit(*this, index, bit, dorvik::BitChange::reset);
}

bool CBitsBinFile::GetAt(int index, int bit) {
    unsigned char* raw = nullptr;
    int length = 0;
    CBinFile::GetRecord(index, raw, length, true);
    Block<> hold = Hold(raw);
    return length > 0 && CBitArray::GetAt(raw, length, bit);
}

int CBitsBinFile::GetBitIndex(int index, int bit) {
    unsigned char* record = nullptr;
    int length = 0;
    GetRecord(index, record, length, -1);
    Block<> hold = Hold(record);
    if (length == 0) return -1;
    long long last = static_cast<long long>(length) * 8 - 1;
    if (bit > last) bit = static_cast<int>(last);
    if (bit < 0) return -1;
    int below = dorvik::CountBelow(record, bit);
    return dorvik::TestBit(record, length, bit) ? below : below - 1;
}

int CBitsBinFile::GetIndexBit(int index, int count) {
    unsigned char* record = nullptr;
    int length = 0;
    GetRecord(index, record, length, -1);
    Block<> hold = Hold(record);
    return dorvik::PositionPast(record, length, count);
}

int CBitsBinFile::GetCount(int index) {
    unsigned char* raw = nullptr;
    int length = 0;
    CBinFile::GetRecord(index, raw, length, true);
    Block<> hold = Hold(raw);
    return dorvik::form::CountSetBits(raw, length);
}

void CBitsBinFile::Or(CBitsBinFile* other) { OrFiles(other, this); }

void CBitsBinFile::And(CBitsBinFile* other) { AndFiles(other, this); }

void CBitsBinFile::Or(const char* path) {
    CBitsBinFile other(path, modeRead);
    OrFiles(&other, this);
}

void CBitsBinFile::And(const char* path) {
    CBitsBinFile other(path, modeRead);
    AndFiles(&other, this);
}

void CBitsBinFile::OrFiles(CBitsBinFile* source, CBitsBinFile* target) {
    int n = source->GetRecordCount();
    for (int i = 0; i < n; ++i) {
        unsigned char* s = nullptr;
        int sLength = 0;
        source->GetRecord(i, s, sLength, -1);
        Block<> sHold = Hold(s);
        if (sLength == 0) continue;
        unsigned char* t = nullptr;
        int tLength = 0;
        target->GetRecord(i, t, tLength, -1);
        if (tLength == 0) {
            DropBlock(t);
            target->Modify(i, s, sLength);
            continue;
        }
        CBitArray::Mem(opOr, s, sLength, t, tLength);
        Block<> tHold = Hold(t);
        target->Modify(i, t, tLength);
    }
}

void CBitsBinFile::AndFiles(CBitsBinFile* source, CBitsBinFile* target) {
    int n = source->GetRecordCount();
    int targetCount = target->GetRecordCount();
    if (targetCount < n) n = targetCount;
    for (int i = 0; i < n; ++i) {
        unsigned char* t = nullptr;
        int tLength = 0;
        target->GetRecord(i, t, tLength, -1);
        Block<> tHold = Hold(t);
        if (tLength == 0) continue;
        unsigned char* s = nullptr;
        int sLength = 0;
        source->GetRecord(i, s, sLength, -1);
        Block<> sHold = Hold(s);
        unsigned char* combined = tHold.release();
        CBitArray::Mem(opAnd, s, sLength, combined, tLength);
        tHold.reset(combined);
        target->Modify(i, combined, tLength);
    }
    int k = n;
    while (k != 0 && target->GetRecordLength(k - 1) == 0) --k;
    target->Delete(k, target->GetRecordCount() - 1);
}

void CBitsBinFile::OrFiles(const char* source, const char* target) {
    CBitsBinFile s(source, modeRead);
    CBitsBinFile t(target, modeReadWrite);
    OrFiles(&s, &t);
}

void CBitsBinFile::AndFiles(const char* source, const char* target) {
    CBitsBinFile s(source, modeRead);
    CBitsBinFile t(target, modeReadWrite);
    AndFiles(&s, &t);
}

}  // namespace dorvik::classic
