#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "Dorvik01.h"
#include "TestUtil.h"

namespace {
using Strings = std::vector<std::string>;

Strings View(CTextBinFile& f) {
    Strings out;
    for (int s = 0; s < f.GetRecordCount(); ++s) out.emplace_back(f[s]);
    return out;
}
}  // namespace

TEST(MemoryTextFile, HoldsTheSameBytesAsTheFileAndSavesAsOne) {
    TempDir dir;
    CTextBinFile disk(dir.Path("disk").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    CMemTextBinFile mem;
    EXPECT_EQ(mem.GetLength(), 4u);  // the empty record file at once
    EXPECT_FALSE(mem.IsOpen());
    for (CTextBinFile* f : {static_cast<CTextBinFile*>(&disk), static_cast<CTextBinFile*>(&mem)}) {
        int record = -1;
        for (const char* w : {"lam", "kaf", "ba", "kaf", "mim"}) f->Add(w, -1, record, true, false);
        f->Delete(0, 0);
    }
    EXPECT_EQ(View(mem), (Strings{"kaf", "lam", "mim"}));
    mem.SaveToFile(dir.Path("saved").c_str());
    EXPECT_EQ(ReadAll(dir.Path("saved")), ReadAll(dir.Path("disk")));
    EXPECT_EQ(mem.CMemFile::GetLength(), 0u);  // saving empties the twin
    CTextBinFile reopened(dir.Path("saved").c_str(), CFile::modeRead);
    EXPECT_EQ(View(reopened), (Strings{"kaf", "lam", "mim"}));
    EXPECT_EQ(reopened.Find(-1, "lam", nullptr, false, false, true, false, true, true, nullptr), 1);

    CMemTextBinFile loaded(dir.Path("saved").c_str(), 0);
    EXPECT_EQ(View(loaded), (Strings{"kaf", "lam", "mim"}));
}

TEST(MemoryTextFile, WordsOfTheSortTreeModeGoWithTheBlock) {
    TempDir dir;
    CIXFile index(dir.Path("t.ix").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    CMemTextBinFile mem;
    mem.Add("b");
    mem.SetIndexFile(&index);
    mem.InitSortTree(false, true, nullptr, nullptr);
    mem.Add("c");
    mem.Add("a");
    DWORD length = mem.GetLength();
    BYTE* block = mem.Detach();  // leaves the mode as FreeSortTree does: nothing is lost
    EXPECT_EQ(Bytes(block, block + length), RecordFileImage({B("b"), B("c"), B("a")}));
    EXPECT_EQ(ReadAll(dir.Path("t.ix")), Words({1, 0, 2}));  // in falling order
    std::free(block);

    mem.InitSortTree(true, false, nullptr, nullptr);
    mem.Add("z");
    mem.SaveToFile(dir.Path("saved").c_str());
    CTextBinFile saved(dir.Path("saved").c_str(), CFile::modeRead);
    EXPECT_EQ(RecordsOf(saved), (Strings{"z"}));

    // Close ends the mode too: its words cannot come back over a later image.
    mem.SetIndexFile(nullptr);
    mem.InitSortTree(true, true, nullptr, nullptr);
    mem.Add("old");
    mem.Close();
    mem.Attach(nullptr, 0, 0);
    mem.Add("new");
    mem.FreeSortTree(true, nullptr);
    EXPECT_EQ(RecordsOf(mem), (Strings{"new"}));
}
