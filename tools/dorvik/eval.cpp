// dorvik eval: strip the marks of a vocalised text, restore them, and measure the
// error rates against the original.
#include <CLI/CLI.hpp>
#include <array>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>

#include "Command.h"
#include "Io.h"
#include "Json.h"

namespace tool {
namespace {

struct EvalOptions {
    std::string folder;
    std::vector<std::string> gold;
    Encoding encoding = Encoding::utf8;
    std::size_t examples = 0;
    bool json = false;
    bool context = false;
};

// The first lines of the texts, bare, restored and true, as they go by.
class Examples {
public:
    explicit Examples(std::size_t wanted) : wanted_(wanted) {}

    void Add(const std::string& bare, const std::string& restored, const std::string& gold) {
        if (lines_.size() >= wanted_) return;
        std::array<std::string_view, 3> texts = {bare, restored, gold};
        for (std::size_t k = 0; k < 3; ++k) pending_[k].append(texts[k]);
        // Line ends come through unchanged, so the three texts end their lines together.
        std::size_t end;
        while (lines_.size() < wanted_ && (end = pending_[0].find('\n')) != std::string::npos) {
            std::array<std::string, 3> line;
            for (std::size_t k = 0; k < 3; ++k) {
                std::size_t at = pending_[k].find('\n');
                line[k] = pending_[k].substr(0, at);
                if (!line[k].empty() && line[k].back() == '\r') line[k].pop_back();
                pending_[k].erase(0, at + 1);
            }
            if (line[2].find_first_not_of(" \t") != std::string::npos) lines_.push_back(line);
        }
    }

    const std::vector<std::array<std::string, 3>>& Lines() const noexcept { return lines_; }

private:
    std::size_t wanted_;
    std::array<std::string, 3> pending_;
    std::vector<std::array<std::string, 3>> lines_;
};

std::string Percent(double fraction) {
    char text[16];
    std::snprintf(text, sizeof text, "%.2f%%", 100 * fraction);
    return text;
}

std::string Report(const dorvik::MarkErrors& e, const Examples& examples, bool json) {
    if (json) {
        JsonWriter w;
        w.BeginObject();
        w.Key("words").Number(e.words);
        w.Key("letters").Number(e.letters);
        w.Key("wer").Fraction(e.word_error_rate(true), 6);
        w.Key("der").Fraction(e.diacritic_error_rate(true), 6);
        w.Key("wer_without_case_ending").Fraction(e.word_error_rate(false), 6);
        w.Key("der_without_case_ending").Fraction(e.diacritic_error_rate(false), 6);
        w.Key("wrong_words").Number(e.wrong_words);
        w.Key("wrong_letters").Number(e.wrong_letters);
        w.Key("wrong_words_without_case_ending").Number(e.wrong_words_but_last);
        w.Key("wrong_letters_without_case_ending").Number(e.wrong_letters_but_last);
        w.Key("letters_without_case_ending").Number(e.letters_but_last);
        w.Key("bare_words").Number(e.bare_words);
        w.Key("examples").BeginArray();
        for (const auto& line : examples.Lines()) {
            w.BeginObject();
            w.Key("bare").String(line[0]);
            w.Key("restored").String(line[1]);
            w.Key("true").String(line[2]);
            w.EndObject();
        }
        w.EndArray();
        w.EndObject();
        return std::move(w.Text());
    }
    std::string out;
    for (const auto& line : examples.Lines())
        out +=
            "bare:     " + line[0] + "\nrestored: " + line[1] + "\ntrue:     " + line[2] + "\n\n";
    char text[512];
    std::snprintf(
        text, sizeof text,
        "%s words, %s letters\n"
        "                              with case ending   without case ending\n"
        "word error rate (WER)       %18s   %19s\n"
        "diacritic error rate (DER)  %18s   %19s\n"
        "words left without marks: %s (%s)\n",
        Thousands(e.words).c_str(), Thousands(e.letters).c_str(),
        Percent(e.word_error_rate(true)).c_str(), Percent(e.word_error_rate(false)).c_str(),
        Percent(e.diacritic_error_rate(true)).c_str(),
        Percent(e.diacritic_error_rate(false)).c_str(), Thousands(e.bare_words).c_str(),
        Percent(e.words ? static_cast<double>(e.bare_words) / static_cast<double>(e.words) : 0)
            .c_str());
    return out + text;
}

// Calls `score` with each piece of the gold texts, normalised. Each piece ends at a word
// end, so it can be restored on its own.
void ForEachGold(const EvalOptions& options, const std::function<void(const std::string&)>& score) {
    for (const std::string& name : options.gold) {
        Input input(name);
        dorvik::CorpusNormalizer normalizer;
        try {
            for (std::string_view piece; !(piece = input.Next()).empty();)
                score(normalizer.feed(options.encoding == Encoding::cp1256
                                          ? dorvik::from_cp1256(piece)
                                          : std::string(piece)));
            score(normalizer.finish() + "\n");
        } catch (const dorvik::Error& e) {
            throw Failure(kDataError, Describe(e, input.Name()));
        }
    }
}

// The figures of the three ways side by side: the classic look-up, the back-off, and
// the back-off with the context, each with its words per second.
struct Way {
    const char* name;
    dorvik::MarkErrors errors;
    double seconds = 0;
};

std::string Row(const char* label, const std::vector<Way>& ways,
                const std::function<std::string(const Way&)>& cell) {
    char text[128];
    std::snprintf(text, sizeof text, "%-30s", label);
    std::string line = text;
    for (const Way& way : ways) {
        std::snprintf(text, sizeof text, "%14s", cell(way).c_str());
        line += text;
    }
    return line + "\n";
}

double WordsPerSecond(const Way& way) {
    return way.seconds > 0 ? static_cast<double>(way.errors.words) / way.seconds : 0;
}

std::string SideBySide(const std::vector<Way>& ways, bool json) {
    if (json) {
        JsonWriter w;
        w.BeginObject();
        for (const Way& way : ways) {
            const dorvik::MarkErrors& e = way.errors;
            w.Key(way.name).BeginObject();
            w.Key("words").Number(e.words);
            w.Key("wer").Fraction(e.word_error_rate(true), 6);
            w.Key("der").Fraction(e.diacritic_error_rate(true), 6);
            w.Key("wer_without_case_ending").Fraction(e.word_error_rate(false), 6);
            w.Key("der_without_case_ending").Fraction(e.diacritic_error_rate(false), 6);
            w.Key("bare_words").Number(e.bare_words);
            w.Key("words_per_second").Number(static_cast<std::uint64_t>(WordsPerSecond(way)));
            w.EndObject();
        }
        w.EndObject();
        return std::move(w.Text());
    }
    const dorvik::MarkErrors& first = ways.front().errors;
    std::string out = Thousands(first.words) + " words, " + Thousands(first.letters) + " letters\n";
    out += Row("", ways, [](const Way& w) { return std::string(w.name); });
    out += Row("WER", ways, [](const Way& w) { return Percent(w.errors.word_error_rate(true)); });
    out += Row("WER without case ending", ways,
               [](const Way& w) { return Percent(w.errors.word_error_rate(false)); });
    out +=
        Row("DER", ways, [](const Way& w) { return Percent(w.errors.diacritic_error_rate(true)); });
    out += Row("DER without case ending", ways,
               [](const Way& w) { return Percent(w.errors.diacritic_error_rate(false)); });
    out += Row("words left without marks", ways,
               [](const Way& w) { return Thousands(w.errors.bare_words); });
    out += Row("words per second", ways, [](const Way& w) {
        return Thousands(static_cast<std::uint64_t>(WordsPerSecond(w)));
    });
    return out;
}

int RunContext(const EvalOptions& options) {
    using Steps = dorvik::ContextDiacritizer::Steps;
    dorvik::Diacritizer diacritizer = OpenFolder(options.folder);
    dorvik::ContextDiacritizer backoff = OpenContext(options.folder, Steps::backoff);
    dorvik::ContextDiacritizer context = OpenContext(options.folder, Steps::context);
    std::vector<Way> ways = {{"classic", {}, 0}, {"back-off", {}, 0}, {"context", {}, 0}};
    std::vector<std::function<std::string(const std::string&)>> restore = {
        [&](const std::string& bare) { return diacritizer.diacritize(bare); },
        [&](const std::string& bare) { return backoff.diacritize(bare); },
        [&](const std::string& bare) { return context.diacritize(bare); },
    };
    ForEachGold(options, [&](const std::string& gold) {
        std::string bare = dorvik::strip_marks(gold);
        for (std::size_t k = 0; k < ways.size(); ++k) {
            auto start = std::chrono::steady_clock::now();
            std::string restored = restore[k](bare);
            ways[k].seconds +=
                std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
            ways[k].errors += dorvik::compare_marks(gold, restored);
        }
    });
    Output output("-", false);
    output.Write(SideBySide(ways, options.json));
    return 0;
}

int Run(const EvalOptions& options) {
    if (options.context) return RunContext(options);
    dorvik::Diacritizer diacritizer = OpenFolder(options.folder);
    dorvik::MarkErrors errors;
    Examples examples(options.examples);
    ForEachGold(options, [&](const std::string& gold) {
        std::string bare = dorvik::strip_marks(gold);
        std::string restored = diacritizer.diacritize(bare);
        errors += dorvik::compare_marks(gold, restored);
        examples.Add(bare, restored, gold);
    });
    Output output("-", false);
    output.Write(Report(errors, examples, options.json));
    return 0;
}

}  // namespace

Command AddEval(CLI::App& parent) {
    auto options = std::make_shared<EvalOptions>();
    CLI::App* app = parent.add_subcommand(
        "eval", "Strip the marks of vocalised text, restore them and measure the error rates");
    AddDictOption(*app, options->folder);
    app->add_option("GOLD", options->gold, "vocalised texts (the truth); - reads standard input")
        ->required();
    app->add_option("--examples", options->examples,
                    "first show the first N lines: bare, restored and true")
        ->option_text("N");
    app->add_flag("--json", options->json, "print the figures as JSON");
    app->add_flag("--context", options->context,
                  "measure the classic look-up, the clitic back-off and the back-off with the "
                  "context side by side, with their words per second (--examples is ignored)");
    AddEncodingOption(*app, options->encoding);
    app->footer(
        "The text is normalised as build does. WER: words with a wrong mark, of all Arabic "
        "words; DER: letters whose marks differ, of all Arabic letters (also those that carry "
        "none); \"without case ending\" leaves out the last letter of every word.\n\n"
        "Example:\n  dorvik eval -d dict --examples 3 held-out.txt");
    return {app, [options] { return Run(*options); }};
}

}  // namespace tool
