// Writers killed at random moments, for every class that changes a file: bit record,
// integer, text, nested, collection and hierarchy files and the spill stack. After each
// kill the file, once opened (which rolls a cut-off change back), holds what the same
// changes made in a run that was never killed, up to the last completed change or the
// one under way; or it is refused as damaged, never read as other records.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "Dorvik01.h"
#include "TestUtil.h"
#include "frame/Coding.h"

namespace {

using Step = std::function<void(std::mt19937&)>;

struct Subject {
    std::string name;
    // Makes the file at the path as the run starts.
    std::function<void(const std::string&)> create;
    // Opens the file at the path for a run of changes; the step makes one change drawn
    // from the generator (from what the object holds, so that a replay draws the same).
    std::function<Step(const std::string&)> open;
    // What the file at the path holds, read as its class opens it, or nothing when its
    // damage is detected (the open refuses it, or it fails its validity test).
    std::function<std::optional<std::string>(const std::string&)> read;
};

unsigned SeedOf(int round) { return 7000 + static_cast<unsigned>(round); }

// The file's content after `count` changes of round `round` from `start`, and after one
// more, made on a copy at `twin` by a run that is never killed.
std::pair<std::string, std::string> Replay(const Subject& s, const std::string& twin,
                                           const Bytes& start, int round, int count) {
    WriteAll(twin, start);
    std::mt19937 rng(SeedOf(round));
    std::string before, after;
    {
        Step step = s.open(twin);
        for (int i = 0; i < count; ++i) step(rng);
    }
    before = s.read(twin).value_or("<refused>");
    {
        Step step = s.open(twin);
        step(rng);
    }
    after = s.read(twin).value_or("<refused>");
    return {before, after};
}

// Kills a writer of `s` `rounds` times; each round goes on from the file the last one
// left. Returns the kills after which the file was refused as damaged.
int KillWhileChanging(const Subject& s, int rounds, int maxMicros) {
    TempDir dir;
    const std::string path = dir.Path("f"), twin = dir.Path("twin");
    s.create(path);
    Bytes start = ReadAll(path);
    int refused = 0, changed = 0;
    KillAtRandom(
        {KillRounds(rounds), 100, maxMicros, 11},
        [&](int round, const std::function<void()>& done) {
            Step step = s.open(path);
            std::mt19937 rng(SeedOf(round));
            for (;;) {
                step(rng);
                done();
            }
        },
        [&](int round, int count) {
            const std::string where = s.name + ", round " + std::to_string(round) + " after " +
                                      std::to_string(count) + " changes";
            const std::optional<std::string> now = s.read(path);
            const auto [before, after] = Replay(s, twin, start, round, count);
            if (!now) {
                ++refused;
                WriteAll(path, ReadAll(twin));  // go on from a sound file
                std::remove((path + ".journal").c_str());
            } else {
                EXPECT_TRUE(*now == before || *now == after) << where << ": other content";
                EXPECT_FALSE(Exists(path + ".journal")) << where;
            }
            changed += count > 0;
            start = ReadAll(path);
        });
    EXPECT_GT(changed, 0) << s.name << ": no change ever completed";
    return refused;
}

// ---- Reading a file back ------------------------------------------------------------

// A record file as its records, length-prefixed; nothing when it fails the validity
// test while it has bytes.
std::optional<std::string> RecordsRead(const std::string& path) {
    CBinFile f(path.c_str(), CFile::modeRead);
    if (f.GetLength() > 4 && !f.IsValidBinFile()) return std::nullopt;
    std::string out;
    for (const std::string& r : RecordsOf(f)) out += std::to_string(r.size()) + ":" + r + ";";
    return out;
}

// The bytes of the file once a read-only open of class T has rolled it back.
template <class T>
std::optional<std::string> BytesRead(const std::string& path) {
    try {
        T f(path.c_str(), CFile::modeRead);
        if (f.GetLength() > 4 && !f.IsValidBinFile()) return std::nullopt;
    } catch (const CFileException&) {
        return std::nullopt;
    }
    const Bytes b = ReadAll(path);
    return std::string(b.begin(), b.end());
}

CBitArray RandomBits(std::mt19937& rng) {
    CBitArray bits;
    const int n = static_cast<int>(rng() % 12);
    for (int i = 0; i < n; ++i) bits.SetAt(static_cast<int>(rng() % 3000));
    return bits;
}

// ---- The classes --------------------------------------------------------------------

Subject BitRecords() {
    return {"bit records",
            [](const std::string& path) {
                CBitsBinFile f(path.c_str(), CFile::modeCreate | CFile::modeReadWrite);
            },
            [](const std::string& path) -> Step {
                auto f = std::make_shared<CBitsBinFile>(path.c_str(), CFile::modeReadWrite);
                return [f](std::mt19937& rng) {
                    const int n = f->GetRecordCount();
                    const int record = static_cast<int>(rng() % static_cast<unsigned>(n + 2));
                    const int bit = static_cast<int>(rng() % 4000);
                    const unsigned pick = rng() % 10;
                    if (pick < 3 || n == 0) {
                        CBitArray bits = RandomBits(rng);
                        f->Add(&bits);
                    } else if (pick < 6) {
                        f->SetAt(record, bit);
                    } else if (pick < 8) {
                        f->ResetAt(record % n, bit);
                    } else {
                        f->Delete(record % n, record % n);
                    }
                };
            },
            BytesRead<CBitsBinFile>};
}

// Values of an integer file: positions and -1 for an empty record. Changes inside the
// file, moves, and extensions of more than one write.
Subject IntegerFile() {
    return {"integers",
            [](const std::string& path) {
                CIXFile f(path.c_str(), CFile::modeCreate | CFile::modeReadWrite);
                for (int i = 0; i < 2000; ++i) f.Add(i % 9 == 0 ? -1 : (i * 7) % 2000);
            },
            [](const std::string& path) -> Step {
                auto f = std::make_shared<CIXFile>(path.c_str(), CFile::modeReadWrite);
                return [f](std::mt19937& rng) {
                    const int n = f->GetRecordCount();
                    const int at = static_cast<int>(rng() % static_cast<unsigned>(n + 1));
                    const int value = rng() % 6 == 0 ? -1 : static_cast<int>(rng() % 2000);
                    const unsigned pick = rng() % 12;
                    if (pick < 3 || n < 10) {
                        f->Insert(at, value);  // at n: past the end, it extends first
                    } else if (pick < 6) {
                        f->Delete(at % n, std::min(n - 1, at % n + static_cast<int>(rng() % 4)));
                    } else if (pick < 7) {
                        f->DeleteEmpty();
                    } else if (pick < 8) {
                        f->Modify(at % n, value);
                    } else if (pick < 9) {
                        f->Modify(n + static_cast<int>(rng() % 3), value);  // extends
                    } else if (pick < 10) {
                        f->Init(n + 1 + static_cast<int>(rng() % 3));
                    } else if (pick < 11) {
                        const DWORD values[3] = {static_cast<DWORD>(rng() % 2000), static_cast<DWORD>(rng() % 2000),
                                                static_cast<DWORD>(rng() % 2000)};
                        f->AddRecords(values, 1 + static_cast<int>(rng() % 3));
                    } else {
                        f->Add(value);
                    }
                };
            },
            [](const std::string& path) -> std::optional<std::string> {
                CIXFile f;
                if (!f.Open(path.c_str(), CFile::modeRead)) return std::nullopt;
                f.Close();
                const Bytes b = ReadAll(path);
                return std::string(b.begin(), b.end());
            }};
}

Subject SortedText() {
    return {"sorted text",
            [](const std::string& path) {
                CTextBinFile f(path.c_str(), CFile::modeCreate | CFile::modeReadWrite);
            },
            [](const std::string& path) -> Step {
                auto f = std::make_shared<CTextBinFile>(path.c_str(), CFile::modeReadWrite);
                return [f](std::mt19937& rng) {
                    const int n = f->GetRecordCount();
                    if (n > 300 || (n > 0 && rng() % 4 == 0)) {
                        const int at = static_cast<int>(rng() % static_cast<unsigned>(n));
                        f->Delete(at, std::min(n - 1, at + static_cast<int>(rng() % 30)));
                        return;
                    }
                    std::string word(1 + rng() % 12, 'a');
                    for (char& c : word) c = static_cast<char>('a' + rng() % 26);
                    int record = -1;
                    f->Add(word.c_str(), static_cast<int>(word.size()), record, true, false);
                };
            },
            RecordsRead};
}

Subject Nested() {
    return {"nested",
            [](const std::string& path) {
                CNDimBinFile f(path.c_str(), CFile::modeCreate | CFile::modeReadWrite);
            },
            [](const std::string& path) -> Step {
                auto f = std::make_shared<CNDimBinFile>(path.c_str(), CFile::modeReadWrite);
                return [f](std::mt19937& rng) {
                    int at[] = {static_cast<int>(rng() % 4), static_cast<int>(rng() % 5),
                                static_cast<int>(rng() % 6)};
                    if (rng() % 5 == 0) {
                        f->Delete(2, at, 0, 0);
                        return;
                    }
                    std::string text(rng() % 3 == 0 ? 2000 + rng() % 3000 : rng() % 20, 'n');
                    f->Modify(3, at, reinterpret_cast<unsigned char*>(text.data()),
                              static_cast<int>(text.size()));
                };
            },
            BytesRead<CNDimBinFile>};
}

// Merges (or, one time in five, replaces) the file with a collection of a few arrays.
Subject CollectionSave() {
    return {"collection",
            [](const std::string& path) {
                CBitArrayCollection c;
                c.GetAt(0)->GetAt(0)->SetAt(1);
                c.Save(path.c_str(), opCopy, false, false, nullptr);
            },
            [](const std::string& path) -> Step {
                return [path](std::mt19937& rng) {
                    CBitArrayCollection c;
                    const int arrays = 1 + static_cast<int>(rng() % 5);
                    for (int i = 0; i < arrays; ++i)
                        for (int j = static_cast<int>(rng() % 6); j >= 0; --j)
                            *c.GetAt(i)->GetAt(static_cast<int>(rng() % 8)) = RandomBits(rng);
                    const unsigned pick = rng() % 5;
                    c.Save(path.c_str(),
                           pick == 0  ? opCopy
                           : pick < 3 ? opOr
                                      : opXor,
                           false, false, nullptr);
                };
            },
            [](const std::string& path) -> std::optional<std::string> {
                try {
                    CNDimBitsBinFile f(path.c_str(), CFile::modeRead);
                    if (!f.IsValidBinFile()) return std::nullopt;
                } catch (const CFileException&) {
                    return std::nullopt;
                }
                return RecordsRead(path);
            }};
}

Subject HierarchySave() {
    return {"hierarchy",
            [](const std::string& path) {
                CHierarchy tree;
                tree.SetNodeLevel(0, 0, false);
                tree.Save(path.c_str(), opCopy, false, false, nullptr);
            },
            [](const std::string& path) -> Step {
                return [path](std::mt19937& rng) {
                    CHierarchy tree;
                    tree.Init(path.c_str(), nullptr);
                    const int n = tree.GetNodeCount();
                    for (int k = static_cast<int>(rng() % 40); k >= 0; --k) {
                        const int node = static_cast<int>(rng() % static_cast<unsigned>(n + 50));
                        tree.SetNodeLevel(node, static_cast<int>(rng() % 4), rng() % 2 == 0);
                    }
                    tree.Save(path.c_str(), opCopy, false, false, nullptr);
                };
            },
            RecordsRead};
}

// The spill stack: its top and the records up to it.
Subject SpillStack() {
    return {"spill stack",
            [](const std::string& path) {
                CBitArraySaver saver;
                saver.SetTempFile(path.c_str());
            },
            [](const std::string& path) -> Step {
                auto saver = std::make_shared<CBitArraySaver>();
                saver->SetTempFile(path.c_str());
                return [saver](std::mt19937& rng) {
                    CBitArray bits = RandomBits(rng);
                    if (rng() % 6 == 0) bits.SetAt(static_cast<int>(200000 + rng() % 100000));
                    saver->Push(bits);
                };
            },
            [](const std::string& path) -> std::optional<std::string> {
                if (!CBinFile::IsValidBinFile(path.c_str())) return std::nullopt;
                CBitArraySaver saver;
                saver.SetTempFile(path.c_str());
                std::string out;
                auto record = [&saver](int k) {
                    unsigned char* block = nullptr;
                    int length = 0;
                    saver.Pop(k, block, length, false);
                    std::string r(reinterpret_cast<char*>(block), static_cast<std::size_t>(length));
                    DropBlock(block);
                    return r;
                };
                const std::string top = record(0);
                const int count = top.size() == 4
                                      ? static_cast<int>(dorvik::DecodeFixed32(
                                            reinterpret_cast<const unsigned char*>(top.data())))
                                      : 0;
                for (int k = 0; k <= count; ++k) out += std::to_string(k) + ":" + record(k) + ";";
                return out;
            }};
}

}  // namespace

// About a hundred kills a class, each a few milliseconds into a run of changes; the
// journaled changes leave the old or the new content every time, while a change
// cut between making its journal and the journal's first write may leave the file
// refused (seldom).
TEST(KillSafety, RecordFileKindsHoldTheLastCompletedChangeOrTheOneUnderWay) {
    for (const Subject& s : {BitRecords(), SortedText(), Nested()}) {
        const int refused = KillWhileChanging(s, 80, 4000);
        EXPECT_LE(refused, 4) << s.name;
        if (HasFailure()) return;
    }
}

TEST(KillSafety, IntegerFileMovesLeaveTheOldOrTheNewValues) {
    EXPECT_LE(KillWhileChanging(IntegerFile(), 100, 4000), 5);
}

// Saves that merge through a temporary file and replace the old one by renaming.
TEST(KillSafety, CollectionAndHierarchySavesLeaveTheOldOrTheNewFile) {
    for (const Subject& s : {CollectionSave(), HierarchySave()}) {
        EXPECT_EQ(KillWhileChanging(s, 80, 4000), 0) << s.name;
        if (HasFailure()) return;
    }
}

TEST(KillSafety, TheSpillStackKeepsEveryCompletedPush) {
    EXPECT_LE(KillWhileChanging(SpillStack(), 80, 3000), 4);
}
