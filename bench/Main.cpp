// The benchmark program. Without the flags below it is Google Benchmark's usual main.
//
//   --interleave=A,B,C   runs the benchmarks named A, B and C (full names) in rounds,
//                        forward in odd rounds and backward in even ones (A B C, C B A,
//                        ...), after one warm-up round that is not reported, all in this
//                        process and on the same data, so that ratios come from one run.
//   --rounds=N           the number of reported rounds (default 5).
//
// Each reported run prints one line: RESULT <name> <round> <ns per iteration> <counters>,
// the wall-clock time of the run.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

namespace {

class LineReporter : public benchmark::BenchmarkReporter {
public:
    int round = 0;
    bool quiet = true;

    bool ReportContext(const Context&) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (quiet || run.error_occurred || run.iterations == 0) continue;
            double ns = run.real_accumulated_time * 1e9 / static_cast<double>(run.iterations);
            std::string name = run.benchmark_name();
            std::size_t real = name.rfind("/real_time");
            if (real != std::string::npos && real + 10 == name.size()) name.erase(real);
            std::printf("RESULT\t%s\t%d\t%.1f\t", name.c_str(), round, ns);
            for (const auto& [key, counter] : run.counters)
                std::printf("%s=%g;", key.c_str(), counter.value);
            std::printf("\n");
            std::fflush(stdout);
        }
    }
};

// The names of a comma-separated list, each turned into an exact-match filter (a
// benchmark timed by the wall clock carries "/real_time" behind its name).
std::vector<std::string> Filters(const std::string& list) {
    std::vector<std::string> out;
    std::stringstream in(list);
    for (std::string name; std::getline(in, name, ',');) {
        if (name.empty()) continue;
        std::string quoted;
        for (char c : name) {
            if (std::strchr("^$.|?*+()[]{}\\", c)) quoted += '\\';
            quoted += c;
        }
        out.push_back("^" + quoted + "(/real_time)?$");
    }
    return out;
}
}  // namespace

int main(int argc, char** argv) {
    std::string interleave;
    int rounds = 5;
    int kept = 1;
    for (int i = 1; i < argc; ++i) {
        if (std::strncmp(argv[i], "--interleave=", 13) == 0) {
            interleave = argv[i] + 13;
        } else if (std::strncmp(argv[i], "--rounds=", 9) == 0) {
            rounds = std::atoi(argv[i] + 9);
        } else {
            argv[kept++] = argv[i];
        }
    }
    argc = kept;
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    if (interleave.empty()) {
        benchmark::RunSpecifiedBenchmarks();
        benchmark::Shutdown();
        return 0;
    }
    std::vector<std::string> filters = Filters(interleave);
    LineReporter reporter;
    for (int round = 0; round <= rounds; ++round) {
        reporter.round = round;
        reporter.quiet = round == 0;  // the warm-up round builds data and warms the heap
        bool forward = round % 2 == 1;
        for (std::size_t k = 0; k < filters.size(); ++k) {
            const std::string& filter = filters[forward ? k : filters.size() - 1 - k];
            if (benchmark::RunSpecifiedBenchmarks(&reporter, filter) == 0 && round == 0)
                std::printf("ABSENT\t%s\n", filter.c_str());
        }
    }
    benchmark::Shutdown();
    return 0;
}
