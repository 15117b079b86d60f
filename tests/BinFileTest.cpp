#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

#include "Dorvik01.h"
#include "TestUtil.h"

namespace {
// Records AB, empty, CDE: the bytes ABCDE, then the words 0, 2, 2, 5.
const Bytes kThree = Cat({B("ABCDE"), Words({0, 2, 2, 5})});

std::string Record(CBinFile& f, int index) {
    unsigned char* buffer = nullptr;
    int length = 0;
    f.GetRecord(index, buffer, length, true);
    std::string s(reinterpret_cast<char*>(buffer), static_cast<std::size_t>(length));
    DropBlock(buffer);
    return s;
}
}  // namespace

TEST(RecordFile, ReadsTheRecordsOfAHandMadeFile) {
    TempDir dir;
    WriteAll(dir.Path("a"), kThree);
    ASSERT_EQ(kThree.size(), 21u);
    CBinFile f(dir.Path("a").c_str(), CFile::modeRead);
    EXPECT_TRUE(f.IsOpen());
    EXPECT_TRUE(f.IsValidBinFile());
    EXPECT_EQ(f.GetRecordCount(), 3);
    EXPECT_EQ(Record(f, 0), "AB");
    EXPECT_EQ(Record(f, 1), "");
    EXPECT_EQ(Record(f, 2), "CDE");
    EXPECT_EQ(f.GetRecordLength(2), 3);
    EXPECT_EQ(f.GetRecordLength(3), 0);
    EXPECT_EQ(f.GetAddress(3), 5u);  // the data end
    EXPECT_EQ(f.GetAddress(4), 0xFFFFFFFFu);
    EXPECT_EQ(f.GetAddress(-1), 0xFFFFFFFFu);
    EXPECT_EQ(f.GetMaxRecordLength(), 3);  // the last record counts too

    unsigned char* all = nullptr;
    int length = 0;
    f.GetRecords(0, 2, all, length, true);
    ASSERT_EQ(length, 5);
    EXPECT_EQ(std::memcmp(all, "ABCDE", 6), 0);  // one extra zero byte behind
    DropBlock(all);
}

TEST(RecordFile, DeliversNothingForEmptyAndAbsentRecords) {
    TempDir dir;
    WriteAll(dir.Path("a"), kThree);
    CBinFile f(dir.Path("a").c_str(), CFile::modeRead);
    unsigned char* buffer = reinterpret_cast<unsigned char*>(1);
    int length = 9;
    f.GetRecord(1, buffer, length, true);
    EXPECT_EQ(buffer, nullptr);
    EXPECT_EQ(length, 0);
    buffer = reinterpret_cast<unsigned char*>(1);
    f.GetRecord(7, buffer, length, true);
    EXPECT_EQ(buffer, nullptr);

    unsigned char room[2] = {0, 0};
    unsigned char* mine = room;
    length = 2;
    f.GetRecord(2, mine, length, false);  // the first bytes of a longer record
    EXPECT_EQ(length, 2);
    EXPECT_EQ(std::memcmp(room, "CD", 2), 0);
    length = 2;
    f.GetRecords(2, 1, mine, length, false);  // bad range: the pointer stays
    EXPECT_EQ(mine, room);
    EXPECT_EQ(length, 0);

    DWORD words[4];
    DWORD* w = words;
    length = sizeof words;
    f.GetAddresses(1, 3, w, length, false);
    EXPECT_EQ(length, 12);
    EXPECT_EQ(words[2], 5u);
    length = sizeof words;
    f.GetAddresses(1, 4, w, length, false);  // bad range: null even without allocate
    EXPECT_EQ(w, nullptr);
    EXPECT_EQ(length, 0);
}

TEST(RecordFile, ReadsRecordsAsNumbersAndAsMemoryFiles) {
    TempDir dir;
    WriteAll(dir.Path("a"), RecordFileImage({Cat({Words({7, 0xFFFFFFFF}), B("xy")}), {}}));
    CBinFile f(dir.Path("a").c_str(), CFile::modeRead);
    CDWordArray numbers;
    f.GetRecord(0, numbers);
    ASSERT_EQ(numbers.GetSize(), 2);  // the 2-byte tail stays unread
    EXPECT_EQ(numbers[1], 0xFFFFFFFFu);
    CBaseMemFile m;
    f.GetRecord(0, m);
    EXPECT_EQ(m.GetLength(), 10u);
    f.GetRecord(1, m);  // an empty record empties the memory file
    EXPECT_EQ(m.GetLength(), 0u);
}

TEST(RecordFile, AZeroByteFileBecomesAnEmptyRecordFileOnlyWithWriteAccess) {
    TempDir dir;
    WriteAll(dir.Path("a"), {});
    EXPECT_FALSE(CBinFile::IsValidBinFile(dir.Path("a").c_str()));
    {
        CBinFile f(dir.Path("a").c_str(), CFile::modeRead);
        EXPECT_EQ(f.GetRecordCount(), 0);
    }
    EXPECT_EQ(ReadAll(dir.Path("a")).size(), 0u);
    {
        CBinFile f(dir.Path("a").c_str(), CFile::modeReadWrite);
        EXPECT_EQ(f.GetRecordCount(), 0);
    }
    EXPECT_EQ(ReadAll(dir.Path("a")), Words({0}));
    EXPECT_TRUE(CBinFile::IsValidBinFile(dir.Path("a").c_str()));
    EXPECT_FALSE(CBinFile::IsValidBinFile(dir.Path("missing").c_str()));
}

TEST(RecordFile, RefusesFilesWhoseLastWordIsNoTableOffset) {
    TempDir dir;
    // A file of 1 to 3 bytes: the seek before the beginning throws, everywhere.
    for (int n = 1; n <= 3; ++n) {
        WriteAll(dir.Path("short"), Bytes(static_cast<std::size_t>(n), 0));
        CBinFile f;
        EXPECT_THROW(f.Open(dir.Path("short").c_str(), CFile::modeRead), CFileException);
        EXPECT_THROW(CBinFile::IsValidBinFile(dir.Path("short").c_str()), CFileException);
        EXPECT_THROW(CBinFile g(dir.Path("short").c_str(), CFile::modeRead), CFileException);
    }
    const Bytes bad[] = {
        Words({1}),                             // 4 bytes, nonzero
        Cat({B("abcd"), Words({8})}),           // at the length
        Cat({B("abcd"), Words({0x80000004})}),  // top bit set
        Cat({B("abc"), Words({5})}),            // leaves less than one table word
    };
    for (const Bytes& image : bad) {
        WriteAll(dir.Path("bad"), image);
        CBinFile f;
        EXPECT_FALSE(f.Open(dir.Path("bad").c_str(), CFile::modeRead));
        EXPECT_FALSE(f.IsOpen());
        EXPECT_EQ(f.GetRecordLength(0), 0);
        EXPECT_EQ(f.GetAddress(0), 0xFFFFFFFFu);
        EXPECT_FALSE(CBinFile::IsValidBinFile(dir.Path("bad").c_str()));
        CBinFile g(dir.Path("bad").c_str(), CFile::modeRead);  // open, but no table
        EXPECT_TRUE(g.IsOpen());
        EXPECT_EQ(g.GetRecordCount(), 0);
        EXPECT_THROW(g.Add(nullptr, 0), CFileException);
    }
}

TEST(RecordFile, OpensButDoesNotValidateOddTables) {
    TempDir dir;
    // Word at T is not 0: opens, not valid.
    WriteAll(dir.Path("a"), Cat({B("ab"), Words({1, 2})}));
    {
        CBinFile f;
        EXPECT_TRUE(f.Open(dir.Path("a").c_str(), CFile::modeRead));
        EXPECT_FALSE(f.IsValidBinFile());
    }
    // Only empty records: the last word is 0 and the file longer than 4 bytes.
    WriteAll(dir.Path("b"), Words({0, 0, 0}));
    CBinFile f(dir.Path("b").c_str(), CFile::modeRead);
    EXPECT_EQ(f.GetRecordCount(), 2);
    EXPECT_FALSE(f.IsValidBinFile());
}

TEST(RecordFile, ACorruptTableNeitherReadsNorAllocatesBeyondTheData) {
    TempDir dir;
    // Entry 1 lies far past the data, entry 2 below entry 1.
    Bytes image = Cat({B("abcdef"), Words({0, 0x7FFFFFF0, 3, 6})});
    WriteAll(dir.Path("a"), image);
    CBinFile f(dir.Path("a").c_str(), CFile::modeReadWrite);
    ASSERT_EQ(f.GetRecordCount(), 3);
    EXPECT_EQ(f.GetRecordLength(0), 0);
    EXPECT_EQ(f.GetRecordLength(1), 0);
    EXPECT_EQ(f.GetRecordLength(2), 3);
    EXPECT_EQ(Record(f, 0), "");
    EXPECT_EQ(Record(f, 2), "def");
    CDWordArray numbers;
    f.GetRecord(0, numbers);
    EXPECT_EQ(numbers.GetSize(), 0);
    // Changes refuse the file and leave every byte alone.
    EXPECT_THROW(f.Add(B("x").data(), 1), CFileException);
    EXPECT_THROW(f.Delete(0, 2), CFileException);
    EXPECT_EQ(ReadAll(dir.Path("a")), image);
}

TEST(RecordFile, NotSafeModeKeepsOnlyTheDataOnDisk) {
    TempDir dir;
    WriteAll(dir.Path("a"), kThree);
    CBinFile f(dir.Path("a").c_str(), CFile::modeReadWrite);
    f.SetSafeMode(false);
    EXPECT_FALSE(f.IsSafeMode());
    EXPECT_EQ(ReadAll(dir.Path("a")), B("ABCDE"));
    EXPECT_EQ(f.GetLength(), 21u);  // the length it will have
    EXPECT_EQ(Record(f, 2), "CDE");
    f.SetSafeMode(true);
    EXPECT_EQ(ReadAll(dir.Path("a")), kThree);
    f.SetSafeMode(false);
    f.Close();
    EXPECT_EQ(ReadAll(dir.Path("a")), kThree);
    // Reopened, the object is still not safe: the table is read and the disk cut.
    ASSERT_TRUE(f.Open(dir.Path("a").c_str(), CFile::modeReadWrite));
    EXPECT_FALSE(f.IsSafeMode());
    EXPECT_EQ(f.GetRecordCount(), 3);
    EXPECT_EQ(Record(f, 0), "AB");
    EXPECT_EQ(ReadAll(dir.Path("a")).size(), 5u);
    // A second Open closes first, which writes the table.
    ASSERT_TRUE(f.Open(dir.Path("a").c_str(), CFile::modeReadWrite));
    f.SetSafeMode(true);
    EXPECT_EQ(ReadAll(dir.Path("a")), kThree);
    // Read-only in not safe mode: the cut cannot be made, and the file stays whole.
    f.SetSafeMode(false);
    f.Close();
    EXPECT_THROW(f.Open(dir.Path("a").c_str(), CFile::modeRead), CFileException);
    f.SetSafeMode(true);
    f.Close();
    EXPECT_EQ(ReadAll(dir.Path("a")), kThree);
}

TEST(RecordFile, DestructionInNotSafeModeLeavesAValidFile) {
    TempDir dir;
    WriteAll(dir.Path("a"), kThree);
    {
        CBinFile f(dir.Path("a").c_str(), CFile::modeReadWrite);
        f.SetSafeMode(false);
        f.Add(B("FG").data(), 2);
    }
    EXPECT_EQ(ReadAll(dir.Path("a")), Cat({B("ABCDEFG"), Words({0, 2, 2, 5, 7})}));
}

TEST(MemoryFile, SavesLoadsAndHandsOverItsBlock) {
    TempDir dir;
    CBaseMemFile m;
    m.SaveToFile(dir.Path("none").c_str());  // holds nothing: no file
    EXPECT_FALSE(Exists(dir.Path("none")));
    m.Write("abc", 3);
    m.SaveToFile(dir.Path("a").c_str());
    EXPECT_EQ(m.GetLength(), 0u);  // saving empties the object
    EXPECT_EQ(ReadAll(dir.Path("a")), B("abc"));
    CBaseMemFile loaded(dir.Path("a").c_str(), 0);
    EXPECT_EQ(loaded.GetLength(), 3u);
    loaded.LoadFromFile(dir.Path("missing").c_str(), 0);  // keeps the content
    EXPECT_EQ(loaded.GetLength(), 3u);
    // A path that cannot be written keeps the content too.
    EXPECT_THROW(loaded.SaveToFile(dir.Path("no/such/dir").c_str()), CFileException);
    EXPECT_EQ(loaded.GetLength(), 3u);
    loaded.Attach(nullptr, 0, 0);
    EXPECT_EQ(loaded.GetLength(), 0u);
    EXPECT_EQ(loaded.m_nGrowBytes, 1024u);

    CBaseMemFile missing(dir.Path("missing").c_str(), 0);
    EXPECT_THROW(missing.Write("a", 1), CMemoryException);  // grow size 0: cannot grow
    auto* block = static_cast<BYTE*>(std::malloc(2));
    std::memcpy(block, "hi", 2);
    CBaseMemFile owner(block, 2, 0);
    EXPECT_EQ(owner.GetLength(), 2u);
    BYTE* back = owner.Detach();
    EXPECT_EQ(back, block);
    EXPECT_EQ(owner.GetLength(), 0u);
    std::free(back);
}

// A large file opened for reading only is read through a mapping; one opened for
// reading and writing reads by pread. Both readers keep the table they loaded, and
// while a third object changes the file (safe-mode writes, growth, a cut by not safe
// mode) they must deliver the same bytes for every record of that table.
TEST(RecordFileReading, AMappedReaderSeesWhatAPlainReaderSees) {
    TempDir dir;
    std::string path = dir.Path("big.bin");
    std::mt19937 rng(61);
    auto record = [&rng](std::size_t n) {
        Bytes r(n);
        for (auto& b : r) b = static_cast<unsigned char>(rng());
        return r;
    };
    {
        CBinFile build(path.c_str(), CFile::modeCreate | CFile::modeReadWrite);
        build.SetSafeMode(false);
        for (int i = 0; i < 3000; ++i) {
            Bytes r = record(100 + rng() % 200);
            build.Add(r.data(), static_cast<int>(r.size()));
        }
    }
    CBinFile mapped(path.c_str(), CFile::modeRead);
    CBinFile plain(path.c_str(), CFile::modeReadWrite);
    CBinFile writer(path.c_str(), CFile::modeReadWrite);
    auto same = [&](const char* step) {
        for (int i = 0; i < mapped.GetRecordCount(); ++i) {
            unsigned char* a = nullptr;
            unsigned char* b = nullptr;
            int na = 0, nb = 0;
            mapped.GetRecord(i, a, na, true);
            plain.GetRecord(i, b, nb, true);
            ASSERT_EQ(Bytes(a, a + na), Bytes(b, b + nb)) << step << " record " << i;
            DropBlock(a);
            DropBlock(b);
        }
    };
    same("as built");
    for (int k = 0; k < 50; ++k) {
        Bytes r = record(rng() % 400);
        writer.Modify(static_cast<int>(rng() % 3000), r.data(), static_cast<int>(r.size()));
    }
    same("after changes in place and moves");
    for (int k = 0; k < 500; ++k) {
        Bytes r = record(300);
        writer.Add(r.data(), static_cast<int>(r.size()));
    }
    same("after growth");
    writer.Delete(0, 2000);
    writer.SetSafeMode(false);  // cuts the table off the disk
    same("after a cut");
    writer.SetSafeMode(true);
    same("after the table came back");
}
