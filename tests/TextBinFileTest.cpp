#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "TestUtil.h"
#include "dorvik/BitArray.h"
#include "dorvik/IXFile.h"
#include "dorvik/TextBinFile.h"

namespace {
constexpr UINT kCreate = CFile::modeCreate | CFile::modeReadWrite;

using Strings = std::vector<std::string>;

Strings View(CTextBinFile& f) {
    Strings out;
    for (int s = 0; s < f.GetRecordCount(); ++s) out.push_back(std::string(f[s]));
    return out;
}

Strings Records(CTextBinFile& f) {
    Strings out;
    CString text;
    for (int r = 0; r < f.CBinFile::GetRecordCount(); ++r) {
        f.GetString(r, text, false);
        out.push_back(std::string(text));
    }
    return out;
}

Bytes Image(const Strings& words) {
    std::vector<Bytes> records;
    for (const std::string& w : words) records.push_back(B(w));
    return RecordFileImage(records);
}

bool AddSorted(CTextBinFile& f, const std::string& word, int& record, bool duplicates = false) {
    return f.Add(word.c_str(), static_cast<int>(word.size()), record, true, duplicates);
}

std::vector<int> g_calls;
int AcceptAll(int serial) {
    g_calls.push_back(serial);
    return 1;
}
int AcceptNone(int serial) {
    g_calls.push_back(serial);
    return 0;
}
int AcceptStop(int serial) {
    g_calls.push_back(serial);
    return -1;
}
int AcceptOdd(int serial) { return serial % 2 ? 1 : 0; }

// Every hit of a forward scan, from the first serial on.
std::vector<int> Hits(CTextBinFile& f, const char* text, bool wholeWord, bool anchored, bool exact,
                      const char* ignore = nullptr) {
    std::vector<int> hits;
    for (int s = f.Find(-1, text, ignore, false, wholeWord, anchored, false, false, exact, nullptr);
         s >= 0;
         s = f.Find(s, text, ignore, false, wholeWord, anchored, false, false, exact, nullptr))
        hits.push_back(s);
    return hits;
}
}  // namespace

// ---- Storage ---------------------------------------------------------------------------

TEST(TextBinFileSortedAdd, KeepsTheFileInByteOrderWithPrefixesFirst) {
    TempDir dir;
    CTextBinFile f(dir.Path("t.bin").c_str(), kCreate);
    int record = -1;
    EXPECT_TRUE(AddSorted(f, "abc", record));
    EXPECT_EQ(record, 0);  // an empty file takes the word as it comes
    for (const char* w : {"ab", "abcd", "b", "a", "\xE1", "aa"}) {
        EXPECT_TRUE(AddSorted(f, w, record)) << w;
        CString stored;
        f.GetString(record, stored, false);
        EXPECT_EQ(std::string(stored), w);  // `record` names the new word
    }
    Strings sorted = {"a", "aa", "ab", "abc", "abcd", "b", "\xE1"};
    EXPECT_EQ(ReadAll(dir.Path("t.bin")), Image(sorted));

    // A stored word: refused without duplicates, the file untouched, `record` names it.
    EXPECT_FALSE(AddSorted(f, "ab", record));
    EXPECT_EQ(record, 2);
    EXPECT_EQ(ReadAll(dir.Path("t.bin")), Image(sorted));
    EXPECT_TRUE(AddSorted(f, "ab", record, true));
    EXPECT_EQ(record, 3);  // directly behind the equal word
    EXPECT_EQ(Records(f), (Strings{"a", "aa", "ab", "ab", "abc", "abcd", "b", "\xE1"}));

    // Unsorted: appended.
    EXPECT_TRUE(f.Add("0", -1, record, false, false));
    EXPECT_EQ(record, 8);
}

TEST(TextBinFileReading, ZeroBytesCutTheTextAndRangesReadEmpty) {
    TempDir dir;
    CTextBinFile f(dir.Path("t.bin").c_str(), kCreate);
    unsigned char withZero[] = {'a', 'b', 0, 'c', 'd'};
    f.CBinFile::Add(withZero, 5);
    int record = -1;
    // The record sorts by all its bytes: "ab" is a prefix of it, not equal to it.
    EXPECT_TRUE(AddSorted(f, "ab", record));
    EXPECT_EQ(record, 0);
    CString text;
    f.GetString(1, text, true);
    EXPECT_EQ(text.GetLength(), 2);
    unsigned char* bytes = nullptr;
    int length = 0;
    f.GetRecord(1, bytes, length, true);
    EXPECT_EQ(length, 5);
    DropBlock(bytes);

    text = "junk";
    for (int bad : {-1, 2, 1000, INT32_MIN}) {
        f.GetString(bad, text, true);
        EXPECT_TRUE(text.IsEmpty()) << bad;
        f.GetString(bad, text, false);
        EXPECT_TRUE(text.IsEmpty()) << bad;
        EXPECT_EQ(f.GetSerialRecord(bad), -1);
        EXPECT_EQ(f.GetRecordSerial(bad), -1);
    }
}

TEST(TextBinFileView, IndexFileGivesSortedSerialsOverArrivalOrder) {
    TempDir dir;
    CTextBinFile f(dir.Path("t.bin").c_str(), kCreate);
    CIXFile index(dir.Path("t.ix").c_str(), kCreate);
    f.SetIndexFile(&index);
    int record = -1;
    // With an index file every Add is sorted.
    EXPECT_TRUE(f.Add("pear", -1, record, false, false));
    EXPECT_EQ(record, 0);
    EXPECT_EQ(ReadAll(dir.Path("t.ix")), Words({0}));
    for (const char* w : {"apple", "fig", "banana"})
        EXPECT_TRUE(f.Add(w, -1, record, false, false));
    EXPECT_EQ(record, 3);
    EXPECT_FALSE(f.Add("apple", -1, record, false, false));
    EXPECT_EQ(record, 1);  // the record number of the equal word, not its serial

    EXPECT_EQ(View(f), (Strings{"apple", "banana", "fig", "pear"}));
    EXPECT_EQ(Records(f), (Strings{"pear", "apple", "fig", "banana"}));
    EXPECT_EQ(ReadAll(dir.Path("t.ix")), Words({1, 3, 2, 0}));
    for (int s = 0; s < 4; ++s) EXPECT_EQ(f.GetRecordSerial(f.GetSerialRecord(s)), s);
    EXPECT_EQ(f.GetSerialRecord(4), -1);
    EXPECT_EQ(std::string(f[4]), "");

    // A serial insert appends the record and puts its position into the index file.
    unsigned char z[] = {'z'};
    f.Insert(-1, z, 1);
    EXPECT_EQ(View(f), (Strings{"z", "apple", "banana", "fig", "pear"}));
    EXPECT_EQ(f.GetSerialRecord(0), 4);
}

TEST(TextBinFileView, FilterSelectsSerialsAndFollowsChanges) {
    TempDir dir;
    CTextBinFile f(dir.Path("t.bin").c_str(), kCreate);
    for (const char* w : {"a", "b", "c", "d", "e"}) f.Add(w);
    unsigned char bits[] = {0x16};  // records 1, 2, 4
    f.SetFilter(bits, 1);
    EXPECT_EQ(f.GetRecordCount(), 3);
    EXPECT_EQ(View(f), (Strings{"b", "c", "e"}));
    EXPECT_EQ(f.GetRecordSerial(4), 2);
    EXPECT_EQ(f.GetRecordSerial(3), -1);  // not in the view

    // A sorted Add opens the new record's bit: the word joins the view at its place.
    int record = -1;
    EXPECT_TRUE(AddSorted(f, "d", record));
    EXPECT_EQ(record, 3);
    EXPECT_EQ(Records(f), (Strings{"a", "b", "c", "d", "d", "e"}));
    EXPECT_EQ(View(f), (Strings{"b", "c", "d", "e"}));

    f.Delete(0, 1);  // "b" and "c"
    EXPECT_EQ(Records(f), (Strings{"a", "d", "d", "e"}));
    EXPECT_EQ(View(f), (Strings{"d", "e"}));
    EXPECT_EQ(f.GetSerialRecord(0), 1);  // the "d" that came with the sorted Add

    f.SetFilter(nullptr, 0);
    EXPECT_EQ(f.GetFilter(), nullptr);
    EXPECT_EQ(f.GetRecordCount(), 4);
}

TEST(TextBinFileChanges, InsertModifyAndDeleteTakeSerials) {
    TempDir dir;
    CTextBinFile plain(dir.Path("p.bin").c_str(), kCreate);
    plain.Add("m");
    unsigned char z[] = {'z'};
    plain.Insert(-1, z, 1);
    EXPECT_EQ(Records(plain), (Strings{"z", "m"}));

    // Delete through an index file: the remaining entries close up over the removed
    // records, so every serial still reads its word.
    CTextBinFile f(dir.Path("t.bin").c_str(), kCreate);
    CIXFile index(dir.Path("t.ix").c_str(), kCreate);
    f.SetIndexFile(&index);
    int record = -1;
    for (const char* w : {"m", "c", "x", "a", "q"}) f.Add(w, -1, record, true, false);
    f.Delete(1, 2);  // serials of "c" and "m", records 1 and 0
    EXPECT_EQ(Records(f), (Strings{"x", "a", "q"}));
    EXPECT_EQ(ReadAll(dir.Path("t.bin")), Image({"x", "a", "q"}));
    EXPECT_EQ(ReadAll(dir.Path("t.ix")), Words({1, 2, 0}));
    EXPECT_EQ(View(f), (Strings{"a", "q", "x"}));
    for (int s = 0; s < 3; ++s) EXPECT_EQ(f.GetRecordSerial(f.GetSerialRecord(s)), s);

    unsigned char y[] = {'y', 'y'};
    f.Modify(2, y, 2);  // serial 2 is record 0
    EXPECT_EQ(Records(f), (Strings{"yy", "a", "q"}));
    f.Modify(3, y, 2);  // outside the view: nothing
    f.Delete(5, 9);
    EXPECT_EQ(Records(f), (Strings{"yy", "a", "q"}));
}

// ---- Sort-tree mode --------------------------------------------------------------------

TEST(TextBinFileSortTree, UniqueDecidesWhetherRepeatsAreStored) {
    for (bool unique : {true, false}) {
        TempDir dir;
        CTextBinFile f(dir.Path("t.bin").c_str(), kCreate);
        CIXFile index(dir.Path("t.ix").c_str(), kCreate);
        f.SetIndexFile(&index);
        f.InitSortTree(true, unique, nullptr, nullptr);
        int record = -1;
        EXPECT_TRUE(f.Add("b", -1, record, false, false));
        EXPECT_EQ(record, 0);
        EXPECT_TRUE(f.Add("a", -1, record, false, false));
        EXPECT_EQ(record, 1);
        EXPECT_EQ(f.Add("b", -1, record, false, false), !unique);
        EXPECT_EQ(record, 0);  // the first "b" in either case
        EXPECT_EQ(f.GetRecordCount(), unique ? 2 : 3);
        f.Add("c");
        CString text;
        f.GetString(1, text, false);  // read from memory
        EXPECT_EQ(std::string(text), "a");
        EXPECT_EQ(ReadAll(dir.Path("t.bin")), Words({0}));  // nothing on disk yet

        f.FreeSortTree(true, nullptr);
        if (unique) {
            EXPECT_EQ(ReadAll(dir.Path("t.bin")), Image({"b", "a", "c"}));
            EXPECT_EQ(ReadAll(dir.Path("t.ix")), Words({1, 0, 2}));
        } else {
            EXPECT_EQ(ReadAll(dir.Path("t.bin")), Image({"b", "a", "b", "c"}));
            EXPECT_EQ(ReadAll(dir.Path("t.ix")), Words({1, 0, 2, 3}));
        }
    }
}

TEST(TextBinFileSortTree, RepeatsAlreadyStoredKeepIdsAsRecordNumbers) {
    TempDir dir;
    CTextBinFile f(dir.Path("t.bin").c_str(), kCreate);
    for (const char* w : {"b", "a", "b", "c"}) f.Add(w);
    CIXFile index(dir.Path("t.ix").c_str(), kCreate);
    f.SetIndexFile(&index);
    f.Sort(true, true, nullptr, nullptr);
    EXPECT_EQ(ReadAll(dir.Path("t.ix")), Words({1, 0, 3}));  // the second "b" stays out
    // The view still counts every record; the serial the index does not fill reads empty.
    EXPECT_EQ(View(f), (Strings{"a", "b", "c", ""}));
    EXPECT_EQ(Records(f), (Strings{"b", "a", "b", "c"}));

    f.InitSortTree(false, true, nullptr, nullptr);
    int record = -1;
    EXPECT_TRUE(f.Add("d", -1, record, false, false));
    EXPECT_EQ(record, 4);  // its record number, although the tree holds 3 words before it
    f.FreeSortTree(false, nullptr);
    EXPECT_EQ(ReadAll(dir.Path("t.ix")), Words({4, 3, 0, 1}));
    EXPECT_EQ(View(f), (Strings{"d", "c", "b", "a", ""}));
}

TEST(TextBinFileSortTree, CloseWritesTheWordsBackAndDestructionDropsThem) {
    TempDir dir;
    {
        CTextBinFile f(dir.Path("c.bin").c_str(), kCreate);
        f.InitSortTree(true, true, nullptr, nullptr);
        f.Add("x");
        unsigned char bits[] = {1};
        f.SetFilter(bits, 1);  // refused in this mode
        EXPECT_EQ(f.GetFilter(), nullptr);
        f.Close();
        EXPECT_EQ(ReadAll(dir.Path("c.bin")), Image({"x"}));
    }
    {
        CTextBinFile f(dir.Path("d.bin").c_str(), kCreate);
        f.Add("old");
        CIXFile index(dir.Path("d.ix").c_str(), kCreate);  // destroyed before the text file
        f.SetIndexFile(&index);
        f.InitSortTree(true, false, nullptr, nullptr);
        f.Add("new");
    }
    EXPECT_EQ(ReadAll(dir.Path("d.bin")), Image({"old"}));
    EXPECT_EQ(ReadAll(dir.Path("d.ix")), Bytes{});  // left alone
}

TEST(TextBinFileSortTree, BulkBuildReadsLikeSortedAddOneByOne) {
    std::mt19937 rng(20240611);
    const char alphabet[] = {'a', 'b', 'c', ' ', '\xE1', '\xF3'};
    Strings words;
    for (int i = 0; i < 1500; ++i) {
        std::string w;
        for (int n = 1 + static_cast<int>(rng() % 4); n > 0; --n)
            w += alphabet[rng() % sizeof alphabet];
        words.push_back(w);
    }
    std::multiset<std::string> all(words.begin(),
                                   words.end());  // std::string orders by unsigned bytes
    std::set<std::string> distinct(words.begin(), words.end());

    for (bool unique : {true, false}) {
        TempDir dir;
        CTextBinFile bulk(dir.Path("bulk.bin").c_str(), kCreate);
        CIXFile bulkIndex(dir.Path("bulk.ix").c_str(), kCreate);
        bulk.SetIndexFile(&bulkIndex);
        bulk.InitSortTree(true, unique, nullptr, nullptr);
        CTextBinFile single(dir.Path("one.bin").c_str(), kCreate);
        CIXFile singleIndex(dir.Path("one.ix").c_str(), kCreate);
        single.SetIndexFile(&singleIndex);
        CTextBinFile physical(dir.Path("phys.bin").c_str(), kCreate);
        for (const std::string& w : words) {
            int a = -1, b = -1, c = -1;
            bool added = bulk.Add(w.c_str(), static_cast<int>(w.size()), a, true, !unique);
            EXPECT_EQ(single.Add(w.c_str(), static_cast<int>(w.size()), b, true, !unique), added);
            EXPECT_EQ(AddSorted(physical, w, c, !unique), added);
        }
        bulk.FreeSortTree(true, nullptr);
        Strings expected =
            unique ? Strings(distinct.begin(), distinct.end()) : Strings(all.begin(), all.end());
        EXPECT_EQ(View(bulk), expected);
        EXPECT_EQ(View(single), expected);
        EXPECT_EQ(Records(physical), expected);
    }
}

// ---- Direct search ---------------------------------------------------------------------

TEST(TextSearch, ScanLeavesStartOutAndWrapTestsItLast) {
    TempDir dir;
    CTextBinFile f(dir.Path("t.bin").c_str(), kCreate);
    for (const char* w : {"ab", "cd", "ab", "ef"}) f.Add(w);
    auto find = [&](int start, const char* text, bool backward, bool wrap) {
        return f.Find(start, text, nullptr, backward, false, false, wrap, false, false, nullptr);
    };
    EXPECT_EQ(find(-1, "ab", false, false), 0);
    EXPECT_EQ(find(0, "ab", false, false), 2);
    EXPECT_EQ(find(2, "ab", false, false), -1);
    EXPECT_EQ(find(2, "ab", false, true), 0);
    EXPECT_EQ(find(3, "ef", false, false), -1);
    EXPECT_EQ(find(3, "ef", false, true), 3);
    EXPECT_EQ(find(2, "ab", true, false), 0);
    EXPECT_EQ(find(0, "ab", true, false), -1);
    EXPECT_EQ(find(0, "ab", true, true), 2);

    g_calls.clear();
    EXPECT_EQ(f.Find(1, "zz", nullptr, false, false, false, true, false, false, AcceptAll), -1);
    EXPECT_EQ(g_calls, (std::vector<int>{2, 3, 0, 1}));
    g_calls.clear();
    EXPECT_EQ(f.Find(1, "zz", nullptr, true, false, false, true, false, false, AcceptAll), -1);
    EXPECT_EQ(g_calls, (std::vector<int>{0, 3, 2, 1}));
}

TEST(TextSearch, SwitchesDecideWhatMatches) {
    TempDir dir;
    CTextBinFile f(dir.Path("t.bin").c_str(), kCreate);
    for (const char* w : {"ab", "ab cd", "abc", "x ab y", "xab", "abab", "cd ab", "xab ab"})
        f.Add(w);
    EXPECT_EQ(Hits(f, "ab", true, true, false), (std::vector<int>{0, 1}));
    EXPECT_EQ(Hits(f, "ab", true, false, false), (std::vector<int>{0, 1, 3, 6, 7}));
    EXPECT_EQ(Hits(f, "ab", true, true, true), (std::vector<int>{0}));  // exact goes first
    EXPECT_EQ(Hits(f, "ab", false, true, false), (std::vector<int>{0, 1, 2, 5}));
    EXPECT_EQ(Hits(f, "ab", false, false, false), (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7}));
    EXPECT_EQ(Hits(f, "b a", true, false, false), (std::vector<int>{}));
    EXPECT_EQ(Hits(f, "ab y", true, false, false), (std::vector<int>{3}));
    // An empty text with wholeWord finds nothing; anchored it is a prefix of all.
    EXPECT_EQ(f.Find(-1, "", nullptr, false, true, false, true, false, false, nullptr), -1);
    EXPECT_EQ(f.Find(-1, "", nullptr, false, false, true, false, false, false, nullptr), 0);
    EXPECT_EQ(f.Find(-1, nullptr, nullptr, false, false, false, true, false, false, nullptr), -1);
}

TEST(TextSearch, IgnoredBytesCountOnNeitherSide) {
    TempDir dir;
    CTextBinFile f(dir.Path("t.bin").c_str(), kCreate);
    for (const char* w : {"\xC8\xC7\xD1", "\xC8\xF3\xC7\xF8\xD1", "\xC8\xC7"}) f.Add(w);
    EXPECT_EQ(Hits(f, "\xC8\xC7\xD1", false, true, true), (std::vector<int>{0}));
    EXPECT_EQ(Hits(f, "\xC8\xC7\xD1", false, true, true, DiacriticMarks), (std::vector<int>{0, 1}));
    EXPECT_EQ(Hits(f, "\xC8\xF3\xC7", false, false, false, DiacriticMarks),
              (std::vector<int>{0, 1, 2}));
}

TEST(TextSearch, AcceptSkipsOrStops) {
    TempDir dir;
    CTextBinFile f(dir.Path("t.bin").c_str(), kCreate);
    for (const char* w : {"a", "a", "a"}) f.Add(w);
    g_calls.clear();
    EXPECT_EQ(f.Find(-1, "a", nullptr, false, false, false, true, false, false, AcceptNone), -1);
    EXPECT_EQ(g_calls.size(), 3u);
    g_calls.clear();
    EXPECT_EQ(f.Find(-1, "a", nullptr, false, false, false, true, false, false, AcceptStop), -1);
    EXPECT_EQ(g_calls, (std::vector<int>{0}));
    EXPECT_EQ(f.Find(-1, "a", nullptr, false, false, false, false, false, false, AcceptOdd), 1);
}

TEST(TextSearch, BinaryProbesTheMiddleAndTurnsBackOverTheRun) {
    TempDir dir;
    CTextBinFile f(dir.Path("t.bin").c_str(), kCreate);
    for (const char* w : {"a", "ab", "ab cd", "ab!", "abab", "abc", "abd", "abd x", "b", "ba",
                          "bab", "c", "ca", "cab"})
        f.Add(w);
    // start, text, backward, wholeWord, wrap, exact -> result, the serials given to accept
    struct Case {
        int start;
        const char* text;
        bool backward, wholeWord, wrap, exact;
        int result;
        std::vector<int> calls;
    } cases[] = {
        // Pass 1 finds nothing (probes 10, 8); pass 2 probes 3, hits, and the run lies
        // behind the start: the hit itself, not the first "a" word.
        {7, "a", false, false, true, false, 3, {10, 8, 3, 3}},
        {7, "a", false, false, false, false, -1, {10, 8}},
        // A hit at 6 walks back to the start of the run, testing each word.
        {-1, "a", false, false, false, false, 0, {6, 6, 5, 4, 3, 2, 1, 0}},
        {2, "a", false, false, false, false, 3, {8, 5, 5, 4, 3}},
        // Backward the walk turns upward, to the last word of the run below the start.
        {8, "a", true, false, false, false, 7, {3, 3, 4, 5, 6, 7}},
        {3, "b", true, false, true, false, 8, {1, 2, 8, 8}},
        // The comparison of the switches decides the probes; the walk is by prefix.
        {-1, "ab", false, true, false, false, 1, {6, 2, 2, 1, 0}},
        {5, "ab", false, false, true, true, 1, {9, 7, 6, 2, 0, 1, 1}},
        {13, "c", false, false, true, false, 12, {6, 10, 12, 12}},
    };
    for (const Case& c : cases) {
        g_calls.clear();
        EXPECT_EQ(f.Find(c.start, c.text, nullptr, c.backward, c.wholeWord, true, c.wrap, true,
                         c.exact, AcceptAll),
                  c.result)
            << c.text << " from " << c.start;
        EXPECT_EQ(g_calls, c.calls) << c.text << " from " << c.start;
        // Without a callback the run is measured by galloping: the same answer.
        EXPECT_EQ(f.Find(c.start, c.text, nullptr, c.backward, c.wholeWord, true, c.wrap, true,
                         c.exact, nullptr),
                  c.result)
            << c.text << " from " << c.start;
    }
    // A probe that accept skips moves the range above it: here every probe of "b".
    g_calls.clear();
    EXPECT_EQ(f.Find(-1, "b", nullptr, false, false, true, false, true, false, AcceptOdd), -1);
    // A skipped step of the walk is stepped over, and the step back may land on it:
    // the hit at 7 walks 7, (6), 5, which fails, and steps back to 6.
    EXPECT_EQ(f.Find(0, "abd", nullptr, false, false, true, false, true, false, AcceptOdd), 6);
    g_calls.clear();
    EXPECT_EQ(f.Find(-1, "a", nullptr, false, false, true, false, true, false, AcceptStop), -1);
    EXPECT_EQ(g_calls, (std::vector<int>{6}));
}

TEST(TextSearch, GallopingOverTheRunAgreesWithTheWalk) {
    TempDir dir;
    CTextBinFile f(dir.Path("t.bin").c_str(), kCreate);
    CIXFile index(dir.Path("t.ix").c_str(), kCreate);
    f.SetIndexFile(&index);
    std::mt19937 rng(5);
    int record;
    for (int i = 0; i < 400; ++i) {
        std::string w;
        for (int n = 1 + static_cast<int>(rng() % 3); n > 0; --n)
            w += static_cast<char>("abc \xE1"[rng() % 5]);
        f.Add(w.c_str(), -1, record, true, true);
    }
    const int n = f.GetRecordCount();
    for (const char* text : {"a", "b", "ab", "c\xE1", "\xE1\xE1\xE1", "bbbb", "", "0", "a "}) {
        for (int start : {-5, -1, 0, 7, n / 2, n - 1, n, n + 3}) {
            for (int mode = 0; mode < 16; ++mode) {
                bool backward = mode & 1, wrap = mode & 2, exact = mode & 4, whole = mode & 8;
                int galloped =
                    f.Find(start, text, nullptr, backward, whole, true, wrap, true, exact, nullptr);
                int walked = f.Find(start, text, nullptr, backward, whole, true, wrap, true, exact,
                                    AcceptAll);
                EXPECT_EQ(galloped, walked) << text << " " << start << " " << mode;
                EXPECT_LT(galloped, n);
                // Outside a wrap's second pass the bisection finds what the walk finds.
                if (!wrap && !whole) {
                    EXPECT_EQ(galloped, f.Find(start, text, nullptr, backward, false, true, false,
                                               false, exact, nullptr))
                        << text << " " << start << " " << mode;
                }
            }
        }
    }
}
