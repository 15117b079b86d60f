// Text record file: bulk build of a dictionary through the sort tree, sorted Add one
// word at a time (records kept physically sorted, or an index file), and the binary
// search of a sorted view.
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include <Dorvik01.h>

#include <dorvik/IXFile.h>
#include <dorvik/TextBinFile.h>
#include "BenchUtil.h"

namespace {
constexpr UINT kCreate = CFile::modeCreate | CFile::modeReadWrite;

// `count` pseudo-random words of 3 to 12 bytes, some above 127, zero-terminated back to
// back in one block so that the word list itself costs little memory.
struct WordList {
    std::vector<char> bytes;
    std::vector<int> starts;
    int Size() const { return static_cast<int>(starts.size()); }
    const char* At(int i) const { return bytes.data() + starts[static_cast<std::size_t>(i)]; }
};

const WordList& RandomWords(int count) {
    static WordList list;
    if (list.Size() == count) return list;
    list.bytes.clear();
    list.starts.clear();
    std::mt19937 rng(1256);
    for (int i = 0; i < count; ++i) {
        list.starts.push_back(static_cast<int>(list.bytes.size()));
        for (int n = 3 + static_cast<int>(rng() % 10); n > 0; --n) {
            unsigned v = rng() % 32;
            list.bytes.push_back(static_cast<char>(v < 26 ? 'a' + v : 0xC1 + v));
        }
        list.bytes.push_back('\0');
    }
    return list;
}

// The first `count` words through the sort tree, with `index` as the sorted view.
void BulkBuild(CTextBinFile& file, CIXFile& index, const WordList& words, int count) {
    file.SetIndexFile(&index);
    file.InitSortTree(true, true, nullptr, nullptr);
    int record = 0;
    for (int i = 0; i < count; ++i) file.Add(words.At(i), -1, record, true, false);
    file.FreeSortTree(true, nullptr);
}

void BM_TextBulkBuildSortTree(benchmark::State& state) {
    const int count = static_cast<int>(state.range(0));
    const WordList& words = RandomWords(count);
    const std::string path = BenchPath("dict.bin");
    const std::string indexPath = BenchPath("dict.ix");
    const double before = PeakMegabytes();
    for (auto _ : state) {
        std::remove(path.c_str());
        std::remove(indexPath.c_str());
        CTextBinFile file(path.c_str(), kCreate);
        CIXFile index(indexPath.c_str(), kCreate);
        BulkBuild(file, index, words, count);
        benchmark::DoNotOptimize(file.GetRecordCount());
    }
    state.SetItemsProcessed(state.iterations() * count);
    state.counters["words/s"] = benchmark::Counter(static_cast<double>(state.iterations()) * count,
                                                   benchmark::Counter::kIsRate);
    state.counters["peak_MB"] = PeakMegabytes();
    state.counters["before_MB"] = before;
    std::remove(path.c_str());
    std::remove(indexPath.c_str());
}
BENCHMARK(BM_TextBulkBuildSortTree)
    ->Arg(1000000)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// range(1): 1 with an index file, 0 with the records kept physically sorted.
void BM_TextSortedAdd(benchmark::State& state) {
    const int count = static_cast<int>(state.range(0));
    const bool indexed = state.range(1) != 0;
    const WordList& words = RandomWords(count);
    const std::string path = BenchPath("sorted.bin");
    const std::string indexPath = BenchPath("sorted.ix");
    for (auto _ : state) {
        std::remove(path.c_str());
        std::remove(indexPath.c_str());
        CTextBinFile file(path.c_str(), kCreate);
        CIXFile index(indexPath.c_str(), kCreate);
        if (indexed) file.SetIndexFile(&index);
        int record = 0;
        for (int i = 0; i < count; ++i) file.Add(words.At(i), -1, record, true, false);
        benchmark::DoNotOptimize(record);
    }
    state.SetItemsProcessed(state.iterations() * count);
    std::remove(path.c_str());
    std::remove(indexPath.c_str());
}
BENCHMARK(BM_TextSortedAdd)
    ->Args({10000, 0})
    ->Args({10000, 1})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// Binary anchored Find of random prefixes in a sorted view of `count` words.
void BM_TextFindBinary(benchmark::State& state) {
    const int count = static_cast<int>(state.range(0));
    const WordList& words = RandomWords(count);
    const std::string path = BenchPath("find.bin");
    const std::string indexPath = BenchPath("find.ix");
    std::remove(path.c_str());
    std::remove(indexPath.c_str());
    CTextBinFile file(path.c_str(), kCreate);
    CIXFile index(indexPath.c_str(), kCreate);
    BulkBuild(file, index, words, count);
    std::mt19937 rng(3);
    for (auto _ : state) {
        std::string prefix(words.At(static_cast<int>(rng() % static_cast<unsigned>(count))), 3);
        int found =
            file.Find(-1, prefix.c_str(), nullptr, false, false, true, false, true, false, nullptr);
        benchmark::DoNotOptimize(found);
    }
    state.SetItemsProcessed(state.iterations());
    std::remove(path.c_str());
    std::remove(indexPath.c_str());
}
BENCHMARK(BM_TextFindBinary)->Arg(100000)->UseRealTime();
}  // namespace
