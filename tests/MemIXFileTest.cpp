#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "Dorvik01.h"
#include "TestUtil.h"

namespace {
// The bytes the object holds, read through UpdateToFile, which leaves it as it is.
Bytes Content(CMemIXFile& file, const TempDir& dir) {
    file.UpdateToFile(dir.Path("content").c_str());
    return ReadAll(dir.Path("content"));
}

BYTE* MallocCopy(const Bytes& bytes) {
    auto* block = static_cast<BYTE*>(std::malloc(bytes.size()));
    std::memcpy(block, bytes.data(), bytes.size());
    return block;
}
}  // namespace

TEST(MemoryIntegerFile, HoldsTheSameBytesAsTheFileWithTheGrowCountOfItsGrowSize) {
    TempDir dir;
    EXPECT_EQ(CMemIXFile().GetGrowCount(), 0);         // the integer file's own
    EXPECT_EQ(CMemIXFile(0u, 2).GetGrowCount(), 256);  // 1 KiB steps, a quarter as records
    EXPECT_THROW(CMemIXFile(0u, 5), CFileException);
    CIXFile disk(dir.Path("disk").c_str(), CFile::modeCreate | CFile::modeReadWrite, 3);
    disk.SetGrowCount(2);
    CMemIXFile mem(8u, 3);
    EXPECT_EQ(mem.GetGrowCount(), 2);
    for (CIXFile* f : {static_cast<CIXFile*>(&disk), static_cast<CIXFile*>(&mem)}) {
        for (int v : {5, -1, 70000, 3}) f->Add(v);
        f->Insert(0, 9);
        f->Modify(8, 4);  // past the end: init bytes and two spare records
        f->IncRecord(1);
        f->Delete(2, 3);
    }
    EXPECT_EQ(Content(mem, dir), ReadAll(dir.Path("disk")));
    EXPECT_EQ(mem.Find(-1, 4), 6);
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
    f.LoadFromFile(dir.Path("missing").c_str(), 0);  // changes nothing
    EXPECT_THROW(f.SaveToFile(dir.Path("no/such/dir").c_str()), CFileException);
    EXPECT_EQ(f.GetRecordCount(), 3);  // a failed save keeps the content
    f.SaveToFile(dir.Path("s").c_str());
    EXPECT_EQ(ReadAll(dir.Path("s")), Hex("0100 0200 0300"));
    EXPECT_EQ(f.GetLength(), 0u);
    f.Add(8);  // goes on at once
    f.LoadFromFile(dir.Path("u").c_str(), 8);
    EXPECT_EQ(f.GetRecordCount(), 3);
    EXPECT_EQ(f.GetGrowCount(), 2);
    CMemIXFile loaded(dir.Path("u").c_str(), 64, 2);
    EXPECT_EQ(loaded.GetRecord(2), 3);
    EXPECT_EQ(loaded.GetGrowCount(), 16);
}

TEST(MemoryIntegerFile, NeverFreesOrMovesTheCallersBlock) {
    TempDir dir;
    BYTE* block = MallocCopy(Hex("01000000 02000000"));
    {
        CMemIXFile f(block, 8, 0, 4);  // no grow size: the block's bytes are the content
        f.Modify(0, 9);                // in place, in the caller's block
        EXPECT_EQ(Bytes(block, block + 8), Hex("09000000 02000000"));
        f.Add(3);  // growth moves the content to a block of the object's own
        f.Modify(1, 7);
        EXPECT_EQ(Content(f, dir), Hex("09000000 07000000 03000000"));
        EXPECT_EQ(Bytes(block, block + 8), Hex("09000000 02000000"));
    }
    {
        CMemIXFile f(block, 8, 4, 4);  // with a grow size the block is room, content empty
        EXPECT_EQ(f.GetRecordCount(), 0);
        f.Add(5);
        EXPECT_EQ(Bytes(block, block + 4), Hex("05000000"));
        WriteAll(dir.Path("a"), Hex("06000000"));
        f.LoadFromFile(dir.Path("a").c_str(), 0);
        EXPECT_EQ(f.GetRecord(0), 6);
    }
    for (int way = 0; way < 3; ++way) {
        CMemIXFile f(block, 8, 0, 4);
        if (way == 0) f.Attach(MallocCopy(Hex("0A000000")), 4, 0);
        if (way == 1) f.SaveToFile(dir.Path("s").c_str());
        if (way == 2) f.Close();
    }
    std::free(block);  // still the caller's: a release by the object would show here
}
