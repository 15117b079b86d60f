// ContextDiacritizer: the pair counts a build writes, the clitic back-off for unknown
// words and the choice among ambiguous forms by their neighbours.
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <dorvik/dorvik.hpp>

#include "TestUtil.h"

using Steps = dorvik::ContextDiacritizer::Steps;

namespace {

// A folder built from `text` (one add_text call per piece).
std::filesystem::path BuildText(const TempDir& dir, const std::vector<std::string>& pieces) {
    std::filesystem::path folder = dir.Path("forms");
    dorvik::Diacritizer::Builder builder(folder);
    for (const std::string& piece : pieces) builder.add_text(piece);
    builder.finish();
    return folder;
}

// The pairs of forms.pair as (left form, right form, count), read as raw 4-byte records.
std::vector<std::vector<std::string>> PairsOf(const std::filesystem::path& folder) {
    dorvik::Dictionary forms(folder / "forms.bin", dorvik::OpenOptions{.read_only = true});
    Bytes bytes = ReadAll((folder / "forms.pair").string());
    std::vector<std::vector<std::string>> pairs;
    auto at = [&](std::size_t i) {
        std::uint32_t v = 0;
        for (int k = 3; k >= 0; --k) v = (v << 8) | bytes[i + static_cast<std::size_t>(k)];
        return v;
    };
    auto form = [&](std::uint32_t id) {
        return id == 0xFFFFFFFF ? std::string("|") : forms.word(id);
    };
    for (std::size_t i = 0; i + 12 <= bytes.size(); i += 12)
        pairs.push_back({form(at(i)), form(at(i + 4)), std::to_string(at(i + 8))});
    return pairs;
}

// Forms for the back-off cases: stems alone, never with a clitic.
const std::vector<std::string> kStems = {
    "كِتَابٌ كِتَابٌ كِتَابٌ كُتَّابٌ\n",  // a moon-letter stem with a rarer reading
    "شَمْسٌ\n",                  // a sun-letter stem
    "بَيْتِ\n",                  // ends in a kasra
    "رَحْمَةِ\n",                 // ends in a teh marbuta
    "مُؤْمِنْ\n",                 // takes the plural endings
};

}  // namespace

TEST(ContextBuild, CountsPairsOfWordsWithOnlyBlanksBetween) {
    TempDir dir;
    // Pieces may end between words; a line end or punctuation ends a sentence, and so
    // does the end of the text ("|": the boundary).
    std::filesystem::path folder = BuildText(dir, {"قَالَ مَنْ\tقَالَ مَنْ ", "قَالَ\nمِنْ، قَالَ"});
    EXPECT_EQ(PairsOf(folder), (std::vector<std::vector<std::string>>{
                                   {"قَالَ", "مَنْ", "2"},
                                   {"قَالَ", "|", "2"},
                                   {"مَنْ", "قَالَ", "2"},
                                   {"مِنْ", "|", "1"},
                                   {"|", "قَالَ", "2"},
                                   {"|", "مِنْ", "1"},
                               }));
    dorvik::ContextDiacritizer context(folder);
    EXPECT_TRUE(context.has_context());

    // A folder without the file still restores, without the context step.
    std::filesystem::remove(folder / "forms.pair");
    dorvik::ContextDiacritizer plain(folder);
    EXPECT_FALSE(plain.has_context());
    EXPECT_EQ(plain.diacritize("قال من"), "قَالَ مَنْ");

    // A damaged file is refused: a cut record, then a form past the dictionary's end.
    WriteAll((folder / "forms.pair").string(), Words({0, 1}));
    EXPECT_THROW(dorvik::ContextDiacritizer{folder}, dorvik::Error);
    WriteAll((folder / "forms.pair").string(), Words({0, 99, 1}));
    EXPECT_THROW(dorvik::ContextDiacritizer{folder}, dorvik::Error);
    WriteAll((folder / "forms.pair").string(), Words({0, 0xFFFFFFFE, 1}));
    EXPECT_THROW(dorvik::ContextDiacritizer{folder}, dorvik::Error);
    WriteAll((folder / "forms.pair").string(), Words({1, 0, 1, 0, 1, 1}));  // out of order
    EXPECT_THROW(dorvik::ContextDiacritizer{folder}, dorvik::Error);
}

TEST(ContextBackoff, PutsCliticsBackAroundAKnownStem) {
    TempDir dir;
    dorvik::ContextDiacritizer restore(BuildText(dir, kStems), Steps::backoff);
    // wa- + al- before a moon letter: the lam takes a sukun, the tanween a plain vowel.
    EXPECT_EQ(restore.diacritize("والكتاب"), "وَالْكِتَابُ");
    // al- before a sun letter: the lam stays bare, the letter doubles.
    EXPECT_EQ(restore.diacritize("الشمس"),
              "الش"
              "َّ"
              "مْسُ");  // shadda first
    // li- + al- writes one lam less.
    EXPECT_EQ(restore.diacritize("للكتاب"), "لِلْكِتَابُ");
    // A pronoun after a damma, and the -hi after a kasra.
    EXPECT_EQ(restore.diacritize("كتابهم"), "كِتَابُهُمْ");
    EXPECT_EQ(restore.diacritize("بيته"), "بَيْتِهِ");
    // A teh before an ending is looked up as a teh marbuta.
    EXPECT_EQ(restore.diacritize("رحمته"), "رَحْمَتِهِ");
    // The plural ending sets the mark of the stem's last letter.
    EXPECT_EQ(restore.diacritize("المؤمنون"), "الْمُؤْمِنُونَ");
    // Marks in the input: on the stem they select its form, on a clitic they stand.
    EXPECT_EQ(restore.diacritize("والكُتاب"), "وَالْكُتَّابُ");
    EXPECT_EQ(restore.diacritize("وِكتاب"), "وِكِتَابٌ");
    // No known stem, or too short to split: unchanged.
    EXPECT_EQ(restore.diacritize("وزززز بك"), "وزززز بك");
    // A known word is looked up, and keeps its case ending (Diacritizer trims it).
    EXPECT_EQ(restore.diacritize("كتاب"), "كِتَابٌ");

    dorvik::ContextDiacritizer lookupOnly(BuildText(dir, kStems), Steps::lookup);
    EXPECT_EQ(lookupOnly.diacritize("والكتاب كتاب"), "والكتاب كِتَابٌ");
}

TEST(ContextChoice, FollowsThePairCountsOverTheSentence) {
    TempDir dir;
    // min: 3 times as "from", twice as "who"; each reading with its own neighbours.
    std::filesystem::path folder = BuildText(dir, {
                                                      "خَرَجَ مِنْ بَيْتِهِ\n",
                                                      "خَرَجَ مِنْ بَيْتِهِ\n",
                                                      "خَرَجَ مِنْ بَيْتِهِ\n",
                                                      "قَالَ مَنْ يَعْمَلُ\n",
                                                      "قَالَ مَنْ يَعْمَلُ\n",
                                                  });
    dorvik::ContextDiacritizer context(folder);
    // Alone, the more frequent reading.
    EXPECT_EQ(context.diacritize("من"), "مِنْ");
    // The word before decides; so does the word after:
    //   P(min) P(ya'malu | min) = 3.5/18 * (0 + 1 * 2.5/18) / (3 + 1) = 0.0067
    //   P(man) P(ya'malu | man) = 2.5/18 * (2 + 1 * 2.5/18) / (2 + 1) = 0.099
    EXPECT_EQ(context.diacritize("قال من"), "قَالَ مَنْ");
    EXPECT_EQ(context.diacritize("من يعمل"), "مَنْ يَعْمَلُ");
    EXPECT_EQ(context.diacritize("خرج من"), "خَرَجَ مِنْ");
    // Punctuation and line ends cut the sentence; what lies between words stays as it is.
    EXPECT_EQ(context.diacritize("قال، من\n  من يعمل."), "قَالَ، مِنْ\n  مَنْ يَعْمَلُ.");
    // Without the context step, the most frequent form everywhere.
    dorvik::ContextDiacritizer backoff(folder, Steps::backoff);
    EXPECT_EQ(backoff.diacritize("قال من"), "قَالَ مِنْ");
    // A written mark overrides the context.
    EXPECT_EQ(context.diacritize("قال مِن"), "قَالَ مِنْ");
}

TEST(ContextChoice, StreamsLikeTheWholeText) {
    TempDir dir;
    std::filesystem::path folder = BuildText(dir, {"خَرَجَ مِنْ بَيْتِهِ\nقَالَ مَنْ يَعْمَلُ\n", "كِتَابٌ\n"});
    dorvik::ContextDiacritizer context(folder);
    std::string text = "قال من يعمل\nخرج من بيته، والكتاب\nab 12 من";
    std::string whole = context.diacritize(text);
    for (std::size_t cut = 1; cut < text.size(); ++cut) {
        std::string pieces = context.feed(text.substr(0, cut));
        pieces += context.feed(text.substr(cut));
        pieces += context.finish();
        EXPECT_EQ(pieces, whole) << "cut at " << cut;
    }
    // Text without a blank or a line end is not held back past 1 MiB or so.
    std::string letters;
    for (int i = 0; i < 700000; ++i) letters += "ب";
    std::string out = context.feed(letters);
    EXPECT_GT(out.size(), std::size_t{1} << 19);
    EXPECT_EQ(out + context.finish(), letters);
    EXPECT_THROW(context.diacritize("من \xFF"), dorvik::Error);
    EXPECT_EQ(context.diacritize(""), "");
}
