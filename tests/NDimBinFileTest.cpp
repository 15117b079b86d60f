#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "Dorvik01.h"
#include "TestUtil.h"

namespace {
Bytes Image(const std::vector<Bytes>& records) { return RecordFileImage(records); }

Bytes At(CNDimBinFile& f, std::vector<int> path) {
    unsigned char* b = nullptr;
    int n = 0;
    f.GetRecord(static_cast<int>(path.size()), path.data(), b, n);
    Bytes out(b, b + n);
    DropBlock(b);
    return out;
}

std::vector<int> Bits(CNDimBitsBinFile& f, std::vector<int> path) {
    CBitArray a;
    f.GetRecord(static_cast<int>(path.size()), path.data(), a, -1);
    return SetBits(a);
}
}  // namespace

TEST(NestedRecordFile, HoldsWholeImagesAsRecords) {
    TempDir dir;
    CNDimBinFile f(dir.Path("a").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    int p00[] = {0, 0}, p01[] = {0, 1};
    f.Modify(2, p00, P("X"), 1);
    f.Modify(2, p01, P("YZ"), 2);
    Bytes nested = Cat({B("XYZ"), Words({0, 1, 3})});
    ASSERT_EQ(nested.size(), 15u);
    EXPECT_EQ(ReadAll(dir.Path("a")), Cat({nested, Words({0, 15})}));
    EXPECT_EQ(At(f, {}), ReadAll(dir.Path("a")));  // dim 0: the whole image
    EXPECT_EQ(At(f, {0, 1}), B("YZ"));
    EXPECT_EQ(f.GetRecordLength(2, p01), 2);
    EXPECT_EQ(f.GetRecordCount(1, p00), 2);
    int p02[] = {0, 2}, p5[] = {5};
    EXPECT_EQ(f.GetRecordLength(2, p02), 0);
    EXPECT_EQ(f.GetRecordCount(1, p5), 0);
    // Same length: only those bytes change.
    Bytes before = ReadAll(dir.Path("a"));
    f.Modify(2, p01, P("yz"), 2);
    before[1] = 'y', before[2] = 'z';
    EXPECT_EQ(ReadAll(dir.Path("a")), before);
    CBaseMemFile m;
    EXPECT_TRUE(f.GetFile(1, p00, m));
    EXPECT_EQ(m.GetLength(), 15u);
    EXPECT_FALSE(f.GetFile(2, p02, m));
    EXPECT_EQ(m.GetLength(), 15u);
}

TEST(NestedRecordFile, CreatesEveryMissingLevel) {
    TempDir dir;
    CNDimBinFile f(dir.Path("a").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    int path[] = {0, 2, 1};
    f.Modify(3, path, P("data"), 4);
    Bytes level2 = Image({{}, B("data")});
    Bytes level1 = Image({{}, {}, level2});
    EXPECT_EQ(ReadAll(dir.Path("a")), Image({level1}));
    EXPECT_EQ(path[1], 2);  // the caller's path is put back
    int front[] = {0, -1};
    f.Insert(2, front, P("first"), 5);
    int p0[] = {0, 0};
    EXPECT_EQ(At(f, {0, 0}), B("first"));
    EXPECT_EQ(f.GetRecordCount(1, p0), 4);
    CNDimBinFile g(dir.Path("g").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    g.Add(nullptr, 0);
    int deep[] = {0, 1, 3};
    g.Init(3, deep);  // levels below the top appear, the last record empty
    int p01[] = {0, 1};
    EXPECT_EQ(g.GetRecordCount(2, p01), 4);
    EXPECT_EQ(g.GetRecordLength(3, deep), 0);
    int outside[] = {7, 0};
    g.Init(2, outside);  // Init never extends the top file
    EXPECT_EQ(g.GetRecordCount(), 1);
}

TEST(NestedRecordFile, AddsDeletesAndInsertsFiles) {
    TempDir dir;
    CNDimBinFile f(dir.Path("a").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    f.Add(nullptr, 0);
    f.Add(nullptr, 0);
    int k[] = {1};
    f.Add(1, k, P("a"), 1);  // on an empty record: a file with this one record
    f.Add(1, k, P("bb"), 2);
    f.Add(1, k, P("c"), 1);
    f.Add(0, k, P("top"), 3);
    EXPECT_EQ(f.GetRecordCount(), 3);
    EXPECT_EQ(At(f, {2}), B("top"));
    EXPECT_EQ(At(f, {1}), Image({B("a"), B("bb"), B("c")}));
    CBitArray bits;
    f.GetRecordsBitmap(1, k, bits);
    EXPECT_EQ(bits.GetCount(), 3);
    f.Delete(1, k, 0, 1000);
    EXPECT_EQ(At(f, {1}), Words({0}));  // the 4-byte empty image
    CBinFile source(dir.Path("s").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    source.SetSafeMode(false);
    source.Add(P("q"), 1);
    int put[] = {0, -1};
    f.Insert(2, put, &source);
    EXPECT_FALSE(source.IsSafeMode());
    EXPECT_EQ(At(f, {0, 0}), Image({B("q")}));
    int p00[] = {0, 0};
    EXPECT_EQ(f.GetRecordCount(2, p00), 1);
}

TEST(NestedRecordFile, WorksOnATopFileInNotSafeMode) {
    TempDir dir;
    std::vector<Bytes> images;
    for (bool safe : {true, false}) {
        std::string path = dir.Path(safe ? "safe" : "bulk");
        {
            CNDimBinFile f(path.c_str(), CFile::modeCreate | CFile::modeReadWrite);
            f.SetSafeMode(safe);
            int a[] = {1, 2}, b[] = {1, 0}, c[] = {0};
            f.Modify(2, a, P("xyz"), 3);
            f.Modify(2, b, P("w"), 1);
            f.Add(1, c, P("v"), 1);
            EXPECT_EQ(At(f, {1, 2}), B("xyz"));
            EXPECT_EQ(f.GetRecordCount(1, a), 3);
            EXPECT_EQ(At(f, {}).size(), f.GetLength());
        }
        images.push_back(ReadAll(path));
    }
    EXPECT_EQ(images[0], images[1]);
    EXPECT_TRUE(CBinFile::IsValidBinFile(dir.Path("bulk").c_str()));
}

TEST(NestedRecordFile, ACorruptNestedImageLeadsNowhere) {
    TempDir dir;
    struct Case {
        Bytes inner;
        int count;  // what GetRecordCount says of the nested file
    };
    const Case cases[] = {
        {Cat({B("abcd"), Words({0x7FFFFFFF})}), 0},  // table offset past the image
        {Cat({B("ab"), Words({0, 900, 2})}), 2},     // an entry past the data
        {Cat({B("ab"), Words({2, 1, 2})}), 2},       // entries going down
        {B("xy"), 0},                                // too short for a table
    };
    for (const Case& c : cases) {
        WriteAll(dir.Path("a"), Image({c.inner}));
        Bytes before = ReadAll(dir.Path("a"));
        CNDimBinFile f(dir.Path("a").c_str(), CFile::modeReadWrite);
        int p00[] = {0, 0}, p0[] = {0}, deep[] = {0, 0, 0};
        EXPECT_EQ(f.GetRecordLength(2, p00), 0);
        EXPECT_EQ(At(f, {0, 0}), Bytes());
        EXPECT_EQ(f.GetRecordLength(3, deep), 0);
        EXPECT_EQ(f.GetRecordCount(1, p0), c.count);
        // A write through it cannot rebuild the image: it throws and changes nothing.
        EXPECT_THROW(f.Modify(2, p00, P("z"), 1), CFileException);
        EXPECT_EQ(ReadAll(dir.Path("a")), before);
    }
}

// Random changes two levels deep must give the image built by hand from a model.
TEST(NestedRecordFile, RandomChangesMatchAModel) {
    TempDir dir;
    std::mt19937 rng(11);
    std::vector<std::vector<std::string>> model;
    CNDimBinFile f(dir.Path("a").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    for (int step = 0; step < 300; ++step) {
        int outer = static_cast<int>(rng() % 5);
        if (outer >= static_cast<int>(model.size()))
            model.resize(static_cast<std::size_t>(outer) + 1);
        auto& inner = model[static_cast<std::size_t>(outer)];
        std::string text(rng() % 6, static_cast<char>('a' + rng() % 26));
        int n = static_cast<int>(inner.size());
        int index = static_cast<int>(rng() % (n + 2));
        int path[] = {outer, index};
        switch (rng() % 4) {
            case 0:
                f.Modify(2, path, P(text.c_str()), static_cast<int>(text.size()));
                if (index >= n) inner.resize(static_cast<std::size_t>(index) + 1);
                inner[static_cast<std::size_t>(index)] = text;
                break;
            case 1: {
                int after = index - 1;
                path[1] = after;
                f.Insert(2, path, P(text.c_str()), static_cast<int>(text.size()));
                if (after + 1 > n) inner.resize(static_cast<std::size_t>(after) + 2);
                inner.insert(inner.begin() + (after + 1), text);
                break;
            }
            case 2:
                f.Add(1, path, P(text.c_str()), static_cast<int>(text.size()));
                inner.push_back(text);
                break;
            default:
                if (n == 0) break;
                f.Delete(1, path, index % n, index % n);
                inner.erase(inner.begin() + index % n);
        }
    }
    std::vector<Bytes> top;
    for (const auto& inner : model) {
        std::vector<Bytes> records;
        for (const auto& s : inner) records.push_back(B(s));
        top.push_back(Image(records));
    }
    // Files that were never touched stay empty records rather than empty images.
    for (std::size_t i = 0; i < model.size(); ++i)
        if (At(f, {static_cast<int>(i)}).empty()) top[i].clear();
    EXPECT_EQ(ReadAll(dir.Path("a")), Image(top));
}

TEST(NestedBitRecordFile, SetsAndReadsBitsAlongPaths) {
    TempDir dir;
    CNDimBitsBinFile f(dir.Path("a").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    f.Add(nullptr, 0);
    int cell[] = {0, 3};
    f.SetAt(2, cell, 9);  // creates the nested file and the record
    EXPECT_TRUE(f.GetAt(2, cell, 9));
    EXPECT_EQ(f.GetBitIndex(2, cell, 9), 0);
    EXPECT_EQ(f.GetBitIndex(2, cell, 8), -1);
    EXPECT_EQ(f.GetBitIndex(2, cell, 16), -1);
    EXPECT_FALSE(f.GetAt(2, cell, 16));
    DWORD length = f.CFile::GetLength();
    f.SetAt(2, cell, 9);
    EXPECT_EQ(f.CFile::GetLength(), length);
    f.SetAt(2, cell, 2);
    EXPECT_EQ(f.GetIndexBit(2, cell, 0), 0);
    EXPECT_EQ(f.GetIndexBit(2, cell, 2), 10);
    EXPECT_EQ(f.GetIndexBit(2, cell, 3), 16);
    f.XOrAt(2, cell, 40);
    f.XOrAt(2, cell, 40);
    EXPECT_EQ(Bits(f, {0, 3}), (std::vector<int>{2, 9}));
    f.ResetAt(2, cell, 2);
    f.ResetAt(2, cell, 9);
    EXPECT_EQ(f.GetRecordLength(2, cell), 0);
    int nowhere[] = {4, 4};
    f.ResetAt(2, nowhere, 1);  // never creates
    EXPECT_EQ(f.GetRecordCount(), 1);
    EXPECT_EQ(f.GetIndexBit(2, nowhere, 1), 0);
    EXPECT_EQ(f.GetBitIndex(2, nowhere, 1), -1);
}

TEST(NestedBitRecordFile, StoresCompressedCellsAndCombinesThem) {
    TempDir dir;
    CNDimBitsBinFile f(dir.Path("a").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    unsigned char zeros[4] = {};
    int c0[] = {0, 0}, c1[] = {0, 1}, c2[] = {0, 2};
    f.Modify(2, c0, zeros, 4);
    EXPECT_EQ(f.GetRecordLength(2, c0), 0);
    unsigned char a[] = {0x06}, b[] = {0x03, 0x01};
    f.Modify(2, c1, a, 1);
    f.Modify(2, c2, b, 2);
    unsigned char* raw = nullptr;
    int length = 0;
    f.GetRecord(2, c2, raw, length);  // the stored form
    EXPECT_EQ(Bytes(raw, raw + length), Hex("01 03 01"));
    DropBlock(raw);
    int top[] = {0};
    CBitArray result;
    int all[] = {1, 2};
    f.GetRecords(1, top, 2, all, result, false, -1);
    EXPECT_EQ(result.GetLength(), 1);
    EXPECT_EQ(result.GetBuffer()[0], 0x02);
    int withEmpty[] = {0, 1, 2};
    f.GetRecords(1, top, 3, withEmpty, result, false, -1);
    EXPECT_EQ(result.GetLength(), 0);
    f.GetRecords(1, top, 3, withEmpty, result, true, -1);
    EXPECT_EQ(Bytes(result.GetBuffer(), result.GetBuffer() + result.GetLength()), Hex("07 01"));
    f.GetRecords(1, top, 0, nullptr, result, true, -1);
    EXPECT_EQ(result.GetLength(), 0);
    CBitArray selection;
    selection.SetAt(2);
    f.GetRecords(1, top, selection, result, true, -1);
    EXPECT_EQ(result.GetLength(), 2);
    f.Add(1, top, Hex("01 FF0100").data(), 4);  // stored as given
    int c3[] = {0, 3};
    EXPECT_EQ(At(f, {0, 3}), Hex("01 FF0100"));
    EXPECT_TRUE(f.GetAt(2, c3, 7));
}
