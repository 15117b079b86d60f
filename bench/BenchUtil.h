// Helpers shared by the benchmarks.
#pragma once

#include <roaring/roaring.h>
#include <sqlite3.h>
#include <sys/resource.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <random>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

// The scratch files handed out by BenchPath; all are removed when the run ends, also
// those that benchmarks keep from one to the next.
class ScratchFiles {
public:
    // Deepest paths first, so that a folder is empty when its turn comes.
    ~ScratchFiles() {
        for (auto path = m_paths.rbegin(); path != m_paths.rend(); ++path)
            std::remove(path->c_str());
    }
    const std::string& Add(std::string path) { return *m_paths.insert(std::move(path)).first; }

private:
    std::set<std::string> m_paths;
};

// A path for a benchmark's scratch file, removed at the end of the run.
inline std::string BenchPath(const char* name) {
    static ScratchFiles files;
    return files.Add(std::string("/tmp/dorvik-bench-") + name);
}
inline std::string BenchPath(const std::string& name) { return BenchPath(name.c_str()); }

// The peak resident memory of the process so far, in MiB. Run one benchmark alone
// (--benchmark_filter) to read it for that benchmark.
inline double PeakMegabytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024.0;
}

// A plain bitmap of `bytes` bytes in which each bit is set with probability `density`
// (0.5 and above: uniform random bytes), from a fixed seed.
inline std::vector<unsigned char> RandomBitmap(std::size_t bytes, double density, unsigned seed) {
    std::vector<unsigned char> out(bytes, 0);
    std::mt19937_64 random(seed);
    if (density >= 0.5) {
        std::size_t i = 0;
        for (; i + 8 <= bytes; i += 8) {
            std::uint64_t w = random();
            for (int k = 0; k < 8; ++k) out[i + k] = static_cast<unsigned char>(w >> (8 * k));
        }
        for (; i < bytes; ++i) out[i] = static_cast<unsigned char>(random());
        return out;
    }
    std::geometric_distribution<long> gap(density);
    long bits = static_cast<long>(bytes) * 8;
    for (long bit = gap(random); bit < bits; bit += 1 + gap(random))
        out[static_cast<std::size_t>(bit >> 3)] |= static_cast<unsigned char>(1u << (bit & 7));
    return out;
}

// A fresh SQLite database at `path` (no journal, no sync), made by the statements
// `create`, with `count` rows added in one transaction by the statement `insert`, whose
// parameters `bind(statement, i)` sets for row i; `after` runs once they are in.
template <class Bind>
sqlite3* FillSqlite(const std::string& path, const char* create, const char* insert, int count,
                    Bind bind, const char* after = "") {
    std::remove(path.c_str());
    sqlite3* db = nullptr;
    sqlite3_open(path.c_str(), &db);
    sqlite3_exec(db, "PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF;", nullptr, nullptr, nullptr);
    sqlite3_exec(db, create, nullptr, nullptr, nullptr);
    sqlite3_exec(db, "BEGIN", nullptr, nullptr, nullptr);
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(db, insert, -1, &statement, nullptr);
    for (int i = 0; i < count; ++i) {
        bind(statement, i);
        sqlite3_step(statement);
        sqlite3_reset(statement);
    }
    sqlite3_finalize(statement);
    sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr);
    sqlite3_exec(db, after, nullptr, nullptr, nullptr);
    return db;
}

// The bits of a plain bitmap as a CRoaring bitmap (BitArrayBench.cpp).
roaring_bitmap_t* ToRoaring(const unsigned char* bytes, std::size_t n);

// Generated Arabic text, shared by the benchmarks of the corpus tools.
namespace generated {

// Arabic letters and the eight marks, in UTF-8.
inline const std::vector<std::string> kLetters = {"ا", "ب", "ت", "ث", "ج", "ح", "خ", "د", "ذ", "ر",
                                                  "ز", "س", "ش", "ص", "ض", "ط", "ظ", "ع", "غ", "ف",
                                                  "ق", "ك", "ل", "م", "ن", "ه", "و", "ي"};
inline const std::vector<std::string> kMarks = {"َ", "ً", "ُ", "ٌ", "ِ", "ٍ", "ّ", "ْ"};

// Running text of `tokens` marked words: 40,000 bare words with three marked forms
// each, drawn by a Zipf law (rank r has weight 1 / r), twelve words to a line.
struct Text {
    std::string marked;
    std::size_t tokens = 0;
};

inline const Text& MarkedText(std::size_t tokens) {
    static std::unordered_map<std::size_t, Text> made;
    auto at = made.find(tokens);
    if (at != made.end()) return at->second;
    std::mt19937 rng(15);
    std::vector<std::string> forms;
    for (int i = 0; i < 40000; ++i) {
        std::vector<std::string> bare;
        for (int n = 3 + static_cast<int>(rng() % 5); n > 0; --n)
            bare.push_back(kLetters[rng() % kLetters.size()]);
        for (int k = 0; k < 3; ++k) {
            std::string form;
            for (const std::string& letter : bare) form += letter + kMarks[rng() % kMarks.size()];
            forms.push_back(form);
        }
    }
    std::vector<double> weights(forms.size());
    for (std::size_t r = 0; r < weights.size(); ++r) weights[r] = 1.0 / static_cast<double>(r + 1);
    std::discrete_distribution<std::size_t> zipf(weights.begin(), weights.end());
    Text text;
    for (; text.tokens < tokens; ++text.tokens) {
        text.marked += forms[zipf(rng)];
        text.marked += text.tokens % 12 == 11 ? "\n" : rng() % 10 == 0 ? "، " : " ";
    }
    return made.emplace(tokens, std::move(text)).first->second;
}

}  // namespace generated
