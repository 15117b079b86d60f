// Running the built dorvik program from the tool tests, as a user would.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "TestUtil.h"

// The test corpus: a few lines of vocalised Arabic with Latin, digits and an emoji.
extern const std::string kCorpus;

struct Result {
    int status = -1;  // the exit status; 128 + the signal for a killed run
    std::string out, err;
    bool timedOut = false;
};

std::string Slurp(const std::string& path);

// Starts the tool with `args`, `input` on its standard input and its output to files in
// `dir`; standard error goes to `errFd` and standard output to `outFd` when given (they
// then stay empty in the result).
pid_t StartDorvik(const TempDir& dir, std::vector<std::string> args, const std::string& input = {},
                  int errFd = -1, int outFd = -1);
// Waits for a run that StartDorvik began and collects its output; one that takes more
// than `seconds` (0: no limit) is killed and marked timed out.
Result Finish(const TempDir& dir, pid_t pid, double seconds = 0);
// Both: runs the tool to its end.
Result Dorvik(const TempDir& dir, std::vector<std::string> args, const std::string& input = {},
              int errFd = -1, int outFd = -1, double seconds = 0);

// One line on standard error, naming `what`.
void ExpectOneLine(const Result& r, const std::string& what);

// The folder built from the test corpus, at dir/dict.
std::string Built(const TempDir& dir);
