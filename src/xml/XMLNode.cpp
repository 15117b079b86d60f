#include "dorvik/XMLNode.h"

#include "xml/NodePool.h"

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

namespace dorvik::classic {
namespace {
// The hint is a 30-bit field; larger indexes are simply not remembered.
constexpr int kHintLimit = 1 << 30;

// Positions of the child walk are plain indexes.
POSITION ToPosition(std::uintptr_t index) { return reinterpret_cast<POSITION>(index); }
std::uintptr_t FromPosition(POSITION position) {
    return reinterpret_cast<std::uintptr_t>(position);
}
}  // namespace

void* CXMLNode::operator new(std::size_t size) {
    return size <= xmlpool::CellSize() ? xmlpool::Take() : ::operator new(size);
}

void CXMLNode::operator delete(void* node, std::size_t size) noexcept {
    if (size <= xmlpool::CellSize())
        xmlpool::Give(node);
    else
        ::operator delete(node);
}

CXMLNode::CXMLNode() : m_Attributes(10), m_Brothers(10) {}

// The members release the attributes and the arrays; only children need the walk.
CXMLNode::~CXMLNode() {
    if (HasChildNodes()) FreeNode();
}

void CXMLNode::FreeNode() {
    // A subtree is taken apart with a work list, not by recursion, so that depth costs
    // heap and not stack. Each node is emptied before it is deleted, so its own
    // destructor finds nothing to do.
    std::vector<CXMLNode*> doomed;
    auto takeChildren = [&doomed](CXMLNode& node) {
        if (!node.HasChildNodes()) return;
        void** children = node.m_Children.GetData();
        for (int i = node.GetLength() - 1; i >= 0; --i)
            if (children[i]) doomed.push_back(static_cast<CXMLNode*>(children[i]));
        node.m_Children.RemoveAll();
        node.m_Brothers.RemoveAll();
    };
    takeChildren(*this);
    while (!doomed.empty()) {
        CXMLNode* node = doomed.back();
        doomed.pop_back();
        takeChildren(*node);
        delete node;
    }
    m_Attributes.RemoveAll();
}

void CXMLNode::operator=(const CXMLNode& source) { CopyFrom(source, false); }

void CXMLNode::CopyFrom(const CXMLNode& source, bool keepSwitches) {
    // The copies are made under a holder first and appended at the end, so that a source
    // that contains this node is read as it was before the assignment.
    CXMLNode holder;
    struct Pair {
        const CXMLNode* from;
        CXMLNode* to;
    };
    std::vector<Pair> work{{&source, &holder}};
    while (!work.empty()) {
        Pair pair = work.back();
        work.pop_back();
        for (int i = 0; i < pair.from->GetLength(); ++i) {
            const CXMLNode* child = pair.from->GetChild(i);
            auto copy = std::make_unique<CXMLNode>();
            if (keepSwitches) copy->m_bNoRepeatedBrothers = child->m_bNoRepeatedBrothers;
            copy->m_bSpecial = child->m_bSpecial;
            copy->m_strName = child->m_strName;
            copy->m_strText = child->m_strText;
            copy->m_dwData = child->m_dwData;
            for (POSITION p = child->GetAttributeStartPosition(); p;) {
                CString name, value;
                child->GetAttributeNextAssoc(p, name, value);
                copy->m_Attributes.SetAt(name, value);
            }
            pair.to->AddNode(copy.get());
            CXMLNode* made = copy.release();
            if (child->HasChildNodes()) work.push_back({child, made});
        }
    }

    m_bSpecial = source.m_bSpecial;
    SetName(source.m_strName);
    m_strText = source.m_strText;
    m_dwData = source.m_dwData;
    // The parent link goes, as assignment defines; the former parent still holds this
    // node among its children (and, through SetName above, under its new name).
    m_pParent = nullptr;
    for (POSITION p = source.GetAttributeStartPosition(); p;) {
        CString name, value;
        source.GetAttributeNextAssoc(p, name, value);
        m_Attributes.SetAt(name, value);
    }
    for (int i = 0; i < holder.GetLength(); ++i) {
        CXMLNode* child = holder.GetChild(i);
        holder.m_Children.SetAt(i, nullptr);  // never owned twice, even if AddNode throws
        child->m_pParent = nullptr;
        AddNode(child);
    }
}

void CXMLNode::SetName(const char* name) {
    CXMLNode* parent = m_pParent;
    if (!parent || !parent->m_bNoRepeatedBrothers) {
        m_strName = name;
        return;
    }
    parent->ForgetBrother(m_strName, this);
    m_strName = name;
    parent->m_Brothers[m_strName] = this;
}

void CXMLNode::ForgetBrother(const char* name, const CXMLNode* child) {
    void* entry = nullptr;
    if (m_Brothers.Lookup(name, entry) && entry == child) m_Brothers.RemoveKey(name);
}

CString CXMLNode::GetAttribute(const char* name) const {
    CString value;
    m_Attributes.Lookup(name, value);
    return value;
}

void CXMLNode::GetAttribute(const char* name, int& value) const {
    value = GetAttributeValue(name, 0);
}

int CXMLNode::GetAttributeValue(const char* name, int defaultValue) const {
    CString value;
    return m_Attributes.Lookup(name, value) ? std::atoi(value) : defaultValue;
}

bool CXMLNode::IsAttribute(const char* name) const {
    CString value;
    return m_Attributes.Lookup(name, value) != 0;
}

void CXMLNode::SetAttribute(const char* name, const char* value) {
    m_Attributes.SetAt(name, value);
}

void CXMLNode::SetAttribute(const char* name, int value) {
    CString text;
    text.Format("%d", value);
    m_Attributes.SetAt(name, text);
}

bool CXMLNode::RemoveAttribute(const char* name) { return m_Attributes.RemoveKey(name) != 0; }

void CXMLNode::RemoveAttributes() { m_Attributes.RemoveAll(); }

int CXMLNode::GetAttributeCount() const { return m_Attributes.GetCount(); }

POSITION CXMLNode::GetAttributeStartPosition() const { return m_Attributes.GetStartPosition(); }

void CXMLNode::GetAttributeNextAssoc(POSITION& position, CString& name, CString& value) const {
    m_Attributes.GetNextAssoc(position, name, value);
}

CXMLNode* CXMLNode::GetNextChild(POSITION& position) const {
    std::uintptr_t index = FromPosition(position);
    position = ToPosition(index + 1);
    return index < static_cast<std::uintptr_t>(GetLength()) ? GetChild(static_cast<int>(index))
                                                            : nullptr;
}

int CXMLNode::GetIndex(const CXMLNode* child) const {
    int count = GetLength();
    if (!child || count == 0) return -1;
    void* const* children = const_cast<CPtrArray&>(m_Children).GetData();
    // Walks ask for the child next to the one asked for before: try those first.
    int hint = static_cast<int>(m_nLastIndex);
    for (int i : {hint, hint + 1, hint - 1}) {
        if (i >= 0 && i < count && children[i] == child) {
            if (i < kHintLimit) m_nLastIndex = static_cast<unsigned>(i);
            return i;
        }
    }
    for (int i = 0; i < count; ++i) {
        if (children[i] == child) {
            if (i < kHintLimit) m_nLastIndex = static_cast<unsigned>(i);
            return i;
        }
    }
    return -1;
}

void CXMLNode::AddNode(CXMLNode* child) {
    if (!child || child == this || child->m_pParent) return;
    m_Children.Add(child);
    child->m_pParent = this;
    if (m_bNoRepeatedBrothers) m_Brothers[child->m_strName] = child;
}

CXMLNode* CXMLNode::AddNode(const char* name) {
    auto node = std::make_unique<CXMLNode>();
    node->m_strName = name;
    AddNode(node.get());
    return node.release();
}

int CXMLNode::RemoveNode(CXMLNode* child) {
    int index = GetIndex(child);
    if (index < 0) return -1;
    if (m_bNoRepeatedBrothers) ForgetBrother(child->m_strName, child);
    m_Children.RemoveAt(index);
    delete child;
    return index;
}

bool CXMLNode::RemoveNode(int index) {
    CXMLNode* child = GetChild(index);
    return child && RemoveNode(child) >= 0;
}

CXMLNode* CXMLNode::GetNext(bool sibling) const {
    if (!m_pParent) return nullptr;
    if (!sibling && HasChildNodes()) return GetChild(0);
    const CXMLNode* node = this;
    while (const CXMLNode* parent = node->m_pParent) {
        int next = parent->GetIndex(node) + 1;
        if (sibling || next < parent->GetLength()) return parent->GetChild(next);
        node = parent;
    }
    // Climbed to the top: wrap around to the first node of the tree.
    return node->GetChild(0);
}

CXMLNode* CXMLNode::GetPrev(bool sibling) const {
    CXMLNode* parent = m_pParent;
    if (!parent) return nullptr;
    CXMLNode* node = parent->GetChild(parent->GetIndex(this) - 1);
    if (sibling) return node;
    // The first child of a top-level element goes on with the last node under that
    // element.
    if (!node && parent->m_pParent && !parent->m_pParent->m_pParent) node = parent;
    while (node && node->HasChildNodes()) node = node->GetChild(node->GetLength() - 1);
    return node ? node : parent;
}

int CXMLNode::GetNodeLevel(const CXMLNode* node) const {
    if (!m_pParent || !node) return -1;
    int level = 0;
    for (const CXMLNode* n = node->m_pParent; n; n = n->m_pParent) ++level;
    return level;
}

}  // namespace dorvik::classic
