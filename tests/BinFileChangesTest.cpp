#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "Dorvik01.h"
#include "TestUtil.h"
#include "dorvik/BitArray.h"

namespace {
std::vector<std::string> Records(CBinFile& f) { return RecordsOf(f); }

Bytes Image(const std::vector<std::string>& records) {
    std::vector<Bytes> r;
    for (const std::string& s : records) r.push_back(B(s));
    return RecordFileImage(r);
}

}  // namespace

TEST(RecordFileChanges, AddOnAnEmptyFileWritesDataThenTable) {
    TempDir dir;
    CBinFile f(dir.Path("a").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    f.Add(P("ab"), 2);
    EXPECT_EQ(ReadAll(dir.Path("a")), Cat({B("ab"), Words({0, 2})}));
    f.Add(nullptr, 0);
    f.Add(P("CDE"), 3);
    EXPECT_EQ(ReadAll(dir.Path("a")), Cat({B("abCDE"), Words({0, 2, 2, 5})}));
}

TEST(RecordFileChanges, InsertBeyondTheEndLeavesOneEmptyRecordBehind) {
    TempDir dir;
    CBinFile f(dir.Path("a").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    f.Add(P("ab"), 2);
    f.Insert(3, P("xyz"), 3);          // behind record 3 of a 1-record file
    EXPECT_EQ(f.GetRecordCount(), 6);  // records 1..3 empty, 4 new, 5 empty
    EXPECT_EQ(ReadAll(dir.Path("a")), Cat({B("abxyz"), Words({0, 2, 2, 2, 2, 5, 5})}));
    f.Insert(-1, P("F"), 1);
    f.Insert(0, P("G"), 1);
    f.Insert(1, P(""), 0);
    EXPECT_EQ(Records(f), (std::vector<std::string>{"F", "G", "", "ab", "", "", "", "xyz", ""}));
    f.Insert(1, nullptr, 2);  // a reservation of two bytes: whatever lay there
    EXPECT_EQ(f.GetRecordLength(2), 2);
    EXPECT_TRUE(CBinFile::IsValidBinFile(dir.Path("a").c_str()));
}

TEST(RecordFileChanges, ModifyGrowsShrinksAndCreatesRecords) {
    TempDir dir;
    CBinFile f(dir.Path("a").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    f.Modify(3, P("abc"), 3);  // creates four records, three of them empty
    EXPECT_EQ(Records(f), (std::vector<std::string>{"", "", "", "abc"}));
    f.Add(P("tail"), 4);
    DWORD before = f.CFile::GetLength();
    f.Modify(3, P("x"), 1);
    EXPECT_EQ(f.CFile::GetLength(), before - 2);
    f.Modify(3, P("wxyz"), 4);
    EXPECT_EQ(f.CFile::GetLength(), before + 1);
    Bytes same = ReadAll(dir.Path("a"));
    f.Modify(3, P("WXYZ"), 4);  // same length: in place, table untouched
    same[0] = 'W', same[1] = 'X', same[2] = 'Y', same[3] = 'Z';
    EXPECT_EQ(ReadAll(dir.Path("a")), same);
    f.Modify(4, nullptr, 0);
    f.Modify(7, nullptr, 0);  // past the end: empty records only
    EXPECT_EQ(Records(f), (std::vector<std::string>{"", "", "", "WXYZ", "", "", "", ""}));
    EXPECT_EQ(ReadAll(dir.Path("a")), Image(Records(f)));
}

TEST(RecordFileChanges, DeleteClampsAndEmptiesTheFile) {
    TempDir dir;
    CBinFile f(dir.Path("a").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    for (const char* s : {"a", "bb", "ccc", "dddd"}) f.Add(P(s), static_cast<int>(std::strlen(s)));
    f.Delete(2, 1);
    f.Delete(4, 9);
    EXPECT_EQ(f.GetRecordCount(), 4);
    f.Delete(3, 9);
    EXPECT_EQ(Records(f), (std::vector<std::string>{"a", "bb", "ccc"}));
    f.Delete(1);
    EXPECT_EQ(ReadAll(dir.Path("a")), Image({"a", "ccc"}));
    f.Delete(0, 1);
    EXPECT_EQ(ReadAll(dir.Path("a")), Words({0}));
}

TEST(RecordFileChanges, DeleteAllAndDeleteEmpty) {
    TempDir dir;
    CBinFile f(dir.Path("a").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    for (const char* s : {"", "", "a", "", "b", "", "", ""})
        f.Add(P(s), static_cast<int>(std::strlen(s)));
    EXPECT_EQ(f.DeleteEmpty(), 6);
    EXPECT_EQ(ReadAll(dir.Path("a")), Image({"a", "b"}));
    f.SetSafeMode(false);
    f.DeleteAll();
    EXPECT_EQ(f.GetRecordCount(), 0);
    EXPECT_EQ(ReadAll(dir.Path("a")).size(), 0u);
    f.Close();
    EXPECT_EQ(ReadAll(dir.Path("a")), Words({0}));
}

TEST(RecordFileChanges, FindComparesWholeRecords) {
    TempDir dir;
    CBinFile f(dir.Path("a").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    for (const char* s : {"abc", "ab", "", "ab"}) f.Add(P(s), static_cast<int>(std::strlen(s)));
    EXPECT_EQ(f.Find(-1, P("ab"), 2), 1);
    EXPECT_EQ(f.Find(1, P("ab"), 2), 3);
    EXPECT_EQ(f.Find(3, P("ab"), 2), -1);
    EXPECT_EQ(f.Find(-1, P(""), 0), -1);  // an empty record is never found
    EXPECT_EQ(f.Find(-1, P("abcd"), 4), -1);
}

TEST(RecordFileChanges, InsertsWholeFiles) {
    TempDir dir;
    WriteAll(dir.Path("src"), Image({"x", "", "yz"}));
    WriteAll(dir.Path("empties"), Image({"", ""}));
    WriteAll(dir.Path("junk"), B("no record file"));
    CBinFile f(dir.Path("a").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    f.Add(P("A"), 1);
    f.Add(P("B"), 1);
    EXPECT_EQ(f.Insert(0, dir.Path("src").c_str()), 3);
    EXPECT_EQ(f.Insert(-1, dir.Path("empties").c_str()), 2);
    EXPECT_EQ(f.Insert(0, dir.Path("junk").c_str()), 0);
    EXPECT_THROW(f.Insert(0, dir.Path("missing").c_str()), CFileException);
    EXPECT_EQ(f.Insert(9, &f), 7);  // from itself, past the end
    std::vector<std::string> once = {"", "", "A", "x", "", "yz", "B"};
    std::vector<std::string> all = once;
    all.insert(all.end(), 3, "");
    all.insert(all.end(), once.begin(), once.end());
    all.push_back("");
    EXPECT_EQ(Records(f), all);
    EXPECT_EQ(ReadAll(dir.Path("a")), Image(all));
}

TEST(RecordFileChanges, ModifiesFromFilesAndMemoryFiles) {
    TempDir dir;
    Bytes big(5 << 20);
    for (std::size_t i = 0; i < big.size(); ++i) big[i] = static_cast<unsigned char>(i * 7);
    WriteAll(dir.Path("big"), big);
    CBinFile f(dir.Path("a").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    f.Add(P("head"), 4);
    f.Add(P("tail"), 4);
    CFile source(dir.Path("big").c_str(), CFile::modeRead);
    f.Modify(0, source);
    EXPECT_EQ(f.GetRecordLength(0), static_cast<int>(big.size()));
    CBaseMemFile m;
    m.Write("memory", 6);
    f.Modify(3, &m);
    EXPECT_EQ(m.GetLength(), 0u);
    std::vector<std::string> expect = {std::string(big.begin(), big.end()), "tail", "", "memory"};
    EXPECT_EQ(Records(f), expect);
}

TEST(RecordFileChanges, GetRecordsBitmapMarksNonEmptyRecords) {
    TempDir dir;
    CBinFile f(dir.Path("a").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    CBitArray bits;
    bits.SetAt(40);
    f.GetRecordsBitmap(bits);
    EXPECT_EQ(bits.GetLength(), 0);
    for (const char* s : {"", "a", "", "b"}) f.Add(P(s), static_cast<int>(std::strlen(s)));
    f.GetRecordsBitmap(bits);
    EXPECT_FALSE(bits.GetAt(0));
    EXPECT_TRUE(bits.GetAt(1));
    EXPECT_FALSE(bits.GetAt(2));
    EXPECT_TRUE(bits.GetAt(3));
    EXPECT_EQ(bits.GetCount(), 2);
}

TEST(RecordFileChanges, ReservationsAtTheEndSurviveCloseInNotSafeMode) {
    TempDir dir;
    {
        CBinFile f(dir.Path("a").c_str(), CFile::modeCreate | CFile::modeReadWrite);
        f.SetSafeMode(false);
        f.Add(P("ab"), 2);
        f.Insert(0, nullptr, 3);  // counted by the table, never written
        EXPECT_EQ(f.GetLength(), 5u + 12u);
    }
    EXPECT_EQ(ReadAll(dir.Path("a")), Cat({B("ab"), Bytes(3, 0), Words({0, 2, 5})}));
}

TEST(RecordFileChanges, MovesKeepAllBytesWhenMemoryIsShort) {
    TempDir dir;
    CBinFile f(dir.Path("a").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    std::vector<std::string> model;
    for (int i = 0; i < 50; ++i) {
        model.push_back(
            std::string(static_cast<std::size_t>(i * 3 + 1), static_cast<char>('a' + i % 26)));
        f.Add(P(model.back().c_str()), static_cast<int>(model.back().size()));
    }
    {
        BlockLimit limit(7);                     // every move goes through pieces of a few bytes
        f.Insert(2, P("0123456789abcdef"), 16);  // towards higher offsets, overlapping
        model.insert(model.begin() + 3, "0123456789abcdef");
        f.Delete(0, 1);  // towards lower offsets
        model.erase(model.begin(), model.begin() + 2);
        f.Modify(5, P("short"), 5);
        model[5] = "short";
    }
    EXPECT_EQ(Records(f), model);
    EXPECT_EQ(ReadAll(dir.Path("a")), Image(model));
}

TEST(RecordFileChanges, AMoveWithoutAnyMemoryChangesNothingAndThrows) {
    TempDir dir;
    CBinFile f(dir.Path("a").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    f.Add(P("abc"), 3);
    f.Add(P("def"), 3);
    Bytes before = ReadAll(dir.Path("a"));
    MessageCapture shown;
    {
        BlockLimit limit(0);
        EXPECT_THROW(f.Insert(-1, P("x"), 1), CMemoryException);
        EXPECT_THROW(f.Modify(0, P("longer"), 6), CMemoryException);
        EXPECT_THROW(f.Delete(0), CMemoryException);
    }
    ASSERT_EQ(shown.messages.size(), 3u);
    EXPECT_EQ(shown.messages[0], "Can't move file data.\r\nNot enough memory!|0|0");
    EXPECT_EQ(ReadAll(dir.Path("a")), before);
    EXPECT_EQ(Records(f), (std::vector<std::string>{"abc", "def"}));
}

// A random mix of changes must leave exactly the image of the same changes made on a
// list of strings, in both modes.
TEST(RecordFileChanges, RandomChangesMatchAModel) {
    for (bool safe : {true, false}) {
        TempDir dir;
        std::mt19937 rng(safe ? 1 : 2);
        std::vector<std::string> model;
        CBinFile f(dir.Path("a").c_str(), CFile::modeCreate | CFile::modeReadWrite);
        f.SetSafeMode(safe);
        for (int step = 0; step < 600; ++step) {
            int n = static_cast<int>(model.size());
            std::string text(rng() % 12, static_cast<char>('a' + rng() % 26));
            unsigned char* data = P(text.c_str());
            int len = static_cast<int>(text.size());
            switch (rng() % 5) {
                case 0:
                    f.Add(data, len);
                    model.push_back(text);
                    break;
                case 1: {
                    int after = static_cast<int>(rng() % (n + 3)) - 1;
                    f.Insert(after, data, len);
                    int pos = after + 1;
                    if (pos > n) model.resize(static_cast<std::size_t>(pos) + 1);
                    model.insert(model.begin() + pos, text);
                    break;
                }
                case 2: {
                    int index = static_cast<int>(rng() % (n + 2));
                    f.Modify(index, data, len);
                    if (index >= n) model.resize(static_cast<std::size_t>(index) + 1);
                    model[static_cast<std::size_t>(index)] = text;
                    break;
                }
                case 3: {
                    if (n == 0) break;
                    int first = static_cast<int>(rng() % n);
                    int last = first + static_cast<int>(rng() % 3);
                    f.Delete(first, last);
                    model.erase(model.begin() + first, model.begin() + std::min(last + 1, n));
                    break;
                }
                default:
                    if (rng() % 10 == 0) {
                        int gone = f.DeleteEmpty();
                        std::erase(model, std::string());
                        EXPECT_EQ(static_cast<int>(model.size()), n - gone);
                    }
            }
        }
        EXPECT_EQ(Records(f), model);
        EXPECT_EQ(f.GetLength(), Image(model).size());
        f.Close();
        EXPECT_EQ(ReadAll(dir.Path("a")), Image(model));
    }
}
