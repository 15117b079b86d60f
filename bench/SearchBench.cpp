// Full-text retrieval as `dorvik index` and `dorvik search` do it (a dictionary with its
// wildcard index, a bit record file of postings, boolean queries over bitmaps) next to
// SQLite FTS5 on the same lines, marks removed for FTS5 so that both answer the same
// question. The text: generated Zipf words, twelve to a line, one unit per line;
// DORVIK_SEARCH_WORDS sets the number of words (default 1,000,000), and
// DORVIK_SEARCH_TEXT names a text file to take instead (the demo's train.txt), its lines
// normalised as `dorvik index` does.
//
// Build: the dictionary, its sorted view and wildcard index and the postings, against a
// contentless FTS5 table (neither side keeps the text). Queries: one rare word, one
// common word, AND of two, OR of three, a prefix, a suffix (for FTS5 the matching terms
// are read from its fts5vocab table first, as a user of FTS5 has to) and a NOT; each
// shape runs 50 times, p50 and p99 are counters in microseconds, and "identical" is 1
// when both sides found the same units.
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include <dorvik/dorvik.hpp>

#include "BenchUtil.h"

namespace {

std::size_t Words() {
    const char* words = std::getenv("DORVIK_SEARCH_WORDS");
    return words ? std::strtoull(words, nullptr, 10) : 1000000;
}

// The lines of the generated text, marked and bare.
struct Lines {
    std::vector<std::string> marked, bare;
};

const Lines& TheLines() {
    static const Lines lines = [] {
        Lines l;
        std::string file;
        if (const char* path = std::getenv("DORVIK_SEARCH_TEXT")) {
            std::ifstream in(path, std::ios::binary);
            file.assign(std::istreambuf_iterator<char>(in), {});
        }
        std::string_view text = file.empty() ? generated::MarkedText(Words()).marked : file;
        dorvik::CorpusNormalizer normalizer;
        while (!text.empty()) {
            std::size_t end = text.find('\n');
            l.marked.push_back(normalizer.feed(text.substr(0, end)) + normalizer.finish());
            l.bare.push_back(dorvik::strip_marks(l.marked.back()));
            text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        }
        return l;
    }();
    return lines;
}

// The query mix, from the bare words by falling frequency.
struct Shape {
    std::string name, dorvik, fts5, suffix;  // suffix: FTS5 looks the terms up first
};

std::vector<Shape> Shapes() {
    std::unordered_map<std::string, std::size_t> counts;
    for (const std::string& line : TheLines().bare)
        for (std::string_view word : dorvik::split_words(line)) ++counts[std::string(word)];
    std::vector<std::pair<std::size_t, std::string>> ranked;
    for (auto& [word, n] : counts) ranked.emplace_back(n, word);
    std::sort(ranked.begin(), ranked.end(), [](const auto& a, const auto& b) {
        return a.first != b.first ? a.first > b.first : a.second < b.second;
    });
    auto word = [&](std::size_t rank) { return ranked[std::min(rank, ranked.size() - 1)].second; };
    std::string rare = word(ranked.size() * 3 / 4);
    std::string top = word(0);
    // The first two letters (two bytes each in UTF-8) of the most common word.
    std::string prefix = top.substr(0, 4), suffix = word(4).substr(word(4).size() - 4);
    return {
        {"rare", rare, rare, ""},
        {"common", top, top, ""},
        {"and2", word(10) + " " + word(100), word(10) + " AND " + word(100), ""},
        {"or3", word(20) + " | " + word(200) + " | " + word(2000),
         word(20) + " OR " + word(200) + " OR " + word(2000), ""},
        {"prefix", prefix + "*", prefix + "*", ""},
        {"suffix", "*" + suffix, "", suffix},
        {"not", word(3) + " -" + word(30), word(3) + " NOT " + word(30), ""},
    };
}

std::uint64_t SizeOf(const std::vector<std::filesystem::path>& paths) {
    std::uint64_t bytes = 0;
    for (const auto& path : paths) bytes += std::filesystem::file_size(path);
    return bytes;
}

// ---- Dorvik ------------------------------------------------------------------------------

std::filesystem::path DorvikFolder() { return BenchPath("search-dorvik"); }

// The index files, each handed out by BenchPath so that the run removes them, and then
// their folder.
std::vector<std::filesystem::path> DorvikFiles() {
    std::vector<std::filesystem::path> files;
    for (const char* name : {"search-dorvik/words.bin", "search-dorvik/words.sort",
                             "search-dorvik/words.wild", "search-dorvik/postings.bin"})
        files.emplace_back(BenchPath(name));
    return files;
}

void BuildDorvik() {
    std::filesystem::remove_all(DorvikFolder());
    std::filesystem::create_directories(DorvikFolder());
    DorvikFiles();
    dorvik::Dictionary words(DorvikFolder() / "words.bin", {.create = true, .bulk = true});
    dorvik::PostingsFile postings(DorvikFolder() / "postings.bin", {.create = true, .bulk = true});
    dorvik::Indexer indexer;
    const std::vector<std::string>& lines = TheLines().marked;
    for (std::uint32_t unit = 0; unit < lines.size(); ++unit)
        for (std::string_view word : dorvik::split_words(lines[unit]))
            indexer.add(words.add(word).first, unit);
    indexer.save(postings);
    postings.close();
    words.close();
}

// ---- FTS5 --------------------------------------------------------------------------------

std::string Fts5Path() { return BenchPath("search-fts5.db"); }

void Exec(sqlite3* db, const char* sql) {
    char* error = nullptr;
    if (sqlite3_exec(db, sql, nullptr, nullptr, &error) != SQLITE_OK) {
        std::string what = error ? error : "?";
        sqlite3_free(error);
        throw std::runtime_error(what);
    }
}

void BuildFts5() {
    std::filesystem::remove(Fts5Path());
    sqlite3* db = nullptr;
    sqlite3_open(Fts5Path().c_str(), &db);
    Exec(db, "PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF;");
    Exec(db, "CREATE VIRTUAL TABLE t USING fts5(x, content='', detail=none, prefix='2');");
    Exec(db, "BEGIN");
    sqlite3_stmt* insert = nullptr;
    sqlite3_prepare_v2(db, "INSERT INTO t(rowid, x) VALUES(?, ?)", -1, &insert, nullptr);
    const std::vector<std::string>& lines = TheLines().bare;
    for (std::size_t unit = 0; unit < lines.size(); ++unit) {
        sqlite3_bind_int64(insert, 1, static_cast<sqlite3_int64>(unit + 1));
        sqlite3_bind_text(insert, 2, lines[unit].data(), static_cast<int>(lines[unit].size()),
                          SQLITE_STATIC);
        sqlite3_step(insert);
        sqlite3_reset(insert);
    }
    sqlite3_finalize(insert);
    Exec(db, "COMMIT");
    Exec(db, "CREATE VIRTUAL TABLE v USING fts5vocab(t, row);");
    sqlite3_close(db);
}

class Fts5 {
public:
    Fts5() {
        sqlite3_open_v2(Fts5Path().c_str(), &db_, SQLITE_OPEN_READONLY, nullptr);
        sqlite3_prepare_v2(db_, "SELECT rowid FROM t WHERE t MATCH ?", -1, &match_, nullptr);
        sqlite3_prepare_v2(db_, "SELECT term FROM v WHERE term LIKE ?", -1, &vocab_, nullptr);
    }
    ~Fts5() {
        sqlite3_finalize(match_);
        sqlite3_finalize(vocab_);
        sqlite3_close(db_);
    }

    std::vector<std::uint32_t> Run(const Shape& shape) {
        std::string query = shape.fts5;
        if (!shape.suffix.empty()) {
            std::string like = "%" + shape.suffix;
            sqlite3_bind_text(vocab_, 1, like.data(), static_cast<int>(like.size()),
                              SQLITE_TRANSIENT);
            while (sqlite3_step(vocab_) == SQLITE_ROW) {
                const char* term = reinterpret_cast<const char*>(sqlite3_column_text(vocab_, 0));
                query += (query.empty() ? "\"" : " OR \"") + std::string(term) + "\"";
            }
            sqlite3_reset(vocab_);
        }
        std::vector<std::uint32_t> units;
        if (query.empty()) return units;
        sqlite3_bind_text(match_, 1, query.data(), static_cast<int>(query.size()),
                          SQLITE_TRANSIENT);
        while (sqlite3_step(match_) == SQLITE_ROW)
            units.push_back(static_cast<std::uint32_t>(sqlite3_column_int64(match_, 0) - 1));
        sqlite3_reset(match_);
        std::sort(units.begin(), units.end());
        return units;
    }

private:
    sqlite3* db_ = nullptr;
    sqlite3_stmt* match_ = nullptr;
    sqlite3_stmt* vocab_ = nullptr;
};

// ---- The benchmarks ----------------------------------------------------------------------

void BM_SearchIndexBuild_Dorvik(benchmark::State& state) {
    TheLines();
    for (auto _ : state) BuildDorvik();
    state.counters["index_MB"] = static_cast<double>(SizeOf(DorvikFiles())) / 1e6;
    state.counters["units"] = static_cast<double>(TheLines().marked.size());
}
BENCHMARK(BM_SearchIndexBuild_Dorvik)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_SearchIndexBuild_Fts5(benchmark::State& state) {
    TheLines();
    for (auto _ : state) BuildFts5();
    state.counters["index_MB"] = static_cast<double>(SizeOf({Fts5Path()})) / 1e6;
    state.counters["units"] = static_cast<double>(TheLines().bare.size());
}
BENCHMARK(BM_SearchIndexBuild_Fts5)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

constexpr int kRuns = 50;

// Times `run` kRuns times; sets p50_us and p99_us.
template <class Run>
void Percentiles(benchmark::State& state, Run&& run) {
    std::vector<double> micros;
    for (int i = 0; i < kRuns; ++i) {
        auto start = std::chrono::steady_clock::now();
        run();
        micros.push_back(
            std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
                .count());
    }
    std::sort(micros.begin(), micros.end());
    state.counters["p50_us"] = micros[micros.size() / 2];
    state.counters["p99_us"] = micros[micros.size() * 99 / 100];
}

// One query shape on both sides: Dorvik's latency, FTS5's, and whether they agree.
void BM_SearchQuery(benchmark::State& state) {
    static const std::vector<Shape> shapes = Shapes();
    const Shape& shape = shapes[static_cast<std::size_t>(state.range(0))];
    bool dorvikSide = state.range(1) == 0;
    if (!std::filesystem::exists(DorvikFolder() / "words.wild")) BuildDorvik();
    if (!std::filesystem::exists(Fts5Path())) BuildFts5();
    auto units = static_cast<std::uint32_t>(TheLines().marked.size());
    dorvik::Dictionary words(DorvikFolder() / "words.bin", {.read_only = true});
    dorvik::PostingsFile postings(DorvikFolder() / "postings.bin", {.read_only = true});
    dorvik::Searcher searcher(words, postings, units);
    Fts5 fts5;
    auto ours = [&] { return searcher.search(dorvik::Query(shape.dorvik)); };
    std::vector<std::uint32_t> mine = ours(), theirs = fts5.Run(shape);
    for (auto _ : state) {
        if (dorvikSide)
            Percentiles(state, [&] { benchmark::DoNotOptimize(ours()); });
        else
            Percentiles(state, [&] { benchmark::DoNotOptimize(fts5.Run(shape)); });
    }
    state.SetLabel(shape.name + (dorvikSide ? " dorvik" : " fts5"));
    state.counters["found"] = static_cast<double>(mine.size());
    state.counters["identical"] = mine == theirs ? 1 : 0;
    if (mine != theirs) state.SkipWithError("the two sides found different units");
}
BENCHMARK(BM_SearchQuery)
    ->ArgsProduct({{0, 1, 2, 3, 4, 5, 6}, {0, 1}})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
