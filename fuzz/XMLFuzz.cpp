// Any bytes as an XML text: the load must end with true or false, and whatever was
// loaded must walk, search, copy, print and load again without fault.
#include <cstdint>
#include <string>

#include <Dorvik01.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    CXMLDocument doc;
    doc.SetNoRepeatedBrothers(size % 2 == 1);
    doc.LoadXML(text.c_str());  // up to the first zero byte, as a C string
    CXMLNode* top = doc.GetDocumentNode();

    // A whole walk each way comes back to where it began, or ends.
    if (CXMLNode* first = top->GetChild(0)) {
        FindNodeText how;
        CXMLNode::Find(first, "\x01", &how);
        how.m_bForward = false;
        CXMLNode::Find(first, "\x01", &how);
        if (CXMLNode* last = top->GetChild(top->GetLength() - 1)) CXMLNode::Find(last, "", &how);
        top->Find("a", "b", "c", true, false, true);
        top->Find("a", true, true, false);
    }

    CXMLDocument copy(doc);
    CString saved = top->XMLString(-1);
    CXMLDocument again;
    again.LoadXML(saved);
    if (CXMLNode* root = copy.GetRoot()) {
        CXMLNode scratch;
        scratch = *root;
        root->Select("a")->SetName("b");
        root->RemoveNode(0);
    }
    return 0;
}
