// What the subcommands of the dorvik tool share: how each one joins the command line,
// how a command fails, and the options that several of them take.
#pragma once

#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>

#include "dorvik/dorvik.hpp"

namespace CLI {
class App;
}

namespace tool {

// Exit statuses: 0 success, 1 bad data (a missing or damaged file, bad text, an
// invalid file for inspect), 2 a bad command line, 130 interrupted (Ctrl-C, SIGTERM).
inline constexpr int kDataError = 1;
inline constexpr int kUsageError = 2;
inline constexpr int kInterrupted = 130;

// A failure that ends the command: main prints "dorvik <command>: <message>" on one
// line of standard error and exits with `status`.
class Failure : public std::runtime_error {
public:
    Failure(int status, const std::string& message)
        : std::runtime_error(message), status_(status) {}
    int status() const noexcept { return status_; }

private:
    int status_;
};

// A subcommand as it registers itself: the CLI11 app it added, and what runs it once
// the command line is parsed. Run returns the exit status or throws.
struct Command {
    CLI::App* app;
    std::function<int()> run;
};

Command AddBuild(CLI::App& parent);
Command AddDiacritize(CLI::App& parent);
Command AddFind(CLI::App& parent);
Command AddEval(CLI::App& parent);
Command AddInspect(CLI::App& parent);
Command AddIndex(CLI::App& parent);
Command AddSearch(CLI::App& parent);

// The message for `error` met while working on `file` (empty: none): "<file>: <cause>",
// the path the error names standing in front when it names one.
std::string Describe(const dorvik::Error& error, const std::string& file = {});

// Opens the diacritizer folder `folder` as find, diacritize and eval do, after reading
// its manifest (a newer format is refused). Throws Failure(kDataError) naming the
// folder and what is wrong with it.
dorvik::Diacritizer OpenFolder(const std::filesystem::path& folder);
// The same folder for the back-off and context steps (`steps`), checked the same way.
dorvik::ContextDiacritizer OpenContext(const std::filesystem::path& folder,
                                       dorvik::ContextDiacritizer::Steps steps);

// Adds the required -d/--dict DICTDIR to `app`, writing into `folder`.
void AddDictOption(CLI::App& app, std::string& folder);

// `n` with a comma between thousands: "61,787".
std::string Thousands(std::uint64_t n);

// The encodings of text files: UTF-8, or raw Windows-1256 bytes.
enum class Encoding { utf8, cp1256 };
// Adds --encoding to `app`, writing into `encoding`.
void AddEncodingOption(CLI::App& app, Encoding& encoding);
std::string_view NameOf(Encoding encoding);

}  // namespace tool
