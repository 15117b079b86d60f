// CXMLNode: an element of a small document tree. A node has a name, one text,
// attributes, ordered children that it owns, a parent, and a word for the caller.
// There are no node kinds: a comment or a processing instruction is a "special" node
// that keeps its whole markup (everything between < and >) in its name.
//
// Strings are single-byte and taken over unchanged: no namespaces, no entities, no
// encoding. Names, texts and values are C strings; a null argument stands for "".
//
// Ownership runs strictly downwards: deleting a node deletes its subtree, and a node
// handed to AddNode belongs to its new parent. Every operation whose work depends on
// the depth of the tree (destruction, copy, printing, search) runs in a loop, never
// by recursion, so trees of any depth are safe.
//
// Not safe for concurrent use, reads included: child look-ups keep a hint in the node.
// Distinct trees may be used on distinct threads.
#pragma once

#include "Arrays.h"
#include "File.h"
#include "Maps.h"
#include "Platform.h"
#include "String.h"

namespace dorvik::classic {
// How the static CXMLNode::Find walks. A null pointer in its place means the defaults.
struct FindNodeText {
    bool m_bForward = true;      // walk with GetNext; false: with GetPrev
    bool m_bContains = false;    // the attribute's value must contain the text, not equal it
    bool m_bParentless = false;  // a node without a parent may be tested and walked on;
                                 // false: meeting one ends the search with nothing found
    bool m_bSiblings = false;    // the walk stays among siblings (GetNext/GetPrev(true))
};

class CXMLDocument;

class DORVIK_API CXMLNode {
public:
    // An empty node: empty name and text, no parent, no children, data 0, not special,
    // children not kept by name.
    CXMLNode();
    // Deletes the subtree (FreeNode). Delete only a node without a parent: a child
    // leaves its parent through RemoveNode.
    virtual ~CXMLNode();
    // Nodes are not copy-constructed: assign into a new node to copy a subtree.
    CXMLNode(const CXMLNode&) = delete;

    // Nodes come from 64 KiB slabs of equal cells, so that a large tree is made and
    // freed quickly; each thread keeps its own free cells. The slabs are kept for later
    // nodes and not given back to the system. Subclasses of another size use the
    // global operator new. Throws CMemoryException when no slab can be had.
    static void* operator new(std::size_t size);
    static void operator delete(void* node, std::size_t size) noexcept;

    // Adds `source` to this node; nothing is emptied first. The special flag, name, text
    // and data word are taken over (the name through SetName, so a parent's by-name
    // look-up stays true); every attribute of `source` is set here (those that only this
    // node has stay); a deep copy of each child of `source` is appended behind the
    // children this node has. The parent link becomes null, though a former parent still
    // holds and owns this node among its children (so never AddNode it elsewhere); this
    // node keeps its own m_bNoRepeatedBrothers switch, which the copies follow; the copied nodes
    // below start with the switch off. The copy is taken whole before anything is
    // appended, so `source` may be this node or one of its ancestors.
    // Costs O(size of the subtree of `source`).
    void operator=(const CXMLNode& source);

    // Deletes all children and their subtrees and removes all attributes. The name,
    // text, data word and parent stay.
    void FreeNode();

    // ---- Own values ----
    CString GetName() const { return m_strName; }
    // Sets the name. When the parent keeps its children by name, the parent's map then
    // finds this node under the new name (replacing any brother of that name, as AddNode
    // does) and no longer under the old one; this node's own map of its children is
    // left alone, as the children keep their names.
    void SetName(const char* name);
    CString GetText() const { return m_strText; }
    void SetText(const char* text) { m_strText = text; }
    // A word for the caller; the library never looks at it.
    DWORD GetData() const { return m_dwData; }
    void SetData(DWORD data) { m_dwData = data; }
    // The parent; null for a document node and for a node in no tree.
    CXMLNode* GetParent() const { return m_pParent; }
    // True when the node has no parent (a document node or a detached node).
    bool IsRoot() const { return m_pParent == nullptr; }

    // ---- Attributes ----
    // They come out of the iteration in the order in which they were first set (for a
    // loaded node, the order of the text), so that a document read and saved keeps its
    // attributes in place. Replacing a value keeps the place; removing and setting
    // again puts the attribute last.

    // The value, or "" if there is none.
    CString GetAttribute(const char* name) const;
    // atoi of the value; 0 if there is none (and for a value that is not a number).
    void GetAttribute(const char* name, int& value) const;
    // atoi of the value; `defaultValue` if there is none.
    int GetAttributeValue(const char* name, int defaultValue) const;
    bool IsAttribute(const char* name) const;
    // Sets or replaces.
    void SetAttribute(const char* name, const char* value);
    // The same, with the value formatted by "%d" (-5 is stored as "-5").
    void SetAttribute(const char* name, int value);
    // True when the attribute existed.
    bool RemoveAttribute(const char* name);
    void RemoveAttributes();
    int GetAttributeCount() const;
    // Iteration, as CMapStringToString gives it: null when there are none; the position
    // is null after the last attribute.
    POSITION GetAttributeStartPosition() const;
    void GetAttributeNextAssoc(POSITION& position, CString& name, CString& value) const;

    // ---- Children ----
    int GetLength() const { return m_Children.GetSize(); }
    bool HasChildNodes() const { return GetLength() > 0; }
    // The child at `index`, or null when `index` is out of range.
    CXMLNode* GetChild(int index) const { return static_cast<CXMLNode*>(m_Children.GetAt(index)); }
    CXMLNode* operator[](int index) const { return GetChild(index); }
    // Positions are child indexes, so the first one is null. GetNextChild gives the
    // child at `position` and moves it on by one; past the last child it gives null
    // (the end of a walk shows in the result, not in the position).
    POSITION GetFirstChildPosition() const { return nullptr; }
    CXMLNode* GetNextChild(POSITION& position) const;
    // The place of `child` among the children, or -1. Only the pointer is compared, so
    // any pointer may be given. O(1) for the child last looked up here and its two
    // neighbours, otherwise a scan of the children.
    int GetIndex(const CXMLNode* child) const;
    // Appends `child`, sets its parent, and, when children are kept by name, enters it
    // under its present name, replacing any entry of that name. From then on this node
    // owns it. A null child, this node itself, or a node that already has a parent is
    // refused and stays where it is. Adding an ancestor of this node (the top of its own
    // tree) would make a cycle: that is the caller's error and is not checked.
    void AddNode(CXMLNode* child);
    // Makes a node with the name (empty text, switch off), appends it, and returns it.
    CXMLNode* AddNode(const char* name);
    // Deletes `child` with its subtree and takes it out of the children; returns its
    // former index, or -1 (nothing deleted) when it is not a child of this node. The
    // by-name entry goes too when it named this child. Costs O(number of children).
    int RemoveNode(CXMLNode* child);
    // The same by index; false when `index` is out of range.
    bool RemoveNode(int index);

    // ---- Traversal ----
    // With `sibling`: the next child of the parent, or null behind the last one.
    // Without: the next node in document order, depth first; behind the last node of the
    // tree the walk wraps around to the first child of the top node, which itself is
    // never a result. Null for a node without a parent. O(1) amortised over a walk.
    CXMLNode* GetNext(bool sibling) const;
    // With `sibling`: the previous child of the parent, or null for the first.
    // Without: the reverse of document order, the parent coming behind its first child,
    // except that the first child of an element at the top level is followed by the
    // last node under that element (the wrap). The first node at the top level gives
    // the top node. Null for a node without a parent.
    CXMLNode* GetPrev(bool sibling) const;
    // -1 when this node has no parent; otherwise the number of ancestors of `node`
    // (1 for a child of a document node; -1 for null). O(depth).
    int GetNodeLevel(const CXMLNode* node) const;

    // ---- Text form ----
    // The text of this node and its subtree at `level`: lines end in CR LF, an indent is
    // `level` tabs, nothing is escaped. A node with neither children nor text prints as
    // "<name/>"; with text as "<name>text</name>"; with children as "<name>text", the
    // children one level deeper, then "</name>". Attributes follow the name as
    // ` name="value"`, between single quotes when the value holds a double quote, in
    // attribute order. A special node prints "<name>text" and no closing tag; when it has
    // children (only hand-made trees have), they follow one level deeper and read back
    // as its later siblings. At level -1 (the document node's) the node has no line of
    // its own: its children print at level 0. The indentation makes the text grow with
    // the square of the depth. Throws CMemoryException when the text would reach 2 GiB.
    CString XMLString(int level) const;

    // ---- Search ----
    // Byte-exact comparisons; case counts.

    // True when the name equals `name` and, when `attribute` is not null, the attribute's
    // value (a missing one reads as "") equals `value` or, with `contains`, holds it.
    bool IsNodeProperties(const char* name, const char* attribute, const char* value,
                          bool contains) const;
    // Find(name, nullptr, nullptr, recursive, forward, contains).
    CXMLNode* Find(const char* name, bool recursive, bool forward, bool contains) const;
    // The first matching descendant, or null; this node is not tested. `recursive`
    // searches the whole subtree, otherwise only the children. `forward` walks the
    // children first to last, a node before its descendants (the first match in
    // document order); otherwise last to first, descendants before the node (the last
    // match in document order). When this node keeps its children by name, only the
    // child under `name` is looked at, and (recursively) the search goes on below that
    // child alone. Costs O(size of the subtree) at most.
    CXMLNode* Find(const char* name, const char* attribute, const char* value, bool recursive,
                   bool forward, bool contains) const;
    // Find(start, name, nullptr, nullptr, how).
    static CXMLNode* Find(CXMLNode* start, const char* name, FindNodeText* how);
    // The first matching node on a walk by GetNext or GetPrev that begins with `start`
    // itself; null when the walk comes back to `start` or ends. A backward walk from a
    // top-level node that falls into the wrap of an earlier element (it cannot come
    // back) stops after one round through that element, with null. O(size of the tree).
    static CXMLNode* Find(CXMLNode* start, const char* name, const char* attribute,
                          const char* value, FindNodeText* how);
    // The first child named `name` (not looking deeper), made with AddNode if there is
    // none. `name` is one name: "a/b" is a name like any other.
    CXMLNode* Select(const char* name);

protected:
    // The text of XMLString(level), written to `file` with the file's virtual Write: the
    // opening tag with its text, the children, then the closing tag, one Write each
    // (none for an empty piece). A plain file then costs a system call per piece: turn
    // its write-behind on for a large tree. File errors pass through as CFileException.
    void XMLString(CFile* file, int level) const;

    CString m_strName;  // a special node: all its markup between < and >
    CString m_strText;
    CXMLNode* m_pParent = nullptr;
    CPtrArray m_Children;             // owned, in document order
    CMapStringToString m_Attributes;  // in the order first set
    CMapStringToPtr m_Brothers;       // child name to child, kept with the switch only
    DWORD m_dwData = 0;
    bool m_bSpecial : 1 = false;  // comment or processing instruction
    // Children are also kept by name in m_Brothers. A promise, not a rule: a second
    // child of a name stays a child, and the map names the later one.
    bool m_bNoRepeatedBrothers : 1 = false;
    // The child index that GetIndex found last; packed beside the flags so that a node
    // takes 136 bytes.
    mutable unsigned m_nLastIndex : 30 = 0;

private:
    // Takes the entry of `name` out of m_Brothers if it names `child`.
    void ForgetBrother(const char* name, const CXMLNode* child);
    // Appends a copy of `source`'s values and subtree (see operator=); the nodes made
    // below take `source`'s switches when `keepSwitches` is set.
    void CopyFrom(const CXMLNode& source, bool keepSwitches);
    // Append the piece in front of the children, and the one behind them, at `level`.
    void PrintOpening(std::string& out, int level) const;
    void PrintClosing(std::string& out, int level) const;
    // Prints `top` and its subtree into `out`; with a file, each piece is written out
    // and `out` emptied again.
    static void Print(const CXMLNode& top, int level, std::string& out, CFile* file);

    friend class CXMLDocument;
};

}  // namespace dorvik::classic

using dorvik::classic::CXMLDocument;
using dorvik::classic::CXMLNode;
using dorvik::classic::FindNodeText;
