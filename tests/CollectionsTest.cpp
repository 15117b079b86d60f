#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <vector>

#include "Dorvik01.h"
#include "TestUtil.h"

namespace {
std::vector<int> g_totals;
bool Record(int, int total) {
    g_totals.push_back(total);
    return false;  // ignored
}
}  // namespace

TEST(BitArrayArray, MakesElementsOnDemand) {
    TempDir dir;
    CBitArrayArray a;
    a.Init(dir.Path("new").c_str(), nullptr);  // a missing file is created empty
    EXPECT_TRUE(Exists(dir.Path("new")));
    EXPECT_EQ(a.GetSize(), 0);
    EXPECT_EQ(a.GetTail(), nullptr);
    CBitArray* fifth = a.GetAt(5);
    ASSERT_NE(fifth, nullptr);
    EXPECT_EQ(a.GetSize(), 6);
    EXPECT_EQ(static_cast<CPtrArray&>(a).GetAt(2), nullptr);
    EXPECT_EQ(a.GetAt(5), fifth);
    EXPECT_EQ(a.GetAt(-1), nullptr);
    a.SetSize(8, -1);
    EXPECT_NE(a.GetTail(), nullptr);  // a null last slot gets an element
    CBitArrayArray packed(true);
    EXPECT_TRUE(packed.GetAt(0)->IsCompressed());
}

TEST(BitArrayArray, SavesDirectlyAndLoadsBack) {
    TempDir dir;
    CBitArrayArray a(true);  // compressed elements reach the file as they stand
    a.GetAt(0)->SetAt(3);
    a.GetAt(2)->SetAt(70000);
    a.Save(dir.Path("a").c_str(), opOr, false, false, nullptr);
    CBitsBinFile f(dir.Path("a").c_str(), CFile::modeRead);
    EXPECT_EQ(f.GetRecordCount(), 3);
    EXPECT_EQ(Row(f, 0), (std::vector<int>{3}));
    EXPECT_EQ(f.GetRecordLength(1), 0);
    EXPECT_EQ(Row(f, 2), (std::vector<int>{70000}));
    CBitArrayArray b;
    b.Init(&f, nullptr);
    EXPECT_EQ(b.GetSize(), 3);
    EXPECT_TRUE(b.GetAt(2)->GetAt(70000));
    EXPECT_EQ(b.m_nMaxLength, 70000 / 8 + 1);
}

TEST(BitArrayArray, MergesIntoAFileWithRecords) {
    TempDir dir;
    {
        CBitsBinFile f(dir.Path("a").c_str(), CFile::modeCreate | CFile::modeReadWrite);
        AddRows(f, {{0}, {1}, {2}, {3}});
    }
    CBitsBinFile f(dir.Path("a").c_str(), CFile::modeReadWrite);
    CBitArrayArray a;
    a.GetAt(0)->SetAt(1);
    a.GetAt(2)->SetAt(5);
    a.GetAt(6)->SetAt(9);  // past the file: appended
    g_totals.clear();
    {
        // The merge's temporary lies beside the file, so its rename never crosses file
        // systems: it works with no $TMPDIR to write to, and leaves nothing beside the file.
        TempFolder tmp;
        std::filesystem::remove_all(std::getenv("TMPDIR"));
        a.Save(&f, opOr, true, false, &Record);
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.Path("")), {}), 1);
    }
    EXPECT_TRUE(f.IsOpen());  // reopened on the same path
    EXPECT_EQ(f.GetRecordCount(), 7);
    EXPECT_EQ(Row(f, 0), (std::vector<int>{0, 1}));
    EXPECT_EQ(Row(f, 1), (std::vector<int>{1}));
    EXPECT_EQ(Row(f, 2), (std::vector<int>{2, 5}));
    EXPECT_EQ(Row(f, 3), (std::vector<int>{3}));
    EXPECT_EQ(Row(f, 6), (std::vector<int>{9}));
    EXPECT_EQ(g_totals, (std::vector<int>{7, 7, 7}));
    EXPECT_EQ(a.GetSize(), 7);  // freed: slots null, size kept
    EXPECT_EQ(static_cast<CPtrArray&>(a).GetAt(0), nullptr);
    a.GetAt(2)->SetAt(2);
    a.Save(&f, opXor, false, false, nullptr);  // the union becomes empty: an empty record
    EXPECT_EQ(Row(f, 2), (std::vector<int>{5}));
    a.GetAt(2)->ResetAt(2);
    a.GetAt(2)->SetAt(5);
    a.Save(&f, opXor, false, false, nullptr);
    EXPECT_EQ(f.GetRecordLength(2), 0);
    f.Close();
    EXPECT_TRUE(CBinFile::IsValidBinFile(dir.Path("a").c_str()));
}

TEST(BitArrayArray, CopyReplacesAndPackedStoresAMap) {
    TempDir dir;
    CBitsBinFile f(dir.Path("a").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    AddRows(f, {{1}, {2}, {3}});
    CBitArrayArray a;
    a.GetAt(2)->SetAt(20);
    a.GetAt(7)->SetAt(70);
    a.Save(&f, opCopy, false, true, nullptr);
    EXPECT_EQ(f.GetRecordCount(), 3);
    EXPECT_EQ(Row(f, 0), (std::vector<int>{2, 7}));
    EXPECT_EQ(Row(f, 1), (std::vector<int>{20}));
    EXPECT_EQ(Row(f, 2), (std::vector<int>{70}));
    CBitArrayArray b;
    b.GetAt(0)->SetAt(4);
    b.Save(dir.Path("a2").c_str(), opCopy, false, false, nullptr);
    b.Save(dir.Path("a2").c_str(), opCopy, false, false, nullptr);  // truncated, not merged
    CBitsBinFile g(dir.Path("a2").c_str(), CFile::modeRead);
    EXPECT_EQ(g.GetRecordCount(), 1);
    EXPECT_EQ(Row(g, 0), (std::vector<int>{4}));
}

TEST(BitArrayArray, MergesIntoAMemoryTwinAndReloadsIt) {
    CMemBitsBinFile m;
    AddRows(m, {{1}, {2}});
    CBitArrayArray a;
    a.GetAt(1)->SetAt(8);
    a.Save(&m, opOr, false, false, nullptr);
    EXPECT_EQ(m.GetRecordCount(), 2);
    EXPECT_EQ(Row(m, 0), (std::vector<int>{1}));
    EXPECT_EQ(Row(m, 1), (std::vector<int>{2, 8}));
    CBitsBinFile closed;  // neither a path nor memory: refused before any change
    EXPECT_THROW(a.Save(&closed, opOr, false, false, nullptr), CFileException);
}

TEST(BitArrayCollection, SavesImagesThatReadAsATwoDimensionalFile) {
    TempDir dir;
    CBitArrayCollection c;
    c.GetAt(0)->GetAt(0x41)->SetAt(1);
    c.GetAt(0)->GetAt(0x42)->SetAt(2);
    c.GetAt(3)->GetAt(5)->SetAt(7);
    c.Save(dir.Path("c").c_str(), opOr, true, false, nullptr);
    {
        CNDimBitsBinFile index(dir.Path("c").c_str(), CFile::shareDenyNone);
        EXPECT_EQ(index.GetRecordCount(), 4);
        int cell[] = {0, 0x42};
        EXPECT_TRUE(index.GetAt(2, cell, 2));
        int other[] = {3, 5};
        EXPECT_TRUE(index.GetAt(2, other, 7));
        int empty[] = {1};
        EXPECT_EQ(index.GetRecordCount(1, empty), 0);
    }
    CBitArrayCollection more;
    more.GetAt(0)->GetAt(0x41)->SetAt(9);
    more.GetAt(5)->GetAt(0)->SetAt(0);
    more.Save(dir.Path("c").c_str(), opOr, false, false, nullptr);  // merged record by record
    CBitArrayCollection back;
    back.Init(dir.Path("c").c_str(), nullptr);
    EXPECT_EQ(back.GetSize(), 6);
    EXPECT_TRUE(back.GetAt(0)->GetAt(0x41)->GetAt(1));
    EXPECT_TRUE(back.GetAt(0)->GetAt(0x41)->GetAt(9));
    EXPECT_TRUE(back.GetAt(0)->GetAt(0x42)->GetAt(2));
    EXPECT_TRUE(back.GetAt(3)->GetAt(5)->GetAt(7));
    EXPECT_TRUE(back.GetAt(5)->GetAt(0)->GetAt(0));
}
