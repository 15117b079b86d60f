#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "TestUtil.h"
#include "dorvik/Exceptions.h"
#include "dorvik/HtmlText.h"
#include "dorvik/StringToken.h"

namespace {
using Strings = std::vector<std::string>;

// The tokens of `text` under switches "d" (delimiters), "e" (empty), "w" (whole); the
// buffer must read as before once the scan is over.
Strings Scan(const std::string& text, const char* delims, const std::string& switches = "") {
    CStringToken tok;
    tok.m_bDelimiters = switches.find('d') != std::string::npos;
    tok.m_bEmpty = switches.find('e') != std::string::npos;
    tok.m_bWholeDelimiter = switches.find('w') != std::string::npos;
    std::string buf = text;
    Strings out;
    for (char* t = tok.GetFirst(buf.data(), delims); t && out.size() <= text.size() + 2;
         t = tok.GetNext(delims))
        out.push_back(t);
    EXPECT_TRUE(tok.IsEOB());
    EXPECT_EQ(buf, text) << "buffer not whole";
    return out;
}

// Split semantics written out independently: every delimiter separates two tokens.
Strings SplitAll(const std::string& s, const std::string& delims) {
    Strings out(1);
    for (char c : s) {
        if (delims.find(c) != std::string::npos)
            out.emplace_back();
        else
            out.back() += c;
    }
    return out;
}

// The word delimiters of the diacritizer, bytes above 127 included.
const char kWordDelims[] = " \t!@#%^&-=()[]{}\xA1\xBA;:\",.<>/`'\r\n|$?\xBF+*";
}  // namespace

TEST(StringToken, SwitchesDecideWhatATokenIs) {
    // Switches: "" skip runs of delimiters, "e" empty tokens count, "d" delimiters are
    // tokens, "w" the delimiter is one string.
    struct Case {
        const char* text;
        const char* delims;
        const char* switches;
        Strings tokens;
    } cases[] = {
        {"a,,b", ",", "", {"a", "b"}},
        {",,a,", ",", "", {"a"}},
        {",,,", ",", "", {}},
        {"", ",", "", {}},
        {"one two", nullptr, "", {"one two"}},  // a null set holds no delimiter
        {"\xC7\xE1\xA1\xC8!", "\xA1", "", {"\xC7\xE1", "\xC8!"}},
        {"a!b", "\xA1", "", {"a!b"}},  // 0x21 is not 0xA1
        {"a,,b", ",", "e", {"a", "", "b"}},
        {",a", ",", "e", {"", "a"}},
        {"a,", ",", "e", {"a", ""}},
        {"", ",", "e", {""}},
        {",", ",", "e", {"", ""}},
        {"a, b", ", ", "d", {"a", ",", " ", "b"}},
        {"a,,b", ",", "de", {"a", ",", ",", "b"}},
        {"x\xA1\xA1y", "\xA1", "d", {"x", "\xA1", "\xA1", "y"}},
        {"", ",", "d", {}},
        {"", ",", "de", {""}},
        {"a::b::::c", "::", "w", {"a", "b", "c"}},
        {"a::b::::c", "::", "we", {"a", "b", "", "c"}},
        {"a::b::::c", "::", "wd", {"a", "::", "b", "::", "::", "c"}},
        {"a:b:", "::", "w", {"a:b:"}},
        {"::a::", "::", "we", {"a", ""}},  // leading one skipped once
        // An empty whole delimiter matches nowhere; it must not stall the scan.
        {"abc", "", "w", {"abc"}},
        {"abc", nullptr, "we", {"abc"}},
        {"abc", "", "wd", {"abc"}},
        {"abc", nullptr, "wde", {"abc"}},
    };
    for (const Case& c : cases)
        EXPECT_EQ(Scan(c.text, c.delims, c.switches), c.tokens) << c.text << " " << c.switches;

    EXPECT_TRUE(CStringToken::IsDelimiter('b', "abc"));
    EXPECT_FALSE(CStringToken::IsDelimiter('d', "abc"));
    EXPECT_TRUE(CStringToken::IsDelimiter('\0', "abc"));
    EXPECT_TRUE(CStringToken::IsDelimiter('\xA1', " \xA1"));
    EXPECT_FALSE(CStringToken::IsDelimiter('\xA1', "!"));
    EXPECT_FALSE(CStringToken::IsDelimiter('a', nullptr));
    EXPECT_TRUE(CStringToken::IsDelimiter('\0', nullptr));
}

TEST(StringToken, IsEOBTurnsTrueWithTheTokenThatReachesTheEnd) {
    CStringToken tok;
    EXPECT_TRUE(tok.IsEOB());
    char a[] = "a,";
    EXPECT_STREQ(tok.GetFirst(a, ","), "a");
    EXPECT_FALSE(tok.IsEOB());
    EXPECT_EQ(tok.GetNext(","), nullptr);
    EXPECT_TRUE(tok.IsEOB());
    char b[] = "a,b";
    tok.GetFirst(b, ",");
    EXPECT_STREQ(tok.GetNext(","), "b");
    EXPECT_TRUE(tok.IsEOB());
    EXPECT_STREQ(b, "a,b");  // whole as soon as the end is reached
}

TEST(StringToken, GetFirstSetNextAndBreakPutTheBufferBack) {
    CStringToken tok;
    char one[] = "a b c";
    char two[] = "x y";
    EXPECT_STREQ(tok.GetFirst(one, " "), "a");
    EXPECT_STREQ(tok.GetFirst(two, " "), "x");
    EXPECT_STREQ(one, "a b c");
    tok.Break();
    EXPECT_STREQ(two, "x y");
    EXPECT_EQ(tok.GetNext(" "), nullptr);

    char three[] = "one two three";
    tok.GetFirst(three, " ");
    EXPECT_STREQ(tok.GetNext(" "), "two");
    tok.SetNext(three + 4);
    EXPECT_STREQ(tok.GetNext(" "), "two");
    CStringToken copy;
    copy = tok;  // takes over the scan
    EXPECT_STREQ(copy.GetNext(" "), "three");
    EXPECT_TRUE(copy.IsEOB());
    EXPECT_STREQ(three, "one two three");
    EXPECT_EQ(tok.GetFirst(nullptr, " "), nullptr);
    EXPECT_TRUE(tok.IsEOB());
}

TEST(StringToken, RandomTextComesBackWholeUnderEverySwitch) {
    std::mt19937 rng(1256);
    const std::string set = kWordDelims;
    for (int round = 0; round < 300; ++round) {
        std::string text(rng() % 300, ' ');
        for (char& c : text) c = static_cast<char>(1 + rng() % 255);
        // Delimiter tokens give back every byte: one delimiter each, or a maximal run.
        Strings tokens = Scan(text, kWordDelims, "d");
        std::string joined;
        bool lastWasRun = false;
        for (const std::string& t : tokens) {
            bool delim = set.find(t[0]) != std::string::npos;
            ASSERT_TRUE(delim ? t.size() == 1
                              : !lastWasRun && t.find_first_of(set) == std::string::npos);
            lastWasRun = !delim;
            joined += t;
        }
        ASSERT_EQ(joined, text);

        // Over a small alphabet, compare with plain splitting.
        std::string small(rng() % 12, ' ');
        for (char& c : small) c = ",;ab\xE1"[rng() % 5];
        Strings all = SplitAll(small, ",;"), kept;
        for (const std::string& t : all)
            if (!t.empty()) kept.push_back(t);
        ASSERT_EQ(Scan(small, ",;", "e"), all) << small;
        ASSERT_EQ(Scan(small, ",;"), kept) << small;

        // Under any switches, delimiters that change from call to call still move the
        // scan on, and the buffer comes back whole.
        CStringToken tok;
        tok.m_bEmpty = rng() % 2;
        tok.m_bDelimiters = rng() % 2;
        tok.m_bWholeDelimiter = rng() % 2;
        const char* sets[] = {",", ";", ",;", "", nullptr, ";;", "a,"};
        std::string buf = small;
        size_t steps = 0;
        for (char* t = tok.GetFirst(buf.data(), sets[rng() % 7]); t;
             t = tok.GetNext(sets[rng() % 7]))
            ASSERT_LE(++steps, small.size() + 1);
        ASSERT_EQ(buf, small);
    }
}

TEST(StringToken, SplitHandsOutACopyOfEachToken) {
    static const char kText[] =
        " a b\tc d e f g h i j k l m n o p q r s t u v w x yz ";  // read-only
    int count = -1;
    char** parts = nullptr;
    ASSERT_EQ(CStringToken::Split(kText, " \t", count, parts), 25);  // the list grows past 10
    ASSERT_EQ(count, 25);
    EXPECT_STREQ(parts[0], "a");
    EXPECT_STREQ(parts[24], "yz");
    for (int i = 0; i < count; ++i) DropBlock(parts[i]);
    DropBlock(parts);
    EXPECT_EQ(CStringToken::Split(nullptr, " ", count, parts), 0);
    EXPECT_NE(parts, nullptr);
    DropBlock(parts);

    // Out of memory for a string or for the grown list: an exception, nothing leaked.
    count = 7;
    parts = nullptr;
    {
        BlockLimit limit(100);
        EXPECT_THROW(CStringToken::Split(std::string(200, 'x').c_str(), " ", count, parts),
                     CMemoryException);
        EXPECT_THROW(CStringToken::Split("a b c d e f g h i j k", " ", count, parts),
                     CMemoryException);
    }
    EXPECT_EQ(count, 7);
    EXPECT_EQ(parts, nullptr);
}

TEST(StringToken, FindSearchesStringsOrTheirTokens) {
    struct Case {
        const char* textDelims;
        const char* what;
        const char* whatDelims;
        bool whole;
        int at;  // offset into text, -1 for none
    } cases[] = {
        {nullptr, "green", nullptr, false, 4},
        {nullptr, "green", nullptr, true, -1},
        {nullptr, "red green blue", nullptr, true, 0},
        {" ", "green", nullptr, true, 4},
        {" ", "ee", nullptr, false, 6},
        {" ", "n b", nullptr, false, -1},
        {" ", "gree", nullptr, true, -1},
        {nullptr, "x blue", " ", false, 10},
        {nullptr, "x red green blue", " ", true, -1},
        {nullptr, "green", " ", true, -1},
        {nullptr, "x\tred green blue", "\t", true, 0},
        {" ", "blue red", " ", true, 0},
        {" ", "zz ree", " ", false, 5},
        {" ", "n b", " ", false, 8},
        {" ", "zz yy", " ", true, -1},
    };
    for (const Case& c : cases) {
        char text[] = "red green blue";
        std::string what = c.what;
        char* hit = CStringToken::Find(text, c.textDelims, what.data(), c.whatDelims, c.whole);
        EXPECT_EQ(hit ? hit - text : -1, c.at) << c.what;
        EXPECT_STREQ(text, "red green blue");
        EXPECT_EQ(what, c.what);
    }
    static const char kText[] = "red green blue";
    EXPECT_STREQ(CStringToken::Find(kText, " ", "green", nullptr, true), "green blue");
    EXPECT_EQ(CStringToken::Find(nullptr, nullptr, "a", nullptr, false), nullptr);
    EXPECT_EQ(CStringToken::Find(kText, nullptr, nullptr, nullptr, false), nullptr);
}

namespace {
// The pieces of a file with the given bytes, up to the first null.
Strings Pieces(const Bytes& content) {
    TempDir dir;
    WriteAll(dir.Path("f.html"), content);
    CHtmlText html;
    Strings out;
    for (char* p = html.GetFirst(dir.Path("f.html").c_str()); p; p = html.GetNext())
        out.push_back(p);
    EXPECT_EQ(html.GetNext(), nullptr);
    return out;
}
}  // namespace

TEST(HtmlText, PiecesAreTheTextsBetweenTags) {
    EXPECT_EQ(Pieces(B("<p>one</p> <b>two</b>")), Strings({"one", "two", ""}));
    EXPECT_EQ(Pieces(B("<p>\r\n\t one  </p>tail")), Strings({"one  ", "tail"}));
    EXPECT_EQ(Pieces(B("<p>\xC7\xE1\xA1</p>")), Strings({"\xC7\xE1\xA1", ""}));
    EXPECT_EQ(Pieces(B("plain <text")), Strings({"plain <text"}));
    EXPECT_EQ(Pieces(B("")), Strings({""}));
    EXPECT_EQ(Pieces(Cat({B("ab"), Hex("00"), B("<c>d")})), Strings({"ab"}));
    EXPECT_EQ(Pieces(B("a>b<c>d")),
              Strings({"a", "b", "d"}));  // a stray '>' cuts only its own piece

    std::string big;
    for (int i = 0; i < 200000; ++i) big += "<i>w</i>\n";
    EXPECT_EQ(Pieces(B(big)).size(), 200001u);
}

TEST(HtmlText, AFailedLoadKeepsTheEarlierText) {
    TempDir dir;
    WriteAll(dir.Path("a.html"), B("<a>one<b>two<c>three<d>"));
    CHtmlText html;
    EXPECT_EQ(html.GetNext(), nullptr);
    EXPECT_STREQ(html.GetFirst(dir.Path("a.html").c_str()), "one");
    EXPECT_EQ(html.GetFirst(dir.Path("missing.html").c_str()), nullptr);
    EXPECT_EQ(html.GetFirst(nullptr), nullptr);
    EXPECT_STREQ(html.GetNext(), "two");
    EXPECT_THROW(html.GetFirst(dir.Root().c_str()), CFileException);  // exists, cannot be read
    EXPECT_STREQ(html.GetNext(), "three");
}

TEST(HtmlText, CopiesOwnTheirBuffer) {
    TempDir dir;
    WriteAll(dir.Path("a.html"), B("<a>one<b>two<c>three<d>"));
    WriteAll(dir.Path("b.html"), B("x<y>z"));
    auto original = std::make_unique<CHtmlText>();
    original->GetFirst(dir.Path("a.html").c_str());
    CHtmlText copy(*original);
    EXPECT_STREQ(original->GetNext(), "two");
    original.reset();
    EXPECT_STREQ(copy.GetNext(), "two");

    CHtmlText other;
    other.GetFirst(dir.Path("b.html").c_str());
    other = copy;
    CHtmlText& self = copy;
    copy = self;
    EXPECT_STREQ(copy.GetNext(), "three");
    EXPECT_STREQ(other.GetNext(), "three");
    other = CHtmlText();
    EXPECT_EQ(other.GetNext(), nullptr);
}
