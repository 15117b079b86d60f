// dorvik find: the marked forms of a diacritizer folder that match a pattern, with
// their counts.
#include <CLI/CLI.hpp>
#include <memory>

#include "Command.h"
#include "Io.h"
#include "Json.h"

namespace tool {
namespace {

struct FindOptions {
    std::string folder;
    std::string pattern;
    std::size_t limit = 0;
    bool json = false;
};

int Run(const FindOptions& options) {
    dorvik::Diacritizer diacritizer = OpenFolder(options.folder);
    std::vector<dorvik::Diacritizer::Form> forms;
    try {
        forms = diacritizer.forms(options.pattern, options.limit);
    } catch (const dorvik::Error& e) {
        if (e.code() != dorvik::ErrorCode::bad_text &&
            e.code() != dorvik::ErrorCode::invalid_argument)
            throw;
        throw Failure(kUsageError, "PATTERN: " + Describe(e));
    }
    std::string text;
    if (options.json) {
        JsonWriter json;
        json.BeginArray();
        for (const auto& form : forms) {
            json.BeginObject();
            json.Key("form").String(form.text);
            json.Key("frequency").Number(std::uint64_t{form.frequency});
            json.Key("id").Number(std::uint64_t{form.id});
            json.EndObject();
        }
        json.EndArray();
        text = std::move(json.Text());
    } else {
        for (const auto& form : forms)
            text += form.text + '\t' + std::to_string(form.frequency) + '\n';
    }
    Output output("-", false);
    output.Write(text);
    return 0;
}

}  // namespace

Command AddFind(CLI::App& parent) {
    auto options = std::make_shared<FindOptions>();
    CLI::App* app = parent.add_subcommand(
        "find", "List the forms that match a pattern, most frequent first, with their counts");
    AddDictOption(*app, options->folder);
    app->add_option("PATTERN", options->pattern,
                    "a word, with ? for one letter and * for any letters; marks in it must "
                    "stand on their letter")
        ->required();
    app->add_option("--limit", options->limit, "print at most N forms (0: all)")->option_text("N");
    app->add_flag("--json", options->json, "print a JSON array of {form, frequency, id}");
    app->footer(
        "A pattern without * has exactly as many letters as it shows; marks the pattern "
        "leaves out are free, so a bare word finds all its forms. Output: form, a tab, "
        "its count.\n\n"
        "Example:\n  dorvik find -d dict 'علم'\n  dorvik find -d dict --limit 10 'ال*'");
    return {app, [options] { return Run(*options); }};
}

}  // namespace tool
