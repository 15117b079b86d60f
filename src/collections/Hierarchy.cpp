// The tree over level bit arrays: navigation by bit tests, ranks and word-wide walks.
#include "dorvik/Hierarchy.h"

#include <algorithm>
#include <bit>
#include <climits>
#include <vector>

#include "bits/Words.h"

namespace dorvik::classic {
namespace {
using dorvik::bits::Bits;
using dorvik::bits::LoadWord;
using dorvik::bits::Word;

// Bits lo..hi (0..7, inclusive) of a byte.
unsigned char ByteMask(int lo, int hi) {
    return static_cast<unsigned char>((0xFFu << lo) & (0xFFu >> (7 - hi)));
}

// ORs bits from..to of `level` into `out`, which holds at least to / 8 + 1 bytes.
void OrRange(unsigned char* out, const CBitArray& level, int from, int to) {
    Bits last = std::min<Bits>(to, Bits{level.GetLength()} * 8 - 1);
    if (from > last) return;
    const unsigned char* p = level.GetBuffer();
    Bits head = from >> 3, tail = last >> 3;
    if (head == tail) {
        out[head] |= p[head] & ByteMask(from & 7, static_cast<int>(last & 7));
        return;
    }
    out[head] |= p[head] & ByteMask(from & 7, 7);
    for (Bits b = head + 1; b < tail; ++b) out[b] |= p[b];
    out[tail] |= p[tail] & ByteMask(0, static_cast<int>(last & 7));
}

int Rank(const CBitArray* level, int node) { return level ? level->GetBitIndex(node) : -1; }
int Select(const CBitArray* level, int index) { return level ? level->GetIndexBit(index) : -1; }

// A fresh int[] for a path; the caller owns it.
int* NewPath(int length) { return new int[static_cast<std::size_t>(length)]; }
}  // namespace

CHierarchy::CHierarchy() : CBitArrayArray(false) {}

CHierarchy::~CHierarchy() = default;

void CHierarchy::Init(const char* path, Progress progress) {
    m_nNodeCount = -1;
    CBitArrayArray::Init(path, progress);
}

void CHierarchy::Init(CBitsBinFile* file, Progress progress) {
    m_nNodeCount = -1;
    CBitArrayArray::Init(file, progress);
}

void CHierarchy::RemoveAll() {
    m_nNodeCount = -1;
    CBitArrayArray::RemoveAll();
}

const CBitArray* CHierarchy::Level(int level) const {
    return static_cast<const CBitArray*>(CPtrArray::GetAt(level));
}

bool CHierarchy::Holds(int level, int node) const {
    const CBitArray* bits = Level(level);
    return bits && bits->GetAt(node);
}

int CHierarchy::GetLevelNodeCount(int level) const {
    const CBitArray* bits = Level(level);
    return bits ? bits->GetCount() : 0;
}

int CHierarchy::GetNodeLevel(int node) const {
    if (node < 0) return -1;
    for (int level = 0; level < GetSize(); ++level)
        if (Holds(level, node)) return level;
    return -1;
}

void CHierarchy::SetNodeLevel(int node, int level, bool clear) {
    if (node < 0 || level < 0) return;
    if (node >= m_nNodeCount) m_nNodeCount = -1;
    if (clear) {
        int present = GetNodeLevel(node);
        if (present != -1) static_cast<CBitArray*>(CPtrArray::GetAt(present))->ResetAt(node);
    }
    CBitArrayArray::GetAt(level)->SetAt(node);
}

int CHierarchy::GetNodeParent(int node) const {
    int level = GetNodeLevel(node);
    if (level <= 0) return -1;
    const CBitArray* above = Level(level - 1);
    return above ? above->GetActualBit(node - 1) : -1;
}

int CHierarchy::GetNodeRoot(int node) const {
    int level = GetNodeLevel(node);
    if (level < 0) return -1;
    for (; level > 0 && node != -1; --level) node = GetNodeParent(node);
    return node;
}

int CHierarchy::GetNodeBrother(int node) const {
    int level = GetNodeLevel(node);
    if (level < 0) return -1;
    const CBitArray* bits = Level(level);
    return bits->GetIndexBit(bits->GetBitIndex(node) + 1);
}

int CHierarchy::GetNodeLastChild(int node) const {
    if (GetNodeLevel(node) < 0) return -1;
    int brother = GetNodeBrother(node);
    return brother != -1 ? brother - 1 : GetNodeCount() - 1;
}

void CHierarchy::GetNodeScope(int node, CBitArray& scope) const {
    scope.FreeBuffer();
    scope.SetCompressed(false);
    int last = GetNodeLastChild(node);
    if (last >= node) scope.SetRange(node, last);
}

int CHierarchy::GetNodeIndex(int node) const { return Rank(Level(GetNodeLevel(node)), node); }

int CHierarchy::GetIndexNode(int index, int level) const { return Select(Level(level), index); }

bool CHierarchy::IsLeaf(int node) const {
    int level = GetNodeLevel(node);
    if (level < 0 || node == INT_MAX) return true;
    int next = GetNodeLevel(node + 1);
    if (next > level) return false;
    return !Holds(level + 1, node + 1);
}

int CHierarchy::GetNodeCount() const {
    if (m_nNodeCount != -1) return m_nNodeCount;
    // The highest set bit of any level; levels may carry zero bytes at their end.
    int top = -1;
    for (int level = 0; level < GetSize(); ++level)
        if (const CBitArray* bits = Level(level)) top = std::max(top, bits->GetTailBit());
    m_nNodeCount = top + 1;
    return m_nNodeCount;
}

int CHierarchy::WalkEnd(int node, int level) const {
    struct Span {
        const unsigned char* bytes;
        std::size_t size;
    };
    std::vector<Span> shallow, deep;
    std::size_t longest = 0;
    for (int i = 0; i < GetSize(); ++i) {
        const CBitArray* bits = Level(i);
        if (!bits || bits->GetLength() == 0) continue;
        Span span{bits->GetBuffer(), static_cast<std::size_t>(bits->GetLength())};
        (i <= level ? shallow : deep).push_back(span);
        longest = std::max(longest, span.size);
    }
    // A number stops the walk when a level up to `level` holds it or no deeper one does.
    Bits from = Bits{node} + 1;
    for (Bits base = from & ~Bits{63};; base += 64) {
        auto byte = static_cast<std::size_t>(base >> 3);
        if (byte >= longest) return static_cast<int>(std::min<Bits>(std::max(base, from), INT_MAX));
        Word up = 0, down = 0;
        for (const Span& s : shallow) up |= LoadWord(s.bytes, s.size, byte);
        for (const Span& s : deep) down |= LoadWord(s.bytes, s.size, byte);
        Word stop = up | ~down;
        if (base < from) stop &= ~Word{0} << (from - base);
        if (stop) return static_cast<int>(std::min<Bits>(base + std::countr_zero(stop), INT_MAX));
    }
}

int CHierarchy::GetChildrenCount(int node) const {
    if (node == -1) return GetLevelNodeCount(0);
    int level = GetNodeLevel(node);
    if (level < 0) return 0;
    const CBitArray* children = Level(level + 1);
    return children ? children->GetRangeCount(node + 1, WalkEnd(node, level) - 1) : 0;
}

int CHierarchy::GetChildrenCount(int length, int* path) const {
    if (length == 0) return GetChildrenCount(-1);
    int node = GetPathNode(length, path);
    return node == -1 ? 0 : GetChildrenCount(node);
}

bool CHierarchy::ChildSpan(int node, int mode, int& shallowest, int& deepest, int& first,
                           int& last) const {
    int level = GetNodeLevel(node);
    if (level < 0 || level + 1 >= GetSize()) return false;
    shallowest = level + 1;
    deepest = mode == -1 ? GetSize() - 1 : level + 1;
    first = node + 1;
    last = mode == -1 ? GetNodeLastChild(node) : WalkEnd(node, level) - 1;
    return first <= last;
}

int CHierarchy::GetChildrenNodes(int node, CBitArray& nodes, int mode) const {
    nodes.FreeBuffer();
    nodes.SetCompressed(false);
    if (GetSize() == 0) return 0;
    if (node == -1) {
        const CBitArray* roots = Level(0);
        if (!roots) return 0;
        nodes = *roots;
        return nodes.GetCount();
    }
    int shallowest, deepest, first, last;
    if (!ChildSpan(node, mode, shallowest, deepest, first, last)) return 0;
    // One growth to the highest number found, then every level ORed in by bytes.
    int top = -1;
    for (int i = shallowest; i <= deepest; ++i)
        if (const CBitArray* bits = Level(i)) top = std::max(top, bits->GetActualBit(last));
    if (top < first) return 0;
    nodes.SetLength(top / 8 + 1);
    int count = 0;
    for (int i = shallowest; i <= deepest; ++i) {
        const CBitArray* bits = Level(i);
        if (!bits) continue;
        count += bits->GetRangeCount(first, top);
        OrRange(nodes.GetBuffer(), *bits, first, top);
    }
    return count;
}

int CHierarchy::GetChildrenNodes(int node, CDWordArray& nodes, int mode) const {
    nodes.RemoveAll();
    if (GetSize() == 0) return 0;
    if (node == -1) {
        const CBitArray* roots = Level(0);
        return roots ? roots->Bmp2Array(nodes) : 0;
    }
    int shallowest, deepest, first, last;
    if (!ChildSpan(node, mode, shallowest, deepest, first, last)) return 0;
    for (int i = shallowest; i <= deepest; ++i)
        if (const CBitArray* bits = Level(i)) bits->Range2Array(first, last, nodes);
    if (deepest > shallowest) {
        // Each level's numbers rise; a number on two levels is listed once.
        DWORD* begin = nodes.GetData();
        DWORD* end = begin + nodes.GetSize();
        std::sort(begin, end);
        nodes.SetSize(static_cast<int>(std::unique(begin, end) - begin), -1);
    }
    return nodes.GetSize();
}

int CHierarchy::GetPathNode(int length, int* path) const {
    if (length <= 0 || !path) return -1;
    int node = Select(Level(0), path[0]);
    for (int i = 1; i < length && node != -1; ++i) {
        const CBitArray* bits = Level(i);
        // The rank of the node's first child on level i, then the child of that offset.
        Bits index = Bits{Rank(bits, node)} + 1 + path[i];
        node = index >= 0 && index <= INT_MAX ? Select(bits, static_cast<int>(index)) : -1;
    }
    return node;
}

int CHierarchy::GetNodeAbsPath(int node, int*& path) const {
    path = nullptr;
    int level = GetNodeLevel(node);
    if (level < 0) return 0;
    int* out = NewPath(level + 1);
    out[level] = node;
    for (int i = level - 1; i >= 0; --i) out[i] = GetNodeParent(out[i + 1]);
    path = out;
    return level + 1;
}

int CHierarchy::GetNodePath(int node, int*& path) const {
    path = nullptr;
    int level = GetNodeLevel(node);
    if (level < 0) return 0;
    int* out = NewPath(level + 1);
    int cursor = node;
    for (int i = 0; i <= level; ++i) {
        const CBitArray* bits = Level(i);
        // The ancestor at depth i is the nearest node of level i at or below `node`;
        // `cursor` is the first child of the ancestor above.
        int rank = Rank(bits, node);
        out[i] = i == 0 ? rank : rank - Rank(bits, cursor);
        int ancestor = Select(bits, rank);
        cursor = std::min(ancestor + 1, node);
        while (i < level && !Holds(i + 1, cursor)) out[++i] = 0;
    }
    path = out;
    return level + 1;
}

}  // namespace dorvik::classic
