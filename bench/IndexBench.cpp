// Index files: transposing a sparse matrix, unions and intersections of records, and
// a length-changing write three levels deep in a large nested file. Peers: the same
// work on sorted number lists in memory (std::vector and <algorithm>).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <Dorvik01.h>

#include "BenchUtil.h"

namespace {

// Rows of `bitsPerRow` random columns below `columns`, sorted.
std::vector<std::vector<unsigned>> RandomRows(int rows, int columns, int bitsPerRow,
                                              unsigned seed) {
    std::mt19937 rng(seed);
    std::vector<std::vector<unsigned>> out(static_cast<std::size_t>(rows));
    for (auto& row : out) {
        for (int k = 0; k < bitsPerRow; ++k) row.push_back(rng() % static_cast<unsigned>(columns));
        std::sort(row.begin(), row.end());
        row.erase(std::unique(row.begin(), row.end()), row.end());
    }
    return out;
}

void WriteRows(const std::string& path, const std::vector<std::vector<unsigned>>& rows) {
    CBitsBinFile file(path.c_str(), CFile::modeCreate | CFile::modeReadWrite);
    file.SetSafeMode(false);
    for (const auto& row : rows) {
        CBitArray bits;
        for (unsigned b : row) bits.SetAt(static_cast<int>(b));
        file.Add(&bits);
    }
}

// 100,000 x 100,000 with 10 million set bits, transposed by column number.
void BM_InvertSparseMatrix(benchmark::State& state) {
    std::string source = BenchPath("matrix.bin"), target = BenchPath("matrix-t.bin");
    WriteRows(source, RandomRows(100000, 100000, 100, 1));
    state.counters["before_MB"] = PeakMegabytes();
    for (auto _ : state) {
        CBitsBinFile in(source.c_str(), CFile::modeRead);
        CBitsBinFile out(target.c_str(), CFile::modeCreate | CFile::modeReadWrite);
        in.Invert(nullptr, false, nullptr, &out);
    }
    state.counters["set_bits"] = 1e7;
    state.counters["peak_MB"] = PeakMegabytes();
    std::remove(source.c_str());
    std::remove(target.c_str());
}
BENCHMARK(BM_InvertSparseMatrix)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

// The peer: the same transposition on lists of numbers held in memory.
void BM_InvertListsPeer(benchmark::State& state) {
    auto rows = RandomRows(100000, 100000, 100, 1);
    for (auto _ : state) {
        std::vector<std::vector<unsigned>> columns(100000);
        for (unsigned r = 0; r < rows.size(); ++r)
            for (unsigned c : rows[r]) columns[c].push_back(r);
        benchmark::DoNotOptimize(columns.data());
    }
}
BENCHMARK(BM_InvertListsPeer)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

// 100 records of 1,000,000 bits at 1 %: union and intersection.
const std::vector<std::vector<unsigned>>& SetRows() {
    static auto rows = RandomRows(100, 1000000, 10000, 2);
    return rows;
}

void BM_GetRecordsOf100(benchmark::State& state) {
    bool unite = state.range(0) == 1;
    std::string path = BenchPath("sets.bin");
    WriteRows(path, SetRows());
    CBitsBinFile file(path.c_str(), CFile::modeRead);
    std::vector<int> list(100);
    for (int i = 0; i < 100; ++i) list[static_cast<std::size_t>(i)] = i;
    for (auto _ : state) {
        CBitArray result;
        file.GetRecords(100, list.data(), result, unite, -1);
        benchmark::DoNotOptimize(result.GetLength());
    }
    state.SetLabel(unite ? "union" : "intersection");
    std::remove(path.c_str());
}
BENCHMARK(BM_GetRecordsOf100)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_SortedListsPeer(benchmark::State& state) {
    bool unite = state.range(0) == 1;
    const auto& rows = SetRows();
    for (auto _ : state) {
        std::vector<unsigned> acc = rows[0], next;
        for (std::size_t i = 1; i < rows.size(); ++i) {
            next.clear();
            if (unite) {
                std::set_union(acc.begin(), acc.end(), rows[i].begin(), rows[i].end(),
                               std::back_inserter(next));
            } else {
                std::set_intersection(acc.begin(), acc.end(), rows[i].begin(), rows[i].end(),
                                      std::back_inserter(next));
            }
            acc.swap(next);
        }
        benchmark::DoNotOptimize(acc.data());
    }
    state.SetLabel(unite ? "union" : "intersection");
}
BENCHMARK(BM_SortedListsPeer)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();

// A 100 MB file: 10 top records, each a file of 10 files of 100 records of 10 KB.
void BM_NestedModifyDepth3(benchmark::State& state) {
    std::string path = BenchPath("nested.bin");
    {
        std::vector<unsigned char> leaf(10240, 'x');
        CMemBinFile inner, middle;
        for (int k = 0; k < 100; ++k) inner.Add(leaf.data(), static_cast<int>(leaf.size()));
        for (int k = 0; k < 10; ++k) {
            inner.SetSafeMode(true);
            int length = static_cast<int>(inner.GetLength());
            middle.Add(nullptr, 0);
            middle.Modify(k, inner.m_lpBuffer, length);
        }
        CBinFile top(path.c_str(), CFile::modeCreate | CFile::modeReadWrite);
        top.SetSafeMode(false);
        for (int k = 0; k < 10; ++k)
            top.Add(middle.m_lpBuffer, static_cast<int>(middle.GetLength()));
    }
    CNDimBinFile file(path.c_str(), CFile::modeReadWrite);
    int where[] = {5, 5, 50};
    std::vector<unsigned char> shorter(5000, 'y'), longer(20000, 'z');
    bool flip = false;
    for (auto _ : state) {
        std::vector<unsigned char>& data = flip ? longer : shorter;
        flip = !flip;
        file.Modify(3, where, data.data(), static_cast<int>(data.size()));
    }
    state.counters["file_MB"] = file.CFile::GetLength() / 1048576.0;
    std::remove(path.c_str());
}
BENCHMARK(BM_NestedModifyDepth3)->Unit(benchmark::kMillisecond)->UseRealTime();

// An inverted index of documents of 30 words over a vocabulary of 5,000 words: record
// w holds bit d when document d has word w. Built posting by posting with SetAt, and
// gathered in a CBitArrayArray that is saved once; both give the same file.
std::vector<std::vector<int>> Documents(int count) {
    std::mt19937 rng(12);
    std::vector<std::vector<int>> docs(static_cast<std::size_t>(count));
    for (auto& words : docs)
        for (int k = 0; k < 30; ++k) words.push_back(static_cast<int>(rng() % 5000));
    return docs;
}

void BM_PostingsBySetAt(benchmark::State& state) {
    auto docs = Documents(static_cast<int>(state.range(0)));
    std::string path = BenchPath("postings-setat.bin");
    for (auto _ : state) {
        CBitsBinFile file(path.c_str(), CFile::modeCreate | CFile::modeReadWrite);
        for (std::size_t d = 0; d < docs.size(); ++d)
            for (int w : docs[d]) file.SetAt(w, static_cast<int>(d));
    }
    state.SetItemsProcessed(state.iterations() * state.range(0) * 30);
    std::remove(path.c_str());
}
BENCHMARK(BM_PostingsBySetAt)->Arg(2000)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_PostingsByCollection(benchmark::State& state) {
    auto docs = Documents(static_cast<int>(state.range(0)));
    std::string path = BenchPath("postings-collection.bin");
    for (auto _ : state) {
        CBitArrayArray postings;
        for (std::size_t d = 0; d < docs.size(); ++d)
            for (int w : docs[d]) postings.GetAt(w)->SetAt(static_cast<int>(d));
        CBitsBinFile file(path.c_str(), CFile::modeCreate | CFile::modeReadWrite);
        postings.Save(&file, opCopy, true, false, nullptr);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0) * 30);
    std::remove(path.c_str());
}
BENCHMARK(BM_PostingsByCollection)
    ->Arg(2000)
    ->Arg(20000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
}  // namespace

// ---- Workload 3: the intersection of two stored records ------------------------------
// Two records of 16 MiB plain (times range(1) / 10: 1.6, 16 or 160 MiB) at a density in
// thousandths (range(0)), stored compressed in a bit record file. Dorvik intersects them
// with GetRecords; the peers are CRoaring's AND of the same bits, deserialized from its
// portable form beforehand, and the plain way: expand both, then AND.
namespace {
struct StoredPair {
    std::string path;
    roaring_bitmap_t* roaring[2] = {nullptr, nullptr};
};

StoredPair& Pair(int density, int tenths) {
    static std::map<std::pair<int, int>, StoredPair> made;
    StoredPair& at = made[{density, tenths}];
    if (!at.path.empty()) return at;
    at.path = BenchPath("pair-" + std::to_string(density) + "-" + std::to_string(tenths) + ".bin");
    std::size_t bytes = (std::size_t{16} << 20) / 10 * static_cast<std::size_t>(tenths);
    CBitsBinFile file(at.path.c_str(), CFile::modeCreate | CFile::modeReadWrite);
    file.SetSafeMode(false);
    for (unsigned k = 0; k < 2; ++k) {
        std::vector<unsigned char> plain = RandomBitmap(bytes, density / 1000.0, 11 + k);
        file.Add(plain.data(), static_cast<int>(plain.size()));
        roaring_bitmap_t* built = ToRoaring(plain.data(), plain.size());
        std::vector<char> form(roaring_bitmap_portable_size_in_bytes(built));
        roaring_bitmap_portable_serialize(built, form.data());
        roaring_bitmap_free(built);
        at.roaring[k] = roaring_bitmap_portable_deserialize_safe(form.data(), form.size());
    }
    return at;
}

// Densities 0.1 % and 50 % (in thousandths), at a tenth of, at and at ten times 16 MiB.
void DensitiesAndSizes(benchmark::internal::Benchmark* b) {
    b->ArgsProduct({{1, 500}, {1, 10, 100}})->Unit(benchmark::kMicrosecond)->UseRealTime();
}

void BM_W3_Dorvik(benchmark::State& state) {
    StoredPair& pair = Pair(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
    CBitsBinFile file(pair.path.c_str(), CFile::modeRead);
    int records[] = {0, 1};
    int hits = 0;
    for (auto _ : state) {
        CBitArray result;
        file.GetRecords(2, records, result, false, -1);
        hits = result.GetLength();
    }
    state.counters["result_bytes"] = hits;
}
BENCHMARK(BM_W3_Dorvik)->Name("W3_And_Dorvik")->Apply(DensitiesAndSizes);

void BM_W3_ExpandThenAnd(benchmark::State& state) {
    StoredPair& pair = Pair(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
    CBitsBinFile file(pair.path.c_str(), CFile::modeRead);
    for (auto _ : state) {
        CBitArray a, b;
        file.GetRecord(0, a, -1);
        file.GetRecord(1, b, -1);
        a &= b;
        benchmark::DoNotOptimize(a.GetLength());
    }
}
BENCHMARK(BM_W3_ExpandThenAnd)->Name("W3_And_ExpandThenAnd")->Apply(DensitiesAndSizes);

void BM_W3_Roaring(benchmark::State& state) {
    StoredPair& pair = Pair(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
    for (auto _ : state) {
        roaring_bitmap_t* both = roaring_bitmap_and(pair.roaring[0], pair.roaring[1]);
        benchmark::DoNotOptimize(both);
        roaring_bitmap_free(both);
    }
}
BENCHMARK(BM_W3_Roaring)->Name("W3_And_Roaring")->Apply(DensitiesAndSizes);
}  // namespace
