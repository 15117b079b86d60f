#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Dorvik01.h"

namespace {
std::vector<std::string> Pairs(const CMapStringToString& map) {
    std::vector<std::string> out;
    for (POSITION p = map.GetStartPosition(); p;) {
        CString key, value;
        map.GetNextAssoc(p, key, value);
        out.push_back(std::string(key) + "=" + std::string(value));
    }
    return out;
}
}  // namespace

TEST(Maps, StringMapIteratesInInsertionOrderThroughReplaceAndRemove) {
    CMapStringToString map(10);
    EXPECT_EQ(map.GetStartPosition(), nullptr);
    map.SetAt("b", "1");
    map.SetAt("a", "2");
    map["c"];             // a new key comes with the empty value
    map.SetAt("b", "3");  // replacing keeps the place
    EXPECT_EQ(Pairs(map), (std::vector<std::string>{"b=3", "a=2", "c="}));
    EXPECT_TRUE(map.RemoveKey("b"));
    EXPECT_FALSE(map.RemoveKey("b"));
    map.SetAt("b", "4");  // set again: last
    EXPECT_EQ(Pairs(map), (std::vector<std::string>{"a=2", "c=", "b=4"}));
    CString value = "untouched";
    EXPECT_FALSE(map.Lookup("B", value));  // case counts
    EXPECT_EQ(value, "untouched");
    map.SetAt("x", map["a"]);  // a value that lies in the map itself
    EXPECT_TRUE(map.Lookup("x", value));
    EXPECT_EQ(value, "2");
}

TEST(Maps, ValuesOfChangingLengthKeepTheirNeighbours) {
    // Small maps keep their pairs packed: values that grow and shrink move the pairs
    // behind them, and the ninth key or a reference moves all of them to a table.
    CMapStringToString map;
    map.SetAt("a", "1");
    map.SetAt("b", "22");
    map.SetAt("c", "333");
    map.SetAt("b", "a much longer value than before");
    map.SetAt("a", "");
    EXPECT_EQ(Pairs(map),
              (std::vector<std::string>{"a=", "b=a much longer value than before", "c=333"}));
    map.SetAt("b", "x");
    EXPECT_TRUE(map.RemoveKey("a"));
    EXPECT_EQ(Pairs(map), (std::vector<std::string>{"b=x", "c=333"}));
    for (char k = 'd'; k <= 'j'; ++k) map.SetAt(std::string(1, k).c_str(), "v");
    EXPECT_EQ(map.GetCount(), 9);
    EXPECT_EQ(Pairs(map).front(), "b=x");
    EXPECT_EQ(Pairs(map).back(), "j=v");
    CMapStringToString small;
    small.SetAt("p", "1");
    small.SetAt("q", "2");
    small["p"] += "0";  // a reference into the map
    EXPECT_EQ(Pairs(small), (std::vector<std::string>{"p=10", "q=2"}));
}

TEST(Maps, LargeMapsFindEveryKeyAfterRemovals) {
    // Past eight keys the look-up goes through a hash table; removals rebuild it.
    CMapStringToString map;
    for (int i = 0; i < 1000; ++i) map.SetAt(std::to_string(i).c_str(), std::to_string(-i).c_str());
    for (int i = 0; i < 1000; i += 3) EXPECT_TRUE(map.RemoveKey(std::to_string(i).c_str()));
    EXPECT_EQ(map.GetCount(), 666);
    for (int i = 0; i < 1000; ++i) {
        CString value;
        EXPECT_EQ(map.Lookup(std::to_string(i).c_str(), value) != 0, i % 3 != 0) << i;
        if (i % 3) {
            EXPECT_EQ(value, std::to_string(-i).c_str());
        }
    }
    std::vector<std::string> pairs = Pairs(map);
    ASSERT_EQ(pairs.size(), 666u);
    EXPECT_EQ(pairs.front(), "1=-1");
    EXPECT_EQ(pairs.back(), "998=-998");
    map.RemoveAll();
    EXPECT_EQ(map.GetCount(), 0);
    EXPECT_EQ(map.GetStartPosition(), nullptr);
}

TEST(Maps, PointerMapInsertsNullForNewKeys) {
    CMapStringToPtr map(10);
    int a = 0, b = 0;
    EXPECT_EQ(map["x"], nullptr);
    map["x"] = &a;
    map.SetAt("", &b);  // the empty key, also reached by null
    void* found = nullptr;
    EXPECT_TRUE(map.Lookup(nullptr, found));
    EXPECT_EQ(found, &b);
    EXPECT_TRUE(map.RemoveKey("x"));
    EXPECT_FALSE(map.Lookup("x", found));
    EXPECT_EQ(map.GetCount(), 1);
    POSITION p = map.GetStartPosition();
    CString key;
    map.GetNextAssoc(p, key, found);
    EXPECT_EQ(key, "");
    EXPECT_EQ(p, nullptr);
}
