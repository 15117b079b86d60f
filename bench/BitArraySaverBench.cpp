// Spill stack: Push and Pop of 100,000 bit arrays of 1 KiB from one and from four
// threads on one object, next to SQLite (a table of blobs by rowid, one autocommit
// statement per array, which like the spill file is complete after every insert).
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <cstdio>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <Dorvik01.h>

#include "BenchUtil.h"

namespace {

constexpr int kArrays = 100000;
constexpr int kArrayBytes = 1024;

// Distinct 1 KiB bitmaps of random bytes: the compressed form stays about as long.
std::vector<CBitArray>& Arrays() {
    static std::vector<CBitArray> arrays = [] {
        std::vector<CBitArray> out;
        out.reserve(64);
        std::mt19937 rng(11);
        unsigned char bytes[kArrayBytes];
        for (int k = 0; k < 64; ++k) {
            for (unsigned char& b : bytes) b = static_cast<unsigned char>(1 + rng() % 254);
            out.emplace_back(bytes, kArrayBytes, false);
        }
        return out;
    }();
    return arrays;
}

// Runs `work(first, last)` over 0 .. kArrays - 1 split into `threads` slices.
template <class Work>
void InThreads(int threads, Work work) {
    std::vector<std::thread> pool;
    for (int t = 0; t < threads; ++t) {
        int first = kArrays / threads * t;
        int last = t == threads - 1 ? kArrays : kArrays / threads * (t + 1);
        pool.emplace_back(work, first, last);
    }
    for (std::thread& thread : pool) thread.join();
}

void PushAll(CBitArraySaver& saver, int threads) {
    std::vector<CBitArray>& arrays = Arrays();
    InThreads(threads, [&](int first, int last) {
        for (int i = first; i < last; ++i)
            saver.Push(arrays[static_cast<std::size_t>(i) % arrays.size()]);
    });
}

void BM_SpillPush(benchmark::State& state) {
    int threads = static_cast<int>(state.range(0));
    for (auto _ : state) {
        CBitArraySaver saver;  // its own temporary, removed at the end of the pass
        PushAll(saver, threads);
    }
    state.SetItemsProcessed(state.iterations() * kArrays);
    state.SetBytesProcessed(state.iterations() * kArrays * kArrayBytes);
}
BENCHMARK(BM_SpillPush)->Arg(1)->Arg(4)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_SpillPop(benchmark::State& state) {
    int threads = static_cast<int>(state.range(0));
    CBitArraySaver saver;
    PushAll(saver, 1);
    for (auto _ : state) {
        InThreads(threads, [&](int first, int last) {
            CBitArray bits;
            for (int i = first; i < last; ++i) {
                saver.Pop(i + 1, bits);
                benchmark::DoNotOptimize(bits.GetBuffer());
            }
        });
    }
    state.SetItemsProcessed(state.iterations() * kArrays);
    state.SetBytesProcessed(state.iterations() * kArrays * kArrayBytes);
}
BENCHMARK(BM_SpillPop)->Arg(1)->Arg(4)->Unit(benchmark::kMillisecond)->UseRealTime();

sqlite3* OpenPeer(const std::string& path) {
    std::remove(path.c_str());
    sqlite3* db = nullptr;
    sqlite3_open(path.c_str(), &db);
    sqlite3_exec(db, "PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF; CREATE TABLE r(v BLOB);",
                 nullptr, nullptr, nullptr);
    return db;
}

void PeerPushAll(sqlite3* db) {
    const std::vector<CBitArray>& arrays = Arrays();
    sqlite3_stmt* insert = nullptr;
    sqlite3_prepare_v2(db, "INSERT INTO r(v) VALUES(?)", -1, &insert, nullptr);
    for (int i = 0; i < kArrays; ++i) {
        const CBitArray& bits = arrays[static_cast<std::size_t>(i) % arrays.size()];
        sqlite3_bind_blob(insert, 1, bits.GetBuffer(), bits.GetLength(), SQLITE_STATIC);
        sqlite3_step(insert);
        sqlite3_reset(insert);
    }
    sqlite3_finalize(insert);
}

void BM_SqlitePushPeer(benchmark::State& state) {
    std::string path = BenchPath("spill-peer.sqlite");
    for (auto _ : state) {
        sqlite3* db = OpenPeer(path);
        PeerPushAll(db);
        sqlite3_close(db);
    }
    state.SetItemsProcessed(state.iterations() * kArrays);
    state.SetBytesProcessed(state.iterations() * kArrays * kArrayBytes);
    std::remove(path.c_str());
}
BENCHMARK(BM_SqlitePushPeer)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_SqlitePopPeer(benchmark::State& state) {
    std::string path = BenchPath("spill-peer-read.sqlite");
    sqlite3* db = OpenPeer(path);
    PeerPushAll(db);
    sqlite3_stmt* select = nullptr;
    sqlite3_prepare_v2(db, "SELECT v FROM r WHERE rowid = ?", -1, &select, nullptr);
    for (auto _ : state) {
        for (int i = 1; i <= kArrays; ++i) {
            sqlite3_bind_int(select, 1, i);
            sqlite3_step(select);
            CBitArray bits(static_cast<const unsigned char*>(sqlite3_column_blob(select, 0)),
                           sqlite3_column_bytes(select, 0), false);
            benchmark::DoNotOptimize(bits.GetBuffer());
            sqlite3_reset(select);
        }
    }
    sqlite3_finalize(select);
    sqlite3_close(db);
    state.SetItemsProcessed(state.iterations() * kArrays);
    state.SetBytesProcessed(state.iterations() * kArrays * kArrayBytes);
    std::remove(path.c_str());
}
BENCHMARK(BM_SqlitePopPeer)->Unit(benchmark::kMillisecond)->UseRealTime();
}  // namespace
