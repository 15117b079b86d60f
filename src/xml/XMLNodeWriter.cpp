// The text form of a node tree: CR LF line ends, tab indentation, no escapes.
#include <climits>
#include <string>
#include <vector>

#include "dorvik/XMLNode.h"

namespace dorvik::classic {
namespace {
// A CString is measured in int; no text may reach that size.
constexpr std::size_t kTextLimit = INT_MAX;

void Append(std::string& out, const CString& text) {
    out.append(static_cast<const char*>(text), static_cast<std::size_t>(text.GetLength()));
}

void Indent(std::string& out, int level) {
    if (level <= 0) return;
    if (out.size() + static_cast<std::size_t>(level) > kTextLimit) throw CMemoryException();
    out.append(static_cast<std::size_t>(level), '\t');
}
}  // namespace

void CXMLNode::PrintOpening(std::string& out, int level) const {
    if (level < 0) return;
    Indent(out, level);
    out += '<';
    Append(out, m_strName);
    for (POSITION p = m_Attributes.GetStartPosition(); p;) {
        CString name, value;
        m_Attributes.GetNextAssoc(p, name, value);
        // No escaping: a value with a double quote goes between single quotes.
        char quote = value.Find('"') >= 0 ? '\'' : '"';
        out += ' ';
        Append(out, name);
        out += '=';
        out += quote;
        Append(out, value);
        out += quote;
    }
    bool children = HasChildNodes();
    if (children || m_bSpecial || !m_strText.IsEmpty()) {
        out += '>';
        Append(out, m_strText);
        if (children || m_bSpecial) out += "\r\n";
    } else {
        out += "/>\r\n";
    }
}

void CXMLNode::PrintClosing(std::string& out, int level) const {
    bool children = HasChildNodes();
    if (level < 0 || m_bSpecial || (!children && m_strText.IsEmpty())) return;
    if (children) Indent(out, level);
    out += "</";
    Append(out, m_strName);
    out += ">\r\n";
}

void CXMLNode::Print(const CXMLNode& top, int level, std::string& out, CFile* file) {
    auto emit = [&out, file]() {
        if (out.size() > kTextLimit) throw CMemoryException();
        if (!file || out.empty()) return;
        file->Write(out.data(), static_cast<UINT>(out.size()));
        out.clear();
    };
    // The walk keeps its own stack, so any depth prints.
    struct Frame {
        const CXMLNode* node;
        int level;
        int next;
    };
    std::vector<Frame> stack{{&top, level, 0}};
    top.PrintOpening(out, level);
    emit();
    while (!stack.empty()) {
        Frame& frame = stack.back();
        if (frame.next < frame.node->GetLength()) {
            const CXMLNode* child = frame.node->GetChild(frame.next++);
            int childLevel = frame.level == INT_MAX ? INT_MAX : frame.level + 1;
            child->PrintOpening(out, childLevel);
            emit();
            stack.push_back({child, childLevel, 0});
        } else {
            frame.node->PrintClosing(out, frame.level);
            emit();
            stack.pop_back();
        }
    }
}

CString CXMLNode::XMLString(int level) const {
    std::string out;
    Print(*this, level, out, nullptr);
    return CString(out.data(), static_cast<int>(out.size()));
}

void CXMLNode::XMLString(CFile* file, int level) const {
    if (!file) return;
    std::string piece;
    Print(*this, level, piece, file);
}

}  // namespace dorvik::classic
