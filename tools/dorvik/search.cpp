// dorvik search: answer a boolean word query from an index folder, printing each unit
// found as "file:line: text".
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <fstream>
#include <map>
#include <memory>

#include "Command.h"
#include "IndexFolder.h"
#include "Io.h"
#include "Json.h"

namespace tool {
namespace {

struct SearchOptions {
    std::string index;
    std::vector<std::string> query;
    std::string in;
    std::size_t limit = 0;
    bool count = false;
    bool json = false;
};

// The text of units, read from their source files (each opened once).
class Sources {
public:
    Sources(Index& index, bool cp1256) : files_(index.Files()), cp1256_(cp1256) {}

    const std::vector<SourceFile>& Files() const noexcept { return files_; }

    // The unit's text on one line. A source that changed since indexing gives what now
    // stands at the unit's place.
    std::string Text(const Place& place) {
        std::ifstream& in = streams_[place.file];
        if (!in.is_open()) in.open(files_[place.file].path, std::ios::binary);
        std::string bytes(place.length, '\0');
        in.clear();
        in.seekg(place.offset);
        in.read(bytes.data(), place.length);
        bytes.resize(static_cast<std::size_t>(in.gcount()));
        std::string text = cp1256_ ? dorvik::from_cp1256(bytes) : bytes;
        for (char& c : text)
            if (c == '\n' || c == '\r' || c == '\t') c = ' ';
        return text;
    }

private:
    std::vector<SourceFile> files_;
    bool cp1256_;
    std::map<std::uint32_t, std::ifstream> streams_;
};

// `text` with the words among `forms` in bold red, for a terminal.
std::string Highlight(const std::string& text, Index& index, const dorvik::BitSet& forms) {
    std::vector<std::string_view> words;
    try {
        words = dorvik::split_words(text);
    } catch (const dorvik::Error&) {
        return text;  // a source that is no longer valid text is shown as it is
    }
    std::string out;
    std::size_t done = 0;
    for (std::string_view word : words) {
        std::optional<std::size_t> id = index.words.find(word);
        if (!id || !forms.test(static_cast<std::uint32_t>(*id))) continue;
        std::size_t at = static_cast<std::size_t>(word.data() - text.data());
        out.append(text, done, at - done);
        out += "\x1b[1;31m";
        out += word;
        out += "\x1b[0m";
        done = at + word.size();
    }
    return out.append(text, done);
}

std::string Joined(const std::vector<std::string>& parts) {
    std::string text;
    for (const std::string& part : parts) text += (text.empty() ? "" : " ") + part;
    return text;
}

int Run(const SearchOptions& options) {
    std::string text = Joined(options.query);
    std::optional<dorvik::Query> query;
    try {
        query.emplace(text);
    } catch (const dorvik::QueryError& e) {
        throw Failure(kUsageError, std::string("query: ") + e.what());
    }
    Index index(options.index, false);
    Sources sources(index, index.manifest.encoding == NameOf(Encoding::cp1256));
    std::uint32_t first = 0, end = static_cast<std::uint32_t>(index.manifest.units);
    if (!options.in.empty()) {
        const SourceFile* file = nullptr;
        for (const SourceFile& f : sources.Files())
            if (f.path == options.in) file = &f;
        std::error_code error;
        for (const SourceFile& f : sources.Files())
            if (!file && std::filesystem::equivalent(f.path, options.in, error)) file = &f;
        if (!file) throw Failure(kDataError, options.in + ": no file of the index");
        first = file->first;
        end = file->first + file->count;
    }
    std::vector<std::uint32_t> found;
    try {
        found = dorvik::Searcher(index.words, index.postings, end).search(*query);
    } catch (const dorvik::QueryError& e) {
        throw Failure(kUsageError, std::string("query: ") + e.what());
    }
    std::vector<std::uint32_t> units;
    std::size_t total = 0;
    for (std::uint32_t unit : found) {
        if (unit < first) continue;
        ++total;
        if (!options.count && (options.limit == 0 || units.size() < options.limit))
            units.push_back(unit);
    }

    JsonWriter json;
    if (options.json) {
        json.BeginObject();
        json.Key("query").String(text);
        json.Key("count").Number(static_cast<std::uint64_t>(total));
        if (!options.count) json.Key("results").BeginArray();
    } else if (options.count) {
        std::printf("%zu\n", total);
        return 0;
    }
    bool colour = !options.json && isatty(STDOUT_FILENO);
    dorvik::BitSet forms = colour ? query->wanted_forms(index.words) : dorvik::BitSet();
    std::string out;
    for (std::uint32_t unit : units) {
        Place place = index.PlaceOf(unit);
        const std::string& path = sources.Files()[place.file].path;
        std::string line = sources.Text(place);
        if (options.json) {
            json.BeginObject();
            json.Key("file").String(path);
            json.Key("line").Number(static_cast<std::uint64_t>(place.line));
            json.Key("text").String(line);
            json.EndObject();
            continue;
        }
        out = path + ":" + std::to_string(place.line) + ": " +
              (colour ? Highlight(line, index, forms) : line) + "\n";
        std::fwrite(out.data(), 1, out.size(), stdout);
        CheckInterrupted();
    }
    if (options.json) {
        if (!options.count) json.EndArray();
        json.EndObject();
        json.Text() += '\n';
        std::fwrite(json.Text().data(), 1, json.Text().size(), stdout);
    }
    return 0;
}

}  // namespace

Command AddSearch(CLI::App& parent) {
    auto options = std::make_shared<SearchOptions>();
    CLI::App* app = parent.add_subcommand("search",
                                          "Find the lines (or paragraphs, or files) that a word "
                                          "query describes in an index folder");
    app->add_option("-i,--index", options->index, "the index folder (INDEXDIR)")
        ->required()
        ->option_text("INDEXDIR");
    app->add_option("QUERY", options->query, "the query; several arguments are joined by blanks")
        ->required();
    app->add_option("--in", options->in, "only the units of this file of the index")
        ->option_text("FILE");
    app->add_option("--limit", options->limit, "print at most N units (0: all)")
        ->check(CLI::NonNegativeNumber)
        ->option_text("N");
    app->add_flag("--count", options->count, "print only the number of units found");
    app->add_flag("--json", options->json, "print a JSON object: query, count and results");
    app->footer(
        "Query: words side by side must all be there; a | b wants either; -word wants it "
        "absent; parentheses group. A word may hold ? (one letter) and * (any letters, "
        "e.g. كت* or *ون); marks are optional: a bare word finds all its marked forms, a "
        "mark written must be there. A query that begins with - follows --. Units print in "
        "index order as file:line: text, the words found highlighted on a terminal. A bad "
        "query is a bad command line (status 2).\n\n"
        "Example:\n  dorvik search -i idx 'كتب (قلم | ورق)'\n"
        "  dorvik search -i idx --count -- -قلم");
    return {app, [options] { return Run(*options); }};
}

}  // namespace tool
