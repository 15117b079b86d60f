// Helpers shared by the benchmarks.
#pragma once

#include <sys/resource.h>

#include <string>

// A path for a benchmark's scratch file.
inline std::string BenchPath(const char* name) { return std::string("/tmp/dorvik-bench-") + name; }

// The peak resident memory of the process so far, in MiB. Run one benchmark alone
// (--benchmark_filter) to read it for that benchmark.
inline double PeakMegabytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024.0;
}
