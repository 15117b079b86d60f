#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "Dorvik01.h"
#include "TestUtil.h"

namespace {
// Pop of the stored (`expand` false) or expanded bytes; `ok` is Pop's result.
Bytes PopBytes(CBitArraySaver& saver, int number, bool expand, bool* ok = nullptr) {
    unsigned char* buffer = reinterpret_cast<unsigned char*>(1);
    int length = -1;
    bool popped = saver.Pop(number, buffer, length, expand);
    if (ok) *ok = popped;
    Bytes out = buffer ? Bytes(buffer, buffer + length) : Bytes();
    EXPECT_TRUE(buffer || length == 0);
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

    EXPECT_EQ(PopBytes(saver, 0, false), Words({3}));
    EXPECT_EQ(PopBytes(saver, 1, false), B("ab"));
    EXPECT_EQ(PopBytes(saver, 1, false), B("ab"));  // popping takes nothing away
    for (int number : {2, 4, 10000}) {              // empty, above the top: nothing, but true
        bool ok = false;
        EXPECT_TRUE(PopBytes(saver, number, false, &ok).empty());
        EXPECT_TRUE(ok) << number;
    }
    for (int number : {10001, -1, INT32_MIN}) {
        bool ok = true;
        PopBytes(saver, number, true, &ok);
        EXPECT_FALSE(ok) << number;
    }
}

TEST(SpillStack, TypedOverloadsGiveBackWhatWasPushed) {
    TempDir dir;
    CBitArraySaver saver;
    saver.SetTempFile(dir.Path("spill").c_str());
    CBitArray plain;
    plain.SetRange(3, 40000);
    plain.SetAt(90000);
    int n = saver.Push(plain);
    Bytes stored = PopBytes(saver, n, false);
    EXPECT_LT(stored.size(), 100u);  // kept compressed
    CBitArray back(true);
    EXPECT_TRUE(saver.Pop(n, back));
    EXPECT_TRUE(back.IsCompressed());  // the flag stays the caller's
    back.SetCompressed(false);
    EXPECT_TRUE(back == plain);
    // An array flagged compressed is compressed once more and comes back as its form.
    CBitArray packed(plain);
    packed.Compress();
    EXPECT_TRUE(saver.Pop(saver.Push(packed), back));
    EXPECT_EQ(Bytes(back.GetBuffer(), back.GetBuffer() + back.GetLength()), stored);
    CBitArray zeros;
    zeros.SetLength(64);  // all-zero bytes: an empty record, an empty array
    n = saver.Push(zeros);
    EXPECT_TRUE(PopBytes(saver, n, false).empty());
    EXPECT_TRUE(saver.Pop(n, back));
    EXPECT_EQ(back.GetLength(), 0);

    CDWordArray numbers;
    for (DWORD v : {7u, 0xFFFFFFFFu, 0x01020304u}) numbers.Add(v);
    n = saver.Push(numbers);
    EXPECT_EQ(PopBytes(saver, n, false), Words({7, 0xFFFFFFFF, 0x01020304}));
    CDWordArray out;
    out.Add(99);
    EXPECT_TRUE(saver.Pop(n, out));
    ASSERT_EQ(out.GetSize(), 3);
    EXPECT_EQ(out[2], 0x01020304u);
    EXPECT_FALSE(saver.Pop(20000, out));  // refused, and still emptied
    EXPECT_EQ(out.GetSize(), 0);
}

TEST(SpillStack, PoppingUnderTheOtherFlagGivesTheOtherFormsBytes) {
    TempDir dir;
    CBitArraySaver saver;
    saver.SetTempFile(dir.Path("spill").c_str());
    // Raw bytes read as a compressed form: marker, 'a', a run of five 0x00; then a run
    // cut short by the end of the record, which is not read past.
    for (auto [raw, expanded] : {std::pair{Hex("01 61 00 0500"), Cat({B("a"), Bytes(5, 0)})},
                                 std::pair{Hex("01 62 FF 05"), B("b")}}) {
        int n = saver.Push(raw.data(), static_cast<int>(raw.size()), false);
        EXPECT_EQ(PopBytes(saver, n, true), expanded);
    }
    Bytes plain = Cat({Bytes(300, 0), B("xy"), Bytes(10, 0xFF)});
    int n = saver.Push(plain.data(), static_cast<int>(plain.size()), true);
    EXPECT_EQ(PopBytes(saver, n, false), Hex("01 00 2C01 78 79 FF 0A00"));  // the stored form
}

TEST(SpillStack, TakesOverASavedFileOnlyWithAPlausibleTop) {
    TempDir dir;
    std::string path = dir.Path("spill");
    {
        CBitArraySaver first;
        first.SetTempFile(path.c_str());
        for (int i = 1; i <= 42; ++i) first.Push(reinterpret_cast<unsigned char*>(&i), 4, false);
    }
    {
        CBitArraySaver again;  // the caller's file outlived the first object
        again.SetTempFile(path.c_str());
        EXPECT_EQ(PopBytes(again, 5, false), Words({5}));
        EXPECT_EQ(again.Push(P("z"), 1, false), 43);
    }

    const std::pair<Bytes, int> cases[] = {
        {RecordFileImage({Words({9999}), B("old")}), 10000},
        {RecordFileImage({Words({10000}), B("old")}), 1},
        {RecordFileImage({Words({0xFFFFFFFB}), B("old")}), 1},
        {RecordFileImage({B("\x05"), B("old")}), 1},  // record 0 too short for a top
        {RecordFileImage({}), 1},
    };
    for (const auto& [file, next] : cases) {
        WriteAll(path, file);
        CBitArraySaver saver;
        saver.SetTempFile(path.c_str());
        EXPECT_EQ(saver.Push(P("new"), 3, false), next);
        EXPECT_EQ(PopBytes(saver, 0, false), Words({static_cast<unsigned>(next)}));
    }
    WriteAll(path, RecordFileImage({Words({10000}), B("one"), B("two")}));
    {
        CBitArraySaver reset;  // records behind a reset top stay until pushed over
        reset.SetTempFile(path.c_str());
        reset.Push(P("uno"), 3, false);
        EXPECT_EQ(PopBytes(reset, 2, false), B("two"));
    }

    for (const Bytes& junk : {B("no record file here"), B("ab"), Bytes()}) {
        WriteAll(path, junk);
        CBitArraySaver saver;
        saver.SetTempFile(path.c_str());
        EXPECT_EQ(ReadAll(path), Words({0, 0, 4}));  // replaced by a new record file
    }
    CBitArraySaver saver;
    EXPECT_THROW(saver.SetTempFile(dir.Root().c_str()), CFileException);
    EXPECT_THROW(saver.SetTempFile(dir.Path("no/such/dir").c_str()), CFileException);
}

TEST(SpillStack, LeavesNoTemporaryBehind) {
    TempFolder temp;
    TempDir dir;
    std::string mine = dir.Path("mine");
    {
        CBitArraySaver saver;
        PopBytes(saver, 10001, false);  // refused before any file is made
        EXPECT_EQ(temp.Files("egy").size(), 0u);
        bool ok = false;
        EXPECT_TRUE(PopBytes(saver, 1, true, &ok).empty());  // the first use makes it
        EXPECT_TRUE(ok);
        EXPECT_EQ(temp.Files("egy").size(), 1u);
        EXPECT_EQ(saver.Push(P("abc"), 3, true), 1);
        // Moving to the caller's file drops the temporary at once; the caller's file
        // survives the object.
        saver.SetTempFile(mine.c_str());
        EXPECT_EQ(temp.Files("egy").size(), 0u);
        EXPECT_EQ(saver.Push(P("abc"), 3, true), 1);
    }
    EXPECT_TRUE(Exists(mine));
    {
        // Failures below, while making the temporary (no room for a table) and while
        // pushing (no room to compress), pass on, leave no file behind and release the
        // lock: another thread goes on.
        CBitArraySaver saver;
        {
            BlockLimit tight(1000);
            EXPECT_THROW(saver.Push(P("abc"), 3, false), CMemoryException);
        }
        EXPECT_EQ(temp.Files("egy").size(), 0u);
        std::thread([&] { EXPECT_EQ(saver.Push(P("abc"), 3, false), 1); }).join();
        Bytes big(5000, 0x5A);
        {
            BlockLimit tight(1000);
            EXPECT_THROW(saver.Push(big.data(), 5000, true), CMemoryException);
        }
        std::thread([&] { EXPECT_EQ(saver.Push(P("def"), 3, false), 2); }).join();
        EXPECT_EQ(temp.Files("egy").size(), 1u);
    }
    EXPECT_EQ(temp.Files("egy").size(), 0u);
}

TEST(SpillStackThreads, FourThreadsPushAndPopOnOneObject) {
    constexpr int kThreads = 4, kEach = 10000;
    TempDir dir;
    CBitArraySaver saver;
    saver.SetTempFile(dir.Path("spill").c_str());
    std::vector<std::vector<int>> numbers(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kEach; ++i) {
                CBitArray bits = ThreadArray(t, i);
                numbers[t].push_back(saver.Push(bits));
                // Read back one of this thread's earlier arrays while the others push.
                int j = (i * 7919) % (i + 1);
                CBitArray back;
                ASSERT_TRUE(saver.Pop(numbers[t][j], back));
                ASSERT_TRUE(back == ThreadArray(t, j)) << t << " " << j;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    std::vector<int> all;
    for (int t = 0; t < kThreads; ++t) {
        for (int i = 0; i < kEach; ++i) {
            CBitArray back;
            ASSERT_TRUE(saver.Pop(numbers[t][i], back));  // numbers past 10000 included
            ASSERT_TRUE(back == ThreadArray(t, i)) << t << " " << i;
        }
        all.insert(all.end(), numbers[t].begin(), numbers[t].end());
    }
    std::sort(all.begin(), all.end());
    for (int k = 0; k < kThreads * kEach; ++k) ASSERT_EQ(all[k], k + 1);
}
