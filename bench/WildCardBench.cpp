// The wildcard index and diacritization: building the index over a million words,
// wildcard look-ups next to an fnmatch scan of the same words, and DiacritizeBuffer
// next to the modern Diacritizer on the same files (opened once, on one and on two
// threads) and a hash-map look-up of the bare word (the floor of any dictionary method).
#include <benchmark/benchmark.h>
#include <fnmatch.h>

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

const char* const kPatterns[] = {"\xC7\xC8*", "*\xC7\xC8", "\xC7?\xC8", nullptr};

// Wildcard look-ups through the index of a million forms; the full word is a bare
// word of the corpus.
void BM_WildCardFind(benchmark::State& state) {
    const Corpus& corpus = MakeCorpus(333334);
    std::string words = BenchPath("dict-1m.bin"), index = BenchPath("dict-1m.idx");
    CFileStatus status;
    if (!CFile::GetStatus(index.c_str(), status)) {
        WriteDictionary(words, corpus.forms);
        CTextBinFile build(words.c_str(), CFile::modeRead);
        build.IndexForWildCards(index.c_str(), DiacriticMarks, nullptr);
    }
    CTextBinFile dictionary(words.c_str(), CFile::modeRead);
    CNDimBitsBinFile wild(index.c_str(), CFile::shareDenyNone);
    const char* pattern = kPatterns[state.range(0)];
    std::string full = corpus.bare[7];
    if (!pattern) pattern = full.c_str();
    int hits = 0;
    for (auto _ : state) {
        CBitArray result;
        dictionary.Find(&wild, pattern, opEqual, DiacriticMarks, false, result);
        hits = result.GetCount();
    }
    state.counters["hits"] = hits;
    state.SetLabel(state.range(0) == 3 ? "full word" : pattern);
}
BENCHMARK(BM_WildCardFind)->DenseRange(0, 3)->Unit(benchmark::kMillisecond)->UseRealTime();

// The cost of a scan without an index: fnmatch over the bare spellings (the index
// ignores marks the pattern does not name, so the scan strips them first). fnmatch is a
// shell glob, not the dialect of the wildcard search (see CTextBinFile::Find), so the
// hit counts need not agree: this peer prices reading every word, not the same answer.
void BM_FnmatchScanPeer(benchmark::State& state) {
    const Corpus& corpus = MakeCorpus(333334);
    std::vector<std::string> stripped;
    for (const auto& f : corpus.forms) {
        std::string s;
        for (char c : f)
            if (kMarks.find(c) == std::string::npos) s += c;
        stripped.push_back(s);
    }
    const char* pattern = kPatterns[state.range(0)];
    std::string full = corpus.bare[7];
    if (!pattern) pattern = full.c_str();
    int hits = 0;
    for (auto _ : state) {
        hits = 0;
        for (const auto& s : stripped) hits += fnmatch(pattern, s.c_str(), 0) == 0;
    }
    state.counters["hits"] = hits;
    state.SetLabel(state.range(0) == 3 ? "full word" : pattern);
}
BENCHMARK(BM_FnmatchScanPeer)->DenseRange(0, 3)->Unit(benchmark::kMillisecond)->UseRealTime();

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
}
BENCHMARK(BM_DiacritizeBuffer1MB)->Unit(benchmark::kMillisecond)->UseRealTime();

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
BENCHMARK(BM_HashMapFloor)->Unit(benchmark::kMillisecond)->UseRealTime();
}  // namespace
