#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "Dorvik01.h"
#include "TestUtil.h"

namespace {
// The bytes the object holds, read through UpdateToFile, which leaves it as it is.
Bytes Content(CMemIXFile& file, const TempDir& dir) {
    std::string path = dir.Path("content");
    file.UpdateToFile(path.c_str());
    return ReadAll(path);
}

BYTE* CallersBlock(const Bytes& bytes) {
    auto* block = static_cast<BYTE*>(std::malloc(bytes.size()));
    std::memcpy(block, bytes.data(), bytes.size());
    return block;
}
}  // namespace

TEST(MemoryIntegerFile, GrowCountFollowsTheGrowSize) {
    TempDir dir;
    CMemIXFile plain;  // keeps what the integer file starts with
    EXPECT_EQ(plain.GetRecordSize(), 4);
    EXPECT_EQ(plain.GetGrowCount(), 0);
    EXPECT_EQ(plain.m_nGrowBytes, 1024u);
    CMemIXFile byDefault(0u, 2);
    EXPECT_EQ(byDefault.m_nGrowBytes, 1024u);
    EXPECT_EQ(byDefault.GetGrowCount(), 256);
    byDefault.Init(1);  // one record and the spare ones of the grow count
    EXPECT_EQ(byDefault.GetRecordCount(), 257);
    CMemIXFile large(4096u, 1);
    EXPECT_EQ(large.GetGrowCount(), 1024);
    large.Attach(nullptr, 0, 40);
    EXPECT_EQ(large.GetGrowCount(), 10);
    EXPECT_THROW(CMemIXFile(0u, 5), CFileException);  // no record size outside 1 .. 4

    WriteAll(dir.Path("a"), Hex("0100 0200 0300"));
    CMemIXFile loaded(dir.Path("a").c_str(), 64, 2);
    EXPECT_EQ(loaded.GetGrowCount(), 16);
    EXPECT_EQ(loaded.GetRecordCount(), 3);
    EXPECT_EQ(loaded.GetRecord(2), 3);
    CMemIXFile missing(dir.Path("missing").c_str(), 0, 2);  // empty, and it can grow
    missing.Add(7);
    EXPECT_EQ(missing.GetRecordCount(), 1);
}

TEST(MemoryIntegerFile, HoldsTheSameBytesAsTheFile) {
    TempDir dir;
    CIXFile disk(dir.Path("disk").c_str(), CFile::modeCreate | CFile::modeReadWrite, 3);
    CMemIXFile mem(16u, 3);
    for (CIXFile* f : {static_cast<CIXFile*>(&disk), static_cast<CIXFile*>(&mem)}) {
        f->SetGrowCount(2);
        for (int v : {5, -1, 70000, 3}) f->Add(v);
        f->Insert(0, 9);
        f->Modify(8, 4);  // past the end: extends with init bytes and spare records
        f->IncRecord(1);
        f->Delete(2, 3);
        f->DeleteEmpty();
    }
    EXPECT_EQ(Content(mem, dir), ReadAll(dir.Path("disk")));
    EXPECT_EQ(mem.GetRecordCount(), 4);  // 5 10 3 4
    EXPECT_EQ(mem.Find(-1, 3), 2);
}

TEST(MemoryIntegerFile, SavesUpdatesAndLoads) {
    TempDir dir;
    CMemIXFile empty;
    empty.SaveToFile(dir.Path("empty").c_str());  // written even when nothing is held
    ASSERT_TRUE(Exists(dir.Path("empty")));
    EXPECT_TRUE(ReadAll(dir.Path("empty")).empty());

    CMemIXFile f(0u, 2);
    for (int v : {1, 2, 3}) f.Add(v);
    f.Seek(2, CFile::begin);
    for (int twice = 0; twice < 2; ++twice) {
        f.UpdateToFile(dir.Path("u").c_str());
        EXPECT_EQ(ReadAll(dir.Path("u")), Hex("0100 0200 0300"));
        EXPECT_EQ(f.GetLength(), 6u);
        EXPECT_EQ(f.GetPosition(), 2u);
    }
    f.Add(4);  // goes on as before
    EXPECT_EQ(f.GetRecord(3), 4);

    f.LoadFromFile(dir.Path("missing").c_str(), 0);  // a missing path changes nothing
    EXPECT_EQ(f.GetRecordCount(), 4);
    f.SaveToFile(dir.Path("s").c_str());
    EXPECT_EQ(ReadAll(dir.Path("s")), Hex("0100 0200 0300 0400"));
    EXPECT_EQ(f.GetLength(), 0u);  // saving empties the object
    f.Add(8);                      // and it can start again at once
    f.LoadFromFile(dir.Path("u").c_str(), 8);
    EXPECT_EQ(f.GetRecordCount(), 3);
    EXPECT_EQ(f.GetGrowCount(), 2);

    // A file that cannot be written leaves the content where it was.
    EXPECT_THROW(f.SaveToFile(dir.Path("no/such/dir").c_str()), CFileException);
    EXPECT_EQ(f.GetRecordCount(), 3);
}

TEST(MemoryIntegerFile, NeverFreesOrMovesTheCallersBlock) {
    TempDir dir;
    const Bytes original = Hex("01000000 02000000");
    BYTE* block = CallersBlock(original);
    {
        CMemIXFile f(block, 8, 0, 4);  // no grow size: the block's bytes are the content
        EXPECT_EQ(f.GetRecordCount(), 2);
        f.Modify(0, 9);  // in place, in the caller's block
        EXPECT_EQ(Bytes(block, block + 8), Hex("09000000 02000000"));
        f.Add(3);  // growth moves the content to a block of the object's own
        EXPECT_EQ(Content(f, dir), Hex("09000000 02000000 03000000"));
        f.Modify(1, 7);
        EXPECT_EQ(Bytes(block, block + 8), Hex("09000000 02000000"));
    }
    {
        CMemIXFile f(block, 8, 4, 4);  // with a grow size the block is room, content empty
        EXPECT_EQ(f.GetRecordCount(), 0);
        f.Add(5);
        EXPECT_EQ(Bytes(block, block + 4), Hex("05000000"));
        // Neither taking another block, nor loading, nor saving releases the caller's.
        f.LoadFromFile(dir.Path("missing").c_str(), 0);
        WriteAll(dir.Path("a"), Hex("06000000"));
        f.LoadFromFile(dir.Path("a").c_str(), 0);
        EXPECT_EQ(f.GetRecord(0), 6);
    }
    for (int way = 0; way < 3; ++way) {
        CMemIXFile f(block, 8, 0, 4);
        if (way == 0) f.Attach(CallersBlock(Hex("0A000000")), 4, 0);
        if (way == 1) f.SaveToFile(dir.Path("s").c_str());
        if (way == 2) f.Close();
    }
    std::free(block);  // still the caller's: a second release would be caught here
}
