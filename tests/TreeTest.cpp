#include <gtest/gtest.h>

#include <vector>

#include "TestUtil.h"
#include "dorvik/dorvik.hpp"

namespace {

using Nodes = std::vector<std::uint32_t>;

Nodes Of(const dorvik::BitSet& set) { return {set.begin(), set.end()}; }

// Files with 2, 0 and 3 units: nodes 0 f0, 1-2 its units, 3 f1, 4 f2, 5-7 its units.
dorvik::Tree Files(std::initializer_list<int> units) {
    dorvik::Tree tree;
    for (int count : units) {
        tree.add(0);
        for (int u = 0; u < count; ++u) tree.add(1);
    }
    return tree;
}

}  // namespace

TEST(Tree, MapsFilesToTheirUnitsThroughLevelsAndRanks) {
    dorvik::Tree tree = Files({2, 0, 3});
    EXPECT_EQ(tree.size(), 8u);
    EXPECT_EQ(tree.levels(), 2);
    EXPECT_EQ(tree.count(0), 3u);
    EXPECT_EQ(tree.count(1), 5u);
    EXPECT_EQ(tree.count(2), 0u);

    EXPECT_EQ(tree.node(2, 0), 4u);  // the third file
    EXPECT_EQ(Of(tree.children(4)), (Nodes{5, 6, 7}));
    EXPECT_EQ(tree.index(5), 2u);              // its first unit is unit 2
    EXPECT_EQ(Of(tree.children(3)), Nodes{});  // a file without units
    EXPECT_EQ(Of(tree.children(1)), Nodes{});  // a unit
    EXPECT_EQ(tree.parent(7), 4u);
    EXPECT_EQ(tree.parent(3), std::nullopt);
    EXPECT_EQ(tree.level(6), 1);

    // Numbers that are no node, on either side.
    EXPECT_EQ(tree.level(8), std::nullopt);
    EXPECT_EQ(tree.index(0x80000000u), std::nullopt);
    EXPECT_EQ(tree.node(5, 1), std::nullopt);
    EXPECT_EQ(tree.node(0, 7), std::nullopt);
    EXPECT_EQ(Of(tree.children(100)), Nodes{});
    EXPECT_EQ(tree.parent(100), std::nullopt);

    dorvik::Tree empty;
    EXPECT_EQ(empty.size(), 0u);
    EXPECT_EQ(empty.levels(), 0);
    EXPECT_EQ(empty.level(0), std::nullopt);
    EXPECT_EQ(empty.node(0, 0), std::nullopt);
    dorvik::Tree moved = std::move(tree);
    EXPECT_EQ(moved.size(), 8u);
}

TEST(Tree, RefusesANodeWithoutAParent) {
    dorvik::Tree tree;
    EXPECT_THROW(tree.add(1), dorvik::Error);  // the first node is a root
    tree.add(0);
    tree.add(1);
    try {
        tree.add(3);
        FAIL() << "a node two levels below the one before";
    } catch (const dorvik::Error& e) {
        EXPECT_EQ(e.code(), dorvik::ErrorCode::invalid_argument);
    }
    EXPECT_THROW(tree.add(-1), dorvik::Error);
    EXPECT_EQ(tree.size(), 2u);  // refused nodes leave nothing
    EXPECT_EQ(tree.add(2), 2u);
}

TEST(Tree, SavesTheSameBytesHoweverItGrewAndLoadsThemBack) {
    TempDir dir;
    Files({2, 0, 3}).save(dir.Path("whole.bin"));
    // Half, saved and loaded, then the rest.
    Files({2}).save(dir.Path("half.bin"));
    dorvik::Tree grown(dir.Path("half.bin"));
    grown.add(0);
    grown.add(0);
    for (int u = 0; u < 3; ++u) grown.add(1);
    grown.save(dir.Path("grown.bin"));
    EXPECT_TRUE(ReadAll(dir.Path("grown.bin")) == ReadAll(dir.Path("whole.bin")));

    dorvik::Tree loaded(dir.Path("whole.bin"));
    EXPECT_EQ(loaded.size(), 8u);
    EXPECT_EQ(Of(loaded.children(0)), (Nodes{1, 2}));
    EXPECT_THROW(loaded.add(3), dorvik::Error);  // the depth of the last node is known

    dorvik::Tree().save(dir.Path("empty.bin"));
    EXPECT_EQ(dorvik::Tree(dir.Path("empty.bin")).size(), 0u);
}

TEST(Tree, RefusesMissingAndDamagedFiles) {
    TempDir dir;
    auto codeOf = [&](const std::string& name) {
        try {
            dorvik::Tree tree(dir.Path(name));
        } catch (const dorvik::Error& e) {
            EXPECT_EQ(e.path(), dir.Path(name));
            return e.code();
        }
        return dorvik::ErrorCode::closed;  // stands for "no error"
    };
    EXPECT_EQ(codeOf("none.bin"), dorvik::ErrorCode::not_found);
    WriteAll(dir.Path("garbage.bin"), B("not a bit record file at all"));
    EXPECT_EQ(codeOf("garbage.bin"), dorvik::ErrorCode::invalid_file);
    // A level of a few kilobytes whose compressed form would expand past bit 2^31 - 1.
    Bytes huge{1};
    for (int i = 0; i < 4200; ++i) huge.insert(huge.end(), {0x00, 0xFF, 0xFF});
    huge.push_back(0x07);
    WriteAll(dir.Path("huge.bin"), RecordFileImage({Bytes{0x01, 0x01}, huge}));
    EXPECT_EQ(codeOf("huge.bin"), dorvik::ErrorCode::invalid_file);

    // Levels past the bound a reader sets are refused before any is expanded.
    WriteAll(dir.Path("deep.bin"),
             RecordFileImage({Bytes{0x01, 0x01}, Bytes{0x01, 0x02}, Bytes{0x01, 0x04}}));
    EXPECT_EQ(dorvik::Tree(dir.Path("deep.bin")).levels(), 3);
    try {
        dorvik::Tree tree(dir.Path("deep.bin"), 2);
        ADD_FAILURE() << "three levels loaded under a bound of two";
    } catch (const dorvik::Error& e) {
        EXPECT_EQ(e.code(), dorvik::ErrorCode::invalid_file);
        EXPECT_EQ(e.path(), dir.Path("deep.bin"));
    }
}
