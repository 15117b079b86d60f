// Record file: bulk appends in not safe mode and random reads, next to SQLite (a table
// of blobs by rowid, in one transaction) and a raw file append as the floor.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cstdio>
#include <random>
#include <string>

#include <Dorvik01.h>

#include "BenchUtil.h"

namespace {

unsigned char g_record[24] = "a small record of bytes";

void BuildRecordFile(const std::string& path, int count) {
    CBinFile file(path.c_str(), CFile::modeCreate | CFile::modeReadWrite);
    file.SetSafeMode(false);
    for (int i = 0; i < count; ++i) file.Add(g_record, 8 + i % 16);
    file.Close();
}

void BM_RecordFileAppendNotSafe(benchmark::State& state) {
    int count = static_cast<int>(state.range(0));
    std::string path = BenchPath("append.bin");
    for (auto _ : state) BuildRecordFile(path, count);
    state.SetItemsProcessed(state.iterations() * count);
    std::remove(path.c_str());
}
BENCHMARK(BM_RecordFileAppendNotSafe)->Arg(1 << 20)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_RecordFileRandomGetRecord(benchmark::State& state) {
    int count = static_cast<int>(state.range(0));
    std::string path = BenchPath("read.bin");
    BuildRecordFile(path, count);
    CBinFile file(path.c_str(), CFile::modeRead);
    std::mt19937 rng(7);
    unsigned char buffer[64];
    for (auto _ : state) {
        unsigned char* p = buffer;
        int length = sizeof buffer;
        file.GetRecord(static_cast<int>(rng() % static_cast<unsigned>(count)), p, length, false);
        benchmark::DoNotOptimize(length);
    }
    state.SetItemsProcessed(state.iterations());
    std::remove(path.c_str());
}
BENCHMARK(BM_RecordFileRandomGetRecord)->Arg(1 << 20)->UseRealTime();

void BM_RawAppendFloor(benchmark::State& state) {
    int count = static_cast<int>(state.range(0));
    std::string path = BenchPath("raw.bin");
    for (auto _ : state) {
        int fd = ::open(path.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0644);
        std::string chunk;
        for (int i = 0; i < count; ++i) {
            chunk.append(reinterpret_cast<char*>(g_record), static_cast<std::size_t>(8 + i % 16));
            if (chunk.size() > (1 << 16)) {
                benchmark::DoNotOptimize(::write(fd, chunk.data(), chunk.size()));
                chunk.clear();
            }
        }
        benchmark::DoNotOptimize(::write(fd, chunk.data(), chunk.size()));
        ::close(fd);
    }
    state.SetItemsProcessed(state.iterations() * count);
    std::remove(path.c_str());
}
BENCHMARK(BM_RawAppendFloor)->Arg(1 << 20)->Unit(benchmark::kMillisecond)->UseRealTime();

sqlite3* OpenSqlite(const std::string& path, int count) {
    std::remove(path.c_str());
    sqlite3* db = nullptr;
    sqlite3_open(path.c_str(), &db);
    sqlite3_exec(db, "PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF; CREATE TABLE r(v BLOB);",
                 nullptr, nullptr, nullptr);
    sqlite3_exec(db, "BEGIN", nullptr, nullptr, nullptr);
    sqlite3_stmt* insert = nullptr;
    sqlite3_prepare_v2(db, "INSERT INTO r(v) VALUES(?)", -1, &insert, nullptr);
    for (int i = 0; i < count; ++i) {
        sqlite3_bind_blob(insert, 1, g_record, 8 + i % 16, SQLITE_STATIC);
        sqlite3_step(insert);
        sqlite3_reset(insert);
    }
    sqlite3_finalize(insert);
    sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr);
    return db;
}

void BM_SqliteAppendPeer(benchmark::State& state) {
    int count = static_cast<int>(state.range(0));
    std::string path = BenchPath("peer.sqlite");
    for (auto _ : state) sqlite3_close(OpenSqlite(path, count));
    state.SetItemsProcessed(state.iterations() * count);
    std::remove(path.c_str());
}
BENCHMARK(BM_SqliteAppendPeer)->Arg(1 << 20)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_SqliteRandomReadPeer(benchmark::State& state) {
    int count = static_cast<int>(state.range(0));
    std::string path = BenchPath("peer-read.sqlite");
    sqlite3* db = OpenSqlite(path, count);
    sqlite3_stmt* select = nullptr;
    sqlite3_prepare_v2(db, "SELECT v FROM r WHERE rowid = ?", -1, &select, nullptr);
    std::mt19937 rng(7);
    for (auto _ : state) {
        sqlite3_bind_int(select, 1, 1 + static_cast<int>(rng() % static_cast<unsigned>(count)));
        sqlite3_step(select);
        benchmark::DoNotOptimize(sqlite3_column_bytes(select, 0));
        sqlite3_reset(select);
    }
    sqlite3_finalize(select);
    sqlite3_close(db);
    state.SetItemsProcessed(state.iterations());
    std::remove(path.c_str());
}
BENCHMARK(BM_SqliteRandomReadPeer)->Arg(1 << 20)->UseRealTime();
}  // namespace
