// Helpers shared by the benchmarks.
#pragma once

#include <sys/resource.h>

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

// The peak resident memory of the process so far, in MiB. Run one benchmark alone
// (--benchmark_filter) to read it for that benchmark.
inline double PeakMegabytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024.0;
}

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
