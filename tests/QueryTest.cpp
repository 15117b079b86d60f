#include <gtest/gtest.h>

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

    std::vector<std::uint32_t> Find(const std::string& query, std::uint32_t count = 5) {
        dorvik::Dictionary words(dir.Path("words.bin"), {.read_only = true});
        dorvik::PostingsFile postings(dir.Path("postings.bin"), {.read_only = true});
        dorvik::BitSet found = dorvik::Query(query).evaluate(words, postings, count);
        return {found.begin(), found.end()};
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
    try {
        Find("قلم 😀");
        FAIL() << "no error";
    } catch (const dorvik::QueryError& e) {
        EXPECT_EQ(e.code(), dorvik::ErrorCode::bad_text);
        EXPECT_EQ(e.offset(), 7u);
        EXPECT_NE(std::string(e.what()).find("character 5"), std::string::npos) << e.what();
    }
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
