#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "Dorvik01.h"
#include "TestUtil.h"

namespace {
std::vector<std::string> Records(CBinFile& f) { return RecordsOf(f); }

Bytes BlockBytes(BYTE* block, DWORD length) { return Bytes(block, block + length); }
}  // namespace

TEST(MemoryRecordFile, StartsAsTheEmptyImageAndIsNeverOpen) {
    CMemBinFile m;
    EXPECT_EQ(m.GetLength(), 4u);
    EXPECT_EQ(m.GetRecordCount(), 0);
    EXPECT_FALSE(m.IsOpen());
    EXPECT_EQ(std::string(m.GetFilePath()), "");
    m.Attach(nullptr, 0, 0);  // a null block makes the empty image again
    EXPECT_EQ(m.GetLength(), 4u);
}

TEST(MemoryRecordFile, HoldsTheSameBytesAsTheFile) {
    TempDir dir;
    CBinFile disk(dir.Path("a").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    CMemBinFile mem;
    for (CBinFile* f : {static_cast<CBinFile*>(&disk), static_cast<CBinFile*>(&mem)}) {
        f->Add(P("AB"), 2);
        f->Add(nullptr, 0);
        f->Add(P("CDE"), 3);
        f->Insert(0, P("x"), 1);
        f->Delete(1);
        f->Modify(0, P("ABC"), 3);
    }
    DWORD length = mem.GetLength();
    BYTE* block = mem.Detach();
    EXPECT_EQ(BlockBytes(block, length), ReadAll(dir.Path("a")));
    std::free(block);
    EXPECT_EQ(mem.GetRecordCount(), 0);  // a new empty image
    EXPECT_EQ(mem.GetLength(), 4u);
}

TEST(MemoryRecordFile, DetachCompletesANotSafeImage) {
    CMemBinFile m;
    m.SetSafeMode(false);
    m.Add(P("one"), 3);
    m.Add(P("two"), 3);
    m.Insert(1, nullptr, 2);  // a reservation at the end of the data
    DWORD length = m.GetLength();
    BYTE* block = m.Detach();
    EXPECT_TRUE(m.IsSafeMode());
    EXPECT_EQ(BlockBytes(block, length), Cat({B("onetwo"), Bytes(2, 0), Words({0, 3, 6, 8})}));
    CMemBinFile other;
    other.Attach(block, length, 0);  // the other twin takes the block over
    EXPECT_EQ(Records(other), (std::vector<std::string>{"one", "two", std::string(2, '\0')}));
}

TEST(MemoryRecordFile, SavesToAndLoadsFromDisk) {
    TempDir dir;
    CMemBinFile m(1 << 16);
    m.SetSafeMode(false);
    m.Add(P("alpha"), 5);
    m.Add(P("omega"), 5);
    m.SaveToFile(dir.Path("a").c_str());
    EXPECT_EQ(m.CMemFile::GetLength(), 0u);  // saving empties the twin
    CBinFile disk(dir.Path("a").c_str(), CFile::modeRead);
    EXPECT_EQ(Records(disk), (std::vector<std::string>{"alpha", "omega"}));
    CMemBinFile loaded(dir.Path("a").c_str(), 0);
    EXPECT_EQ(Records(loaded), (std::vector<std::string>{"alpha", "omega"}));
    loaded.LoadFromFile(dir.Path("missing").c_str(), 0);
    EXPECT_EQ(loaded.GetRecordCount(), 2);
    loaded.Close();
    EXPECT_EQ(loaded.CMemFile::GetLength(), 0u);
    EXPECT_EQ(loaded.GetRecordCount(), 0);  // closed: no room to grow, no table
    CMemBinFile missing(dir.Path("missing").c_str(), 0);
    EXPECT_EQ(missing.GetRecordCount(), 0);
    EXPECT_THROW(missing.Add(P("x"), 1), CMemoryException);
}

TEST(MemoryRecordFile, RecordsMoveBetweenFilesAsImages) {
    CMemBinFile inner;
    inner.Add(P("X"), 1);
    inner.Add(P("YZ"), 2);
    CMemBinFile outer;
    outer.Modify(0, &inner);  // the memory file gives its image up
    EXPECT_EQ(inner.CMemFile::GetLength(), 0u);
    EXPECT_EQ(outer.GetRecordLength(0), 15);
    CMemBinFile back;
    back.Add(P("old"), 3);
    outer.GetRecord(0, back);  // takes the block and loads its table
    EXPECT_EQ(Records(back), (std::vector<std::string>{"X", "YZ"}));
    CMemBinFile junk(static_cast<BYTE*>(std::calloc(1, 6)), 6, 0);  // last word 0: fine
    EXPECT_EQ(junk.GetRecordCount(), 0);
    auto* bad = static_cast<BYTE*>(std::malloc(8));
    std::memcpy(bad, "abcd\x07\x00\x00\x00", 8);
    CMemBinFile invalid(bad, 8, 0);  // no record file: no table, 0 records
    EXPECT_EQ(invalid.GetRecordCount(), 0);
}

TEST(MemoryBitRecordFile, StoresCompressedRecordsInMemory) {
    CMemBitsBinFile m;
    m.SetAt(0, 8);
    m.SetAt(2, 800000);
    EXPECT_TRUE(m.GetAt(2, 800000));
    unsigned char* raw = nullptr;
    int length = 0;
    m.GetRecord(0, raw, length, true);
    EXPECT_EQ(Bytes(raw, raw + length), Hex("01 000100 01"));
    DropBlock(raw);
    DWORD size = m.GetLength();
    BYTE* block = m.Detach();
    EXPECT_EQ(m.GetRecordCount(), 0);  // a new empty image
    CMemBitsBinFile copy(block, size, 0);
    EXPECT_EQ(copy.GetCount(2), 1);
    CBitsBinFile::OrFiles(&copy, &m);  // record by record into the other twin
    EXPECT_TRUE(m.GetAt(0, 8));
    EXPECT_TRUE(m.GetAt(2, 800000));
    EXPECT_EQ(m.GetRecordCount(), 3);
}
