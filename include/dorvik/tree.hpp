// Trees of numbered pieces in namespace dorvik (included by <dorvik/dorvik.hpp>): which
// units of text belong to which file, which paragraphs to which chapter, kept as one
// bit set per depth (the classic CHierarchy, in the same file).
//
// Threads: a Tree belongs to one thread at a time, reads included (a look-up builds and
// caches rank indexes).
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>

namespace dorvik {

// A forest whose nodes are numbered 0, 1, 2, ... depth first: a node comes before its
// children, and a node's whole subtree before its next sibling, so the descendants of a
// node are one run of numbers behind it. Depth 0 holds the roots, of which there may be
// several. Node n at depth d is bit n of level d; nothing else is stored, so a tree costs
// about one bit per node and level, and a set of nodes is a BitSet that combines with
// any other. The index of a node is its rank on its level: with files at depth 0 and
// the units of each file below it at depth 1, unit u is the node of index u on level 1.
//
// Example: files f0 (units 0 and 1) and f1 (unit 2) are nodes 0 f0, 1 u0, 2 u1, 3 f1,
// 4 u2; level 0 holds {0, 3}, level 1 holds {1, 2, 4}.
//
// The file is a bit record file whose record d is level d. Movable, not copyable.
class __attribute__((visibility("default"))) Tree {
public:
    // An empty tree: no nodes, no levels; allocates nothing.
    Tree() noexcept;
    // Loads the tree saved at `path`, whole, into memory: each level as a plain bitmap
    // of (its highest node + 1) / 8 bytes, at most 256 MiB (so a damaged file of many
    // levels can ask for that much per level; `max_levels` bounds that). Throws Error:
    // not_found, invalid_file (no bit record file, more levels than `max_levels`, or a
    // level reaching past bit 2^31 - 1, which only damage gives; checked before
    // anything is expanded), out_of_memory, or the OS failure. A file that was saved
    // from another kind of bit record file loads as whatever forest its bits describe.
    explicit Tree(const std::filesystem::path& path, std::size_t max_levels = SIZE_MAX);
    // Take over the nodes of `other`, which is left empty; assigning drops this tree's.
    Tree(Tree&& other) noexcept;
    Tree& operator=(Tree&& other) noexcept;
    // Releases the nodes; the file is not touched.
    ~Tree();

    // Writes the tree to `path`, replacing what is there (not atomically: a process that
    // dies midway leaves a damaged file). The same tree always gives the same bytes,
    // however it was built. Throws Error for the OS failure.
    void save(const std::filesystem::path& path) const;

    // The number of nodes: the highest node number plus 1.
    std::uint32_t size() const;
    // The number of levels (the depth of the deepest node plus 1); 0 for an empty tree.
    int levels() const;
    // The number of nodes at depth `level`; 0 for a level that does not exist.
    std::size_t count(int level) const;

    // Adds node size() at depth `level` and returns its number: a tree is built node by
    // node in number order. Throws Error(invalid_argument) for a negative level or one
    // more than one below the previous node's depth (levels() for the first node), which
    // would leave the node without a parent; Error(out_of_range) past 2^31 nodes.
    std::uint32_t add(int level);

    // The depth of `node`; empty for a number that is no node.
    std::optional<int> level(std::uint32_t node) const;
    // The index of `node` on its level (its rank there); empty for no node. Cost: the
    // first look-up on a level after a change builds its rank index in one pass.
    std::optional<std::size_t> index(std::uint32_t node) const;
    // The node of index `index` on `level`; empty when the level has no such node.
    // Cost: as index().
    std::optional<std::uint32_t> node(std::size_t index, int level) const;
    // The parent of `node`: the nearest node before it one level up; empty for a root
    // and for a number that is no node.
    std::optional<std::uint32_t> parent(std::uint32_t node) const;
    // The direct children of `node`; empty for a leaf and for a number that is no node.
    // Their indexes on the level below are consecutive numbers. Cost: one pass over the
    // node's subtree, 64 numbers at a time, into a bitmap of (last child + 1) / 8 bytes
    // as for every BitSet: to walk all the nodes of a level, use node() instead.
    BitSet children(std::uint32_t node) const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;  // null for a tree that never had a node
};

}  // namespace dorvik
