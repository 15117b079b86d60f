#include <gtest/gtest.h>

#include <random>
#include <set>
#include <string>
#include <vector>

#include "Dorvik01.h"
#include "TestUtil.h"
#include "bits/CompressedForm.h"
#include "dorvik/BitArray.h"
#include "dorvik/BitsBinFile.h"
#include "index/BitRecord.h"

TEST(BitRecordFile, StoresRecordsCompressedAndReadsThemExpanded) {
    TempDir dir;
    CBitsBinFile f(dir.Path("a").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    unsigned char plain[] = {0, 0, 0, 5, 0xFF, 0xFF, 0};
    f.Add(plain, sizeof plain);
    unsigned char zeros[8] = {};
    f.Add(zeros, sizeof zeros);  // all zero: an empty record
    EXPECT_EQ(ReadAll(dir.Path("a")), Cat({Hex("01 000300 05 FF0200"), Words({0, 8, 8})}));
    unsigned char* raw = nullptr;
    int length = 0;
    f.GetRecord(0, raw, length, true);  // the stored bytes
    EXPECT_EQ(Bytes(raw, raw + length), Hex("01 000300 05 FF0200"));
    DropBlock(raw);
    f.GetRecord(0, raw, length, -1);  // expanded, trailing zero byte gone
    EXPECT_EQ(Bytes(raw, raw + length), Hex("00000005 FFFF"));
    DropBlock(raw);
    raw = reinterpret_cast<unsigned char*>(1);
    f.GetRecord(1, raw, length, -1);
    EXPECT_EQ(raw, nullptr);
    EXPECT_EQ(length, 0);
    CBitArray packed(true);
    f.GetRecord(0, packed, -1);  // a compressed target gets the stored form
    EXPECT_EQ(packed.GetLength(), 8);
    f.Modify(1, &packed);
    EXPECT_EQ(Row(f, 1), Row(f, 0));
}

TEST(BitRecordFile, UnitesAndIntersectsRecords) {
    TempDir dir;
    CBitsBinFile f(dir.Path("a").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    AddRows(f, {{1, 2, 300}, {}, {2, 300, 301}, {2, 9}});
    CBitArray result(true);  // comes back plain
    int list[] = {0, 2, 3};
    f.GetRecords(3, list, result, false, -1);
    EXPECT_FALSE(result.IsCompressed());
    EXPECT_EQ(SetBits(result), (std::vector<int>{2}));
    f.GetRecords(3, list, result, true, -1);
    EXPECT_EQ(SetBits(result), (std::vector<int>{1, 2, 9, 300, 301}));
    int emptyFirst[] = {1, 0};
    f.GetRecords(2, emptyFirst, result, false, -1);
    EXPECT_EQ(result.GetLength(), 0);
    f.GetRecords(2, emptyFirst, result, true, -1);  // an empty start is refilled
    EXPECT_EQ(SetBits(result), (std::vector<int>{1, 2, 300}));
    f.GetRecords(0, nullptr, result, true, -1);
    EXPECT_EQ(result.GetLength(), 0);
    f.GetRecords(nullptr, result, false, -1);  // all non-empty records
    EXPECT_EQ(SetBits(result), (std::vector<int>{2}));
    CBitArray some = BitsOf({0, 2});
    f.GetRecords(&some, result, true, -1);
    EXPECT_EQ(SetBits(result), (std::vector<int>{1, 2, 300, 301}));
    // A limit of 1 byte expands each record up to the item that reaches it: the first
    // byte, since literals count one by one. Bits 9, 300 and 301 lie beyond it.
    f.GetRecords(3, list, result, true, 1);
    EXPECT_EQ(SetBits(result), (std::vector<int>{1, 2}));
    f.GetRecords(3, list, result, false, 1);
    EXPECT_EQ(SetBits(result), (std::vector<int>{2}));
}

TEST(BitRecordFile, TransposesByRankAndByBit) {
    TempDir dir;
    CBitsBinFile f(dir.Path("a").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    AddRows(f, {{3, 9}, {9}});
    CBitsBinFile byRank(dir.Path("r").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    byRank.Add(nullptr, 0);
    f.Invert(nullptr, true, nullptr, &byRank);
    EXPECT_FALSE(byRank.IsSafeMode());
    EXPECT_EQ(byRank.GetRecordCount(), 2);
    EXPECT_EQ(Row(byRank, 0), (std::vector<int>{0}));
    EXPECT_EQ(Row(byRank, 1), (std::vector<int>{0, 1}));
    f.Invert(nullptr, false, nullptr, nullptr);  // in place, by bit number
    EXPECT_EQ(f.GetRecordCount(), 10);
    EXPECT_EQ(Row(f, 3), (std::vector<int>{0}));
    EXPECT_EQ(Row(f, 9), (std::vector<int>{0, 1}));
    for (int r : {0, 1, 2, 4, 5, 6, 7, 8}) EXPECT_EQ(f.GetRecordLength(r), 0);
    f.Close();
    EXPECT_TRUE(CBinFile::IsValidBinFile(dir.Path("a").c_str()));
}

TEST(BitRecordFile, TransposesWithAnExplicitColumnSet) {
    TempDir dir;
    CBitsBinFile f(dir.Path("a").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    AddRows(f, {{1, 4, 20000}, {4, 7}});
    CBitsBinFile out(dir.Path("o").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    CBitArray columns = BitsOf({4, 5, 7});  // 5 is in no record; 1 and 20000 are outside
    f.Invert(&columns, true, nullptr, &out);
    EXPECT_EQ(out.GetRecordCount(), 3);
    EXPECT_EQ(Row(out, 0), (std::vector<int>{0, 1}));
    EXPECT_EQ(out.GetRecordLength(1), 0);
    EXPECT_EQ(Row(out, 2), (std::vector<int>{1}));
    CBitsBinFile empty(dir.Path("e").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    empty.Invert(nullptr, true, nullptr, &out);  // no records: the target keeps its own
    EXPECT_EQ(out.GetRecordCount(), 3);
}

TEST(BitRecordFile, TransposeRoundTripsARandomMatrix) {
    TempDir dir;
    std::mt19937 rng(5);
    std::vector<std::vector<int>> rows(300);
    for (auto& row : rows) {
        std::set<int> bits;
        for (int k = 0; k < 20; ++k) bits.insert(static_cast<int>(rng() % 40000));
        row.assign(bits.begin(), bits.end());
    }
    CBitsBinFile f(dir.Path("a").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    AddRows(f, rows);
    CBitsBinFile t(dir.Path("t").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    f.Invert(nullptr, false, nullptr, &t);
    t.Invert(nullptr, false, nullptr, nullptr);
    ASSERT_EQ(t.GetRecordCount(), 300);
    for (int r = 0; r < 300; ++r) EXPECT_EQ(Row(t, r), rows[static_cast<std::size_t>(r)]);
}

TEST(BitRecordFile, ChangesAndReadsSingleBits) {
    TempDir dir;
    CBitsBinFile f(dir.Path("a").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    f.SetAt(2, 5);  // past the end: the file grows
    EXPECT_EQ(f.GetRecordCount(), 3);
    EXPECT_TRUE(f.GetAt(2, 5));
    EXPECT_FALSE(f.GetAt(2, 4));
    EXPECT_FALSE(f.GetAt(2, 800));
    EXPECT_FALSE(f.GetAt(7, 5));
    EXPECT_EQ(f.GetIndexBit(2, 0), 0);
    EXPECT_EQ(f.GetIndexBit(2, 1), 6);
    EXPECT_EQ(f.GetIndexBit(2, 2), 8);
    f.SetAt(2, 2);
    DWORD length = f.CFile::GetLength();
    f.SetAt(2, 2);  // already set: nothing written
    EXPECT_EQ(f.CFile::GetLength(), length);
    EXPECT_EQ(f.GetBitIndex(2, 0), -1);
    EXPECT_EQ(f.GetBitIndex(2, 1), -1);
    EXPECT_EQ(f.GetBitIndex(2, 3), 0);
    EXPECT_EQ(f.GetBitIndex(2, 5), 1);
    EXPECT_EQ(f.GetBitIndex(2, 1000), 1);
    EXPECT_EQ(f.GetBitIndex(0, 3), -1);
    EXPECT_EQ(f.GetCount(2), 2);
    f.SetAt(1, 100000);
    EXPECT_EQ(f.GetCount(1), 1);
    f.ResetAt(2, 5);
    f.ResetAt(2, 2);
    EXPECT_EQ(f.GetRecordLength(2), 0);
    f.ResetAt(2, 2);
    f.SetAt(0, -1);  // a negative bit changes nothing
    EXPECT_EQ(f.GetRecordLength(0), 0);
}

TEST(BitRecordFile, ARunCutShortByTheEndOfADamagedRecordCountsForNothing) {
    TempDir dir;
    CBitsBinFile f(dir.Path("a").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    Bytes damaged = Hex("01 03 FF 10");  // bits 0 and 1, then a 0xFF run without its count
    f.CBinFile::Add(damaged.data(), static_cast<int>(damaged.size()));
    EXPECT_EQ(f.GetCount(0), 2);
    EXPECT_EQ(Row(f, 0), (std::vector<int>{0, 1}));
    EXPECT_FALSE(f.GetAt(0, 8));
    EXPECT_EQ(f.GetIndexBit(0, 3), 8);  // the bits run out at the end of byte 0
    f.SetAt(0, 20);                     // the record is rewritten whole and sound
    EXPECT_EQ(Row(f, 0), (std::vector<int>{0, 1, 20}));
    EXPECT_EQ(f.GetCount(0), 3);
}

TEST(BitRecordFile, UnitesAndIntersectsWholeFiles) {
    TempDir dir;
    {
        CBitsBinFile src(dir.Path("s").c_str(), CFile::modeCreate | CFile::modeReadWrite);
        AddRows(src, {{1}, {}, {2, 50}, {7}});
        CBitsBinFile dst(dir.Path("d").c_str(), CFile::modeCreate | CFile::modeReadWrite);
        AddRows(dst, {{1, 3}, {4}, {50}});
    }
    CBitsBinFile::OrFiles(dir.Path("s").c_str(), dir.Path("d").c_str());
    CBitsBinFile d(dir.Path("d").c_str(), CFile::modeReadWrite);
    EXPECT_EQ(d.GetRecordCount(), 4);
    EXPECT_EQ(Row(d, 0), (std::vector<int>{1, 3}));
    EXPECT_EQ(Row(d, 1), (std::vector<int>{4}));
    EXPECT_EQ(Row(d, 2), (std::vector<int>{2, 50}));
    EXPECT_EQ(Row(d, 3), (std::vector<int>{7}));
    CBitsBinFile narrow(dir.Path("n").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    AddRows(narrow, {{3}, {5}, {50}});
    d.And(&narrow);
    EXPECT_EQ(d.GetRecordCount(), 3);  // past the source's count: gone
    EXPECT_EQ(Row(d, 0), (std::vector<int>{3}));
    EXPECT_EQ(d.GetRecordLength(1), 0);
    EXPECT_EQ(Row(d, 2), (std::vector<int>{50}));
    CBitsBinFile tail(dir.Path("t").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    AddRows(tail, {{3}, {}, {}});
    d.And(&tail);  // trailing records left empty go too
    EXPECT_EQ(d.GetRecordCount(), 1);
    CBitsBinFile none(dir.Path("z").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    d.Or(&none);
    EXPECT_EQ(d.GetRecordCount(), 1);
    d.And(&none);
    EXPECT_EQ(d.GetRecordCount(), 0);
    EXPECT_THROW(d.Or(dir.Path("missing").c_str()), CFileException);
}

// Transposition builds and walks compressed forms without plain bitmaps; both must
// agree byte for byte with compressing and expanding.
TEST(BitRecordFile, CompressedFormsAreBuiltAndWalkedWithoutExpanding) {
    std::mt19937 rng(8);
    std::vector<std::vector<unsigned>> cases = {{}, {0}, {7, 8}, {800000}};
    std::vector<unsigned> fullRuns;  // 0xFF bytes past one run's limit, then a long gap
    for (unsigned b = 0; b < 65537u * 8; ++b) fullRuns.push_back(b);
    fullRuns.push_back(65537u * 8 + 70000u * 8);
    cases.push_back(fullRuns);
    for (int k = 0; k < 200; ++k) {
        std::set<unsigned> bits;
        int n = static_cast<int>(rng() % 400);
        unsigned spread = 1u << (rng() % 20 + 3);
        for (int i = 0; i < n; ++i) bits.insert(rng() % spread);
        cases.emplace_back(bits.begin(), bits.end());
    }
    for (const auto& bits : cases) {
        CBitArray plain;
        for (unsigned b : bits) plain.SetAt(static_cast<int>(b));
        unsigned char* expected = nullptr;
        int expectedLength = 0;
        CBitArray::Compress(plain.GetBuffer(), plain.GetLength(), expected, expectedLength);
        std::vector<unsigned char> built = dorvik::form::EncodeSortedBits(bits);
        ASSERT_EQ(built, Bytes(expected, expected + expectedLength));
        std::vector<unsigned> walked;
        dorvik::form::ForEachSetBit(
            built.data(), static_cast<int>(built.size()),
            [&](long long bit) { walked.push_back(static_cast<unsigned>(bit)); });
        EXPECT_EQ(walked, bits);
        DropBlock(expected);
    }
}

// Intersections of stored records are worked out on the compressed forms; the plain way
// (expand each record no further than the result so far, AND it in) must give the same
// bits, length and flags, for sound records and for byte strings that are no form.
TEST(BitRecordSets, AnIntersectionOnTheFormsEqualsThePlainOne) {
    TempDir dir;
    CBitsBinFile file(dir.Path("r.bin").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    std::mt19937 rng(31);
    for (int k = 0; k < 24; ++k) {
        Bytes plain(1 + rng() % 40000, 0);
        int density = static_cast<int>(rng() % 4);
        for (std::size_t i = 0; i < plain.size(); ++i) {
            if (density == 0) plain[i] = rng() % 40 == 0 ? static_cast<unsigned char>(rng()) : 0;
            if (density == 1) plain[i] = static_cast<unsigned char>(rng() & rng());
            if (density == 2) plain[i] = (i / 5000) % 2 ? 0xFF : static_cast<unsigned char>(rng());
            if (density == 3) plain[i] = static_cast<unsigned char>(rng() | rng() | 0x10);
        }
        if (k % 8 == 7) {  // a stored string that is no form: read as its items say
            for (auto& b : plain) b = rng() % 4 == 0 ? 0 : static_cast<unsigned char>(rng());
            file.CBinFile::Add(plain.data(), static_cast<int>(plain.size()));
        } else {
            file.Add(plain.data(), static_cast<int>(plain.size()));
        }
    }
    file.Add(nullptr, 0);  // an empty record
    for (int round = 0; round < 150; ++round) {
        int count = 2 + static_cast<int>(rng() % 4);
        std::vector<int> list;
        for (int i = 0; i < count; ++i)
            list.push_back(static_cast<int>(rng() % 26));  // 25: past the end
        int limit = rng() % 3 == 0 ? static_cast<int>(rng() % 30000) : -1;
        CBitArray fast, plain;
        file.GetRecords(count, list.data(), fast, false, limit);
        dorvik::Accumulate(count, plain, false, limit, [&](int k, CBitArray& bits, int cut) {
            file.GetRecord(list[static_cast<std::size_t>(k)], bits, cut);
        });
        ASSERT_EQ(fast.GetLength(), plain.GetLength()) << "round " << round;
        EXPECT_TRUE(fast == plain) << "round " << round;
        EXPECT_EQ(fast.IsModified(), plain.IsModified());
        EXPECT_FALSE(fast.IsCompressed());
    }
}
