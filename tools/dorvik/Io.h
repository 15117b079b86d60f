// Files at the edges of the tool: reading inputs in pieces, writing outputs so that
// nothing half-written ever stands under the final name, and stopping cleanly on Ctrl-C.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "Command.h"

namespace tool {

// ---- Interruption ----------------------------------------------------------------------

// From here on SIGINT, SIGTERM and SIGHUP only mark the process as interrupted; a
// blocked read returns, and the next CheckInterrupted() throws.
void CatchInterrupts();
// Throws Failure(kInterrupted) once a signal came.
void CheckInterrupted();

// ---- Input -----------------------------------------------------------------------------

// A file read front to back in pieces of up to 1 MiB, or standard input for "-".
class Input {
public:
    // Opens the file. Throws Failure(kDataError) naming it when it cannot be read.
    explicit Input(const std::string& name);
    ~Input();
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;

    // The next piece; empty at the end. Valid until the next call. Throws
    // Failure(kDataError) on a read error, Failure(kInterrupted) when interrupted.
    std::string_view Next();
    // The name for messages: the path as given, or "standard input".
    const std::string& Name() const noexcept { return name_; }
    // The file's size when known beforehand (0 for a pipe), and the bytes read so far.
    std::uint64_t Size() const noexcept { return size_; }
    std::uint64_t Done() const noexcept { return done_; }

private:
    std::string name_;
    int fd_ = -1;
    bool own_ = false;
    std::uint64_t size_ = 0;
    std::uint64_t done_ = 0;
    std::vector<char> buffer_;
};

// The size of the file `name` ("-": 0, unknown); 0 when it cannot be told.
std::uint64_t SizeOf(const std::string& name);

// ---- Output ----------------------------------------------------------------------------

// Standard output (for "" or "-"), or a file that appears whole at Commit(): written
// to a temporary file beside it (".NAME.XXXXXX"), synced and renamed over it, keeping
// the mode of a file it replaces. An existing file is replaced only with `force`.
class Output {
public:
    // Throws Failure(kDataError) when the file exists and `force` is false, or when the
    // temporary file cannot be made.
    Output(const std::string& path, bool force);
    // Without Commit(): removes the temporary file; the target stays as it was.
    ~Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    // Throws Failure(kDataError) when the write fails (a full disk, a closed pipe).
    void Write(std::string_view bytes);
    void Commit();

private:
    std::string target_, temp_;
    int fd_ = 1;
};

// A folder that appears whole at Commit(): built in a temporary folder beside it
// (".NAME.XXXXXX"), synced and renamed into place; a folder it replaces is swapped out
// in one step and then removed. Only a diacritizer folder (one holding forms.bin or
// manifest.json) or an empty folder is ever replaced, and only with `force`.
class OutputFolder {
public:
    // Throws Failure(kDataError) when the target exists and may not be replaced, or the
    // temporary folder cannot be made.
    OutputFolder(const std::filesystem::path& target, bool force);
    // Without Commit(): removes the temporary folder and all in it.
    ~OutputFolder();
    OutputFolder(const OutputFolder&) = delete;
    OutputFolder& operator=(const OutputFolder&) = delete;

    const std::filesystem::path& Work() const noexcept { return work_; }
    void Commit();

private:
    std::filesystem::path target_, work_;
    bool replace_ = false;
};

// Writes `bytes` to the file `path` at once, creating or truncating it. Throws
// Failure(kDataError).
void WriteFile(const std::filesystem::path& path, std::string_view bytes);
// Reads the whole of a small file. Throws Failure(kDataError).
std::string ReadFile(const std::filesystem::path& path);

}  // namespace tool
