// Helpers shared by the benchmarks.
#pragma once

#include <sys/resource.h>

#include <cstdio>
#include <set>
#include <string>

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
