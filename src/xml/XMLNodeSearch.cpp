// Searches over a node tree: by name and attribute, down through the children or along
// the document walk.
#include <vector>

#include "dorvik/XMLNode.h"

namespace dorvik::classic {
namespace {
// True when the backward walk from `node` wraps: `node` is the first child of an
// element at the top level, and GetPrev goes on with the last node under that element.
bool WrapsBackward(const CXMLNode* node) {
    const CXMLNode* parent = node->GetParent();
    return parent && parent->GetParent() && !parent->GetParent()->GetParent() &&
           parent->GetChild(0) == node;
}
}  // namespace

bool CXMLNode::IsNodeProperties(const char* name, const char* attribute, const char* value,
                                bool contains) const {
    if (m_strName != name) return false;
    if (!attribute) return true;
    CString found;  // a missing attribute reads as ""
    m_Attributes.Lookup(attribute, found);
    if (!value) value = "";
    return contains ? found.Find(value) >= 0 : found == value;
}

CXMLNode* CXMLNode::Find(const char* name, bool recursive, bool forward, bool contains) const {
    return Find(name, nullptr, nullptr, recursive, forward, contains);
}

CXMLNode* CXMLNode::Find(const char* name, const char* attribute, const char* value, bool recursive,
                         bool forward, bool contains) const {
    // One frame per node whose children are being walked; a match anywhere ends the
    // whole search. `descended` marks, in a backward walk, that the child at `next` has
    // had its subtree searched and is to be tested itself.
    struct Frame {
        const CXMLNode* node;
        int next;
        bool descended;
    };
    std::vector<Frame> stack;
    const CXMLNode* enter = this;
    for (;;) {
        while (enter) {
            if (!enter->m_bNoRepeatedBrothers) {
                stack.push_back({enter, forward ? 0 : enter->GetLength() - 1, false});
                break;
            }
            // Children kept by name: only the child under `name` counts, and below it
            // the search goes on in the same way.
            void* entry = nullptr;
            enter->m_Brothers.Lookup(name, entry);
            auto* child = static_cast<CXMLNode*>(entry);
            if (child && child->IsNodeProperties(name, attribute, value, contains)) return child;
            enter = child && recursive && child->HasChildNodes() ? child : nullptr;
        }
        enter = nullptr;
        if (stack.empty()) return nullptr;
        Frame& frame = stack.back();
        if (frame.next < 0 || frame.next >= frame.node->GetLength()) {
            stack.pop_back();
            continue;
        }
        CXMLNode* child = frame.node->GetChild(frame.next);
        bool deeper = recursive && child->HasChildNodes();
        if (forward) {
            ++frame.next;
            if (child->IsNodeProperties(name, attribute, value, contains)) return child;
            if (deeper) enter = child;
        } else if (deeper && !frame.descended) {
            frame.descended = true;
            enter = child;
        } else {
            frame.descended = false;
            --frame.next;
            if (child->IsNodeProperties(name, attribute, value, contains)) return child;
        }
    }
}

CXMLNode* CXMLNode::Find(CXMLNode* start, const char* name, FindNodeText* how) {
    return Find(start, name, nullptr, nullptr, how);
}

CXMLNode* CXMLNode::Find(CXMLNode* start, const char* name, const char* attribute,
                         const char* value, FindNodeText* how) {
    const FindNodeText defaults;
    const FindNodeText& walk = how ? *how : defaults;
    // A backward walk that wraps inside an element that does not hold `start` circles
    // there for ever; the second wrap at the same node ends it.
    const CXMLNode* wrapped = nullptr;
    for (CXMLNode* node = start; node;) {
        if (!node->m_pParent && !walk.m_bParentless) return nullptr;
        if (node->IsNodeProperties(name, attribute, value, walk.m_bContains)) return node;
        if (walk.m_bForward) {
            node = node->GetNext(walk.m_bSiblings);
        } else {
            if (!walk.m_bSiblings && WrapsBackward(node)) {
                if (node == wrapped) return nullptr;
                if (!wrapped) wrapped = node;
            }
            node = node->GetPrev(walk.m_bSiblings);
        }
        if (node == start) return nullptr;
    }
    return nullptr;
}

CXMLNode* CXMLNode::Select(const char* name) {
    CXMLNode* child = Find(name, false, true, false);
    return child ? child : AddNode(name);
}

}  // namespace dorvik::classic
