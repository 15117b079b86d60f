// The dorvik tool end to end: each test runs the built program as a user would and
// checks its exit status, its output byte for byte and the files it leaves.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "Dorvik01.h"
#include "TestUtil.h"
#include "dorvik/dorvik.hpp"
#include "tool/ToolRun.h"

namespace {

// A terminal for the tool to write to. The slave stays open here too, so that what the
// tool wrote can still be read once it has ended; output passes untranslated.
class Terminal {
public:
    Terminal() {
        master_ = posix_openpt(O_RDWR | O_NOCTTY);
        if (master_ < 0 || grantpt(master_) != 0 || unlockpt(master_) != 0) return;
        slave_ = open(ptsname(master_), O_RDWR | O_NOCTTY);
        termios mode{};
        if (slave_ >= 0 && tcgetattr(slave_, &mode) == 0) {
            cfmakeraw(&mode);
            tcsetattr(slave_, TCSANOW, &mode);
        }
        fcntl(master_, F_SETFL, O_NONBLOCK);
    }
    ~Terminal() {
        if (slave_ >= 0) close(slave_);
        if (master_ >= 0) close(master_);
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    // The descriptor to hand the tool; -1 when no terminal could be had.
    int Fd() const { return slave_; }
    // What was written since the last call.
    std::string Drawn() {
        std::string text;
        char buffer[4096];
        for (ssize_t n; (n = read(master_, buffer, sizeof buffer)) > 0;)
            text.append(buffer, static_cast<std::size_t>(n));
        return text;
    }

private:
    int master_ = -1, slave_ = -1;
};

std::vector<std::string> Names(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& e : std::filesystem::directory_iterator(folder))
        names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace

TEST(ToolCommandLine, HelpsOnEveryCommandAndRefusesBadUsageWithTwo) {
    TempDir dir;
    Result top = Dorvik(dir, {"--help"});
    EXPECT_EQ(top.status, 0);
    for (const char* command :
         {"build", "diacritize", "find", "eval", "inspect", "index", "search"}) {
        EXPECT_NE(top.out.find(command), std::string::npos) << command;
        Result help = Dorvik(dir, {command, "--help"});
        EXPECT_EQ(help.status, 0) << command;
        std::size_t example = help.out.find("Example:\n");
        EXPECT_NE(example, std::string::npos) << help.out;
        EXPECT_NE(help.out.find("dorvik " + std::string(command), example), std::string::npos);
    }
    Result version = Dorvik(dir, {"--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.out.rfind("dorvik ", 0), 0u) << version.out;

    for (std::vector<std::string> bad : {std::vector<std::string>{},
                                         {"frobnicate"},
                                         {"build", kCorpus},
                                         {"diacritize"},
                                         {"find", "-d", "x"},
                                         {"inspect", "--record-size", "5", "x"},
                                         {"search", "-i", "x", "--limit", "-1", "a"},
                                         {"index", "--unit", "page", kCorpus, "-o", "x"},
                                         {"diacritize", "-d", "x", "--encoding", "latin1"}}) {
        Result r = Dorvik(dir, bad);
        EXPECT_EQ(r.status, 2) << (bad.empty() ? "" : bad[0]) << ": " << r.err;
        ExpectOneLine(r, "dorvik");
    }
}

// `text` with the value of every line holding `key` replaced by "...", as the build time
// and the source's path differ from run to run.
static std::string Masked(std::string text, const std::string& key) {
    for (std::size_t at = text.find(key); at != std::string::npos; at = text.find(key, at + 1)) {
        std::size_t colon = text.find(':', at), end = text.find('\n', at);
        std::size_t comma = text[end - 1] == ',' ? end - 1 : end;
        text.replace(colon + 2, comma - colon - 2, "...");
    }
    return text;
}

// The format guide's example manifest is what the tool writes for the guide's example.
TEST(ToolBuild, WritesTheManifestTheFormatGuideShows) {
    std::string guide = Slurp(std::string(DORVIK_DOCS) + "/formats.md");
    std::size_t begin = guide.find("```json manifest\n");
    ASSERT_NE(begin, std::string::npos);
    begin = guide.find('\n', begin) + 1;
    std::string shown = guide.substr(begin, guide.find("```", begin) - begin);

    TempDir dir;
    std::string source = dir.Path("c.txt"), folder = dir.Path("dict");
    WriteAll(source, B("\u0645\u0650\u0646\u0652 \u0645\u0650\u0646\u0652 "
                       "\u0645\u0650\u0646\u0652 \u0645\u064E\u0646\u0652\n"));
    Result r = Dorvik(dir, {"build", "-q", source, "-o", folder});
    ASSERT_EQ(r.status, 0) << r.err;
    std::string written = Slurp(folder + "/manifest.json");
    EXPECT_EQ(Masked(Masked(written, "\"created\""), "\"name\""),
              Masked(Masked(shown, "\"created\""), "\"name\""));
}

TEST(ToolBuild, WritesTheFolderWithItsManifestAndNeverOverwritesUnasked) {
    TempDir dir;
    std::string folder = Built(dir);
    EXPECT_EQ(Names(folder),
              (std::vector<std::string>{"forms.bin", "forms.freq", "forms.pair", "forms.sort",
                                        "forms.wild", "manifest.json"}));
    std::string manifest = Slurp(folder + "/manifest.json");
    for (const char* part : {"\"format\": \"dorvik diacritizer folder\"", "\"version\": 1",
                             "\"tokens\": 23", "\"forms\": 19", "\"mapped_characters\": 3",
                             "\"dropped_characters\": 1", "\"U+0670\": 1", "\"bytes\": 288"})
        EXPECT_NE(manifest.find(part), std::string::npos) << part << "\n" << manifest;
    // Nothing but the folder is left beside it.
    EXPECT_EQ(Names(dir.Root()), (std::vector<std::string>{".err", ".in", ".out", "dict"}));

    // An existing folder stays as it is without --force; with it, it is replaced.
    WriteAll(folder + "/manifest.json", B("{\"format\": \"dorvik diacritizer folder\", "
                                          "\"version\": 1, \"later\": {\"key\": [1]}}"));
    Result again = Dorvik(dir, {"build", "-q", kCorpus, "-o", folder});
    EXPECT_EQ(again.status, 1);
    ExpectOneLine(again, folder + ": exists");
    EXPECT_EQ(Dorvik(dir, {"build", "-q", "--force", kCorpus, "-o", folder}).status, 0);
    EXPECT_NE(Slurp(folder + "/manifest.json").find("\"tokens\": 23"), std::string::npos);

    // --force replaces only a diacritizer folder or an empty one, never other things.
    std::filesystem::create_directory(dir.Path("notes"));
    WriteAll(dir.Path("notes/todo.txt"), B("keep me"));
    WriteAll(dir.Path("file"), B("keep me too"));
    for (std::string target : {dir.Path("notes"), dir.Path("file")}) {
        Result r = Dorvik(dir, {"build", "-q", "--force", kCorpus, "-o", target});
        EXPECT_EQ(r.status, 1) << target;
        ExpectOneLine(r, target);
    }
    EXPECT_EQ(Slurp(dir.Path("notes/todo.txt")), "keep me");
    EXPECT_EQ(Slurp(dir.Path("file")), "keep me too");

    // A missing corpus, or one of invalid UTF-8, fails naming it, and leaves nothing.
    WriteAll(dir.Path("bad.txt"), B("ok \xD9\x83 \xC3("));
    for (auto [corpus, why] :
         {std::pair<std::string, std::string>{dir.Path("none.txt"), "No such file"},
          {dir.Path("bad.txt"), "invalid UTF-8 at byte 6"}}) {
        Result r = Dorvik(dir, {"build", "-q", kCorpus, corpus, "-o", dir.Path("new")});
        EXPECT_EQ(r.status, 1) << r.err;
        ExpectOneLine(r, corpus + ": ");
        EXPECT_NE(r.err.find(why), std::string::npos) << r.err;
    }
    EXPECT_EQ(Names(dir.Root()), (std::vector<std::string>{".err", ".in", ".out", "bad.txt", "dict",
                                                           "file", "notes"}));

    // Windows-1256 input and standard input give the same folder as the UTF-8 file.
    std::string cp1256 = dorvik::to_cp1256(std::string(
        "\xD9\x83\xD9\x8E\xD8\xAA\xD9\x8E\xD8\xA8\xD9\x8E x"));  // a marked word, then x
    Result raw =
        Dorvik(dir, {"build", "-q", "--encoding", "cp1256", "-", "-o", dir.Path("raw")}, cp1256);
    EXPECT_EQ(raw.status, 0) << raw.err;
    EXPECT_NE(Slurp(dir.Path("raw/manifest.json")).find("\"name\": \"standard input\""),
              std::string::npos);
    EXPECT_EQ(Dorvik(dir, {"find", "-d", dir.Path("raw"), "*"}).out,
              "\xD9\x83\xD9\x8E\xD8\xAA\xD9\x8E\xD8\xA8\xD9\x8E\t1\nx\t1\n");
}

TEST(ToolBuild, DrawsItsProgressBarOnlyOnATerminalAndNotWhenQuiet) {
    TempDir dir;
    Terminal terminal;
    ASSERT_GE(terminal.Fd(), 0);
    Result shown = Dorvik(dir, {"build", kCorpus, "-o", dir.Path("a")}, {}, terminal.Fd());
    EXPECT_EQ(shown.status, 0);
    std::string bar = terminal.Drawn();
    for (const char* stage : {"reading ", "sorting ", "indexing "})
        EXPECT_NE(bar.find(stage), std::string::npos) << stage << bar;
    EXPECT_NE(bar.find("##] 100%"), std::string::npos) << bar;
    EXPECT_EQ(bar.substr(bar.size() - 4), "\r\033[K") << bar;  // cleared at the end
    EXPECT_NE(shown.out.find(" forms from 23 words"), std::string::npos) << shown.out;

    Result quiet =
        Dorvik(dir, {"build", "--quiet", kCorpus, "-o", dir.Path("b")}, {}, terminal.Fd());
    EXPECT_EQ(quiet.status, 0);
    EXPECT_EQ(terminal.Drawn(), "");
    EXPECT_EQ(quiet.out, "");

    // Standard error on a file: no bar, only the summary on standard output.
    Result file = Dorvik(dir, {"build", kCorpus, "-o", dir.Path("c")});
    EXPECT_EQ(file.status, 0);
    EXPECT_EQ(file.err, "");
    EXPECT_NE(file.out.find(" forms from 23 words"), std::string::npos) << file.out;
}

TEST(ToolBuild, AnInterruptedBuildLeavesNothingUnderTheNameOrBesideIt) {
    TempDir dir;
    // The corpus comes through a pipe that stays open, so the build is still reading
    // when Ctrl-C comes.
    int pipeFds[2];
    ASSERT_EQ(pipe(pipeFds), 0);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipeFds[0], 0);
    posix_spawn_file_actions_addclose(&actions, pipeFds[1]);
    std::string err = dir.Path(".err");
    posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    std::vector<std::string> args = {DORVIK_TOOL, "build", "-q", "-", "-o", dir.Path("dict")};
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    pid_t pid = 0;
    ASSERT_EQ(posix_spawn(&pid, DORVIK_TOOL, &actions, nullptr, argv.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    close(pipeFds[0]);
    std::string text = "كَتَبَ عِلْمٌ\n";
    ASSERT_EQ(write(pipeFds[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    // The work folder beside the target shows that the build is under way.
    auto working = [&] {
        for (const auto& e : std::filesystem::directory_iterator(dir.Root()))
            if (e.path().filename().string().rfind(".dict.", 0) == 0) return true;
        return false;
    };
    for (int i = 0; i < 500 && !working(); ++i) usleep(10000);
    ASSERT_TRUE(working());
    kill(pid, SIGINT);
    int status = 0;
    waitpid(pid, &status, 0);
    close(pipeFds[1]);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 130);
    EXPECT_EQ(Slurp(err), "dorvik build: interrupted\n");
    EXPECT_EQ(Names(dir.Root()), (std::vector<std::string>{".err"}));
}

TEST(ToolDiacritize, RestoresWordsAndKeepsEverythingElseByteForByte) {
    TempDir dir;
    std::string folder = Built(dir);
    const std::string input =
        "كتب زيد 12 كتب، Latin 🙂 علم\r\nالعلم نور!\nxyz\xEF\xBB\xBF";
    const std::string expected =
        "كَتَب زَيْد 12 كَتَب، Latin 🙂 عِلْم\r\nالْعِلْم "
        "نُور!\nxyz\xEF\xBB\xBF";
    Result r = Dorvik(dir, {"diacritize", "-d", folder}, input);
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, expected);
    EXPECT_EQ(r.err, "");

    // Files one after the other, into a file that appears whole; never over one unasked.
    WriteAll(dir.Path("a.txt"), B(input));
    Result toFile =
        Dorvik(dir, {"diacritize", "-d", folder, dir.Path("a.txt"), "-", "-o", dir.Path("out.txt")},
               "علم");
    EXPECT_EQ(toFile.status, 0) << toFile.err;
    EXPECT_EQ(Slurp(dir.Path("out.txt")), expected + "عِلْم");
    Result refused = Dorvik(dir, {"diacritize", "-d", folder, "-o", dir.Path("out.txt")}, "x");
    EXPECT_EQ(refused.status, 1);
    ExpectOneLine(refused, dir.Path("out.txt") + ": exists");
    EXPECT_EQ(Slurp(dir.Path("out.txt")), expected + "عِلْم");
    EXPECT_EQ(
        Dorvik(dir, {"diacritize", "-d", folder, "--force", "-o", dir.Path("out.txt")}, "x").status,
        0);
    EXPECT_EQ(Slurp(dir.Path("out.txt")), "x");

    // Invalid UTF-8 is named with its offset, and no output file appears.
    Result bad = Dorvik(dir, {"diacritize", "-d", folder, "-o", dir.Path("bad.txt")},
                        std::string(300000, ' ') + "\xFF");
    EXPECT_EQ(bad.status, 1);
    ExpectOneLine(bad, "standard input: bad text: invalid UTF-8 at byte 300000");
    EXPECT_FALSE(Exists(dir.Path("bad.txt")));

    // Raw Windows-1256 in and out.
    std::string plain = "كتب، علم\r\n";
    EXPECT_EQ(
        Dorvik(dir, {"diacritize", "-d", folder, "--encoding", "cp1256"}, dorvik::to_cp1256(plain))
            .out,
        dorvik::to_cp1256("كَتَب، عِلْم\r\n"));
}

TEST(ToolDiacritize, NamesAMissingOrDamagedFolder) {
    TempDir dir;
    std::string folder = Built(dir);
    Result missing = Dorvik(dir, {"diacritize", "-d", dir.Path("nowhere")}, "x");
    EXPECT_EQ(missing.status, 1);
    ExpectOneLine(missing, dir.Path("nowhere") + ": not found");

    std::filesystem::remove(folder + "/forms.freq");
    Result noFreq = Dorvik(dir, {"find", "-d", folder, "x"});
    EXPECT_EQ(noFreq.status, 1);
    ExpectOneLine(noFreq, folder + "/forms.freq: not found");

    WriteAll(folder + "/forms.freq", Bytes(76, 0));
    WriteAll(folder + "/forms.wild", B("garbage, no record file"));
    Result damaged = Dorvik(dir, {"diacritize", "-d", folder}, "x");
    EXPECT_EQ(damaged.status, 1);
    ExpectOneLine(damaged, folder + "/forms.wild: invalid file");

    WriteAll(folder + "/manifest.json", B("{\"format\": \"dorvik diacritizer folder\", "
                                          "\"version\": 2}"));
    Result newer = Dorvik(dir, {"eval", "-d", folder, kCorpus});
    EXPECT_EQ(newer.status, 1);
    ExpectOneLine(newer, "format version 2 is newer");
}

TEST(ToolFind, ListsFormsMostFrequentFirst) {
    TempDir dir;
    std::string folder = Built(dir);
    EXPECT_EQ(Dorvik(dir, {"find", "-d", folder, "ك*"}).out, "كَتَبَ\t3\nكُتُبٍ\t2\nكِتَبًا\t1\n");
    EXPECT_EQ(Dorvik(dir, {"find", "-d", folder, "--limit", "1", "كتب"}).out, "كَتَبَ\t3\n");
    EXPECT_EQ(Dorvik(dir, {"find", "-d", folder, "كُ??"}).out, "كُتُبٍ\t2\n");  // a mark pins
    EXPECT_EQ(Dorvik(dir, {"find", "-d", folder, "--json", "علم"}).out,
              "[\n  {\n    \"form\": \"عِلْمٌ\",\n    \"frequency\": 2,\n    \"id\": 17\n  },\n"
              "  {\n    \"form\": \"عَلِمَ\",\n    \"frequency\": 1,\n    \"id\": 18\n  }\n]\n");
    Result none = Dorvik(dir, {"find", "-d", folder, "xyz"});
    EXPECT_EQ(none.status, 0);
    EXPECT_EQ(none.out, "");
    Result bad = Dorvik(dir, {"find", "-d", folder, "🙂"});
    EXPECT_EQ(bad.status, 2);
    ExpectOneLine(bad, "PATTERN: bad text: U+1F642 at byte 0 has no Windows-1256 form");
}

TEST(ToolEval, CountsErrorsWithAndWithoutCaseEndings) {
    TempDir dir;
    std::string folder = Built(dir);
    // Restored: katab (last fatha lost), 3ilm (last tanween lost), qalam unknown (bare).
    const std::string gold = "كَتَبَ عِلْمٌ, abc قَلَمٌ 7\n";
    Result text = Dorvik(dir, {"eval", "-d", folder, "--examples", "1", "-"}, gold);
    EXPECT_EQ(text.status, 0) << text.err;
    EXPECT_EQ(text.out,
              "bare:     كتب علم, abc قلم 7\n"
              "restored: كَتَب عِلْم, abc قلم 7\n"
              "true:     كَتَبَ عِلْمٌ, abc قَلَمٌ 7\n\n"
              "3 words, 9 letters\n"
              "                              with case ending   without case ending\n"
              "word error rate (WER)                  100.00%                33.33%\n"
              "diacritic error rate (DER)              55.56%                33.33%\n"
              "words left without marks: 1 (33.33%)\n");
    Result json = Dorvik(dir, {"eval", "-d", folder, "--json", "-"}, gold);
    for (const char* part :
         {"\"words\": 3", "\"letters\": 9", "\"wer\": 1.000000", "\"der\": 0.555556",
          "\"wer_without_case_ending\": 0.333333", "\"der_without_case_ending\": 0.333333",
          "\"bare_words\": 1", "\"examples\": []"})
        EXPECT_NE(json.out.find(part), std::string::npos) << part << "\n" << json.out;
    // On the corpus it was built from, only the rarer forms of a spelling lose: kutubin
    // twice and 3alima once. Bad text fails naming the file.
    Result self = Dorvik(dir, {"eval", "-d", folder, "--json", kCorpus});
    EXPECT_NE(self.out.find("\"wrong_words_without_case_ending\": 3,"), std::string::npos)
        << self.out;
    WriteAll(dir.Path("bad.txt"), B("كَتَبَ \xC0 x"));
    Result bad = Dorvik(dir, {"eval", "-d", folder, dir.Path("bad.txt")});
    EXPECT_EQ(bad.status, 1);
    ExpectOneLine(bad, dir.Path("bad.txt") + ": bad text: invalid UTF-8 at byte 13");
}

TEST(ToolContext, RestoresWithBackoffAndMeasuresTheThreeWays) {
    TempDir dir;
    std::string folder = Built(dir);
    EXPECT_TRUE(Exists(folder + "/forms.pair"));
    EXPECT_NE(Slurp(folder + "/manifest.json").find("\"pairs\": "), std::string::npos);
    // "wal-3ilm" is unknown: wa- and the known "al-3ilm"; case endings stay.
    Result restored = Dorvik(dir, {"diacritize", "--context", "-d", folder}, "والعلم نور\nx");
    EXPECT_EQ(restored.status, 0) << restored.err;
    EXPECT_EQ(restored.out, "وَالْعِلْمُ نُورٌ\nx");
    // Classic: both known words lose their last mark, qalam stays bare; back-off keeps the
    // case endings. Context: after kataba neither form of 3lm was seen, but 3alima ended a
    // sentence in the corpus and 3ilmun never did, so at the comma it takes 3alima.
    Result table = Dorvik(dir, {"eval", "--context", "-d", folder, "-"}, "كَتَبَ عِلْمٌ, abc قَلَمٌ 7\n");
    EXPECT_EQ(table.status, 0) << table.err;
    for (const char* row :
         {"                                     classic      back-off       context\n",
          "WER                                  100.00%        33.33%        66.67%\n",
          "WER without case ending               33.33%        33.33%        66.67%\n",
          "DER                                   55.56%        33.33%        66.67%\n",
          "words left without marks                   1             1             1\n"})
        EXPECT_NE(table.out.find(row), std::string::npos) << row << table.out;
}

TEST(ToolInspect, TellsEveryKindApartAndRefusesGarbage) {
    TempDir dir;
    std::string folder = Built(dir);
    {
        dorvik::RecordFile records(dir.Path("records.bin"), {.truncate = true});
        records.append("alpha");
        records.append("\x01\x02");
        dorvik::PostingsFile postings(dir.Path("postings.bin"), {.truncate = true});
        postings.append(dorvik::BitSet{1, 5, 9});
        postings.append(dorvik::BitSet{});
        postings.append(dorvik::BitSet{0, 700});
        CNDimBinFile nested(dir.Path("nested.bin").c_str(),
                            CFile::modeCreate | CFile::modeReadWrite);
        int path[2] = {1, 2};
        nested.Modify(2, path, P("leaf"), 4);
    }
    WriteAll(dir.Path("counts.ix"), Hex("0100 0200 ffff"));
    WriteAll(dir.Path("garbage.bin"), B("no file of the engine at all"));

    struct Case {
        std::vector<std::string> args;
        std::string first;  // the first line of the report
        std::string detail;
    };
    const std::vector<Case> cases = {
        {{folder + "/forms.bin"}, "dictionary, valid", "19 records (0 empty)"},
        {{folder + "/forms.sort"}, "sorted view, valid", "19 integers of 4 bytes, from 0 to 18"},
        {{folder + "/forms.wild"}, "wildcard index, valid", "highest bit 18"},
        {{folder + "/forms.freq"}, "frequency file, valid", "from 1 to 3"},
        {{dir.Path("records.bin")}, "record file, valid", "2 records (0 empty)"},
        {{dir.Path("postings.bin")},
         "bit record file, valid",
         "2 non-empty bit sets, 5 bits set, 2 to 3 per set, highest bit 700"},
        {{dir.Path("nested.bin")}, "nested record file, valid", "nested 1 level deep"},
        {{"--record-size", "2", dir.Path("counts.ix")},
         "integer file, valid",
         "3 integers of 2 bytes, from -1 to 2"},
    };
    for (const Case& c : cases) {
        std::vector<std::string> args = {"inspect"};
        args.insert(args.end(), c.args.begin(), c.args.end());
        Result r = Dorvik(dir, args);
        EXPECT_EQ(r.status, 0) << c.first << ": " << r.err;
        EXPECT_EQ(r.out.substr(0, r.out.find('\n')), c.args.back() + ": " + c.first);
        EXPECT_NE(r.out.find(c.detail), std::string::npos) << r.out;
    }
    Result whole = Dorvik(dir, {"inspect", folder});
    EXPECT_EQ(whole.status, 0) << whole.err;
    EXPECT_EQ(whole.out.rfind(folder + ": diacritizer folder, valid\n  built ", 0), 0u);

    Result garbage = Dorvik(dir, {"inspect", dir.Path("records.bin"), dir.Path("garbage.bin")});
    EXPECT_EQ(garbage.status, 1);
    ExpectOneLine(garbage, dir.Path("garbage.bin") + ": no record file");
    Result json = Dorvik(dir, {"inspect", "--json", dir.Path("garbage.bin")});
    EXPECT_NE(json.out.find("\"kind\": \"unknown\",\n    \"valid\": false"), std::string::npos)
        << json.out;

    // The manifest is read as JSON, escapes and all; a broken one is named with its offset.
    std::string manifest = Slurp(folder + "/manifest.json");
    WriteAll(folder + "/manifest.json",
             B("{\"format\": \"dorvik diacritizer folder\", \"version\": 1, \"sources\": "
               "[{\"name\": \"\\u0643\\ud83d\\ude42.txt\", \"bytes\": 5}]}"));
    Result escaped = Dorvik(dir, {"inspect", folder});
    EXPECT_NE(escaped.out.find(": ك🙂.txt (5 bytes)\n"), std::string::npos) << escaped.out;
    WriteAll(folder + "/manifest.json",
             B("{\"format\": \"dorvik diacritizer folder\", \"version\": 1, \"x\": \"\\ud83d\"}"));
    Result broken = Dorvik(dir, {"diacritize", "-d", folder}, "x");
    EXPECT_EQ(broken.status, 1);
    ExpectOneLine(broken, folder + "/manifest.json: no JSON: a lone surrogate at byte 66");
    WriteAll(folder + "/manifest.json", B(manifest));

    // A damaged index makes the folder invalid, and says where.
    Bytes wild = ReadAll(folder + "/forms.wild");
    wild.resize(wild.size() - 3);
    WriteAll(folder + "/forms.wild", wild);
    Result damaged = Dorvik(dir, {"inspect", folder});
    EXPECT_EQ(damaged.status, 1);
    EXPECT_NE(damaged.out.find(folder + ": diacritizer folder, invalid"), std::string::npos);
    ExpectOneLine(damaged, folder + "/forms.wild: no record file");
}

namespace {

const std::string kTexts = std::string(DORVIK_TEST_DATA) + "/search";
const std::string kOne = kTexts + "/one.txt", kTwo = kTexts + "/two.txt";

// The index of the two test texts, cut into `unit`s.
std::string Indexed(const TempDir& dir, const std::string& unit = "line") {
    std::string folder = dir.Path("idx-" + unit);
    Result r = Dorvik(dir, {"index", "-q", "--unit", unit, kOne, kTwo, "-o", folder});
    EXPECT_EQ(r.status, 0) << r.err;
    return folder;
}

// The "file:line" of each line of search output, the folder of the texts left out.
std::vector<std::string> Places(const Result& r) {
    std::vector<std::string> places;
    std::size_t start = 0;
    while (start < r.out.size()) {
        std::size_t end = r.out.find('\n', start);
        std::string line = r.out.substr(start, end - start);
        if (line.rfind(kTexts + "/", 0) == 0) line.erase(0, kTexts.size() + 1);
        places.push_back(line.substr(0, line.find(": ")));
        start = end == std::string::npos ? r.out.size() : end + 1;
    }
    return places;
}

using Lines = std::vector<std::string>;

}  // namespace

TEST(ToolSearch, AnswersEveryOperatorWildcardAndMarkAsFileLineText) {
    TempDir dir;
    std::string idx = Indexed(dir);
    struct Case {
        std::string query;
        Lines expected;
    } cases[] = {
        {"كتب", {"one.txt:1", "one.txt:5", "two.txt:4"}},  // every marked form
        {"كَتب", {"one.txt:1", "one.txt:5"}},               // a mark written must be there
        {"كُتُب", {"two.txt:4"}},
        {"الولد قرأ", {"one.txt:2"}},
        {"درسا | نور", {"one.txt:1", "two.txt:1", "two.txt:3"}},
        {"الأستاذ -كتب", {"two.txt:3"}},
        {"(كتب | قرأ) -الولد", {"one.txt:5", "two.txt:3", "two.txt:4"}},
        {"ال*",
         {"one.txt:1", "one.txt:2", "one.txt:4", "one.txt:5", "two.txt:1", "two.txt:2",
          "two.txt:3"}},
        {"*ا", {"one.txt:1", "one.txt:2", "two.txt:3"}},
        {"ظ?ا?", {"two.txt:2"}},
        {"حبر", {}},
    };
    for (const Case& c : cases) {
        Result r = Dorvik(dir, {"search", "-i", idx, "--", c.query});
        EXPECT_EQ(r.status, 0) << c.query << ": " << r.err;
        EXPECT_EQ(Places(r), c.expected) << c.query;
    }
    // The unit's text as it stands in the file, its line end (CR LF too) left out.
    Result r = Dorvik(dir, {"search", "-i", idx, "ظلام"});
    EXPECT_EQ(r.out, kTwo + ":2: الجَهْلُ ظَلَامٌ\n");
}

TEST(ToolSearch, CountsLimitsLimitsToAFileAndPrintsJson) {
    TempDir dir;
    std::string idx = Indexed(dir);
    EXPECT_EQ(Dorvik(dir, {"search", "-i", idx, "--count", "ال*"}).out, "7\n");
    EXPECT_EQ(Places(Dorvik(dir, {"search", "-i", idx, "--limit", "2", "ال*"})),
              (Lines{"one.txt:1", "one.txt:2"}));
    EXPECT_EQ(Places(Dorvik(dir, {"search", "-i", idx, "--in", kTwo, "كتب"})),
              (Lines{"two.txt:4"}));
    EXPECT_EQ(Dorvik(dir, {"search", "-i", idx, "--in", kOne, "--count", "--", "-كتب"}).out, "2\n");
    Result missing = Dorvik(dir, {"search", "-i", idx, "--in", kCorpus, "كتب"});
    EXPECT_EQ(missing.status, 1);
    ExpectOneLine(missing, "no file of the index");

    Result json = Dorvik(dir, {"search", "-i", idx, "--json", "--limit", "1", "نور"});
    EXPECT_EQ(json.status, 0) << json.err;
    for (const std::string& part : {std::string("\"query\": \"نور\""), std::string("\"count\": 1"),
                                    "\"file\": \"" + kTwo + "\"", std::string("\"line\": 1"),
                                    std::string("\"text\": \"العِلْمُ نُورٌ\"")})
        EXPECT_NE(json.out.find(part), std::string::npos) << part << "\n" << json.out;
}

TEST(ToolSearch, LimitsToAFileAsFilteringTheWholeResultByFileWould) {
    TempDir dir;
    // Four files, one without words, so that file and unit numbers part ways.
    std::string blank = dir.Path("blank.txt"), three = dir.Path("three.txt");
    WriteAll(blank, B("\n \n"));
    WriteAll(three, B("كُتُبٌ وَ دَرْسٌ\nنُورٌ\n"));
    std::string idx = dir.Path("idx");
    const Lines files = {kOne, blank, kTwo, three};
    ASSERT_EQ(Dorvik(dir, {"index", "-q", kOne, blank, kTwo, three, "-o", idx}).status, 0);
    for (const char* query : {"كتب", "ال*", "-كتب", "نور | درس*"}) {
        Result whole = Dorvik(dir, {"search", "-i", idx, "--", query});
        ASSERT_EQ(whole.status, 0) << whole.err;
        std::size_t seen = 0;
        for (const std::string& file : files) {
            std::string expected;
            std::size_t start = 0;
            for (std::size_t end; (end = whole.out.find('\n', start)) != std::string::npos;
                 start = end + 1)
                if (whole.out.compare(start, file.size() + 1, file + ":") == 0)
                    expected += whole.out.substr(start, end + 1 - start);
            Result in = Dorvik(dir, {"search", "-i", idx, "--in", file, "--", query});
            EXPECT_EQ(in.status, 0) << in.err;
            EXPECT_EQ(in.out, expected) << query << " in " << file;
            seen += expected.size();
        }
        EXPECT_EQ(seen, whole.out.size()) << query;  // every unit lies in one of the files
    }
    EXPECT_EQ(Dorvik(dir, {"search", "-i", idx, "--count", "--in", three, "--", "-كتب"}).out,
              "1\n");

    // The tree missing, damaged, or of another index: one line naming it, status 1.
    std::string tree = idx + "/tree.bin";
    Bytes good = ReadAll(tree);
    dorvik::Tree other;
    other.add(0);
    other.add(1);
    other.save(tree);
    Bytes mismatched = ReadAll(tree);
    for (const Bytes& bad : {Bytes{}, B("no bit record file"), mismatched}) {
        if (bad.empty())
            std::filesystem::remove(tree);
        else
            WriteAll(tree, bad);
        Result r = Dorvik(dir, {"search", "-i", idx, "كتب"});
        EXPECT_EQ(r.status, 1);
        ExpectOneLine(r, tree);
        EXPECT_EQ(r.out, "");
    }
    Result inspected = Dorvik(dir, {"inspect", idx});
    EXPECT_EQ(inspected.status, 1);
    ExpectOneLine(inspected, tree + ": does not match the files and units of the index");
    WriteAll(tree, good);
    EXPECT_EQ(Dorvik(dir, {"inspect", idx}).status, 0);
}

TEST(ToolSearch, HighlightsTheWordsFoundOnATerminalOnly) {
    TempDir dir;
    std::string idx = Indexed(dir);
    auto hit = [](const std::string& word) { return "\x1b[1;31m" + word + "\x1b[0m"; };
    // Bare words find their marked forms; a word under NOT is shown but not marked,
    // and neither is a word that only looks like one found (الكُتُبُ).
    std::vector<std::string> args = {"search", "-i", idx, "--in", kOne, "--", "كتب الولد | -درسا"};
    Terminal terminal;
    ASSERT_GE(terminal.Fd(), 0);
    Result shown = Dorvik(dir, args, {}, -1, terminal.Fd());
    EXPECT_EQ(shown.status, 0) << shown.err;
    EXPECT_EQ(terminal.Drawn(),
              kOne + ":1: " + hit("كَتَبَ") + " " + hit("الوَلَدُ") + " دَرْسًا\n" +  //
                  kOne + ":2: قَرَأَ " + hit("الوَلَدُ") + " كِتَابًا\n" +            //
                  kOne + ":4: الكُتُبُ عَلَى الطَّاوِلَةِ\n" +                         //
                  kOne + ":5: " + hit("كَتَبَ") + " الأُسْتَاذُ\n");
    // Wildcards mark every form they match, and only whole words.
    Dorvik(dir, {"search", "-i", idx, "--in", kTwo, "ال*م*"}, {}, -1, terminal.Fd());
    EXPECT_EQ(terminal.Drawn(), kTwo + ":1: " + hit("العِلْمُ") + " نُورٌ\n");

    // Piped or as JSON: the text as it stands.
    Result piped = Dorvik(dir, args);
    EXPECT_EQ(piped.out.find('\x1b'), std::string::npos) << piped.out;
    EXPECT_NE(piped.out.find(":1: كَتَبَ الوَلَدُ دَرْسًا\n"), std::string::npos) << piped.out;
    args.insert(args.begin() + 1, "--json");
    Dorvik(dir, args, {}, -1, terminal.Fd());
    EXPECT_EQ(terminal.Drawn().find('\x1b'), std::string::npos);
}

TEST(ToolSearch, FindsParagraphsAndFilesAsUnits) {
    TempDir dir;
    std::string paragraphs = Indexed(dir, "paragraph"), files = Indexed(dir, "file");
    EXPECT_EQ(Places(Dorvik(dir, {"search", "-i", paragraphs, "كتب قرأ"})),
              (Lines{"one.txt:1", "two.txt:1"}));
    EXPECT_EQ(Places(Dorvik(dir, {"search", "-i", paragraphs, "الطاولة"})), (Lines{"one.txt:4"}));
    EXPECT_EQ(Places(Dorvik(dir, {"search", "-i", files, "نور الولد | ظلام"})),
              (Lines{"two.txt:1"}));
    EXPECT_EQ(Dorvik(dir, {"search", "-i", paragraphs, "الطاولة"}).out,
              kOne + ":4: الكُتُبُ عَلَى الطَّاوِلَةِ كَتَبَ الأُسْتَاذُ\n");
}

TEST(ToolIndex, AddingFilesEqualsARebuildByteForByte) {
    TempDir dir;
    std::string full = Indexed(dir), grown = dir.Path("grown");
    ASSERT_EQ(Dorvik(dir, {"index", "-q", kOne, "-o", grown}).status, 0);
    Result add = Dorvik(dir, {"index", "-q", "--add", kTwo, "-o", grown});
    ASSERT_EQ(add.status, 0) << add.err;
    EXPECT_EQ(Names(grown), (Lines{"files.bin", "manifest.json", "postings.bin", "tree.bin",
                                   "units.bin", "words.bin", "words.sort", "words.wild"}));
    for (const std::string& name : Names(full)) {
        if (name == "manifest.json") continue;
        EXPECT_EQ(Slurp(grown + "/" + name), Slurp(full + "/" + name)) << name;
    }
    EXPECT_EQ(Places(Dorvik(dir, {"search", "-i", grown, "كتب"})),
              (Lines{"one.txt:1", "one.txt:5", "two.txt:4"}));

    // A file already there is refused, the index staying as it was.
    std::string before = Slurp(grown + "/units.bin");
    Result again = Dorvik(dir, {"index", "-q", "--add", kTwo, "-o", grown});
    EXPECT_EQ(again.status, 1);
    ExpectOneLine(again, "already in the index");
    EXPECT_EQ(Slurp(grown + "/units.bin"), before);
    // So is another unit, and adding to nothing.
    EXPECT_EQ(Dorvik(dir, {"index", "-q", "--add", "--unit", "file", kCorpus, "-o", grown}).status,
              2);
    EXPECT_EQ(Dorvik(dir, {"index", "-q", "--add", kTwo, "-o", dir.Path("none")}).status, 1);
}

TEST(ToolIndex, NeverOverwritesUnaskedAndLeavesNothingBeside) {
    TempDir dir;
    std::string idx = Indexed(dir);
    std::string manifest = Slurp(idx + "/manifest.json");
    for (const char* part : {"\"format\": \"dorvik index folder\"", "\"unit\": \"line\"",
                             "\"units\": 8", "\"tokens\": 20"})
        EXPECT_NE(manifest.find(part), std::string::npos) << part << "\n" << manifest;
    Result again = Dorvik(dir, {"index", "-q", kOne, "-o", idx});
    EXPECT_EQ(again.status, 1);
    EXPECT_EQ(Slurp(idx + "/manifest.json"), manifest);
    EXPECT_EQ(Dorvik(dir, {"index", "-q", "--force", kOne, "-o", idx}).status, 0);
    EXPECT_EQ(Dorvik(dir, {"search", "-i", idx, "--count", "نور"}).out, "0\n");
    EXPECT_EQ(Names(dir.Root()), (Lines{".err", ".in", ".out", "idx-line"}));
}

TEST(ToolSearch, RefusesBadQueriesAndMissingOrDamagedIndexesInOneLine) {
    TempDir dir;
    std::string idx = Indexed(dir);
    Result bad = Dorvik(dir, {"search", "-i", idx, "كتب )"});
    EXPECT_EQ(bad.status, 2);
    ExpectOneLine(bad, "query: ')' without '(' at character 5");
    for (const char* query : {"(كتب", "كتب |", "", "🙂"}) {
        Result r = Dorvik(dir, {"search", "-i", idx, query});
        EXPECT_EQ(r.status, 2) << query;
        ExpectOneLine(r, "query: ");
    }

    Result missing = Dorvik(dir, {"search", "-i", dir.Path("nothing"), "كتب"});
    EXPECT_EQ(missing.status, 1);
    ExpectOneLine(missing, "no index");
    // A damaged file of the index, or a manifest of another kind of folder.
    WriteAll(idx + "/postings.bin", B("garbage, not a record file"));
    Result damaged = Dorvik(dir, {"search", "-i", idx, "كتب"});
    EXPECT_EQ(damaged.status, 1);
    ExpectOneLine(damaged, "postings.bin");
    std::string dict = Built(dir);
    Result other = Dorvik(dir, {"search", "-i", dict, "كتب"});
    EXPECT_EQ(other.status, 1);
    ExpectOneLine(other, "no manifest of an index folder");
}

TEST(ToolInspect, SumsUpAnIndexFolderAndItsFiles) {
    TempDir dir;
    std::string idx = Indexed(dir);
    Result r = Dorvik(dir, {"inspect", idx});
    EXPECT_EQ(r.status, 0) << r.err;
    for (const std::string& part :
         {idx + ": index folder, valid", std::string("8 lines of"), idx + "/words.bin: dictionary",
          idx + "/postings.bin", idx + "/units.bin", idx + "/files.bin", idx + "/tree.bin",
          std::string("bits set")})
        EXPECT_NE(r.out.find(part), std::string::npos) << part << "\n" << r.out;
    std::filesystem::remove(idx + "/words.wild");
    Result missing = Dorvik(dir, {"inspect", idx});
    EXPECT_EQ(missing.status, 1);
    ExpectOneLine(missing, "words.wild: missing");
}

TEST(ToolIndex, ReadsWindows1256TextAndPrintsItAsUtf8) {
    TempDir dir;
    std::string text = dir.Path("one-1256.txt"), idx = dir.Path("idx");
    WriteAll(text, B(dorvik::to_cp1256(Slurp(kOne))));
    ASSERT_EQ(Dorvik(dir, {"index", "-q", "--encoding", "cp1256", text, "-o", idx}).status, 0);
    EXPECT_EQ(Dorvik(dir, {"search", "-i", idx, "الولد قرأ"}).out, text + ":2: قَرَأَ الوَلَدُ كِتَابًا\n");
}
