// Vocalised Arabic corpora for the diacritizer, in namespace dorvik (included by
// <dorvik/dorvik.hpp>): bringing a corpus to the letters and marks that the engine holds,
// taking marks away, and measuring how well marks were restored. All text is UTF-8.
//
// Threads: the free functions may run anywhere at any time; a CorpusNormalizer belongs
// to one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace dorvik {

// Brings vocalised Arabic text to what Windows-1256 holds, so that the words of a corpus
// become forms the diacritizer can keep. Each character is mapped, dropped or kept:
//  - mapped: alef wasla to alef; the alefs, waw and yeh with a high or wavy hamza to
//    their plain hamza forms; Farsi yeh to yeh; the small high dotless head of khah (the
//    sukun of Uthmani script) to sukun; the open tanween (U+08F0 to U+08F2, and U+0657,
//    U+065E, U+0656, which Uthmani texts use for them) to tanween;
//  - hamza above or below (U+0654, U+0655) joins the letter before it: alef to alef
//    with hamza above or below, waw to waw with hamza, yeh, alef maksura or a tatweel
//    to yeh with hamza (a hamza on a seat); elsewhere it becomes the hamza letter;
//  - dropped: the superscript alef, the maddah above, a tatweel that carries no hamza,
//    and the other Arabic marks and Quranic signs that Windows-1256 lacks (U+0610 to
//    U+061A, U+0653 to U+065F, U+0670, U+06D6 to U+06ED, U+08D3 to U+08FF);
//  - kept: everything else, as it stands. What Windows-1256 cannot hold still ends a
//    word for the diacritizer, as in split_words().
// The table of these rules is in the source, one commented entry per character.
//
// Text may come in pieces cut anywhere, even inside a character: feed() gives the
// normalised text up to the last word end it has seen (a blank, a line end or ASCII
// punctuation: a delimiter of the diacritizer) and holds back the rest, so its results
// can go to Diacritizer::Builder::add_text() or be compared word by word; finish() gives
// what is held back. The result is the same wherever the pieces end. What is held back
// stays below 1 MiB plus one piece: a text without a word end for that long is cut
// before a letter, so that a letter keeps its marks.
class __attribute__((visibility("default"))) CorpusNormalizer {
public:
    // The normalised text that `piece` completes; may be empty. Throws Error(bad_text)
    // for invalid UTF-8, naming its byte offset from the start of the text (all pieces
    // since the last finish()); what was held back is then dropped, the characters
    // counted so far stay counted, and the next piece starts a new text.
    std::string feed(std::string_view piece);
    // The rest. Throws Error(bad_text) when the text ends inside a UTF-8 sequence. The
    // normalizer may then take a new text; its counts go on.
    std::string finish();

    // The characters dropped so far, by code point.
    const std::map<char32_t, std::uint64_t>& dropped() const noexcept { return dropped_; }
    // Characters dropped, and characters mapped to another (a hamza joined to the letter
    // before it counts once, as mapped), since construction.
    std::uint64_t dropped_count() const noexcept { return dropped_count_; }
    std::uint64_t mapped_count() const noexcept { return mapped_count_; }

private:
    // Normalises text[0, end) onto `out`.
    void Run(std::string_view text, std::size_t end, std::string& out);

    std::string held_;          // the input not yet normalised
    std::uint64_t offset_ = 0;  // offset of held_ in the text
    bool tatweel_ = false;      // a tatweel waits to learn whether a hamza sits on it
    std::map<char32_t, std::uint64_t> dropped_;
    std::uint64_t dropped_count_ = 0;
    std::uint64_t mapped_count_ = 0;
};

// `text` without the eight marks the diacritizer restores (fatha, damma, kasra, their
// tanween, shadda, sukun: U+064B to U+0652); everything else stays. Throws
// Error(bad_text) for invalid UTF-8, naming its byte offset.
__attribute__((visibility("default"))) std::string strip_marks(std::string_view text);

// How far restored marks are from the true ones, in the convention of published Arabic
// diacritization benchmarks:
//  - a letter is an Arabic letter (U+0621 to U+064A but the tatweel, U+0671 to U+06D3);
//    its marks are the marks (U+064B to U+0652) that follow it, in any order, and a
//    letter is wrong when they differ from the true ones, also when it has none;
//  - a word is a run of characters between word ends, as split_words() cuts it, that
//    holds a letter; it is wrong when one of its letters is;
//  - the diacritic error rate (DER) is wrong letters over letters, the word error rate
//    (WER) wrong words over words; "without case ending" leaves the last letter of every
//    word out of both, so a one-letter word then always counts as right.
// Counts add up with +=, so a long text may be compared piece by piece (each piece
// ending at a word end).
struct __attribute__((visibility("default"))) MarkErrors {
    std::uint64_t words = 0;
    std::uint64_t letters = 0;
    std::uint64_t wrong_words = 0;
    std::uint64_t wrong_letters = 0;
    std::uint64_t letters_but_last = 0;      // letters less the last of each word
    std::uint64_t wrong_words_but_last = 0;  // words wrong in a letter but the last
    std::uint64_t wrong_letters_but_last = 0;
    std::uint64_t bare_words = 0;  // restored words without any mark (often: not known)

    // The rates as fractions from 0 to 1; 0 when nothing was counted.
    double word_error_rate(bool case_ending = true) const noexcept;
    double diacritic_error_rate(bool case_ending = true) const noexcept;
    MarkErrors& operator+=(const MarkErrors& other) noexcept;
};

// Compares `restored` with the true text `gold` it was restored from. The two must be
// the same text but for the marks U+064B to U+0652; otherwise throws
// Error(invalid_argument) naming the byte offset in `gold` where they part. Throws
// Error(bad_text) for invalid UTF-8 in either.
__attribute__((visibility("default"))) MarkErrors compare_marks(std::string_view gold,
                                                                std::string_view restored);

}  // namespace dorvik
