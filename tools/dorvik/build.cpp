// dorvik build: count the marked word forms of a corpus into a diacritizer folder.
#include <CLI/CLI.hpp>
#include <memory>

#include "Command.h"
#include "Io.h"
#include "Manifest.h"
#include "Progress.h"

namespace tool {
namespace {

struct BuildOptions {
    std::vector<std::string> corpora;
    std::string output;
    Encoding encoding = Encoding::utf8;
    bool force = false;
    bool quiet = false;
};

// Reads one source into the builder; returns the bytes read.
std::uint64_t Read(const std::string& name, const BuildOptions& options,
                   dorvik::CorpusNormalizer& normalizer, dorvik::Diacritizer::Builder& builder,
                   Manifest& manifest, ProgressBar& bar, std::uint64_t before,
                   std::uint64_t total) {
    Input input(name);
    try {
        for (std::string_view piece; !(piece = input.Next()).empty();) {
            std::string text = options.encoding == Encoding::cp1256 ? dorvik::from_cp1256(piece)
                                                                    : std::string(piece);
            manifest.tokens += builder.add_text(normalizer.feed(text));
            bar.Show("reading", before + input.Done(), total, true);
        }
        manifest.tokens += builder.add_text(normalizer.finish());
    } catch (const dorvik::Error& e) {
        throw Failure(kDataError, Describe(e, input.Name()));
    }
    manifest.sources.push_back({input.Name(), input.Done()});
    return input.Done();
}

int Run(const BuildOptions& options) {
    OutputFolder folder(options.output, options.force);
    ProgressBar bar(!options.quiet);
    std::uint64_t total = 0;
    for (const std::string& name : options.corpora) total += SizeOf(name);

    Manifest manifest;
    manifest.created = UtcNow();
    manifest.encoding = NameOf(options.encoding);
    dorvik::CorpusNormalizer normalizer;
    dorvik::Diacritizer::Builder builder(folder.Work());
    std::uint64_t read = 0;
    for (const std::string& name : options.corpora)
        read += Read(name, options, normalizer, builder, manifest, bar, read, total);
    manifest.forms = builder.size();
    manifest.pairs = builder.pairs();
    manifest.mapped = normalizer.mapped_count();
    manifest.dropped = normalizer.dropped_count();
    manifest.dropped_by_character = normalizer.dropped();

    builder.finish([&](std::string_view stage, std::size_t done, std::size_t all) {
        CheckInterrupted();
        bar.Show(stage, done, all, false);
    });
    WriteFile(folder.Work() / dorvik::Diacritizer::Files::manifest, ToJson(manifest));
    CheckInterrupted();
    folder.Commit();
    bar.Clear();
    if (!options.quiet) {
        std::string line = options.output + ": " + Thousands(manifest.forms) + " forms from " +
                           Thousands(manifest.tokens) + " words, " + Thousands(manifest.pairs) +
                           " pairs of neighbours; " + Thousands(manifest.mapped) +
                           " characters mapped, " + Thousands(manifest.dropped) + " dropped\n";
        std::fputs(line.c_str(), stdout);
    }
    return 0;
}

}  // namespace

Command AddBuild(CLI::App& parent) {
    auto options = std::make_shared<BuildOptions>();
    CLI::App* app = parent.add_subcommand(
        "build", "Count the marked word forms of vocalised Arabic text into a diacritizer folder");
    app->add_option("CORPUS", options->corpora,
                    "text files of marked Arabic; - reads standard input")
        ->required();
    app->add_option("-o,--output", options->output, "the folder to write (DICTDIR)")
        ->required()
        ->option_text("DICTDIR");
    AddEncodingOption(*app, options->encoding);
    app->add_flag("--force", options->force,
                  "replace DICTDIR when it exists (only a diacritizer folder or an empty one)");
    app->add_flag("-q,--quiet", options->quiet, "no progress bar and no summary");
    app->footer(
        "The text is normalised first (alef wasla to alef, Uthmani sukun and open tanween to "
        "the plain marks, superscript alef and Quranic signs dropped; manifest.json counts "
        "what changed). Beside the forms and their counts, forms.pair counts which form "
        "follows which (for diacritize --context). The folder is written beside DICTDIR and moved "
        "into place when "
        "complete, so an interrupted build leaves nothing under that name.\n\n"
        "Example:\n  dorvik build quran-train.txt -o dict");
    return {app, [options] { return Run(*options); }};
}

}  // namespace tool
