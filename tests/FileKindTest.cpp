#include <gtest/gtest.h>

#include <string>

#include "Dorvik01.h"
#include "TestUtil.h"
#include "dorvik/dorvik.hpp"

using dorvik::FileKind;

namespace {
dorvik::FileSummary Inspect(const std::string& path, unsigned recordSize = 0) {
    return dorvik::inspect(path, {.record_size = recordSize});
}
}  // namespace

TEST(Inspect, TellsTheKindsApartByTheirBytes) {
    TempDir dir;
    WriteAll(dir.Path("records.bin"), RecordFileImage({B("ab"), {}, B("\x01\x02")}));
    WriteAll(dir.Path("empty.bin"), Hex("00000000"));
    WriteAll(dir.Path("bits.bin"),
             RecordFileImage({Hex("01 00 02 00 81"), {}, Hex("01 ff 02 00")}));
    Bytes inner = RecordFileImage({B("x"), B("yz")});
    WriteAll(dir.Path("nested.bin"), RecordFileImage({{}, inner, RecordFileImage({})}));
    WriteAll(dir.Path("text.bin"), RecordFileImage({B("pear"), B("fig")}));
    {
        dorvik::Dictionary words(dir.Path("words.bin"), {.truncate = true});
        for (const char* w : {"pear", "apple", "fig"}) words.add(w);
    }
    WriteAll(dir.Path("counts"), Hex("01 02 ff"));

    struct Case {
        std::string name;
        FileKind kind;
        std::uint64_t records, depth, bitSets, setBits, highest;
    };
    const Case cases[] = {
        {"records.bin", FileKind::record_file, 3, 0, 0, 0, 0},
        {"empty.bin", FileKind::record_file, 0, 0, 0, 0, 0},
        {"bits.bin", FileKind::bit_record_file, 3, 0, 2, 2 + 16, 23},
        {"nested.bin", FileKind::nested_record_file, 3, 1, 0, 0, 0},
        {"text.bin", FileKind::record_file, 2, 0, 0, 0, 0},  // text, but no sorted view
        {"words.bin", FileKind::dictionary, 3, 0, 0, 0, 0},
        {"words.sort", FileKind::sorted_view, 3, 0, 0, 0, 0},
        {"words.wild", FileKind::wildcard_index, 0, 1, 0, 0, 0},
    };
    for (const Case& c : cases) {
        dorvik::FileSummary s = Inspect(dir.Path(c.name));
        EXPECT_TRUE(s.valid) << c.name << ": " << s.problem;
        EXPECT_EQ(s.kind, c.kind) << c.name << ": " << dorvik::to_string(s.kind);
        EXPECT_EQ(s.depth, c.depth) << c.name;
        if (c.kind == FileKind::wildcard_index) continue;  // its counts follow below
        EXPECT_EQ(s.records, c.records) << c.name;
        EXPECT_EQ(s.bit_sets, c.bitSets) << c.name;
        EXPECT_EQ(s.set_bits, c.setBits) << c.name;
        if (c.bitSets) {
            EXPECT_EQ(s.highest_bit, c.highest) << c.name;
        }
    }
    dorvik::FileSummary bits = Inspect(dir.Path("bits.bin"));
    EXPECT_EQ(bits.fewest_bits, 2u);  // bits 16 and 23
    EXPECT_EQ(bits.most_bits, 16u);   // two bytes of 0xFF
    EXPECT_EQ(Inspect(dir.Path("nested.bin")).leaves, 2u + 0u);
    dorvik::FileSummary wild = Inspect(dir.Path("words.wild"));
    EXPECT_EQ(wild.highest_bit, 2u);  // three words
    EXPECT_EQ(wild.fewest_bits, 1u);
    dorvik::FileSummary view = Inspect(dir.Path("words.sort"));
    EXPECT_EQ(view.record_size, 4u);
    EXPECT_EQ(view.largest, 2);

    // Integers only by name or when asked: any bytes would do for them.
    dorvik::FileSummary unknown = Inspect(dir.Path("counts"));
    EXPECT_EQ(unknown.kind, FileKind::unknown);
    EXPECT_FALSE(unknown.valid);
    EXPECT_NE(unknown.problem.find("no record file"), std::string::npos);
    dorvik::FileSummary ints = Inspect(dir.Path("counts"), 1);
    EXPECT_EQ(ints.kind, FileKind::integer_file);
    EXPECT_EQ(ints.records, 3u);
    EXPECT_EQ(ints.smallest, -1);  // 0xff: a set top bit reads -1
    EXPECT_EQ(ints.largest, 2);
    EXPECT_FALSE(Inspect(dir.Path("counts"), 2).valid);  // 3 bytes: no whole 2-byte integers

    EXPECT_THROW(Inspect(dir.Path("none")), dorvik::Error);
    EXPECT_THROW(Inspect(dir.Root()), dorvik::Error);
    EXPECT_THROW(Inspect(dir.Path("counts"), 5), dorvik::Error);
}

TEST(Inspect, FindsWhatIsDamaged) {
    TempDir dir;
    {
        dorvik::Dictionary words(dir.Path("words.bin"), {.truncate = true});
        for (const char* w : {"pear", "apple", "fig"}) words.add(w);
    }
    Bytes sorted = ReadAll(dir.Path("words.sort")), wild = ReadAll(dir.Path("words.wild"));
    auto problem = [&](const std::string& name) {
        dorvik::FileSummary s = Inspect(dir.Path(name));
        EXPECT_FALSE(s.valid) << name;
        return s.problem;
    };
    EXPECT_EQ(Inspect(dir.Path("words.sort")).valid, true);
    WriteAll(dir.Path("words.sort"), Words({1, 0, 2}));  // apple pear fig: out of order
    EXPECT_EQ(problem("words.sort"), "the words are out of order at position 2");
    WriteAll(dir.Path("words.sort"), Words({1, 1, 2}));
    EXPECT_EQ(problem("words.sort"), "no permutation of the word ids (id 1)");
    WriteAll(dir.Path("words.sort"), Words({1, 2}));
    EXPECT_EQ(problem("words.sort"), "2 ids for 3 words");
    WriteAll(dir.Path("words.sort"), sorted);

    WriteAll(dir.Path("words.freq"), Words({5, 1, 1, 7}));
    EXPECT_EQ(problem("words.freq"), "4 frequencies for 3 words");
    WriteAll(dir.Path("words.freq"), Words({5, 1}));  // fewer: those forms are never chosen
    EXPECT_TRUE(Inspect(dir.Path("words.freq")).valid);

    // An index over more words than the dictionary has, and one with a cut bit set.
    {
        dorvik::Dictionary more(dir.Path("more.bin"), {.truncate = true});
        for (const char* w : {"a", "b", "c", "d", "e"}) more.add(w);
    }
    std::filesystem::copy_file(dir.Path("more.wild"), dir.Path("words.wild"),
                               std::filesystem::copy_options::overwrite_existing);
    EXPECT_EQ(problem("words.wild"), "speaks of word 4 of a dictionary of 3 words");
    WriteAll(dir.Path("words.wild"),
             RecordFileImage({RecordFileImage({Hex("01 ff 02")})}));  // a run cut short
    EXPECT_NE(problem("words.wild").find("no wildcard index"), std::string::npos);
    wild.resize(wild.size() - 1);
    WriteAll(dir.Path("words.wild"), wild);
    EXPECT_EQ(problem("words.wild"), "no record file");

    // A table whose entries fall is no record file to a strict reader.
    WriteAll(dir.Path("falling.bin"), Cat({B("abcd"), Words({0, 3, 2, 4})}));
    EXPECT_EQ(Inspect(dir.Path("falling.bin")).kind, FileKind::unknown);
    EXPECT_FALSE(Inspect(dir.Path("falling.bin")).valid);
}
