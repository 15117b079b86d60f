#include <gtest/gtest.h>

#include <vector>

#include "TestUtil.h"
#include "dorvik/BitArray.h"
#include "dorvik/MyDWordArray.h"

namespace {
std::vector<DWORD> Elements(const CMyDWordArray& a) {
    return std::vector<DWORD>(a.GetData(), a.GetData() + a.GetSize());
}

void Fill(CMyDWordArray& a, std::initializer_list<DWORD> values) {
    a.RemoveAll();
    for (DWORD v : values) a.Add(v);
}

// The positions of a list result, released afterwards; empty for a result of 0.
std::vector<DWORD> List(CMyDWordArray& a, DWORD value, int op) {
    DWORD* list = nullptr;
    int n = a.Find(value, static_cast<Operation>(op), list);
    std::vector<DWORD> out(list, list + n);
    if (n > 0) DropBlock(list);
    return out;
}

}  // namespace

TEST(MyDWordArray, SavesAndLoadsThePlainFileForm) {
    TempDir dir;
    CMyDWordArray a;
    Fill(a, {1, 0xFFFFFFFF, 0x01020304});
    a.Save(dir.Path("a").c_str());
    EXPECT_EQ(ReadAll(dir.Path("a")), Words({1, 0xFFFFFFFF, 0x01020304}));

    CMyDWordArray b;
    b.Add(9);
    EXPECT_TRUE(b.Load(dir.Path("a").c_str()));
    EXPECT_TRUE(b == a);
    EXPECT_FALSE(b.IsModified());
    EXPECT_EQ(b.GetLength(), 12);

    EXPECT_TRUE(b.Load(dir.Path("missing").c_str()));  // untouched
    EXPECT_EQ(b.GetSize(), 3);

    WriteAll(dir.Path("odd"), Hex("05000000 0600"));  // a short tail is no element
    EXPECT_TRUE(b.Load(dir.Path("odd").c_str()));
    EXPECT_EQ(Elements(b), (std::vector<DWORD>{5}));

    WriteAll(dir.Path("empty"), Bytes());
    EXPECT_TRUE(b.Load(dir.Path("empty").c_str()));
    EXPECT_EQ(b.GetSize(), 0);
}

TEST(MyDWordArray, TracksModificationAndAdoptsBlocks) {
    CMyDWordArray a;
    EXPECT_FALSE(a.IsModified());
    a.SetSize(3);
    EXPECT_FALSE(a.IsModified());  // SetSize does not count as a change

    DWORD* block = new DWORD[2]{7, 8};
    a.Attach(block, 2);
    EXPECT_FALSE(a.IsModified());
    EXPECT_EQ(Elements(a), (std::vector<DWORD>{7, 8}));
    a[1] = 9;
    EXPECT_TRUE(a.IsModified());
    DWORD* back = a.Detach();
    EXPECT_EQ(back, block);
    EXPECT_EQ(back[1], 9u);
    EXPECT_EQ(a.GetSize(), 0);
    EXPECT_TRUE(a.IsModified());  // Detach keeps the flag
    delete[] back;

    const unsigned char bytes[] = {1, 0, 0, 0, 2, 0, 0, 0, 3};
    a.Init(bytes, 9);  // whole elements only
    EXPECT_EQ(Elements(a), (std::vector<DWORD>{1, 2}));
    EXPECT_FALSE(a.IsModified());

    auto changes = [&](auto op) {
        a.SetModified(false);
        op();
        return a.IsModified();
    };
    CDWordArray other;
    other.Add(4);
    EXPECT_TRUE(changes([&] { a.Add(1); }));
    EXPECT_TRUE(changes([&] { a.SetAt(0, 1); }));
    EXPECT_TRUE(changes([&] { a.SetAtGrow(5, 1); }));
    EXPECT_TRUE(changes([&] { a.ElementAt(0) = 3; }));
    EXPECT_TRUE(changes([&] { a.Append(other); }));
    EXPECT_TRUE(changes([&] { a.Copy(other); }));
    EXPECT_FALSE(changes([&] { (void)a.GetAt(0); }));

    CMyDWordArray longer;
    Fill(longer, {4, 0});
    EXPECT_TRUE(a != longer);
}

TEST(MyDWordArray, SortGivesAStableSignedPermutation) {
    CMyDWordArray a, index;
    Fill(a, {5, 1, 5});
    a.Sort(&index);
    EXPECT_EQ(Elements(index), (std::vector<DWORD>{1, 0, 2}));
    EXPECT_EQ(Elements(a), (std::vector<DWORD>{5, 1, 5}));  // not reordered

    Fill(a, {3, 0xFFFFFFFF, 0, 0x80000000, 3});
    a.Sort(&index);
    EXPECT_EQ(Elements(index), (std::vector<DWORD>{3, 1, 2, 0, 4}));
}

TEST(MyDWordArray, ReadsAndWritesThroughTheIndexArray) {
    CMyDWordArray a, index;
    Fill(a, {50, 10, 40});
    Fill(index, {1, 2, 0});
    index.SetModified(false);
    a.SetIndexFile(&index);
    EXPECT_EQ(a.GetAt(0), 10u);
    EXPECT_EQ(a[2], 50u);
    EXPECT_TRUE(index.IsModified());  // the look-up goes through index[]
    a.SetAt(1, 44);
    EXPECT_EQ(a.GetData()[2], 44u);
    a.SetAtGrow(3, 60);  // physical
    EXPECT_EQ(a.GetData()[3], 60u);

    // A view position the index does not map, or a mapping outside the array, reads 0
    // and takes no writes.
    EXPECT_EQ(a.GetAt(7), 0u);
    index.SetAt(0, 1000);
    EXPECT_EQ(a.GetAt(0), 0u);
    a.ElementAt(0) = 5;
    a.SetAt(0, 5);
    EXPECT_EQ(Elements(a), (std::vector<DWORD>{50, 10, 44, 60}));
}

TEST(MyDWordArray, FindScansWithoutIndex) {
    CMyDWordArray a;
    Fill(a, {5, 2, 9, 2});
    EXPECT_EQ(a.Find(2u), 1);
    EXPECT_EQ(a.Find(7u), -1);
    EXPECT_EQ(List(a, 2, opEqual), (std::vector<DWORD>{1, 3}));
    EXPECT_EQ(List(a, 5, opLess | opEqual), (std::vector<DWORD>{0, 1, 3}));
    EXPECT_EQ(List(a, 0xFFFFFFFF, opLess), (std::vector<DWORD>{0, 1, 2, 3}));  // unsigned
    EXPECT_EQ(List(a, 2, opEqual | opNot), (std::vector<DWORD>{1, 3}));        // 9 acts as 1

    DWORD* untouched = reinterpret_cast<DWORD*>(0x1234);
    EXPECT_EQ(a.Find(7u, opEqual, untouched), 0);
    EXPECT_EQ(untouched, reinterpret_cast<DWORD*>(0x1234));

    CBitArray bits;
    bits.SetAt(20);  // not cleared
    EXPECT_EQ(a.Find(4u, opGreater, bits, true), 2);
    EXPECT_EQ(SetBits(bits), (std::vector<int>{0, 2, 20}));
}

TEST(MyDWordArray, FindSearchesTheSortedView) {
    // Physical 5, 2, 1, 2: the view 1, 2, 2, 5 through the index 2, 1, 3, 0.
    CMyDWordArray a, index;
    Fill(a, {5, 2, 1, 2});
    a.Sort(&index);
    ASSERT_EQ(Elements(index), (std::vector<DWORD>{2, 1, 3, 0}));
    a.SetIndexFile(&index);

    EXPECT_EQ(a.Find(2u), 1);  // the first 2 of the view
    EXPECT_EQ(a.Find(5u), 0);
    EXPECT_EQ(a.Find(3u), -1);
    struct Case {
        DWORD value;
        int op;
        std::vector<DWORD> positions;
    } cases[] = {
        {2, opEqual, {1, 3}},
        {2, opLess | opGreater, {2, 0}},
        {5, opGreater, {}},
        {3, opLess, {2, 1, 3}},  // 3 is not there
        {3, opGreater | opEqual, {0}},
        {0, opEqual, {}},
        {9, opLess | opEqual | opGreater, {2, 1, 3, 0}},
        {2, opEqual | opNot, {1, 3}},
    };
    for (const Case& c : cases)
        EXPECT_EQ(List(a, c.value, c.op), c.positions) << c.value << " op " << c.op;

    CBitArray view, physical;
    EXPECT_EQ(a.Find(2u, opLess | opEqual, view, true), 3);
    EXPECT_EQ(SetBits(view), (std::vector<int>{0, 1, 2}));
    EXPECT_EQ(a.Find(2u, opLess | opEqual, physical, false), 3);
    EXPECT_EQ(SetBits(physical), (std::vector<int>{1, 2, 3}));
}
