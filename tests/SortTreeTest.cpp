#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <numeric>
#include <utility>
#include <vector>

#include "TestUtil.h"
#include "dorvik/IXFile.h"
#include "dorvik/MyDWordArray.h"
#include "dorvik/SortTree.h"

namespace {
std::vector<DWORD> Ids(const CMyDWordArray& a) {
    return std::vector<DWORD>(a.GetData(), a.GetData() + a.GetSize());
}

// A key that counts its comparisons, to see which inserts walk from the root.
struct CountedKey {
    static inline long s_compares = 0;
    int m_nValue = 0;
    CountedKey() = default;
    CountedKey(int v) : m_nValue(v) {}
    int Compare(const CountedKey& other) const {
        ++s_compares;
        return m_nValue < other.m_nValue ? -1 : (m_nValue > other.m_nValue ? 1 : 0);
    }
};

std::vector<std::pair<int, int>> g_progress;
bool Note(int done, int total) {
    g_progress.emplace_back(done, total);
    return false;
}
}  // namespace

TEST(SortTreeKeys, RecordValuesFollowTheSizeRule) {
    struct Case {
        Bytes bytes;
        int size;
        int value;
    } cases[] = {
        {Hex("80"), 1, 128},          {Hex("ff"), 1, 255},
        {Hex("ffff"), 2, 65535},      {Hex("3412"), 2, 0x1234},
        {Hex("ffff7f"), 3, 0x7FFFFF}, {Hex("000080"), 3, -1},
        {Hex("ffffffff"), 4, -1},     {Hex("00000080"), 4, INT32_MIN},
        {Hex("0100000099"), 5, 1},  // sizes above 4 read the first 4 bytes
    };
    for (const Case& c : cases)
        EXPECT_EQ(GetRecordValue(c.bytes.data(), c.size), c.value) << c.size;
    EXPECT_EQ(GetRecordValue(nullptr, 4), 0);
    EXPECT_EQ(GetRecordValue(Hex("01").data(), 0), 0);
}

TEST(SortTreeKeys, CompareSignedNumbersAndUnsignedBytes) {
    CInt minusOne;
    minusOne = static_cast<int>(0xFFFFFFFFu);
    EXPECT_EQ(minusOne.Compare(0), -1);
    EXPECT_EQ(CInt(5).Compare(-7), 1);
    EXPECT_EQ(CInt(5).Compare(5), 0);
    EXPECT_TRUE(CInt(3) == 3);
    EXPECT_EQ(CInt().GetLength(), 4);

    unsigned char ab[] = "ab", abc[] = "abc", b[] = "b", high[] = "\x80", low[] = "\x7f";
    EXPECT_LT(CBuffer(ab, 2).Compare(CBuffer(abc, 3)), 0);  // shorter first on equal bytes
    EXPECT_GT(CBuffer(abc, 3).Compare(CBuffer(ab, 2)), 0);
    EXPECT_GT(CBuffer(b, 1).Compare(CBuffer(abc, 3)), 0);  // bytes before lengths
    EXPECT_LT(CBuffer(nullptr, 0).Compare(CBuffer(low, 1)), 0);
    EXPECT_GT(CBuffer(high, 1).Compare(CBuffer(low, 1)), 0);  // unsigned bytes
    EXPECT_TRUE(CBuffer(ab, 2) == CBuffer(abc, 2));

    // The image may move under the key: it is read through the image pointer.
    char first[] = "xxabc", second[] = "yyabd";
    char* image = first;
    CBufferRef ref(&image, 2, 3);
    char* otherImage = second;
    CBufferRef other(&otherImage, 2, 3);
    EXPECT_LT(ref.Compare(other), 0);
    image = second;
    EXPECT_EQ(ref.Compare(other), 0);
    EXPECT_EQ(std::memcmp(ref.GetBuffer(0), "abd", 3), 0);

    // Index file records: == over the left size, < and > on decoded values.
    unsigned char x[] = {0x80, 0x01}, y[] = {0x7F, 0x01}, z[] = {0x80, 0x02};
    EXPECT_EQ(CIXRecord(1, x, 1) == CIXRecord(3, z, 1), 1);
    EXPECT_EQ(CIXRecord(1, x, 2) == CIXRecord(3, z, 1), 0);
    EXPECT_EQ(CIXRecord(1, x, 1) > CIXRecord(2, y, 1), 1);  // 128 > 127: size 1 is unsigned
    EXPECT_EQ(CIXRecord().IsEmpty(), 1);
}

TEST(SortTree, OrdersTextKeysInsideAMovingImage) {
    // Keys refer into one growing image that moves with every append.
    char* image = nullptr;
    int used = 0;
    CSortTree<CBufferRef> tree;
    for (const char* word : {"pear", "apple", "fig", "apple", "applesauce", ""}) {
        int length = static_cast<int>(std::strlen(word));
        char* moved = static_cast<char*>(GrabBlock(static_cast<std::size_t>(used + length)));
        if (used > 0) std::memcpy(moved, image, static_cast<std::size_t>(used));
        std::memcpy(moved + used, word, static_cast<std::size_t>(length));
        DropBlock(image);  // a stale key would read freed memory
        image = moved;
        tree.Insert(CBufferRef(&image, used, length));
        used += length;
    }
    CMyDWordArray order;
    tree.Save(&order, true, nullptr);
    EXPECT_EQ(Ids(order), (std::vector<DWORD>{5, 1, 3, 4, 2, 0}));
    DropBlock(image);
}

TEST(SortTree, GivesIdsInKeyOrderStableInBothDirections) {
    // Many repeats, inserted in a scrambled order.
    std::vector<int> keys;
    for (int i = 0; i < 3000; ++i) keys.push_back(static_cast<int>((i * 7919u) % 401) - 200);
    CSortTree<CInt> tree;
    for (int k : keys) tree.Insert(CInt(k));
    EXPECT_EQ(tree.GetCount(), 3000);

    std::vector<DWORD> ascending(keys.size()), descending;
    std::iota(ascending.begin(), ascending.end(), 0u);
    descending = ascending;
    std::stable_sort(ascending.begin(), ascending.end(),
                     [&](DWORD x, DWORD y) { return keys[x] < keys[y]; });
    std::stable_sort(descending.begin(), descending.end(),
                     [&](DWORD x, DWORD y) { return keys[x] > keys[y]; });

    CMyDWordArray target;
    target.Add(77);  // emptied first
    tree.Save(&target, true, nullptr);
    EXPECT_EQ(Ids(target), ascending);
    EXPECT_TRUE(target.IsModified());
    tree.Save(&target, false, nullptr);
    EXPECT_EQ(Ids(target), descending);
}

TEST(SortTree, RepeatedKeysKeepOneNode) {
    CSortTree<CInt> tree;
    auto* first = tree.Insert(CInt(4), 10);
    for (int id = 11; id < 15; ++id) EXPECT_EQ(tree.Insert(CInt(4), id), first);
    EXPECT_EQ(first->m_nID, 10);
    EXPECT_EQ(first->m_nOccurrences, 1);
    EXPECT_EQ(tree.GetCount(), 5);
    CMyDWordArray target;
    for (bool ascending : {true, false}) {
        tree.Save(&target, ascending, nullptr);
        EXPECT_EQ(Ids(target), (std::vector<DWORD>{10, 11, 12, 13, 14}));
    }

    // Count-only: repeats only raise the occurrences, and each key comes out once.
    CSortTree<CInt> counting;
    counting.m_bCountOnly = true;
    for (int k : {4, 4, 9, 4, 9}) counting.Insert(CInt(k));
    EXPECT_EQ(counting.GetCount(), 2);
    EXPECT_EQ(counting.Insert(CInt(4))->m_nOccurrences, 4);
    EXPECT_EQ(counting.GetCount(), 2);
    counting.Save(&target, true, nullptr);
    EXPECT_EQ(Ids(target), (std::vector<DWORD>{0, 1}));  // the count at first insertion
    counting.Save(&target, false, nullptr);
    EXPECT_EQ(Ids(target), (std::vector<DWORD>{1, 0}));
}

TEST(SortTree, SaveStepsReportProgressAndEmptyTreesSaveNothing) {
    CSortTree<CInt> tree;
    CMyDWordArray target;
    target.Add(1);
    g_progress.clear();
    tree.Save(&target, true, Note);
    EXPECT_EQ(target.GetSize(), 0);
    EXPECT_TRUE(g_progress.empty());

    // Root 2 with children 1 and 3: every move and every visit is one step.
    for (int k : {2, 1, 3}) tree.Insert(CInt(k));
    tree.Save(&target, true, Note);
    EXPECT_EQ(Ids(target), (std::vector<DWORD>{1, 0, 2}));
    EXPECT_EQ(g_progress,
              (std::vector<std::pair<int, int>>{{0, 3}, {0, 3}, {1, 3}, {1, 3}, {2, 3}, {2, 3}}));
}

TEST(SortTree, SavesIntoAnIndexFileInItsRecordSize) {
    TempDir dir;
    WriteAll(dir.Path("ix"), Hex("aaaa bbbb cccc dddd eeee"));
    CIXFile target(dir.Path("ix").c_str(), CFile::modeReadWrite, 2);
    CSortTree<CInt> tree;
    for (int k : {30, 10, 20}) tree.Insert(CInt(k), k / 10 + 0x100);
    tree.Save(&target, true, nullptr);
    target.Close();
    EXPECT_EQ(ReadAll(dir.Path("ix")), Hex("0101 0201 0301"));
}

TEST(SortTree, SortedInputStaysLinearAndNeverRecurses) {
    // A small run first, so that a lost shortcut fails here instead of crawling below.
    for (int step : {1, -1}) {
        CSortTree<CountedKey> small;
        CountedKey::s_compares = 0;
        for (int i = 0; i < 10000; ++i) small.Insert(CountedKey(step * i));
        ASSERT_LE(CountedKey::s_compares, 20000L) << step;
    }
    const int n = 1000000;
    CountedKey::s_compares = 0;
    CSortTree<CountedKey> rising;
    for (int i = 0; i < n; ++i) rising.Insert(CountedKey(i));
    EXPECT_LE(CountedKey::s_compares, 2L * n);
    CSortTree<CountedKey> falling;
    CountedKey::s_compares = 0;
    for (int i = n - 1; i >= 0; --i) falling.Insert(CountedKey(i));
    EXPECT_LE(CountedKey::s_compares, 1L * n);

    // Repeats of the extremes are found without walking the chain.
    CountedKey::s_compares = 0;
    rising.Insert(CountedKey(0));
    rising.Insert(CountedKey(n - 1));
    EXPECT_LE(CountedKey::s_compares, 3);

    CMyDWordArray up, down;
    rising.Save(&up, true, nullptr);
    falling.Save(&down, false, nullptr);
    ASSERT_EQ(up.GetSize(), n + 2);
    ASSERT_EQ(down.GetSize(), n);
    for (int i = 0; i < n; ++i) {
        ASSERT_EQ(down.GetData()[i], static_cast<DWORD>(i)) << i;  // inserted n-1 first
    }
    EXPECT_EQ(up.GetData()[0], 0u);
    EXPECT_EQ(up.GetData()[1], static_cast<DWORD>(n));  // the repeat of key 0
    EXPECT_EQ(up.GetData()[n], static_cast<DWORD>(n - 1));
    EXPECT_EQ(up.GetData()[n + 1], static_cast<DWORD>(n + 1));

    rising.RemoveAll();  // a chain of a million nodes
    EXPECT_EQ(rising.GetCount(), 0);
    rising.Insert(CountedKey(5));
    rising.Save(&up, true, nullptr);
    EXPECT_EQ(Ids(up), (std::vector<DWORD>{0}));
}
