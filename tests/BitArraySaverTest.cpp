#include <gtest/gtest.h>

#include <dirent.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "Dorvik01.h"
#include "TestUtil.h"

namespace {
// Points $TMPDIR at a directory of the test's own while it lives, so that the files a
// spill stack makes for itself can be counted there.
class OwnTempFolder {
public:
    OwnTempFolder() {
        const char* old = std::getenv("TMPDIR");
        m_hadOld = old != nullptr;
        if (old) m_old = old;
        setenv("TMPDIR", m_dir.Root().c_str(), 1);
    }
    ~OwnTempFolder() {
        if (m_hadOld) {
            setenv("TMPDIR", m_old.c_str(), 1);
        } else {
            unsetenv("TMPDIR");
        }
    }
    int SpillFiles() const {
        int n = 0;
        DIR* dir = opendir(m_dir.Root().c_str());
        while (dirent* entry = readdir(dir)) n += std::string(entry->d_name).rfind("egy", 0) == 0;
        closedir(dir);
        return n;
    }

private:
    TempDir m_dir;
    bool m_hadOld = false;
    std::string m_old;
};

struct Popped {
    bool ok;
    Bytes bytes;
};

Popped PopBytes(CBitArraySaver& saver, int number, bool expand) {
    unsigned char* buffer = reinterpret_cast<unsigned char*>(1);
    int length = -1;
    bool ok = saver.Pop(number, buffer, length, expand);
    Popped out{ok, buffer ? Bytes(buffer, buffer + length) : Bytes()};
    if (!buffer) {
        EXPECT_EQ(length, 0);
    }
    DropBlock(buffer);
    return out;
}

// The array that thread `t` pushes as its `i`-th: bit t, bits 8.. spell i, and a run
// whose length depends on i, so that a mixed-up record cannot pass for another.
CBitArray ThreadArray(int t, int i) {
    CBitArray bits;
    bits.SetAt(t);
    for (int k = 0; k < 14; ++k)
        if (i >> k & 1) bits.SetAt(8 + k);
    bits.SetRange(64, 64 + i % 300);
    return bits;
}
}  // namespace

TEST(SpillStack, NumbersRecordsFromOneAndKeepsTheTopInRecordZero) {
    TempDir dir;
    std::string path = dir.Path("spill");
    CBitArraySaver saver;
    EXPECT_TRUE(saver.SetTempFile(path.c_str()));
    EXPECT_EQ(ReadAll(path), Words({0, 0, 4}));  // record 0 holds top 0
    EXPECT_EQ(saver.Push(P("ab"), 2, false), 1);
    EXPECT_EQ(ReadAll(path), Cat({Words({1}), B("ab"), Words({0, 4, 6})}));
    EXPECT_EQ(saver.Push(nullptr, 5, false), 2);  // null data: an empty record
    EXPECT_EQ(saver.Push(P("cd"), -3, true), 3);
    EXPECT_EQ(ReadAll(path), Cat({Words({3}), B("ab"), Words({0, 4, 6, 6, 6})}));

    EXPECT_EQ(PopBytes(saver, 0, false).bytes, Words({3}));
    for (int twice = 0; twice < 2; ++twice) EXPECT_EQ(PopBytes(saver, 1, false).bytes, B("ab"));
    for (int number : {2, 3, 4, 10000}) {  // empty, above the top: nothing, but true
        Popped p = PopBytes(saver, number, false);
        EXPECT_TRUE(p.ok) << number;
        EXPECT_TRUE(p.bytes.empty()) << number;
    }
    for (int number : {10001, -1, INT32_MIN}) EXPECT_FALSE(PopBytes(saver, number, true).ok);
}

TEST(SpillStack, TypedOverloadsGiveBackWhatWasPushed) {
    TempDir dir;
    CBitArraySaver saver;
    saver.SetTempFile(dir.Path("spill").c_str());

    CBitArray plain;
    plain.SetRange(3, 40000);
    plain.SetAt(90000);
    int n = saver.Push(plain);
    Bytes stored = PopBytes(saver, n, false).bytes;  // kept compressed
    EXPECT_LT(stored.size(), 100u);
    CBitArray back(true);
    EXPECT_TRUE(saver.Pop(n, back));
    EXPECT_TRUE(back.IsCompressed());  // the flag is the caller's; the bytes are the pushed ones
    back.SetCompressed(false);
    EXPECT_TRUE(back == plain);

    // An array flagged compressed has its form compressed once more and comes back as
    // that same form.
    CBitArray packed(plain);
    packed.Compress();
    CBitArray unpacked(true);
    EXPECT_TRUE(saver.Pop(saver.Push(packed), unpacked));
    EXPECT_EQ(Bytes(unpacked.GetBuffer(), unpacked.GetBuffer() + unpacked.GetLength()), stored);

    CBitArray zeros;
    zeros.SetLength(64);  // all-zero bytes: an empty record, an empty array
    n = saver.Push(zeros);
    EXPECT_TRUE(PopBytes(saver, n, false).bytes.empty());
    EXPECT_TRUE(saver.Pop(n, back));
    EXPECT_EQ(back.GetLength(), 0);

    CDWordArray numbers;
    for (DWORD v : {7u, 0xFFFFFFFFu, 0x01020304u}) numbers.Add(v);
    n = saver.Push(numbers);
    EXPECT_EQ(PopBytes(saver, n, false).bytes, Words({7, 0xFFFFFFFF, 0x01020304}));
    CDWordArray out;
    out.Add(99);
    EXPECT_TRUE(saver.Pop(n, out));
    ASSERT_EQ(out.GetSize(), 3);
    EXPECT_EQ(out[1], 0xFFFFFFFFu);
    EXPECT_EQ(out[2], 0x01020304u);
    int odd = saver.Push(P("12345"), 5, false);  // a tail of 1 to 3 bytes is dropped
    EXPECT_TRUE(saver.Pop(odd, out));
    EXPECT_EQ(out.GetSize(), 1);

    // Refused numbers still empty the array.
    EXPECT_FALSE(saver.Pop(20000, out));
    EXPECT_EQ(out.GetSize(), 0);
    back = plain;
    EXPECT_FALSE(saver.Pop(-2, back));
    EXPECT_EQ(back.GetLength(), 0);
}

TEST(SpillStack, PoppingUnderTheOtherFlagGivesTheOtherFormsBytes) {
    TempDir dir;
    CBitArraySaver saver;
    saver.SetTempFile(dir.Path("spill").c_str());
    // Raw bytes that happen to read as a compressed form: marker, 'a', a run of five 0x00.
    Bytes raw = Hex("01 61 00 0500");
    int n = saver.Push(raw.data(), static_cast<int>(raw.size()), false);
    EXPECT_EQ(PopBytes(saver, n, true).bytes, Cat({B("a"), Bytes(5, 0)}));
    // A run cut short by the end of the record is not read past it.
    Bytes cut = Hex("01 62 FF 05");
    n = saver.Push(cut.data(), static_cast<int>(cut.size()), false);
    EXPECT_EQ(PopBytes(saver, n, true).bytes, B("b"));
    // Pushed compressed, popped as stored: exactly the compressed form.
    Bytes plain = Cat({Bytes(300, 0), B("xy"), Bytes(10, 0xFF)});
    n = saver.Push(plain.data(), static_cast<int>(plain.size()), true);
    EXPECT_EQ(PopBytes(saver, n, false).bytes, Hex("01 00 2C01 78 79 FF 0A00"));
}

TEST(SpillStack, TakesOverASavedFileOnlyWithAPlausibleTop) {
    TempDir dir;
    std::string path = dir.Path("spill");
    {
        CBitArraySaver first;
        first.SetTempFile(path.c_str());
        for (int i = 1; i <= 42; ++i) first.Push(reinterpret_cast<unsigned char*>(&i), 4, false);
    }
    ASSERT_TRUE(Exists(path));  // the caller's file outlives the object
    {
        CBitArraySaver again;
        again.SetTempFile(path.c_str());
        EXPECT_EQ(PopBytes(again, 5, false).bytes, Words({5}));
        EXPECT_EQ(again.Push(P("z"), 1, false), 43);
    }

    struct Case {
        const char* what;
        Bytes file;
        int nextPush;
    };
    const Case cases[] = {
        {"top 9999", RecordFileImage({Words({9999}), B("old")}), 10000},
        {"top 10000", RecordFileImage({Words({10000}), B("old")}), 1},
        {"top 10001", RecordFileImage({Words({10001}), B("old")}), 1},
        {"negative top", RecordFileImage({Words({0xFFFFFFFB}), B("old")}), 1},
        {"short record 0", RecordFileImage({B("\x05"), B("old")}), 1},
        {"no records", RecordFileImage({}), 1},
    };
    for (const Case& c : cases) {
        WriteAll(path, c.file);
        CBitArraySaver saver;
        saver.SetTempFile(path.c_str());
        EXPECT_EQ(saver.Push(P("new"), 3, false), c.nextPush) << c.what;
        CBinFile check(path.c_str(), CFile::modeRead);
        EXPECT_EQ(RecordsOf(check)[0], std::string(reinterpret_cast<const char*>(&c.nextPush), 4))
            << c.what;
    }
    // A file with a reset top keeps its old records until they are pushed over.
    WriteAll(path, RecordFileImage({Words({10000}), B("one"), B("two")}));
    CBitArraySaver reset;
    reset.SetTempFile(path.c_str());
    reset.Push(P("uno"), 3, false);
    EXPECT_EQ(PopBytes(reset, 1, false).bytes, B("uno"));
    EXPECT_EQ(PopBytes(reset, 2, false).bytes, B("two"));

    for (const Bytes& junk : {B("no record file here"), B("ab"), Bytes()}) {
        WriteAll(path, junk);
        CBitArraySaver saver;
        saver.SetTempFile(path.c_str());
        EXPECT_EQ(ReadAll(path), Words({0, 0, 4}));  // replaced by a new record file
        EXPECT_EQ(saver.Push(P("q"), 1, false), 1);
    }

    CBitArraySaver saver;
    EXPECT_THROW(saver.SetTempFile(dir.Root().c_str()), CFileException);  // a directory
    EXPECT_THROW(saver.SetTempFile(dir.Path("no/such/dir").c_str()), CFileException);
}

TEST(SpillStack, LeavesNoTemporaryBehind) {
    OwnTempFolder temp;
    TempDir dir;
    std::string mine = dir.Path("mine");
    {
        CBitArraySaver saver;
        EXPECT_FALSE(PopBytes(saver, 10001, false).ok);  // refused before any file is made
        EXPECT_EQ(temp.SpillFiles(), 0);
        Popped p = PopBytes(saver, 1, true);  // the first use makes the temporary
        EXPECT_TRUE(p.ok);
        EXPECT_TRUE(p.bytes.empty());
        EXPECT_EQ(temp.SpillFiles(), 1);
        EXPECT_EQ(saver.Push(P("abc"), 3, true), 1);
        // Moving to a file of the caller's drops the temporary at once, and the caller's
        // file survives the object.
        saver.SetTempFile(mine.c_str());
        EXPECT_EQ(temp.SpillFiles(), 0);
        EXPECT_EQ(saver.Push(P("abc"), 3, true), 1);
    }
    EXPECT_EQ(temp.SpillFiles(), 0);
    EXPECT_TRUE(Exists(mine));

    {
        CBitArraySaver saver;
        saver.Push(P("abc"), 3, false);
        EXPECT_EQ(temp.SpillFiles(), 1);
    }
    EXPECT_EQ(temp.SpillFiles(), 0);

    // Failures of the layers below: while making the temporary (no room for a table)
    // and while pushing (no room to compress). Each passes on, leaves no file behind and
    // does not leave the lock held: another thread can go on.
    {
        CBitArraySaver saver;
        std::size_t old = DorvikSetBlockLimit(1000);
        EXPECT_THROW(saver.Push(P("abc"), 3, false), CMemoryException);
        DorvikSetBlockLimit(old);
        EXPECT_EQ(temp.SpillFiles(), 0);
        std::thread([&] { EXPECT_EQ(saver.Push(P("abc"), 3, false), 1); }).join();

        Bytes big(5000, 0x5A);
        old = DorvikSetBlockLimit(1000);
        EXPECT_THROW(saver.Push(big.data(), static_cast<int>(big.size()), true), CMemoryException);
        DorvikSetBlockLimit(old);
        std::thread([&] { EXPECT_EQ(saver.Push(P("def"), 3, false), 2); }).join();
        EXPECT_EQ(PopBytes(saver, 2, false).bytes, B("def"));
        EXPECT_EQ(temp.SpillFiles(), 1);
    }
    EXPECT_EQ(temp.SpillFiles(), 0);
}

TEST(SpillStackThreads, FourThreadsPushAndPopOnOneObject) {
    constexpr int kThreads = 4;
    constexpr int kEach = 10000;
    TempDir dir;
    CBitArraySaver saver;
    saver.SetTempFile(dir.Path("spill").c_str());
    std::vector<std::vector<int>> numbers(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            std::vector<int>& mine = numbers[t];
            for (int i = 0; i < kEach; ++i) {
                CBitArray bits = ThreadArray(t, i);
                mine.push_back(saver.Push(bits));
                // Read back one of this thread's earlier arrays while the others push.
                int j = (i * 7919) % (i + 1);
                CBitArray back;
                ASSERT_TRUE(saver.Pop(mine[j], back));
                ASSERT_TRUE(back == ThreadArray(t, j)) << t << " " << j;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();

    std::vector<int> all;
    for (int t = 0; t < kThreads; ++t) {
        for (int i = 0; i < kEach; ++i) {
            CBitArray back;
            ASSERT_TRUE(saver.Pop(numbers[t][i], back));
            ASSERT_TRUE(back == ThreadArray(t, i)) << t << " " << i;
        }
        all.insert(all.end(), numbers[t].begin(), numbers[t].end());
    }
    std::sort(all.begin(), all.end());
    for (int k = 0; k < kThreads * kEach; ++k) ASSERT_EQ(all[k], k + 1);
}
