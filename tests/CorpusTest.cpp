#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "TestUtil.h"
#include "dorvik/dorvik.hpp"

namespace {
using dorvik::ErrorCode;

template <class Work>
dorvik::Error ErrorOf(Work work) {
    try {
        work();
    } catch (const dorvik::Error& e) {
        return e;
    }
    ADD_FAILURE() << "no dorvik::Error";
    return dorvik::Error(ErrorCode::io, "none");
}

std::string Normalized(const std::string& text) {
    dorvik::CorpusNormalizer normalizer;
    std::string out = normalizer.feed(text);
    return out + normalizer.finish();
}

// Verses in the Uthmani script of the corpus the demo uses, with the signs it holds.
const std::string kVerses =
    "بِسۡمِ ٱللَّهِ ٱلرَّحۡمَٰنِ ٱلرَّحِيمِ\n"
    "ذَٰلِكَ ٱلۡكِتَٰبُ لَا رَيۡبَۛ فِيهِۛ هُدٗى لِّلۡمُتَّقِينَ\r\n"
    "أُوْلَـٰٓئِكَ عَلَىٰ هُدٗى مِّن رَّبِّهِمۡۖ وَأُوْلَـٰٓئِكَ هُمُ ٱلۡمُفۡلِحُونَ\n"
    "۞إِنَّ ٱللَّهَ لَا يَسۡتَحۡيِۦٓ أَن يَضۡرِبَ مَثَلٗا مَّا بَعُوضَةٗ فَمَا فَوۡقَهَاۚ\n"
    "قَالَ يَـٰٓـَٔادَمُ أَنۢبِـُٔونِي بِأَسۡمَآءِ هَـٰٓؤُلَآءِ عَذَابٌ أَلِيمُۢ ظُلُمَٰتٖ عَظِيمٞ";
}  // namespace

TEST(CorpusNormalizer, MapsDropsAndJoinsAsItsTableSays) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"ٱلۡحَمۡدُ", "الْحَمْدُ"},                  // alef wasla, Uthmani sukun
        {"ٱلرَّحۡمَٰنِ", "الرَّحْمَنِ"},                // superscript alef dropped
        {"هُدٗى عَظِيمٞ ظُلُمَٰتٖ", "هُدًى عَظِيمٌ ظُلُمَتٍ"},  // open tanween of Uthmani texts
        {"\u0645\u08F0 \u0645\u08F1 \u0645\u08F2", "\u0645\u064B \u0645\u064C \u0645\u064D"},
        {"\u0628\u0650\u0645\u064E\u0627\u0653", "\u0628\u0650\u0645\u064E\u0627"},  // maddah
        // A hamza on a tatweel seat, before or after the vowel of the seat.
        {"\u0623\u0646\u06E2\u0628\u0650\u0640\u0654\u064F\u0648\u0646\u0650\u064A",
         "\u0623\u0646\u0628\u0650\u0626\u064F\u0648\u0646\u0650\u064A"},
        {"\u0628\u0640\u064F\u0654\u0648", "\u0628\u0626\u064F\u0648"},
        {"لَـٰكِنَّا", "لَكِنَّا"},  // a tatweel without hamza goes
        {"\u0627\u0654 \u0627\u0655 \u0648\u0654 \u064A\u0655 \u0649\u0654 x\u0654",
         "\u0623 \u0625 \u0624 \u0626 \u0626 x\u0621"},  // hamza joins its letter
        {"\u0627\u064E\u0654 \u0648\u064F\u0654", "\u0623\u064E \u0624\u064F"},  // marks between
        {"\u06CC\u0672\u0673\u0675\u0676\u0678", "\u064A\u0623\u0625\u0623\u0624\u0626"},
        {"۞إِنَّ فَوۡقَهَاۚ", "إِنَّ فَوْقَهَا"},  // Quranic signs dropped
        {"Latin 🙂 12, ok.\r\n\u0640", "Latin 🙂 12, ok.\r\n"},
    };
    for (const auto& [in, out] : cases) EXPECT_EQ(Normalized(in), out) << in;

    dorvik::CorpusNormalizer normalizer;
    normalizer.feed("ٱلرَّحۡمَٰنِ ٱلۡ");
    normalizer.finish();
    EXPECT_EQ(normalizer.mapped_count(), 4u);  // two alef wasla, two Uthmani sukun
    EXPECT_EQ(normalizer.dropped_count(), 1u);
    EXPECT_EQ(normalizer.dropped(), (std::map<char32_t, std::uint64_t>{{0x0670, 1}}));
}

TEST(CorpusNormalizer, GivesTheSameTextWherePiecesEndAndHoldsBackLittle) {
    const std::string whole = Normalized(kVerses);
    std::mt19937 rng(15);
    for (int round = 0; round < 300; ++round) {
        dorvik::CorpusNormalizer normalizer;
        std::string out;
        for (std::size_t at = 0; at < kVerses.size();) {
            std::size_t n = std::min<std::size_t>(kVerses.size() - at, rng() % 9);
            std::string piece = normalizer.feed(kVerses.substr(at, n));
            // What comes out ends at a word end, ready to be counted word by word.
            if (!piece.empty()) {
                ASSERT_NE(std::string(" \r\n").find(piece.back()), std::string::npos);
            }
            out += piece;
            at += n;
        }
        out += normalizer.finish();
        ASSERT_EQ(out, whole) << "round " << round;
    }

    // A text without a word end is cut before a letter once it passes 1 MiB.
    dorvik::CorpusNormalizer normalizer;
    std::string letters;
    for (int i = 0; i < 300000; ++i) letters += "بِّ";  // 6 bytes: a letter and two marks
    std::string out = normalizer.feed(letters);
    EXPECT_GT(out.size(), 0u);
    EXPECT_LT(letters.size() - out.size(), 6u * 2);
    EXPECT_EQ(out.substr(out.size() - 6), "بِّ");
    EXPECT_EQ(out + normalizer.finish(), letters);

    // Bad UTF-8 is placed in the whole text, across pieces.
    dorvik::CorpusNormalizer broken;
    broken.feed("abc def ");
    dorvik::Error e = ErrorOf([&] { broken.feed("gh\xFFi "); });
    EXPECT_EQ(e.code(), ErrorCode::bad_text);
    EXPECT_STREQ(e.what(), "bad text: invalid UTF-8 at byte 10");
    broken.feed("\xD9");
    EXPECT_STREQ(ErrorOf([&] { broken.finish(); }).what(),
                 "bad text: the text ends inside a UTF-8 sequence at byte 0");
}

TEST(MarkScoring, StripsAndCountsByTheBenchmarkConvention) {
    EXPECT_EQ(dorvik::strip_marks("كَتَبَ عِلْمٌ، x1 🙂 بِّ"),
              "كتب علم، x1 🙂 ب");
    EXPECT_EQ(ErrorOf([] { dorvik::strip_marks("ab\xC3("); }).code(), ErrorCode::bad_text);

    // 1: all right. 2: only the case ending wrong (shadda and fatha agree in either
    // order). 3: a bare letter inside. 4: unknown, left bare: all wrong. 5: one letter,
    // wrong. Latin and digits are no words.
    const std::string gold = "كَتَبَ \u0634\u064E\u062F\u0651\u064E\u0647\u064F عَلِمَ قَلَمٌ وَ abc 42\n";
    const std::string restored =
        "كَتَبَ \u0634\u064E\u062F\u064E\u0651\u0647\u064E علِمَ قلم وُ abc 42\n";
    dorvik::MarkErrors e = dorvik::compare_marks(gold, restored);
    EXPECT_EQ(e.words, 5u);
    EXPECT_EQ(e.letters, 3u + 3u + 3u + 3u + 1u);
    EXPECT_EQ(e.wrong_letters, 0u + 1u + 1u + 3u + 1u);
    EXPECT_EQ(e.wrong_words, 4u);
    EXPECT_EQ(e.letters_but_last, 2u + 2u + 2u + 2u + 0u);
    EXPECT_EQ(e.wrong_letters_but_last, 0u + 0u + 1u + 2u + 0u);
    EXPECT_EQ(e.wrong_words_but_last, 2u);
    EXPECT_EQ(e.bare_words, 1u);
    EXPECT_DOUBLE_EQ(e.word_error_rate(), 4.0 / 5);
    EXPECT_DOUBLE_EQ(e.word_error_rate(false), 2.0 / 5);
    EXPECT_DOUBLE_EQ(e.diacritic_error_rate(), 6.0 / 13);
    EXPECT_DOUBLE_EQ(e.diacritic_error_rate(false), 3.0 / 8);

    dorvik::MarkErrors sum;
    EXPECT_EQ(sum.word_error_rate(), 0.0);  // nothing counted yet
    sum += e;
    sum += e;
    EXPECT_EQ(sum.letters, 26u);
    EXPECT_DOUBLE_EQ(sum.diacritic_error_rate(false), 3.0 / 8);

    dorvik::Error differ = ErrorOf([&] { dorvik::compare_marks("كَتَبَ علم", "كتب عام"); });
    EXPECT_EQ(differ.code(), ErrorCode::invalid_argument);
    EXPECT_STREQ(
        differ.what(),
        "invalid argument: the texts differ in more than marks at byte 15 of the true text");
    EXPECT_EQ(ErrorOf([] { dorvik::compare_marks("ab", "abc"); }).code(),
              ErrorCode::invalid_argument);
}

TEST(ModernDiacritizer, ListsFormsByFrequencyAndTellsHowABuildGoes) {
    TempDir dir;
    std::filesystem::path folder = dir.Path("forms");
    {
        dorvik::Diacritizer::Builder builder(folder);
        EXPECT_EQ(builder.add_text("كَتَبَ كُتُبٌ كَتَبَ، كُتِبَ كَتَبَ كُتُبٌ x"), 7u);
        EXPECT_EQ(builder.size(), 4u);
        std::vector<std::string> stages;
        builder.finish([&](std::string_view stage, std::size_t done, std::size_t total) {
            EXPECT_LE(done, total);
            if (stages.empty() || stages.back() != stage) stages.emplace_back(stage);
        });
        EXPECT_EQ(stages, (std::vector<std::string>{"sorting", "indexing"}));
    }
    dorvik::Diacritizer d(folder);
    std::vector<dorvik::Diacritizer::Form> forms = d.forms("كتب");
    ASSERT_EQ(forms.size(), 3u);
    EXPECT_EQ(forms[0].text, "كَتَبَ");
    EXPECT_EQ(forms[0].frequency, 3u);
    EXPECT_EQ(forms[1].text, "كُتُبٌ");
    EXPECT_EQ(forms[2].text, "كُتِبَ");
    EXPECT_EQ(forms[2].id, 2u);
    EXPECT_EQ(d.forms("كتب", 1).size(), 1u);
    EXPECT_TRUE(d.forms("").empty());
    EXPECT_EQ(ErrorOf([&] { d.forms("🙂"); }).code(), ErrorCode::bad_text);

    // A progress that throws stops the build, and the folder stays as it was.
    Bytes before = ReadAll((folder / "forms.bin").string());
    dorvik::Diacritizer::Builder again(folder);
    again.add("other");
    struct Stop {};
    EXPECT_THROW(again.finish([](std::string_view stage, std::size_t, std::size_t) {
        if (stage == "indexing") throw Stop();
    }),
                 Stop);
    EXPECT_EQ(ReadAll((folder / "forms.bin").string()), before);
    EXPECT_FALSE(Exists((folder / ".build").string()));

    // A stream names bad UTF-8 by its offset in the whole text.
    dorvik::Diacritizer::Stream stream = d.stream();
    stream.feed("abc de");
    EXPECT_STREQ(ErrorOf([&] { stream.feed("f \xFF"); }).what(),
                 "bad text: invalid UTF-8 at byte 8");
}
