// dorvik inspect: say what a file of the engine is, check it and sum it up.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <memory>

#include "Command.h"
#include "IndexFolder.h"
#include "Io.h"
#include "Json.h"
#include "Manifest.h"

namespace tool {
namespace {

struct InspectOptions {
    std::vector<std::string> paths;
    unsigned record_size = 0;
    bool json = false;
};

struct Checked {
    std::string path;
    std::string kind;
    bool valid = false;
    std::string problem;
    dorvik::FileSummary summary;
    std::optional<Manifest> manifest;  // a diacritizer folder's
    bool folder = false;
};

std::string N(std::uint64_t n) { return Thousands(n); }

Checked CheckFile(const std::string& path, unsigned recordSize) {
    Checked c;
    c.path = path;
    dorvik::InspectOptions options;
    options.record_size = recordSize;
    try {
        c.summary = dorvik::inspect(path, options);
    } catch (const dorvik::Error& e) {
        if (e.code() == dorvik::ErrorCode::invalid_argument)
            throw Failure(kUsageError, Describe(e, path));
        throw Failure(kDataError, Describe(e, path));
    }
    c.kind = dorvik::to_string(c.summary.kind);
    c.valid = c.summary.valid;
    c.problem = c.summary.problem;
    return c;
}

// A diacritizer or an index folder (one holding words.bin): its manifest, then its files.
std::vector<Checked> CheckFolder(const std::filesystem::path& folder, unsigned recordSize) {
    std::vector<Checked> all(1);
    Checked& top = all[0];
    std::error_code error;
    bool index = std::filesystem::exists(folder / IndexFiles::words, error);
    top.path = folder.string();
    top.kind = index ? "index folder" : "diacritizer folder";
    top.folder = true;
    top.valid = true;
    try {
        // optional: the library never reads it
        top.manifest =
            ReadManifest(folder, index ? Manifest::Kind::index : Manifest::Kind::diacritizer);
    } catch (const Failure& e) {
        top.valid = false;
        top.problem = e.what();
    }
    using Files = dorvik::Diacritizer::Files;
    std::vector<std::string_view> names = {Files::forms, Files::sorted, Files::wildcards,
                                           Files::frequencies};
    if (index)
        names = {IndexFiles::words, "words.sort",      "words.wild",    IndexFiles::postings,
                 IndexFiles::units, IndexFiles::files, IndexFiles::tree};
    for (std::string_view name : names) {
        std::filesystem::path path = folder / name;
        if (!std::filesystem::exists(path, error)) {
            Checked missing;
            missing.path = path.string();
            missing.kind = "missing";
            missing.problem = "missing";
            all.push_back(missing);
        } else {
            all.push_back(CheckFile(path.string(), recordSize));
        }
        // Each file in its place: forms.bin and words.bin must read as the dictionaries
        // they are.
        Checked& file = all.back();
        if (file.valid && (name == Files::forms || name == IndexFiles::words) &&
            file.summary.kind != dorvik::FileKind::dictionary) {
            file.valid = false;
            file.problem = "no dictionary but a " + file.kind;
        }
    }
    // Sound files that disagree: the tree must hold every file and unit of the index.
    bool sound = std::all_of(all.begin(), all.end(), [](const Checked& c) { return c.valid; });
    if (index && sound && all[0].manifest) {  // `top` moved with the pushes
        Checked& tree = all.back();
        auto fail = [&tree](std::string problem) {
            std::string own = tree.path + ": ";
            if (problem.rfind(own, 0) == 0) problem.erase(0, own.size());
            tree.valid = false;
            tree.problem = problem;
        };
        try {
            Index opened(folder, false);
        } catch (const Failure& e) {
            fail(e.what());
        } catch (const dorvik::Error& e) {
            fail(Describe(e));
        }
    }
    // A file's problem makes the folder invalid; it is told at the file.
    for (std::size_t i = 1; i < all.size(); ++i)
        if (!all[i].valid) all[0].valid = false;
    return all;
}

void Text(const Checked& c, std::string& out) {
    out += c.path + ": " + c.kind + (c.valid ? ", valid" : ", invalid") +
           (c.problem.empty() ? "" : ": " + c.problem) + "\n";
    if (c.folder) {
        if (c.manifest) {
            const Manifest& m = *c.manifest;
            out += "  built " + m.created + " from " + N(m.tokens) + " words (" + m.encoding + "):";
            if (m.kind == Manifest::Kind::index) out += " " + N(m.units) + " " + m.unit + "s of";
            for (const auto& s : m.sources) out += " " + s.name + " (" + N(s.bytes) + " bytes)";
            out += "\n  " + N(m.forms) + " forms; " + N(m.mapped) + " characters mapped, " +
                   N(m.dropped) + " dropped\n";
        }
        return;
    }
    const dorvik::FileSummary& s = c.summary;
    if (c.kind == "missing") return;
    out += "  " + N(s.bytes) + " bytes\n";
    if (s.record_size > 0) {
        out += "  " + N(s.records) + " integers of " + std::to_string(s.record_size) + " bytes";
        if (s.records > 0)
            out += ", from " + std::to_string(s.smallest) + " to " + std::to_string(s.largest);
        out += "\n";
        return;
    }
    if (s.kind == dorvik::FileKind::unknown) return;
    out += "  " + N(s.records) + " records (" + N(s.empty_records) + " empty), " + N(s.data_bytes) +
           " bytes of data";
    if (s.records > s.empty_records)
        out += ", " + N(s.shortest) + " to " + N(s.longest) + " bytes each";
    out += "\n";
    if (s.depth > 0)
        out += "  nested " + N(s.depth) + (s.depth == 1 ? " level" : " levels") + " deep, " +
               N(s.leaves) + " records at the deepest level\n";
    if (s.bit_sets > 0)
        out += "  " + N(s.bit_sets) + " non-empty bit sets, " + N(s.set_bits) + " bits set, " +
               N(s.fewest_bits) + " to " + N(s.most_bits) + " per set, highest bit " +
               N(s.highest_bit) + "\n";
}

void Json(const Checked& c, JsonWriter& w) {
    const dorvik::FileSummary& s = c.summary;
    w.BeginObject();
    w.Key("path").String(c.path);
    w.Key("kind").String(c.kind);
    w.Key("valid").Bool(c.valid);
    if (!c.problem.empty()) w.Key("problem").String(c.problem);
    if (c.folder) {
        if (c.manifest) {
            w.Key("created").String(c.manifest->created);
            w.Key("encoding").String(c.manifest->encoding);
            w.Key("tokens").Number(c.manifest->tokens);
            w.Key("forms").Number(c.manifest->forms);
            if (c.manifest->kind == Manifest::Kind::index) {
                w.Key("unit").String(c.manifest->unit);
                w.Key("units").Number(c.manifest->units);
            }
            w.Key("mapped_characters").Number(c.manifest->mapped);
            w.Key("dropped_characters").Number(c.manifest->dropped);
        }
    } else if (c.kind != "missing") {
        w.Key("bytes").Number(s.bytes);
        w.Key("records").Number(s.records);
        if (s.record_size > 0) {
            w.Key("record_size").Number(std::uint64_t{s.record_size});
            w.Key("smallest").Number(s.smallest);
            w.Key("largest").Number(s.largest);
        } else {
            w.Key("empty_records").Number(s.empty_records);
            w.Key("data_bytes").Number(s.data_bytes);
            w.Key("shortest").Number(s.shortest);
            w.Key("longest").Number(s.longest);
            w.Key("depth").Number(s.depth);
            w.Key("leaves").Number(s.leaves);
            w.Key("bit_sets").Number(s.bit_sets);
            w.Key("set_bits").Number(s.set_bits);
            w.Key("fewest_bits").Number(s.fewest_bits);
            w.Key("most_bits").Number(s.most_bits);
            w.Key("highest_bit").Number(s.highest_bit);
        }
    }
    w.EndObject();
}

int Run(const InspectOptions& options) {
    std::vector<Checked> all;
    for (const std::string& path : options.paths) {
        std::error_code error;
        if (std::filesystem::is_directory(path, error)) {
            for (Checked& c : CheckFolder(path, options.record_size)) all.push_back(std::move(c));
        } else {
            all.push_back(CheckFile(path, options.record_size));
        }
    }
    std::string out;
    JsonWriter json;
    if (options.json) json.BeginArray();
    bool valid = true;
    for (const Checked& c : all) {
        if (options.json)
            Json(c, json);
        else
            Text(c, out);
        if (!c.valid) valid = false;
        // A folder is invalid through its files, whose reasons are told with them.
        if (!c.valid && !(c.folder && c.problem.empty())) {
            std::string line = "dorvik inspect: " + c.path + ": " +
                               (c.problem.empty() ? "invalid" : c.problem) + "\n";
            std::fputs(line.c_str(), stderr);
        }
    }
    if (options.json) out = std::move(json.EndArray().Text());
    Output output("-", false);
    output.Write(out);
    return valid ? 0 : kDataError;
}

}  // namespace

Command AddInspect(CLI::App& parent) {
    auto options = std::make_shared<InspectOptions>();
    CLI::App* app = parent.add_subcommand(
        "inspect", "Tell what files of the engine are, check them and sum them up");
    app->add_option("FILE", options->paths,
                    "files, or diacritizer or index folders (checked whole)")
        ->required();
    app->add_option("--record-size", options->record_size,
                    "read a file that is no record file as integers of 1 to 4 bytes")
        ->check(CLI::Range(1u, 4u))
        ->option_text("N");
    app->add_flag("--json", options->json, "print a JSON array, one object per file");
    app->footer(
        "Kinds: record file, bit record file, nested record file, nested bit record file, "
        "dictionary, wildcard index, sorted view, frequency file, integer file. Exit "
        "status 1 when a file is invalid; the reason also goes to standard error.\n\n"
        "Example:\n  dorvik inspect dict\n  dorvik inspect idx\n  dorvik inspect --json "
        "dict/forms.wild");
    return {app, [options] { return Run(*options); }};
}

}  // namespace tool
