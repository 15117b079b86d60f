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

namespace {
// Points the library's temporary files at a directory of the test's own, so that
// they can be counted.
class TempFolder {
public:
    TempFolder() {
        if (const char* old = std::getenv("TMPDIR")) m_old = old, m_had = true;
        setenv("TMPDIR", m_dir.Root().c_str(), 1);
    }
    ~TempFolder() {
        if (m_had)
            setenv("TMPDIR", m_old.c_str(), 1);
        else
            unsetenv("TMPDIR");
    }
    // The files whose name starts with `prefix`.
    std::vector<std::string> Files(const std::string& prefix) const {
        std::vector<std::string> out;
        for (const auto& entry : std::filesystem::directory_iterator(m_dir.Root()))
            if (entry.path().filename().string().rfind(prefix, 0) == 0)
                out.push_back(entry.path().string());
        return out;
    }
    int Count() const { return static_cast<int>(Files("egy").size() + Files("dvk").size()); }

private:
    TempDir m_dir;
    std::string m_old;
    bool m_had = false;
};

std::vector<DWORD> Values(CLinkedListArray& a, int list) {
    CDWordArray values;
    values.Add(99);  // emptied first
    a.GetRecord(list, values);
    return std::vector<DWORD>(values.GetData(), values.GetData() + values.GetSize());
}

std::set<int> Bits(CLinkedListArray& a, int list) {
    CBitArray bits;
    bits.SetAt(40);  // freed first
    a.GetRecord(list, bits);
    return SetOf(bits);
}

std::uintptr_t Slot(const CLinkedListArray& a, int list) {
    return reinterpret_cast<std::uintptr_t>(static_cast<const CPtrArray&>(a).GetAt(list));
}

// A bit record file whose reads fail after a number of them.
class FailingFile : public CBitsBinFile {
public:
    FailingFile(const char* path, int reads)
        : CBitsBinFile(path, CFile::modeReadWrite), m_reads(reads) {}
    UINT Read(void* buffer, UINT count) override {
        if (m_reads-- == 0) throw CFileException(CFileException::hardIO, EIO, nullptr);
        return CBitsBinFile::Read(buffer, count);
    }

private:
    int m_reads;
};

// Files may not grow past `bytes` while it lives, as on a full disk.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) {
        m_handler = std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &m_old);
        rlimit limit = m_old;
        limit.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &m_old);
        std::signal(SIGXFSZ, m_handler);
    }

private:
    rlimit m_old{};
    void (*m_handler)(int);
};
}  // namespace

TEST(LinkedListArray, ChainsValuesInTheNodeFile) {
    TempFolder tmp;
    CLinkedListArray a;
    ASSERT_EQ(tmp.Files("egy").size(), 1u);
    std::string nodes = tmp.Files("egy")[0];
    EXPECT_EQ(a.AddValue(0, 7), 0);
    EXPECT_EQ(Slot(a, 0), 4u);
    a.AddValue(1, 8);
    a.AddValue(0, 9);
    EXPECT_EQ(Slot(a, 0), 20u);
    EXPECT_EQ(Slot(a, 1), 12u);
    EXPECT_EQ(Values(a, 0), (std::vector<DWORD>{9, 7}));   // newest first
    EXPECT_EQ(ReadAll(nodes), Words({7, 0, 8, 0, 9, 4}));  // read flushes the writes
    a.AddValue(5, 1);
    EXPECT_EQ(a.GetSize(), 6);
    for (int list = 2; list < 5; ++list) EXPECT_EQ(Slot(a, list), 0u);
    a.AddValue(5, 1);
    a.AddValue(5, -3);  // kept as a number, no bit
    EXPECT_EQ(Values(a, 5), (std::vector<DWORD>{0xFFFFFFFDu, 1, 1}));
    EXPECT_EQ(Bits(a, 5), (std::set<int>{1}));
    EXPECT_EQ(Values(a, 6), std::vector<DWORD>{});  // past the size
    EXPECT_EQ(Bits(a, -1), std::set<int>{});
    EXPECT_EQ(a.AddValue(-1, 4), 0);  // ignored
    EXPECT_EQ(a.GetSize(), 6);
    a.AddValue(0, 10);  // collecting goes on after reads
    EXPECT_EQ(Values(a, 0), (std::vector<DWORD>{10, 9, 7}));
}

TEST(LinkedListArray, SavesDirectMergedAndPacked) {
    TempFolder tmp;
    TempDir dir;
    CLinkedListArray a;
    a.AddValue(0, 3);
    a.AddValue(2, 5);
    a.AddValue(2, 5);
    a.Save(dir.Path("a").c_str(), opOr, false, false, nullptr);
    {
        CBitsBinFile f(dir.Path("a").c_str(), CFile::modeRead);
        EXPECT_EQ(f.GetRecordCount(), 3);
        EXPECT_EQ(Row(f, 0), (std::set<int>{3}));
        EXPECT_EQ(f.GetRecordLength(1), 0);
        EXPECT_EQ(Row(f, 2), (std::set<int>{5}));
    }
    {
        CBitsBinFile f(dir.Path("a").c_str(), CFile::modeReadWrite);
        CBitArray extra;
        extra.SetAt(1);
        f.Modify(4, &extra);  // more records than lists
    }
    a.AddValue(1, 6);
    a.Save(dir.Path("a").c_str(), opXor, false, false, nullptr);  // lists stay after a save
    {
        CBitsBinFile f(dir.Path("a").c_str(), CFile::modeRead);
        EXPECT_EQ(f.GetRecordCount(), 5);
        EXPECT_EQ(Row(f, 0), std::set<int>{});  // 3 xor 3
        EXPECT_EQ(Row(f, 1), (std::set<int>{6}));
        EXPECT_EQ(Row(f, 4), (std::set<int>{1}));  // past the lists: unchanged
    }
    // A merge over a narrower range keeps the records outside it.
    a.m_nFirst = 1;
    a.m_nLast = 1;
    a.AddValue(1, 2);
    a.Save(dir.Path("a").c_str(), opOr, false, false, nullptr);
    {
        CBitsBinFile f(dir.Path("a").c_str(), CFile::modeRead);
        EXPECT_EQ(f.GetRecordCount(), 5);
        EXPECT_EQ(Row(f, 0), std::set<int>{});  // list 0 holds 3, but lies outside
        EXPECT_EQ(Row(f, 1), (std::set<int>{2, 6}));
        EXPECT_EQ(Row(f, 4), (std::set<int>{1}));
    }
    // Packed: every index of the range gets a map bit and a record, empty or not.
    a.m_nLast = -1;
    a.Save(dir.Path("p").c_str(), opCopy, false, true, nullptr);
    CBitsBinFile p(dir.Path("p").c_str(), CFile::modeRead);
    EXPECT_EQ(p.GetRecordCount(), 3);
    EXPECT_EQ(Row(p, 0), (std::set<int>{1, 2}));
    EXPECT_EQ(Row(p, 1), (std::set<int>{2, 6}));
    EXPECT_EQ(Row(p, 2), (std::set<int>{5}));
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
    a.Save(dir.Path("big").c_str(), opOr, false, false, nullptr);
    CBitsBinFile f(dir.Path("big").c_str(), CFile::modeRead);
    ASSERT_EQ(f.GetRecordCount(), kLists);
    CBitArray record;
    for (int list = 0; list < kLists; ++list) {
        f.GetRecord(list, record, -1);
        ASSERT_TRUE(record == expected[static_cast<std::size_t>(list)]) << list;
    }
    CBitArray walked;
    a.GetRecord(17, walked);
    EXPECT_TRUE(walked == expected[17]);
}

TEST(LinkedListArray, FreeFlagEndsTheNodeFileOnce) {
    TempFolder tmp;
    TempDir dir;
    auto* a = new CLinkedListArray;
    std::string nodes = tmp.Files("egy")[0];
    a->AddValue(0, 1);
    a->Save(dir.Path("a").c_str(), opOr, true, false, nullptr);
    EXPECT_EQ(tmp.Count(), 0);
    EXPECT_EQ(Slot(*a, 0), 4u);  // the slots stay
    EXPECT_THROW(a->AddValue(0, 2), CFileException);
    EXPECT_THROW(Values(*a, 0), CFileException);
    EXPECT_THROW(a->Save(dir.Path("a").c_str(), opCopy, false, false, nullptr), CFileException);
    EXPECT_EQ(a->GetSize(), 1);
    {
        CBitsBinFile f(dir.Path("a").c_str(), CFile::modeRead);
        EXPECT_EQ(Row(f, 0), (std::set<int>{1}));  // the refused opCopy changed nothing
    }
    WriteAll(nodes, B("another's"));  // the name may be reused: destruction leaves it
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
        EXPECT_EQ(tmp.Count(), 0);  // freed arrays took their node files along
        EXPECT_EQ(static_cast<CPtrArray&>(c).GetAt(2), nullptr);
        c.GetAt(1)->AddValue(0, 0);
    }
    EXPECT_EQ(tmp.Count(), 0);
    CNDimBitsBinFile index(dir.Path("c").c_str(), CFile::shareDenyNone);
    EXPECT_EQ(index.GetRecordCount(), 3);
    int cell[] = {0, 1};
    EXPECT_TRUE(index.GetAt(2, cell, 4));
    EXPECT_TRUE(index.GetAt(2, cell, 5));
    int other[] = {2, 0};
    EXPECT_TRUE(index.GetAt(2, other, 3));
}

TEST(LinkedListArray, LeavesNoTemporaryBehindWhenFilesFail) {
    TempFolder tmp;
    TempDir dir;
    {
        CBitsBinFile f(dir.Path("a").c_str(), CFile::modeCreate | CFile::modeReadWrite);
        CBitArray row;
        for (int i = 0; i < 50; ++i) {
            row.SetAt(i * 9);
            f.Add(&row);
        }
    }
    Bytes before = ReadAll(dir.Path("a"));
    // A read of the file fails midway through a merge.
    for (int reads : {0, 3, 20}) {
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
    EXPECT_EQ(tmp.Count(), 0);
    EXPECT_EQ(ReadAll(dir.Path("a")), before);
    EXPECT_EQ(ReadAll(dir.Path("c")), images);
}
