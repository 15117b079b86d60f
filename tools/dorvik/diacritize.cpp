// dorvik diacritize: restore the marks of the Arabic words of a text, everything else
// byte for byte as it stands.
#include <CLI/CLI.hpp>
#include <memory>
#include <optional>

#include "Command.h"
#include "Io.h"

namespace tool {
namespace {

struct DiacritizeOptions {
    std::string folder;
    std::vector<std::string> files{"-"};
    std::string output;
    Encoding encoding = Encoding::utf8;
    bool force = false;
    bool context = false;
};

int Run(const DiacritizeOptions& options) {
    dorvik::Diacritizer diacritizer = OpenFolder(options.folder);
    std::optional<dorvik::ContextDiacritizer> context;
    if (options.context)
        context.emplace(OpenContext(options.folder, dorvik::ContextDiacritizer::Steps::context));
    Output output(options.output, options.force);
    bool raw = options.encoding == Encoding::cp1256;
    for (const std::string& name : options.files) {
        Input input(name);
        // A stream per file: a word never runs from one file into the next.
        dorvik::Diacritizer::Stream stream = diacritizer.stream();
        try {
            if (context) {
                for (std::string_view piece; !(piece = input.Next()).empty();) {
                    std::string done =
                        context->feed(raw ? dorvik::from_cp1256(piece) : std::string(piece));
                    output.Write(raw ? dorvik::to_cp1256(done) : done);
                }
                std::string done = context->finish();
                output.Write(raw ? dorvik::to_cp1256(done) : done);
                continue;
            }
            for (std::string_view piece; !(piece = input.Next()).empty();) {
                std::string done =
                    stream.feed(raw ? dorvik::from_cp1256(piece) : std::string(piece));
                output.Write(raw ? dorvik::to_cp1256(done) : done);
            }
            std::string done = stream.finish();
            output.Write(raw ? dorvik::to_cp1256(done) : done);
        } catch (const dorvik::Error& e) {
            throw Failure(kDataError, Describe(e, input.Name()));
        }
    }
    CheckInterrupted();
    output.Commit();
    return 0;
}

}  // namespace

Command AddDiacritize(CLI::App& parent) {
    auto options = std::make_shared<DiacritizeOptions>();
    CLI::App* app = parent.add_subcommand(
        "diacritize", "Restore the marks of the Arabic words of a text (UTF-8 in and out)");
    AddDictOption(*app, options->folder);
    app->add_option("FILE", options->files,
                    "the texts, one after the other; - (the default) "
                    "reads standard input");
    app->add_option("-o,--output", options->output,
                    "write here, not to standard output; it appears whole at the end")
        ->option_text("FILE");
    app->add_flag("--force", options->force, "replace the output file when it exists");
    app->add_flag("--context", options->context,
                  "restore unknown words from a known stem and its clitics, choose among the "
                  "forms of a word by its neighbours, and keep case endings");
    AddEncodingOption(*app, options->encoding);
    app->footer(
        "Only words are looked up: blanks, line ends, punctuation, digits, Latin and all text "
        "Windows-1256 cannot hold come out byte for byte as they went in, and so does a word "
        "the dictionary does not know. Memory stays flat whatever the size of the text.\n\n"
        "Example:\n  echo 'ذهب الولد الى المدرسة' | dorvik diacritize -d dict");
    return {app, [options] { return Run(*options); }};
}

}  // namespace tool
