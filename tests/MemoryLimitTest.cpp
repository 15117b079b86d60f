// Under a limit on the address space (ulimit -v), operations that need more memory than
// is left throw CMemoryException and leave their object usable; the process never dies.
// Each case runs in a child process with the limit set, so the suite keeps its memory.
#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>

#include "Dorvik01.h"
#include "TestUtil.h"

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;  // the sanitizers reserve terabytes of address space
#else
constexpr bool kSanitized = false;
#endif

// Exit codes of the child: what `run` ended with.
enum Outcome { threwMemory = 0, completed = 1, threwOther = 2 };

// Runs `run` in a child whose address space is limited to what it uses now plus
// `headroom` bytes; the child's exit code, or 100 + the signal that ended it.
int UnderLimit(std::size_t headroom, const std::function<void()>& run) {
    pid_t child = fork();
    if (child == 0) {
        rlimit limit{};
        // What the child maps already: its own mappings read from /proc, rounded up.
        std::size_t mapped = 0;
        if (FILE* maps = std::fopen("/proc/self/statm", "r")) {
            unsigned long pages = 0;
            if (std::fscanf(maps, "%lu", &pages) == 1)
                mapped = pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
            std::fclose(maps);
        }
        limit.rlim_cur = limit.rlim_max = mapped + headroom;
        if (setrlimit(RLIMIT_AS, &limit) != 0) _exit(3);
        try {
            run();
        } catch (const CMemoryException&) {
            _exit(threwMemory);
        } catch (...) {
            _exit(threwOther);
        }
        _exit(completed);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 100 + WTERMSIG(status);
}

}  // namespace

TEST(MemoryLimits, LargeOperationsThrowInsteadOfEndingTheProcess) {
    if (kSanitized) GTEST_SKIP() << "address space limits and sanitizers do not mix";
    constexpr std::size_t kHeadroom = 64 << 20;
    // A bit far out needs a quarter GiB of words.
    EXPECT_EQ(UnderLimit(kHeadroom,
                         [] {
                             CBitArray bits;
                             bits.SetAt(2000000000);
                         }),
              threwMemory);
    // A memory file grown to 1.5 GB.
    EXPECT_EQ(UnderLimit(kHeadroom,
                         [] {
                             CMemFile file;
                             file.SetLength(1500000000u);
                         }),
              threwMemory);
    // A memory record file extended past the limit keeps its records and stays usable.
    EXPECT_EQ(UnderLimit(kHeadroom,
                         [] {
                             CMemBinFile file;
                             file.Add(P("kept"), 4);
                             try {
                                 file.Init(200000000);
                             } catch (const CMemoryException&) {
                                 if (file.GetRecordCount() != 1) _exit(4);
                                 file.Add(P("more"), 4);
                                 throw;
                             }
                         }),
              threwMemory);
    // An integer file sorted with too little memory for its records.
    TempDir dir;
    const std::string path = dir.Path("ix");
    {
        CIXFile file(path.c_str(), CFile::modeCreate | CFile::modeReadWrite, 4);
        file.Init(20 << 20);  // 80 MB of records, more than the headroom
    }
    EXPECT_EQ(UnderLimit(kHeadroom,
                         [&] {
                             CIXFile file(path.c_str(), CFile::modeRead, 4);
                             CMemIXFile order(4);
                             file.Sort(&order, nullptr);
                         }),
              threwMemory);
}
