#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <vector>

#include "Dorvik01.h"
#include "TestUtil.h"

namespace {
// Nodes 0..n-1 on the given levels (-1: a number on no level).
void Build(CHierarchy& h, const std::vector<int>& levels) {
    for (int node = 0; node < static_cast<int>(levels.size()); ++node)
        if (levels[node] >= 0) h.SetNodeLevel(node, levels[node], false);
}

// Two trees: 0 a, 1 a/b, 2 a/b/c, 3 a/b/d, 4 a/e, 5 f, 6 f/g.
const std::vector<int> kExample = {0, 1, 2, 2, 1, 0, 1};


// The children in both forms, which must agree; the bit target comes back plain.
std::vector<int> Children(const CHierarchy& h, int node, int mode) {
    CBitArray bits(true);
    int count = h.GetChildrenNodes(node, bits, mode);
    CDWordArray list;
    list.Add(99);  // replaced, not added to
    int listed = h.GetChildrenNodes(node, list, mode);
    std::vector<int> got = SetBits(bits);
    EXPECT_FALSE(bits.IsCompressed());
    EXPECT_EQ(std::vector<int>(list.GetData(), list.GetData() + list.GetSize()), got);
    EXPECT_EQ(listed, list.GetSize());
    EXPECT_EQ(count, static_cast<int>(got.size()));  // each number on one level here
    return got;
}

std::vector<int> Path(const CHierarchy& h, int node, bool relative) {
    int* path = nullptr;
    int n = relative ? h.GetNodePath(node, path) : h.GetNodeAbsPath(node, path);
    std::vector<int> out(path, path + n);
    delete[] path;
    return out;
}

std::vector<int> Scope(const CHierarchy& h, int node) {
    CBitArray scope(true);
    h.GetNodeScope(node, scope);
    return SetBits(scope);
}
}  // namespace

TEST(Hierarchy, NavigatesTheExampleTree) {
    CHierarchy h;
    Build(h, kExample);
    EXPECT_EQ(h.GetNodeCount(), 7);
    EXPECT_EQ(h.GetLevelNodeCount(2), 2);
    EXPECT_EQ(h.GetLevelNodeCount(3), 0);
    EXPECT_EQ(h.GetNodeLevel(7), -1);
    struct {
        int parent, root, brother, lastChild, children, index;
        bool leaf;
    } nodes[] = {{-1, 0, 5, 4, 2, 0, false}, {0, 0, 4, 3, 2, 0, false}, {1, 0, 3, 2, 0, 0, true},
                 {1, 0, -1, 6, 0, 1, true},  {0, 0, 6, 5, 0, 1, true},  {-1, 5, -1, 6, 1, 1, false},
                 {5, 5, -1, 6, 0, 2, true}};
    for (int n = 0; n < 7; ++n) {
        SCOPED_TRACE(n);
        EXPECT_EQ(h.GetNodeParent(n), nodes[n].parent);
        EXPECT_EQ(h.GetNodeRoot(n), nodes[n].root);
        EXPECT_EQ(h.GetNodeBrother(n), nodes[n].brother);
        EXPECT_EQ(h.GetNodeLastChild(n), nodes[n].lastChild);
        EXPECT_EQ(h.GetChildrenCount(n), nodes[n].children);
        EXPECT_EQ(h.GetNodeIndex(n), nodes[n].index);
        EXPECT_EQ(h.IsLeaf(n), nodes[n].leaf);
    }
    EXPECT_TRUE(h.IsLeaf(99));
    EXPECT_EQ(h.GetChildrenCount(-1), 2);
    EXPECT_EQ(Scope(h, 1), (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(Scope(h, 5), (std::vector<int>{5, 6}));
    EXPECT_EQ(Children(h, 0, 0), (std::vector<int>{1, 4}));
    EXPECT_EQ(Children(h, 0, -1), (std::vector<int>{1, 2, 3, 4}));
    EXPECT_EQ(Children(h, -1, 0), (std::vector<int>{0, 5}));
    EXPECT_EQ(Children(h, -1, -1), (std::vector<int>{0, 5}));
    EXPECT_EQ(Children(h, 3, 0), std::vector<int>{});  // on the last level
    EXPECT_EQ(Path(h, 3, false), (std::vector<int>{0, 1, 3}));
    EXPECT_EQ(Path(h, 3, true), (std::vector<int>{0, 0, 1}));
    EXPECT_EQ(Path(h, 6, true), (std::vector<int>{1, 0}));
    int path[] = {0, 0, 1}, nowhere[] = {7, 0};
    EXPECT_EQ(h.GetPathNode(3, path), 3);
    EXPECT_EQ(h.GetPathNode(0, path), -1);
    EXPECT_EQ(h.GetChildrenCount(0, path), 2);  // the roots
    EXPECT_EQ(h.GetChildrenCount(2, path), 2);  // of node 1
    EXPECT_EQ(h.GetChildrenCount(2, nowhere), 0);
    EXPECT_EQ(h.GetIndexNode(2, 1), 6);
    EXPECT_EQ(h.GetIndexNode(3, 1), -1);
    EXPECT_EQ(h.GetLevelCount(), 3);  // no read above created a level
}

TEST(Hierarchy, NonNodesEmptyTreesAndSkippedLevels) {
    CHierarchy empty;
    EXPECT_EQ(empty.GetNodeCount(), 0);
    EXPECT_EQ(Children(empty, -1, 0), std::vector<int>{});
    CHierarchy h;
    Build(h, {0, 1, -1, 1});  // 2 lies on no level
    for (int node : {2, 9, -5}) {
        SCOPED_TRACE(node);
        EXPECT_EQ(h.GetNodeRoot(node), -1);
        EXPECT_EQ(h.GetNodeLastChild(node), -1);
        EXPECT_EQ(Scope(h, node), std::vector<int>{});
        EXPECT_EQ(h.GetChildrenCount(node), 0);
        EXPECT_EQ(Children(h, node, -1), std::vector<int>{});
        EXPECT_EQ(Path(h, node, true), std::vector<int>{});
    }
    EXPECT_EQ(h.GetChildrenCount(0), 1);  // the walk ends at a number on no level
    h.SetNodeLevel(-1, 0, false);
    h.SetNodeLevel(4, -1, false);
    EXPECT_EQ(h.GetNodeCount(), 4);
    EXPECT_EQ(h.GetLevelCount(), 2);
    CHierarchy skip;
    Build(skip, {0, 2});
    EXPECT_EQ(Path(skip, 1, true), (std::vector<int>{0, 0, 0}));
    EXPECT_EQ(Path(skip, 1, false), (std::vector<int>{-1, -1, 1}));  // no node on level 1
    // All descendants are listed, also those past the end of the level below the
    // node: level 1 ends at bit 7 here, the grandchildren run on to 20.
    CHierarchy wide;
    std::vector<int> levels(21, 2), all;
    levels[0] = 0;
    levels[1] = 1;
    Build(wide, levels);
    for (int i = 1; i <= 20; ++i) all.push_back(i);
    EXPECT_EQ(Children(wide, 0, -1), all);
}

TEST(Hierarchy, NodeCountFollowsChangesAndLoads) {
    TempDir dir;
    CHierarchy h;
    Build(h, kExample);
    EXPECT_EQ(h.GetNodeCount(), 7);
    h.SetNodeLevel(3, 1, true);  // a move below the count keeps it
    EXPECT_EQ(h.GetNodeLevel(3), 1);
    EXPECT_EQ(h.GetLevelNodeCount(2), 1);
    h.SetNodeLevel(9, 0, false);
    EXPECT_EQ(h.GetNodeCount(), 10);
    h.SetNodeLevel(9, 2, false);  // on two levels now: the lower one counts
    EXPECT_EQ(h.GetNodeLevel(9), 0);
    h.GetAt(0)->ResetAt(9);
    h.GetAt(2)->ResetAt(9);
    h.m_nNodeCount = -1;  // after writing through GetAt
    EXPECT_EQ(h.GetNodeCount(), 7);
    h.Save(dir.Path("tree").c_str(), opCopy, false, false, nullptr);
    {
        CBitsBinFile f(dir.Path("tree").c_str(), CFile::modeRead);
        ASSERT_EQ(f.GetRecordCount(), 3);  // one record per level
        EXPECT_EQ(Row(f, 1), (Set{1, 3, 4, 6}));
    }
    h.RemoveAll();
    EXPECT_EQ(h.GetNodeCount(), 0);
    h.SetNodeLevel(40, 0, false);
    EXPECT_EQ(h.GetNodeCount(), 41);
    h.Init(dir.Path("tree").c_str(), nullptr);
    EXPECT_EQ(h.GetNodeCount(), 7);
    EXPECT_EQ(Path(h, 3, true), (std::vector<int>{0, 1}));
}

namespace {
// The rules read plainly, one number at a time, over a list of levels (-1: none).
struct Model {
    std::vector<int> level;

    int Level(int n) const { return n >= 0 && n < static_cast<int>(level.size()) ? level[n] : -1; }
    int Count() const {
        int n = static_cast<int>(level.size());
        while (n > 0 && level[n - 1] < 0) --n;
        return n;
    }
    int Rank(int n) const { return static_cast<int>(std::count(&level[0], &level[n], level[n])); }
    int Parent(int n) const {
        for (int m = n - 1; m >= 0 && level[n] > 0; --m)
            if (level[m] == level[n] - 1) return m;
        return -1;
    }
    int Brother(int n) const {
        for (int m = n + 1; m < Count(); ++m)
            if (level[m] == level[n]) return m;
        return -1;
    }
    std::vector<int> Children(int n, int mode) const {
        std::vector<int> out;
        int lv = Level(n);
        if (n == -1)  // the roots
            for (int m = 0; m < Count(); ++m)
                if (level[m] == 0) out.push_back(m);
        for (int m = n + 1; n != -1 && m < Count() && level[m] != lv; ++m) {
            if (mode != -1 && level[m] <= lv) break;
            if (mode == -1 ? level[m] > lv : level[m] == lv + 1) out.push_back(m);
        }
        return out;
    }
};

// A random forest in depth-first order; with `skips`, some nodes stand more than one
// level below the node before and some numbers stay on no level.
Model RandomTree(std::mt19937& rng, int size, bool skips) {
    Model m;
    int depth = -1;
    for (int n = 0; n < size; ++n) {
        auto pick = rng() % 10;
        int next = static_cast<int>(rng() % static_cast<unsigned>(depth + 2));
        if (skips && pick == 1) next = depth + 2 + static_cast<int>(rng() % 2);
        if (skips && pick == 0) next = -1;
        m.level.push_back(next);
        if (next >= 0) depth = next;
    }
    return m;
}
}  // namespace

TEST(Hierarchy, MatchesAPlainModelOnRandomTrees) {
    std::mt19937 rng(12);
    for (int round = 0; round < 60; ++round) {
        bool skips = round % 2 == 1;
        Model m = RandomTree(rng, 1 + static_cast<int>(rng() % 300), skips);
        CHierarchy h;
        Build(h, m.level);
        ASSERT_EQ(h.GetNodeCount(), m.Count());
        EXPECT_EQ(Children(h, -1, 0), m.Children(-1, 0));
        for (int n = 0; n < m.Count(); ++n) {
            SCOPED_TRACE(testing::Message() << "round " << round << " node " << n);
            int lv = m.Level(n);
            ASSERT_EQ(h.GetNodeLevel(n), lv);
            if (lv < 0) continue;
            EXPECT_EQ(h.GetNodeParent(n), m.Parent(n));
            int brother = m.Brother(n);
            EXPECT_EQ(h.GetNodeBrother(n), brother);
            EXPECT_EQ(h.GetNodeLastChild(n), brother != -1 ? brother - 1 : m.Count() - 1);
            EXPECT_EQ(h.GetNodeIndex(n), m.Rank(n));
            EXPECT_EQ(h.GetIndexNode(m.Rank(n), lv), n);
            EXPECT_EQ(h.IsLeaf(n), m.Level(n + 1) <= lv);
            std::vector<int> direct = m.Children(n, 0);
            EXPECT_EQ(Children(h, n, 0), direct);
            EXPECT_EQ(h.GetChildrenCount(n), static_cast<int>(direct.size()));
            EXPECT_EQ(Children(h, n, -1), m.Children(n, -1));
            std::vector<int> abs = Path(h, n, false), rel = Path(h, n, true);
            ASSERT_EQ(abs.size(), static_cast<std::size_t>(lv + 1));
            ASSERT_EQ(rel.size(), abs.size());
            if (skips) continue;
            // A true forest: the absolute path is the chain of parents, entry i of the
            // relative path the place of ancestor i among its brothers, and the path
            // leads back to the node.
            EXPECT_EQ(h.GetNodeRoot(n), abs[0]);
            for (int i = 0; i <= lv; ++i) {
                EXPECT_EQ(m.Parent(abs[i]), i == 0 ? -1 : abs[i - 1]);
                std::vector<int> brothers = m.Children(i == 0 ? -1 : abs[i - 1], 0);
                EXPECT_EQ(brothers[rel[i]], abs[i]);
            }
            EXPECT_EQ(h.GetPathNode(lv + 1, rel.data()), n);
        }
    }
}
