// CXMLDocument: owns one tree of CXMLNode objects, reads it from text with a forgiving
// scanner and writes it back in the text form of CXMLNode::XMLString.
//
// The tree: a document node (no name, no parent) holds everything at the top level of
// the text: the root element, a processing instruction in front of it, comments
// around it, further elements behind it.
//
// The scanner goes by < and > and not by the XML grammar, and has no entities:
//   <name>...</name>   a node; its children are the tags between
//   <name/>            a node without children or text
//   <name a="v" b='w'> attributes; only a blank (0x20) separates them from the name,
//                      and white space around = is allowed
//   <?...>, <!--...>   a special node named by all that stands between < and >; a
//                      comment ends at its first >
//   text behind a start tag (or a special tag), up to the next <, trimmed of white
//   space on both sides, is the node's text; text behind an end tag or a self-closed
//   tag is skipped.
// An end tag closes the open element when it equals the start of that element's name
// over the end tag's own length (</ab> closes <abc>, </> closes anything).
// Results of the malformed cases:
//   no < at all, or an empty text           true, nothing loaded, GetRoot null
//   text in front of the first <            skipped
//   < without a > behind it                 false
//   an element still open at the end        false
//   an end tag that does not close the      false
//     open element
//   an attribute value without a quote      false
//     in front of it (also "a=" at the end)
//   an attribute value without a closing    its value is empty; the scan goes on from
//     quote                                 the opening quote
//   a tag with a blank but no = behind it   the whole tag text is the name ("a b")
//   an end tag at the top level, with       true; the rest is not read
//     nothing open
//   a self-closed tag at the top level      true; the rest is not read ("<a/><b/>"
//                                           loads "a" only)
//   > inside a value or a comment           the tag ends there
//   <!DOCTYPE ...>, <![CDATA[...]]>         an element that no end tag closes: false
//   a second top-level element              one more child of the document node
//   a zero byte                             ends the text
// The scanner keeps its own stack, so any nesting depth loads; a document nested
// 100,000 levels deep costs about 20 MB.
//
// Not safe for concurrent use; distinct documents may be used on distinct threads.
#pragma once

#include "File.h"
#include "Platform.h"
#include "XMLNode.h"

namespace dorvik::classic {
class DORVIK_API CXMLDocument {
public:
    // Not loaded: no document node, no root, by-name look-up off.
    CXMLDocument() = default;
    // A deep copy: a tree of its own with the same names, texts, attributes, data words
    // and switches, and a root at the same place. Children kept by name are entered as
    // a load enters them, so each name finds the last child of that name. A document
    // that is not loaded copies as not loaded.
    CXMLDocument(const CXMLDocument& other);
    // Free(), then a deep copy of `other`, as the copy constructor; the flag is copied.
    CXMLDocument& operator=(const CXMLDocument& other);
    // Free().
    virtual ~CXMLDocument();

    // Deletes the tree; GetRoot and GetDocumentNode give null afterwards. The flag stays.
    void Free();

    // False when `path` does not exist. Otherwise opens it for reading and gives the
    // result of Load(CFile*). Throws CFileException when an existing path cannot be
    // opened or read.
    bool Load(const char* path);
    // Reads `file` from its position to its end and gives the result of LoadXML on what
    // was read (false for a null file, with nothing changed). Costs a buffer of the
    // file's length while it runs. Throws CFileException on a read error,
    // CMemoryException when the buffer cannot be had.
    bool Load(CFile* file);
    // Free(), then a new document node and the scan of `xml` (a C string; null reads as
    // ""). True when the text was read by the rules above. A load that fails leaves
    // what it read until then in the tree, reachable through GetDocumentNode and
    // GetRoot. `xml` is not changed. Costs O(length of the text).
    bool LoadXML(const char* xml);

    // Writes the tree to `path` (created, or replaced whole), through the file's
    // write-behind. A document that was never loaded has nothing to write, like an empty
    // one: the file is left empty. The text goes to a new file beside `path` (same
    // folder, the mode of the file it replaces), which is then renamed over it: on a
    // failure or the death of the process the old file stays whole and no temporary
    // stays behind (a killed process may leave "<path>.XXXXXX"). The folder must be
    // writable. Throws CFileException on failure.
    void Save(const char* path);
    // Writes the tree at the file's position (nothing when not loaded), one Write per
    // tag piece. Throws what the file's Write throws.
    void Save(CFile* file);

    // The first element of the text that is not a comment or a processing instruction;
    // null when there is none or nothing is loaded. It lies in the tree; a caller who
    // removes it from the tree must not use this pointer again.
    CXMLNode* GetRoot() const { return m_pRoot; }
    // The top of the tree, owned by the document; null when nothing is loaded.
    CXMLNode* GetDocumentNode() const { return m_pDocumentNode; }

    // SetNoRepeatedBrothers and GetNoRepeatedBrothers: whether the nodes of the next
    // load keep their children by name as well (see CXMLNode::Find). It acts on the
    // next load, not on the nodes that exist.
    void SetNoRepeatedBrothers(bool on) { m_bNoRepeatedBrothers = on; }
    bool GetNoRepeatedBrothers() const { return m_bNoRepeatedBrothers; }

protected:
    // Reads a run of sibling elements under `parent` from `position` on, with everything
    // nested in them, and moves `position` on: to the < of an end tag that closes
    // `parent`, behind a self-closed tag (to the next < or null), or to null at the end
    // of the text. True or false by the rules above. `position` is read, never written
    // through.
    bool ParseForNodes(CXMLNode* parent, char*& position);

    CXMLNode* m_pRoot = nullptr;
    CXMLNode* m_pDocumentNode = nullptr;
    bool m_bNoRepeatedBrothers = false;

private:
    // Makes the node of the start tag [tag, end) under `parent`; null when one of its
    // attributes has no opening quote.
    CXMLNode* MakeNode(CXMLNode* parent, const char* tag, const char* end, bool special);
    void CopyFrom(const CXMLDocument& other);
};

}  // namespace dorvik::classic

using dorvik::classic::CXMLDocument;
