// dorvik: diacritize Arabic text from the command line, and build, search, score and
// check the files it needs. Each subcommand lives in a file of its own; this one parses
// the command line and turns every failure into one line on standard error and an exit
// status, whatever is thrown.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <new>
#include <vector>

#include "Command.h"
#include "Io.h"

namespace {

void Print(const std::string& prefix, const std::string& message) {
    std::string line = prefix + ": " + message;
    // One line, whatever the message holds.
    for (char& c : line)
        if (c == '\n' || c == '\r') c = ' ';
    line += '\n';
    std::fputs(line.c_str(), stderr);
}

int Main(int argc, char** argv) {
    CLI::App app(
        "Restore the marks of Arabic text by dictionary look-up, and build, search, "
        "score and check the dictionaries it uses.",
        "dorvik");
    app.set_version_flag("--version", "dorvik " DORVIK_VERSION);
    app.require_subcommand(1);
    app.get_formatter()->column_width(28);
    app.footer(
        "Examples:\n"
        "  dorvik build corpus.txt -o dict        count the marked words of a corpus\n"
        "  echo 'كتب' | dorvik diacritize -d dict   restore marks\n"
        "  dorvik find -d dict 'كتب'               list the forms and their counts\n"
        "  dorvik eval -d dict held-out.txt       measure the error rates\n"
        "  dorvik inspect dict/forms.bin          tell what a file is and check it\n"
        "  dorvik index texts/*.txt -o idx        index the words of texts\n"
        "  dorvik search -i idx 'كتب -قلم'        find the lines that hold words\n"
        "Exit status: 0 success, 1 bad data, 2 bad command line, 130 interrupted.");
    std::vector<tool::Command> commands = {
        tool::AddBuild(app),   tool::AddDiacritize(app), tool::AddFind(app),  tool::AddEval(app),
        tool::AddInspect(app), tool::AddIndex(app),      tool::AddSearch(app)};
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& e) {
        return app.exit(e);  // --help, --version
    } catch (const CLI::ParseError& e) {
        std::string prefix = "dorvik", help = "dorvik --help";
        for (const tool::Command& command : commands) {
            if (command.app->parsed()) {
                prefix += " " + command.app->get_name();
                help = prefix + " --help";
            }
        }
        Print(prefix, std::string(e.what()) + " (" + help + " tells more)");
        return tool::kUsageError;
    }
    for (const tool::Command& command : commands) {
        if (!command.app->parsed()) continue;
        std::string prefix = "dorvik " + command.app->get_name();
        try {
            tool::CatchInterrupts();
            return command.run();
        } catch (const tool::Failure& e) {
            Print(prefix, e.what());
            return e.status();
        } catch (const dorvik::Error& e) {
            Print(prefix, tool::Describe(e));
            return tool::kDataError;
        } catch (const std::bad_alloc&) {
            Print(prefix, "out of memory");
            return tool::kDataError;
        } catch (const std::exception& e) {
            Print(prefix, std::string("unexpected error: ") + e.what());
            return tool::kDataError;
        }
    }
    return tool::kUsageError;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return Main(argc, argv);
    } catch (...) {
        std::fputs("dorvik: unexpected error\n", stderr);
        return tool::kDataError;
    }
}
