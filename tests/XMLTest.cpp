#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "Dorvik01.h"
#include "TestUtil.h"

namespace {
const std::string kData = std::string(DORVIK_TEST_DATA) + "/xml/";

// The text form with each CR LF shown as '|', so that a whole tree fits on a line.
std::string Shown(const CString& text) {
    std::string out;
    for (const char* p = text; *p; ++p) {
        if (p[0] == '\r' && p[1] == '\n') {
            out += '|';
            ++p;
        } else {
            out += *p;
        }
    }
    return out;
}

std::string Tree(const CXMLDocument& doc) {
    return doc.GetDocumentNode() ? Shown(doc.GetDocumentNode()->XMLString(-1)) : "";
}

std::string Name(const CXMLNode* node) { return node ? std::string(node->GetName()) : "(null)"; }

// Reaches the protected file form of the writer.
struct Printable : CXMLNode {
    using CXMLNode::XMLString;
};

std::string MemText(CMemFile& file) {
    DWORD length = file.GetLength();
    BYTE* block = file.Detach();
    std::string out(reinterpret_cast<char*>(block), length);
    std::free(block);
    return out;
}

// Every node that GetNext(false) visits from `start` until it comes back.
std::vector<std::string> WalkNames(CXMLNode* start, bool forward) {
    std::vector<std::string> out;
    CXMLNode* node = start;
    do {
        out.push_back(Name(node));
        node = forward ? node->GetNext(false) : node->GetPrev(false);
    } while (node && node != start && out.size() < 100);
    return out;
}
}  // namespace

// ---- Node model ----

TEST(XMLNode, ChildrenAndAttributesAnswerOutOfRangeAndMissingWithNothing) {
    CXMLNode top;
    CXMLNode* a = top.AddNode("a");
    CXMLNode* b = top.AddNode("b");
    EXPECT_EQ(a->GetText(), "");
    EXPECT_FALSE(a->IsRoot());
    EXPECT_TRUE(top.IsRoot());
    EXPECT_EQ(top.GetChild(-1), nullptr);
    EXPECT_EQ(top[2], nullptr);
    POSITION p = top.GetFirstChildPosition();
    EXPECT_EQ(p, nullptr);
    EXPECT_EQ(top.GetNextChild(p), a);
    EXPECT_EQ(top.GetNextChild(p), b);
    EXPECT_EQ(top.GetNextChild(p), nullptr);
    EXPECT_EQ(top.GetIndex(b), 1);

    CXMLNode other;
    CXMLNode* stranger = other.AddNode("s");
    EXPECT_EQ(top.RemoveNode(stranger), -1);  // not ours: nothing deleted
    EXPECT_EQ(other.GetChild(0), stranger);
    top.AddNode(stranger);  // has a parent already: refused
    EXPECT_EQ(top.GetLength(), 2);
    EXPECT_FALSE(top.RemoveNode(5));
    EXPECT_EQ(top.RemoveNode(a), 0);
    EXPECT_EQ(top.GetChild(0), b);

    b->SetAttribute("n", -5);
    b->SetAttribute("t", "text");
    b->SetAttribute("a", "1");
    b->SetAttribute("n", "7");  // replacing keeps the place
    int n = 99;
    b->GetAttribute("missing", n);
    EXPECT_EQ(n, 0);
    b->GetAttribute("t", n);
    EXPECT_EQ(n, 0);  // atoi of text
    EXPECT_EQ(b->GetAttributeValue("missing", 42), 42);
    EXPECT_EQ(b->GetAttributeValue("n", 42), 7);
    EXPECT_EQ(b->GetAttribute("missing"), "");
    EXPECT_TRUE(b->RemoveAttribute("t"));
    EXPECT_FALSE(b->IsAttribute("t"));
    b->SetAttribute("t", "again");  // removed and set again: last
    EXPECT_EQ(Shown(b->XMLString(0)), "<b n=\"7\" a=\"1\" t=\"again\"/>|");
    CXMLNode minus;
    minus.SetAttribute("v", -5);
    EXPECT_EQ(minus.GetAttribute("v"), "-5");
}

TEST(XMLNode, WalksWrapAroundAsTheDocumentOrderSays) {
    CXMLDocument doc;
    ASSERT_TRUE(doc.LoadXML("<r><a><b/><c></c></a><d></d></r><!-- z -->"));
    CXMLNode* r = doc.GetRoot();
    CXMLNode* a = r->GetChild(0);
    CXMLNode* d = r->GetChild(1);
    EXPECT_EQ(WalkNames(r, true), (std::vector<std::string>{"r", "a", "b", "c", "d", "!-- z --"}));
    EXPECT_EQ(Name(d->GetNext(true)), "(null)");  // siblings never wrap
    EXPECT_EQ(Name(a->GetPrev(true)), "(null)");
    // Backwards: the reverse order, and the first child of the root element goes on
    // with the last node under it.
    EXPECT_EQ(WalkNames(d, false), (std::vector<std::string>{"d", "c", "b", "a"}));
    EXPECT_EQ(r->GetPrev(false), doc.GetDocumentNode());
    EXPECT_EQ(doc.GetDocumentNode()->GetNext(false), nullptr);
    EXPECT_EQ(r->GetNodeLevel(a->GetChild(1)), 3);
    EXPECT_EQ(r->GetNodeLevel(r), 1);
    EXPECT_EQ(doc.GetDocumentNode()->GetNodeLevel(r), -1);
}

TEST(XMLNode, AssignmentAppendsADeepCopyThatSharesNothing) {
    CXMLDocument doc;
    ASSERT_TRUE(doc.LoadXML("<s k='1'><x>t</x><y><z/></y></s>"));
    CXMLNode target;
    target.SetName("old");
    target.SetAttribute("own", "kept");
    target.AddNode("first");
    target = *doc.GetRoot();
    EXPECT_EQ(Shown(target.XMLString(0)),
              "<s own=\"kept\" k=\"1\">|\t<first/>|\t<x>t</x>|\t<y>|\t\t<z/>|\t</y>|</s>|");
    doc.GetRoot()->GetChild(0)->SetText("changed");
    EXPECT_EQ(target.GetChild(1)->GetText(), "t");
    EXPECT_EQ(target.GetChild(2)->GetParent(), &target);

    // A source that holds the target is copied as it was before the assignment.
    CXMLNode* y = doc.GetRoot()->GetChild(1);
    *y = *doc.GetRoot();
    EXPECT_EQ(y->GetParent(), nullptr);  // the link goes, the place among the children stays
    EXPECT_EQ(Tree(doc),
              "<s k=\"1\">|\t<x>changed</x>|\t<s k=\"1\">|\t\t<z/>|\t\t<x>changed</x>|"
              "\t\t<y>|\t\t\t<z/>|\t\t</y>|\t</s>|</s>|");
    *y = *y;  // self-assignment doubles the children
    EXPECT_EQ(y->GetLength(), 6);
}

TEST(XMLNode, ChildrenKeptByNameStayTrueThroughRemoveAndRename) {
    CXMLDocument doc;
    doc.SetNoRepeatedBrothers(true);
    ASSERT_TRUE(doc.LoadXML("<r><a i='1'></a><a i='2'></a><b></b></r>"));
    CXMLNode* r = doc.GetRoot();
    CXMLNode* first = r->GetChild(0);
    CXMLNode* second = r->GetChild(1);
    EXPECT_EQ(r->Find("a", false, true, false), second);  // the map names the later one
    EXPECT_EQ(r->Find("a", "i", "1", false, true, false), nullptr);
    EXPECT_EQ(r->Select("b"), r->GetChild(2));

    // Removing the earlier one leaves the later one findable.
    CXMLNode* copy = r->AddNode("a");
    EXPECT_EQ(r->Find("a", false, true, false), copy);
    EXPECT_EQ(r->RemoveNode(copy), 3);
    EXPECT_EQ(r->Find("a", false, true, false), nullptr);  // the earlier ones are lost
    second->SetName("c");                                  // rename: the parent's map follows
    EXPECT_EQ(r->Find("c", false, true, false), second);
    EXPECT_EQ(r->Find("a", false, true, false), nullptr);
    first->SetName("b");  // takes the name over from its brother
    EXPECT_EQ(r->Find("b", false, true, false), first);
    EXPECT_EQ(r->GetLength(), 3);
    CXMLNode* fresh = r->Select("new");
    EXPECT_EQ(r->Select("new"), fresh);
    EXPECT_EQ(r->GetLength(), 4);
}

// ---- Writer ----

TEST(XMLWriter, PrintsEachShapeWithCrLfAndTabs) {
    CXMLNode a;
    a.SetName("a");
    EXPECT_EQ(a.XMLString(2), "\t\t<a/>\r\n");
    a.SetText("b");
    EXPECT_EQ(a.XMLString(0), "<a>b</a>\r\n");
    a.SetText("");
    a.AddNode("b");
    EXPECT_EQ(a.XMLString(0), "<a>\r\n\t<b/>\r\n</a>\r\n");
    a.SetText("x");
    EXPECT_EQ(a.XMLString(0), "<a>x\r\n\t<b/>\r\n</a>\r\n");
    EXPECT_EQ(a.XMLString(-1), "<b/>\r\n");

    CXMLNode q;
    q.SetName("q");
    q.SetAttribute("d", "say \"hi\"");
    q.SetAttribute("s", "it's");
    q.SetAttribute("e", "");
    q.SetAttribute("raw", "<&>");
    EXPECT_EQ(q.XMLString(0), "<q d='say \"hi\"' s=\"it's\" e=\"\" raw=\"<&>\"/>\r\n");

    // A special node with children: its line, then the children one level deeper,
    // which read back as its later siblings.
    CXMLDocument doc;
    ASSERT_TRUE(doc.LoadXML("<!-- c --><r></r>"));
    doc.GetDocumentNode()->GetChild(0)->AddNode("kid");
    EXPECT_EQ(Tree(doc), "<!-- c -->|\t<kid/>|<r/>|");
    CXMLDocument again;
    EXPECT_TRUE(again.LoadXML(doc.GetDocumentNode()->XMLString(-1)));
    EXPECT_EQ(Tree(again), "<!-- c -->|<kid/>|");  // the self-closed kid ends the load
}

TEST(XMLWriter, FileFormGivesTheBytesOfTheStringForm) {
    CXMLDocument doc;
    ASSERT_TRUE(doc.Load((kData + "declared.xml").c_str()));
    CMemFile whole;
    doc.Save(&whole);
    EXPECT_EQ(MemText(whole), std::string(doc.GetDocumentNode()->XMLString(-1)));

    Printable root;
    root.CXMLNode::operator=(*doc.GetRoot());
    CMemFile part;
    root.XMLString(&part, 1);
    EXPECT_EQ(MemText(part), std::string(root.XMLString(1)));

    CXMLDocument empty;
    ASSERT_TRUE(empty.LoadXML(""));
    TempDir dir;
    WriteAll(dir.Path("e.xml"), B("old content"));
    empty.Save(dir.Path("e.xml").c_str());
    EXPECT_EQ(ReadAll(dir.Path("e.xml")), Bytes());
    CXMLDocument never;  // never loaded: saved like an empty document
    WriteAll(dir.Path("n.xml"), B("old content"));
    never.Save(dir.Path("n.xml").c_str());
    EXPECT_EQ(ReadAll(dir.Path("n.xml")), Bytes());
}

// ---- Parser ----

TEST(XMLParser, ReadsEveryFormByTheScannerRules) {
    struct Case {
        const char* xml;
        bool result;
        const char* tree;
        const char* root;
    };
    const Case cases[] = {
        {"", true, "", "(null)"},
        {"no tags at all", true, "", "(null)"},
        {"junk <a/>", true, "<a/>|", "a"},
        {"<?xml version='1.0'?><a></a>", true, "<?xml version='1.0'?>|<a/>|", "a"},
        {"<!-- c --><a/>", true, "<!-- c -->|<a/>|", "a"},
        {"<a><!-- c --><b/></a>", true, "<a>|\t<!-- c -->|\t<b/>|</a>|", "a"},
        {"<a> x <b/> y </a>", true, "<a>x|\t<b/>|</a>|", "a"},
        {"<a x = 'p\"q' y=\"r\"></a>", true, "<a x='p\"q' y=\"r\"/>|", "a"},
        {"<a x='1' x='2'/>", true, "<a x=\"2\"/>|", "a"},
        {"<a b></a>", true, "<a b/>|", "a b"},
        {"<a\tb='1'></a>", true, "<a\tb='1'/>|", "a\tb='1'"},
        {"<a></b>", false, "<a/>|", "a"},
        {"<ab></a>", true, "<ab/>|", "ab"},
        {"<ab></abc>", false, "<ab/>|", "ab"},
        {"<a><b></></a>", true, "<a>|\t<b/>|</a>|", "a"},
        {"<a/><b/>", true, "<a/>|", "a"},
        {"<a></a><b></b>", true, "<a/>|<b/>|", "a"},
        {"<a></a><!-- end -->", true, "<a/>|<!-- end -->|", "a"},
        {"</x><a/>", true, "", "(null)"},
        {"<a>&amp;<b v='&lt;'/></a>", true, "<a>&amp;|\t<b v=\"&lt;\"/>|</a>|", "a"},
        {"<a x='1>2'>t</a>", true, "<a x=\"\">2'>t</a>|", "a"},
        {"<a x=\"open></a>", true, "<a x=\"\"/>|", "a"},
        {"<a x='p y=\"q\"></a>", true, "<a x=\"\" 'p y=\"q\"/>|", "a"},
        {"<!-- a > b --><r/>", true, "<!-- a >b -->|<r/>|", "r"},
        {"<?pi?/><a/>", true, "<?pi?>|", "(null)"},
        {"<a", false, "", "(null)"},
        {"<a><b>", false, "<a>|\t<b/>|</a>|", "a"},
        {"<a x=y></a>", false, "", "(null)"},
        {"<a x=/>", false, "", "(null)"},
        {"<r><b x=y/></r>", false, "<r/>|", "r"},
        {"<!DOCTYPE html><a/>", false, "<!DOCTYPE html>|\t<a/>|</!DOCTYPE html>|", "!DOCTYPE html"},
        {"<>", false, "</>|", ""},
        {"<></>", true, "</>|", ""},
    };
    for (const Case& c : cases) {
        CXMLDocument doc;
        EXPECT_EQ(doc.LoadXML(c.xml), c.result) << c.xml;
        EXPECT_EQ(Tree(doc), c.tree) << c.xml;
        EXPECT_EQ(Name(doc.GetRoot()), c.root) << c.xml;
    }
    CXMLDocument doc;
    EXPECT_TRUE(doc.LoadXML(nullptr));
    EXPECT_EQ(doc.GetDocumentNode()->GetLength(), 0);
    doc.Free();
    EXPECT_EQ(doc.GetDocumentNode(), nullptr);
}

TEST(XMLParser, LoadsFilesFromTheirPositionUpToAZeroByte) {
    TempDir dir;
    CXMLDocument doc;
    EXPECT_FALSE(doc.Load(dir.Path("missing.xml").c_str()));
    EXPECT_THROW(doc.Load(dir.Root().c_str()), CFileException);  // exists, cannot be read

    WriteAll(dir.Path("z.xml"), Cat({B("<a>x"), Hex("00"), B("</a>")}));
    EXPECT_FALSE(doc.Load(dir.Path("z.xml").c_str()));  // the text ends at the zero
    EXPECT_EQ(Tree(doc), "<a>x</a>|");
    WriteAll(dir.Path("z.xml"), Cat({B("skip<a/>"), Hex("00"), B("<junk")}));
    CFile file(dir.Path("z.xml").c_str(), CFile::modeRead);
    file.Seek(4, CFile::begin);
    EXPECT_TRUE(doc.Load(&file));
    EXPECT_EQ(Tree(doc), "<a/>|");
}

TEST(XMLParser, DeepNestingLoadsWalksCopiesAndFreesWithoutRecursion) {
    const int depth = 100000;
    std::string xml;
    for (int i = 0; i < depth; ++i) xml += "<a>";
    xml += "<z k='v'/>";
    for (int i = 0; i < depth; ++i) xml += "</a>";
    CXMLDocument doc;
    ASSERT_TRUE(doc.LoadXML(xml.c_str()));
    CXMLNode* top = doc.GetDocumentNode();
    CXMLNode* z = top->Find("z", true, true, false);
    ASSERT_NE(z, nullptr);
    EXPECT_EQ(top->Find("z", "k", "v", true, false, false), z);
    EXPECT_EQ(doc.GetRoot()->GetNodeLevel(z), depth + 1);
    FindNodeText how;
    EXPECT_EQ(CXMLNode::Find(doc.GetRoot(), "z", &how), z);
    how.m_bForward = false;
    EXPECT_EQ(CXMLNode::Find(z, "zz", &how), nullptr);
    EXPECT_EQ(z->GetNext(false), doc.GetRoot());  // climbs the whole way and wraps

    CXMLDocument copy(doc);
    EXPECT_EQ(copy.GetRoot()->GetNodeLevel(copy.GetRoot()->Find("z", true, true, false)),
              depth + 1);
    CXMLNode assigned;
    assigned = *doc.GetRoot();
    EXPECT_EQ(assigned.GetLength(), 1);

    xml.resize(static_cast<std::size_t>(depth) * 3);  // all open, nothing closed
    EXPECT_FALSE(doc.LoadXML(xml.c_str()));

    // The writer has its own stack too; its text grows with the square of the depth,
    // so it is tried on a smaller tree.
    std::string shallow;
    for (int i = 0; i < 3000; ++i) shallow += "<a>";
    for (int i = 0; i < 3000; ++i) shallow += "</a>";
    ASSERT_TRUE(doc.LoadXML(shallow.c_str()));
    CString text = doc.GetDocumentNode()->XMLString(-1);
    CXMLDocument again;
    ASSERT_TRUE(again.LoadXML(text));
    EXPECT_EQ(again.GetDocumentNode()->XMLString(-1), text);
}

TEST(XMLParser, RealDocumentsKeepTreeAndBytesThroughSaveAndLoad) {
    TempDir dir;
    for (const char* name :
         {"config.xml", "feed.xml", "declared.xml", "arabic-1256.xml", "arabic-utf8.xml"}) {
        CXMLDocument doc;
        ASSERT_TRUE(doc.Load((kData + name).c_str())) << name;
        std::string saved = dir.Path(name);
        doc.Save(saved.c_str());
        Bytes first = ReadAll(saved);
        EXPECT_EQ(first, B(std::string(doc.GetDocumentNode()->XMLString(-1)))) << name;
        CXMLDocument again;
        ASSERT_TRUE(again.Load(saved.c_str())) << name;
        again.Save(saved.c_str());
        EXPECT_EQ(ReadAll(saved), first) << name;
    }

    CXMLDocument config;
    ASSERT_TRUE(config.Load((kData + "config.xml").c_str()));
    CXMLNode* settings = config.GetRoot();
    EXPECT_EQ(settings->GetAttributeValue("version", 0), 3);
    EXPECT_EQ(settings->Find("cache", true, true, false)->GetAttribute("pages"), "4096");
    EXPECT_EQ(settings->Find("log", false, true, false)->GetAttribute("target"),
              "file \"dorvik.log\"");
    EXPECT_EQ(settings->Find("user", "role", "reader", true, false, false)->GetAttribute("id"),
              "3");

    CXMLDocument feed;
    ASSERT_TRUE(feed.Load((kData + "feed.xml").c_str()));
    CXMLNode* channel = feed.GetRoot()->GetChild(0);
    int items = 0;
    for (CXMLNode* item = channel->Find("item", false, true, false); item;
         item = item->GetNext(true))
        items += item->GetName() == "item";
    EXPECT_EQ(items, 120);
    EXPECT_EQ(channel->Find("item", "id", "n0120", false, false, false), channel->GetChild(121));

    CXMLDocument declared;
    ASSERT_TRUE(declared.Load((kData + "declared.xml").c_str()));
    CXMLNode* top = declared.GetDocumentNode();
    EXPECT_EQ(top->GetChild(0)->GetName(), "?xml version=\"1.0\" encoding=\"windows-1256\"?");
    EXPECT_EQ(declared.GetRoot(), top->GetChild(2));
    EXPECT_EQ(top->GetChild(3)->GetName(), "!-- end of export --");
    EXPECT_EQ(declared.GetRoot()->Find("book", "lang", "en", true, true, false)->GetText(),
              "Word Search &amp; Retrieval");

    CXMLDocument arabic;
    ASSERT_TRUE(arabic.Load((kData + "arabic-1256.xml").c_str()));
    CXMLNode* entry = arabic.GetRoot()->Find("entry", "root", "\xDF\xCA\xC8", false, true, false);
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->GetChild(0)->GetText(), "\xDF\xF3\xCA\xF3\xC8\xF3");
    ASSERT_TRUE(arabic.Load((kData + "arabic-utf8.xml").c_str()));
    EXPECT_NE(
        arabic.GetRoot()->Find("entry", "root", "\xD9\x83\xD8\xAA\xD8\xA8", false, true, false),
        nullptr);
}

TEST(XMLDocument, TreesMayBeMadeOnOneThreadAndFreedOnAnother) {
    std::string xml = "<r>";
    for (int i = 0; i < 2000; ++i) xml += "<a><b/></a>";
    xml += "</r>";
    CXMLDocument made;
    std::thread([&] { EXPECT_TRUE(made.LoadXML(xml.c_str())); }).join();
    CXMLDocument copy(made);  // on this thread, while the maker has ended
    made.Free();
    std::thread([&] {
        CXMLDocument again;  // takes over the cells that the ended thread left
        EXPECT_TRUE(again.LoadXML(xml.c_str()));
        EXPECT_EQ(Tree(again), Tree(copy));
    }).join();
    EXPECT_EQ(copy.GetRoot()->GetLength(), 2000);
}

TEST(XMLDocument, CopiesAreDeepAndKeepRootAndSwitches) {
    CXMLDocument doc;
    doc.SetNoRepeatedBrothers(true);
    ASSERT_TRUE(doc.LoadXML("<?pi?><r><a i='1'></a><a i='2'><b></b></a></r>"));
    CXMLDocument copy(doc);
    ASSERT_NE(copy.GetRoot(), doc.GetRoot());
    EXPECT_EQ(copy.GetRoot(), copy.GetDocumentNode()->GetChild(1));
    EXPECT_EQ(Tree(copy), Tree(doc));
    EXPECT_EQ(copy.GetRoot()->Find("a", false, true, false)->GetAttribute("i"), "2");
    // By name, the search goes only through children named "b": there are none.
    EXPECT_EQ(copy.GetRoot()->Find("b", true, true, false), nullptr);
    EXPECT_NE(copy.GetRoot()->GetChild(1)->Find("b", true, true, false), nullptr);
    doc.GetRoot()->SetText("changed");
    EXPECT_EQ(copy.GetRoot()->GetText(), "");

    CXMLDocument assigned;
    ASSERT_TRUE(assigned.LoadXML("<old/>"));
    assigned = copy;
    assigned = assigned;
    EXPECT_TRUE(assigned.GetNoRepeatedBrothers());
    EXPECT_EQ(Tree(assigned), Tree(copy));
    assigned = CXMLDocument();  // a document that was never loaded copies as such
    EXPECT_EQ(assigned.GetDocumentNode(), nullptr);
    EXPECT_EQ(assigned.GetRoot(), nullptr);
}

// ---- Search ----

TEST(XMLSearch, FindsByNameAndAttributeInDocumentOrder) {
    CXMLDocument doc;
    ASSERT_TRUE(
        doc.LoadXML("<r><p><a n='inner'></a></p><a n='outer' v='alpha'><a n='deep'></a></a></r>"));
    CXMLNode* r = doc.GetRoot();
    EXPECT_EQ(r->Find("r", true, true, false), nullptr);  // not the node itself
    EXPECT_EQ(r->Find("a", true, true, false)->GetAttribute("n"), "inner");
    EXPECT_EQ(r->Find("a", false, true, false)->GetAttribute("n"), "outer");
    EXPECT_EQ(r->Find("a", true, false, false)->GetAttribute("n"), "deep");
    EXPECT_EQ(r->Find("a", "v", "alpha", true, true, false)->GetAttribute("n"), "outer");
    EXPECT_EQ(r->Find("a", "v", "lph", true, true, true)->GetAttribute("n"), "outer");
    EXPECT_EQ(r->Find("a", "v", "", true, true, false)->GetAttribute("n"), "inner");
    EXPECT_EQ(r->Find("a", "v", "lph", true, true, false), nullptr);
    EXPECT_TRUE(r->IsNodeProperties("r", "missing", "", false));
    EXPECT_FALSE(r->IsNodeProperties("R", nullptr, nullptr, false));

    FindNodeText how;
    EXPECT_EQ(CXMLNode::Find(r, "r", &how), r);  // the static form tests `start`
    CXMLNode* deep = CXMLNode::Find(r, "a", "n", "deep", &how);
    ASSERT_NE(deep, nullptr);
    EXPECT_EQ(CXMLNode::Find(deep, "p", nullptr), r->GetChild(0));  // wraps around
    how.m_bSiblings = true;
    EXPECT_EQ(CXMLNode::Find(r->GetChild(0), "r", &how), nullptr);  // stops behind the last
    how.m_bSiblings = false;
    how.m_bForward = false;
    EXPECT_EQ(CXMLNode::Find(deep, "p", &how), r->GetChild(0));
    EXPECT_EQ(CXMLNode::Find(deep, "x", &how), nullptr);
    how.m_bParentless = true;
    EXPECT_EQ(CXMLNode::Find(r, "", &how), doc.GetDocumentNode());
}

TEST(XMLSearch, BackwardWalkFromALaterTopLevelNodeEnds) {
    // Going back from the comment falls into the wrap of the root element, which never
    // leads back to the comment: the search ends after one round.
    CXMLDocument doc;
    ASSERT_TRUE(doc.LoadXML("<r><a></a><b></b></r><!-- c -->"));
    CXMLNode* comment = doc.GetDocumentNode()->GetChild(1);
    FindNodeText how;
    how.m_bForward = false;
    EXPECT_EQ(CXMLNode::Find(comment, "nothing", &how), nullptr);
    EXPECT_EQ(CXMLNode::Find(comment, "a", &how), doc.GetRoot()->GetChild(0));
}
