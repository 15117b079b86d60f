#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "Dorvik01.h"
#include "TestUtil.h"
#include "text/WildCardSearch.h"

namespace {
// A dictionary of Latin words (x stands for a mark) and its wildcard index.
struct Dictionary {
    TempDir dir;
    CTextBinFile text;
    std::string index = dir.Path("w.idx");

    explicit Dictionary(const std::vector<std::string>& words, const char* marks = "x") {
        text.Open(dir.Path("w.bin").c_str(), CFile::modeCreate | CFile::modeReadWrite);
        for (const auto& w : words) text.Add(w.c_str());
        text.IndexForWildCards(index.c_str(), marks, nullptr);
    }

    std::pair<int, std::vector<int>> Find(const char* pattern, Operation op = opEqual,
                                          bool ignoreCase = false) {
        CBitArray result;
        int found = text.Find(index.c_str(), pattern, op, "x", ignoreCase, result);
        return {found, SetBits(result)};
    }
};

using Hits = std::pair<int, std::vector<int>>;
}  // namespace

TEST(WildCardIndex, SetsOneCellPerLetterAndMarkLevel) {
    TempDir dir;
    CTextBinFile text(dir.Path("t").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    text.Add("");
    text.Add("\xC8\xF3\xC7");  // a letter, a fatha, a letter
    text.IndexForWildCards(dir.Path("i").c_str(), DiacriticMarks, nullptr);
    CNDimBitsBinFile index(dir.Path("i").c_str(), CFile::shareDenyNone);
    int c1[] = {1, 0xC8}, c3[] = {3, 0xF3}, c2[] = {2, 0xC7}, length[] = {0, 2},
        wrong[] = {2, 0xF3};
    EXPECT_TRUE(index.GetAt(2, c1, 1));
    EXPECT_TRUE(index.GetAt(2, c3, 1));
    EXPECT_TRUE(index.GetAt(2, c2, 1));
    EXPECT_TRUE(index.GetAt(2, length, 1));
    EXPECT_FALSE(index.GetAt(2, wrong, 1));
    EXPECT_FALSE(index.GetAt(2, c1, 0));  // the empty record is skipped
    int levels[] = {0};
    EXPECT_EQ(index.GetRecordCount(), 4);
    EXPECT_EQ(index.GetRecordCount(1, levels), 3);
}

TEST(WildCardSearch, MatchesLettersQuestionMarksAndStars) {
    Dictionary w({"ab", "abc", "cab", "xab", "a", "b", "", "ba", "acb", "axbx", "abab"});
    //        0     1      2      3      4    5   6    7     8      9       10
    EXPECT_EQ(w.Find("ab"), Hits(1, {0, 3, 9}));  // marks on letters are free
    EXPECT_EQ(w.Find("?"), Hits(1, {4, 5}));
    EXPECT_EQ(w.Find("??"), Hits(1, {0, 3, 7, 9}));
    EXPECT_EQ(w.Find("\xBF\xBF"), w.Find("??"));  // BF, the Arabic question mark, is a ?
    EXPECT_EQ(w.Find("a\xBF"), Hits(1, {0, 3, 9}));
    EXPECT_EQ(w.Find("?*"), Hits(-1, {}));
    EXPECT_EQ(w.Find("ab*"), Hits(1, {0, 1, 3, 9, 10}));
    EXPECT_EQ(w.Find("*ab"), Hits(1, {0, 2, 3, 9, 10}));
    EXPECT_EQ(w.Find("*ab*"), Hits(1, {0, 1, 2, 3, 9, 10}));
    EXPECT_EQ(w.Find("a*b"), w.Find("*a*b"));
    EXPECT_EQ(w.Find("a*b"), Hits(1, {0, 3, 8, 9, 10}));
    // Two stars at the end: the second matches nothing from the letter reached.
    EXPECT_EQ(w.Find("ab**"), Hits(-1, {}));
    EXPECT_EQ(w.Find("?**"), Hits(-1, {}));
    EXPECT_EQ(w.Find("b?*"), Hits(1, {5, 7}));  // a ? before a final star asks for nothing
    EXPECT_EQ(w.Find("*"), Hits(1, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
    EXPECT_EQ(w.Find("**"), w.Find("*"));
    EXPECT_EQ(w.Find(""), Hits(-1, {}));
    EXPECT_EQ(w.Find("zz"), Hits(-1, {}));
    EXPECT_EQ(w.Find("ab", static_cast<Operation>(opEqual | opNot)).second,
              (std::vector<int>{1, 2, 4, 5, 6, 7, 8, 10}));
    EXPECT_EQ(w.Find(nullptr, opEqual), Hits(1, {6}));
    EXPECT_EQ(w.Find(nullptr, opGreater).second.size(), 10u);
    EXPECT_EQ(w.Find("AB", opEqual, true), Hits(1, {0, 3, 9}));
    EXPECT_EQ(w.Find("AB", opEqual, false), Hits(-1, {}));
}

TEST(WildCardSearch, AnInnerStarTriesTheFirstStartPositionOnly) {
    Dictionary w({"ddeb", "eedad", "eb", "ad", "ecb"});
    EXPECT_EQ(w.Find("*e*b"), Hits(1, {2, 4}));  // not ddeb: e must come first
    EXPECT_EQ(w.Find("*e*b"), w.Find("e*b"));
    EXPECT_EQ(w.Find("*a*d"), Hits(1, {3}));  // not eedad
    EXPECT_EQ(w.Find("*eb"), Hits(1, {0, 2}));
}

TEST(WildCardSearch, MarksInThePatternMustStandInTheirPlace) {
    // Marks in a pattern are always the Arabic ones: fatha F3, shadda F8.
    Dictionary w({"a\xF3"
                  "b",
                  "ab",
                  "a\xF8\xF3"
                  "b",
                  "ab\xF3"},
                 DiacriticMarks);
    EXPECT_EQ(w.Find("a\xF3"
                     "b"),
              Hits(1, {0}));  // a fatha first on a, not second
    EXPECT_EQ(w.Find("a\xF8\xF3"
                     "b"),
              Hits(1, {2}));
    EXPECT_EQ(w.Find("a\xF8"
                     "b"),
              Hits(1, {2}));
    EXPECT_EQ(w.Find("ab\xF3"), Hits(1, {3}));
    EXPECT_EQ(w.Find("ab"), Hits(1, {0, 1, 2, 3}));
}

TEST(WildCardSearch, SurvivesAnyPatternAndAnyIndex) {
    Dictionary w({"ab", std::string(1100, 'q')});
    EXPECT_EQ(w.Find(std::string(1025, 'q').c_str()), Hits(1, {1}));  // indexed by its first 1025
    EXPECT_EQ(w.Find(std::string(1100, 'q').c_str()).first, -1);
    std::string junk;
    for (int i = 1; i < 256; ++i) junk += static_cast<char>(i);
    EXPECT_EQ(w.Find(junk.c_str()).first, -1);
    WriteAll(w.dir.Path("bad"), B("not an index at all"));
    CBitArray result;
    EXPECT_EQ(w.text.Find(w.dir.Path("bad").c_str(), "ab", opEqual, "x", false, result), -1);
    EXPECT_THROW(w.text.Find(w.dir.Path("missing").c_str(), "ab", opEqual, "x", false, result),
                 CFileException);
}

// The search intersects the cells on their compressed forms; the plain way (each cell
// expanded and ANDed into the word set) must give the same records and result for any
// pattern of letters, marks, question marks and stars.
TEST(WildCardSearch, TheCompressedWayMatchesThePlainWay) {
    std::mt19937 rng(41);
    const std::string letters = "abcx", marks = "x";
    std::vector<std::string> words;
    for (int i = 0; i < 3000; ++i) {
        std::string w;
        for (int n = static_cast<int>(rng() % 7); n > 0; --n) w += letters[rng() % letters.size()];
        words.push_back(w);
    }
    Dictionary d(words, marks.c_str());
    CNDimBitsBinFile index(d.index.c_str(), CFile::shareDenyNone);
    const std::string alphabet = "abcx?*d";
    for (int round = 0; round < 600; ++round) {
        std::string pattern;
        for (int n = 1 + static_cast<int>(rng() % 6); n > 0; --n)
            pattern += alphabet[rng() % alphabet.size()];
        Operation op = rng() % 4 == 0 ? static_cast<Operation>(opEqual | opNot) : opEqual;
        CBitArray fast, plain;
        int f = dorvik::classic::FindWildCards(d.text, &index, pattern.c_str(), op, marks.c_str(),
                                               false, 0, fast, false);
        int p = dorvik::classic::FindWildCards(d.text, &index, pattern.c_str(), op, marks.c_str(),
                                               false, 0, plain, true);
        EXPECT_EQ(f, p) << pattern;
        EXPECT_EQ(fast.GetLength(), plain.GetLength()) << pattern;
        EXPECT_TRUE(fast == plain) << pattern;
    }
}
