#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "TestUtil.h"
#include "dorvik/dorvik.hpp"

namespace {

// Five units of marked and bare words, indexed as an application would.
class QueryIndex : public ::testing::Test {
protected:
    void SetUp() override {
        const std::vector<std::string> units = {
            "كَتَبَ قلم",   // 0
            "كُتُب ورق",   // 1
            "قلم ورق",   // 2
            "حبر",       // 3
            "كتاب قلم",  // 4
        };
        dorvik::Dictionary words(dir.Path("words.bin"), {.create = true, .bulk = true});
        dorvik::PostingsFile postings(dir.Path("postings.bin"), {.create = true});
        dorvik::Indexer indexer;
        for (std::uint32_t u = 0; u < units.size(); ++u)
            for (std::string_view word : dorvik::split_words(units[u]))
                indexer.add(words.add(word).first, u);
        indexer.save(postings);
        words.close();
        postings.close();
    }

    // The units of `query`, answered both by Query::evaluate and by a Searcher, which
    // must agree (also on the error of a refused word).
    std::vector<std::uint32_t> Find(const std::string& query, std::uint32_t count = 5) {
        dorvik::Dictionary words(dir.Path("words.bin"), {.read_only = true});
        dorvik::PostingsFile postings(dir.Path("postings.bin"), {.read_only = true});
        dorvik::Query q(query);
        std::vector<std::uint32_t> fast;
        try {
            fast = dorvik::Searcher(words, postings, count).search(q);
        } catch (const dorvik::QueryError& e) {
            EXPECT_THROW(q.evaluate(words, postings, count), dorvik::QueryError) << query;
            throw;
        }
        dorvik::BitSet found = q.evaluate(words, postings, count);
        std::vector<std::uint32_t> plain(found.begin(), found.end());
        EXPECT_EQ(fast, plain) << query;
        return plain;
    }

    TempDir dir;
};

using Units = std::vector<std::uint32_t>;

TEST_F(QueryIndex, CombinesWordsWithAndOrNotAndParentheses) {
    struct Case {
        std::string query;
        Units expected;
    } cases[] = {
        {"قلم", {0, 2, 4}},
        {"قلم ورق", {2}},
        {"قلم | حبر", {0, 2, 3, 4}},
        {"قلم -ورق", {0, 4}},
        {"-قلم", {1, 3}},
        {"-قلم -حبر", {1}},
        {"(قلم | حبر) -كتاب", {0, 2, 3}},
        {"قلم ورق | حبر", {2, 3}},  // AND binds tighter than OR
        {"-(قلم | ورق)", {3}},
        {"--حبر", {3}},
        {"حبر | -قلم", {1, 3}},
        {"زيت", {}},
        {"قلم زيت", {}},
        {"  قلم\tورق ", {2}},
    };
    for (const Case& c : cases) EXPECT_EQ(Find(c.query), c.expected) << c.query;
}

TEST_F(QueryIndex, MatchesWildcardsAndTakesMarksAsOptional) {
    struct Case {
        std::string query;
        Units expected;
    } cases[] = {
        {"كتب", {0, 1}},  // every marked form of the three letters, not كتاب
        {"كَتب", {0}},     // a written mark must be there
        {"كُتُب", {1}},      {"كت*", {0, 1, 4}},  // prefix
        {"*ب", {0, 1, 4}},                      // suffix
        {"ك?ب", {0, 1}},                        // one letter
        {"ك??ب", {4}},     {"*", {0, 1, 2, 3, 4}}, {"كت* -كتاب", {0, 1}},
    };
    for (const Case& c : cases) EXPECT_EQ(Find(c.query), c.expected) << c.query;
}

TEST_F(QueryIndex, NeverAnswersAUnitPastTheCountGiven) {
    EXPECT_EQ(Find("قلم", 3), (Units{0, 2}));
    EXPECT_EQ(Find("-حبر", 3), (Units{0, 1, 2}));
    EXPECT_EQ(Find("-حبر", 0), Units{});
}

TEST_F(QueryIndex, RefusesAWordTheDictionaryCannotHoldNamingIt) {
    // Also behind a word that finds nothing, where an AND could stop early.
    for (const char* query : {"قلم 😀", "زيت 😀"}) {
        try {
            Find(query);
            ADD_FAILURE() << "no error for " << query;
        } catch (const dorvik::QueryError& e) {
            EXPECT_EQ(e.code(), dorvik::ErrorCode::bad_text);
            EXPECT_EQ(e.offset(), 7u);
            EXPECT_NE(std::string(e.what()).find("character 5"), std::string::npos) << e.what();
        }
    }
}

// A searcher must find exactly what the wildcard index and the plain evaluation find,
// whatever the pattern and whether its sets end up as lists or bitmaps: random queries
// over many marked forms of few letters, so that one bare word stands for many forms and
// the common ones occur in most units.
TEST(Searcher, AnswersExactlyAsThePlainEvaluation) {
    TempDir dir;
    const std::vector<std::string> letters = {"ب", "ت", "ث", "ج"};
    const std::vector<std::string> marks = {"", "", "\u064E", "\u064F", "\u0650", "\u0651\u064E"};
    std::mt19937 rng(7);
    auto pick = [&](const std::vector<std::string>& from) { return from[rng() % from.size()]; };
    auto skeleton = [&] {
        std::string word;
        for (int n = 1 + static_cast<int>(rng() % 4); n > 0; --n) word += pick(letters);
        return word;
    };
    constexpr std::uint32_t kUnits = 2000;
    {
        dorvik::Dictionary words(dir.Path("words.bin"), {.create = true, .bulk = true});
        dorvik::PostingsFile postings(dir.Path("postings.bin"), {.create = true});
        dorvik::Indexer indexer;
        for (std::uint32_t unit = 0; unit < kUnits; ++unit) {
            for (int w = 0; w < 5; ++w) {
                std::string word;
                for (int n = 1 + static_cast<int>(rng() % 4); n > 0; --n)
                    word += pick(letters) + pick(marks);
                indexer.add(words.add(word).first, unit);
            }
        }
        indexer.save(postings);
    }
    dorvik::Dictionary words(dir.Path("words.bin"), {.read_only = true});
    dorvik::PostingsFile postings(dir.Path("postings.bin"), {.read_only = true});
    auto pattern = [&] {
        switch (rng() % 8) {
            case 0:
                return skeleton() + "*";
            case 1:
                return "*" + skeleton();
            case 2:
                return "**" + skeleton();
            case 3:
                return skeleton() + "?";
            case 4:
                return pick(letters) + pick(marks) + skeleton();  // a mark constrains
            case 5:
                return "*" + skeleton() + "*";
            default:
                return skeleton();
        }
    };
    for (std::uint32_t count : {kUnits, 1001u, 64u}) {
        dorvik::Searcher searcher(words, postings, count);
        for (int i = 0; i < 150; ++i) {
            std::string query = pattern();
            for (int more = static_cast<int>(rng() % 3); more > 0; --more)
                query += std::string(rng() % 3 == 0 ? " | "
                                     : rng() % 2    ? " -"
                                                    : " ") +
                         (rng() % 4 == 0 ? "(" + pattern() + " | " + pattern() + ")" : pattern());
            dorvik::Query q(query);
            dorvik::BitSet plain = q.evaluate(words, postings, count);
            EXPECT_EQ(searcher.search(q), std::vector<std::uint32_t>(plain.begin(), plain.end()))
                << query << " over " << count;
            for (const std::string& p : q.wanted())
                EXPECT_EQ(searcher.forms(p), words.match_ids(p)) << p;
        }
    }
}

// Past 1024 letters the wildcard index no longer tells a word's letters apart, so a
// dictionary holding such a word must answer every pattern as the wildcard index does.
TEST(Searcher, AgreesWithTheWildcardIndexOverAWordPast1024Letters) {
    TempDir dir;
    std::string longWord;
    for (int i = 0; i < 1100; ++i) longWord += i % 2 ? "ت" : "ب";
    {
        dorvik::Dictionary words(dir.Path("words.bin"), {.create = true});
        dorvik::PostingsFile postings(dir.Path("postings.bin"), {.create = true});
        dorvik::Indexer indexer;
        indexer.add(words.add(longWord).first, 0);
        indexer.add(words.add("بت").first, 1);
        indexer.save(postings);
    }
    dorvik::Dictionary words(dir.Path("words.bin"), {.read_only = true});
    dorvik::PostingsFile postings(dir.Path("postings.bin"), {.read_only = true});
    dorvik::Searcher searcher(words, postings, 2);
    for (const std::string& p : {longWord.substr(0, 2 * 1025), longWord, std::string("*بت"),
                                 std::string("بت*"), std::string("بت")})
        EXPECT_EQ(searcher.forms(p), words.match_ids(p)) << p.size();
}

TEST(QuerySyntax, PointsAtTheFaultOfABadQuery) {
    struct Case {
        std::string query;
        std::size_t offset;
        std::string message;
    } cases[] = {
        {"", 0, "empty query at the end"},
        {"   ", 3, "empty query at the end"},
        {"a |", 2, "'|' with nothing after it at character 3"},
        {"a | | b", 2, "'|' with nothing after it at character 3"},
        {"| a", 0, "'|' with nothing before it at character 1"},
        {"(a", 0, "'(' without ')' at character 1"},
        {"a (b (c)", 2, "'(' without ')' at character 3"},
        {"a)", 1, "')' without '(' at character 2"},
        {"a ()", 3, "empty parentheses at character 4"},
        {"a -", 2, "'-' with nothing after it at character 3"},
        {"a - b", 2, "'-' with nothing after it at character 3"},
        {"قلم )", 7, "')' without '(' at character 5"},
        {std::string(65, '(') + "a" + std::string(65, ')'), 64,
         "nested deeper than 64 levels at character 65"},
        {std::string(100, '-') + "a", 64, "nested deeper than 64 levels at character 65"},
    };
    for (const Case& c : cases) {
        try {
            dorvik::Query q(c.query);
            ADD_FAILURE() << "no error for " << c.query;
        } catch (const dorvik::QueryError& e) {
            EXPECT_EQ(e.code(), dorvik::ErrorCode::invalid_argument);
            EXPECT_EQ(e.offset(), c.offset) << c.query;
            EXPECT_EQ(std::string(e.what()), c.message) << c.query;
        }
    }
    // The deepest nesting allowed still parses.
    EXPECT_NO_THROW(dorvik::Query(std::string(63, '(') + "a" + std::string(63, ')')));
}

TEST(QuerySyntax, TellsTheWordsItWantsPresent) {
    EXPECT_EQ(dorvik::Query("a -b (c | -d) e-f").wanted(),
              (std::vector<std::string>{"a", "c", "e-f"}));
    EXPECT_EQ(dorvik::Query("-(a b)").wanted(), std::vector<std::string>{});
}

}  // namespace
