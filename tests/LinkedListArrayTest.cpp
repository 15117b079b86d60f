#include <gtest/gtest.h>

#include <sys/resource.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "Dorvik01.h"
#include "TestUtil.h"
#include "frame/Block.h"

namespace {
using Rows = std::vector<Set>;

// The library's temporary files in the test's own folder.
std::size_t TempFiles(const TempFolder& tmp) {
    return tmp.Files("egy").size() + tmp.Files("dvk").size();
}

std::vector<DWORD> Values(CLinkedListArray& a, int list) {
    CDWordArray values;
    values.Add(99);  // emptied first
    a.GetRecord(list, values);
    return std::vector<DWORD>(values.GetData(), values.GetData() + values.GetSize());
}

std::uintptr_t Slot(const CLinkedListArray& a, int list) {
    return reinterpret_cast<std::uintptr_t>(static_cast<const CPtrArray&>(a).GetAt(list));
}

// A bit record file whose reads fail after a number of them.
struct FailingFile : CBitsBinFile {
    int reads;
    FailingFile(const char* path, int n) : CBitsBinFile(path, CFile::modeReadWrite), reads(n) {}
    UINT Read(void* buffer, UINT count) override {
        if (reads-- == 0) throw CFileException(CFileException::hardIO, EIO, nullptr);
        return CBitsBinFile::Read(buffer, count);
    }
};

// No file may grow past `bytes` while this lives, as on a full disk.
struct FileSizeLimit {
    rlimit old{};
    void (*handler)(int) = std::signal(SIGXFSZ, SIG_IGN);  // an error, not a signal
    explicit FileSizeLimit(rlim_t bytes) {
        getrlimit(RLIMIT_FSIZE, &old);
        rlimit limit{bytes, old.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &old);
        std::signal(SIGXFSZ, handler);
    }
};
}  // namespace

TEST(LinkedListArray, ChainsValuesInTheNodeFile) {
    TempFolder tmp;
    CLinkedListArray a;
    ASSERT_EQ(tmp.Files("egy").size(), 1u);
    EXPECT_EQ(a.AddValue(0, 7), 0);
    EXPECT_EQ(Slot(a, 0), 4u);
    a.AddValue(1, 8);
    a.AddValue(0, 9);                                     // links past the node of list 1
    EXPECT_EQ(Values(a, 0), (std::vector<DWORD>{9, 7}));  // newest first; reading flushes
    EXPECT_EQ(ReadAll(tmp.Files("egy")[0]), Words({7, 0, 8, 0, 9, 4}));
    EXPECT_EQ(Slot(a, 0), 20u);
    a.AddValue(5, 1);
    EXPECT_EQ(a.GetSize(), 6);
    for (int list = 2; list < 5; ++list) EXPECT_EQ(Slot(a, list), 0u);
    a.AddValue(5, 1);
    a.AddValue(5, -3);  // kept as a number, no bit
    EXPECT_EQ(Values(a, 5), (std::vector<DWORD>{0xFFFFFFFDu, 1, 1}));
    CBitArray bits;
    a.GetRecord(5, bits);
    EXPECT_EQ(SetBits(bits), (Set{1}));
    bits.SetAt(3);
    a.GetRecord(6, bits);  // past the size: emptied
    EXPECT_EQ(bits.GetLength(), 0);
    EXPECT_EQ(Values(a, -1), std::vector<DWORD>{});
    a.AddValue(-1, 4);  // ignored
    a.AddValue(0, 10);  // collecting goes on after reads
    EXPECT_EQ(a.GetSize(), 6);
    EXPECT_EQ(Values(a, 0), (std::vector<DWORD>{10, 9, 7}));
}

TEST(LinkedListArray, SavesDirectMergedAndPacked) {
    TempFolder tmp;
    TempDir dir;
    std::string path = dir.Path("a");
    CLinkedListArray a;
    a.AddValue(0, 3);
    a.AddValue(2, 5);
    a.AddValue(2, 5);
    a.Save(path.c_str(), opOr, false, false, nullptr);
    EXPECT_EQ(RowsOf(path), (Rows{{3}, {}, {5}}));  // record 1 by the extension
    {
        CBitsBinFile f(path.c_str(), CFile::modeReadWrite);
        CBitArray extra;
        extra.SetAt(1);
        f.Modify(4, &extra);  // more records than lists
    }
    a.AddValue(1, 6);
    a.Save(path.c_str(), opXor, false, false, nullptr);  // the lists stay after a save
    EXPECT_EQ(RowsOf(path), (Rows{{}, {6}, {}, {}, {1}}));
    a.m_nFirst = a.m_nLast = 1;  // a merge keeps the records outside the range
    a.AddValue(1, 2);
    a.Save(path.c_str(), opOr, false, false, nullptr);
    EXPECT_EQ(RowsOf(path), (Rows{{}, {2, 6}, {}, {}, {1}}));
    a.m_nLast = -1;  // packed: each index of the range gets a map bit and a record
    a.Save(dir.Path("p").c_str(), opCopy, false, true, nullptr);
    EXPECT_EQ(RowsOf(dir.Path("p")), (Rows{{1, 2}, {2, 6}, {5}}));
}

TEST(LinkedListArray, SavesLargeNodeFilesListByList) {
    // 2.2 million values: the node file spans many pieces of the reads, and the lists
    // do not fit one batch. Each record must hold exactly its list's values.
    TempFolder tmp;
    TempDir dir;
    constexpr int kLists = 3000;
    CLinkedListArray a;
    std::vector<CBitArray> expected(kLists);
    std::mt19937 rng(5);
    for (int k = 0; k < 2200000; ++k) {
        int list = k % 11 == 0 ? 17 : static_cast<int>(rng() % kLists);  // 17 is long
        int value = static_cast<int>(rng() % 40000);
        a.AddValue(list, value);
        expected[static_cast<std::size_t>(list)].SetAt(value);
    }
    // Falling values, repeats, a negative value (ignored), full bytes and a gap longer
    // than one zero run can say.
    for (int value : {900000, 15, -3, 8, 9, 10, 11, 12, 13, 14, 15, 7, 700000})
        for (int list : {18, 19}) {
            a.AddValue(list, value);
            expected[static_cast<std::size_t>(list)].SetAt(value);
        }
    a.Save(dir.Path("big").c_str(), opOr, false, false, nullptr);
    CBitsBinFile f(dir.Path("big").c_str(), CFile::modeRead);
    ASSERT_EQ(f.GetRecordCount(), kLists);
    CBitArray record;
    for (int list = 0; list < kLists; ++list) {
        f.GetRecord(list, record, -1);
        ASSERT_TRUE(record == expected[static_cast<std::size_t>(list)]) << list;
        // Stored byte for byte as the compressed bitmap.
        CBitArray packed = expected[static_cast<std::size_t>(list)];
        packed.Compress();
        unsigned char* stored = nullptr;
        int length = 0;
        f.CBinFile::GetRecord(list, stored, length, true);
        dorvik::Block<> held = dorvik::Hold(stored);
        ASSERT_EQ(Bytes(stored, stored + length),
                  Bytes(packed.GetBuffer(), packed.GetBuffer() + packed.GetLength()))
            << list;
    }
    a.GetRecord(17, record);
    EXPECT_TRUE(record == expected[17]);
}

TEST(LinkedListArray, FreeFlagEndsTheNodeFileOnce) {
    TempFolder tmp;
    TempDir dir;
    auto* a = new CLinkedListArray;
    std::string nodes = tmp.Files("egy")[0];
    a->AddValue(0, 1);
    a->Save(dir.Path("a").c_str(), opOr, true, false, nullptr);
    EXPECT_EQ(TempFiles(tmp), 0u);
    EXPECT_EQ(Slot(*a, 0), 4u);  // the slots stay
    EXPECT_THROW(a->AddValue(0, 2), CFileException);
    EXPECT_THROW(Values(*a, 0), CFileException);
    EXPECT_THROW(a->Save(dir.Path("a").c_str(), opCopy, false, false, nullptr), CFileException);
    EXPECT_EQ(RowsOf(dir.Path("a")), (Rows{{1}}));  // the refused opCopy changed nothing
    WriteAll(nodes, B("another's"));                // the name may be reused: it stays
    delete a;
    EXPECT_TRUE(Exists(nodes));
}

TEST(LinkedListCollection, SavesOneImagePerArray) {
    TempFolder tmp;
    TempDir dir;
    {
        CLinkedListCollection c;
        c.GetAt(0)->AddValue(1, 4);
        c.GetAt(2)->AddValue(0, 3);
        EXPECT_EQ(tmp.Files("egy").size(), 2u);  // one node file per array; slot 1 is null
        c.Save(dir.Path("c").c_str(), opOr, false, false, nullptr);
        c.GetAt(0)->AddValue(1, 5);
        c.Save(dir.Path("c").c_str(), opOr, true, false, nullptr);  // merged image by image
        EXPECT_EQ(TempFiles(tmp), 0u);  // freed arrays took their node files along
        c.GetAt(1)->AddValue(0, 0);
    }
    EXPECT_EQ(TempFiles(tmp), 0u);
    CNDimBitsBinFile index(dir.Path("c").c_str(), CFile::shareDenyNone);
    EXPECT_EQ(index.GetRecordCount(), 3);
    int cell[] = {0, 1}, other[] = {2, 0};
    EXPECT_TRUE(index.GetAt(2, cell, 4));
    EXPECT_TRUE(index.GetAt(2, cell, 5));
    EXPECT_TRUE(index.GetAt(2, other, 3));
}

TEST(LinkedListArray, LeavesNoTemporaryBehindWhenFilesFail) {
    TempFolder tmp;
    TempDir dir;
    {
        CBitsBinFile f(dir.Path("a").c_str(), CFile::modeCreate | CFile::modeReadWrite);
        for (int i = 0; i < 50; ++i) AddRows(f, {{i, i * 9}});
    }
    Bytes before = ReadAll(dir.Path("a"));
    for (int reads : {0, 3, 20}) {  // a read of the file fails midway through a merge
        CLinkedListArray a;
        for (int i = 0; i < 40; ++i) a.AddValue(i, i);
        FailingFile f(dir.Path("a").c_str(), reads);
        EXPECT_THROW(a.Save(&f, opOr, true, false, nullptr), CFileException) << reads;
        EXPECT_EQ(tmp.Files("dvk").size(), 0u);
        EXPECT_EQ(Values(a, 7), std::vector<DWORD>{7});  // not spent
    }
    CLinkedListCollection c;
    for (int i = 0; i < 200; ++i) c.GetAt(0)->AddValue(i, i);
    c.Save(dir.Path("c").c_str(), opOr, false, false, nullptr);
    Bytes images = ReadAll(dir.Path("c"));
    {
        FileSizeLimit full(100);  // the temporaries cannot grow
        CLinkedListArray a;
        EXPECT_THROW(
            {
                for (int i = 0; i < 100000; ++i) a.AddValue(i % 7, i);
            },
            CFileException);
        CMyDWordArrayArray numbers;
        numbers.GetAt(40)->Add(5);
        EXPECT_THROW(numbers.Save(dir.Path("a").c_str(), opOr, false, false, nullptr),
                     CFileException);
        EXPECT_THROW(c.Save(dir.Path("c").c_str(), opOr, false, false, nullptr), CFileException);
    }
    c.RemoveAll();
    EXPECT_EQ(TempFiles(tmp), 0u);
    EXPECT_EQ(ReadAll(dir.Path("a")), before);
    EXPECT_EQ(ReadAll(dir.Path("c")), images);
}
