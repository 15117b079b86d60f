// Loading, freeing and saving a generated 10 MB XML document, beside two widely used
// parsers that read the same bytes. Freed memory stays in the process and every parse
// runs into a fresh document object, so that the heap is warm: the parse figures are
// the parse alone, and the free figures the freeing of the tree alone.
//
// Peak heap: every block of the C heap taken while one parse runs into a fresh
// document is counted at its usable size; "peak_heap_x" is the peak of the live bytes
// over the document's size. It is measured on the first parse of each kind, before any
// other, so that the slabs of our node pool count in full.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <tinyxml2.h>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <pugixml.hpp>
#include <random>
#include <string>

#include "BenchUtil.h"
#include "dorvik/XMLDocument.h"

namespace {
bool g_counting = false;
long long g_live = 0;
long long g_peak = 0;

void Counted(void* block) {
    if (!g_counting || !block) return;
    g_live += static_cast<long long>(malloc_usable_size(block));
    if (g_live > g_peak) g_peak = g_live;
}
void Uncounted(void* block) {
    if (g_counting && block) g_live -= static_cast<long long>(malloc_usable_size(block));
}

// A catalogue export of a text database: records with attributes, short fields, a
// few subjects and an abstract of 30 to 120 words; tab indentation and CR LF, no
// entities, so that all three parsers read the same tree. About 10 MB. The dense kind
// has abstracts of 10 to 60 words, and so more nodes (one per 65 bytes instead of 95).
enum Kind { kCatalogue = 0, kDense = 1 };

std::string Generate(Kind kind) {
    const char* words[] = {"storage", "index",  "record", "file",     "text",   "search",
                           "word",    "root",   "form",   "query",    "array",  "bit",
                           "merge",   "tree",   "level",  "node",     "scan",   "reader",
                           "library", "manual", "corpus", "language", "letter", "mark"};
    const char* names[] = {"Hala Nasser", "Omar Idris", "Lina Haddad",
                           "Sami Karam",  "Rana Aziz",  "Yusuf Barakat"};
    std::mt19937 rng(2024);
    auto below = [&rng](unsigned n) { return static_cast<unsigned>(rng() % n); };
    auto word = [&]() { return std::string(words[below(24)]); };
    auto phrase = [&](int low, int high) {
        std::string out = word();
        int n = low + static_cast<int>(below(static_cast<unsigned>(high - low + 1)));
        for (int i = 1; i < n; ++i) {
            out += ' ';  // two appends: GCC 12 at -O3 warns wrongly on " " + word()
            out += word();
        }
        return out;
    };
    std::string xml =
        "<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n<!-- nightly export -->\r\n"
        "<catalogue source=\"bench\">\r\n";
    char line[256];
    for (int id = 1; xml.size() < 10u * 1024 * 1024; ++id) {
        std::snprintf(line, sizeof line, "\t<record id=\"r%07d\" lang=\"%s\" status=\"%s\">\r\n",
                      id, id % 3 ? "en" : "ar", id % 5 ? "public" : "draft");
        xml += line;
        xml += "\t\t<title>" + phrase(3, 9) + "</title>\r\n";
        std::snprintf(line, sizeof line, "\t\t<author role=\"%s\">%s</author>\r\n",
                      id % 4 ? "writer" : "editor", names[below(6)]);
        xml += line;
        std::snprintf(line, sizeof line, "\t\t<date>20%02u-%02u-%02u</date>\r\n", below(25),
                      1 + below(12), 1 + below(28));
        xml += line;
        for (unsigned s = 1 + below(3); s > 0; --s)
            xml += "\t\t<subject>" + word() + "</subject>\r\n";
        xml += "\t\t<abstract>" + (kind == kDense ? phrase(10, 60) : phrase(30, 120)) +
               "</abstract>\r\n";
        std::snprintf(line, sizeof line, "\t\t<location shelf=\"%u\" row=\"%u\"/>\r\n", below(400),
                      below(9));
        xml += line;
        xml += "\t</record>\r\n";
    }
    xml += "</catalogue>\r\n";
    return xml;
}

const std::string& Document(Kind kind) {
    static const std::string catalogue = Generate(kCatalogue);
    static const std::string dense = Generate(kDense);
    return kind == kDense ? dense : catalogue;
}

// Keeps freed memory in the process, so that a parse that follows another finds its
// pages ready instead of taking fresh ones from the system: the heap stays warm for all
// three parsers alike (and for the benchmarks that run after these).
void WarmHeap() {
    mallopt(M_MMAP_THRESHOLD, 32 * 1024 * 1024);
    mallopt(M_TRIM_THRESHOLD, 1024 * 1024 * 1024);
}

// The three parsers, each reading the whole document into a fresh document object.
bool ParseDorvik(CXMLDocument& doc, const std::string& xml) { return doc.LoadXML(xml.c_str()); }
bool ParsePugixml(pugi::xml_document& doc, const std::string& xml) {
    return static_cast<bool>(doc.load_buffer(xml.data(), xml.size()));
}
bool ParseTinyxml2(tinyxml2::XMLDocument& doc, const std::string& xml) {
    return doc.Parse(xml.data(), xml.size()) == tinyxml2::XML_SUCCESS;
}

// The peak of live heap bytes while `parse` reads `xml` into `doc`, over the size of
// `xml`; -1 when the parse fails.
template <typename Doc, typename Parse>
double PeakOf(Doc& doc, const std::string& xml, Parse parse) {
    g_live = g_peak = 0;
    g_counting = true;
    bool ok = parse(doc, xml);
    g_counting = false;
    return ok ? static_cast<double>(g_peak) / static_cast<double>(xml.size()) : -1;
}

// Times the parse into a fresh document (`timeFree` false) or the freeing of that
// document (true); the other half runs with the clock stopped. The first call per
// parser measures the peak heap of one parse of each kind, before anything is warm.
template <typename Doc, bool (*Parse)(Doc&, const std::string&)>
void ParseOrFree(benchmark::State& state, bool timeFree) {
    WarmHeap();
    Kind kind = static_cast<Kind>(state.range(0));
    const std::string& xml = Document(kind);
    static double peak[2] = {-1, -1};
    if (peak[0] < 0) {
        // Both trees stay alive until both are measured, so that the second parse
        // finds no freed memory of the first to reuse.
        Doc first, second;
        peak[kCatalogue] = PeakOf(first, Document(kCatalogue), Parse);
        peak[kDense] = PeakOf(second, Document(kDense), Parse);
        if (peak[kCatalogue] < 0 || peak[kDense] < 0) state.SkipWithError("parse failed");
    }
    for (auto _ : state) {
        if (timeFree) state.PauseTiming();
        auto doc = std::make_unique<Doc>();
        benchmark::DoNotOptimize(Parse(*doc, xml));
        if (timeFree)
            state.ResumeTiming();
        else
            state.PauseTiming();
        doc.reset();
        if (!timeFree) state.ResumeTiming();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<long long>(xml.size()));
    state.counters["doc_MB"] = static_cast<double>(xml.size()) / (1024.0 * 1024.0);
    if (!timeFree) state.counters["peak_heap_x"] = peak[kind];
}

void BM_XMLParseDorvik(benchmark::State& s) { ParseOrFree<CXMLDocument, ParseDorvik>(s, false); }
void BM_XMLParsePugixml(benchmark::State& s) {
    ParseOrFree<pugi::xml_document, ParsePugixml>(s, false);
}
void BM_XMLParseTinyxml2(benchmark::State& s) {
    ParseOrFree<tinyxml2::XMLDocument, ParseTinyxml2>(s, false);
}
void BM_XMLFreeDorvik(benchmark::State& s) { ParseOrFree<CXMLDocument, ParseDorvik>(s, true); }
void BM_XMLFreePugixml(benchmark::State& s) {
    ParseOrFree<pugi::xml_document, ParsePugixml>(s, true);
}
void BM_XMLFreeTinyxml2(benchmark::State& s) {
    ParseOrFree<tinyxml2::XMLDocument, ParseTinyxml2>(s, true);
}
BENCHMARK(BM_XMLParseDorvik)->Arg(kCatalogue)->Arg(kDense)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_XMLParsePugixml)->Arg(kCatalogue)->Arg(kDense)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_XMLParseTinyxml2)->Arg(kCatalogue)->Arg(kDense)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_XMLFreeDorvik)->Arg(kCatalogue)->Arg(kDense)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_XMLFreePugixml)->Arg(kCatalogue)->Arg(kDense)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_XMLFreeTinyxml2)->Arg(kCatalogue)->Arg(kDense)->Unit(benchmark::kMillisecond);

// Saving the loaded tree of the catalogue to a file, each parser in its own default
// text form; "String" is our text form built in memory.
void SaveDorvik(CXMLDocument& doc, const char* path) { doc.Save(path); }
void StringDorvik(CXMLDocument& doc, const char*) {
    benchmark::DoNotOptimize(doc.GetDocumentNode()->XMLString(-1));
}
void SavePugixml(pugi::xml_document& doc, const char* path) { doc.save_file(path); }
void SaveTinyxml2(tinyxml2::XMLDocument& doc, const char* path) { doc.SaveFile(path); }

template <typename Doc, bool (*Parse)(Doc&, const std::string&), void (*Save)(Doc&, const char*)>
void SaveTree(benchmark::State& state) {
    const std::string& xml = Document(kCatalogue);
    Doc doc;
    Parse(doc, xml);
    std::string path = BenchPath("xml-save.xml");
    for (auto _ : state) Save(doc, path.c_str());
    state.SetBytesProcessed(state.iterations() * static_cast<long long>(xml.size()));
    std::remove(path.c_str());
}

void BM_XMLSaveDorvik(benchmark::State& s) { SaveTree<CXMLDocument, ParseDorvik, SaveDorvik>(s); }
void BM_XMLStringDorvik(benchmark::State& s) {
    SaveTree<CXMLDocument, ParseDorvik, StringDorvik>(s);
}
void BM_XMLSavePugixml(benchmark::State& s) {
    SaveTree<pugi::xml_document, ParsePugixml, SavePugixml>(s);
}
void BM_XMLSaveTinyxml2(benchmark::State& s) {
    SaveTree<tinyxml2::XMLDocument, ParseTinyxml2, SaveTinyxml2>(s);
}
BENCHMARK(BM_XMLSaveDorvik)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_XMLStringDorvik)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_XMLSavePugixml)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_XMLSaveTinyxml2)->Unit(benchmark::kMillisecond);
}  // namespace

// The C heap, counted: every allocation of the process (operator new, the peers, our
// library) passes here and is counted while a peak is being measured.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void __libc_free(void* block);

void* malloc(std::size_t size) {
    void* block = __libc_malloc(size);
    Counted(block);
    return block;
}
void* calloc(std::size_t count, std::size_t size) {
    void* block = __libc_calloc(count, size);
    Counted(block);
    return block;
}
void* realloc(void* block, std::size_t size) {
    Uncounted(block);
    void* moved = __libc_realloc(block, size);
    if (moved || size > 0) Counted(moved ? moved : block);  // size 0 freed the block
    return moved;
}
void free(void* block) {
    Uncounted(block);
    __libc_free(block);
}
}
