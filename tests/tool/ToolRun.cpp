#include "tool/ToolRun.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <iterator>
#include <thread>

const std::string kCorpus = std::string(DORVIK_TEST_DATA) + "/corpus-utf8.txt";

std::string Slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

pid_t StartDorvik(const TempDir& dir, std::vector<std::string> args, const std::string& input,
                  int errFd, int outFd) {
    std::string in = dir.Path(".in"), out = dir.Path(".out"), err = dir.Path(".err");
    WriteAll(in, B(input));
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, in.c_str(), O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (errFd >= 0) posix_spawn_file_actions_adddup2(&actions, errFd, 2);
    if (outFd >= 0) posix_spawn_file_actions_adddup2(&actions, outFd, 1);
    args.insert(args.begin(), DORVIK_TOOL);
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    pid_t pid = 0;
    if (posix_spawn(&pid, DORVIK_TOOL, &actions, nullptr, argv.data(), environ) != 0) pid = -1;
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

Result Finish(const TempDir& dir, pid_t pid, double seconds) {
    Result r;
    if (pid > 0) {
        int status = 0;
        const auto deadline =
            std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
        for (auto pause = std::chrono::microseconds(200);;) {
            if (seconds <= 0) {
                waitpid(pid, &status, 0);
                break;
            }
            if (waitpid(pid, &status, WNOHANG) == pid) break;
            if (std::chrono::steady_clock::now() > deadline) {
                kill(pid, SIGKILL);
                waitpid(pid, &status, 0);
                r.timedOut = true;
                break;
            }
            std::this_thread::sleep_for(pause);
            pause = std::min(pause * 2, std::chrono::microseconds(20000));
        }
        r.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    r.out = Slurp(dir.Path(".out"));
    r.err = Slurp(dir.Path(".err"));
    return r;
}

Result Dorvik(const TempDir& dir, std::vector<std::string> args, const std::string& input,
              int errFd, int outFd, double seconds) {
    return Finish(dir, StartDorvik(dir, std::move(args), input, errFd, outFd), seconds);
}

void ExpectOneLine(const Result& r, const std::string& what) {
    EXPECT_NE(r.err.find(what), std::string::npos) << r.err;
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
}

std::string Built(const TempDir& dir) {
    std::string folder = dir.Path("dict");
    Result r = Dorvik(dir, {"build", "-q", kCorpus, "-o", folder});
    EXPECT_EQ(r.status, 0) << r.err;
    return folder;
}
