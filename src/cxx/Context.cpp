// ContextDiacritizer: the look-up of Diacritizer, with clitic back-off for unknown words
// and a choice by adjacent form pairs for ambiguous ones.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <deque>
#include <string>
#include <unordered_map>
#include <vector>

#include "cxx/Boundary.h"
#include "dorvik/IXFile.h"
#include "index/IXRecords.h"
#include "text/Diacritization.h"

namespace dorvik {

using cxx::Guard;

namespace {

// The most candidates a word keeps for the context step, the most frequent ones: the
// rest are too rare to win against the counts, and the search grows with their square.
constexpr std::size_t kMaxCandidates = 8;

// The Windows-1256 bytes of a UTF-8 literal of the tables below.
std::string Cp(std::string_view utf8) { return *cxx::Encode(utf8, true); }
char Byte(std::string_view utf8) { return Cp(utf8)[0]; }

// The letters and marks the back-off writes, as bytes.
struct Letters {
    char fatha = Byte("َ"), damma = Byte("ُ"), kasra = Byte("ِ"), sukun = Byte("ْ"), shadda = Byte("ّ");
    char fathatan = Byte("ً"), dammatan = Byte("ٌ"), kasratan = Byte("ٍ");
    char alef = Byte("ا"), lam = Byte("ل"), yeh = Byte("ي"), teh = Byte("ت"),
         tehMarbuta = Byte("ة");
    // Letters that take over the lam of the article: it goes unmarked and they double.
    std::string sun = Cp("تثدذرزسشصضطظلن");
};

const Letters& L() {
    static const Letters letters;
    return letters;
}

// A letter and the marks written after it.
struct Letter {
    char ch;
    std::string marks;
};

using Word = std::vector<Letter>;

// The letters of a Windows-1256 word; empty when it begins with a mark.
Word Parse(std::string_view word) {
    Word letters;
    for (char c : word) {
        if (cxx::IsMark(static_cast<unsigned char>(c))) {
            if (letters.empty()) return {};
            letters.back().marks += c;
        } else {
            letters.push_back({c, {}});
        }
    }
    return letters;
}

std::string Join(const Word& letters, std::size_t from, std::size_t to) {
    std::string text;
    for (std::size_t i = from; i < to; ++i) text += letters[i].ch + letters[i].marks;
    return text;
}

// A clitic: its bare letters and its usual marked form (Windows-1256 once built).
struct Clitic {
    std::string bare, marked;
    char stemEnd = 0;  // for a suffix: the mark the stem's last letter takes, 0: its own
};

// The proclitics, in the order they stack: a conjunction, then a preposition or the
// future prefix, then the article (built by hand: its marks depend on the stem).
struct Proclitics {
    std::vector<Clitic> conjunctions = {
        {Cp("و"), Cp("وَ")},  // wa-, "and"
        {Cp("ف"), Cp("فَ")},  // fa-, "so, then"
    };
    std::vector<Clitic> prepositions = {
        {Cp("ب"), Cp("بِ")},  // bi-, "with, by"
        {Cp("ك"), Cp("كَ")},  // ka-, "like"
        {Cp("ل"), Cp("لِ")},  // li-, "for, to"; before the article its alef drops (lil-)
        {Cp("س"), Cp("سَ")},  // sa-, the future on a verb; never before the article
    };
};

// The endings: the attached pronouns, and the plural endings that change the mark of
// the stem's last letter. The pronouns in h take a kasra after a kasra or a yeh.
struct Enclitics {
    std::vector<Clitic> all = {
        {Cp("ه"), Cp("هُ")},               // -hu, "his, him"
        {Cp("ها"), Cp("هَا")},             // -ha, "her"
        {Cp("هم"), Cp("هُمْ")},             // -hum, "their, them"
        {Cp("هما"), Cp("هُمَا")},           // -huma, "of them two"
        {Cp("هن"), Cp("هُنَّ")},             // -hunna, "their" (feminine)
        {Cp("ك"), Cp("كَ")},               // -ka, "your"
        {Cp("كم"), Cp("كُمْ")},             // -kum, "your" (plural)
        {Cp("كما"), Cp("كُمَا")},           // -kuma, "of you two"
        {Cp("كن"), Cp("كُنَّ")},             // -kunna, "your" (feminine plural)
        {Cp("نا"), Cp("نَا")},             // -na, "our, us"
        {Cp("ني"), Cp("نِي")},             // -ni, "me"
        {Cp("ي"), Cp("ي"), L().kasra},    // -i, "my": a kasra before it
        {Cp("ون"), Cp("ونَ"), L().damma},  // -una, the masculine plural
        {Cp("ين"), Cp("ينَ"), L().kasra},  // -ina, the same, not in the nominative
        {Cp("وا"), Cp("وا"), L().damma},  // -u, the plural of a verb
    };
};

const Proclitics& Pro() {
    static const Proclitics table;
    return table;
}

const Enclitics& En() {
    static const Enclitics table;
    return table;
}

bool HasPrefix(const Word& word, const std::string& bare, std::size_t at) {
    if (at + bare.size() > word.size()) return false;
    for (std::size_t i = 0; i < bare.size(); ++i)
        if (word[at + i].ch != bare[i]) return false;
    return true;
}

// `marked` (a clitic's usual form) unless the word already has marks on those letters:
// written marks stand as written.
std::string Put(const Word& word, std::size_t at, const Clitic& clitic) {
    for (std::size_t i = 0; i < clitic.bare.size(); ++i)
        if (!word[at + i].marks.empty()) return Join(word, at, at + clitic.bare.size());
    return clitic.marked;
}

// A tanween at the end turns into its short vowel (a stem that takes a clitic is
// definite or followed).
void Untanween(std::string& marks) {
    for (char& m : marks) {
        if (m == L().fathatan) m = L().fatha;
        if (m == L().dammatan) m = L().damma;
        if (m == L().kasratan) m = L().kasra;
    }
}

// One way to cut a word: the clitics' text before and after, and the stem between.
struct Split {
    std::string before;
    std::size_t stemFrom = 0, stemTo = 0;
    bool article = false;
    const Clitic* suffix = nullptr;
    int clitics = 0;
};

}  // namespace

struct ContextDiacritizer::Impl {
    std::filesystem::path folder;
    Steps steps = Steps::context;
    std::unique_ptr<Diacritization> files;
    std::size_t longest = 0;
    double total = 0, vocabulary = 0;
    bool context = false;
    // The pairs as the file holds them, by left form: the right forms after left form l
    // are right[first[l]] to right[first[l + 1] - 1], in order, and how often each came.
    std::vector<std::uint32_t> first, right, count;
    // Per left form with pairs: log(pairs after it + kinds after it), and the log weight
    // of the single counts, log(kinds / (pairs + kinds)).
    std::vector<float> logTotal, logWeight;
    // The sentence boundary, as a form number past the last form: the start as a left
    // form, the end (this candidate) as a right one.
    int boundary = 0;
    struct Candidate;
    std::unique_ptr<Candidate> sentenceEnd;
    // The transitions computed lately, by a hash of their two form numbers: most pairs
    // of neighbours come back often, and the pair counts are a slower look-up.
    struct Remembered {
        std::uint64_t key = ~std::uint64_t{0};
        double value = 0;
    };
    static constexpr std::size_t kRemembered = std::size_t{1} << 14;
    mutable std::vector<Remembered> remembered = std::vector<Remembered>(kRemembered);
    // The Viterbi tables, kept between sentences.
    mutable std::vector<double> score;
    mutable std::vector<std::uint8_t> from;

    struct Candidate {
        std::string text;  // Windows-1256
        int id;            // -1: not a dictionary form
        double unigram;    // log P(form); 0 for a word outside the dictionary
        double p;          // P(form)
    };
    std::unordered_map<std::string, std::vector<Candidate>> seen;
    // The candidates of the words of the sentence longer than any form.
    std::deque<std::vector<Candidate>> overlong;
    std::string held;
    // The stems looked up by the back-off: the best form and its frequency (-1: none).
    std::unordered_map<std::string, std::pair<int, std::string>> stems;

    void LoadPairs(const std::filesystem::path& path);
    double Unigram(int id) const;
    double Transition(int from, const Candidate& to) const;
    const std::vector<Candidate>& CandidatesOf(const std::string& word);
    // The best stem form of `stem` and its frequency; -1 when none.
    int Stem(const std::string& stem, std::string& form);
    std::string Backoff(const std::string& word);
    void Decode(std::vector<const std::vector<Candidate>*>& sentence,
                std::vector<const std::string*>& chosen) const;
    std::string Run(std::string_view text);
};

void ContextDiacritizer::Impl::LoadPairs(const std::filesystem::path& path) {
    std::vector<int> records = Guard(path, [&] {
        CIXFile file(path.c_str(), CFile::shareDenyNone, 4);
        return ReadIXRecords(file);
    });
    int forms = files->FormCount();
    if (records.size() % 3 != 0)
        throw cxx::MakeError(ErrorCode::invalid_file, "not whole pairs", path);
    boundary = forms;
    std::size_t lefts = static_cast<std::size_t>(forms) + 1;
    std::vector<std::uint64_t> leftTotal(lefts, 0);
    first.assign(lefts + 1, 0);
    right.reserve(records.size() / 3);
    count.reserve(records.size() / 3);
    double ends = 0;
    std::uint64_t previous = 0;
    for (std::size_t i = 0; i < records.size(); i += 3) {
        int l = records[i], r = records[i + 1], n = records[i + 2];
        if (l < -1 || l >= forms || r < -1 || r >= forms || n < 0)
            throw cxx::MakeError(ErrorCode::invalid_file, "a pair out of range", path);
        // -1, the boundary, becomes the number past the last form: the order stays.
        auto left = static_cast<std::uint32_t>(l < 0 ? boundary : l);
        auto to = static_cast<std::uint32_t>(r < 0 ? boundary : r);
        std::uint64_t key = (std::uint64_t{left} << 32) | to;
        if (i > 0 && key <= previous)
            throw cxx::MakeError(ErrorCode::invalid_file, "pairs out of order", path);
        previous = key;
        if (r < 0) ends += n;
        right.push_back(to);
        count.push_back(static_cast<std::uint32_t>(n));
        ++first[left + 1];
        leftTotal[left] += static_cast<std::uint64_t>(n);
    }
    for (std::size_t l = 0; l < lefts; ++l) first[l + 1] += first[l];
    std::vector<std::uint32_t> leftTypes(lefts);
    for (std::size_t l = 0; l < lefts; ++l) leftTypes[l] = first[l + 1] - first[l];
    logTotal.assign(leftTypes.size(), 0);
    logWeight.assign(leftTypes.size(), 0);
    for (std::size_t i = 0; i < leftTypes.size(); ++i) {
        if (leftTypes[i] == 0) continue;
        double types = leftTypes[i], after = static_cast<double>(leftTotal[i]);
        logTotal[i] = static_cast<float>(std::log(after + types));
        logWeight[i] = static_cast<float>(std::log(types / (after + types)));
    }
    double pEnd = (ends + 0.5) / (total + 0.5 * vocabulary);
    sentenceEnd = std::make_unique<Candidate>(Candidate{{}, boundary, std::log(pEnd), pEnd});
    context = true;
}

// log P(form), add-one-half smoothed; 0 for a word outside the dictionary (its only
// candidate).
double ContextDiacritizer::Impl::Unigram(int id) const {
    if (id < 0) return 0;
    return std::log((std::max(files->Frequency(id), 0) + 0.5) / (total + 0.5 * vocabulary));
}

// log P(to | from), Witten-Bell: the pair count, and the single count weighted by the
// number of different forms seen after `from`.
double ContextDiacritizer::Impl::Transition(int left, const Candidate& to) const {
    if (to.id < 0) return 0;
    if (left < 0) return to.unigram;
    auto l = static_cast<std::size_t>(left);
    std::uint32_t begin = first[l], end = first[l + 1];
    if (begin == end) return to.unigram;
    std::uint64_t key =
        (static_cast<std::uint64_t>(left) << 32) | static_cast<std::uint32_t>(to.id);
    Remembered& slot = remembered[(key * 0x9E3779B97F4A7C15u) >> 50];
    if (slot.key == key) return slot.value;
    const std::uint32_t* at = std::lower_bound(right.data() + begin, right.data() + end,
                                               static_cast<std::uint32_t>(to.id));
    // Most pairs were never seen: then only the weighted single count is left.
    slot.key = key;
    slot.value =
        at == right.data() + end || *at != static_cast<std::uint32_t>(to.id)
            ? logWeight[l] + to.unigram
            : std::log(count[static_cast<std::size_t>(at - right.data())] + (end - begin) * to.p) -
                  logTotal[l];
    return slot.value;
}

int ContextDiacritizer::Impl::Stem(const std::string& stem, std::string& form) {
    auto known = stems.find(stem);
    if (known != stems.end()) {
        form = known->second.second;
        return known->second.first;
    }
    if (stems.size() >= Diacritization::kSeenWords) stems.clear();
    std::vector<int> ids;
    files->Candidates(stem.c_str(), ids);
    int best = -1, bestId = -1;
    for (int id : ids) {
        if (files->Frequency(id) > best) {
            best = files->Frequency(id);
            bestId = id;
        }
    }
    if (bestId >= 0) form = files->Form(bestId);
    stems.emplace(stem, std::make_pair(best, form));
    return best;
}

std::string ContextDiacritizer::Impl::Backoff(const std::string& text) {
    Word word = Parse(text);
    if (word.size() < 3) return {};
    const Letters& l = L();
    std::vector<Split> splits;
    // Every stack of proclitics the word begins with.
    std::vector<const Clitic*> conjunctions = {nullptr}, prepositions = {nullptr};
    for (const Clitic& c : Pro().conjunctions) conjunctions.push_back(&c);
    for (const Clitic& c : Pro().prepositions) prepositions.push_back(&c);
    for (const Clitic* conjunction : conjunctions) {
        std::size_t at = 0;
        Split split;
        if (conjunction) {
            if (!HasPrefix(word, conjunction->bare, at)) continue;
            split.before += Put(word, at, *conjunction);
            at += conjunction->bare.size();
            ++split.clitics;
        }
        for (const Clitic* preposition : prepositions) {
            Split p = split;
            std::size_t pat = at;
            if (preposition) {
                if (!HasPrefix(word, preposition->bare, pat)) continue;
                p.before += Put(word, pat, *preposition);
                pat += preposition->bare.size();
                ++p.clitics;
            }
            for (bool article : {false, true}) {
                Split a = p;
                std::size_t aat = pat;
                if (article) {
                    bool li = preposition && preposition->bare == Cp("ل");
                    if (preposition && preposition->bare == Cp("س")) continue;
                    std::string bare = li ? std::string(1, l.lam) : std::string{l.alef, l.lam};
                    if (!HasPrefix(word, bare, aat)) continue;
                    if (!li) a.before += Join(word, aat, aat + 1);
                    aat += bare.size();
                    a.article = true;
                    ++a.clitics;
                }
                a.stemFrom = aat;
                for (const Clitic* suffix = nullptr;;) {
                    Split s = a;
                    s.suffix = suffix;
                    std::size_t end = word.size() - (suffix ? suffix->bare.size() : 0);
                    if (suffix) ++s.clitics;
                    if (end >= aat + 2 && s.clitics > 0 &&
                        (!suffix || HasPrefix(word, suffix->bare, end))) {
                        s.stemTo = end;
                        splits.push_back(s);
                    }
                    // Next suffix.
                    const std::vector<Clitic>& all = En().all;
                    std::size_t next =
                        suffix ? static_cast<std::size_t>(suffix - all.data()) + 1 : 0;
                    if (next >= all.size()) break;
                    suffix = &all[next];
                }
            }
        }
    }
    double bestScore = 0;
    std::string best;
    for (const Split& s : splits) {
        Word stemLetters(word.begin() + static_cast<std::ptrdiff_t>(s.stemFrom),
                         word.begin() + static_cast<std::ptrdiff_t>(s.stemTo));
        std::string stem = Join(stemLetters, 0, stemLetters.size());
        std::string form;
        int frequency = Stem(stem, form);
        // A teh before an ending was a teh marbuta on the stem alone.
        bool marbuta = false;
        if (frequency < 0 && s.suffix && stemLetters.back().ch == l.teh) {
            stemLetters.back().ch = l.tehMarbuta;
            frequency = Stem(Join(stemLetters, 0, stemLetters.size()), form);
            marbuta = frequency >= 0;
        }
        if (frequency < 0) continue;
        double splitScore = (frequency + 1.0) / static_cast<double>(1 << s.clitics);
        if (splitScore <= bestScore) continue;
        Word f = Parse(form);
        if (f.empty()) continue;
        if (marbuta) f.back().ch = l.teh;
        if (s.article || s.suffix) Untanween(f.back().marks);
        std::string lamMarks;
        if (s.article) {
            bool sun = l.sun.find(f.front().ch) != std::string::npos;
            if (sun && f.front().marks.find(l.shadda) == std::string::npos)
                f.front().marks.insert(0, 1, l.shadda);
            lamMarks = sun ? "" : std::string(1, l.sukun);
            std::size_t lamAt = s.stemFrom - 1;  // the lam is the article's last letter
            if (!word[lamAt].marks.empty()) lamMarks = word[lamAt].marks;
        }
        std::string after;
        if (s.suffix) {
            std::size_t at = word.size() - s.suffix->bare.size();
            if (s.suffix->stemEnd) {
                std::string& marks = f.back().marks;
                bool doubled = marks.find(l.shadda) != std::string::npos;
                marks = doubled ? std::string{l.shadda, s.suffix->stemEnd}
                                : std::string(1, s.suffix->stemEnd);
            }
            after = Put(word, at, *s.suffix);
            // -hu, -hum, -huma, -hunna take a kasra after a kasra or a yeh.
            bool softens =
                f.back().marks.find(l.kasra) != std::string::npos || f.back().ch == l.yeh;
            if (softens && s.suffix->bare[0] == Cp("ه")[0] && s.suffix->bare != Cp("ها") &&
                after.size() > 1 && after[1] == l.damma)
                after[1] = l.kasra;
        }
        bestScore = splitScore;
        best = s.before + (s.article ? std::string(1, l.lam) + lamMarks : std::string()) +
               Join(f, 0, f.size()) + after;
    }
    return best;
}

const std::vector<ContextDiacritizer::Impl::Candidate>& ContextDiacritizer::Impl::CandidatesOf(
    const std::string& word) {
    auto at = seen.find(word);
    if (at != seen.end()) return at->second;
    std::size_t letters = 0;
    for (char c : word) letters += !cxx::IsMark(static_cast<unsigned char>(c));
    if (letters > longest) {
        // No form is that long: the word stays as it is, and is not kept (it may be long).
        overlong.push_back({{word, -1, 0, 1}});
        return overlong.back();
    }
    if (seen.size() >= Diacritization::kSeenWords) seen.clear();
    std::vector<Candidate> candidates;
    {
        std::vector<int> ids;
        files->Candidates(word.c_str(), ids);
        // Most frequent first, the lowest id first among equals (the classic choice).
        std::stable_sort(ids.begin(), ids.end(), [this](int a, int b) {
            return files->Frequency(a) > files->Frequency(b);
        });
        if (ids.size() > kMaxCandidates) ids.resize(kMaxCandidates);
        for (int id : ids)
            candidates.push_back({files->Form(id), id, Unigram(id), std::exp(Unigram(id))});
        if (candidates.empty() && steps != Steps::lookup) {
            std::string form = Backoff(word);
            if (!form.empty()) candidates.push_back({std::move(form), -1, 0, 1});
        }
    }
    if (candidates.empty()) candidates.push_back({word, -1, 0, 1});
    return seen.emplace(word, std::move(candidates)).first->second;
}

void ContextDiacritizer::Impl::Decode(std::vector<const std::vector<Candidate>*>& sentence,
                                      std::vector<const std::string*>& chosen) const {
    chosen.clear();
    if (sentence.empty()) return;
    if (steps != Steps::context || !context) {
        for (const auto* c : sentence) chosen.push_back(&c->front().text);
        return;
    }
    // score[K i + k]: the best log probability of the sentence up to word i ending in
    // its candidate k; from[K i + k]: the candidate of word i - 1 it came from.
    constexpr std::size_t K = kMaxCandidates;
    score.assign(K * sentence.size(), -INFINITY);
    from.assign(K * sentence.size(), 0);
    for (std::size_t i = 0; i < sentence.size(); ++i) {
        const std::vector<Candidate>& here = *sentence[i];
        for (std::size_t k = 0; k < here.size(); ++k) {
            double& best = score[K * i + k];
            if (i == 0) {
                best = Transition(boundary, here[k]);
                continue;
            }
            const std::vector<Candidate>& before = *sentence[i - 1];
            if (before.size() == 1 && here.size() == 1) {
                best = score[K * (i - 1)];  // every path goes through both: no choice here
                continue;
            }
            for (std::size_t j = 0; j < before.size(); ++j) {
                double s = score[K * (i - 1) + j] + Transition(before[j].id, here[k]);
                if (s > best) {  // greater: the more frequent earlier candidate wins ties
                    best = s;
                    from[K * i + k] = static_cast<std::uint8_t>(j);
                }
            }
        }
    }
    std::size_t last = sentence.size() - 1;
    std::size_t k = 0;
    double best = -INFINITY;
    for (std::size_t j = 0; j < sentence[last]->size(); ++j) {
        double s = score[K * last + j] + Transition((*sentence[last])[j].id, *sentenceEnd);
        if (s > best) {
            best = s;
            k = j;
        }
    }
    chosen.assign(sentence.size(), nullptr);
    for (std::size_t i = last + 1; i-- > 0;) {
        chosen[i] = &(*sentence[i])[k].text;
        k = from[K * i + k];
    }
}

std::string ContextDiacritizer::Impl::Run(std::string_view text) {
    // A sentence is held as the text between its words (views into `text`, one before
    // each word and one after the last) and the candidates of its words.
    std::vector<std::string_view> between;
    std::vector<const std::vector<Candidate>*> sentence;
    std::vector<const std::string*> chosen;
    std::string out;
    out.reserve(text.size() + text.size() / 2);
    std::size_t gap = 0;  // where the text after the last word starts
    auto endSentence = [&](std::size_t end) {
        // The candidate lists stay put: `seen` is only cleared between sentences.
        Decode(sentence, chosen);
        for (std::size_t i = 0; i < sentence.size(); ++i) {
            out += between[i];
            cxx::AppendUtf8(out, *chosen[i]);
        }
        out += text.substr(gap, end - gap);
        gap = end;
        between.clear();
        sentence.clear();
        overlong.clear();
    };
    std::size_t at = 0, wordStart = 0;
    std::string word;
    auto endWord = [&] {
        if (word.empty()) return;
        if (seen.size() >= Diacritization::kSeenWords && !seen.count(word)) endSentence(wordStart);
        sentence.push_back(&CandidatesOf(word));
        between.push_back(text.substr(gap, wordStart - gap));
        gap = at;
        word.clear();
    };
    while (at < text.size()) {
        cxx::Char c = cxx::NextChar(text, at);
        if (c.length <= 0)
            throw cxx::MakeError(ErrorCode::bad_text,
                                 "invalid UTF-8 at byte " + std::to_string(at));
        if (!cxx::EndsWord(c.byte)) {
            if (word.empty()) wordStart = at;
            word += static_cast<char>(c.byte);
            at += static_cast<std::size_t>(c.length);
            continue;
        }
        endWord();
        at += static_cast<std::size_t>(c.length);
        if (c.byte != ' ' && c.byte != '\t') endSentence(at);
    }
    endWord();
    endSentence(text.size());
    return out;
}

ContextDiacritizer::ContextDiacritizer(const std::filesystem::path& folder, Steps steps)
    : impl_(std::make_unique<Impl>()) {
    Diacritizer check(folder);  // the same checks and errors as Diacritizer
    Impl& impl = *impl_;
    impl.folder = folder;
    impl.steps = steps;
    impl.longest = 0;
    Guard(folder, [&] {
        impl.files =
            std::make_unique<Diacritization>((folder / Diacritizer::Files::forms).c_str(),
                                             (folder / Diacritizer::Files::wildcards).c_str(),
                                             (folder / Diacritizer::Files::frequencies).c_str());
        impl.longest = static_cast<std::size_t>(impl.files->LongestForm());
        int forms = impl.files->FormCount();
        impl.vocabulary = forms;
        for (int i = 0; i < forms; ++i) impl.total += std::max(impl.files->Frequency(i), 0);
    });
    std::filesystem::path pairs = folder / Diacritizer::Files::pairs;
    if (std::filesystem::exists(pairs)) impl.LoadPairs(pairs);
}

ContextDiacritizer::ContextDiacritizer(ContextDiacritizer&&) noexcept = default;
ContextDiacritizer& ContextDiacritizer::operator=(ContextDiacritizer&&) noexcept = default;
ContextDiacritizer::~ContextDiacritizer() = default;

bool ContextDiacritizer::has_context() const {
    cxx::RequireOpen(impl_ != nullptr, {});
    return impl_->context;
}

std::string ContextDiacritizer::diacritize(std::string_view text) {
    cxx::RequireOpen(impl_ != nullptr, {});
    return Guard(impl_->folder, [&] { return impl_->Run(text); });
}

std::string ContextDiacritizer::feed(std::string_view piece) {
    cxx::RequireOpen(impl_ != nullptr, {});
    std::string& held = impl_->held;
    held.append(piece);
    std::size_t end = held.rfind('\n');
    if (end == std::string::npos && held.size() > (std::size_t{1} << 20)) {
        end = held.rfind(' ');
        if (end == std::string::npos) {
            // No blank in 1 MiB: a word longer than any form, which stays as it is; cut it
            // before its last character, so that what is held back stays bounded.
            std::size_t cut = held.size() - 1;
            while (cut > 0 && (static_cast<unsigned char>(held[cut]) & 0xC0) == 0x80) --cut;
            if (cut == 0) return {};
            end = cut - 1;
        }
    }
    if (end == std::string::npos) return {};
    std::string text = held.substr(0, end + 1);
    held.erase(0, end + 1);
    return diacritize(text);
}

std::string ContextDiacritizer::finish() {
    cxx::RequireOpen(impl_ != nullptr, {});
    std::string text = std::move(impl_->held);
    impl_->held.clear();
    return diacritize(text);
}

}  // namespace dorvik
