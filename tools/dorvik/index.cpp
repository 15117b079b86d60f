// dorvik index: cut text files into units (lines, paragraphs or whole files) and index
// every word form of them into an index folder that dorvik search answers from.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <limits>
#include <memory>

#include "Command.h"
#include "IndexFolder.h"
#include "Io.h"
#include "Manifest.h"
#include "Progress.h"

namespace tool {
namespace {

struct IndexOptions {
    std::vector<std::string> corpora;
    std::string output;
    std::string unit = "line";
    Encoding encoding = Encoding::utf8;
    bool add = false;
    bool force = false;
    bool quiet = false;
};

bool Blank(std::string_view line) {
    return line.find_first_not_of(" \t\r\f\v") == std::string_view::npos;
}

// Calls `take(offset, length, line)` for each unit of `text`: a line, a run of lines
// between blank lines, or the whole text; line ends are left out.
template <class Take>
void CutUnits(std::string_view text, std::string_view unit, Take&& take) {
    if (unit == "file") {
        std::size_t end = text.size();
        while (end > 0 && (text[end - 1] == '\n' || text[end - 1] == '\r')) --end;
        take(0, end, 1);
        return;
    }
    std::size_t start = 0, first = 0, last = 0;
    std::uint32_t number = 0, firstLine = 0;
    bool open = false;  // a paragraph is being gathered
    while (start < text.size()) {
        std::size_t newline = text.find('\n', start);
        std::size_t end = newline == std::string_view::npos ? text.size() : newline;
        std::size_t cut = end > start && text[end - 1] == '\r' ? end - 1 : end;
        ++number;
        std::string_view line = text.substr(start, cut - start);
        if (unit == "line") {
            take(start, cut - start, number);
        } else if (Blank(line)) {
            if (open) take(first, last - first, firstLine);
            open = false;
        } else {
            if (!open) {
                first = start;
                firstLine = number;
            }
            open = true;
            last = cut;
        }
        start = end + 1;
    }
    if (open) take(first, last - first, firstLine);
}

struct Writer {
    const IndexOptions& options;
    Index& index;
    dorvik::CorpusNormalizer normalizer;
    dorvik::Indexer indexer;
    ProgressBar bar;

    void File(const std::string& name, std::uint64_t before, std::uint64_t total) {
        std::uint64_t size = SizeOf(name);
        if (size > std::numeric_limits<std::uint32_t>::max())
            throw Failure(kDataError, name + ": larger than 4 GiB");
        std::string text = ReadFile(name);
        auto file = static_cast<std::uint32_t>(index.files.size());
        index.tree.add(0);
        CutUnits(text, options.unit,
                 [&](std::size_t offset, std::size_t length, std::uint32_t line) {
                     std::string_view bytes = std::string_view(text).substr(offset, length);
                     std::vector<std::string_view> words;
                     std::string normal;
                     try {
                         normal = normalizer.feed(options.encoding == Encoding::cp1256
                                                      ? dorvik::from_cp1256(bytes)
                                                      : std::string(bytes));
                         normal += normalizer.finish();
                         words = dorvik::split_words(normal);
                     } catch (const dorvik::Error& e) {
                         throw Failure(kDataError, Describe(e, name + ":" + std::to_string(line)));
                     }
                     if (words.empty()) return;  // a unit without words would only answer NOTs
                     std::size_t unit = index.units.size();
                     if (unit > dorvik::BitSet::max_bit)
                         throw Failure(kDataError, name + ": more units than an index holds");
                     for (std::string_view word : words)
                         indexer.add(index.words.add(word).first, static_cast<std::uint32_t>(unit));
                     index.units.append(Encode(Place{file, line, static_cast<std::uint32_t>(offset),
                                                     static_cast<std::uint32_t>(length)}));
                     index.tree.add(1);
                     index.manifest.tokens += words.size();
                     bar.Show("indexing", before + offset, total, true);
                     CheckInterrupted();
                 });
        index.files.append(name);
        index.manifest.sources.push_back({name, text.size()});
    }
};

// Makes an empty index in `folder`.
void Create(const std::filesystem::path& folder, const IndexOptions& options) {
    Manifest manifest;
    manifest.kind = Manifest::Kind::index;
    manifest.unit = options.unit;
    manifest.encoding = NameOf(options.encoding);
    WriteFile(folder / dorvik::Diacritizer::Files::manifest, ToJson(manifest));
    dorvik::OpenOptions create{.create = true};
    dorvik::Dictionary(folder / IndexFiles::words, create).close();
    dorvik::PostingsFile(folder / IndexFiles::postings, create).close();
    dorvik::RecordFile(folder / IndexFiles::units, create).close();
    dorvik::RecordFile(folder / IndexFiles::files, create).close();
    dorvik::Tree().save(folder / IndexFiles::tree);
}

// Copies the index at `from` into the empty folder `to`, so that adding works on a copy.
void Copy(const std::filesystem::path& from, const std::filesystem::path& to) {
    for (const auto& entry : std::filesystem::directory_iterator(from))
        if (entry.is_regular_file())
            std::filesystem::copy_file(entry.path(), to / entry.path().filename());
}

int Run(const IndexOptions& options) {
    if (options.add && options.force)
        throw Failure(kUsageError, "--add and --force exclude each other");
    std::uint64_t total = 0;
    for (const std::string& name : options.corpora) total += SizeOf(name);
    std::optional<Manifest> old;
    if (options.add) {
        old = ReadManifest(options.output, Manifest::Kind::index);
        if (!old) throw Failure(kDataError, options.output + ": no index to add to");
    }
    OutputFolder folder(options.output, options.force || options.add);
    if (old) {
        Copy(options.output, folder.Work());
    } else {
        Create(folder.Work(), options);
    }
    Index index(folder.Work(), true);
    if (old && (index.manifest.unit != options.unit ||
                index.manifest.encoding != NameOf(options.encoding)))
        throw Failure(kUsageError, options.output + ": indexed by " + index.manifest.unit + " in " +
                                       index.manifest.encoding +
                                       "; --unit and --encoding must agree");
    for (const std::string& name : options.corpora)
        for (const Manifest::Source& source : index.manifest.sources)
            if (source.name == name)
                throw Failure(kDataError, name + ": already in the index (rebuild to renew it)");

    Writer writer{options, index, {}, {}, ProgressBar(!options.quiet)};
    std::uint64_t done = 0;
    for (const std::string& name : options.corpora) {
        writer.File(name, done, total);
        done += index.manifest.sources.back().bytes;
    }
    writer.bar.Show("writing", 0, 0, false);
    index.manifest.units = index.units.size();
    index.manifest.forms = index.words.size();
    index.manifest.mapped += writer.normalizer.mapped_count();
    index.manifest.dropped += writer.normalizer.dropped_count();
    for (const auto& [c, n] : writer.normalizer.dropped())
        index.manifest.dropped_by_character[c] += n;
    index.manifest.created = UtcNow();
    writer.indexer.save(index.postings,
                        old ? dorvik::Indexer::Merge::unite : dorvik::Indexer::Merge::replace);
    index.words.close();
    index.postings.close();
    index.units.close();
    index.files.close();
    index.tree.save(folder.Work() / IndexFiles::tree);
    WriteFile(folder.Work() / dorvik::Diacritizer::Files::manifest, ToJson(index.manifest));
    CheckInterrupted();
    folder.Commit();
    writer.bar.Clear();
    if (!options.quiet) {
        std::string line = options.output + ": " + Thousands(index.manifest.units) + " " +
                           options.unit + "s of " + Thousands(index.manifest.sources.size()) +
                           (index.manifest.sources.size() == 1 ? " file, " : " files, ") +
                           Thousands(index.manifest.forms) + " forms from " +
                           Thousands(index.manifest.tokens) + " words\n";
        std::fputs(line.c_str(), stdout);
    }
    return 0;
}

}  // namespace

Command AddIndex(CLI::App& parent) {
    auto options = std::make_shared<IndexOptions>();
    CLI::App* app =
        parent.add_subcommand("index", "Index every word form of text files for dorvik search");
    app->add_option("CORPUS", options->corpora, "text files to index")->required();
    app->add_option("-o,--output", options->output, "the index folder to write (INDEXDIR)")
        ->required()
        ->option_text("INDEXDIR");
    app->add_option("--unit", options->unit,
                    "what a search finds: line (default), paragraph "
                    "(lines between blank lines) or file")
        ->check(CLI::IsMember({"line", "paragraph", "file"}));
    AddEncodingOption(*app, options->encoding);
    app->add_flag("--add", options->add,
                  "add the files to the index at INDEXDIR instead of making a new one");
    app->add_flag("--force", options->force,
                  "replace INDEXDIR when it exists (only an index folder or an empty one)");
    app->add_flag("-q,--quiet", options->quiet, "no progress bar and no summary");
    app->footer(
        "Words are cut and normalised as dorvik build does; units without words are left "
        "out. The folder is written beside INDEXDIR and moved into place when complete; "
        "--add works on a copy the same way, so the index answers from the old or the new "
        "state, never a half-written one. A file already in the index is refused by --add. "
        "The index refers to the files by the paths given: search reads the text from "
        "there.\n\n"
        "Example:\n  dorvik index --unit paragraph books/*.txt -o idx");
    return {app, [options] { return Run(*options); }};
}

}  // namespace tool
