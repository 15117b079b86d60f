// Sorting and searching integer index files: CIXFile::Sort of random and of sorted
// values, the sort tree on sorted keys (and on random keys, for comparison), and Find
// through an index file against a scan. Sizes come from the arguments; the large ones
// are the 10 million records of a real dictionary index.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "dorvik/IXFile.h"
#include "dorvik/MyDWordArray.h"
#include "dorvik/SortTree.h"

#include "BenchUtil.h"

namespace {

// A file of `count` 4-byte records: random values, or 0..count-1 when `sorted`.
void BuildValueFile(const std::string& path, int count, bool sorted) {
    std::vector<DWORD> values(static_cast<size_t>(count));
    std::mt19937 rng(11);
    for (int i = 0; i < count; ++i)
        values[static_cast<size_t>(i)] = sorted ? static_cast<DWORD>(i) : rng() % 100000000u;
    CIXFile file(path.c_str(), CFile::modeCreate | CFile::modeReadWrite);
    file.AddRecords(values.data(), count);
}

void SortFile(benchmark::State& state, bool sorted) {
    int count = static_cast<int>(state.range(0));
    std::string source = BenchPath(sorted ? "sort-sorted.ix" : "sort-random.ix");
    std::string target = BenchPath("sort-order.ix");
    BuildValueFile(source, count, sorted);
    CIXFile file(source.c_str(), CFile::modeRead);
    for (auto _ : state) {
        CIXFile order(target.c_str(), CFile::modeCreate | CFile::modeReadWrite);
        file.Sort(&order, nullptr);
    }
    state.SetItemsProcessed(state.iterations() * count);
    file.Close();
    std::remove(source.c_str());
    std::remove(target.c_str());
}

void BM_IXFileSortRandom(benchmark::State& state) { SortFile(state, false); }
BENCHMARK(BM_IXFileSortRandom)
    ->Arg(1 << 20)
    ->Arg(10000000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

void BM_IXFileSortSorted(benchmark::State& state) { SortFile(state, true); }
BENCHMARK(BM_IXFileSortSorted)
    ->Arg(1 << 20)
    ->Arg(10000000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

void BM_SortTreeInsertSorted(benchmark::State& state) {
    int count = static_cast<int>(state.range(0));
    for (auto _ : state) {
        CSortTree<CInt> tree;
        for (int i = 0; i < count; ++i) tree.Insert(CInt(i));
        state.PauseTiming();
        tree.RemoveAll();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(BM_SortTreeInsertSorted)
    ->Arg(1 << 20)
    ->Arg(10000000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// What a tree costs on random keys, next to the sort that CIXFile::Sort uses.
void BM_SortTreeInsertRandom(benchmark::State& state) {
    int count = static_cast<int>(state.range(0));
    std::mt19937 rng(11);
    std::vector<int> keys(static_cast<size_t>(count));
    for (int& k : keys) k = static_cast<int>(rng() % 100000000u);
    for (auto _ : state) {
        CSortTree<CInt> tree;
        for (int k : keys) tree.Insert(CInt(k));
        state.PauseTiming();
        tree.RemoveAll();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(BM_SortTreeInsertRandom)->Arg(1 << 20)->Unit(benchmark::kMillisecond)->UseRealTime();

// Look-ups of values that are in the file: binary search through the index file, or a
// scan from the start.
void FindValues(benchmark::State& state, bool indexed) {
    int count = static_cast<int>(state.range(0));
    std::string source = BenchPath("sort-find.ix");
    std::string index = BenchPath("sort-find-index.ix");
    BuildValueFile(source, count, false);
    CIXFile file(source.c_str(), CFile::modeRead);
    CIXFile order(index.c_str(), CFile::modeCreate | CFile::modeReadWrite);
    file.Sort(&order, nullptr);
    if (indexed) file.SetIndexFile(&order);
    std::mt19937 rng(5);
    std::vector<int> wanted;
    for (int i = 0; i < 64; ++i)
        wanted.push_back(file.GetRecord(static_cast<int>(rng() % static_cast<unsigned>(count))));
    size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(file.Find(-1, wanted[next]));
        next = (next + 1) % wanted.size();
    }
    state.SetItemsProcessed(state.iterations());
    file.Close();
    order.Close();
    std::remove(source.c_str());
    std::remove(index.c_str());
}

void BM_IXFileFindIndexed(benchmark::State& state) { FindValues(state, true); }
BENCHMARK(BM_IXFileFindIndexed)->Arg(1 << 20)->UseRealTime();

void BM_IXFileFindScan(benchmark::State& state) { FindValues(state, false); }
BENCHMARK(BM_IXFileFindScan)->Arg(1 << 20)->Unit(benchmark::kMicrosecond)->UseRealTime();
}  // namespace
