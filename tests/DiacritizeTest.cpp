#include <gtest/gtest.h>

#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "Dorvik01.h"
#include "TestUtil.h"

namespace {
// The three files of the diacritizer, built with the library from tests/data.
struct Dictionary {
    TempDir dir;
    std::string forms = dir.Path("forms.bin"), index = dir.Path("forms.idx"),
                frequencies = dir.Path("forms.frq");

    Dictionary() {
        std::ifstream in(std::string(DORVIK_TEST_DATA) + "/forms-1256.txt", std::ios::binary);
        CTextBinFile dictionary(forms.c_str(), CFile::modeCreate | CFile::modeReadWrite);
        CIXFile counts(frequencies.c_str(), CFile::modeCreate | CFile::modeReadWrite, 4);
        std::string line;
        while (std::getline(in, line)) {
            if (line.empty() || line[0] == '#') continue;
            std::size_t tab = line.find('\t');
            dictionary.Add(line.substr(0, tab).c_str());
            if (tab != std::string::npos) counts.Add(std::stoi(line.substr(tab + 1)));
        }
        dictionary.IndexForWildCards(index.c_str(), DiacriticMarks, nullptr);
    }

    std::string Word(const std::string& hex) {
        CString word(Text(hex).c_str());
        DiacritizeWord(word, forms.c_str(), index.c_str(), frequencies.c_str());
        return std::string(word);
    }

    std::string Buffer(std::string text) {
        CString result("<");
        DiacritizeBuffer(text.data(), result, forms.c_str(), index.c_str(), frequencies.c_str());
        return std::string(result);
    }

    static std::string Text(const std::string& hex) {
        Bytes b = Hex(hex);
        return std::string(b.begin(), b.end());
    }
};
}  // namespace

TEST(Diacritize, PicksTheMostFrequentFormThatAgreesWithTheMarks) {
    Dictionary d;
    // Bare: kataba 50, kutubun 30, kutiba 50: the first 50 wins; the last mark goes.
    EXPECT_EQ(d.Word("DF CA C8"), Dictionary::Text("DF F3 CA F3 C8"));
    // A damma on the first letter leaves kutubun and kutiba.
    EXPECT_EQ(d.Word("DF F5 CA C8"), Dictionary::Text("DF F5 CA F6 C8"));
    EXPECT_EQ(d.Word("DA E1 E3"), Dictionary::Text("DA F6 E1 FA E3"));
    // A fatha alone on the lam matches a fatha first there, not shadda then fatha.
    EXPECT_EQ(d.Word("DA E1 F3 E3"), Dictionary::Text("DA F3 E1 F3 E3"));
    EXPECT_EQ(d.Word("DA E1 F8 E3"), Dictionary::Text("DA F3 E1 F8 F3 E3"));
    // The only marks on the last letter: the form comes back bare.
    EXPECT_EQ(d.Word("E5 E6"), Dictionary::Text("E5 E6"));
    EXPECT_EQ(d.Word("DD ED"), Dictionary::Text("DD F6 ED"));
}

TEST(Diacritize, LeavesWhatItCannotPlaceUnchanged) {
    Dictionary d;
    CString word(Dictionary::Text("DF F6 CA C8").c_str());  // a kasra no form has there
    EXPECT_FALSE(DiacritizeWord(word, d.forms.c_str(), d.index.c_str(), d.frequencies.c_str()));
    EXPECT_EQ(std::string(word), Dictionary::Text("DF F6 CA C8"));
    EXPECT_EQ(d.Word("DF CA C8 DF CA C8 DF CA C8"), Dictionary::Text("DF CA C8 DF CA C8 DF CA C8"));
    // Beyond the frequency file: no frequency, no choice.
    word = Dictionary::Text("DE E1 E3").c_str();
    EXPECT_FALSE(DiacritizeWord(word, d.forms.c_str(), d.index.c_str(), d.frequencies.c_str()));
    EXPECT_EQ(std::string(word), Dictionary::Text("DE E1 E3"));
    EXPECT_EQ(d.Word("78 79 7A"), "xyz");
    word = "";
    EXPECT_FALSE(DiacritizeWord(word, d.forms.c_str(), d.index.c_str(), d.frequencies.c_str()));
    EXPECT_THROW(
        DiacritizeWord(word, d.dir.Path("none").c_str(), d.index.c_str(), d.frequencies.c_str()),
        CFileException);
}

TEST(Diacritize, KeepsEveryDelimiterOfABufferInPlace) {
    Dictionary d;
    std::string in = Dictionary::Text(
        "DF CA C8 A1 20 DA E1 E3 0D 0A 28 DD ED 29 20 31 32 33 20 78 79 BF 2E 2E 20 DE E1 E3");
    std::string out = Dictionary::Text(
        "3C DF F3 CA F3 C8 A1 20 DA F6 E1 FA E3 0D 0A 28 DD F6 ED 29 20 31 32 33 20 78 79 BF 2E 2E "
        "20 DE E1 E3");
    std::string kept = in;
    EXPECT_EQ(d.Buffer(in), out);
    EXPECT_EQ(in, kept);  // the buffer is whole again
    EXPECT_EQ(d.Buffer(""), "<");
    EXPECT_EQ(d.Buffer(" ,.;\r\n?*"), "< ,.;\r\n?*");
    CString twice;
    std::string a = "xy ", b = Dictionary::Text("DD ED");
    DiacritizeBuffer(a.data(), twice, d.forms.c_str(), d.index.c_str(), d.frequencies.c_str());
    DiacritizeBuffer(b.data(), twice, d.forms.c_str(), d.index.c_str(), d.frequencies.c_str());
    EXPECT_EQ(std::string(twice), "xy " + Dictionary::Text("DD F6 ED"));
}

// The buffer path caches the index and repeated words; word by word through the plain
// path must give the same text.
TEST(Diacritize, TheCachedBufferAgreesWithWordByWordLookUps) {
    Dictionary d;
    const std::vector<std::string> pieces = {
        "DF CA C8",    "DF F5 CA C8", "DA E1 E3", "DA E1 F3 E3", "DA E1 F8 E3", "E3 E4",
        "DD ED",       "E5 E6",       "DE E1 E3", "DF",          "CA C8",       "78 79",
        "DF F6 CA C8", "E3 F6 E4",    "DA F3 E1", "3F",          "2A"};
    const std::vector<std::string> gaps = {"20", "A1 20", "0D 0A", "2E", "20 20", "BA", "21"};
    std::mt19937 rng(3);
    std::string text, expected;
    for (int i = 0; i < 3000; ++i) {
        std::string word = Dictionary::Text(pieces[rng() % pieces.size()]);
        std::string gap = Dictionary::Text(gaps[rng() % gaps.size()]);
        text += word + gap;
        CString one(word.c_str());
        if (!CStringToken::IsDelimiter(word[0], DiacritizeDelimiters))
            DiacritizeWord(one, d.forms.c_str(), d.index.c_str(), d.frequencies.c_str());
        expected += std::string(one) + gap;
    }
    EXPECT_EQ(d.Buffer(text), "<" + expected);
}

TEST(Diacritize, TakesAnyBytesAsABuffer) {
    Dictionary d;
    std::mt19937 rng(12);
    for (int k = 0; k < 20; ++k) {
        std::string text;
        for (int i = 0; i < 2000; ++i) text += static_cast<char>(1 + rng() % 255);
        std::string out = d.Buffer(text);
        // Every delimiter is still in its place relative to the others.
        std::string delimitersIn, delimitersOut;
        for (char c : text)
            if (CStringToken::IsDelimiter(c, DiacritizeDelimiters)) delimitersIn += c;
        for (char c : out.substr(1))
            if (CStringToken::IsDelimiter(c, DiacritizeDelimiters)) delimitersOut += c;
        EXPECT_EQ(delimitersIn, delimitersOut);
    }
}

// The same on a dictionary of random forms over few letters, with ties of frequency and
// frequencies missing at the end: many words share cells, and many have no form.
TEST(Diacritize, TheBufferAgreesWithWordByWordLookUpsOnARandomDictionary) {
    TempDir dir;
    std::string forms = dir.Path("f.bin"), index = dir.Path("f.idx"), counts = dir.Path("f.frq");
    const std::string letters = "\xC7\xC8\xCA\xE1", marks = "\xF3\xF5\xF6\xF8";
    std::mt19937 rng(51);
    {
        CTextBinFile dictionary(forms.c_str(), CFile::modeCreate | CFile::modeReadWrite);
        CIXFile frequencies(counts.c_str(), CFile::modeCreate | CFile::modeReadWrite, 4);
        for (int i = 0; i < 4000; ++i) {
            std::string w;
            for (int n = 1 + static_cast<int>(rng() % 5); n > 0; --n) {
                w += letters[rng() % letters.size()];
                if (rng() % 2) w += marks[rng() % marks.size()];
            }
            dictionary.Add(w.c_str());
            if (i < 3900) frequencies.Add(static_cast<int>(rng() % 5));
        }
        dictionary.IndexForWildCards(index.c_str(), DiacriticMarks, nullptr);
    }
    std::string text, expected;
    for (int i = 0; i < 2000; ++i) {
        std::string w;
        for (int n = 1 + static_cast<int>(rng() % 6); n > 0; --n) {
            w += letters[rng() % letters.size()];
            if (rng() % 5 == 0) w += marks[rng() % marks.size()];
        }
        CString one(w.c_str());
        DiacritizeWord(one, forms.c_str(), index.c_str(), counts.c_str());
        text += w + " ";
        expected += std::string(one) + " ";
    }
    CString result;
    DiacritizeBuffer(text.data(), result, forms.c_str(), index.c_str(), counts.c_str());
    EXPECT_EQ(std::string(result), expected);
}
