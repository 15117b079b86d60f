// Crash safety of record file changes in safe mode: a writer stopped before any call of
// the file layer (or inside a write), a writer killed at random moments, and calls that
// fail. Whatever happens, the file on disk never shows records other than those before
// or after the change under way (it may fail the validity test instead), and the next
// open brings back one of the two.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "Dorvik01.h"
#include "TestUtil.h"

namespace {

using Records = std::vector<std::string>;

// ---- A random change and its model -----------------------------------------------------

enum class Kind {
    add,
    insert,
    modify,
    remove,
    deleteEmpty,
    init,
    deleteAll,
    insertFile,
    modifyFromFile
};

struct Op {
    Kind kind;
    int a = 0, b = 0;
    std::string text;
};

// Records of 0 to 40 bytes mostly and now and then a few KiB, so that moves and the
// journal span pages.
std::string RandomText(std::mt19937& rng) {
    std::size_t n = rng() % 8 == 0 ? 1000 + rng() % 6000 : rng() % 40;
    std::string text(n, static_cast<char>('a' + rng() % 26));
    if (n > 0) text[0] = static_cast<char>('A' + rng() % 26);
    return text;
}

Op RandomOp(std::mt19937& rng, int n) {
    Op op;
    const unsigned pick = rng() % 100;
    op.text = RandomText(rng);
    if (pick < 25) {
        op.kind = Kind::add;
    } else if (pick < 45) {
        op.kind = Kind::insert;
        op.a = static_cast<int>(rng() % static_cast<unsigned>(n + 3)) - 1;
    } else if (pick < 70) {
        op.kind = Kind::modify;
        op.a = static_cast<int>(rng() % static_cast<unsigned>(n + 2));
        if (rng() % 4 == 0) op.text.clear();
    } else if (pick < 85) {
        op.kind = n > 0 ? Kind::remove : Kind::add;
        op.a = n > 0 ? static_cast<int>(rng() % static_cast<unsigned>(n)) : 0;
        op.b = op.a + static_cast<int>(rng() % 3);
    } else if (pick < 89) {
        op.kind = Kind::deleteEmpty;
    } else if (pick < 92) {
        op.kind = Kind::init;
        op.a = n + 1 + static_cast<int>(rng() % 3);
    } else if (pick < 93) {
        op.kind = n > 40 ? Kind::deleteAll : Kind::add;
    } else if (pick < 96) {
        op.kind = Kind::insertFile;
        op.a = static_cast<int>(rng() % static_cast<unsigned>(n + 2)) - 1;
    } else {
        op.kind = Kind::modifyFromFile;
        op.a = static_cast<int>(rng() % static_cast<unsigned>(n + 1));
    }
    return op;
}

// The records that Insert(source) adds.
const Records kSource = {"one", "", "three", std::string(3000, 's')};

void ApplyToModel(Records& m, const Op& op) {
    const int n = static_cast<int>(m.size());
    switch (op.kind) {
        case Kind::add:
            m.push_back(op.text);
            break;
        case Kind::insert:
        case Kind::insertFile: {
            const int pos = op.a + 1;
            if (pos > n) m.resize(static_cast<std::size_t>(pos) + 1);
            const Records& added = op.kind == Kind::insert ? Records{op.text} : kSource;
            m.insert(m.begin() + pos, added.begin(), added.end());
            break;
        }
        case Kind::modify:
        case Kind::modifyFromFile:
            if (op.a >= n) m.resize(static_cast<std::size_t>(op.a) + 1);
            m[static_cast<std::size_t>(op.a)] = op.text;
            break;
        case Kind::remove:
            m.erase(m.begin() + op.a, m.begin() + std::min(op.b + 1, n));
            break;
        case Kind::deleteEmpty:
            std::erase(m, std::string());
            break;
        case Kind::init:
            if (op.a > n) m.resize(static_cast<std::size_t>(op.a));
            break;
        case Kind::deleteAll:
            m.clear();
            break;
    }
}

// `dir` holds the source files of insertFile and modifyFromFile.
void ApplyToFile(CBinFile& f, const Op& op, const TempDir& dir) {
    unsigned char* data = P(op.text.c_str());
    const int length = static_cast<int>(op.text.size());
    switch (op.kind) {
        case Kind::add:
            f.Add(data, length);
            break;
        case Kind::insert:
            f.Insert(op.a, data, length);
            break;
        case Kind::modify:
            f.Modify(op.a, data, length);
            break;
        case Kind::remove:
            f.Delete(op.a, op.b);
            break;
        case Kind::deleteEmpty:
            f.DeleteEmpty();
            break;
        case Kind::init:
            f.Init(op.a);
            break;
        case Kind::deleteAll:
            f.DeleteAll();
            break;
        case Kind::insertFile:
            f.Insert(op.a, dir.Path("source").c_str());
            break;
        case Kind::modifyFromFile: {
            const std::string path = dir.Path("content");
            WriteAll(path, B(op.text));
            CFile content(path.c_str(), CFile::modeRead);
            f.Modify(op.a, content);
            break;
        }
    }
}

// Applies `op` to the record file at `path` once and returns how many calls of the file
// layer it made: those that change files, and with `reads` the reads as well.
long CallsOf(const std::string& path, const Op& op, const TempDir& dir, bool reads) {
    CBinFile f(path.c_str(), CFile::modeReadWrite);
    FileFaults count(FileFaults::Mode::count, -1, reads);
    ApplyToFile(f, op, dir);
    return count.Calls();
}

void WriteSource(const TempDir& dir) {
    std::vector<Bytes> records;
    for (const auto& r : kSource) records.push_back(B(r));
    WriteAll(dir.Path("source"), RecordFileImage(records));
}

// The records of a record file image as the loader takes them, or nothing when it
// refuses the image (a last word that is negative or leaves no table word before the
// end). Read without the library, which would roll a journal back first. Stricter than
// the promise: not even an image that fails IsValidBinFile may show other records.
std::optional<Records> OpensAs(const Bytes& image) {
    auto word = [&image](std::size_t at) {
        return static_cast<std::uint32_t>(image[at] | image[at + 1] << 8 | image[at + 2] << 16 |
                                          static_cast<std::uint32_t>(image[at + 3]) << 24);
    };
    const std::size_t length = image.size();
    if (length < 4) return std::nullopt;
    const std::int32_t last = static_cast<std::int32_t>(word(length - 4));
    if (last < 0 || static_cast<std::size_t>(last) > length - 4) return std::nullopt;
    const std::size_t table = static_cast<std::size_t>(last);
    const std::size_t count = (length - table) / 4 - 1;
    Records out;
    for (std::size_t i = 0; i < count; ++i) {
        std::uint32_t from = word(table + 4 * i), to = word(table + 4 * i + 4);
        if (from > to || to > table) {
            out.push_back("<entries out of order>");
            continue;
        }
        out.emplace_back(image.begin() + from, image.begin() + to);
    }
    return out;
}

// Whether a file of these records passes IsValidBinFile: not when it has records and
// all of them are empty (its last word is then 0).
bool ValidByRule(const Records& r) {
    return r.empty() || std::any_of(r.begin(), r.end(), [](const auto& x) { return !x.empty(); });
}

std::string Describe(const Records& r) {
    std::string s = std::to_string(r.size()) + " records:";
    for (const auto& x : r) s += " " + std::to_string(x.size());
    return s;
}

// The file at `path` as a process left it: if it opens, its records are `before` or
// `after`. Then an open brings it back to one of the two, which it returns.
Records CheckLeftBehind(const std::string& path, const Records& before, const Records& after,
                        const std::string& where) {
    std::optional<Records> raw = OpensAs(ReadAll(path));
    if (raw) {
        EXPECT_TRUE(*raw == before || *raw == after)
            << where << ": the file shows other records, " << Describe(*raw);
    }
    // A read-only open brings the file back too (through a descriptor of its own).
    CBinFile f(path.c_str(), CFile::modeRead);
    Records now = RecordsOf(f);
    EXPECT_TRUE(now == before || now == after) << where << ": reopened, " << Describe(now);
    EXPECT_EQ(f.IsValidBinFile(), ValidByRule(now)) << where;
    EXPECT_FALSE(Exists(path + ".journal")) << where;
    return now;
}

// One change of a random run, and the file before and after it.
struct RunStep {
    std::string where;
    Op op;
    Records before, after;
    Bytes beforeBytes, afterBytes;
    long calls;  // of the file layer: changing ones, and reads when asked for
};

// A random run of `steps` changes from the empty record file at dir/f. For each, `cut`
// runs with the change learnt (the file is then as after it) and may change the file;
// the file is then put as after the change. Stops at the first failure.
void RandomRun(const TempDir& dir, unsigned seed, int steps, bool reads,
               const std::function<void(const RunStep&)>& cut) {
    const std::string path = dir.Path("f");
    WriteAll(path, Words({0}));
    std::mt19937 rng(seed);
    Records model;
    for (int step = 0; step < steps; ++step) {
        RunStep s{"step " + std::to_string(step),
                  RandomOp(rng, static_cast<int>(model.size())),
                  model,
                  model,
                  ReadAll(path),
                  {},
                  0};
        ApplyToModel(s.after, s.op);
        s.calls = CallsOf(path, s.op, dir, reads);
        s.afterBytes = ReadAll(path);
        ASSERT_EQ(OpensAs(s.afterBytes), std::optional<Records>(s.after)) << s.where;
        cut(s);
        if (::testing::Test::HasFailure()) return;
        WriteAll(path, s.afterBytes);
        model = s.after;
    }
}

// ---- Stopped before each call ----------------------------------------------------------

// Every change of a random run is cut before each of its calls that change a file
// (journal included), and inside each of its writes, as a process that dies there.
TEST(CrashSafety, AWriterStoppedAtAnyCallLeavesTheOldOrTheNewRecords) {
    TempDir dir;
    WriteSource(dir);
    const std::string path = dir.Path("f");
    long cuts = 0;
    RandomRun(dir, 11, 60, false, [&](const RunStep& s) {
        for (long at = 0; at < s.calls; ++at) {
            for (auto mode : {FileFaults::Mode::stop, FileFaults::Mode::stopTorn}) {
                WriteAll(path, s.beforeBytes);
                {
                    CBinFile f(path.c_str(), CFile::modeReadWrite);
                    FileFaults stop(mode, at);
                    try {
                        ApplyToFile(f, s.op, dir);
                    } catch (const CFileException&) {}
                }
                CheckLeftBehind(path, s.before, s.after, s.where + ", call " + std::to_string(at));
                ++cuts;
            }
        }
    });
    EXPECT_GT(cuts, 600);
}

// ---- Killed at random moments ----------------------------------------------------------

TEST(CrashSafety, AWriterKilledAtRandomMomentsLeavesTheOldOrTheNewRecords) {
    TempDir dir;
    WriteSource(dir);
    const std::string path = dir.Path("f");
    WriteAll(path, Words({0}));
    Records model;
    int inside = 0;  // kills that found the file marked, inside a change
    const int rounds = KillRounds(300);
    const auto seedOf = [](int round) { return 1000 + static_cast<unsigned>(round); };
    KillAtRandom(
        {rounds, 500, 6500},
        [&](int round, const std::function<void()>& done) {
            DorvikSetBlockLimit(110 * 1024);  // moves in pieces: longer windows inside a change
            std::mt19937 rng(seedOf(round));
            CBinFile f(path.c_str(), CFile::modeReadWrite);
            for (Records m = model;;) {
                Op op = RandomOp(rng, static_cast<int>(m.size()));
                ApplyToFile(f, op, dir);
                ApplyToModel(m, op);
                done();
            }
        },
        [&](int round, int count) {
            // The ops done, and the one that may have been under way.
            std::mt19937 rng(seedOf(round));
            Records before = model;
            for (int i = 0; i < count; ++i)
                ApplyToModel(before, RandomOp(rng, static_cast<int>(before.size())));
            Records after = before;
            ApplyToModel(after, RandomOp(rng, static_cast<int>(after.size())));
            if (!OpensAs(ReadAll(path))) ++inside;
            model = CheckLeftBehind(path, before, after, "round " + std::to_string(round));
        });
    // Many kills land inside a change, where the writer spends its time.
    EXPECT_GT(inside, rounds / 40);
}

// ---- Calls that fail -------------------------------------------------------------------

// Every read, write, cut and creation of a random run fails in turn, and every write
// lands half: the change either completes or throws having changed nothing, in the
// object as on disk.
TEST(CrashSafety, AChangeWhoseCallFailsCompletesOrChangesNothing) {
    TempDir dir;
    WriteSource(dir);
    const std::string path = dir.Path("f");
    RandomRun(dir, 3, 40, true, [&](const RunStep& s) {
        for (long at = 0; at < s.calls; ++at) {
            for (auto mode : {FileFaults::Mode::fail, FileFaults::Mode::tear}) {
                const std::string where = s.where + ", call " + std::to_string(at) +
                                          (mode == FileFaults::Mode::tear ? " torn" : "");
                WriteAll(path, s.beforeBytes);
                CBinFile f(path.c_str(), CFile::modeReadWrite);
                bool threw = false;
                {
                    FileFaults fault(mode, at, mode == FileFaults::Mode::fail);
                    try {
                        ApplyToFile(f, s.op, dir);
                    } catch (const CFileException&) {
                        threw = true;
                    }
                    if (!fault.Struck()) continue;  // a tear needs a write
                }
                EXPECT_EQ(RecordsOf(f), threw ? s.before : s.after) << where << ": the object";
                EXPECT_EQ(ReadAll(path), threw ? s.beforeBytes : s.afterBytes)
                    << where << ": the file";
                if (::testing::Test::HasFailure()) return;
            }
        }
    });
}

// ---- The journal and other objects -----------------------------------------------------

// Another open while a change runs (here from inside the change, before its seventh call) finds
// the file marked and its journal locked: it leaves both alone and reads no records.
TEST(CrashSafety, AnOpenDuringAChangeNeitherUndoesItNorReadsHalfOfIt) {
    TempDir dir;
    const std::string path = dir.Path("f");
    WriteAll(path, RecordFileImage({B("alpha"), B("beta"), B("gamma")}));
    static std::string s_path;
    static int s_seen = -1;
    static long s_calls = 0;
    s_path = path;
    s_calls = 0;
    auto hook = [](dorvik::FileCall call, UINT bytes, std::int64_t) -> UINT {
        if (call != dorvik::FileCall::read && ++s_calls == 7) {
            CBinFile other;
            s_seen = other.Open(s_path.c_str(), CFile::modeReadWrite) ? other.GetRecordCount() : -1;
        }
        return bytes;
    };
    CBinFile f(path.c_str(), CFile::modeReadWrite);
    dorvik::FileHook old = dorvik::SetFileHook(hook);
    f.Insert(-1, P("first"), 5);
    dorvik::SetFileHook(old);
    EXPECT_EQ(s_seen, -1);
    EXPECT_EQ(RecordsOf(f), (Records{"first", "alpha", "beta", "gamma"}));
    CBinFile again(path.c_str(), CFile::modeRead);
    EXPECT_EQ(RecordsOf(again), (Records{"first", "alpha", "beta", "gamma"}));
}

// Two objects on one file: a change by the second after the first changed the file's
// length is refused, since its table no longer describes the file; the journal beside
// the file lives while an object that changed it is open, and goes with the last.
TEST(CrashSafety, AStaleTableIsNeverWrittenAndTheJournalGoesWithItsObjects) {
    TempDir dir;
    const std::string path = dir.Path("f");
    WriteAll(path, RecordFileImage({B("alpha"), B("beta")}));
    {
        CBinFile a(path.c_str(), CFile::modeReadWrite);
        CBinFile b(path.c_str(), CFile::modeReadWrite);
        a.Add(P("gamma"), 5);
        EXPECT_TRUE(Exists(path + ".journal"));
        const Bytes now = ReadAll(path);
        EXPECT_THROW(b.Modify(0, P("x"), 1), CFileException);
        EXPECT_EQ(ReadAll(path), now);
        b.Close();
        EXPECT_TRUE(Exists(path + ".journal"));  // b never used it, a still may
        a.Modify(0, P("ALPHA"), 5);              // the same length: in place
    }
    EXPECT_FALSE(Exists(path + ".journal"));
    CBinFile f(path.c_str(), CFile::modeRead);
    EXPECT_EQ(RecordsOf(f), (Records{"ALPHA", "beta", "gamma"}));
}

// A journal left by a change that was cut off applies only to the file it was made
// for: not to one that has replaced it under the same name, nor to one that the open
// itself creates anew. A journal that does not add up is never applied.
TEST(CrashSafety, AJournalAppliesOnlyToItsOwnFile) {
    TempDir dir;
    const std::string path = dir.Path("f");
    const Bytes original = RecordFileImage({B("alpha"), B("beta")});
    auto cutOff = [&] {
        WriteAll(path, original);
        CBinFile f(path.c_str(), CFile::modeReadWrite);
        FileFaults stop(FileFaults::Mode::stop, 6);  // journal made, file marked
        EXPECT_THROW(f.Insert(-1, P("new"), 3), CFileException);
    };
    cutOff();
    ASSERT_TRUE(Exists(path + ".journal"));
    EXPECT_FALSE(OpensAs(ReadAll(path)));
    const Bytes marked = ReadAll(path);

    // Replaced under the same name: another inode; the journal goes unused.
    const Bytes other = RecordFileImage({B("other")});
    WriteAll(dir.Path("g"), other);
    ASSERT_EQ(rename(dir.Path("g").c_str(), path.c_str()), 0);
    EXPECT_TRUE(CBinFile::IsValidBinFile(path.c_str()));
    EXPECT_EQ(ReadAll(path), other);
    EXPECT_FALSE(Exists(path + ".journal"));

    // Created anew by the open: the journal goes unused.
    cutOff();
    {
        CBinFile fresh(path.c_str(), CFile::modeCreate | CFile::modeReadWrite);
        EXPECT_EQ(fresh.GetRecordCount(), 0);
    }
    EXPECT_EQ(ReadAll(path), Words({0}));

    // A journal whose record fails its checksum is kept but never applied.
    cutOff();
    const Bytes journal = ReadAll(path + ".journal");
    Bytes bad = journal;
    ASSERT_GT(bad.size(), 32u);
    bad[36] = 0xFF;  // the length of the first record
    WriteAll(path + ".journal", bad);
    EXPECT_FALSE(CBinFile::IsValidBinFile(path.c_str()));
    EXPECT_EQ(ReadAll(path), marked);
    // Put right, it applies.
    WriteAll(path + ".journal", journal);
    EXPECT_TRUE(CBinFile::IsValidBinFile(path.c_str()));
    EXPECT_EQ(ReadAll(path), original);
}

// ---- Every call of one change, cut ----------------------------------------------------

// Runs `change` on the file `original` at `path` once, then again with each of its calls
// failing, torn, and refused from there on as by the death of the process. A change
// that throws leaves the file as it was; one that is cut off leaves, once `reopen` has
// opened the file, the bytes before or after the change, and no journal. A completed
// change leaves no journal either. With `reopens`, the change ends by opening the file it
// put in place, and may throw there with the new bytes in place.
void CutAtEveryCall(const std::string& path, const Bytes& original, const std::string& name,
                    const std::function<void()>& change, const std::function<void()>& reopen,
                    bool reopens = false) {
    WriteAll(path, original);
    long calls = 0;
    {
        FileFaults count(FileFaults::Mode::count, -1, true);
        change();
        calls = count.Calls();
    }
    const Bytes after = ReadAll(path);
    EXPECT_NE(after, original) << name << ": changes nothing";
    EXPECT_GT(calls, 3) << name << ": journal, mark, data and table at least";
    EXPECT_FALSE(Exists(path + ".journal")) << name;
    for (long at = 0; at < calls; ++at) {
        for (auto mode : {FileFaults::Mode::fail, FileFaults::Mode::tear, FileFaults::Mode::stop,
                          FileFaults::Mode::stopTorn}) {
            const std::string where = name + ", call " + std::to_string(at) + ", mode " +
                                      std::to_string(static_cast<int>(mode));
            WriteAll(path, original);
            bool threw = false;
            {
                const bool fails = mode == FileFaults::Mode::fail || mode == FileFaults::Mode::tear;
                FileFaults fault(mode, at, fails);
                try {
                    change();
                } catch (const CFileException&) {
                    threw = true;
                }
            }
            if (mode == FileFaults::Mode::fail || mode == FileFaults::Mode::tear) {
                const Bytes now = ReadAll(path);
                if (threw && reopens && now == after) continue;
                EXPECT_EQ(now, threw ? original : after) << where;
                continue;
            }
            reopen();
            const Bytes now = ReadAll(path);
            EXPECT_TRUE(now == original || now == after) << where;
            EXPECT_FALSE(Exists(path + ".journal")) << where;
            if (::testing::Test::HasFailure()) return;
        }
    }
}

// The moves of an integer file (insert, delete, delete-empty, invert in place) and its
// extensions of more than one write. A completed change leaves exactly the file it
// would without a journal.
TEST(CrashSafety, AnIntegerFileMoveCutAnywhereLeavesTheOldOrTheNewRecords) {
    TempDir dir;
    const std::string path = dir.Path("ix");
    const std::vector<std::pair<const char*, void (*)(CIXFile&)>> moves = {
        {"insert", [](CIXFile& f) { f.Insert(2, 77); }},
        {"delete", [](CIXFile& f) { f.Delete(1, 3); }},
        {"delete empty", [](CIXFile& f) { f.DeleteEmpty(); }},
        {"invert", [](CIXFile& f) { f.Invert(nullptr, nullptr); }},
        // Extensions of more than one write: the old length comes back.
        {"insert past the end", [](CIXFile& f) { f.Insert(3100, 77); }},
        {"modify past the end", [](CIXFile& f) { f.Modify(70000, 5); }},
        {"init", [](CIXFile& f) { f.Init(90000); }},
        {"add records", [](CIXFile& f) {
             const std::vector<DWORD> values(70000, 9);
             f.AddRecords(values.data(), static_cast<int>(values.size()));
         }},
    };
    // 3000 records, some empty, that name one another.
    Bytes original;
    for (unsigned i = 0; i < 3000; ++i) {
        const Bytes w = Words({i % 7 == 0 ? 0xFFFFFFFFu : (i * 13) % 3000});
        original.insert(original.end(), w.begin(), w.end());
    }
    for (const auto& [name, move] : moves) {
        WriteAll(path, original);
        CMemIXFile twin(path.c_str(), 0, 4);  // the same change without any journal
        twin.SetGrowCount(0);
        move(twin);
        twin.UpdateToFile(dir.Path("twin").c_str());
        const auto change = [&, m = move] {
            CIXFile f(path.c_str(), CFile::modeReadWrite, 4);
            m(f);
        };
        CutAtEveryCall(path, original, name, change,
                       [&] { CIXFile reopened(path.c_str(), CFile::modeRead, 4); });
        WriteAll(path, original);
        change();
        EXPECT_EQ(ReadAll(path), ReadAll(dir.Path("twin"))) << name << ": the journal changed it";
    }
}

// The changes of the files built on the record file: bit records set and cleared in
// place, nested files rebuilt level by level, text records inserted in sorted order.
TEST(CrashSafety, ChangesOfBitTextAndNestedFilesCutAnywhereLeaveTheOldOrTheNewFile) {
    TempDir dir;
    const std::string path = dir.Path("f");
    auto reopen = [&] { CBinFile f(path.c_str(), CFile::modeRead); };
    const Bytes bits = [&] {
        CBitsBinFile f(path.c_str(), CFile::modeCreate | CFile::modeReadWrite);
        AddRows(f, {{1, 5, 9}, {}, {0, 1, 2, 3, 300}, {7, 4000}});
        f.Close();
        return ReadAll(path);
    }();
    auto onBits = [&](void (*change)(CBitsBinFile&)) {
        return [&path, change] {
            CBitsBinFile f(path.c_str(), CFile::modeReadWrite);
            change(f);
        };
    };
    CutAtEveryCall(path, bits, "set a bit", onBits([](CBitsBinFile& f) { f.SetAt(0, 2000); }),
                   reopen);
    CutAtEveryCall(path, bits, "clear a bit", onBits([](CBitsBinFile& f) { f.ResetAt(2, 300); }),
                   reopen);
    CutAtEveryCall(path, bits, "set a bit past the end",
                   onBits([](CBitsBinFile& f) { f.SetAt(6, 12); }), reopen);

    const Bytes nested = [&] {
        CNDimBinFile f(path.c_str(), CFile::modeCreate | CFile::modeReadWrite);
        int a[] = {0, 0, 0}, b[] = {0, 1, 1}, c[] = {2, 2, 0};
        f.Modify(3, a, P("ab"), 2);
        f.Modify(3, b, P("cde"), 3);
        f.Modify(3, c, P("ghij"), 4);
        f.Close();
        return ReadAll(path);
    }();
    CutAtEveryCall(
        path, nested, "a nested record",
        [&] {
            CNDimBinFile f(path.c_str(), CFile::modeReadWrite);
            int at[] = {0, 1, 0};
            f.Modify(3, at, P("a longer record"), 15);
        },
        reopen);
    CutAtEveryCall(
        path, nested, "a nested delete",
        [&] {
            CNDimBinFile f(path.c_str(), CFile::modeReadWrite);
            int at[] = {0, 0};
            f.Delete(2, at, 0, 0);
        },
        reopen);

    const Bytes text = RecordFileImage({B("alpha"), B("beta"), B("delta")});
    CutAtEveryCall(
        path, text, "a sorted text insertion",
        [&] {
            CTextBinFile f(path.c_str(), CFile::modeReadWrite);
            int record = -1;
            f.Add("charlie", 7, record, true, false);
        },
        reopen);
}

// The saves of the collections, which replace their file through a temporary beside
// it, and the push of the spill stack: each call failing, torn or the last before death.
TEST(CrashSafety, SavesOfCollectionsAndPushesCutAnywhereLeaveTheOldOrTheNewFile) {
    TempDir dir;
    TempFolder tmp;  // the linked lists' node files, also those a cut leaves behind
    const std::string path = dir.Path("f");
    auto reopen = [&] { CBinFile f(path.c_str(), CFile::modeRead); };
    const Bytes bits = [&] {
        CBitsBinFile f(path.c_str(), CFile::modeCreate | CFile::modeReadWrite);
        AddRows(f, {{1, 5}, {2}, {}, {7, 300}});
        f.Close();
        return ReadAll(path);
    }();
    for (Operation op : {opOr, opXor, opCopy}) {
        CutAtEveryCall(
            path, bits, "bit arrays saved, op " + std::to_string(op),
            [&] {
                CBitArrayArray a;
                a.GetAt(0)->SetAt(9);
                a.GetAt(3)->SetAt(7);
                a.GetAt(5)->SetAt(2);
                a.Save(path.c_str(), op, false, false, nullptr);
            },
            reopen, true);
    }
    CutAtEveryCall(
        path, bits, "numbers saved",
        [&] {
            CMyDWordArrayArray a;
            a.GetAt(1)->Add(4);
            a.GetAt(4)->Add(11);
            a.Save(path.c_str(), opOr, false, false, nullptr);
        },
        reopen, true);
    CutAtEveryCall(
        path, bits, "linked lists saved",
        [&] {
            CLinkedListArray lists;
            lists.AddValue(0, 3);
            lists.AddValue(2, 8);
            lists.AddValue(0, 12);
            lists.Save(path.c_str(), opOr, false, false, nullptr);
        },
        reopen, true);

    const Bytes stack = [&] {
        std::remove(path.c_str());
        CBitArraySaver saver;
        saver.SetTempFile(path.c_str());
        CBitArray first;
        first.SetAt(3);
        saver.Push(first);
        return ReadAll(path);
    }();
    // A push is judged by what the stack holds, not by bytes: a record written past a
    // top that did not move is dead and is pushed over. Every call of a push failing,
    // torn, or the last before death leaves a stack whose top is the old one or the new.
    auto push = [&] {
        CBitArraySaver saver;
        saver.SetTempFile(path.c_str());
        CBitArray next;
        next.SetAt(40);
        saver.Push(next);
    };
    long calls = 0;
    {
        WriteAll(path, stack);
        FileFaults count(FileFaults::Mode::count, -1, true);
        push();
        calls = count.Calls();
    }
    for (long at = 0; at < calls; ++at) {
        for (auto mode : {FileFaults::Mode::fail, FileFaults::Mode::tear, FileFaults::Mode::stop,
                          FileFaults::Mode::stopTorn}) {
            WriteAll(path, stack);
            {
                FileFaults fault(mode, at, true);
                try {
                    push();
                } catch (const CFileException&) {}
            }
            const std::string where =
                "call " + std::to_string(at) + ", mode " + std::to_string(static_cast<int>(mode));
            CBitArraySaver after;
            after.SetTempFile(path.c_str());
            unsigned char* word = nullptr;
            int length = 0;
            ASSERT_TRUE(after.Pop(0, word, length, false)) << where;
            const int top = length == 4 ? word[0] : -1;
            DropBlock(word);
            CBitArray popped;
            ASSERT_TRUE(top == 1 || top == 2) << where << ": top " << top;
            ASSERT_TRUE(after.Pop(top, popped)) << where;
            EXPECT_TRUE(popped.GetAt(top == 1 ? 3 : 40)) << where;
        }
    }
}

}  // namespace

// A document saved over a file: cut at any call, the file holds the old text or the
// new, keeps its mode, and a failed save leaves no temporary beside it.
TEST(CrashSafety, AnXmlSaveCutAnywhereLeavesTheOldFileOrTheNew) {
    TempDir dir;
    const std::string path = dir.Path("doc.xml");
    CXMLDocument doc;
    ASSERT_TRUE(doc.LoadXML("<root><b x=\"1\">text</b><c/></root>"));
    doc.Save(dir.Path("new.xml").c_str());
    const Bytes after = ReadAll(dir.Path("new.xml"));
    const Bytes old = {'<', 'o', '/', '>'};
    auto start = [&] {
        WriteAll(path, old);
        ASSERT_EQ(::chmod(path.c_str(), 0640), 0);
    };
    auto besides = [&] {
        int n = 0;
        for (const auto& entry : std::filesystem::directory_iterator(dir.Root()))
            n += entry.path().filename().string().rfind("doc.xml.", 0) == 0;
        return n;
    };
    start();
    long calls = 0;
    {
        FileFaults count(FileFaults::Mode::count);
        doc.Save(path.c_str());
        calls = count.Calls();
    }
    EXPECT_EQ(ReadAll(path), after);
    struct stat st {};
    ASSERT_EQ(::stat(path.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0640u) << "the mode of the file it replaced";
    for (long at = 0; at < calls; ++at) {
        for (auto mode : {FileFaults::Mode::fail, FileFaults::Mode::tear, FileFaults::Mode::stop}) {
            const std::string where = "call " + std::to_string(at) + ", mode " +
                                      std::to_string(static_cast<int>(mode));
            start();
            bool threw = false;
            {
                FileFaults fault(mode, at);
                try {
                    doc.Save(path.c_str());
                } catch (const CFileException&) {
                    threw = true;
                }
            }
            const Bytes now = ReadAll(path);
            EXPECT_TRUE(now == (threw ? old : after)) << where;
            if (mode != FileFaults::Mode::stop) {
                EXPECT_EQ(besides(), 0) << where;
            }
            for (const auto& entry : std::filesystem::directory_iterator(dir.Root()))
                if (entry.path().filename().string().rfind("doc.xml.", 0) == 0)
                    std::filesystem::remove(entry.path());
        }
    }
}
