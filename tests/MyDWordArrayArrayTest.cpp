#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "Dorvik01.h"
#include "TestUtil.h"

namespace {
using Rows = std::vector<Set>;

void Fill(CMyDWordArray* a, std::initializer_list<DWORD> numbers) {
    for (DWORD n : numbers) a->Add(n);
}

std::vector<std::pair<int, int>> g_calls;
bool Record(int index, int total) {
    g_calls.emplace_back(index, total);
    return false;
}
}  // namespace

TEST(MyDWordArrayArray, SavesOneBitPerDistinctNumberDirectly) {
    TempDir dir;
    CMyDWordArrayArray a;
    Fill(a.GetAt(0), {3, 3, 17, 0x80000000u, 0xFFFFFFFFu});  // the last two are skipped
    a.GetAt(1);                                              // no numbers: no record
    Fill(a.GetAt(3), {5});                                   // slot 2 stays null
    g_calls.clear();
    a.Save(dir.Path("a").c_str(), opOr, false, true, &Record);  // packed has no effect
    EXPECT_EQ(g_calls, (std::vector<std::pair<int, int>>{{0, 4}, {1, 4}, {2, 4}, {3, 4}}));
    EXPECT_EQ(RowsOf(dir.Path("a")), (Rows{{3, 17}, {}, {}, {5}}));  // 1, 2 by extension
    a.GetAt(4);  // a trailing element without numbers writes nothing
    a.Save(dir.Path("b").c_str(), opCopy, false, false, nullptr);
    EXPECT_EQ(RowsOf(dir.Path("b")).size(), 4u);
    a.Save(dir.Path("c").c_str(), opAnd, false, false, nullptr);  // applies no numbers
    EXPECT_EQ(RowsOf(dir.Path("c")).size(), 0u);
}

TEST(MyDWordArrayArray, MergesEveryRecordOfTheFile) {
    TempDir dir;
    std::string path = dir.Path("a");
    {
        CBitsBinFile f(path.c_str(), CFile::modeCreate | CFile::modeReadWrite);
        AddRows(f, {{1, 2}, {4}, {7}, {}, {9}});
    }
    std::vector<std::string> before;
    {
        CBitsBinFile f(path.c_str(), CFile::modeRead);
        before = RecordsOf(f);
    }
    CMyDWordArrayArray a;
    a.m_nFirst = 1;  // bounds Init only: Save still visits every index
    a.m_nLast = 0;
    Fill(a.GetAt(0), {2, 1, 2});  // all set already: the record goes over unchanged
    Fill(a.GetAt(1), {5});
    g_calls.clear();
    a.Save(path.c_str(), opOr, true, false, &Record);
    EXPECT_EQ(g_calls.size(), 5u);
    EXPECT_EQ(g_calls.back(), std::make_pair(4, 5));
    EXPECT_EQ(a.GetSize(), 2);  // freed: slots null, size kept
    EXPECT_EQ(static_cast<CPtrArray&>(a).GetAt(1), nullptr);
    CBitsBinFile f(path.c_str(), CFile::modeReadWrite);
    std::vector<std::string> after = RecordsOf(f);
    for (int unchanged : {0, 2, 3, 4}) EXPECT_EQ(after[unchanged], before[unchanged]);
    Fill(a.GetAt(0), {2, 2, 3});
    a.Save(&f, opXor, false, false, nullptr);  // flips each distinct number once
    EXPECT_TRUE(f.IsOpen());
    f.Close();
    EXPECT_EQ(RowsOf(path), (Rows{{1, 3}, {4, 5}, {7}, {}, {9}}));
    a.Save(path.c_str(), opCopy, false, false, nullptr);  // deletes every record first
    EXPECT_EQ(RowsOf(path), (Rows{{2, 3}}));
}

TEST(MyDWordArrayArray, InitReadsRawNumbers) {
    TempDir dir;
    {
        CBinFile f(dir.Path("raw").c_str(), CFile::modeCreate | CFile::modeReadWrite);
        Bytes ten = Cat({Words({7, 0x80000001u}), Hex("aabb")}), one = Words({42});
        f.Add(ten.data(), 10);
        f.Add(one.data(), 4);
        f.Add(one.data(), 4);
    }
    CMyDWordArrayArray a;
    a.m_nLast = 1;
    a.Init(dir.Path("raw").c_str(), nullptr);
    EXPECT_EQ(a.GetSize(), 3);
    ASSERT_EQ(a.GetAt(0)->GetSize(), 2);  // the tail of 2 bytes is dropped
    EXPECT_EQ(a.GetAt(0)->GetAt(1), 0x80000001u);
    EXPECT_EQ(a.GetAt(1)->GetAt(0), 42u);
    EXPECT_EQ(static_cast<CPtrArray&>(a).GetAt(2), nullptr);  // outside the range
    CMyDWordArrayArray s;  // a saved file reads back as its compressed bytes
    for (DWORD n = 0; n < 20; ++n) s.GetAt(0)->Add(n);
    s.Save(dir.Path("bits").c_str(), opCopy, false, false, nullptr);
    CMyDWordArrayArray back;
    back.Init(dir.Path("bits").c_str(), nullptr);
    ASSERT_EQ(back.GetAt(0)->GetSize(), 1);
    EXPECT_EQ(back.GetAt(0)->GetAt(0), 0x0002FF01u);  // marker 01, run FF 02 00, then 0F
}

TEST(MyDWordArrayCollection, SavesImagesAndLoadsThemAsNumbers) {
    TempDir dir;
    CMyDWordArrayCollection c;
    Fill(c.GetAt(0)->GetAt(1), {4, 9});
    Fill(c.GetAt(2)->GetAt(0), {3});
    c.Save(dir.Path("c").c_str(), opOr, true, false, nullptr);
    EXPECT_EQ(static_cast<CPtrArray&>(c).GetAt(0), nullptr);
    CMyDWordArrayCollection more;
    Fill(more.GetAt(0)->GetAt(1), {5});
    more.Save(dir.Path("c").c_str(), opOr, false, false, nullptr);  // merged image by image
    {
        CNDimBitsBinFile index(dir.Path("c").c_str(), CFile::shareDenyNone);
        EXPECT_EQ(index.GetRecordCount(), 3);
        int cell[] = {0, 1}, other[] = {2, 0}, empty[] = {1};
        for (int bit : {4, 5, 9}) EXPECT_TRUE(index.GetAt(2, cell, bit)) << bit;
        EXPECT_TRUE(index.GetAt(2, other, 3));
        EXPECT_EQ(index.GetRecordCount(1, empty), 0);
    }
    CMyDWordArrayCollection back;
    back.Init(dir.Path("c").c_str(), nullptr);
    EXPECT_EQ(back.GetSize(), 3);
    EXPECT_EQ(back.GetAt(0)->GetSize(), 2);
    EXPECT_EQ(back.GetAt(0)->GetAt(1)->GetSize(), 0);  // 3 stored bytes: no whole number
}
