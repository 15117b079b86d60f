// Record files: records of 100 bytes (100,000, 1M or 10M of them) read at random by
// number and built in bulk, next to LMDB (mdb_get in one read transaction; MDB_APPEND
// in one write transaction) and SQLite (a table of blobs by rowid, built in one
// transaction), and the memory twin's read. Workload 4 of bench/compare.sh. Every side
// reads into the caller's buffer, as GetRecord does.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <lmdb.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <Dorvik01.h>

#include "BenchUtil.h"

namespace {
constexpr int kRecordBytes = 100;

// Record i: 100 bytes from a fixed rule, so every side stores the same data.
void MakeRecord(int i, unsigned char* out) {
    std::uint32_t x = static_cast<std::uint32_t>(i) * 2654435761u + 12345u;
    for (int k = 0; k < kRecordBytes; ++k) {
        x = x * 1103515245u + 12345u;
        out[k] = static_cast<unsigned char>(x >> 24);
    }
}

// The records of a run, made once, so that no side pays for making them.
const unsigned char* Records(int count) {
    static std::map<int, std::vector<unsigned char>> made;
    std::vector<unsigned char>& at = made[count];
    if (at.empty()) {
        at.resize(static_cast<std::size_t>(count) * kRecordBytes);
        for (int i = 0; i < count; ++i)
            MakeRecord(i, at.data() + static_cast<std::size_t>(i) * kRecordBytes);
    }
    return at.data();
}

std::string Name(const char* what, int count) {
    return BenchPath(std::string(what) + "-" + std::to_string(count));
}

void BuildDorvik(const std::string& path, int count) {
    const unsigned char* records = Records(count);
    CBinFile file(path.c_str(), CFile::modeCreate | CFile::modeReadWrite);
    file.SetSafeMode(false);
    for (int i = 0; i < count; ++i)
        file.Add(const_cast<unsigned char*>(records) + static_cast<std::size_t>(i) * kRecordBytes,
                 kRecordBytes);
    file.Close();
}

sqlite3* BuildSqlite(const std::string& path, int count) {
    const unsigned char* records = Records(count);
    return FillSqlite(path, "CREATE TABLE r(v BLOB);", "INSERT INTO r(v) VALUES(?)", count,
                      [records](sqlite3_stmt* insert, int i) {
                          sqlite3_bind_blob(insert, 1,
                                            records + static_cast<std::size_t>(i) * kRecordBytes,
                                            kRecordBytes, SQLITE_STATIC);
                      });
}

struct Lmdb {
    MDB_env* env = nullptr;
    MDB_dbi dbi = 0;
};

// A fresh LMDB file of `count` records keyed by their number, appended in one
// transaction; no sync, as the other sides do not sync either.
Lmdb BuildLmdb(const std::string& path, int count) {
    std::remove(path.c_str());
    std::remove((path + "-lock").c_str());
    Lmdb db;
    mdb_env_create(&db.env);
    mdb_env_set_mapsize(db.env, static_cast<std::size_t>(count) * 200 + (std::size_t{64} << 20));
    mdb_env_open(db.env, path.c_str(), MDB_NOSUBDIR | MDB_NOSYNC, 0644);
    MDB_txn* txn = nullptr;
    mdb_txn_begin(db.env, nullptr, 0, &txn);
    mdb_dbi_open(txn, nullptr, MDB_INTEGERKEY, &db.dbi);
    const unsigned char* records = Records(count);
    for (int i = 0; i < count; ++i) {
        unsigned key = static_cast<unsigned>(i);
        MDB_val k{sizeof key, &key},
            v{kRecordBytes,
              const_cast<unsigned char*>(records) + static_cast<std::size_t>(i) * kRecordBytes};
        mdb_put(txn, db.dbi, &k, &v, MDB_APPEND);
    }
    mdb_txn_commit(txn);
    return db;
}

// The data of each side, built once per count and kept for the reads.
const std::string& DorvikFile(int count) {
    static std::map<int, std::string> made;
    auto at = made.find(count);
    if (at != made.end()) return at->second;
    std::string path = Name("records.bin", count);
    BuildDorvik(path, count);
    return made.emplace(count, path).first->second;
}

sqlite3* SqliteFile(int count) {
    static std::map<int, sqlite3*> made;
    auto at = made.find(count);
    if (at != made.end()) return at->second;
    return made.emplace(count, BuildSqlite(Name("records.sqlite", count), count)).first->second;
}

Lmdb LmdbFile(int count) {
    static std::map<int, Lmdb> made;
    auto at = made.find(count);
    if (at != made.end()) return at->second;
    std::string path = Name("records.mdb", count);
    BenchPath(path.substr(BenchPath("").size()) + "-lock");  // removed at the end too
    return made.emplace(count, BuildLmdb(path, count)).first->second;
}

// ---- Reads ---------------------------------------------------------------------------

template <class File>
void ReadRandom(benchmark::State& state, File& file, int count) {
    std::mt19937 rng(7);
    unsigned char buffer[128];
    for (auto _ : state) {
        unsigned char* p = buffer;
        int length = sizeof buffer;
        file.GetRecord(static_cast<int>(rng() % static_cast<unsigned>(count)), p, length, false);
        benchmark::DoNotOptimize(length);
        benchmark::DoNotOptimize(buffer[0]);
    }
    state.SetItemsProcessed(state.iterations());
}

// The sizes of every read and build: a tenth of, and ten times, the million records.
void AtThreeSizes(benchmark::internal::Benchmark* b) {
    b->Arg(100000)->Arg(1000000)->Arg(10000000)->UseRealTime();
}
void InMilliseconds(benchmark::internal::Benchmark* b) {
    AtThreeSizes(b->Unit(benchmark::kMillisecond));
}

void BM_W4_Read_Dorvik(benchmark::State& state) {
    int count = static_cast<int>(state.range(0));
    CBinFile file(DorvikFile(count).c_str(), CFile::modeRead);
    ReadRandom(state, file, count);
}
BENCHMARK(BM_W4_Read_Dorvik)->Name("W4_Read_Dorvik")->Apply(AtThreeSizes);

void BM_W4_Read_Twin(benchmark::State& state) {
    int count = static_cast<int>(state.range(0));
    CMemBinFile twin(DorvikFile(count).c_str(), 0);
    ReadRandom(state, twin, count);
}
BENCHMARK(BM_W4_Read_Twin)->Name("W4_Read_Twin")->Apply(AtThreeSizes);

void BM_W4_Read_Lmdb(benchmark::State& state) {
    int count = static_cast<int>(state.range(0));
    Lmdb db = LmdbFile(count);
    MDB_txn* txn = nullptr;
    mdb_txn_begin(db.env, nullptr, MDB_RDONLY, &txn);
    std::mt19937 rng(7);
    unsigned char buffer[128];
    for (auto _ : state) {
        unsigned key = rng() % static_cast<unsigned>(count);
        MDB_val k{sizeof key, &key}, v{0, nullptr};
        if (mdb_get(txn, db.dbi, &k, &v) == 0) std::memcpy(buffer, v.mv_data, v.mv_size);
        benchmark::DoNotOptimize(buffer[0]);
    }
    mdb_txn_abort(txn);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_W4_Read_Lmdb)->Name("W4_Read_Lmdb")->Apply(AtThreeSizes);

void BM_W4_Read_Sqlite(benchmark::State& state) {
    int count = static_cast<int>(state.range(0));
    sqlite3* db = SqliteFile(count);
    sqlite3_stmt* select = nullptr;
    sqlite3_prepare_v2(db, "SELECT v FROM r WHERE rowid = ?", -1, &select, nullptr);
    std::mt19937 rng(7);
    unsigned char buffer[128];
    for (auto _ : state) {
        sqlite3_bind_int(select, 1, 1 + static_cast<int>(rng() % static_cast<unsigned>(count)));
        if (sqlite3_step(select) == SQLITE_ROW)
            std::memcpy(buffer, sqlite3_column_blob(select, 0),
                        static_cast<std::size_t>(sqlite3_column_bytes(select, 0)));
        benchmark::DoNotOptimize(buffer[0]);
        sqlite3_reset(select);
    }
    sqlite3_finalize(select);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_W4_Read_Sqlite)->Name("W4_Read_Sqlite")->Apply(AtThreeSizes);

// The floor of a read from memory: the same records back to back in one block, found
// through an offset table, copied out.
void BM_W4_Read_Floor(benchmark::State& state) {
    int count = static_cast<int>(state.range(0));
    std::vector<unsigned char> data(static_cast<std::size_t>(count) * kRecordBytes);
    std::vector<std::uint32_t> offsets(static_cast<std::size_t>(count) + 1);
    for (int i = 0; i < count; ++i) {
        MakeRecord(i, data.data() + static_cast<std::size_t>(i) * kRecordBytes);
        offsets[static_cast<std::size_t>(i) + 1] =
            static_cast<std::uint32_t>((i + 1) * kRecordBytes);
    }
    std::mt19937 rng(7);
    unsigned char buffer[128];
    for (auto _ : state) {
        std::size_t i = rng() % static_cast<unsigned>(count);
        std::memcpy(buffer, data.data() + offsets[i], offsets[i + 1] - offsets[i]);
        benchmark::DoNotOptimize(buffer[0]);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_W4_Read_Floor)->Name("W4_Read_Floor")->Apply(AtThreeSizes);

// ---- Bulk builds ---------------------------------------------------------------------

void BM_W4_Build_Dorvik(benchmark::State& state) {
    int count = static_cast<int>(state.range(0));
    std::string path = Name("build.bin", count);
    for (auto _ : state) BuildDorvik(path, count);
    state.SetItemsProcessed(state.iterations() * count);
    std::remove(path.c_str());
}
BENCHMARK(BM_W4_Build_Dorvik)->Name("W4_Build_Dorvik")->Apply(InMilliseconds);

void BM_W4_Build_Lmdb(benchmark::State& state) {
    int count = static_cast<int>(state.range(0));
    std::string path = Name("build.mdb", count);
    for (auto _ : state) mdb_env_close(BuildLmdb(path, count).env);
    state.SetItemsProcessed(state.iterations() * count);
    std::remove(path.c_str());
    std::remove((path + "-lock").c_str());
}
BENCHMARK(BM_W4_Build_Lmdb)->Name("W4_Build_Lmdb")->Apply(InMilliseconds);

void BM_W4_Build_Sqlite(benchmark::State& state) {
    int count = static_cast<int>(state.range(0));
    std::string path = Name("build.sqlite", count);
    for (auto _ : state) sqlite3_close(BuildSqlite(path, count));
    state.SetItemsProcessed(state.iterations() * count);
    std::remove(path.c_str());
}
BENCHMARK(BM_W4_Build_Sqlite)->Name("W4_Build_Sqlite")->Apply(InMilliseconds);

// The floor of a build: the same bytes appended to a raw file in 64 KiB writes.
void BM_RawAppendFloor(benchmark::State& state) {
    int count = static_cast<int>(state.range(0));
    std::string path = Name("raw.bin", count);
    const unsigned char* records = Records(count);
    for (auto _ : state) {
        int fd = ::open(path.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0644);
        std::string chunk;
        for (int i = 0; i < count; ++i) {
            chunk.append(
                reinterpret_cast<const char*>(records) + static_cast<std::size_t>(i) * kRecordBytes,
                kRecordBytes);
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
BENCHMARK(BM_RawAppendFloor)
    ->Name("W4_Build_Floor")
    ->Arg(1000000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
}  // namespace
