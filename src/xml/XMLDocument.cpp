#include "dorvik/XMLDocument.h"

#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include "frame/TempFile.h"

namespace dorvik::classic {
namespace {
// The white space of CString::TrimLeft and TrimRight.
bool IsWhite(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

const char* SkipWhite(const char* from, const char* end) {
    while (from < end && IsWhite(*from)) ++from;
    return from;
}

const char* TrimBack(const char* begin, const char* end) {
    while (end > begin && IsWhite(end[-1])) --end;
    return end;
}

// The first `c` in [from, end), or null.
const char* FindByte(const char* from, const char* end, char c) {
    return from < end ? static_cast<const char*>(std::memchr(from, c, end - from)) : nullptr;
}

CString Piece(const char* begin, const char* end) {
    return CString(begin, static_cast<int>(end - begin));
}
}  // namespace

CXMLDocument::CXMLDocument(const CXMLDocument& other) { CopyFrom(other); }

CXMLDocument& CXMLDocument::operator=(const CXMLDocument& other) {
    if (this == &other) return *this;
    CXMLDocument copy(other);
    Free();
    std::swap(m_pRoot, copy.m_pRoot);
    std::swap(m_pDocumentNode, copy.m_pDocumentNode);
    m_bNoRepeatedBrothers = other.m_bNoRepeatedBrothers;
    return *this;
}

CXMLDocument::~CXMLDocument() { Free(); }

void CXMLDocument::CopyFrom(const CXMLDocument& other) {
    m_bNoRepeatedBrothers = other.m_bNoRepeatedBrothers;
    const CXMLNode* source = other.m_pDocumentNode;
    if (!source) return;
    auto top = std::make_unique<CXMLNode>();
    top->m_bNoRepeatedBrothers = source->m_bNoRepeatedBrothers;
    top->CopyFrom(*source, true);
    // The root is found again by its place; a root that the caller took out of the tree
    // is not there and copies as none.
    m_pRoot = top->GetChild(source->GetIndex(other.m_pRoot));
    m_pDocumentNode = top.release();
}

void CXMLDocument::Free() {
    m_pRoot = nullptr;
    delete m_pDocumentNode;
    m_pDocumentNode = nullptr;
}

bool CXMLDocument::Load(const char* path) {
    CFileStatus status;
    if (!path || !CFile::GetStatus(path, status)) return false;
    CFile file(path, CFile::shareDenyNone);
    return Load(&file);
}

bool CXMLDocument::Load(CFile* file) {
    if (!file) return false;
    std::size_t length = file->GetLength();
    std::unique_ptr<char, void (*)(void*)> buffer(static_cast<char*>(GrabBlock(length + 1)),
                                                  DropBlock);
    if (!buffer) throw CMemoryException();
    std::size_t got = 0;
    while (got < length) {
        UINT n = file->Read(buffer.get() + got, static_cast<UINT>(length - got));
        if (n == 0) break;
        got += n;
    }
    buffer.get()[got] = '\0';
    return LoadXML(buffer.get());
}

bool CXMLDocument::LoadXML(const char* xml) {
    Free();
    m_pDocumentNode = new CXMLNode;
    m_pDocumentNode->m_bNoRepeatedBrothers = m_bNoRepeatedBrothers;
    char* position = const_cast<char*>(xml ? xml : "");
    return ParseForNodes(m_pDocumentNode, position);
}

void CXMLDocument::Save(const char* path) {
    // Written beside and renamed over the path: a failure or the death of the process
    // leaves the old file whole.
    CString temp;
    MakeTempFileBeside(temp, path);
    try {
        CFile file(temp, CFile::modeCreate | CFile::modeWrite);
        file.SetWriteBehind(true);
        Save(&file);
        file.Close();
        CFile::Rename(temp, path);
    } catch (...) {
        try {
            CFile::Remove(temp);
        } catch (const CFileException&) {
            // The first error is the one to report.
        }
        throw;
    }
}

void CXMLDocument::Save(CFile* file) {
    if (m_pDocumentNode && file) m_pDocumentNode->XMLString(file, -1);
}

CXMLNode* CXMLDocument::MakeNode(CXMLNode* parent, const char* tag, const char* end, bool special) {
    auto node = std::make_unique<CXMLNode>();
    node->m_bNoRepeatedBrothers = m_bNoRepeatedBrothers;
    node->m_bSpecial = special;
    const char* blank = special ? nullptr : FindByte(tag, end, ' ');
    if (!blank || !FindByte(blank, end, '=')) {
        node->m_strName = Piece(tag, end);
    } else {
        node->m_strName = Piece(tag, blank);
        const char* p = SkipWhite(blank, end);
        while (const char* equals = FindByte(p, end, '=')) {
            CString name = Piece(p, TrimBack(p, equals));
            const char* quote = SkipWhite(equals + 1, end);
            if (quote == end || (*quote != '"' && *quote != '\'')) return nullptr;
            const char* closing = FindByte(quote + 1, end, *quote);
            // A value without its closing quote is empty, and the scan goes on from the
            // opening quote.
            node->m_Attributes.SetAt(name, closing ? Piece(quote + 1, closing) : CString());
            p = closing ? SkipWhite(closing + 1, end) : quote;
        }
    }
    parent->AddNode(node.get());
    return node.release();
}

bool CXMLDocument::ParseForNodes(CXMLNode* parent, char*& position) {
    // Each frame stands for one run of siblings under `parent`, as a recursive descent
    // would have it; `open` tells that the frame's last node is an element still open,
    // whose end tag or children come next. The frames live on the heap, so nesting
    // depth costs no stack.
    struct Frame {
        CXMLNode* parent;
        CXMLNode* node;
        bool open;
    };
    const char* end = position ? position + std::strlen(position) : nullptr;
    const char* at = FindByte(position, end, '<');
    auto finish = [&position, &at](bool result) {
        position = const_cast<char*>(at);
        return result;
    };
    if (!parent) return finish(false);
    std::vector<Frame> stack{{parent, nullptr, false}};
    while (at) {
        const char* tag = at + 1;
        const char* close = FindByte(tag, end, '>');
        if (!close) return finish(false);
        Frame& frame = stack.back();
        if (*tag == '/') {
            if (!frame.open) {
                // The end tag of the frame's parent: the frame below checks it.
                stack.pop_back();
                if (stack.empty()) return finish(true);
                continue;
            }
            // Only as many bytes as the end tag has are compared.
            std::size_t length = static_cast<std::size_t>(close - tag - 1);
            const CString& name = frame.node->m_strName;
            if (length > static_cast<std::size_t>(name.GetLength()) ||
                std::memcmp(tag + 1, static_cast<const char*>(name), length) != 0)
                return finish(false);
            frame.open = false;
            at = FindByte(close + 1, end, '<');
            continue;
        }
        if (frame.open) {
            stack.push_back({frame.node, nullptr, false});
            continue;
        }
        bool special = *tag == '?' || (tag[0] == '!' && tag[1] == '-' && tag[2] == '-');
        bool selfClosed = close[-1] == '/';
        CXMLNode* node = MakeNode(frame.parent, tag, selfClosed ? close - 1 : close, special);
        if (!node) return finish(false);
        frame.node = node;
        if (!special) {
            if (!m_pRoot) m_pRoot = node;
            frame.open = true;
        }
        at = FindByte(close + 1, end, '<');
        if (selfClosed) {
            stack.pop_back();
            if (stack.empty()) return finish(true);
            continue;
        }
        const char* text = SkipWhite(close + 1, at ? at : end);
        const char* textEnd = TrimBack(text, at ? at : end);
        if (text < textEnd) node->m_strText = Piece(text, textEnd);
    }
    // The text has ended: only the first frame, with nothing open, ends well.
    return finish(stack.size() == 1 && !stack.back().open);
}

}  // namespace dorvik::classic
