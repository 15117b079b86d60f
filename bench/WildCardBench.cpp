// The wildcard index and diacritization: building the index over a million words,
// wildcard look-ups next to SQLite's GLOB and an fnmatch scan of the same words
// (workload 5 of bench/compare.sh), and DiacritizeBuffer next to the modern Diacritizer
// on the same files (opened once, on one and on two threads) and a hash-map look-up of
// the bare word, the floor of any dictionary method (workload 6).
#include <benchmark/benchmark.h>
#include <fnmatch.h>
#include <sqlite3.h>

#include <cstdio>
#include <filesystem>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include <Dorvik01.h>
#include <dorvik/dorvik.hpp>

#include "BenchUtil.h"

namespace {

// Windows-1256 Arabic letters and the eight marks.
const std::string kLetters =
    "\xC7\xC8\xCA\xCB\xCC\xCD\xCE\xCF\xD0\xD1\xD2\xD3\xD4\xD5\xD6\xD8\xD9\xDA\xDB\xDD\xDE\xDF\xE1"
    "\xE3\xE4\xE5\xE6\xED";
const std::string kMarks = "\xF3\xF0\xF5\xF1\xF6\xF2\xF8\xFA";

std::string Bare(std::mt19937& rng) {
    std::string w;
    int n = 3 + static_cast<int>(rng() % 6);
    for (int i = 0; i < n; ++i) w += kLetters[rng() % kLetters.size()];
    return w;
}

std::string Marked(const std::string& bare, std::mt19937& rng) {
    std::string w;
    for (char c : bare) {
        w += c;
        if (rng() % 4 != 0) w += kMarks[rng() % kMarks.size()];
    }
    return w;
}

struct Corpus {
    std::vector<std::string> bare;   // the bare words
    std::vector<std::string> forms;  // marked forms, three per bare word
};

const Corpus& MakeCorpus(int bareWords) {
    static std::unordered_map<int, Corpus> made;
    auto at = made.find(bareWords);
    if (at != made.end()) return at->second;
    Corpus c;
    std::mt19937 rng(9);
    for (int i = 0; i < bareWords; ++i) {
        c.bare.push_back(Bare(rng));
        for (int k = 0; k < 3; ++k) c.forms.push_back(Marked(c.bare.back(), rng));
    }
    return made.emplace(bareWords, std::move(c)).first->second;
}

void WriteDictionary(const std::string& path, const std::vector<std::string>& words) {
    CTextBinFile file(path.c_str(), CFile::modeCreate | CFile::modeReadWrite);
    file.SetSafeMode(false);
    for (const auto& w : words) file.Add(w.c_str());
}

// A million marked forms: the index build, its size and the peak memory of the run.
void BM_IndexForWildCards1M(benchmark::State& state) {
    const Corpus& corpus = MakeCorpus(333334);
    std::string words = BenchPath("dict-1m.bin"), index = BenchPath("dict-1m.idx");
    WriteDictionary(words, corpus.forms);
    CTextBinFile dictionary(words.c_str(), CFile::modeRead);
    state.counters["before_MB"] = PeakMegabytes();  // the corpus and its file
    for (auto _ : state) dictionary.IndexForWildCards(index.c_str(), DiacriticMarks, nullptr);
    CFileStatus status;
    CFile::GetStatus(index.c_str(), status);
    state.counters["words"] = static_cast<double>(corpus.forms.size());
    state.counters["index_MB"] = status.m_size / 1048576.0;
    state.counters["peak_MB"] = PeakMegabytes();
    state.SetItemsProcessed(state.iterations() * static_cast<long>(corpus.forms.size()));
}
BENCHMARK(BM_IndexForWildCards1M)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

// ---- Workload 5: wildcard look-ups ---------------------------------------------------
// Five patterns over dictionaries of 100,000, 1M and 10M marked forms (range(1) in
// thousands), next to SQLite's GLOB on an indexed column and an fnmatch scan, both over
// the bare spellings (the index ignores marks that a pattern does not name).

const char* const kPatterns[] = {"\xC7\xC8*", "*\xC7\xC8", "\xC7?\xC8", "?\xC7??", nullptr};
const char* const kPatternLabels[] = {"ab*", "*ab", "a?b", "?a??", "full word"};

struct Dictionary {
    std::string words, index;
    std::vector<std::string> bare;  // the forms without their marks, by record number
};

// A form without its marks, each Arabic letter spelled by one ASCII letter: SQLite's
// GLOB reads text as UTF-8, where these bytes would not stand for one character each.
std::string Strip(const std::string& form) {
    static const std::string kAscii = "abcdefghijklmnopqrstuvwxyzAB";
    std::string s;
    for (char c : form) {
        std::size_t letter = kLetters.find(c);
        if (letter != std::string::npos)
            s += kAscii[letter];
        else if (kMarks.find(c) == std::string::npos)
            s += c;
    }
    return s;
}

const Dictionary& DictionaryOf(int thousands) {
    static std::unordered_map<int, Dictionary> made;
    auto at = made.find(thousands);
    if (at != made.end()) return at->second;
    const Corpus& corpus = MakeCorpus(thousands * 1000 / 3 + 1);
    Dictionary d;
    d.words = BenchPath("dict-" + std::to_string(thousands) + "k.bin");
    d.index = BenchPath("dict-" + std::to_string(thousands) + "k.idx");
    WriteDictionary(d.words, corpus.forms);
    CTextBinFile build(d.words.c_str(), CFile::modeRead);
    build.IndexForWildCards(d.index.c_str(), DiacriticMarks, nullptr);
    for (const auto& f : corpus.forms) d.bare.push_back(Strip(f));
    return made.emplace(thousands, std::move(d)).first->second;
}

std::string PatternOf(int k, int thousands) {
    return kPatterns[k] ? kPatterns[k] : MakeCorpus(thousands * 1000 / 3 + 1).bare[7];
}

// The five patterns over 100,000, 1M and 10M forms.
void PatternsAndSizes(benchmark::internal::Benchmark* b) {
    b->ArgsProduct({{0, 1, 2, 3, 4}, {100, 1000, 10000}})
        ->Unit(benchmark::kMicrosecond)
        ->UseRealTime();
}

void BM_W5_Find(benchmark::State& state) {
    int thousands = static_cast<int>(state.range(1));
    const Dictionary& d = DictionaryOf(thousands);
    std::string pattern = PatternOf(static_cast<int>(state.range(0)), thousands);
    CTextBinFile dictionary(d.words.c_str(), CFile::modeRead);
    CNDimBitsBinFile wild(d.index.c_str(), CFile::shareDenyNone);
    int hits = 0;
    for (auto _ : state) {
        CBitArray result;
        dictionary.Find(&wild, pattern.c_str(), opEqual, DiacriticMarks, false, result);
        hits = result.GetCount();
    }
    state.counters["hits"] = hits;
    state.SetLabel(kPatternLabels[state.range(0)]);
}
BENCHMARK(BM_W5_Find)->Name("W5_Find_Dorvik")->Apply(PatternsAndSizes);

void BM_W5_Glob(benchmark::State& state) {
    int thousands = static_cast<int>(state.range(1));
    const Dictionary& d = DictionaryOf(thousands);
    std::string pattern = Strip(PatternOf(static_cast<int>(state.range(0)), thousands));
    static std::unordered_map<int, sqlite3*> built;
    sqlite3*& db = built[thousands];
    if (!db) {
        db = FillSqlite(
            BenchPath("dict-" + std::to_string(thousands) + "k.sqlite"), "CREATE TABLE w(t TEXT);",
            "INSERT INTO w(t) VALUES(?)", static_cast<int>(d.bare.size()),
            [&d](sqlite3_stmt* insert, int i) {
                const std::string& w = d.bare[static_cast<std::size_t>(i)];
                sqlite3_bind_text(insert, 1, w.c_str(), static_cast<int>(w.size()), SQLITE_STATIC);
            },
            "CREATE INDEX wt ON w(t);");
    }
    sqlite3_stmt* select = nullptr;
    sqlite3_prepare_v2(db, "SELECT rowid FROM w WHERE t GLOB ?", -1, &select, nullptr);
    std::vector<sqlite3_int64> rows;
    for (auto _ : state) {
        rows.clear();
        sqlite3_bind_text(select, 1, pattern.c_str(), static_cast<int>(pattern.size()),
                          SQLITE_STATIC);
        while (sqlite3_step(select) == SQLITE_ROW) rows.push_back(sqlite3_column_int64(select, 0));
        sqlite3_reset(select);
    }
    sqlite3_finalize(select);
    state.counters["hits"] = static_cast<double>(rows.size());
    state.SetLabel(kPatternLabels[state.range(0)]);
}
BENCHMARK(BM_W5_Glob)->Name("W5_Glob_Sqlite")->Apply(PatternsAndSizes);

void BM_W5_Scan(benchmark::State& state) {
    int thousands = static_cast<int>(state.range(1));
    const Dictionary& d = DictionaryOf(thousands);
    std::string pattern = Strip(PatternOf(static_cast<int>(state.range(0)), thousands));
    int hits = 0;
    for (auto _ : state) {
        hits = 0;
        for (const auto& w : d.bare) hits += fnmatch(pattern.c_str(), w.c_str(), 0) == 0;
    }
    state.counters["hits"] = hits;
    state.SetLabel(kPatternLabels[state.range(0)]);
}
BENCHMARK(BM_W5_Scan)->Name("W5_Fnmatch_Scan")->Apply(PatternsAndSizes);

// ---- Workload 6: DiacritizeBuffer ----------------------------------------------------
// A 1 MB text over a dictionary of 100,000 forms.
struct DiacritizeFiles {
    std::string words = BenchPath("dict-100k.bin"), index = BenchPath("dict-100k.idx"),
                counts = BenchPath("dict-100k.frq");
    std::string text;
    int wordCount = 0;

    DiacritizeFiles() {
        const Corpus& corpus = MakeCorpus(33334);
        WriteDictionary(words, corpus.forms);
        {
            CIXFile frequencies(counts.c_str(), CFile::modeCreate | CFile::modeReadWrite, 4);
            std::mt19937 rng(4);
            for (std::size_t i = 0; i < corpus.forms.size(); ++i)
                frequencies.Add(static_cast<int>(rng() % 1000));
        }
        CTextBinFile dictionary(words.c_str(), CFile::modeRead);
        dictionary.IndexForWildCards(index.c_str(), DiacriticMarks, nullptr);
        std::mt19937 rng(5);
        while (text.size() < (1 << 20)) {
            text += corpus.bare[rng() % corpus.bare.size()];
            text += (rng() % 10 == 0) ? "\xA1 " : " ";
            ++wordCount;
        }
    }
};

const DiacritizeFiles& Files() {
    static DiacritizeFiles files;
    return files;
}

void BM_DiacritizeBuffer1MB(benchmark::State& state) {
    const DiacritizeFiles& f = Files();
    for (auto _ : state) {
        std::string buffer = f.text;
        CString result;
        DiacritizeBuffer(buffer.data(), result, f.words.c_str(), f.index.c_str(), f.counts.c_str());
        benchmark::DoNotOptimize(result.GetLength());
    }
    state.SetItemsProcessed(state.iterations() * f.wordCount);
    state.SetBytesProcessed(state.iterations() * static_cast<long>(f.text.size()));
    state.counters["words"] = f.wordCount;
}
BENCHMARK(BM_DiacritizeBuffer1MB)
    ->Name("W6_Diacritize_Dorvik")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// The same files as a diacritizer folder, opened once and shared by the threads; the
// text in UTF-8, so the time includes the conversions both ways.
void BM_Diacritizer1MB(benchmark::State& state) {
    const DiacritizeFiles& f = Files();
    static const dorvik::Diacritizer diacritizer = [&] {
        for (auto [name, target] :
             {std::pair{"forms.bin", &f.words}, std::pair{"forms.wild", &f.index},
              std::pair{"forms.freq", &f.counts}}) {
            std::string link = BenchPath((std::string("forms-100k/") + name).c_str());
            std::filesystem::create_directories(std::filesystem::path(link).parent_path());
            std::filesystem::remove(link);
            std::filesystem::create_symlink(*target, link);
        }
        BenchPath("forms-100k");
        return dorvik::Diacritizer(std::filesystem::path(BenchPath("forms-100k")));
    }();
    static const std::string text = dorvik::from_cp1256(f.text);
    for (auto _ : state) benchmark::DoNotOptimize(diacritizer.diacritize(text).size());
    state.SetItemsProcessed(state.iterations() * f.wordCount);
    state.SetBytesProcessed(state.iterations() * static_cast<long>(f.text.size()));
}
BENCHMARK(BM_Diacritizer1MB)->Unit(benchmark::kMillisecond)->UseRealTime()->Threads(1)->Threads(2);

// The floor: every bare word already mapped to its answer in a hash map.
void BM_HashMapFloor(benchmark::State& state) {
    const DiacritizeFiles& f = Files();
    const Corpus& corpus = MakeCorpus(33334);
    std::unordered_map<std::string, std::string> answer;
    for (std::size_t i = 0; i < corpus.bare.size(); ++i)
        answer.emplace(corpus.bare[i], corpus.forms[3 * i]);
    for (auto _ : state) {
        std::string out;
        std::size_t start = 0;
        while (start < f.text.size()) {
            std::size_t end = f.text.find_first_of(" \xA1", start);
            if (end == std::string::npos) end = f.text.size();
            auto at = answer.find(f.text.substr(start, end - start));
            out += at == answer.end() ? f.text.substr(start, end - start) : at->second;
            out += f.text[end < f.text.size() ? end : f.text.size() - 1];
            start = end + 1;
        }
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(state.iterations() * f.wordCount);
    state.SetBytesProcessed(state.iterations() * static_cast<long>(f.text.size()));
}
BENCHMARK(BM_HashMapFloor)->Name("W6_HashMap_Floor")->Unit(benchmark::kMillisecond)->UseRealTime();
}  // namespace
