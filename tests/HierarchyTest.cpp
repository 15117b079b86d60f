#include <gtest/gtest.h>

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

std::vector<int> Bits(const CBitArray& a) {
    std::set<int> bits = SetOf(a);
    return std::vector<int>(bits.begin(), bits.end());
}

std::vector<int> Children(const CHierarchy& h, int node, int mode) {
    CBitArray bits;
    int count = h.GetChildrenNodes(node, bits, mode);
    CDWordArray list;
    list.Add(99);  // replaced, not added to
    int listed = h.GetChildrenNodes(node, list, mode);
    EXPECT_EQ(listed, list.GetSize());
    std::vector<int> got = Bits(bits);
    EXPECT_EQ(std::vector<int>(list.GetData(), list.GetData() + list.GetSize()), got);
    EXPECT_EQ(count, static_cast<int>(got.size()));  // each number on one level here
    return got;
}

std::vector<int> AbsPath(const CHierarchy& h, int node) {
    int* path = nullptr;
    int n = h.GetNodeAbsPath(node, path);
    std::vector<int> out(path, path + n);
    delete[] path;
    return out;
}

std::vector<int> RelPath(const CHierarchy& h, int node) {
    int* path = nullptr;
    int n = h.GetNodePath(node, path);
    std::vector<int> out(path, path + n);
    delete[] path;
    return out;
}

std::vector<int> Scope(const CHierarchy& h, int node) {
    CBitArray scope(true);  // comes back plain
    h.GetNodeScope(node, scope);
    EXPECT_FALSE(scope.IsCompressed());
    return Bits(scope);
}
}  // namespace

TEST(Hierarchy, NavigatesTheExampleTree) {
    CHierarchy h;
    Build(h, kExample);
    EXPECT_EQ(h.GetNodeCount(), 7);
    EXPECT_EQ(h.GetLevelCount(), 3);
    EXPECT_EQ(h.GetLevelNodeCount(2), 2);
    EXPECT_EQ(h.GetLevelNodeCount(3), 0);
    EXPECT_EQ(h.GetNodeLevel(7), -1);
    EXPECT_EQ(h.GetNodeParent(3), 1);
    EXPECT_EQ(h.GetNodeParent(4), 0);
    EXPECT_EQ(h.GetNodeParent(5), -1);
    EXPECT_EQ(h.GetNodeRoot(3), 0);
    EXPECT_EQ(h.GetNodeRoot(6), 5);
    EXPECT_EQ(h.GetNodeBrother(1), 4);
    EXPECT_EQ(h.GetNodeBrother(4), 6);  // under another parent
    EXPECT_EQ(h.GetNodeBrother(6), -1);
    EXPECT_EQ(h.GetNodeLastChild(0), 4);
    EXPECT_EQ(h.GetNodeLastChild(5), 6);
    EXPECT_EQ(h.GetNodeLastChild(4), 5);  // no descendant of 4
    EXPECT_EQ(Scope(h, 1), (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(Scope(h, 5), (std::vector<int>{5, 6}));
    EXPECT_EQ(h.GetChildrenCount(-1), 2);
    EXPECT_EQ(h.GetChildrenCount(0), 2);
    EXPECT_EQ(h.GetChildrenCount(1), 2);
    EXPECT_EQ(h.GetChildrenCount(2), 0);
    EXPECT_EQ(Children(h, 0, 0), (std::vector<int>{1, 4}));
    EXPECT_EQ(Children(h, 0, -1), (std::vector<int>{1, 2, 3, 4}));
    EXPECT_EQ(Children(h, -1, 0), (std::vector<int>{0, 5}));
    EXPECT_EQ(Children(h, -1, -1), (std::vector<int>{0, 5}));
    EXPECT_EQ(Children(h, 3, 0), std::vector<int>{});  // on the last level
    EXPECT_FALSE(h.IsLeaf(1));
    for (int leaf : {3, 4, 6, 99}) EXPECT_TRUE(h.IsLeaf(leaf)) << leaf;
    EXPECT_EQ(AbsPath(h, 3), (std::vector<int>{0, 1, 3}));
    EXPECT_EQ(RelPath(h, 3), (std::vector<int>{0, 0, 1}));
    EXPECT_EQ(RelPath(h, 6), (std::vector<int>{1, 0}));
    int path[] = {0, 0, 1};
    EXPECT_EQ(h.GetPathNode(3, path), 3);
    EXPECT_EQ(h.GetPathNode(0, path), -1);
    EXPECT_EQ(h.GetChildrenCount(0, path), 2);  // the roots
    EXPECT_EQ(h.GetChildrenCount(2, path), 2);  // of node 1
    int nowhere[] = {7, 0};
    EXPECT_EQ(h.GetChildrenCount(2, nowhere), 0);
    EXPECT_EQ(h.GetNodeIndex(6), 2);
    EXPECT_EQ(h.GetIndexNode(2, 1), 6);
    EXPECT_EQ(h.GetIndexNode(3, 1), -1);
    EXPECT_EQ(h.GetLevelCount(), 3);  // no read above created a level
}

TEST(Hierarchy, NonNodesAndEmptyTreesGiveEmptyResults) {
    CHierarchy empty;
    EXPECT_EQ(empty.GetNodeCount(), 0);
    EXPECT_EQ(Children(empty, -1, 0), std::vector<int>{});
    CHierarchy h;
    Build(h, {0, 1, -1, 1});  // 2 lies on no level
    for (int node : {2, 9, -5}) {
        EXPECT_EQ(h.GetNodeParent(node), -1);
        EXPECT_EQ(h.GetNodeRoot(node), -1);
        EXPECT_EQ(h.GetNodeBrother(node), -1);
        EXPECT_EQ(h.GetNodeLastChild(node), -1);
        EXPECT_EQ(Scope(h, node), std::vector<int>{});
        EXPECT_EQ(h.GetChildrenCount(node), 0);
        EXPECT_EQ(Children(h, node, -1), std::vector<int>{});
        EXPECT_EQ(AbsPath(h, node), std::vector<int>{});
        EXPECT_EQ(RelPath(h, node), std::vector<int>{});
        EXPECT_EQ(h.GetNodeIndex(node), -1);
    }
    EXPECT_EQ(h.GetChildrenCount(0), 1);  // the walk ends at a number on no level
    EXPECT_EQ(h.GetNodeCount(), 4);
    EXPECT_EQ(h.GetIndexNode(0, 7), -1);
    EXPECT_EQ(h.GetLevelCount(), 2);
    h.SetNodeLevel(-1, 0, false);
    h.SetNodeLevel(4, -1, false);
    EXPECT_EQ(h.GetNodeCount(), 4);
}

TEST(Hierarchy, SkippedLevelsFollowTheirRules) {
    CHierarchy h;
    Build(h, {0, 2});
    EXPECT_EQ(RelPath(h, 1), (std::vector<int>{0, 0, 0}));
    EXPECT_EQ(AbsPath(h, 1), (std::vector<int>{-1, -1, 1}));  // no node on level 1
    EXPECT_EQ(h.GetChildrenCount(0), 0);
    EXPECT_FALSE(h.IsLeaf(0));
    EXPECT_EQ(Children(h, 0, -1), (std::vector<int>{1}));
    // All descendants are listed, also those past the end of the level below the
    // node: level 1 ends at bit 7 here, the grandchildren run on to 20.
    CHierarchy wide;
    std::vector<int> levels(21, 2);
    levels[0] = 0;
    levels[1] = 1;
    Build(wide, levels);
    std::vector<int> all(20);
    for (int i = 0; i < 20; ++i) all[i] = i + 1;
    EXPECT_EQ(Children(wide, 0, -1), all);
    EXPECT_EQ(wide.GetChildrenCount(1), 19);
}

TEST(Hierarchy, NodeCountFollowsChanges) {
    CHierarchy h;
    Build(h, kExample);
    EXPECT_EQ(h.GetNodeCount(), 7);
    h.SetNodeLevel(3, 1, true);  // a move below the count keeps it
    EXPECT_EQ(h.GetNodeLevel(3), 1);
    EXPECT_EQ(h.GetLevelNodeCount(2), 1);
    EXPECT_EQ(h.GetNodeCount(), 7);
    h.SetNodeLevel(9, 0, false);
    EXPECT_EQ(h.GetNodeCount(), 10);
    h.SetNodeLevel(9, 2, false);  // on two levels now: the lower one counts
    EXPECT_EQ(h.GetNodeLevel(9), 0);
    h.GetAt(0)->ResetAt(9);
    h.GetAt(2)->ResetAt(9);
    h.m_nNodeCount = -1;  // after writing through GetAt
    EXPECT_EQ(h.GetNodeCount(), 7);
    h.RemoveAll();
    EXPECT_EQ(h.GetNodeCount(), 0);
}

TEST(Hierarchy, SavesOneRecordPerLevel) {
    TempDir dir;
    CHierarchy h;
    Build(h, kExample);
    h.Save(dir.Path("tree").c_str(), opCopy, false, false, nullptr);
    {
        CBitsBinFile f(dir.Path("tree").c_str(), CFile::modeRead);
        ASSERT_EQ(f.GetRecordCount(), 3);
        CBitArray level;
        f.GetRecord(1, level, -1);
        EXPECT_EQ(Bits(level), (std::vector<int>{1, 4, 6}));
    }
    CHierarchy back;
    back.SetNodeLevel(40, 0, false);
    EXPECT_EQ(back.GetNodeCount(), 41);
    back.Init(dir.Path("tree").c_str(), nullptr);
    EXPECT_EQ(back.GetNodeCount(), 7);
    EXPECT_EQ(RelPath(back, 3), (std::vector<int>{0, 0, 1}));
}

namespace {
// The rules read plainly, one number at a time, over a list of levels.
struct Model {
    std::vector<int> level;
    int levels = 0;

    int Level(int n) const { return n >= 0 && n < static_cast<int>(level.size()) ? level[n] : -1; }
    int Count() const {
        int n = static_cast<int>(level.size());
        while (n > 0 && level[n - 1] < 0) --n;
        return n;
    }
    int Rank(int lv, int n) const {  // nearest at or below n on lv
        int r = -1;
        for (int m = 0; m <= n && m < Count(); ++m) r += level[m] == lv;
        return r;
    }
    int Select(int lv, int index) const {
        for (int m = 0; m < Count(); ++m)
            if (level[m] == lv && index-- == 0) return m;
        return -1;
    }
    int Parent(int n) const {
        int lv = Level(n);
        if (lv <= 0) return -1;
        for (int m = n - 1; m >= 0; --m)
            if (level[m] == lv - 1) return m;
        return -1;
    }
    int Brother(int n) const {
        for (int m = n + 1; m < Count(); ++m)
            if (level[m] == level[n]) return m;
        return -1;
    }
    std::vector<int> Children(int n, int mode) const {
        std::vector<int> out;
        if (n == -1) {
            for (int m = 0; m < Count(); ++m)
                if (level[m] == 0) out.push_back(m);
            return out;
        }
        int lv = level[n];
        for (int m = n + 1; m < Count() && level[m] != lv; ++m) {
            if (mode != -1 && level[m] <= lv) break;
            if (mode == -1 ? level[m] > lv : level[m] == lv + 1) out.push_back(m);
        }
        return out;
    }
    int PathNode(const std::vector<int>& path) const {
        int node = Select(0, path[0]);
        for (std::size_t i = 1; i < path.size() && node != -1; ++i)
            node = Select(static_cast<int>(i), Rank(static_cast<int>(i), node) + 1 + path[i]);
        return node;
    }
    std::vector<int> NodePath(int n) const {
        int lv = level[n];
        std::vector<int> out(lv + 1);
        int cursor = n;
        for (int i = 0; i <= lv; ++i) {
            int rank = Rank(i, n);
            out[i] = i == 0 ? rank : rank - Rank(i, cursor);
            cursor = std::min(Select(i, rank) + 1, n);
            while (i < lv && Level(cursor) != i + 1) out[++i] = 0;
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
        int pick = static_cast<int>(rng() % 10);
        if (skips && pick == 0) {
            m.level.push_back(-1);
            continue;
        }
        int next = static_cast<int>(rng() % static_cast<unsigned>(depth + 2));
        if (skips && pick == 1) next = depth + 2 + static_cast<int>(rng() % 2);
        depth = next;
        m.level.push_back(depth);
        m.levels = std::max(m.levels, depth + 1);
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
            int parent = m.Parent(n);
            EXPECT_EQ(h.GetNodeParent(n), parent);
            int brother = m.Brother(n);
            EXPECT_EQ(h.GetNodeBrother(n), brother);
            EXPECT_EQ(h.GetNodeLastChild(n), brother != -1 ? brother - 1 : m.Count() - 1);
            EXPECT_EQ(h.GetNodeIndex(n), m.Rank(lv, n));
            EXPECT_EQ(h.GetIndexNode(m.Rank(lv, n), lv), n);
            EXPECT_EQ(h.IsLeaf(n), m.Level(n + 1) <= lv);
            std::vector<int> direct = m.Children(n, 0);
            EXPECT_EQ(Children(h, n, 0), direct);
            EXPECT_EQ(h.GetChildrenCount(n), static_cast<int>(direct.size()));
            EXPECT_EQ(Children(h, n, -1), m.Children(n, -1));
            std::vector<int> rel = m.NodePath(n);
            EXPECT_EQ(RelPath(h, n), rel);
            EXPECT_EQ(h.GetPathNode(static_cast<int>(rel.size()), rel.data()), m.PathNode(rel));
            std::vector<int> abs = AbsPath(h, n);
            ASSERT_EQ(abs.size(), static_cast<std::size_t>(lv + 1));
            if (skips) continue;
            // Without skipped levels the numbers are a true forest: the paths lead back,
            // the absolute path is the chain of parents, and the descendants of a node
            // are the nodes of its subtree.
            EXPECT_EQ(h.GetPathNode(static_cast<int>(rel.size()), rel.data()), n);
            EXPECT_EQ(h.GetNodeRoot(n), abs[0]);
            for (int i = lv; i > 0; --i) EXPECT_EQ(m.Parent(abs[i]), abs[i - 1]);
            std::vector<int> subtree;
            for (int d = n + 1; d < m.Count() && m.level[d] > lv; ++d) subtree.push_back(d);
            EXPECT_EQ(Children(h, n, -1), subtree);
        }
    }
}
