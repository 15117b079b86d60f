// What crash safety costs. A record file of 10,000 records of 100 bytes changed one
// record at a time at a random place: in safe mode (the rollback journal takes the bytes
// a change overwrites, the file is marked and complete after each change) next to not
// safe mode (no journal, no table on disk until Close), and next to SQLite changing a
// table of the same blobs by rowid, one autocommit statement each, with its rollback
// journal (journal_mode=DELETE) and without (journal_mode=OFF). Neither side syncs.
// A record of another length moves the file's tail, which the journal copies first; one
// of the same length is written in place. And the moves of an integer file of 1M values
// (an insertion and a deletion in the middle, 2 MB moved each), journaled, next to the
// same bytes moved by plain reads and writes.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include <Dorvik01.h>

#include "BenchUtil.h"

namespace {

constexpr int kRecords = 10000;
constexpr int kRecordBytes = 100;
constexpr int kValues = 1000000;

std::vector<unsigned char> Record(int length, unsigned seed) {
    std::vector<unsigned char> r(static_cast<std::size_t>(length));
    std::mt19937 rng(seed);
    for (unsigned char& b : r) b = static_cast<unsigned char>(rng());
    return r;
}

std::string MakeRecordFile(const char* name) {
    const std::string path = BenchPath(name);
    BenchPath(std::string(name) + ".journal");
    std::remove(path.c_str());
    CBinFile f(path.c_str(), CFile::modeCreate | CFile::modeReadWrite);
    f.SetSafeMode(false);
    std::vector<unsigned char> r = Record(kRecordBytes, 1);
    for (int i = 0; i < kRecords; ++i) f.Add(r.data(), kRecordBytes);
    f.Close();
    return path;
}

// range(0): 1 for safe mode; range(1): 1 when the length changes (100 and 120 bytes in
// turn), 0 for the same length.
void BM_RecordFileChange(benchmark::State& state) {
    const bool safe = state.range(0) != 0, moves = state.range(1) != 0;
    const std::string path = MakeRecordFile(safe ? "journal-safe" : "journal-notsafe");
    CBinFile f(path.c_str(), CFile::modeReadWrite);
    f.SetSafeMode(safe);
    std::vector<unsigned char> shortRecord = Record(kRecordBytes, 2),
                               longRecord = Record(kRecordBytes + 20, 3);
    std::mt19937 rng(5);
    bool flip = false;
    for (auto _ : state) {
        const int at = static_cast<int>(rng() % kRecords);
        std::vector<unsigned char>& r = moves && (flip = !flip) ? longRecord : shortRecord;
        f.Modify(at, r.data(), static_cast<int>(r.size()));
    }
    f.Close();
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_RecordFileChange)
    ->ArgNames({"safe", "moves"})
    ->Args({1, 1})
    ->Args({0, 1})
    ->Args({1, 0})
    ->Args({0, 0})
    ->Unit(benchmark::kMicrosecond);

// The same changes in SQLite: range(0) 1 for its rollback journal, range(1) as above.
void BM_SqliteRecordChangePeer(benchmark::State& state) {
    const bool journal = state.range(0) != 0, moves = state.range(1) != 0;
    const std::string path = BenchPath(journal ? "journal-sqlite" : "journal-sqlite-off");
    BenchPath((journal ? "journal-sqlite" : "journal-sqlite-off") + std::string("-journal"));
    std::vector<unsigned char> first = Record(kRecordBytes, 1);
    sqlite3* db =
        FillSqlite(path, "CREATE TABLE r(v BLOB);", "INSERT INTO r(v) VALUES(?)", kRecords,
                   [&first](sqlite3_stmt* insert, int) {
                       sqlite3_bind_blob(insert, 1, first.data(), kRecordBytes, SQLITE_STATIC);
                   });
    sqlite3_exec(db, journal ? "PRAGMA journal_mode=DELETE;" : "PRAGMA journal_mode=OFF;", nullptr,
                 nullptr, nullptr);
    sqlite3_stmt* update = nullptr;
    sqlite3_prepare_v2(db, "UPDATE r SET v=? WHERE rowid=?", -1, &update, nullptr);
    std::vector<unsigned char> shortRecord = Record(kRecordBytes, 2),
                               longRecord = Record(kRecordBytes + 20, 3);
    std::mt19937 rng(5);
    bool flip = false;
    for (auto _ : state) {
        const int at = 1 + static_cast<int>(rng() % kRecords);
        std::vector<unsigned char>& r = moves && (flip = !flip) ? longRecord : shortRecord;
        sqlite3_bind_blob(update, 1, r.data(), static_cast<int>(r.size()), SQLITE_STATIC);
        sqlite3_bind_int(update, 2, at);
        if (sqlite3_step(update) != SQLITE_DONE) state.SkipWithError("update failed");
        sqlite3_reset(update);
    }
    sqlite3_finalize(update);
    sqlite3_close(db);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_SqliteRecordChangePeer)
    ->ArgNames({"journal", "moves"})
    ->Args({1, 1})
    ->Args({0, 1})
    ->Args({1, 0})
    ->Unit(benchmark::kMicrosecond);

std::string MakeIntegerFile() {
    const std::string path = BenchPath("journal-ix");
    BenchPath("journal-ix.journal");
    std::remove(path.c_str());
    CIXFile f(path.c_str(), CFile::modeCreate | CFile::modeReadWrite);
    std::vector<DWORD> values(kValues);
    for (int i = 0; i < kValues; ++i) values[static_cast<std::size_t>(i)] = static_cast<DWORD>(i);
    f.AddRecords(values.data(), kValues);
    return path;
}

// An insertion and a deletion in the middle, each moving the second half of the file.
void BM_IntegerFileMove(benchmark::State& state) {
    const std::string path = MakeIntegerFile();
    CIXFile f(path.c_str(), CFile::modeReadWrite);
    for (auto _ : state) {
        f.Insert(kValues / 2, 7);
        f.Delete(kValues / 2);
    }
    state.SetItemsProcessed(2 * state.iterations());
}
BENCHMARK(BM_IntegerFileMove)->Unit(benchmark::kMillisecond);

// The same bytes moved by one read and one write each way, nothing kept aside: the
// floor of a move without a journal.
void BM_IntegerFileMovePlainPeer(benchmark::State& state) {
    const std::string path = MakeIntegerFile();
    const int fd = ::open(path.c_str(), O_RDWR);
    const std::size_t half = kValues / 2 * 4;
    std::vector<unsigned char> buffer(half + 4);
    for (auto _ : state) {
        // Insert: the tail one value up, the new value in its place.
        ssize_t got = ::pread(fd, buffer.data() + 4, half, static_cast<off_t>(half));
        buffer[0] = 7;
        got += ::pwrite(fd, buffer.data(), half + 4, static_cast<off_t>(half));
        // Delete: back down, and the file one value shorter.
        got += ::pread(fd, buffer.data(), half, static_cast<off_t>(half + 4));
        got += ::pwrite(fd, buffer.data(), half, static_cast<off_t>(half));
        if (::ftruncate(fd, static_cast<off_t>(2 * half)) != 0 || got <= 0)
            state.SkipWithError("plain move failed");
    }
    ::close(fd);
    state.SetItemsProcessed(2 * state.iterations());
}
BENCHMARK(BM_IntegerFileMovePlainPeer)->Unit(benchmark::kMillisecond);

}  // namespace
