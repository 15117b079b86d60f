// Extreme arguments: every index, count and length argument of the record, bit record,
// integer and nested files and of CBitArray at INT_MIN, -1, the count and INT_MAX. A
// call gives its meaning for a number past the end, or refuses with CFileException or
// CMemoryException having changed nothing; it never overflows (the sanitizer build
// stops at the first signed overflow).
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "Dorvik01.h"
#include "TestUtil.h"

namespace {

// Blocks above this are refused as if memory ran out: a bit at 2^31 - 1 asks for 256 MiB,
// which a test need not really take.
constexpr std::size_t kBlockLimit = 64 << 20;

// One argument of one call. `count` is what "the count" means for it (records, bytes or
// bits). An argument that sizes the caller's own array (a list and its count, a buffer
// and its length) is not tried at INT_MAX: there the call would rightly read the
// caller's memory.
template <class T>
struct Call {
    std::string name;
    int count;
    std::function<void(T&, int)> run;
    bool callerArray = false;
};

const int kExtremes[] = {INT_MIN, -1, 0, INT_MAX};  // 0 stands for the count

template <class T, class Each>
void ForEachExtreme(const std::vector<Call<T>>& calls, Each each) {
    for (const Call<T>& call : calls) {
        for (int extreme : kExtremes) {
            int v = extreme == 0 ? call.count : extreme;
            if (v == INT_MAX && call.callerArray) continue;
            SCOPED_TRACE(call.name + " at " + std::to_string(v));
            each(call, v);
        }
    }
}

// Runs every call on a fresh copy of `fixture`, opened as a T. After a refusal the file
// is unchanged; a record file stays valid after every call.
template <class T>
void TryOnFile(const Bytes& fixture, const std::vector<Call<T>>& calls, bool recordFile) {
    TempDir dir;
    const std::string path = dir.Path("f");
    ForEachExtreme(calls, [&](const Call<T>& call, int v) {
        WriteAll(path, fixture);
        bool refused = false;
        {
            T file(path.c_str(), CFile::modeReadWrite);
            BlockLimit limit(kBlockLimit);
            try {
                call.run(file, v);
            } catch (const CFileException&) {
                refused = true;
            } catch (const CMemoryException&) {
                refused = true;
            }
        }
        if (refused) {
            EXPECT_EQ(ReadAll(path), fixture) << "refused after a change";
        }
        if (recordFile) {
            EXPECT_TRUE(CBinFile::IsValidBinFile(path.c_str()));
        }
    });
}

template <class Read>
void Discard(Read read) {
    unsigned char* block = nullptr;
    int length = 0;
    read(block, length);
    DropBlock(block);
}

unsigned char kData[] = "alpha";  // 5 bytes and a zero

// The data for a length argument: kData while it holds that many bytes, else null, which
// the record writers take as bytes not to write.
unsigned char* DataFor(int length) { return length <= 5 ? kData : nullptr; }

const Bytes kRecords = RecordFileImage({B("alpha"), B(""), B("beta")});

}  // namespace

TEST(ExtremeArguments, RecordFile) {
    std::vector<Call<CBinFile>> calls = {
        {"GetAddress", 3,
         [](CBinFile& f, int v) {
             EXPECT_EQ(f.GetAddress(v), v < 0 || v > 3 ? 0xFFFFFFFFu : f.GetAddress(v));
         }},
        {"GetAddresses first", 3,
         [](CBinFile& f, int v) {
             DWORD* b = nullptr;
             int n = 0;
             f.GetAddresses(v, 3, b, n, true);
             DropBlock(b);
         }},
        {"GetAddresses last", 3,
         [](CBinFile& f, int v) {
             DWORD room[8];
             DWORD* b = room;
             int n = sizeof room;
             f.GetAddresses(0, v, b, n, false);
         }},
        {"GetAddresses room", 16,
         [](CBinFile& f, int v) {
             DWORD room[4];
             DWORD* b = room;
             int n = v;
             f.GetAddresses(0, 3, b, n, false);
             EXPECT_LE(n, 16);
         }},
        {"GetRecord", 3,
         [](CBinFile& f, int v) {
             Discard([&](unsigned char*& b, int& n) { f.GetRecord(v, b, n, true); });
             EXPECT_EQ(f.GetRecordLength(v), v == 0 ? 5 : (v == 2 ? 4 : 0));
             CDWordArray words;
             f.GetRecord(v, words);
             CBaseMemFile memory;
             f.GetRecord(v, memory);
         }},
        {"GetRecord room", 5,
         [](CBinFile& f, int v) {
             unsigned char room[8];
             unsigned char* b = room;
             int n = v;
             f.GetRecord(0, b, n, false);
             EXPECT_EQ(n, v < 0 ? 0 : std::min(v, 5));
         }},
        {"GetRecords first", 3,
         [](CBinFile& f, int v) {
             Discard([&](unsigned char*& b, int& n) { f.GetRecords(v, 2, b, n, true); });
         }},
        {"GetRecords last", 3,
         [](CBinFile& f, int v) {
             Discard([&](unsigned char*& b, int& n) { f.GetRecords(0, v, b, n, true); });
         }},
        {"Init", 3, [](CBinFile& f, int v) { f.Init(v); }},
        {"Delete first", 3, [](CBinFile& f, int v) { f.Delete(v, 2); }},
        {"Delete last", 3, [](CBinFile& f, int v) { f.Delete(1, v); }},
        {"Delete one", 3, [](CBinFile& f, int v) { f.Delete(v); }},
        {"Insert after", 3, [](CBinFile& f, int v) { f.Insert(v, kData, 5); }},
        {"Insert length", 5, [](CBinFile& f, int v) { f.Insert(0, DataFor(v), v); }},
        {"Insert file", 3,
         [](CBinFile& f, int v) {
             TempDir dir;
             WriteAll(dir.Path("s"), RecordFileImage({B("x"), B("yz")}));
             CBinFile source(dir.Path("s").c_str(), CFile::modeRead);
             f.Insert(v, &source);
         }},
        {"Modify", 3, [](CBinFile& f, int v) { f.Modify(v, kData, 5); }},
        {"Modify length", 5, [](CBinFile& f, int v) { f.Modify(2, DataFor(v), v); }},
        {"Modify memory file", 3,
         [](CBinFile& f, int v) {
             CBaseMemFile memory;
             memory.Write("xy", 2);
             f.Modify(v, &memory);
         }},
        {"Add length", 5, [](CBinFile& f, int v) { f.Add(DataFor(v), v); }},
        {"Find after", 3,
         [](CBinFile& f, int v) {
             EXPECT_EQ(f.Find(v, kData, 5), v < 0 ? 0 : -1);  // alpha is record 0
         }},
        {"Find length", 4,
         [](CBinFile& f, int v) { EXPECT_EQ(f.Find(-1, P("beta"), v), v == 4 ? 2 : -1); }},
    };
    TryOnFile(kRecords, calls, true);
}

TEST(ExtremeArguments, BitRecordFile) {
    const Bytes fixture = [] {
        TempDir dir;
        CBitsBinFile f(dir.Path("b").c_str(), CFile::modeCreate | CFile::modeReadWrite);
        AddRows(f, {{3, 9}, {}, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10}});
        f.Close();
        return ReadAll(dir.Path("b"));
    }();
    std::vector<Call<CBitsBinFile>> calls = {
        {"GetRecord", 3,
         [](CBitsBinFile& f, int v) {
             Discard([&](unsigned char*& b, int& n) { f.GetRecord(v, b, n, -1); });
             CBitArray plain(false), packed(true);
             f.GetRecord(v, plain, -1);
             f.GetRecord(v, packed, -1);
         }},
        {"GetRecord limit", 2,
         [](CBitsBinFile& f, int v) {
             Discard([&](unsigned char*& b, int& n) { f.GetRecord(0, b, n, v); });
             CBitArray plain(false);
             f.GetRecord(2, plain, v);
         }},
        {"Insert after", 3, [](CBitsBinFile& f, int v) { f.Insert(v, kData, 2); }},
        {"Insert length", 5, [](CBitsBinFile& f, int v) { f.Insert(0, DataFor(v), v); }},
        {"Modify", 3, [](CBitsBinFile& f, int v) { f.Modify(v, kData, 2); }},
        {"Modify length", 5, [](CBitsBinFile& f, int v) { f.Modify(1, DataFor(v), v); }},
        {"Modify array", 3,
         [](CBitsBinFile& f, int v) {
             CBitArray a;
             a.SetAt(4);
             f.Modify(v, &a);
         }},
        {"Add length", 5, [](CBitsBinFile& f, int v) { f.Add(DataFor(v), v); }},
        {"GetRecords record", 3,
         [](CBitsBinFile& f, int v) {
             int list[] = {0, v};
             CBitArray result;
             f.GetRecords(2, list, result, true, -1);
             f.GetRecords(2, list, result, false, -1);
         }},
        {"GetRecords count", 2,
         [](CBitsBinFile& f, int v) {
             int list[] = {0, 2};
             CBitArray result;
             f.GetRecords(v, list, result, true, -1);
         },
         true},
        {"GetRecords limit", 2,
         [](CBitsBinFile& f, int v) {
             int list[] = {2, 0};
             CBitArray result;
             f.GetRecords(2, list, result, false, v);
         }},
        {"SetAt record", 3, [](CBitsBinFile& f, int v) { f.SetAt(v, 5); }},
        {"SetAt bit", 16, [](CBitsBinFile& f, int v) { f.SetAt(0, v); }},
        {"ResetAt record", 3, [](CBitsBinFile& f, int v) { f.ResetAt(v, 3); }},
        {"ResetAt bit", 16, [](CBitsBinFile& f, int v) { f.ResetAt(0, v); }},
        {"GetAt", 3, [](CBitsBinFile& f, int v) { EXPECT_EQ(f.GetAt(v, 3), v == 0); }},
        {"GetAt bit", 16, [](CBitsBinFile& f, int v) { EXPECT_FALSE(f.GetAt(0, v)); }},
        {"GetBitIndex", 3, [](CBitsBinFile& f, int v) { f.GetBitIndex(v, 9); }},
        {"GetBitIndex bit", 16,
         [](CBitsBinFile& f, int v) { EXPECT_EQ(f.GetBitIndex(0, v), v < 0 ? -1 : 1); }},
        {"GetIndexBit", 3, [](CBitsBinFile& f, int v) { f.GetIndexBit(v, 1); }},
        {"GetIndexBit count", 2,
         [](CBitsBinFile& f, int v) {
             EXPECT_EQ(f.GetIndexBit(0, v), v <= 0 ? 0 : (v == 2 ? 10 : 16));
         }},
        {"GetCount", 3, [](CBitsBinFile& f, int v) { EXPECT_EQ(f.GetCount(v), v == 0 ? 2 : 0); }},
    };
    TryOnFile(fixture, calls, true);
}

TEST(ExtremeArguments, IntegerFile) {
    const Bytes fixture = Words({5, 3, 0xFFFFFFFF, 9, 3, 0});
    std::vector<Call<CIXFile>> calls = {
        {"Init", 6, [](CIXFile& f, int v) { f.Init(v); }},
        {"GetRecord", 6, [](CIXFile& f, int v) { EXPECT_EQ(f.GetRecord(v), v == 0 ? 5 : -1); }},
        {"IncRecord", 6, [](CIXFile& f, int v) { f.IncRecord(v); }},
        {"DecRecord", 6, [](CIXFile& f, int v) { f.DecRecord(v); }},
        {"Delete from", 6, [](CIXFile& f, int v) { f.Delete(v, 5); }},
        {"Delete to", 6, [](CIXFile& f, int v) { f.Delete(1, v); }},
        {"Delete one", 6, [](CIXFile& f, int v) { f.Delete(v); }},
        {"Insert", 6, [](CIXFile& f, int v) { f.Insert(v, 7); }},
        {"Modify", 6, [](CIXFile& f, int v) { f.Modify(v, 7); }},
        {"Find start", 6, [](CIXFile& f, int v) { EXPECT_EQ(f.Find(v, 5), v < 0 ? 0 : -1); }},
        {"GetRecords from", 6,
         [](CIXFile& f, int v) {
             CBitArray bits;
             f.GetRecords(v, 5, bits);
         }},
        {"GetRecords to", 6,
         [](CIXFile& f, int v) {
             CBitArray bits;
             f.GetRecords(0, v, bits);
         }},
        {"GetRecords position", 6,
         [](CIXFile& f, int v) {
             int positions[10] = {v, 0, v, 1, v, 2, v, 3, v, 4}, values[10];
             f.GetRecords(1, positions, values);
             f.GetRecords(10, positions, values);
         }},
        {"GetRecords count", 2,
         [](CIXFile& f, int v) {
             int positions[] = {0, 1}, values[2];
             f.GetRecords(v, positions, values);
         },
         true},
        {"grow count", 6,
         [](CIXFile& f, int v) {
             f.SetGrowCount(v);
             f.Modify(6, 1);
         }},
        {"view position", 6,
         [](CIXFile& f, int v) {
             TempDir dir;
             CIXFile sorted(dir.Path("s").c_str(), CFile::modeCreate | CFile::modeReadWrite);
             f.Sort(&sorted, nullptr);
             f.SetIndexFile(&sorted);
             EXPECT_EQ(f.GetRecord(v), -1);  // outside the view
             EXPECT_EQ(f.Find(v, 9), 3);
             f.Modify(v, 1);
             f.IncRecord(v);
             f.Delete(v);
             f.SetIndexFile(nullptr);
         }},
    };
    TryOnFile(fixture, calls, false);
}

TEST(ExtremeArguments, NestedFiles) {
    const Bytes fixture = [] {
        TempDir dir;
        CNDimBitsBinFile f(dir.Path("n").c_str(), CFile::modeCreate | CFile::modeReadWrite);
        int a[] = {0, 0, 0}, b[] = {0, 1, 1}, c[] = {1, 0, 0};
        f.CNDimBinFile::Modify(3, a, P("ab"), 2);
        f.CNDimBinFile::Modify(3, b, P("cde"), 3);
        f.SetAt(3, c, 12);
        f.Close();
        return ReadAll(dir.Path("n"));
    }();
    // Each call with `v` put in turn at every place of a three-number path.
    auto everywhere = [](std::function<void(CNDimBitsBinFile&, int*)> run) {
        return [run](CNDimBitsBinFile& f, int v) {
            for (int place = 0; place < 3; ++place) {
                int path[] = {0, 1, 1};
                path[place] = v;
                run(f, path);
            }
        };
    };
    std::vector<Call<CNDimBitsBinFile>> calls = {
        {"read path", 2, everywhere([](CNDimBitsBinFile& f, int* p) {
             Discard([&](unsigned char*& b, int& n) { f.CNDimBinFile::GetRecord(3, p, b, n); });
             f.GetRecordLength(3, p);
             f.GetRecordCount(2, p);
             CBitArray bits;
             f.CNDimBinFile::GetRecordsBitmap(2, p, bits);
             CBaseMemFile memory;
             f.GetFile(3, p, memory);
             f.GetAt(3, p, 1);
             f.GetBitIndex(3, p, 1);
             f.GetIndexBit(3, p, 1);
             f.GetRecord(3, p, bits, -1);
         })},
        {"Init path", 2, everywhere([](CNDimBitsBinFile& f, int* p) { f.Init(3, p); })},
        {"Modify path", 2,
         everywhere([](CNDimBitsBinFile& f, int* p) { f.CNDimBinFile::Modify(3, p, P("xy"), 2); })},
        {"Insert path", 2,
         everywhere([](CNDimBitsBinFile& f, int* p) { f.CNDimBinFile::Insert(3, p, P("xy"), 2); })},
        {"Add path", 2, everywhere([](CNDimBitsBinFile& f, int* p) { f.Add(2, p, P("xy"), 2); })},
        {"Delete path", 2, everywhere([](CNDimBitsBinFile& f, int* p) { f.Delete(2, p, 0, 0); })},
        {"SetAt path", 2, everywhere([](CNDimBitsBinFile& f, int* p) { f.SetAt(3, p, 2); })},
        {"XOrAt path", 2, everywhere([](CNDimBitsBinFile& f, int* p) { f.XOrAt(3, p, 2); })},
        {"ResetAt path", 2, everywhere([](CNDimBitsBinFile& f, int* p) { f.ResetAt(3, p, 2); })},
        {"Delete range", 3,
         [](CNDimBitsBinFile& f, int v) {
             int path[] = {0, 1};
             f.Delete(2, path, v, 1);
             f.Delete(2, path, 0, v);
         }},
        {"dim read", 3,
         [](CNDimBitsBinFile& f, int v) {
             int path[] = {0, 1, 1};
             Discard([&](unsigned char*& b, int& n) { f.CNDimBinFile::GetRecord(v, path, b, n); });
             f.GetRecordLength(v, path);
             f.GetRecordCount(v, path);
         },
         true},
        {"dim Modify", 3,
         [](CNDimBitsBinFile& f, int v) {
             int path[] = {0, 1, 1};
             f.CNDimBinFile::Modify(v, path, P("xy"), 2);
         },
         true},
        {"dim Delete", 2,
         [](CNDimBitsBinFile& f, int v) {
             int path[] = {0, 1};
             f.Delete(v, path, 0, 0);
         },
         true},
        {"length", 5,
         [](CNDimBitsBinFile& f, int v) {
             int path[] = {0, 1, 1};
             f.CNDimBinFile::Modify(3, path, DataFor(v), v);
             f.CNDimBinFile::Insert(3, path, DataFor(v), v);
         }},
        {"bit", 16,
         [](CNDimBitsBinFile& f, int v) {
             int path[] = {1, 0, 0};
             f.GetAt(3, path, v);
             f.GetBitIndex(3, path, v);
             f.GetIndexBit(3, path, v);
             f.ResetAt(3, path, v);
             f.SetAt(3, path, v);
             f.XOrAt(3, path, v);
         }},
        {"limit and records", 2,
         [](CNDimBitsBinFile& f, int v) {
             int leaf[] = {1, 0, 0}, file[] = {1, 0}, list[] = {0, v};
             CBitArray bits, result;
             f.GetRecord(3, leaf, bits, v);
             f.GetRecords(2, file, 2, list, result, true, v);
             f.GetRecords(2, file, 2, list, result, false, -1);
         }},
    };
    TryOnFile(fixture, calls, true);
}

TEST(ExtremeArguments, BitArray) {
    // Bits 3, 17 and 40: six bytes, 48 bits.
    std::vector<Call<CBitArray>> calls = {
        {"SetAt", 48, [](CBitArray& a, int v) { a.SetAt(v); }},
        {"ResetAt", 48, [](CBitArray& a, int v) { a.ResetAt(v); }},
        {"XOrAt", 48, [](CBitArray& a, int v) { a.XOrAt(v); }},
        {"GetAt", 48, [](CBitArray& a, int v) { EXPECT_FALSE(a.GetAt(v)); }},
        {"SetRange", 48,
         [](CBitArray& a, int v) {
             a.SetRange(v, 50);
             a.SetRange(60, v);
         }},
        {"ResetRange", 48,
         [](CBitArray& a, int v) {
             a.ResetRange(v, 20);
             a.ResetRange(4, v);
         }},
        {"XOrRange", 48,
         [](CBitArray& a, int v) {
             a.XOrRange(v, 20);
             a.XOrRange(4, v);
         }},
        {"CopyRange", 48,
         [](CBitArray& a, int v) {
             CBitArray source;
             source.SetRange(0, 70);
             a.CopyRange(source, v, 60);
             a.CopyRange(source, 50, v);
         }},
        {"Invert", 48, [](CBitArray& a, int v) { a.Invert(v); }},
        {"Insert bit", 48, [](CBitArray& a, int v) { a.Insert(v, 5, true); }},
        {"Insert count", 48,
         [](CBitArray& a, int v) {
             a.Insert(-1, v, true);
             a.Insert(3, v, false);
         }},
        {"Delete", 48,
         [](CBitArray& a, int v) {
             a.Delete(v, 20);
             a.Delete(1, v);
         }},
        {"SetLength", 6, [](CBitArray& a, int v) { a.SetLength(v); }},
        {"ranges counted", 48,
         [](CBitArray& a, int v) {
             EXPECT_EQ(a.GetRangeCount(v, 50), v <= 3 ? 3 : (v <= 17 ? 2 : (v <= 40 ? 1 : 0)));
             EXPECT_EQ(a.GetRangeCount(0, v), v < 3 ? 0 : (v < 17 ? 1 : (v < 40 ? 2 : 3)));
             a.IsRangeEmpty(v, 50);
             a.IsRangeEmpty(0, v);
             CDWordArray list;
             a.Range2Array(v, 50, list);
             a.Range2Array(0, v, list);
         }},
        {"ranks", 3,
         [](CBitArray& a, int v) {
             EXPECT_EQ(a.GetIndexBit(v), v == 0 ? 3 : (v == 1 ? 17 : (v == 2 ? 40 : -1)));
             a.GetBitIndex(v);
             a.GetActualBit(v);
         }},
        {"compressed", 48,
         [](CBitArray& a, int v) {
             a.Compress();
             a.GetAt(v);
             a.SetAt(v);
         }},
        {"static forms", 6,
         [](CBitArray& a, int v) {
             unsigned char* form = nullptr;
             int length = 0;
             CBitArray::Compress(a.GetBuffer(), a.GetLength(), form, length);
             CBitArray::GetAt(form, length, v);
             CBitArray::SetAt(form, length, v);
             try {
                 CBitArray::Decompress(form, length, v);  // a refusal leaves the form
             } catch (const CMemoryException&) {
                 DropBlock(form);
                 throw;
             }
             DropBlock(form);
             unsigned char bytes[6] = {1, 2, 3, 4, 5, 6};
             CBitArray::BitsNot(bytes, 6, v);
             CBitArray::GetBitsValue(bytes, v, 8);
             CBitArray::GetBitsValue(bytes, 0, v);
         }},
        {"Init length", 6,
         [](CBitArray& a, int v) {
             unsigned char bytes[6] = {1, 2, 3, 4, 5, 6};
             a.Init(bytes, v);
         },
         true},
    };
    ForEachExtreme(calls, [](const Call<CBitArray>& call, int v) {
        CBitArray a;
        a.SetAt(3);
        a.SetAt(17);
        a.SetAt(40);
        const Bytes before(a.GetBuffer(), a.GetBuffer() + a.GetLength());
        bool refused = false;
        {
            BlockLimit limit(kBlockLimit);
            try {
                call.run(a, v);
            } catch (const CMemoryException&) {
                refused = true;
            }
        }
        // Bit numbers stay ints: no array may hold bits past 2^31 - 1.
        EXPECT_GE(a.GetLength(), 0);
        EXPECT_LE(a.GetLength(), 1 << 28);
        EXPECT_GE(a.GetCount(), 0);
        if (refused) {
            EXPECT_EQ(Bytes(a.GetBuffer(), a.GetBuffer() + a.GetLength()), before);
        }
    });
}

// Numbers past the end that once overflowed, one by one: each refuses or means what it says.
TEST(ExtremeArguments, NumbersPastTheEndRefuseOrMeanWhatTheySay) {
    TempDir dir;
    WriteAll(dir.Path("r"), kRecords);
    CBinFile f(dir.Path("r").c_str(), CFile::modeReadWrite);
    EXPECT_THROW(f.Insert(INT_MAX, kData, 5), CFileException);
    EXPECT_THROW(f.Modify(INT_MAX, kData, 5), CFileException);
    EXPECT_THROW(f.Insert(0, nullptr, INT_MAX), CFileException);
    EXPECT_EQ(f.Find(INT_MAX, kData, 5), -1);
    f.Insert(3, kData, 5);  // behind the end: one empty record between, one behind
    EXPECT_EQ(f.GetRecordCount(), 6);
    EXPECT_EQ(f.GetRecordLength(4), 5);

    CBitArray a;
    a.SetAt(3);
    EXPECT_THROW(a.Insert(-1, INT_MAX, true), CMemoryException);
    EXPECT_TRUE(a.GetAt(3));
    EXPECT_EQ(a.GetCount(), 1);

    CBitArrayArray arrays;
    EXPECT_THROW(arrays.GetAt(INT_MAX), CMemoryException);
    EXPECT_EQ(arrays.GetSize(), 0);
    CBitArrayCollection collection;
    EXPECT_THROW(collection.GetAt(INT_MAX), CMemoryException);
}

// An index file that leads back to its own file would send every lookup round forever.
TEST(ExtremeArguments, AnIndexFileCycleIsRefused) {
    TempDir dir;
    WriteAll(dir.Path("a"), Words({7, 5}));
    WriteAll(dir.Path("b"), Words({1, 0}));
    CIXFile a(dir.Path("a").c_str(), CFile::modeReadWrite);
    CIXFile b(dir.Path("b").c_str(), CFile::modeReadWrite);
    a.SetIndexFile(&a);
    EXPECT_EQ(a.GetIndexFile(), nullptr);
    EXPECT_EQ(a.GetRecord(0), 7);
    a.SetIndexFile(&b);
    b.SetIndexFile(&a);  // a -> b -> a
    EXPECT_EQ(b.GetIndexFile(), nullptr);
    EXPECT_EQ(a.GetIndexFile(), &b);
    EXPECT_EQ(a.GetRecord(0), 5);  // the view through b

    // The number array keeps its index arrays the same way.
    CMyDWordArray x, y;
    x.Add(7);
    x.Add(5);
    y.Add(1);
    y.Add(0);
    x.SetIndexFile(&x);
    EXPECT_EQ(x.GetIndexFile(), nullptr);
    x.SetIndexFile(&y);
    y.SetIndexFile(&x);
    EXPECT_EQ(y.GetIndexFile(), nullptr);
    EXPECT_EQ(x.GetAt(0), 5u);
}

// A path that leads nowhere: a nested record too short to be a record file, where both
// readers agree, and negative numbers, through which no change lands on record 0.
TEST(ExtremeArguments, NestedPathsThatLeadNowhereChangeNothing) {
    TempDir dir;
    CNDimBinFile f(dir.Path("n").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    f.Add(P("abc"), 3);
    int path[] = {0};
    CBitArray bits;
    bits.SetAt(6);
    EXPECT_EQ(f.GetRecordCount(1, path), 0);
    f.GetRecordsBitmap(1, path, bits);
    EXPECT_TRUE(bits.GetAt(6));
    EXPECT_EQ(bits.GetCount(), 1);

    const Bytes before = ReadAll(dir.Path("n"));
    int negative[] = {-1, 0}, inner[] = {0, -1, 0};
    f.Modify(2, negative, P("xy"), 2);
    f.Delete(2, negative, 0, 0);
    f.Modify(3, inner, P("xy"), 2);
    f.Insert(3, inner, P("xy"), 2);
    EXPECT_EQ(ReadAll(dir.Path("n")), before);
    int front[] = {0, -1};  // an Insert's last number -1 is the front
    EXPECT_THROW(f.Insert(2, front, P("xy"), 2), CFileException);  // "abc" is no file
}
