#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <string>
#include <vector>

#include "TestUtil.h"
#include "dorvik/BitArray.h"
#include "dorvik/IXFile.h"

namespace {
constexpr UINT kReadWrite = CFile::modeReadWrite;
constexpr UINT kCreate = CFile::modeCreate | CFile::modeReadWrite;

// Little-endian words of 32 bits, as the default record size stores them.
Bytes Records(const std::vector<int>& values) {
    Bytes out;
    for (int v : values)
        for (int k = 0; k < 4; ++k)
            out.push_back(static_cast<unsigned char>(static_cast<unsigned>(v) >> (8 * k)));
    return out;
}

std::vector<int> Values(CIXFile& f) {
    std::vector<int> out;
    for (int i = 0; i < f.GetRecordCount(); ++i) out.push_back(f.GetRecord(i));
    return out;
}

std::vector<DWORD> List(CIXFile& f, int value, int op) {
    DWORD* list = nullptr;
    int n = f.Find(value, static_cast<Operation>(op), list);
    std::vector<DWORD> out(list, list + n);
    if (n > 0) DropBlock(list);
    return out;
}

}  // namespace

TEST(IXFile, DecodesAndEncodesEachRecordSize) {
    TempDir dir;
    struct Case {
        int size;
        Bytes stored;
        int value;
    } cases[] = {
        {1, Hex("7f"), 127},         {1, Hex("80"), -1},
        {2, Hex("ff7f"), 32767},     {2, Hex("0080"), -1},
        {3, Hex("ffff7f"), 8388607}, {3, Hex("000080"), -1},
        {4, Hex("ffffffff"), -1},    {4, Hex("00000080"), INT32_MIN},
    };
    for (const Case& c : cases) {
        WriteAll(dir.Path("f"), c.stored);
        CIXFile f(dir.Path("f").c_str(), kReadWrite, c.size);
        EXPECT_EQ(f.GetRecordCount(), 1);
        EXPECT_EQ(f.GetRecord(0), c.value) << c.size;
    }
    // Writes keep the low bytes.
    CIXFile f(dir.Path("g").c_str(), kCreate, 2);
    f.Add(0x12345678);
    f.Add(-1);
    f.Close();
    EXPECT_EQ(ReadAll(dir.Path("g")), Hex("7856 ffff"));
}

TEST(IXFile, RefusesRecordSizesOutsideOneToFour) {
    TempDir dir;
    for (int size : {0, -1, 5, 8}) {
        EXPECT_THROW(CIXFile{size}, CFileException);
        EXPECT_THROW(CIXFile(dir.Path("x").c_str(), kCreate, size), CFileException);
    }
    EXPECT_FALSE(Exists(dir.Path("x")));  // no file was made or cut
}

TEST(IXFile, ReadsOutsideTheFileGiveTheInitValue) {
    TempDir dir;
    WriteAll(dir.Path("f"), Cat({Records({7, 8}), Hex("0102")}));  // a partial record is none
    WriteAll(dir.Path("ix"), Records({1, 0}));
    CIXFile f(dir.Path("f").c_str(), kReadWrite);
    CIXFile index(dir.Path("ix").c_str(), kReadWrite);
    EXPECT_EQ(f.GetRecordCount(), 2);
    EXPECT_EQ(f.GetRecord(-1), -1);
    EXPECT_EQ(f.GetRecord(2), -1);
    f.SetInitValue(0);
    EXPECT_EQ(f.GetRecord(5), 0);
    f.SetInitValue(-1);
    f.SetIndexFile(&index);
    EXPECT_EQ(f[0], 8);
    EXPECT_EQ(f[1], 7);
    EXPECT_EQ(f.GetRecord(-1), -1);
    EXPECT_EQ(f.GetRecord(2), -1);
    // An index entry outside the file reads as empty and takes no writes.
    index.Modify(0, 40);
    EXPECT_EQ(f.GetRecord(0), -1);
    f.Modify(0, 9);
    f.Delete(0);
    f.SetIndexFile(nullptr);
    EXPECT_EQ(Values(f), (std::vector<int>{7, 8}));
}

TEST(IXFile, InsertAndAddPlaceRecordsAndExtendTheFile) {
    TempDir dir;
    CIXFile f(dir.Path("f").c_str(), kCreate);
    f.Add(5);
    EXPECT_EQ(ReadAll(dir.Path("f")), Records({5}));
    f.Insert(-1, 4);
    f.Insert(0, 6);  // behind record 0
    EXPECT_EQ(Values(f), (std::vector<int>{4, 6, 5}));
    f.Insert(5, 9);  // 3 records: 3..5 empty, 9 at 6, one empty record behind
    EXPECT_EQ(ReadAll(dir.Path("f")), Records({4, 6, 5, -1, -1, -1, 9, -1}));

    // A grow count extends by spare records, which count as records.
    CIXFile g(dir.Path("g").c_str(), kCreate, 1);
    g.SetGrowCount(3);
    g.Insert(1, 7);
    EXPECT_EQ(ReadAll(dir.Path("g")), Hex("ff ff 07 ff ff ff"));
}

TEST(IXFile, ModifyAndCountersGrowTheFile) {
    TempDir dir;
    CIXFile f(dir.Path("f").c_str(), kCreate);
    f.IncRecord(2);  // from the init value -1
    EXPECT_EQ(Values(f), (std::vector<int>{-1, -1, 0}));
    f.IncRecord(2);
    f.DecRecord(0);
    EXPECT_EQ(Values(f), (std::vector<int>{-2, -1, 1}));
    f.Modify(-3, 4);  // ignored
    EXPECT_EQ(f.GetRecordCount(), 3);

    CIXFile g(dir.Path("g").c_str(), kCreate);
    g.SetGrowCount(1000);
    g.Modify(0, 12);
    EXPECT_EQ(g.GetRecordCount(), 1001);
    g.UpdateFileLength();
    EXPECT_EQ(ReadAll(dir.Path("g")), Records({12}));
    g.UpdateFileLength();  // nothing more to cut
    EXPECT_EQ(g.GetRecordCount(), 1);
}

TEST(IXFile, DeleteRemovesClampedRanges) {
    TempDir dir;
    WriteAll(dir.Path("f"), Records({0, 1, 2, 3, 4, 5}));
    CIXFile f(dir.Path("f").c_str(), kReadWrite);
    f.Delete(2, 1);
    EXPECT_EQ(f.GetRecordCount(), 6);
    f.Delete(1, 2);
    EXPECT_EQ(Values(f), (std::vector<int>{0, 3, 4, 5}));
    f.Delete(7, 9);  // clamped to the last record
    EXPECT_EQ(Values(f), (std::vector<int>{0, 3, 4}));
    f.Delete(-4, -2);  // below the file: nothing
    f.Delete(-1, 0);
    EXPECT_EQ(Values(f), (std::vector<int>{3, 4}));
    f.RemoveAll();
    EXPECT_EQ(ReadAll(dir.Path("f")).size(), 0u);
    f.RemoveAll();
    f.Delete(0, 3);
    EXPECT_EQ(f.GetLength(), 0u);
}

TEST(IXFile, TailMoverFallsBackToSmallerBlocks) {
    TempDir dir;
    std::vector<int> values(100);
    std::iota(values.begin(), values.end(), 1000);
    WriteAll(dir.Path("f"), Records(values));
    CIXFile f(dir.Path("f").c_str(), kReadWrite);
    MessageCapture shown;
    {
        // A tail of 360 bytes through blocks of at most 50: it moves in pieces of 45.
        BlockLimit limit(50);
        f.Insert(9, 7);
        values.insert(values.begin() + 10, 7);
        EXPECT_EQ(Values(f), values);
        f.Delete(3, 4);  // the same mover, downwards
        values.erase(values.begin() + 3, values.begin() + 5);
        EXPECT_EQ(Values(f), values);
    }
    EXPECT_TRUE(shown.messages.empty());

    // Not one byte: the message, and the file as it was.
    Bytes before = ReadAll(dir.Path("f"));
    {
        BlockLimit limit(0);
        f.Insert(0, 8);
        EXPECT_EQ(shown.messages,
                  std::vector<std::string>{"Can't move file data.\r\nNot enough memory!|0|0"});
        EXPECT_THROW(f.Delete(0, 0), CMemoryException);
        f.Add(11);  // appending moves nothing
    }
    EXPECT_EQ(ReadAll(dir.Path("f")), Cat({before, Records({11})}));
}

TEST(IXFile, FindScansOrSearchesTheView) {
    TempDir dir;
    WriteAll(dir.Path("f"), Records({5, 2, 1, 2, 9}));
    CIXFile f(dir.Path("f").c_str(), kReadWrite);
    // Stepping from hit to hit.
    EXPECT_EQ(f.Find(-1, 2), 1);
    EXPECT_EQ(f.Find(1, 2), 3);
    EXPECT_EQ(f.Find(3, 2), -1);
    EXPECT_EQ(List(f, 2, opEqual), (std::vector<DWORD>{1, 3}));
    EXPECT_EQ(List(f, 2, opGreater | opEqual), (std::vector<DWORD>{0, 1, 3, 4}));
    DWORD* untouched = nullptr;
    EXPECT_EQ(f.Find(3, opEqual, untouched), 0);
    EXPECT_EQ(untouched, nullptr);

    CIXFile index(dir.Path("ix").c_str(), kCreate);
    f.Sort(&index, nullptr);
    ASSERT_EQ(ReadAll(dir.Path("ix")), Records({2, 1, 3, 0, 4}));
    f.SetIndexFile(&index);
    for (int start : {-1, 0, 3, 4}) EXPECT_EQ(f.Find(start, 2), 1);
    EXPECT_EQ(f.Find(0, 9), 4);
    EXPECT_EQ(f.Find(0, 3), -1);
    struct Case {
        int value;
        int op;
        std::vector<DWORD> positions;
    } cases[] = {
        {2, opEqual, {1, 3}},
        {2, opLess | opGreater, {2, 0, 4}},
        {9, opGreater, {}},
        {3, opLess, {2, 1, 3}},
        {3, opGreater, {0, 4}},
        {2, opEqual | opNot, {1, 3}},
        {-5, opGreater, {2, 1, 3, 0, 4}},
    };
    for (const Case& c : cases)
        EXPECT_EQ(List(f, c.value, c.op), c.positions) << c.value << " op " << c.op;

    CBitArray view, physical, inverted;
    EXPECT_EQ(f.Find(2, opLess | opEqual, view, true), 3);
    EXPECT_EQ(SetBits(view), (std::vector<int>{0, 1, 2}));
    EXPECT_EQ(f.Find(2, opLess | opEqual, physical, false), 3);
    EXPECT_EQ(SetBits(physical), (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(f.Find(4, static_cast<Operation>(opEqual | opNot), inverted, false), 0);
    EXPECT_EQ(SetBits(inverted), (std::vector<int>{0, 1, 2, 3, 4}));

    f.SetIndexFile(nullptr);
    CBitArray scan;
    EXPECT_EQ(f.Find(2, static_cast<Operation>(opEqual | opNot), scan, false), 2);
    EXPECT_EQ(SetBits(scan), (std::vector<int>{0, 2, 4}));
}

TEST(IXFile, LongRunsOfEqualRecordsAreFoundWhole) {
    TempDir dir;
    std::vector<int> values;
    for (int i = 999; i >= 0; --i) values.push_back(i < 100 ? 1 : (i < 900 ? 5 : 8));  // falling
    WriteAll(dir.Path("f"), Records(values));
    CIXFile f(dir.Path("f").c_str(), kReadWrite);
    CIXFile index(dir.Path("ix").c_str(), kCreate);
    f.Sort(&index, nullptr);
    f.SetIndexFile(&index);
    std::vector<DWORD> fives = List(f, 5, opEqual);
    ASSERT_EQ(fives.size(), 800u);
    for (size_t i = 0; i < fives.size(); ++i) EXPECT_EQ(fives[i], 100 + i);  // stable
    EXPECT_EQ(List(f, 5, opLess).size(), 100u);
    EXPECT_EQ(List(f, 5, opGreater).size(), 100u);
    EXPECT_EQ(f.Find(-1, 5), 100);
}

TEST(IXFile, GetRecordsMapsPositionsAndSets) {
    TempDir dir;
    WriteAll(dir.Path("f"), Records({4, -1, 7, 0, 4}));
    CIXFile f(dir.Path("f").c_str(), kReadWrite);
    std::vector<int> few = {2, -1, 9, 0}, many(12);
    for (int i = 0; i < 12; ++i) many[static_cast<size_t>(i)] = i - 2;
    std::vector<int> got(few.size()), gotMany(many.size());
    f.GetRecords(static_cast<int>(few.size()), few.data(), got.data());
    EXPECT_EQ(got, (std::vector<int>{7, -1, -1, 4}));
    f.GetRecords(static_cast<int>(many.size()), many.data(), gotMany.data());
    std::vector<int> single;
    for (int p : many) single.push_back(f.GetRecord(p));
    EXPECT_EQ(gotMany, single);  // the bulk read gives what GetRecord gives

    CBitArray positions, values;
    for (int p : {0, 1, 2, 40}) positions.SetAt(p);
    values.SetAt(100);  // emptied first
    f.GetRecords(&positions, values);
    EXPECT_EQ(SetBits(values), (std::vector<int>{4, 7}));  // -1 skipped

    CBitArray bits;
    bits.SetAt(1);              // not cleared
    f.GetRecords(2, 50, bits);  // clamped to the last record
    EXPECT_EQ(SetBits(bits), (std::vector<int>{0, 1, 4, 7}));

    WriteAll(dir.Path("b"), Hex("80 05 ff"));
    CIXFile bytes(dir.Path("b").c_str(), kReadWrite, 1);
    CBitArray raw;
    bytes.GetRecords(0, 2, raw);  // size 1 reads unsigned here
    EXPECT_EQ(SetBits(raw), (std::vector<int>{5, 128, 255}));
    CBitArray all;
    all.SetRange(0, 2);
    bytes.GetRecords(&all, values);  // while GetRecord reads 0x80 and 0xff as -1
    EXPECT_EQ(SetBits(values), (std::vector<int>{5}));
}

TEST(IXFile, EmptyRecordsAreFoundRemovedAndCut) {
    TempDir dir;
    WriteAll(dir.Path("f"), Records({-1, 3, -1, -1, 5, -1, -1}));
    CIXFile f(dir.Path("f").c_str(), kReadWrite);
    CBitArray bits;
    bits.SetAt(30);
    f.GetRecordsBitmap(bits);
    EXPECT_EQ(SetBits(bits), (std::vector<int>{1, 4}));
    EXPECT_EQ(bits.GetLength(), 1);
    EXPECT_EQ(f.DeleteEmpty(), 5);
    EXPECT_EQ(ReadAll(dir.Path("f")), Records({3, 5}));
    EXPECT_EQ(f.DeleteEmpty(), 0);

    WriteAll(dir.Path("g"), Hex("00 00 07 00 00 00"));
    CIXFile g(dir.Path("g").c_str(), kReadWrite, 2);
    g.SetInitValue(0);
    g.UpdateFileLength();
    EXPECT_EQ(ReadAll(dir.Path("g")), Hex("0000 0700"));
    EXPECT_EQ(g.DeleteEmpty(), 1);
    EXPECT_EQ(ReadAll(dir.Path("g")), Hex("0700"));

    WriteAll(dir.Path("h"), Records({-1, -1}));
    CIXFile h(dir.Path("h").c_str(), kReadWrite);
    EXPECT_EQ(h.DeleteEmpty(), 2);
    EXPECT_EQ(h.GetLength(), 0u);
}

TEST(IXFile, SortGivesTheStablePermutationInTheTargetsRecordSize) {
    TempDir dir;
    WriteAll(dir.Path("f"), Hex("05 80 7f 05 00"));
    CIXFile f(dir.Path("f").c_str(), kReadWrite, 1);
    EXPECT_EQ(f.GetRecord(1), -1);  // while Sort sees 128
    CIXFile target(dir.Path("t").c_str(), kCreate, 2);
    target.Add(77);
    f.Sort(&target, nullptr);
    EXPECT_EQ(ReadAll(dir.Path("t")), Hex("0400 0000 0300 0200 0100"));

    // In order already: written over the start without emptying.
    WriteAll(dir.Path("s"), Records({1, 1, 4}));
    CIXFile sorted(dir.Path("s").c_str(), kReadWrite);
    WriteAll(dir.Path("u"), Records({9, 9, 9, 9}));
    CIXFile old(dir.Path("u").c_str(), kReadWrite);
    sorted.Sort(&old, nullptr);
    EXPECT_EQ(ReadAll(dir.Path("u")), Records({0, 1, 2, 9}));
    CIXFile narrow(dir.Path("n").c_str(), kCreate, 2);
    sorted.Sort(&narrow, nullptr);
    EXPECT_EQ(ReadAll(dir.Path("n")), Hex("0000 0100 0200"));

    // Larger input against a reference stable sort, signed.
    std::vector<int> values;
    for (int i = 0; i < 5000; ++i)
        values.push_back(static_cast<int>((i * 2654435761u) % 1000) - 500);
    WriteAll(dir.Path("r"), Records(values));
    CIXFile random(dir.Path("r").c_str(), kReadWrite);
    CIXFile order(dir.Path("o").c_str(), kCreate);
    random.Sort(&order, nullptr);
    std::vector<int> expected(values.size());
    std::iota(expected.begin(), expected.end(), 0);
    std::stable_sort(expected.begin(), expected.end(),
                     [&](int a, int b) { return values[a] < values[b]; });
    EXPECT_EQ(Values(order), expected);
}

TEST(IXFile, InvertMakesTheInverseMap) {
    TempDir dir;
    WriteAll(dir.Path("f"), Records({2, -1, 0, 2, -7}));
    CIXFile f(dir.Path("f").c_str(), kReadWrite);
    CIXFile target(dir.Path("t").c_str(), kCreate);
    for (int i = 0; i < 4; ++i) target.Add(5);
    f.Invert(nullptr, &target);
    EXPECT_EQ(ReadAll(dir.Path("t")), Records({2, -1, 3}));  // the last of the 2s wins

    f.Invert(nullptr, nullptr);  // in place
    EXPECT_EQ(ReadAll(dir.Path("f")), Records({2, -1, 3}));

    WriteAll(dir.Path("b"), Hex("0200 0000 ffff"));  // record size 2
    CIXFile small(dir.Path("b").c_str(), kReadWrite, 2);
    small.Invert(nullptr, nullptr);
    EXPECT_EQ(ReadAll(dir.Path("b")), Hex("0100 ffff 0000"));
}

TEST(IXFile, InvertOfFarValuesNeedsLittleMemory) {
    TempDir dir;
    WriteAll(dir.Path("f"), Records({3000000, 1, 0x7FFFFFF0}));  // the last fits no file
    CIXFile f(dir.Path("f").c_str(), kReadWrite);
    {
        BlockLimit limit(1 << 20);  // far below the 12 MB of the result
        f.Invert(nullptr, nullptr);
    }
    CIXFile check(dir.Path("f").c_str(), kReadWrite);
    EXPECT_EQ(check.GetRecordCount(), 3000001);
    EXPECT_EQ(check.GetRecord(0), -1);
    EXPECT_EQ(check.GetRecord(1), 1);
    EXPECT_EQ(check.GetRecord(3000000), 0);
    EXPECT_EQ(check.Find(-1, 0), 3000000);
    EXPECT_EQ(check.Find(1, 1), -1);

    // Values at the edges of the pieces in which the far result is filled.
    WriteAll(dir.Path("g"), Records({65536, 65535, 131072, 131071, 65537, 200000}));
    CIXFile g(dir.Path("g").c_str(), kReadWrite);
    g.Invert(nullptr, nullptr);
    std::vector<int> entries = Values(g);
    ASSERT_EQ(entries.size(), 200001u);
    std::vector<int> expected(200001, -1);
    expected[65536] = 0;
    expected[65535] = 1;
    expected[131072] = 2;
    expected[131071] = 3;
    expected[65537] = 4;
    expected[200000] = 5;
    EXPECT_EQ(entries, expected);
}
