// What the dorvik tool does, through the library calls it makes: building a diacritizer
// folder from a corpus of a million words (normalising, counting, sorting, indexing)
// next to counting the same words in a hash map, and diacritizing 100 MB of text as a
// stream next to the UTF-8 / Windows-1256 conversion of the same text alone.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include <dorvik/dorvik.hpp>

#include "BenchUtil.h"

namespace {

using namespace generated;

constexpr std::size_t kPiece = std::size_t{1} << 20;

// The folder built from a million words, made once per run.
std::filesystem::path Folder() {
    static const std::filesystem::path folder = [] {
        std::filesystem::path path = BenchPath("corpus-1m");
        std::filesystem::remove_all(path);
        dorvik::Diacritizer::Builder builder(path);
        builder.add_text(MarkedText(1000000).marked);
        builder.finish();
        return path;
    }();
    return folder;
}

// What `dorvik build` does with a million words: normalise them in pieces, count the
// forms, write and index the folder.
void BM_BuildCorpus1M(benchmark::State& state) {
    const Text& text = MarkedText(1000000);
    std::filesystem::path folder = BenchPath("build-1m");
    std::size_t forms = 0;
    for (auto _ : state) {
        dorvik::CorpusNormalizer normalizer;
        dorvik::Diacritizer::Builder builder(folder);
        for (std::size_t at = 0; at < text.marked.size(); at += kPiece)
            builder.add_text(normalizer.feed(std::string_view(text.marked).substr(at, kPiece)));
        builder.add_text(normalizer.finish());
        forms = builder.size();
        builder.finish();
    }
    std::filesystem::remove_all(folder);
    state.counters["forms"] = static_cast<double>(forms);
    state.counters["peak_MB"] = PeakMegabytes();
    state.SetItemsProcessed(state.iterations() * static_cast<long>(text.tokens));
    state.SetBytesProcessed(state.iterations() * static_cast<long>(text.marked.size()));
}
BENCHMARK(BM_BuildCorpus1M)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

// The floor of counting: the same words into a hash map, in memory, nothing written.
void BM_CountFormsPeer(benchmark::State& state) {
    const Text& text = MarkedText(1000000);
    std::size_t forms = 0;
    for (auto _ : state) {
        std::unordered_map<std::string_view, std::uint32_t> counts;
        std::string_view rest = text.marked;
        while (!rest.empty()) {
            std::size_t end = rest.find_first_of(" \n");
            std::string_view word = rest.substr(0, end);
            // The Arabic comma is glued to the word before it and ends that word.
            if (word.ends_with("،")) word.remove_suffix(std::string_view("،").size());
            if (!word.empty()) ++counts[word];
            rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
        }
        forms = counts.size();
    }
    state.counters["forms"] = static_cast<double>(forms);
    state.SetItemsProcessed(state.iterations() * static_cast<long>(text.tokens));
    state.SetBytesProcessed(state.iterations() * static_cast<long>(text.marked.size()));
}
BENCHMARK(BM_CountFormsPeer)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

// 1 MiB of bare text, and its words.
struct Bare {
    std::string text;
    std::size_t words = 0;
};

const Bare& BareMiB() {
    static const Bare bare = [] {
        const std::string& marked = MarkedText(1000000).marked;
        std::size_t end = marked.rfind(" ", 2 * kPiece);  // about 1 MiB without its marks
        Bare b;
        b.text = dorvik::strip_marks(std::string_view(marked).substr(0, end + 1));
        b.words = dorvik::split_words(b.text).size();
        return b;
    }();
    return bare;
}

// What `dorvik diacritize` does with 100 MB: one stream, fed 1 MiB at a time. Memory
// stays that of the folder and one piece, whatever the length (peak_MB, run alone).
void BM_DiacritizeStream100MB(benchmark::State& state) {
    dorvik::Diacritizer diacritizer(Folder());
    const Bare& bare = BareMiB();
    state.counters["before_MB"] = PeakMegabytes();
    std::size_t out = 0;
    for (auto _ : state) {
        dorvik::Diacritizer::Stream stream = diacritizer.stream();
        for (int i = 0; i < 100; ++i) out += stream.feed(bare.text).size();
        out += stream.finish().size();
    }
    benchmark::DoNotOptimize(out);
    state.counters["peak_MB"] = PeakMegabytes();
    state.SetItemsProcessed(state.iterations() * 100 * static_cast<long>(bare.words));
    state.SetBytesProcessed(state.iterations() * 100 * static_cast<long>(bare.text.size()));
}
BENCHMARK(BM_DiacritizeStream100MB)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

// 1 MiB of bare text through the context path (back-off, then the choice among the
// three forms of each word by the pair counts), next to the classic path's Diacritizer
// on the same text; both opened once and run once before the timing, so every word was
// seen before (the first round, which looks every word up, is not timed).
void BM_DiacritizeMiBClassicPeer(benchmark::State& state) {
    dorvik::Diacritizer diacritizer(Folder());
    const Bare& bare = BareMiB();
    std::size_t out = diacritizer.diacritize(bare.text).size();
    for (auto _ : state) out += diacritizer.diacritize(bare.text).size();
    benchmark::DoNotOptimize(out);
    state.SetItemsProcessed(state.iterations() * static_cast<long>(bare.words));
}
BENCHMARK(BM_DiacritizeMiBClassicPeer)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_DiacritizeMiBContext(benchmark::State& state) {
    dorvik::ContextDiacritizer context(Folder());
    const Bare& bare = BareMiB();
    std::size_t out = context.diacritize(bare.text).size();
    for (auto _ : state) out += context.diacritize(bare.text).size();
    benchmark::DoNotOptimize(out);
    state.SetItemsProcessed(state.iterations() * static_cast<long>(bare.words));
}
BENCHMARK(BM_DiacritizeMiBContext)->Unit(benchmark::kMillisecond)->UseRealTime();

// The floor at the edges: the same 100 MB taken to Windows-1256 and back, no look-up.
void BM_Cp1256RoundTripPeer100MB(benchmark::State& state) {
    const Bare& bare = BareMiB();
    std::size_t out = 0;
    for (auto _ : state)
        for (int i = 0; i < 100; ++i)
            out += dorvik::from_cp1256(dorvik::to_cp1256(bare.text)).size();
    benchmark::DoNotOptimize(out);
    state.SetItemsProcessed(state.iterations() * 100 * static_cast<long>(bare.words));
    state.SetBytesProcessed(state.iterations() * 100 * static_cast<long>(bare.text.size()));
}
BENCHMARK(BM_Cp1256RoundTripPeer100MB)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
