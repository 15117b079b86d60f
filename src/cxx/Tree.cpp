#include <string>

#include "cxx/Boundary.h"
#include "dorvik/Hierarchy.h"

namespace dorvik {

using cxx::Guard;

struct Tree::Impl {
    CHierarchy tree;
    int lastLevel = -1;  // the depth of the highest node; -1 for an empty tree
};

namespace {

// `node` as the engine's int; numbers past the last node are no node either, and an
// empty (moved-from) tree has none.
std::optional<int> NodeNumber(const CHierarchy* tree, std::uint32_t node) {
    if (!tree || node > BitSet::max_bit || static_cast<int>(node) >= tree->GetNodeCount())
        return std::nullopt;
    return static_cast<int>(node);
}

}  // namespace

Tree::Tree() noexcept = default;

Tree::Tree(const std::filesystem::path& path, std::size_t max_levels)
    : impl_(std::make_unique<Impl>()) {
    CBitsBinFile file;
    cxx::OpenRecordFile(file, path, OpenOptions{.read_only = true});
    Guard(path, [&] {
        int levels = file.GetRecordCount();
        if (static_cast<std::size_t>(levels) > max_levels)
            throw cxx::MakeError(ErrorCode::invalid_file,
                                 "more levels than " + std::to_string(max_levels), path);
        for (int level = 0; level < levels; ++level)
            *impl_->tree.GetAt(level) = cxx::ReadStoredSet(file, level, path);
        impl_->tree.m_nNodeCount = -1;
        int count = impl_->tree.GetNodeCount();
        impl_->lastLevel = count > 0 ? impl_->tree.GetNodeLevel(count - 1) : -1;
        file.Close();
    });
}

Tree::Tree(Tree&& other) noexcept = default;
Tree& Tree::operator=(Tree&& other) noexcept = default;

Tree::~Tree() = default;

void Tree::save(const std::filesystem::path& path) const {
    Guard(path, [&] {
        // The file stores each level's compressed form, which does not depend on how
        // the plain array in memory grew; an empty tree is a file without records.
        CHierarchy none;
        (impl_ ? impl_->tree : none).Save(path.c_str(), opCopy, false, false, nullptr);
    });
}

std::uint32_t Tree::size() const {
    if (!impl_) return 0;
    return static_cast<std::uint32_t>(Guard({}, [&] { return impl_->tree.GetNodeCount(); }));
}

int Tree::levels() const { return impl_ ? impl_->tree.GetLevelCount() : 0; }

std::size_t Tree::count(int level) const {
    if (!impl_) return 0;
    return static_cast<std::size_t>(
        Guard({}, [&] { return impl_->tree.GetLevelNodeCount(level); }));
}

std::uint32_t Tree::add(int level) {
    if (!impl_) impl_ = Guard({}, [] { return std::make_unique<Impl>(); });
    if (level < 0 || level > impl_->lastLevel + 1)
        throw cxx::MakeError(ErrorCode::invalid_argument, "level " + std::to_string(level) +
                                                              " after a node at level " +
                                                              std::to_string(impl_->lastLevel));
    std::uint32_t node = size();
    if (node > BitSet::max_bit)
        throw cxx::MakeError(ErrorCode::out_of_range, "node " + std::to_string(node));
    Guard({}, [&] { impl_->tree.SetNodeLevel(static_cast<int>(node), level, false); });
    impl_->lastLevel = level;
    return node;
}

std::optional<int> Tree::level(std::uint32_t node) const {
    std::optional<int> n = NodeNumber(impl_ ? &impl_->tree : nullptr, node);
    if (!n) return std::nullopt;
    int depth = impl_->tree.GetNodeLevel(*n);
    if (depth < 0) return std::nullopt;
    return depth;
}

std::optional<std::size_t> Tree::index(std::uint32_t node) const {
    std::optional<int> n = NodeNumber(impl_ ? &impl_->tree : nullptr, node);
    if (!n) return std::nullopt;
    int rank = Guard({}, [&] { return impl_->tree.GetNodeIndex(*n); });
    if (rank < 0) return std::nullopt;
    return static_cast<std::size_t>(rank);
}

std::optional<std::uint32_t> Tree::node(std::size_t index, int level) const {
    if (!impl_ || index > BitSet::max_bit) return std::nullopt;
    int n = Guard({}, [&] { return impl_->tree.GetIndexNode(static_cast<int>(index), level); });
    if (n < 0) return std::nullopt;
    return static_cast<std::uint32_t>(n);
}

std::optional<std::uint32_t> Tree::parent(std::uint32_t node) const {
    std::optional<int> n = NodeNumber(impl_ ? &impl_->tree : nullptr, node);
    if (!n) return std::nullopt;
    int up = impl_->tree.GetNodeParent(*n);
    if (up < 0) return std::nullopt;
    return static_cast<std::uint32_t>(up);
}

BitSet Tree::children(std::uint32_t node) const {
    std::optional<int> n = NodeNumber(impl_ ? &impl_->tree : nullptr, node);
    if (!n || impl_->tree.GetNodeLevel(*n) < 0) return BitSet();
    return Guard({}, [&] {
        auto set = std::make_unique<BitSet::Impl>();
        impl_->tree.GetChildrenNodes(*n, set->bits, 0);
        return BitSet(std::move(set));
    });
}

}  // namespace dorvik
