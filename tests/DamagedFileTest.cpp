// Damaged files: a small valid file of every kind, each byte changed three ways and
// every truncation, read through the public API. Every case must end with a result or
// a CFileException, within a budget of time and of memory per block.
#include <gtest/gtest.h>

#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "Dorvik01.h"
#include "TestUtil.h"
#include "TreeWalk.h"

namespace {

// Block budget of one case: what every file may ask for (the 100 KiB first table of an
// empty record file, the memory files' growth steps), a small multiple of the file's
// size, and the allowance that the kind's contract gives the bytes (plain lengths of
// compressed bit records, values of an integer file taken as bit numbers). A phantom
// record of the damaged table is far above it.
constexpr std::size_t kFixedBudget = 128 * 1024;
constexpr std::size_t kBytesFactor = 64;
// Time budget of one case, in processor time of the thread (so that other work on the
// machine does not count): a multiple of the valid file's time, and a second for each
// MiB of allowance, since what the contract lets the bytes ask for they may also make
// work for (a damaged run of set bits inverts into that many records). Generous, yet
// far below what a loop over a phantom record count or a quadratic walk would take.
constexpr double kFixedSeconds = 0.5;
constexpr double kValidFactor = 20;
constexpr double kSecondsPerAllowedByte = 1.0 / (1 << 20);
// A kind whose full sweep (four cases per byte) would pass this many cases is sampled:
// see DamageCases.
constexpr std::size_t kMaxCases = 1600;

// A case that runs away (a loop over a phantom count) would hold the whole run: after
// kHangSeconds the process ends, naming the case.
constexpr unsigned kHangSeconds = 60;
char g_running[160];

extern "C" void OnHang(int) {
    const char text[] = "damaged file case hangs: ";
    ssize_t ignored = write(2, text, sizeof text - 1);
    ignored = write(2, g_running, strnlen(g_running, sizeof g_running));
    (void)ignored;
    _exit(3);
}

// Runs a step of a reader; a CFileException (the file is refused) ends only that step.
void Step(const std::function<void()>& step) {
    try {
        step();
    } catch (const CFileException&) {}
}

// A step whose result the file's values size by contract (an integer file's values as
// bit numbers or as positions of its inverse): the block limit stands for the bound that an
// application reading untrusted files sets, and its CMemoryException is the expected refusal.
void SizedByValues(const std::function<void()>& step) {
    try {
        step();
    } catch (const CException&) {}
}

void Drop(unsigned char* block) { DropBlock(block); }

// The plain length of a stored bit record: what its expansion may ask for.
std::size_t PlainLength(const unsigned char* raw, int length) {
    int n = length > 0 ? CBitArray::DecompressLength(raw, length) : 0;
    return n > 0 ? static_cast<std::size_t>(n) : 0;
}

struct Kind {
    std::string name;
    Bytes valid;
    // Reads everything the kind offers from the file at the path.
    std::function<void(const std::string&)> read;
    // What the damaged bytes at the path may ask for by contract.
    std::function<std::size_t(const std::string&)> allowance;
};

double ThreadSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

double TimeRead(const Kind& kind, const std::string& path) {
    double start = ThreadSeconds();
    kind.read(path);
    return ThreadSeconds() - start;
}

// Sweeps one kind; reports at most a few failures, each naming its case.
void Sweep(const Kind& kind, TempDir& dir) {
    const std::string path = dir.Path(kind.name);
    double valid = 1e9;
    for (int i = 0; i < 3; ++i) {
        WriteAll(path, kind.valid);
        valid = std::min(valid, TimeRead(kind, path));
    }
    const double fixedSeconds = kFixedSeconds + kValidFactor * valid;
    const std::size_t base = kFixedBudget + kBytesFactor * kind.valid.size();
    int failures = 0;
    for (const DamageCase& c : DamageCases(kind.valid, kMaxCases)) {
        if (failures >= 5) break;
        WriteAll(path, c.bytes);
        snprintf(g_running, sizeof g_running, "%s, %s\n", kind.name.c_str(), c.what.c_str());
        signal(SIGALRM, OnHang);
        alarm(kHangSeconds);
        std::string failure;
        double took = 0;
        double seconds = fixedSeconds;
        try {
            std::size_t limit = base;
            {
                BlockLimit bound(base);
                Step([&] { limit += kind.allowance(path); });
            }
            seconds += kSecondsPerAllowedByte * static_cast<double>(limit - base);
            BlockLimit bound(limit);
            took = TimeRead(kind, path);
        } catch (const CMemoryException&) {
            failure = "a block above the budget";
        } catch (const CFileException&) {
            // a refusal is a clear result
        } catch (const std::exception& e) {
            failure = std::string("a foreign exception: ") + e.what();
        }
        alarm(0);
        if (failure.empty() && took > seconds)
            failure = "took " + std::to_string(took) + " s, budget " + std::to_string(seconds);
        if (!failure.empty()) {
            ++failures;
            ADD_FAILURE() << kind.name << ", " << c.what << ": " << failure;
        }
    }
}

// ---- Readers -----------------------------------------------------------------------

void ReadRecords(CBinFile& f) {
    int n = f.GetRecordCount();
    f.IsValidBinFile();
    f.GetMaxRecordLength();
    for (int i = -1; i <= n; ++i) {
        f.GetAddress(i);
        f.GetRecordLength(i);
        unsigned char* block = nullptr;
        int length = 0;
        f.CBinFile::GetRecord(i, block, length, true);
        Drop(block);
        unsigned char room[8];
        unsigned char* into = room;
        length = sizeof room;
        f.CBinFile::GetRecord(i, into, length, false);
        CDWordArray words;
        f.CBinFile::GetRecord(i, words);
        CBaseMemFile memory;
        f.CBinFile::GetRecord(i, memory);
    }
    unsigned char* all = nullptr;
    int length = 0;
    f.CBinFile::GetRecords(0, n - 1, all, length, true);
    Drop(all);
    DWORD* table = nullptr;
    f.GetAddresses(0, n, table, length, true);
    DropBlock(table);
    CBitArray bits;
    f.CBinFile::GetRecordsBitmap(bits);
}

void ReadRecordFile(const std::string& path) {
    Step([&] { CBinFile::IsValidBinFile(path.c_str()); });
    Step([&] {
        CBinFile f(path.c_str(), CFile::modeRead);
        ReadRecords(f);
        f.Find(-1, P("beta"), 4);
    });
    Step([&] {
        CBinFile f(path.c_str(), CFile::modeReadWrite);
        f.Add(P("xyz"), 3);
        f.Modify(1, P("q"), 1);
        f.Delete(0);
        ReadRecords(f);
    });
}

// Reads the first `most` records one by one and all of them as a union and an
// intersection.
void ReadBitRecords(CBitsBinFile& f, int most = INT_MAX) {
    int n = std::min(f.GetRecordCount(), most);
    for (int i = 0; i <= n; ++i) {
        unsigned char* block = nullptr;
        int length = 0;
        f.GetRecord(i, block, length, -1);
        Drop(block);
        CBitArray packed(true), plain(false);
        f.GetRecord(i, packed, -1);
        f.GetRecord(i, plain, 16);
        f.GetAt(i, 5);
        f.GetCount(i);
        f.GetBitIndex(i, 300);
        f.GetIndexBit(i, 2);
    }
    if (most < INT_MAX) return;
    CBitArray result;
    f.GetRecords(nullptr, result, true, -1);
    f.GetRecords(nullptr, result, false, -1);
}

// The largest plain length, times 32: Invert writes a record per set column, and its
// table takes 4 bytes for each of the 8 columns of a plain byte.
std::size_t BitRecordsAllowance(const std::string& path) {
    CBinFile f(path.c_str(), CFile::modeRead);
    std::size_t most = 0;
    for (int i = 0; i < f.GetRecordCount(); ++i) {
        unsigned char* raw = nullptr;
        int length = 0;
        f.GetRecord(i, raw, length, true);
        most = std::max(most, PlainLength(raw, length));
        Drop(raw);
    }
    return 32 * most;
}

void ReadBitsFile(const std::string& path) {
    Step([&] {
        CBitsBinFile f(path.c_str(), CFile::modeRead);
        ReadBitRecords(f);
        CBitsBinFile target((path + ".t").c_str(), CFile::modeCreate | CFile::modeReadWrite);
        f.Invert(nullptr, true, nullptr, &target);
        ReadBitRecords(target, 16);  // a record per column: a damaged run makes many
    });
    Step([&] {
        CBitArrayArray arrays;
        arrays.Init(path.c_str(), nullptr);
    });
    Step([&] {
        CBitsBinFile f(path.c_str(), CFile::modeReadWrite);
        f.SetAt(1, 40);
        f.ResetAt(0, 5);
        ReadBitRecords(f);
    });
}

void ReadText(CTextBinFile& t) {
    int n = t.GetRecordCount();
    CString text;
    for (int s = -1; s <= n; ++s) {
        t.GetString(s, text, true);
        t.GetString(s, text, false);
        t.GetSerialRecord(s);
        t.GetRecordSerial(s);
        unsigned char* block = nullptr;
        int length = 0;
        t.GetRecord(s, block, length, true);
        Drop(block);
    }
    t.Find(-1, "be", nullptr, false, false, true, true, true, false, nullptr);
    t.Find(n, "ta", "x", true, true, false, true, false, false, nullptr);
    t.Find(2, "delta", nullptr, true, false, true, true, true, true, nullptr);
    t.CBinFile::Find(-1, P("delta"), 5);
}

const std::vector<std::string> kWords = {"alpha", "beta", "beta gamma", "delta", "epsilon"};

void ReadTextFile(const std::string& path) {
    Step([&] {
        CTextBinFile t(path.c_str(), CFile::modeReadWrite);
        ReadText(t);
        int record = 0;
        t.Add("carrot", -1, record, true, false);
        t.IndexForWildCards((path + ".idx").c_str(), "x", nullptr);
        t.Sort(true, false, nullptr, nullptr);
        ReadText(t);
    });
}

// A valid dictionary whose sorted view is the damaged integer file at the path.
void ReadTextView(const std::string& path) {
    std::string text = path + ".t";
    WriteAll(text, RecordFileImage({B("delta"), B("alpha"), B("epsilon"), B("beta")}));
    Step([&] {
        CTextBinFile t(text.c_str(), CFile::modeReadWrite);
        CIXFile index(path.c_str(), CFile::modeReadWrite);
        t.SetIndexFile(&index);
        ReadText(t);
        unsigned char filter[] = {0x0D};
        t.SetFilter(filter, 1);
        ReadText(t);
        int record = 0;
        t.Add("carrot", -1, record, true, false);
        t.Delete(1, 2);
        ReadText(t);
    });
}

void ReadIXFile(const std::string& path) {
    Step([&] {
        CIXFile f(path.c_str(), CFile::modeReadWrite);
        int n = f.GetRecordCount();
        for (int i = -1; i <= n; ++i) f.GetRecord(i);
        f.Find(-1, 7);
        DWORD* list = nullptr;
        if (f.Find(7, static_cast<Operation>(opEqual | opLess), list) > 0) DropBlock(list);
        CBitArray bits;
        f.Find(7, opGreater, bits, false);
        std::vector<int> positions(12), values(12);
        for (int i = 0; i < 12; ++i) positions[static_cast<std::size_t>(i)] = i * 4 - 2;
        f.GetRecords(12, positions.data(), values.data());
        CBitArray wanted, mapped;
        wanted.SetRange(0, n);
        SizedByValues([&] { f.GetRecords(&wanted, mapped); });
        SizedByValues([&] { f.GetRecords(0, n - 1, mapped); });
        f.GetRecordsBitmap(bits);

        CIXFile sorted((path + ".s").c_str(), CFile::modeCreate | CFile::modeReadWrite);
        f.Sort(&sorted, nullptr);
        f.SetIndexFile(&sorted);
        for (int i = -1; i <= n; ++i) f.GetRecord(i);
        f.Find(-1, 7);
        if (f.Find(7, opEqual, list) > 0) DropBlock(list);
        f.Find(7, opLess, bits, true);
        f.Find(7, opLess, bits, false);
        f.SetIndexFile(nullptr);
        // The inverse is as long as the largest value says; it goes to memory, so that
        // the block limit bounds it.
        CMemFile inverse(1024);
        SizedByValues([&] { f.Invert(nullptr, &inverse); });
        f.DeleteEmpty();
        f.UpdateFileLength();
    });
}

// Invert may fill a piece of 65536 entries at once, however large a value.
std::size_t IXAllowance(const std::string&) { return 65536 * 4; }

// The paths of a three-level nested file: every record at every level, one past the
// end, and -1.
void ReadNested(CNDimBinFile& f) {
    for (int i = -1; i <= f.GetRecordCount() && i < 8; ++i) {
        int one[] = {i};
        f.GetRecordCount(1, one);
        for (int j = -1; j <= f.GetRecordCount(1, one) && j < 8; ++j) {
            int two[] = {i, j};
            f.GetRecordCount(2, two);
            for (int k = -1; k <= f.GetRecordCount(2, two) && k < 8; ++k) {
                int three[] = {i, j, k};
                for (int dim = 1; dim <= 3; ++dim) {
                    f.GetRecordLength(dim, three);
                    unsigned char* block = nullptr;
                    int length = 0;
                    f.CNDimBinFile::GetRecord(dim, three, block, length);
                    Drop(block);
                    CBaseMemFile memory;
                    f.GetFile(dim, three, memory);
                    CBitArray bits;
                    f.GetRecordsBitmap(dim, three, bits);
                }
            }
        }
    }
}

void ReadNestedFile(const std::string& path) {
    Step([&] {
        CNDimBinFile f(path.c_str(), CFile::modeReadWrite);
        ReadRecords(f);
        ReadNested(f);
        int a[] = {0, 1, 0}, b[] = {1, 0};
        f.Modify(3, a, P("zz"), 2);
        f.Add(2, b, P("q"), 1);
        f.Delete(1, b, 0, 0);
        ReadNested(f);
    });
}

// The largest plain length of a leaf of a two-level bit file.
std::size_t NestedBitsAllowance(const std::string& path) {
    CNDimBitsBinFile f(path.c_str(), CFile::modeRead);
    std::size_t most = 0;
    for (int i = 0; i < f.GetRecordCount(); ++i) {
        int one[] = {i};
        for (int j = 0; j < f.GetRecordCount(1, one); ++j) {
            int two[] = {i, j};
            unsigned char* raw = nullptr;
            int length = 0;
            f.CNDimBinFile::GetRecord(2, two, raw, length);
            most = std::max(most, PlainLength(raw, length));
            Drop(raw);
        }
    }
    return most;
}

void ReadNestedBits(CNDimBitsBinFile& f) {
    for (int level = 0; level <= f.GetRecordCount(); ++level) {
        int one[] = {level};
        int n = f.GetRecordCount(1, one);
        for (int key : {0, 1, 2, int{'a'}, int{'e'}, int{'t'}, int{'x'}, 255, n}) {
            int two[] = {level, key};
            CBitArray bits;
            f.GetRecord(2, two, bits, -1);
            f.GetAt(2, two, 1);
            f.GetBitIndex(2, two, 3);
            f.GetIndexBit(2, two, 2);
        }
        int records[] = {'a', 'e', n};
        CBitArray result, selection;
        f.GetRecords(1, one, 3, records, result, true, -1);
        f.GetRecords(1, one, 3, records, result, false, -1);
        selection.SetRange(0, 3);
        f.GetRecords(1, one, selection, result, true, -1);
    }
}

// The wildcard index of kWords (the damaged file) searched through a valid dictionary.
void ReadWildCardIndex(const std::string& path) {
    std::string text = path + ".t";
    Bytes image;
    {
        std::vector<Bytes> records;
        for (const auto& w : kWords) records.push_back(B(w));
        image = RecordFileImage(records);
    }
    WriteAll(text, image);
    Step([&] {
        CTextBinFile t(text.c_str(), CFile::modeRead);
        CBitArray result;
        for (const char* pattern : {"b*", "?e*", "*ta", "alpha", "*l*", "e?silon"})
            t.Find(path.c_str(), pattern, opEqual, "x", false, result);
        t.Find(path.c_str(), nullptr, opEqual, "x", false, result);
        t.Find(path.c_str(), "*a", static_cast<Operation>(opEqual | opNot), "x", true, result);
    });
    Step([&] {
        CNDimBitsBinFile f(path.c_str(), CFile::modeReadWrite);
        ReadNestedBits(f);
        int cell[] = {1, 'b'};
        f.SetAt(2, cell, 9);
        f.XOrAt(2, cell, 2);
        f.ResetAt(2, cell, 1);
        ReadNestedBits(f);
    });
}

void ReadCollection(const std::string& path) {
    Step([&] {
        CBitArrayCollection c;
        c.Init(path.c_str(), nullptr);
    });
    Step([&] {
        CNDimBitsBinFile f(path.c_str(), CFile::modeRead);
        ReadNestedBits(f);
    });
}

// Every node of a tree loaded from the bit record file, walked every way.
void ReadTree(const std::string& path) {
    Step([&] {
        CHierarchy tree;
        tree.Init(path.c_str(), nullptr);
        const int count = tree.GetNodeCount();
        for (int node = -1; node <= count && node < 40; ++node) AskAboutNode(tree, node);
    });
}

// An XML file loaded from disk, searched and written back out: the whole tree walked.
void ReadXMLFile(const std::string& path) {
    Step([&] {
        CXMLDocument doc;
        doc.Load(path.c_str());
        if (CXMLNode* root = doc.GetRoot()) root->GetAttribute("version");
        doc.Save((path + ".out").c_str());
        CXMLDocument copy(doc);
    });
}

// A spill stack picked up again from its file: every record up to the top, stored and
// expanded, then one more push.
void ReadSpillStack(const std::string& path) {
    Step([&] {
        CBitArraySaver saver;
        saver.SetTempFile(path.c_str());
        unsigned char* top = nullptr;
        int length = 0;
        saver.Pop(0, top, length, false);
        int count = length == 4 ? static_cast<int>(top[0] | top[1] << 8) : 0;
        Drop(top);
        for (int k = 0; k <= count + 1; ++k) {
            for (bool expand : {false, true}) {
                unsigned char* block = nullptr;
                SizedByValues([&] { saver.Pop(k, block, length, expand); });
                Drop(block);
            }
            CBitArray bits;
            SizedByValues([&] { saver.Pop(k, bits); });
            CDWordArray words;
            saver.Pop(k, words);
        }
        CBitArray more;
        more.SetAt(70);
        saver.Push(more);
    });
}

// The journal at the path beside the marked file that its cut-off change left: every
// open (read-only and for writing) applies it whole or not at all, and the file then
// reads as `original` or as none, never as other records.
void ReadJournal(const std::string& path, const Bytes& marked,
                 const std::vector<std::string>& original) {
    const std::string file = path.substr(0, path.size() - std::string(".journal").size());
    const Bytes journal = ReadAll(path);
    for (UINT mode : {CFile::modeRead, CFile::modeReadWrite}) {
        WriteAll(file, marked);  // the same file, so the journal names it
        WriteAll(path, journal);
        Step([&] {
            CBinFile f(file.c_str(), mode);
            ReadRecords(f);
            const std::vector<std::string> now = RecordsOf(f);
            EXPECT_TRUE(now == original || (now.empty() && !f.IsValidBinFile()))
                << path << ": " << now.size() << " records";
        });
        Step([&] { CBinFile::IsValidBinFile(file.c_str()); });
    }
}

// The same for an integer file whose move was cut off: its open puts `original` back or
// fails, since an unmarked file may be half moved.
void ReadIXJournal(const std::string& path, const Bytes& moved, const Bytes& original) {
    const std::string file = path.substr(0, path.size() - std::string(".journal").size());
    WriteAll(file, moved);
    CIXFile f;
    if (f.Open(file.c_str(), CFile::modeRead)) {
        f.Close();
        EXPECT_EQ(ReadAll(file), original) << path;
    } else {
        EXPECT_EQ(ReadAll(file), moved) << path;
    }
}

// ---- The valid files ---------------------------------------------------------------

Bytes Build(const std::function<void(const std::string&)>& make) {
    TempDir dir;
    std::string path = dir.Path("f");
    make(path);
    return ReadAll(path);
}

Bytes RecordFileBytes() {
    return RecordFileImage({B("alpha"), B(""), B("beta"), B("gamma delta"), B("e")});
}

Bytes BitsFileBytes() {
    return Build([](const std::string& path) {
        CBitsBinFile f(path.c_str(), CFile::modeCreate | CFile::modeReadWrite);
        AddRows(f,
                {{1, 5, 9}, {}, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13}, {100, 300}, {7}});
    });
}

Bytes TextFileBytes() {
    std::vector<Bytes> records;
    for (const auto& w : kWords) records.push_back(B(w));
    return RecordFileImage(records);
}

Bytes ViewBytes() { return Words({1, 3, 0, 2}); }

Bytes IXFileBytes() {
    Bytes out;
    for (int i = 0; i < 40; ++i) {
        int v = i % 7 == 3 ? -1 : (i * 13) % 40;
        out = Cat({out, Words({static_cast<unsigned>(v)})});
    }
    return out;
}

Bytes NestedFileBytes() {
    return Build([](const std::string& path) {
        CNDimBinFile f(path.c_str(), CFile::modeCreate | CFile::modeReadWrite);
        int a[] = {0, 0, 0}, b[] = {0, 1, 1}, c[] = {1, 0, 0}, d[] = {2, 2, 0};
        f.Modify(3, a, P("ab"), 2);
        f.Modify(3, b, P("cde"), 3);
        f.Modify(3, c, P("f"), 1);
        f.Modify(3, d, P("ghij"), 4);
    });
}

Bytes WildCardIndexBytes() {
    return Build([](const std::string& path) {
        TempDir dir;
        CTextBinFile t(dir.Path("t").c_str(), CFile::modeCreate | CFile::modeReadWrite);
        for (const auto& w : kWords) t.Add(w.c_str());
        t.IndexForWildCards(path.c_str(), "x", nullptr);
    });
}

Bytes CollectionBytes() {
    return Build([](const std::string& path) {
        CBitArrayCollection c;
        c.GetAt(0)->GetAt(3)->SetAt(5);
        c.GetAt(0)->GetAt(0)->SetRange(0, 20);
        c.GetAt(2)->GetAt(1)->SetAt(200);
        c.Save(path.c_str(), opCopy, false, false, nullptr);
    });
}

Bytes SpillStackBytes() {
    return Build([](const std::string& path) {
        CBitArraySaver saver;
        saver.SetTempFile(path.c_str());
        CBitArray a, b;
        a.SetRange(3, 40);
        b.SetAt(1000);
        saver.Push(a);
        saver.Push(b);
        CDWordArray words;
        words.Add(7);
        words.Add(0xFFFFFFFF);
        saver.Push(words);
        saver.Push(P("plain"), 5, false);
    });
}

Bytes TreeBytes() {
    return Build([](const std::string& path) {
        CHierarchy tree;  // a/b/c, a/b/d, a/e, f/g, and h two levels below f
        const int levels[] = {0, 1, 2, 2, 1, 0, 1, 3};
        for (int node = 0; node < 8; ++node) tree.SetNodeLevel(node, levels[node], false);
        tree.Save(path.c_str(), opCopy, false, false, nullptr);
    });
}

}  // namespace

// Each kind runs its own sweep so that a failure names it; together they take a few
// seconds, also under the sanitizers.
TEST(DamagedFiles, RecordFileReadsOnlyWhatTheFileHolds) {
    TempDir dir;
    Sweep({"record", RecordFileBytes(), ReadRecordFile, [](const std::string&) { return 0; }}, dir);
}

TEST(DamagedFiles, BitRecordFileExpandsOnlyWhatItsRecordsStandFor) {
    TempDir dir;
    Sweep({"bits", BitsFileBytes(), ReadBitsFile, BitRecordsAllowance}, dir);
}

TEST(DamagedFiles, TextFileAndItsViewReadOnlyWhatTheyHold) {
    TempDir dir;
    Sweep({"text", TextFileBytes(), ReadTextFile, [](const std::string&) { return 0; }}, dir);
    Sweep({"view", ViewBytes(), ReadTextView, [](const std::string&) { return 0; }}, dir);
}

TEST(DamagedFiles, IntegerFileSizesBitArraysOnlyByItsValues) {
    TempDir dir;
    Sweep({"integers", IXFileBytes(), ReadIXFile, IXAllowance}, dir);
}

TEST(DamagedFiles, NestedFilesLeadNowhereInsteadOfOutside) {
    TempDir dir;
    Sweep({"nested", NestedFileBytes(), ReadNestedFile, [](const std::string&) { return 0; }}, dir);
    Sweep({"wildcard", WildCardIndexBytes(), ReadWildCardIndex, NestedBitsAllowance}, dir);
    Sweep({"collection", CollectionBytes(), ReadCollection, NestedBitsAllowance}, dir);
}

// Two files whose length less the last word is no multiple of 4: read in step from the
// last word, the table took other bytes for the data end and let a record reach 64 MiB
// and -1.8 GB. They load (the count rounds down) and even pass the two-word validity
// test, but no record reaches past the table offset and no change takes them.
TEST(DamagedFiles, ATableOutOfStepWithTheEndReadsNothingPastTheTable) {
    TempDir dir;
    const Bytes shortFile = Hex("6162636465 00000000 00000004 00000005 000000");
    const Bytes longFile = Cat({Bytes(149, 0x61), Hex("00000000 00000090 00000095 000000")});
    ASSERT_EQ(shortFile.size(), 20u);
    ASSERT_EQ(longFile.size(), 164u);
    for (const Bytes& image : {shortFile, longFile}) {
        std::string path = dir.Path("bad");
        WriteAll(path, image);
        EXPECT_TRUE(CBinFile::IsValidBinFile(path.c_str()));  // entry 0 reads 0
        {
            CBinFile plain;
            ASSERT_NE(plain.Open(path.c_str(), CFile::modeReadWrite), 0);
            EXPECT_EQ(plain.GetRecordCount(), 2);
            EXPECT_THROW(plain.Add(P("x"), 1), CFileException);
            EXPECT_THROW(plain.Modify(0, P("x"), 1), CFileException);
        }
        EXPECT_EQ(ReadAll(path), image);
        CTextBinFile text(path.c_str(), CFile::modeRead);
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(text.CBinFile::GetRecordLength(i), 0);
            unsigned char* block = nullptr;
            int length = -1;
            text.CBinFile::GetRecord(i, block, length, true);
            EXPECT_EQ(block, nullptr);
            EXPECT_EQ(length, 0);
            EXPECT_EQ(text[i], "");
        }
        EXPECT_EQ(text.Find(-1, "a", nullptr, false, false, false, false, false, false, nullptr),
                  -1);
        CBitsBinFile bits(path.c_str(), CFile::modeRead);
        EXPECT_FALSE(bits.GetAt(0, 3));
        EXPECT_EQ(bits.GetCount(0), 0);
        // The same bytes nested in a sound file: the walk counts the entries back from
        // the image end, and what it finds stays inside the data before the offset.
        CNDimBinFile nested(dir.Path("n").c_str(), CFile::modeCreate | CFile::modeReadWrite);
        nested.Add(const_cast<unsigned char*>(image.data()), static_cast<int>(image.size()));
        int path2[] = {0, 0};
        EXPECT_EQ(nested.GetRecordCount(1, path2), 2);
        const int offset = static_cast<int>(image.size()) - 15;
        EXPECT_LE(nested.GetRecordLength(2, path2), offset);
        path2[1] = 1;
        EXPECT_LE(nested.GetRecordLength(2, path2), offset);
    }
}

// A table that falls loads and reads its records as far as they fit; the validity test
// reads entry 0 only and passes it, but no change takes it.
TEST(DamagedFiles, AFallingTableLoadsButRefusesChanges) {
    TempDir dir;
    WriteAll(dir.Path("f"), Cat({B("abcde"), Words({0, 3, 2, 5, 5})}));
    EXPECT_TRUE(CBinFile::IsValidBinFile(dir.Path("f").c_str()));
    CBinFile f(dir.Path("f").c_str(), CFile::modeReadWrite);
    EXPECT_EQ(f.GetRecordCount(), 4);
    EXPECT_EQ(f.GetRecordLength(0), 3);
    EXPECT_EQ(f.GetRecordLength(1), 0);
    EXPECT_THROW(f.Add(P("x"), 1), CFileException);
}

namespace {
// A record file whose reads fail once `fail` is set.
class FailingReads : public CBinFile {
public:
    using CBinFile::CBinFile;
    bool fail = false;
    UINT Read(void* buffer, UINT count) override {
        if (fail) throw CFileException(CFileException::hardIO, EIO, "failing");
        return CBinFile::Read(buffer, count);
    }
};
}  // namespace

// A read that fails after the block was made: the caller's pointer stays as it was and
// the block goes back (the leak checker of the sanitizer build sees any that does not).
TEST(DamagedFiles, AFailedReadLeavesTheBufferAndLosesNoBlock) {
    TempDir dir;
    WriteAll(dir.Path("f"), RecordFileImage({B("alpha"), B("beta")}));
    FailingReads f(dir.Path("f").c_str(), CFile::modeRead);
    ASSERT_EQ(f.GetRecordCount(), 2);
    f.fail = true;
    unsigned char mine = 0;
    unsigned char* buffer = &mine;
    int length = 7;
    EXPECT_THROW(f.GetRecord(1, buffer, length, true), CFileException);
    EXPECT_EQ(buffer, &mine);
    EXPECT_THROW(f.GetRecords(0, 1, buffer, length, true), CFileException);
    EXPECT_EQ(buffer, &mine);
    CBaseMemFile memory;
    EXPECT_THROW(f.GetRecord(0, memory), CFileException);
    EXPECT_EQ(memory.GetLength(), 0u);
    // An open whose read of the table fails throws from the constructor, holding no
    // block (the leak check of the sanitizer build sees one).
    int threw = 0;
    for (long at = 0; at < 4; ++at) {
        FileFaults fault(FileFaults::Mode::fail, at, true);
        try {
            CBinFile g(dir.Path("f").c_str(), CFile::modeRead);
        } catch (const CFileException&) {
            ++threw;
        }
    }
    EXPECT_GE(threw, 2);  // the last word and the table
}

TEST(DamagedFiles, TreeWalksOnlyTheLevelsItHolds) {
    TempDir dir;
    Sweep({"tree", TreeBytes(), ReadTree, BitRecordsAllowance}, dir);
}

// A journal damaged on disk is never applied: its checksums catch any byte changed and
// any cut, so the file reads as before the change or as none (a record file), or does
// not open (an integer file). Read within its own length and the old length it names.
TEST(DamagedFiles, ADamagedJournalIsNeverApplied) {
    TempDir dir;
    const std::string file = dir.Path("f");
    WriteAll(file, RecordFileBytes());
    std::vector<std::string> original;
    {
        CBinFile f(file.c_str(), CFile::modeRead);
        original = RecordsOf(f);
    }
    {
        CBinFile f(file.c_str(), CFile::modeReadWrite);
        FileFaults stop(FileFaults::Mode::stop, 6);  // journal made, file marked
        EXPECT_THROW(f.Insert(1, P("inserted"), 8), CFileException);
    }
    const Bytes marked = ReadAll(file);
    const Bytes journal = ReadAll(file + ".journal");
    ASSERT_GT(journal.size(), 32u);
    Sweep({"f.journal", journal,
           [&](const std::string& path) { ReadJournal(path, marked, original); },
           [](const std::string&) { return 0; }},
          dir);

    // An integer file moved all through, its journal not yet set idle.
    const std::string ix = dir.Path("ix");
    const Bytes values = IXFileBytes();
    WriteAll(ix, values);
    long calls = 0;
    {
        CIXFile f(ix.c_str(), CFile::modeReadWrite);
        FileFaults count;
        f.Delete(3, 9);
        calls = count.Calls();
    }
    WriteAll(ix, values);
    {
        CIXFile f(ix.c_str(), CFile::modeReadWrite);
        FileFaults stop(FileFaults::Mode::stop, calls - 1);
        f.Delete(3, 9);  // the journal's last word is refused, which a move never reports
    }
    const Bytes moved = ReadAll(ix);
    ASSERT_NE(moved, values);
    Sweep({"ix.journal", ReadAll(ix + ".journal"),
           [&](const std::string& path) { ReadIXJournal(path, moved, values); },
           [](const std::string&) { return 0; }},
          dir);
}

TEST(DamagedFiles, XMLFileLoadsOrFailsWithinItsBytes) {
    TempDir dir;
    for (const char* name : {"config.xml", "arabic-utf8.xml", "declared.xml"}) {
        const Bytes valid = ReadAll(std::string(DORVIK_TEST_DATA) + "/xml/" + name);
        Sweep({name, valid, ReadXMLFile, [](const std::string&) { return 0; }}, dir);
    }
}

TEST(DamagedFiles, SpillStackPicksUpOnlyWhatItsFileHolds) {
    TempDir dir;
    Sweep({"spill", SpillStackBytes(), ReadSpillStack, BitRecordsAllowance}, dir);
}
