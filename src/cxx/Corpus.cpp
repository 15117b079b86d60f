// Corpus text: normalising vocalised Arabic to what Windows-1256 holds, taking marks
// away, and counting mark errors.
#include <algorithm>
#include <string>

#include "cxx/Boundary.h"
#include "dorvik/corpus.hpp"

namespace dorvik {
namespace {

constexpr char32_t kAlef = 0x0627, kWaw = 0x0648, kYeh = 0x064A, kAlefMaksura = 0x0649;
constexpr char32_t kTatweel = 0x0640, kHamzaAbove = 0x0654, kHamzaBelow = 0x0655;
constexpr char32_t kHamza = 0x0621, kAlefHamzaAbove = 0x0623, kAlefHamzaBelow = 0x0625;
constexpr char32_t kWawHamza = 0x0624, kYehHamza = 0x0626;
constexpr std::size_t kMaxHeld = std::size_t{1} << 20;

// Characters that become another one of Windows-1256.
struct Mapping {
    char32_t from;
    char32_t to;
};
constexpr Mapping kMappings[] = {
    {0x0656, 0x064D},  // subscript alef: Uthmani texts write the open kasratan with it
    {0x0657, 0x064B},  // inverted damma: the open fathatan of those texts
    {0x065E, 0x064C},  // fatha with two dots: their open dammatan
    {0x0671, 0x0627},  // alef wasla: an alef whose hamza is not spoken
    {0x0672, 0x0623},  // alef with wavy hamza above
    {0x0673, 0x0625},  // alef with wavy hamza below
    {0x0675, 0x0623},  // high hamza alef
    {0x0676, 0x0624},  // high hamza waw
    {0x0678, 0x0626},  // high hamza yeh
    {0x06CC, 0x064A},  // Farsi yeh, as Persian keyboards type the Arabic yeh
    {0x06E1, 0x0652},  // small high dotless head of khah: the sukun of Uthmani script
    {0x08F0, 0x064B},  // open fathatan
    {0x08F1, 0x064C},  // open dammatan
    {0x08F2, 0x064D},  // open kasratan
};

// Marks and signs without a Windows-1256 form, dropped unless mapped above: honorifics
// and Quranic small signs, the maddah and the rarer vowel signs, the superscript alef,
// Quranic pause marks, small letters and recitation signs, and the extended marks.
constexpr std::pair<char32_t, char32_t> kDropped[] = {
    {0x0610, 0x061A}, {0x0653, 0x065F}, {0x0670, 0x0670}, {0x06D6, 0x06ED}, {0x08D3, 0x08FF}};

enum class Rule { keep, map, drop, tatweel, hamza };

Rule RuleOf(char32_t c, char32_t& to) {
    if (c < 0x0610) return Rule::keep;
    if (c == kTatweel) return Rule::tatweel;
    if (c == kHamzaAbove || c == kHamzaBelow) return Rule::hamza;
    for (const Mapping& m : kMappings) {
        if (m.from == c) {
            to = m.to;
            return Rule::map;
        }
    }
    for (const auto& [first, last] : kDropped)
        if (c >= first && c <= last) return Rule::drop;
    return Rule::keep;
}

// The letter a hamza above or below makes of the letter it sits on; 0: none, the hamza
// stands alone.
char32_t JoinHamza(char32_t before, char32_t hamza) {
    switch (before) {
        case kAlef:
            return hamza == kHamzaAbove ? kAlefHamzaAbove : kAlefHamzaBelow;
        case kWaw:
            return hamza == kHamzaAbove ? kWawHamza : 0;
        case kYeh:
        case kAlefMaksura:
            return kYehHamza;
        default:
            return 0;
    }
}

bool IsCombining(char32_t c) {
    return (c >= 0x0610 && c <= 0x061A) || (c >= 0x064B && c <= 0x065F) || c == 0x0670 ||
           (c >= 0x06D6 && c <= 0x06ED) || (c >= 0x08D3 && c <= 0x08FF);
}

Error BadUtf8(std::uint64_t at, bool cut) {
    return cxx::MakeError(ErrorCode::bad_text, std::string(cut ? "the text ends inside a UTF-8 "
                                                                 "sequence at byte "
                                                               : "invalid UTF-8 at byte ") +
                                                   std::to_string(at));
}

// Where the next piece of normalising may end in `text`: behind its last ASCII word end;
// failing that, once the text is long, in front of its last character that is no mark.
std::size_t CutPoint(std::string_view text) {
    for (std::size_t at = text.size(); at > 0; --at) {
        auto byte = static_cast<unsigned char>(text[at - 1]);
        if (byte < 0x80 && cxx::EndsWord(byte)) return at;
    }
    if (text.size() <= kMaxHeld) return 0;
    for (std::size_t at = text.size(); at > 0; --at) {
        if ((static_cast<unsigned char>(text[at - 1]) & 0xC0) == 0x80) continue;
        cxx::Decoded c = cxx::DecodeUtf8(text, at - 1);
        if (c.length > 0 && !IsCombining(c.value)) return at - 1;
    }
    return 0;
}

bool IsArabicLetter(char32_t c) {
    return (c >= 0x0621 && c <= 0x064A && c != kTatweel) || (c >= 0x0671 && c <= 0x06D3);
}

bool IsRestoredMark(char32_t c) { return c >= 0x064B && c <= 0x0652; }

}  // namespace

// ---- Normalising -----------------------------------------------------------------------

void CorpusNormalizer::Run(std::string_view text, std::size_t end, std::string& out) {
    // The letter that the marks written since belong to (0 when something else came
    // last), where it starts in `out`, and where a waiting tatweel stands there.
    char32_t base = 0;
    std::size_t baseAt = 0, tatweelAt = out.size();
    auto drop = [&](char32_t c) {
        ++dropped_[c];
        ++dropped_count_;
    };
    auto write = [&](char32_t c, std::string_view raw) {
        if (!IsCombining(c)) {
            base = c;
            baseAt = out.size();
        }
        if (raw.empty())
            append_utf8(out, c);
        else
            out.append(raw);
    };
    for (std::size_t at = 0; at < end;) {
        cxx::Decoded c = cxx::DecodeUtf8(text.substr(0, end), at);
        if (c.length <= 0) throw BadUtf8(offset_ + at, c.length < 0);
        std::string_view raw = text.substr(at, static_cast<std::size_t>(c.length));
        at += static_cast<std::size_t>(c.length);
        char32_t to = 0;
        Rule rule = RuleOf(c.value, to);
        if (rule == Rule::drop) {
            drop(c.value);
            continue;
        }
        if (rule == Rule::hamza) {
            // A combining hamza belongs to the letter before it and the marks between.
            ++mapped_count_;
            if (tatweel_) {
                // A tatweel is the seat of a hamza in the middle of a word: yeh with hamza.
                tatweel_ = false;
                std::string seat;
                append_utf8(seat, kYehHamza);
                out.insert(tatweelAt, seat);
                base = kYehHamza;
                baseAt = tatweelAt;
            } else if (char32_t joined = JoinHamza(base, c.value)) {
                std::string letter;
                append_utf8(letter, joined);  // as long as the letter it replaces
                out.replace(baseAt, letter.size(), letter);
                base = joined;
            } else {
                write(kHamza, {});
            }
            continue;
        }
        if (tatweel_) {
            // Marks may stand between a tatweel and its hamza; anything else ends the wait.
            if (rule == Rule::keep && IsCombining(c.value)) {
                out.append(raw);
                continue;
            }
            tatweel_ = false;
            drop(kTatweel);
        }
        switch (rule) {
            case Rule::keep:
                write(c.value, raw);
                break;
            case Rule::map:
                ++mapped_count_;
                write(to, {});
                break;
            case Rule::tatweel:
                tatweel_ = true;
                tatweelAt = out.size();
                base = 0;
                break;
            default:
                break;
        }
    }
}

std::string CorpusNormalizer::feed(std::string_view piece) {
    held_.append(piece);
    std::size_t cut = CutPoint(held_);
    std::string out;
    if (cut == 0) return out;
    out.reserve(cut);
    try {
        Run(held_, cut, out);
    } catch (...) {
        held_.clear();
        offset_ = 0;
        tatweel_ = false;
        throw;
    }
    held_.erase(0, cut);
    offset_ += cut;
    return out;
}

std::string CorpusNormalizer::finish() {
    std::string text = std::move(held_);
    held_.clear();
    std::string out;
    try {
        Run(text, text.size(), out);
    } catch (...) {
        offset_ = 0;
        tatweel_ = false;
        throw;
    }
    offset_ = 0;
    if (tatweel_) {
        tatweel_ = false;
        ++dropped_[kTatweel];
        ++dropped_count_;
    }
    return out;
}

// ---- Marks ---------------------------------------------------------------------------

std::string strip_marks(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        auto byte = static_cast<unsigned char>(text[at]);
        if (byte < 0x80) {
            out += static_cast<char>(byte);
            ++at;
            continue;
        }
        cxx::Decoded c = cxx::DecodeUtf8(text, at);
        if (c.length <= 0) throw BadUtf8(at, c.length < 0);
        if (!IsRestoredMark(c.value))
            out.append(text.substr(at, static_cast<std::size_t>(c.length)));
        at += static_cast<std::size_t>(c.length);
    }
    return out;
}

namespace {
// One character that is no mark, with the marks behind it, of a text being compared.
struct Unit {
    char32_t base = 0;  // 0: marks at the very start, behind no character
    std::size_t at = 0;
    std::string marks;  // the mark code points' low bytes, sorted
};

class Units {
public:
    explicit Units(std::string_view text) : text_(text) {}

    bool Next(Unit& unit) {
        if (at_ >= text_.size()) return false;
        unit.at = at_;
        unit.marks.clear();
        unit.base = 0;
        char32_t c = Peek();
        if (!IsRestoredMark(c)) {
            unit.base = c;
            at_ += static_cast<std::size_t>(length_);
        }
        while (at_ < text_.size() && IsRestoredMark(c = Peek())) {
            unit.marks += static_cast<char>(c & 0xFF);
            at_ += static_cast<std::size_t>(length_);
        }
        std::sort(unit.marks.begin(), unit.marks.end());
        return true;
    }

private:
    char32_t Peek() {
        cxx::Decoded c = cxx::DecodeUtf8(text_, at_);
        if (c.length <= 0) throw BadUtf8(at_, c.length < 0);
        length_ = c.length;
        return c.value;
    }

    std::string_view text_;
    std::size_t at_ = 0;
    int length_ = 0;
};

// The counts of the word being read.
struct Word {
    std::uint64_t letters = 0, wrong = 0;
    bool lastWrong = false, marked = false;
};
}  // namespace

double MarkErrors::word_error_rate(bool case_ending) const noexcept {
    if (words == 0) return 0;
    return static_cast<double>(case_ending ? wrong_words : wrong_words_but_last) /
           static_cast<double>(words);
}

double MarkErrors::diacritic_error_rate(bool case_ending) const noexcept {
    std::uint64_t total = case_ending ? letters : letters_but_last;
    if (total == 0) return 0;
    return static_cast<double>(case_ending ? wrong_letters : wrong_letters_but_last) /
           static_cast<double>(total);
}

MarkErrors& MarkErrors::operator+=(const MarkErrors& other) noexcept {
    words += other.words;
    letters += other.letters;
    wrong_words += other.wrong_words;
    wrong_letters += other.wrong_letters;
    letters_but_last += other.letters_but_last;
    wrong_words_but_last += other.wrong_words_but_last;
    wrong_letters_but_last += other.wrong_letters_but_last;
    bare_words += other.bare_words;
    return *this;
}

MarkErrors compare_marks(std::string_view gold, std::string_view restored) {
    MarkErrors errors;
    Word word;
    auto close = [&] {
        if (word.letters > 0) {
            std::uint64_t butLast = word.wrong - (word.lastWrong ? 1 : 0);
            ++errors.words;
            errors.letters += word.letters;
            errors.wrong_letters += word.wrong;
            errors.wrong_words += word.wrong > 0;
            errors.letters_but_last += word.letters - 1;
            errors.wrong_letters_but_last += butLast;
            errors.wrong_words_but_last += butLast > 0;
            errors.bare_words += !word.marked;
        }
        word = Word();
    };
    Units goldUnits(gold), restoredUnits(restored);
    Unit g, r;
    for (;;) {
        bool more = goldUnits.Next(g), moreRestored = restoredUnits.Next(r);
        if (more != moreRestored || (more && g.base != r.base)) {
            std::size_t at = more ? g.at : gold.size();
            throw cxx::MakeError(ErrorCode::invalid_argument,
                                 "the texts differ in more than marks at byte " +
                                     std::to_string(at) + " of the true text");
        }
        if (!more) break;
        if (cxx::EndsWord(cxx::Cp1256Byte(g.base))) {
            close();
            continue;
        }
        word.marked |= !r.marks.empty();
        if (!IsArabicLetter(g.base)) continue;
        ++word.letters;
        word.lastWrong = g.marks != r.marks;
        word.wrong += word.lastWrong;
    }
    close();
    return errors;
}

}  // namespace dorvik
