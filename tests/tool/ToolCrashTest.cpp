// The tool's folders under kills and damage: a build or an index killed at random
// moments while it replaces a folder leaves the old folder or the new one whole under
// the name, and a damaged folder is refused in one line, never with a crash.
#include <signal.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "TestUtil.h"
#include "tool/ToolRun.h"

namespace {

using Folder = std::map<std::string, Bytes>;

const std::string kOne = std::string(DORVIK_TEST_DATA) + "/search/one.txt";
const std::string kTwo = std::string(DORVIK_TEST_DATA) + "/search/two.txt";

// The files of a folder, the manifest's time of creation left out.
Folder FilesOf(const std::string& folder) {
    Folder files;
    std::error_code error;
    for (const auto& e : std::filesystem::directory_iterator(folder, error)) {
        Bytes bytes = ReadAll(e.path().string());
        if (e.path().filename() == "manifest.json") {
            const std::string text(bytes.begin(), bytes.end());
            const std::size_t at = text.find("\"created\"");
            const std::size_t end = text.find('\n', at);
            if (at != std::string::npos && end != std::string::npos)
                bytes = B(text.substr(0, at) + text.substr(end));
        }
        files[e.path().filename().string()] = bytes;
    }
    return files;
}

// The test corpus `times` times over, with a number on every line so that the forms
// and the units keep growing.
std::string LargeCorpus(const TempDir& dir, int times) {
    const std::string line = Slurp(kCorpus);
    std::string text;
    for (int i = 0; i < times; ++i) text += line + std::to_string(i) + "\n";
    const std::string path = dir.Path("large.txt");
    WriteAll(path, B(text));
    return path;
}

// Replaces the folder at dir/out, built by `command` from the small corpus, by the one
// from the large corpus, `rounds` times, killing the run at a random moment each time:
// before, during and (most often) near the end of its work, when the new folder takes
// the old one's place. Each time the name holds one of the two folders whole, beside it
// only the run's own hidden work folders, and a later run replaces it.
void KillWhileReplacing(const std::string& command, const std::vector<std::string>& extra,
                        int rounds) {
    TempDir dir;
    const std::string out = dir.Path("out"), large = LargeCorpus(dir, 3000);
    const std::string small = command == "index" ? kOne : kCorpus;
    auto run = [&](const std::string& corpus) {
        std::vector<std::string> args = {command, "-q", "--force"};
        args.insert(args.end(), extra.begin(), extra.end());
        args.insert(args.end(), {corpus, "-o", out});
        return args;
    };
    ASSERT_EQ(Dorvik(dir, run(large)).status, 0);
    const Folder grown = FilesOf(out);
    ASSERT_EQ(Dorvik(dir, run(small)).status, 0);
    const Folder old = FilesOf(out);
    ASSERT_NE(old, grown);
    // How long a whole run takes here (the sanitizers make it slower).
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(Dorvik(dir, run(small)).status, 0);
    ASSERT_EQ(Dorvik(dir, run(large)).status, 0);
    const double full =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::mt19937 rng(3);
    int oldKept = 0, newWhole = 0;
    for (int round = 0; round < KillRounds(rounds); ++round) {
        const std::string where = command + ", round " + std::to_string(round);
        ASSERT_EQ(Dorvik(dir, run(small)).status, 0) << where;
        // Half the kills anywhere, half in the last fifth of the run.
        const double share =
            round % 2 ? 0.8 + 0.3 * (rng() % 1000) / 1000.0 : 1.1 * (rng() % 1000) / 1000.0;
        const pid_t pid = StartDorvik(dir, run(large));
        ASSERT_GT(pid, 0);
        std::this_thread::sleep_for(std::chrono::duration<double>(share * full));
        kill(pid, SIGKILL);
        Finish(dir, pid);
        const Folder now = FilesOf(out);
        EXPECT_TRUE(now == old || now == grown) << where << ": " << now.size() << " files";
        oldKept += now == old;
        newWhole += now == grown;
        for (const auto& e : std::filesystem::directory_iterator(dir.Root())) {
            const std::string name = e.path().filename().string();
            if (name == "out" || name == "large.txt" || name[0] != '.' || !e.is_directory())
                continue;
            EXPECT_EQ(name.rfind(".out.", 0), 0u) << where << ": " << name;
        }
        if (::testing::Test::HasFailure()) return;
    }
    // The folder stays usable: a run that is not killed replaces it.
    ASSERT_EQ(Dorvik(dir, run(small)).status, 0);
    EXPECT_EQ(FilesOf(out), old);
    EXPECT_GT(oldKept + newWhole, 0);
}

}  // namespace

TEST(ToolKill, AKilledBuildLeavesTheOldDictionaryFolderOrTheNewOneWhole) {
    KillWhileReplacing("build", {}, 12);
}

TEST(ToolKill, AKilledIndexLeavesTheOldIndexFolderOrTheNewOneWhole) {
    KillWhileReplacing("index", {"--unit", "line"}, 12);
}

namespace {

// Damages each file of `folder` in turn (a sample of its cuts and changed bytes) and
// runs each of `commands` on the damaged folder: each ends within its time with 0, or
// with 1 and one line on standard error (inspect: one for each file found invalid);
// never with a signal.
void SweepFolder(const TempDir& dir, const std::string& folder,
                 const std::vector<std::vector<std::string>>& commands, const std::string& input) {
    constexpr std::size_t kPerFile = 4;
    constexpr double kSeconds = 20;  // far beyond any run on a folder this small
    for (const auto& [name, valid] : FilesOf(folder)) {
        const std::string path = folder + "/" + name;
        std::vector<DamageCase> cases = DamageCases(valid, 4 * kPerFile, 4);
        std::shuffle(cases.begin(), cases.end(), std::mt19937(static_cast<unsigned>(valid.size())));
        cases.resize(std::min(cases.size(), kPerFile));
        for (const DamageCase& c : cases) {
            WriteAll(path, c.bytes);
            for (const auto& command : commands) {
                const Result r = Dorvik(dir, command, input, -1, -1, kSeconds);
                const std::string where = name + ", " + c.what + ": " + command[0];
                EXPECT_FALSE(r.timedOut) << where;
                EXPECT_TRUE(r.status == 0 || r.status == 1) << where << ": status " << r.status;
                if (r.status == 1 && command[0] == "inspect") {
                    // A line for each file found invalid (the damaged one, and those that
                    // lean on it), each naming a file of the folder.
                    EXPECT_FALSE(r.err.empty()) << where;
                    EXPECT_EQ(r.err.back(), '\n') << where;
                    for (std::size_t at = 0; at < r.err.size();) {
                        EXPECT_EQ(
                            r.err.compare(at, 16 + folder.size(), "dorvik inspect: " + folder), 0)
                            << where << ": " << r.err;
                        const std::size_t end = r.err.find('\n', at);
                        at = end == std::string::npos ? r.err.size() : end + 1;
                    }
                } else if (r.status == 1) {
                    ExpectOneLine(r, "");
                } else {
                    EXPECT_EQ(r.err, "") << where;
                }
                if (::testing::Test::HasFailure()) return;
            }
        }
        WriteAll(path, valid);
    }
}

}  // namespace

TEST(ToolDamage, ADamagedDictionaryFolderIsRefusedInOneLine) {
    TempDir dir;
    const std::string dict = Built(dir);
    SweepFolder(dir, dict, {{"diacritize", "-d", dict}, {"inspect", dict}},
                "كتب الولد درسا وعلم\n");
}

TEST(ToolDamage, ADamagedIndexFolderIsRefusedInOneLine) {
    TempDir dir;
    const std::string idx = dir.Path("idx");
    ASSERT_EQ(Dorvik(dir, {"index", "-q", kOne, kTwo, "-o", idx}).status, 0);
    SweepFolder(dir, idx,
                {{"search", "-i", idx, "كتب -قلم"}, {"search", "-i", idx, "ك*"}, {"inspect", idx}},
                {});
}
