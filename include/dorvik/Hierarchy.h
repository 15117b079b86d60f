// CHierarchy: a forest stored as nothing but bit arrays, one per depth.
//
// Nodes are numbered 0, 1, 2, ... depth first: a node comes before its children, and a
// child's whole subtree before the next child, so the descendants of a node follow it
// in one run of numbers. A node n at depth L is bit n of level L (element L of the
// array); depth 0 holds the roots, of which there may be several. Nothing else is
// stored: the index of a node is its rank in its level, its parent the nearest node
// below it one level up. Because node numbers are bit numbers, a subtree is a range
// of bits (GetNodeScope) that combines with any other bit array.
//
// Example, two trees of 7 nodes: 0 a, 1 a/b, 2 a/b/c, 3 a/b/d, 4 a/e, 5 f, 6 f/g.
// Level 0 holds bits 0 and 5, level 1 bits 1, 4 and 6, level 2 bits 2 and 3.
//
// A node may stand two or more levels below the node before it (a skipped level); the
// operations then apply their rules unchanged, and only GetNodePath knows the case.
//
// Paths. An absolute path lists the node numbers of the ancestors from depth 0 down to
// the node itself (node 3: 0, 1, 3). A relative path lists, for each depth, the index
// of the ancestor among the children of the ancestor above, entry 0 being its index
// among the roots (node 3: 0, 0, 1).
//
// -1 stands for no node; as the node of GetChildrenCount and GetChildrenNodes it is
// the place above the roots, whose children are the roots.
//
// Decisions:
// - A number that is no node of the tree (it has no level, or it is negative), where
//   a node is expected, gives -1, 0, an empty target or a null path; it never creates
//   a level.
// - Reading never creates a level: a level at or past GetLevelCount reads as empty.
//   Only SetNodeLevel adds levels, so GetLevelCount and a saved file change only there.
// - The levels are plain (uncompressed) bit arrays; leave m_bCompressed false.
// - Targets (CBitArray) come back uncompressed, whatever their flag was.
//
// Save and load are those of CBitArrayArray: a bit record file with one record per
// level. Cost: about one bit per node and level. GetNodeLevel tests one bit per level;
// the walks over a subtree go 64 numbers at a time through every level; ranks go
// through the rank index of CBitArray, which the first rank look-up after a change
// builds in one pass over the level.
//
// Not safe for concurrent use, not even by readers: reading fills the cached node
// count and the rank indexes of the levels.
#pragma once

#include "Arrays.h"
#include "BitArray.h"
#include "Collections.h"

namespace dorvik::classic {
class DORVIK_API CHierarchy : public CBitArrayArray {
public:
    // An empty tree: no levels, node count unknown.
    CHierarchy();
    ~CHierarchy() override;

    // Loading and emptying as in CBitArrayArray; they also forget the cached node count.
    void Init(const char* path, Progress progress);
    void Init(CBitsBinFile* file, Progress progress);
    void RemoveAll();

    // The number of levels (the array's size).
    int GetLevelCount() const { return GetSize(); }
    // The number of nodes on `level`; 0 for a level at or past GetLevelCount.
    int GetLevelNodeCount(int level) const;
    // The lowest level that holds `node`; -1 for none. Any number is taken.
    int GetNodeLevel(int node) const;
    // Puts `node` on `level`, creating the level when needed. With `clear` the node
    // first leaves the level it is on (GetNodeLevel); without, a node already on a
    // level ends up on two, and GetNodeLevel then reports the lower one. A tree is
    // built by one call per node, in number order. A negative node or level does
    // nothing. Forgets the cached node count when `node` is at or above it.
    void SetNodeLevel(int node, int level, bool clear);

    // The parent: the nearest node below `node` on the level above. -1 for a root, or
    // when the level above has no node below it.
    int GetNodeParent(int node) const;
    // The ancestor on level 0: GetNodeParent applied as often as the node's level
    // (-1 once a step finds no parent).
    int GetNodeRoot(int node) const;
    // The next node on the same level, whatever its parent; -1 for the last one.
    int GetNodeBrother(int node) const;
    // The end of the node's scope: its brother minus 1, or GetNodeCount() - 1 when it
    // has none. This number need not be a descendant (in the example, 5 for node 4).
    int GetNodeLastChild(int node) const;
    // Empties `scope`, then sets the bits from `node` to GetNodeLastChild(node).
    void GetNodeScope(int node, CBitArray& scope) const;
    // The rank of `node` on its level; -1 when it has no level. Any number is taken.
    int GetNodeIndex(int node) const;
    // The node of rank `index` on `level`; -1 when there is none.
    int GetIndexNode(int index, int level) const;
    // False when the next number is a child of `node` (lies one level deeper, or
    // deeper still); true otherwise, and for any number that is no node.
    bool IsLeaf(int node) const;
    // The highest node number plus 1 (numbers on no level below it count too); 0 for
    // an empty tree. Cached until SetNodeLevel names a node at or above it, Init or
    // RemoveAll; after writing into a level through GetAt, set m_nNodeCount to -1.
    int GetNodeCount() const;

    // The number of direct children: of the node, or of the place above the roots for
    // -1 (the number of roots). The walk ends at the next node on the node's level or
    // shallower, or at a number on no level.
    int GetChildrenCount(int node) const;
    // GetChildrenCount of GetPathNode(length, path). Length 0: the number of roots. A
    // path of length 1 or more that leads to no node gives 0.
    int GetChildrenCount(int length, int* path) const;
    // Empties `nodes` and sets the children of `node` (-1: the roots) in it. `mode` -1
    // takes all descendants: every number up to GetNodeLastChild that lies on a level
    // below the node's, however deep (the walk always reaches GetNodeCount when the
    // node has no brother). Any other mode takes the direct children, as counted by
    // GetChildrenCount. Returns the number of bits set, counting a number once for
    // each level below the node's that holds it. 0 for a node on the last level.
    int GetChildrenNodes(int node, CBitArray& nodes, int mode) const;
    // The same as a list in rising order, which replaces the content of `nodes`.
    // Returns the size of the list (each number once).
    int GetChildrenNodes(int node, CDWordArray& nodes, int mode) const;

    // The node that a relative path of `length` entries leads to: entry 0 picks a
    // root by index, each further entry a child by index among the children of the
    // node before. -1 for length 0 or less, a null path, or a path that leads past
    // the end of a level or off the tree. Entries are not checked against the
    // children count: an index past the last child runs on into the children of the
    // next node of the level. A path through a skipped level does not lead back to
    // its node.
    int GetPathNode(int length, int* path) const;
    // The absolute path of `node`: returns its length (the node's level + 1) and puts
    // in `path` an array from new[] that the caller releases with delete[]. Each entry
    // is GetNodeParent of the one behind it (-1 past a missing parent). A number that
    // is no node gives 0 and a null `path`. Throws std::bad_alloc.
    int GetNodeAbsPath(int node, int*& path) const;
    // The relative path of `node`, returned as GetNodeAbsPath does. An entry for a
    // skipped level is 0. Throws std::bad_alloc.
    int GetNodePath(int node, int*& path) const;

    // Cached GetNodeCount; -1 while it has to be worked out.
    mutable int m_nNodeCount = -1;

private:
    // Level `level`, or null when it is not there (past the end, or a null slot).
    const CBitArray* Level(int level) const;
    // Whether `node` lies on `level`.
    bool Holds(int level, int node) const;
    // The first number above `node` whose lowest level is `level` or shallower, or
    // that lies on no level: where the walk over the children of a node on `level`
    // ends.
    int WalkEnd(int node, int level) const;
    // What GetChildrenNodes looks at for `node` and `mode`: levels shallowest ..
    // deepest, numbers first .. last. False when that is nothing.
    bool ChildSpan(int node, int mode, int& shallowest, int& deepest, int& first, int& last) const;
};

}  // namespace dorvik::classic

using dorvik::classic::CHierarchy;
