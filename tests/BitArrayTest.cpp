#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <climits>
#include <cstdint>
#include <cstring>
#include <random>
#include <set>
#include <vector>

#include "TestUtil.h"
#include "bits/CompressedForm.h"
#include "dorvik/BitArray.h"
#include "dorvik/Exceptions.h"

namespace {
Bytes Content(const CBitArray& a) { return Bytes(a.GetBuffer(), a.GetBuffer() + a.GetLength()); }

CBitArray Plain(const Bytes& bytes) {
    CBitArray a;
    if (bytes.empty()) return a;
    a.Attach(static_cast<unsigned char*>(GrabBlock(bytes.size())), static_cast<int>(bytes.size()));
    if (!bytes.empty()) std::memcpy(a.GetBuffer(), bytes.data(), bytes.size());
    return a;
}

Bytes Packed(const Bytes& plain) {
    unsigned char* target = nullptr;
    int length = 0;
    CBitArray::Compress(plain.data(), static_cast<int>(plain.size()), target, length);
    Bytes out(target, target + length);
    DropBlock(target);
    return out;
}

// A compressed or plain string in a block of its own, as the statics take it.
struct Block {
    explicit Block(const Bytes& bytes) : length(static_cast<int>(bytes.size())) {
        data = bytes.empty() ? nullptr : static_cast<unsigned char*>(GrabBlock(bytes.size()));
        if (data) std::memcpy(data, bytes.data(), bytes.size());
    }
    ~Block() { DropBlock(data); }
    Bytes Get() const { return Bytes(data, data + length); }
    unsigned char* data;
    int length;
};

Bytes Unpacked(const Bytes& form, int limit = -1) {
    Block b(form);
    CBitArray::Decompress(b.data, b.length, limit);
    return b.Get();
}

// Lowers the block limit for the life of the guard.
}  // namespace

// ---- Storage ---------------------------------------------------------------------------

TEST(BitArrayStorage, GrowsByWhatABitNeedsAndReadsNothingBeyond) {
    CBitArray a;
    EXPECT_FALSE(a.GetAt(100));
    EXPECT_EQ(a.GetLength(), 0);
    EXPECT_EQ(a.GetBuffer(), nullptr);
    a.SetAt(17);
    EXPECT_EQ(a.GetLength(), 3);
    EXPECT_EQ(Content(a), Hex("00 00 02"));
    EXPECT_FALSE(a.GetAt(24));
    EXPECT_EQ(a.GetLength(), 3);
}

TEST(BitArrayStorage, BytesThatComeBackIntoTheLengthReadZero) {
    CBitArray a = BitsOf({3, 20});
    a.SetLength(1);
    a.SetLength(3);
    EXPECT_EQ(SetBits(a), (std::vector<int>{3}));

    CBitArray b = BitsOf({0, 20}), c = BitsOf({0});
    b &= c;  // trims to one byte but keeps the block
    b.SetAt(9);
    b.SetLength(3);
    EXPECT_EQ(SetBits(b), (std::vector<int>{0, 9}));
}

TEST(BitArrayStorage, InitTrimsPlainCopiesButNotCompressedOnes) {
    Bytes bytes = Hex("05 00 00");
    CBitArray plain(bytes.data(), 3, false), packed(bytes.data(), 3, true);
    EXPECT_EQ(Content(plain), Hex("05"));
    EXPECT_EQ(Content(packed), Hex("05 00 00"));
    EXPECT_TRUE(plain.IsModified());

    CBitArray own = BitsOf({1, 9});
    own.Init(own.GetBuffer(), own.GetLength());  // from its own bytes
    EXPECT_EQ(SetBits(own), (std::vector<int>{1, 9}));
    own.Init(nullptr, 5);
    EXPECT_EQ(own.GetLength(), 0);
}

TEST(BitArrayStorage, AttachTakesTheBlockAndDetachGivesItBack) {
    unsigned char* block = static_cast<unsigned char*>(GrabBlock(4));
    block[3] = 0x80;
    CBitArray a(true);
    a.Attach(block, 4);
    EXPECT_EQ(a.GetBuffer(), block);
    EXPECT_EQ(a.GetLength(), 4);  // not trimmed
    a.Attach(a.GetBuffer(), 4);   // its own block again: kept, not freed
    EXPECT_EQ(a.Detach(), block);
    EXPECT_EQ(a.GetLength(), 0);
    EXPECT_TRUE(a.IsCompressed());
    EXPECT_EQ(a.Detach(), nullptr);
    a.Attach(block, 0);  // not taken
    EXPECT_EQ(a.GetBuffer(), nullptr);
    DropBlock(block);
}

TEST(BitArrayStorage, SelfAssignmentChangesNothing) {
    CBitArray a = BitsOf({2, 30});
    a.SetModified(false);
    a = a;
    EXPECT_EQ(SetBits(a), (std::vector<int>{2, 30}));
    EXPECT_FALSE(a.IsModified());
}

TEST(BitArrayStorage, AnAllocationFailureThrowsAndLeavesTheArrayAsItWas) {
    CBitArray a = BitsOf({5});
    Bytes big(5000, 0x11);
    BlockLimit limit(1000);
    EXPECT_THROW(a.SetAt(8 * 2000), CMemoryException);
    EXPECT_THROW(a.Init(big.data(), 5000), CMemoryException);
    EXPECT_THROW(a.Invert(8 * 2000), CMemoryException);
    EXPECT_EQ(Content(a), Hex("20"));
    CBitArray empty;
    EXPECT_THROW(empty.SetAt(8 * 2000), CMemoryException);
    EXPECT_EQ(empty.GetLength(), 0);
    unsigned char* target = nullptr;
    int length = 0;
    EXPECT_THROW(CBitArray::Compress(big.data(), 5000, target, length), CMemoryException);
}

TEST(BitArrayStorage, ModifiedFlagFollowsChangesOnly) {
    CBitArray a = BitsOf({1}), source = BitsOf({1});
    a.SetModified(false);
    a.CopyRange(source, 8, 20);  // from beyond the source: nothing at all
    a.SetAt(-4);
    EXPECT_FALSE(a.IsModified());
    a.ResetAt(7);  // a write, though no bit changes
    EXPECT_TRUE(a.IsModified());
}

// ---- Bits and ranges ---------------------------------------------------------------------

TEST(BitArrayBits, NegativeBitsReadClearAndWriteNothing) {
    CBitArray a = BitsOf({0, 3});
    a.SetModified(false);
    a.SetAt(-1);
    a.XOrAt(-9);
    a.ResetAt(-1);
    a.SetRange(5, 4);
    a.ResetRange(-8, -1);
    a.Insert(-2, 4, true);
    a.Invert(-1);
    EXPECT_FALSE(a.GetAt(-1));
    EXPECT_FALSE(a[INT_MIN]);
    EXPECT_FALSE(a.IsModified());
    EXPECT_EQ(a.GetRangeCount(-10, 3), 2);
    a.SetRange(-5, 9);  // cut to 0..9
    EXPECT_EQ(Content(a), Hex("FF 03"));
    EXPECT_EQ(a.GetIndexBit(-1), -1);
    EXPECT_EQ(a.GetBitIndex(-1), -1);
    EXPECT_EQ(a.GetActualBit(-1), -1);
}

TEST(BitArrayBits, RangesGrowOrClampAsTheirKindSays) {
    CBitArray a;
    a.SetRange(3, 12);
    EXPECT_EQ(Content(a), Hex("F8 1F"));
    a.ResetRange(4, 100);  // clamped, never grows
    EXPECT_EQ(Content(a), Hex("08 00"));
    a.XOrRange(0, 23);
    EXPECT_EQ(Content(a), Hex("F7 FF FF"));
    a.ResetAll();
    a.SetAll();
    EXPECT_EQ(Content(a), Hex("FF FF FF"));
    EXPECT_FALSE(a.GetAt(24));
    CBitArray empty;
    empty.SetAll();
    EXPECT_EQ(empty.GetLength(), 0);
}

TEST(BitArrayBits, InvertInsertAndDeleteKeepTheirLengthRules) {
    CBitArray a;
    a.Invert(10);
    EXPECT_EQ(Content(a), Hex("FF 03"));
    CBitArray b = BitsOf({1, 12});
    b.Invert(3);  // below the length: the length stays
    EXPECT_EQ(Content(b), Hex("05 00"));
    CBitArray c = BitsOf({2, 5, 6});
    c.Insert(5, 3, true);
    EXPECT_EQ(SetBits(c), (std::vector<int>{2, 5, 6, 7, 8, 9}));
    CBitArray d = BitsOf({1, 2, 3, 9});
    d.Delete(2, 3);
    EXPECT_EQ(Content(d), Hex("82 00"));  // bits 1 and 7; 14 bits left need 2 bytes
    d.Insert(-1, 1, false);
    EXPECT_EQ(SetBits(d), (std::vector<int>{2, 8}));
    d.Delete(0, 100);
    EXPECT_EQ(d.GetLength(), 0);
}

// A bit-by-bit rendering of the operations whose length rules are easy to get wrong,
// against which random sequences are checked.
namespace {
struct Model {
    Bytes bytes;
    long Bits() const { return static_cast<long>(bytes.size()) * 8; }
    bool Get(long bit) const {
        return bit >= 0 && bit < Bits() && (bytes[bit >> 3] >> (bit & 7) & 1);
    }
    void Put(long bit, bool v) {
        if (v)
            bytes[bit >> 3] |= static_cast<unsigned char>(1 << (bit & 7));
        else
            bytes[bit >> 3] &= static_cast<unsigned char>(~(1 << (bit & 7)));
    }
    void Grow(long length) {
        if (length > static_cast<long>(bytes.size())) bytes.resize(length, 0);
    }
    void SetRange(long from, long to) {
        Grow(to / 8 + 1);
        for (long i = from; i <= to; ++i) Put(i, true);
    }
    void ResetRange(long from, long to) {
        for (long i = from; i <= std::min(to, Bits() - 1); ++i) Put(i, false);
    }
    void XOrRange(long from, long to) {
        Grow(to / 8 + 1);
        for (long i = from; i <= to; ++i) Put(i, !Get(i));
    }
    void Invert(long bits) {
        if (bits > Bits()) Grow((bits + 7) / 8);
        for (auto& b : bytes) b = static_cast<unsigned char>(~b);
        for (long i = bits; i < Bits(); ++i) Put(i, false);
    }
    void Insert(long bit, long count, bool value) {
        long bits = Bits();
        Grow((bits + count + (bit > bits - 1 ? bit - bits : 0) + 7) / 8);
        for (long j = bits - 1; j > bit; --j)
            if (Get(j)) {
                Put(j, false);
                Put(j + count, true);
            }
        if (value)
            SetRange(bit + 1, bit + count);
        else
            ResetRange(bit + 1, bit + count);
    }
    void Delete(long from, long to) {
        long bits = Bits();
        if (from >= bits || from > to) return;
        to = std::min(to, bits - 1);
        ResetRange(from, to);
        long n = to - from + 1;
        for (long j = to + 1; j < bits; ++j) {
            if (Get(j)) {
                Put(j, false);
                Put(j - n, true);
            } else
                Put(j - n, false);
        }
        long left = std::max(0L, bits - n);
        bytes.resize((left + 7) / 8);
    }
    void CopyRange(const Model& s, long from, long to) {
        if (from >= s.Bits()) return;
        to = std::min(to, s.Bits() - 1);
        if (to >= Bits()) Grow(to / 8 + 1);
        for (long i = from; i <= to; ++i) Put(i, s.Get(i));
    }
};
}  // namespace

TEST(BitArrayBits, RandomSequencesMatchTheBitByBitRules) {
    std::mt19937 random(7);
    auto pick = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
    for (int round = 0; round < 300; ++round) {
        CBitArray a, other;
        Model m, o;
        for (int i = 0; i < 6; ++i) {
            int bit = pick(200);
            other.SetAt(bit);
            o.Grow(bit / 8 + 1), o.Put(bit, true);
        }
        for (int step = 0; step < 12; ++step) {
            int x = pick(260), y = x + pick(140) - 20, count = 1 + pick(90);
            bool value = false;
            switch (pick(8)) {
                case 0:
                    if (y >= x) a.SetRange(x, y), m.SetRange(x, y);
                    break;
                case 1:
                    if (y >= x) a.ResetRange(x, y), m.ResetRange(x, y);
                    break;
                case 2:
                    if (y >= x) a.XOrRange(x, y), m.XOrRange(x, y);
                    break;
                case 3:
                    a.Invert(x), m.Invert(x);
                    break;
                case 4:
                    value = pick(2), a.Insert(x - 1, count, value), m.Insert(x - 1, count, value);
                    break;
                case 5:
                    a.Delete(x, y), m.Delete(x, y);
                    break;
                case 6:
                    if (y >= x) a.CopyRange(other, x, y), m.CopyRange(o, x, y);
                    break;
                default:
                    a.SetAt(x), m.Grow(x / 8 + 1), m.Put(x, true);
                    break;
            }
            ASSERT_EQ(Content(a), m.bytes) << "round " << round << " step " << step;
            long set = 0;
            for (unsigned char b : m.bytes) set += std::popcount(static_cast<unsigned>(b));
            ASSERT_EQ(a.GetCount(), set);
        }
    }
}

// ---- Set logic and queries -------------------------------------------------------------------

TEST(BitArraySetLogic, CombinersFollowTheirLengthRules) {
    CBitArray a = Plain(Hex("0F 00 00 00 00 00 00 00 00 80")), b = Plain(Hex("F1 FF"));
    CBitArray both = a & b, either = a | b, one = a ^ b;
    EXPECT_EQ(Content(both), Hex("01"));  // shorter length, then trimmed
    EXPECT_EQ(Content(either), Hex("FF FF 00 00 00 00 00 00 00 80"));
    EXPECT_EQ(Content(one), Hex("FE FF 00 00 00 00 00 00 00 80"));
    CBitArray grown = b;
    grown |= a;
    EXPECT_EQ(grown.GetLength(), 10);
    CBitArray disjoint = Plain(Hex("F0")), low = Plain(Hex("0F 0F"));
    disjoint &= low;
    EXPECT_EQ(disjoint.GetLength(), 0);
    EXPECT_EQ(disjoint.GetBuffer(), nullptr);
    CBitArray minus = Plain(Hex("FF FF FF FF FF FF FF FF FF 01"));
    minus.ResetAt(&a);
    EXPECT_EQ(Content(minus), Hex("F0 FF FF FF FF FF FF FF FF 01"));
    minus.ResetAt(nullptr);
    EXPECT_EQ(Content(minus), Hex("F0 FF FF FF FF FF FF FF FF 01"));
}

TEST(BitArraySetLogic, EqualityComparesLengthsAndOverlapLooksAtTheShorter) {
    CBitArray a = BitsOf({3});
    a.ResetAt(3);
    EXPECT_TRUE(a.IsEmpty());
    EXPECT_EQ(a.GetLength(), 1);
    EXPECT_FALSE(a == CBitArray());
    EXPECT_TRUE(BitsOf({9, 70}) == BitsOf({9, 70}));
    EXPECT_TRUE(BitsOf({9}) != BitsOf({10}));
    EXPECT_TRUE(BitsOf({70, 2}) && BitsOf({70}));
    EXPECT_FALSE(BitsOf({70, 2}) && BitsOf({3, 71}));
    EXPECT_FALSE(BitsOf({100}) && BitsOf({1}));
}

TEST(BitArrayQueries, CountsOverRangesAndWholeArrays) {
    CBitArray ff = Plain(Hex("FF"));
    EXPECT_EQ(ff.GetRangeCount(1, 3), 3);
    CBitArray a = Plain(Hex("01 00 80 00 00 00 00 00 00 00 00 FF 01"));
    EXPECT_EQ(a.GetCount(), 11);
    EXPECT_EQ(a.GetRangeCount(0, 1000), 11);
    EXPECT_EQ(a.GetRangeCount(1, 95), 9);
    EXPECT_EQ(a.GetRangeCount(23, 23), 1);
    EXPECT_EQ(a.GetRangeCount(9, 3), 0);
    EXPECT_FALSE(a.IsRangeEmpty(8, 23));
    EXPECT_TRUE(a.IsRangeEmpty(24, 87));
    EXPECT_FALSE(a.IsRangeEmpty(24, 88));
    EXPECT_TRUE(a.IsRangeEmpty(97, 2000));
    EXPECT_TRUE(CBitArray().IsRangeEmpty(0, 10));
}

// ---- Compressed form -----------------------------------------------------------------------

TEST(BitArrayCompression, CompressWritesTheExactForm) {
    struct Case {
        Bytes plain, form;
    } cases[] = {
        {Hex("00 00 00 05 FF FF 00"), Hex("01 00 03 00 05 FF 02 00")},
        {Hex("01"), Hex("01 01")},
        {Hex("00 01"), Hex("01 00 01 00 01")},
        {Bytes(65536, 0xFF), Hex("01 FF FF FF FF 01 00")},
        {Cat({Bytes(65535, 0), Hex("01")}), Hex("01 00 FF FF 01")},
        {Cat({Bytes(65536 * 2, 0), Hex("FE")}), Hex("01 00 FF FF 00 FF FF 00 02 00 FE")},
        {Hex("05 00 00"), Hex("01 05")},
        {Hex("00 00 00"), Hex("")},
    };
    for (const Case& c : cases) EXPECT_EQ(Packed(c.plain), c.form);
    EXPECT_EQ(Unpacked(Hex("01 05")), Hex("05"));  // trailing zero bytes are gone
}

TEST(BitArrayCompression, DecompressStopsBetweenItemsAtTheLimit) {
    Bytes form = Hex("01 FF 00 10 05");
    EXPECT_EQ(Unpacked(form, 1), Bytes(4096, 0xFF));
    EXPECT_EQ(Unpacked(form, -1), Cat({Bytes(4096, 0xFF), Hex("05")}));
    EXPECT_EQ(Unpacked(Hex("01 05 06 07 08"), 2), Hex("05 06"));
    EXPECT_EQ(Unpacked(Hex("01 00 03 00 07 00 02 00")), Hex("00 00 00 07 00 00"));
    EXPECT_EQ(Unpacked(Hex("01")), Hex(""));
    EXPECT_EQ(CBitArray::DecompressLength(form.data(), 5), 4098);  // the marker reads as a literal
}

TEST(BitArrayCompression, MembersSwitchBetweenTheTwoForms) {
    CBitArray a = BitsOf({0, 8 * 300 + 1});
    a.SetAt(8 * 300);
    a.Compress();
    EXPECT_TRUE(a.IsCompressed());
    EXPECT_EQ(Content(a), Hex("01 01 00 2B 01 03"));
    EXPECT_TRUE(a.GetAt(8 * 300 + 1));
    EXPECT_FALSE(a.GetAt(8));
    a.Decompress();
    EXPECT_FALSE(a.IsCompressed());
    EXPECT_EQ(a.GetCount(), 3);
    CBitArray zero = Plain(Hex("00 00"));
    zero.Compress();
    EXPECT_EQ(zero.GetBuffer(), nullptr);
    EXPECT_TRUE(zero.IsCompressed());
    zero.Decompress();
    EXPECT_TRUE(zero.IsCompressed());  // an empty array keeps its flag
}

TEST(BitArrayCompression, SetAtChangesTheFormInPlace) {
    struct Case {
        const char* before;
        int bit;
        const char* after;
        bool result;
    } cases[] = {
        {"", 0, "01 01", true},
        {"", 800000, "01 00 FF FF 00 A1 86 01", true},
        {"01 05 00 01 00 07", 8, "01 05 01 07", true},                     // run of 1: -2
        {"01 05 00 03 00 07", 24, "01 05 00 02 00 01 07", true},           // last byte: +1
        {"01 05 00 03 00 07", 17, "01 05 00 01 00 02 00 01 00 07", true},  // middle: +4
        {"01 05 00 03 00 07", 15, "01 05 80 00 02 00 07", true},           // first byte: +1
        {"01 05 FF 03 00", 20, "01 05 FF 03 00", false},                   // inside a 0xFF run
        {"01 03 05 07", 9, "01 03 07 07", true},
        {"01 03 05 07", 8, "01 03 05 07", false},                       // set already
        {"01 FF 02 00 FE", 16, "01 FF 03 00", true},                    // joins the run before
        {"01 FE FF 02 00", 0, "01 FF 03 00", true},                     // joins the run behind
        {"01 FF 01 00 7F FF 01 00", 15, "01 FF 02 00 FF 01 00", true},  // both: the one before
        {"01 FF FF FF FE", 8 * 65535, "01 FF FF FF FF 01 00", true},    // the run is full
        {"01 05 FE", 8, "01 05 FF 01 00", true},
        {"01 05 00 02", 16, "01 05 00 01 00 01", true},  // a cut run is dropped
    };
    for (const Case& c : cases) {
        Block b(Hex(c.before));
        EXPECT_EQ(CBitArray::SetAt(b.data, b.length, c.bit), c.result)
            << c.before << " bit " << c.bit;
        EXPECT_EQ(b.Get(), Hex(c.after)) << c.before << " bit " << c.bit;
    }
    Block merged(Hex("01 FF 02 00 FF 01 00"));
    for (int bit = 0; bit < 24; ++bit)
        EXPECT_TRUE(CBitArray::GetAt(merged.data, merged.length, bit));
}

TEST(BitArrayCompression, SetAtInAZeroRunOfOneShrinksTheStringByTwo) {
    CBitArray a(true);
    a.SetAt(0);
    a.SetAt(16);
    EXPECT_EQ(Content(a), Hex("01 01 00 01 00 01"));
    a.SetAt(8);
    EXPECT_EQ(Content(a), Hex("01 01 01 01"));
    a.SetAt(40);  // the append starts at the new end
    EXPECT_EQ(Content(a), Hex("01 01 01 01 00 02 00 01"));
}

TEST(BitArrayCompression, FormsRoundTripAndReadLikeTheirPlainBytes) {
    std::mt19937 random(11);
    for (int round = 0; round < 200; ++round) {
        int size = static_cast<int>(random() % 3000);
        unsigned density = random() % 4;
        Bytes plain(static_cast<std::size_t>(size));
        for (auto& b : plain) {
            unsigned r = random() % 8;
            b = r < density ? 0xFF : r < 6 ? 0 : static_cast<unsigned char>(random());
        }
        Bytes form = Packed(plain);
        Bytes trimmed(
            plain.begin(),
            std::find_if(plain.rbegin(), plain.rend(), [](unsigned char b) { return b; }).base());
        ASSERT_EQ(Unpacked(form), trimmed);
        bool endsInZeroRun = false;  // runs are whole and counted from 1; no zero run last
        for (std::size_t i = 1; i < form.size();) {
            bool run = form[i] == 0 || form[i] == 0xFF;
            ASSERT_TRUE(!run || (i + 3 <= form.size() && (form[i + 1] | form[i + 2] << 8) >= 1));
            endsInZeroRun = run && form[i] == 0;
            i += run ? 3 : 1;
        }
        ASSERT_FALSE(endsInZeroRun);
        CBitArray built(true);
        std::set<int> probed;
        for (int probe = 0; probe < 40; ++probe) {
            int bit = static_cast<int>(random() % (8u * static_cast<unsigned>(size) + 8));
            bool set = bit / 8 < size && (plain[bit / 8] >> (bit & 7) & 1);
            ASSERT_EQ(CBitArray::GetAt(form.data(), static_cast<int>(form.size()), bit), set);
            built.SetAt(bit);
            probed.insert(bit);
        }
        std::vector<int> bits = SetBits(Plain(Unpacked(Content(built))));
        ASSERT_EQ(std::set<int>(bits.begin(), bits.end()), probed);
    }
}

TEST(BitArrayHostileInput, AnyByteStringIsReadWithinItsBounds) {
    std::mt19937 random(5);
    const unsigned char pool[] = {0x00, 0xFF, 0x01, 0x80, 0x05, 0xFE};
    for (int round = 0; round < 1500; ++round) {
        Bytes form(random() % 24);
        for (auto& b : form)
            b = random() % 3 ? pool[random() % 6] : static_cast<unsigned char>(random());
        Block whole(form);
        int length = CBitArray::DecompressLength(whole.data ? whole.data + 1 : nullptr,
                                                 std::max(0, whole.length - 1));
        Bytes plain = Unpacked(form);
        ASSERT_EQ(static_cast<int>(plain.size()), length);
        ASSERT_LE(Unpacked(form, static_cast<int>(random() % 5)).size(), plain.size());
        for (int probe = 0; probe < 6; ++probe) {
            int bit = static_cast<int>(random() % (8u * plain.size() + 40));
            std::size_t byte = static_cast<std::size_t>(bit / 8);
            unsigned char mask = static_cast<unsigned char>(1u << (bit & 7));
            ASSERT_EQ(CBitArray::GetAt(whole.data, whole.length, bit),
                      byte < plain.size() && (plain[byte] & mask));
            Block changed(form);
            CBitArray::SetAt(changed.data, changed.length, bit);
            Bytes expected = plain;
            if (byte >= expected.size()) expected.resize(byte + 1, 0);
            expected[byte] |= mask;
            ASSERT_EQ(Unpacked(changed.Get()), expected) << round;
        }
    }
}

TEST(BitArrayHostileInput, AFormThatWouldPassTwoGigabytesIsRefusedBeforeAllocating) {
    Bytes form(1 + 3 * 40000, 0xFF);  // 40000 full runs of 0xFF
    Block b(form);
    EXPECT_EQ(CBitArray::DecompressLength(b.data + 1, b.length - 1), -1);
    unsigned char* before = b.data;
    EXPECT_THROW(CBitArray::Decompress(b.data, b.length, -1), CMemoryException);
    EXPECT_EQ(b.data, before);
    EXPECT_EQ(b.length, static_cast<int>(form.size()));
}

// ---- Raw buffers -------------------------------------------------------------------------------

TEST(BitArrayRawBuffers, MemCombinesIntoTheTarget) {
    struct Case {
        Operation op;
        const char* source;
        const char* target;
        const char* result;
    } cases[] = {
        {opAnd, "0F 0F 0F", "03 F0", "03"},
        {opCopy, "11 22", "00 00 00 77", "11 22 00 77"},  // a longer target keeps its tail
        {opOr, "01 02 03", "F0", "F1 02 03"},
        {opXor, "FF 0F", "0F", "F0 0F"},
        {static_cast<Operation>(3), "FF FF", "01", "01 00"},
        {opCopy, "AB", "", "AB"},
    };
    for (const Case& c : cases) {
        Block target(Hex(c.target));
        Bytes source = Hex(c.source);
        CBitArray::Mem(c.op, source.data(), static_cast<int>(source.size()), target.data,
                       target.length);
        EXPECT_EQ(target.Get(), Hex(c.result)) << c.op;
    }
    Block trimmed(Hex("FF FF FF"));
    Bytes one = Hex("01"), four = Hex("01 00 00 00");
    CBitArray::Mem(opAnd, one.data(), 1, trimmed.data, trimmed.length);
    CBitArray::Mem(opOr, four.data(), 4, trimmed.data, trimmed.length);
    EXPECT_EQ(trimmed.Get(), Hex("01 00 00 00"));  // what opAnd cut off does not come back
}

TEST(BitArrayRawBuffers, BitsNotWorksOnlyWithinTheGivenLength) {
    Bytes b = Hex("0F 00 AA 55");
    EXPECT_EQ(CBitArray::BitsNot(b.data(), 4, 12), 2);
    EXPECT_EQ(b, Hex("F0 0F AA 55"));
    EXPECT_EQ(CBitArray::BitsNot(b.data(), 1, 20), 1);  // short buffer: no allocation
    EXPECT_EQ(b, Hex("0F 0F AA 55"));
    EXPECT_EQ(CBitArray::BitsNot(b.data(), 4, 0), 0);
    EXPECT_EQ(CBitArray::BitsNot(nullptr, 4, 8), 0);
}

TEST(BitArrayRawBuffers, GetBitsValueReadsAtMostThirtyTwoBits) {
    Block b(Hex("F0 0F FF 7F 81"));
    EXPECT_EQ(CBitArray::GetBitsValue(b.data, 4, 8), 0xFF);
    EXPECT_EQ(CBitArray::GetBitsValue(b.data, 3, 3), 6);
    EXPECT_EQ(CBitArray::GetBitsValue(b.data, 8, 40), static_cast<int>(0x817FFF0FU));  // cut to 32
    EXPECT_EQ(CBitArray::GetBitsValue(b.data, 0, 32), 0x7FFF0FF0);
    EXPECT_EQ(CBitArray::GetBitsValue(b.data, -1, 8), 0);
    EXPECT_EQ(CBitArray::GetBitsValue(b.data, 0, 0), 0);
}

TEST(BitArrayRawBuffers, StaticSetAtCopiesBitsOneByOneInRisingOrder) {
    Bytes source = Hex("A5 5A A5 5A A5 5A A5 5A A5 5A"), target(12, 0xFF);
    CBitArray::SetAt(source.data(), 3, target.data(), 11, 70);
    for (int i = 0; i < 96; ++i) {
        bool inside = i >= 11 && i < 81;
        bool expected = inside ? (source[(i - 8) / 8] >> ((i - 8) & 7) & 1) : true;
        ASSERT_EQ(static_cast<bool>(target[i / 8] >> (i & 7) & 1), expected) << i;
    }
    Bytes smear = Hex("01 00");  // an overlapping copy upward repeats the first bit
    CBitArray::SetAt(smear.data(), 0, smear.data(), 1, 12);
    EXPECT_EQ(smear, Hex("FF 1F"));
    Bytes down = Hex("00 F0");
    CBitArray::SetAt(down.data(), 8, down.data(), 4, 8);
    EXPECT_EQ(down, Hex("00 FF"));
}

// ---- Ranks and lists --------------------------------------------------------------------------

TEST(BitArrayIndex, RanksAndBitsOfASmallSet) {
    CBitArray a = BitsOf({3, 9});
    EXPECT_EQ(a.GetIndexBit(0), 3);
    EXPECT_EQ(a.GetIndexBit(1), 9);
    EXPECT_EQ(a.GetIndexBit(2), -1);
    EXPECT_EQ(a.GetIndexBit(-1), -1);
    struct {
        int bit, rank, actual;
    } cases[] = {{3, 0, 3}, {9, 1, 9}, {5, 0, 3}, {2, -1, -1}, {100, 1, 9}};
    for (auto c : cases) {
        EXPECT_EQ(a.GetBitIndex(c.bit), c.rank) << c.bit;
        EXPECT_EQ(a.GetActualBit(c.bit), c.actual) << c.bit;
    }
    EXPECT_EQ(a.GetHeadBit(), 3);
    EXPECT_EQ(a.GetTailBit(), 9);
    EXPECT_EQ(CBitArray().GetHeadBit(), -1);
    EXPECT_EQ(Plain(Hex("00 00")).GetTailBit(), -1);
}

// The rank table is a protected part of the class: its step and size are the contract.
struct IndexedArray : CBitArray {
    int Step() const { return m_nIndexStep; }
    int Entries() const { return m_nIndexEntries; }
};

TEST(BitArrayIndex, SampledIndexAnswersAsAFullWalk) {
    std::mt19937 random(3);
    // count -> step, entries: the table never holds more than 10240 entries.
    const std::pair<int, int> table[] = {{1, 10239}, {2, 5120}, {3, 10001}};
    int row = 0;
    for (int count : {10239, 10240, 30001}) {
        IndexedArray a;
        std::vector<int> bits;
        for (int bit = 0; static_cast<int>(bits.size()) < count;
             bit += 1 + static_cast<int>(random() % 70)) {
            a.SetAt(bit);
            bits.push_back(bit);
        }
        ASSERT_EQ(a.GetCount(), count);
        for (int rank = 0; rank < count;
             rank += rank < count - 50 ? 1 + static_cast<int>(random() % 5) : 1)
            ASSERT_EQ(a.GetIndexBit(rank), bits[rank]) << count << " rank " << rank;
        for (int probe = 0; probe < 2000; ++probe) {
            int bit = static_cast<int>(random() % static_cast<unsigned>(bits.back() + 100));
            int rank =
                static_cast<int>(std::upper_bound(bits.begin(), bits.end(), bit) - bits.begin()) -
                1;
            ASSERT_EQ(a.GetBitIndex(bit), rank) << bit;
            ASSERT_EQ(a.GetActualBit(bit), rank < 0 ? -1 : bits[rank]);
        }
        EXPECT_EQ(a.GetTailBit(), bits.back());
        EXPECT_EQ(a.Step(), table[row].first) << count;
        EXPECT_EQ(a.Entries(), table[row].second) << count;
        ++row;
    }
}

TEST(BitArrayIndex, ChangesAndCopiesKeepCountAndRanksTrue) {
    CBitArray a = BitsOf({1, 5, 9});
    EXPECT_EQ(a.GetIndexBit(2), 9);
    CBitArray copy(a);
    EXPECT_EQ(copy.GetIndexBit(1), 5);
    copy.ResetAt(5);
    copy.SetAt(30);
    EXPECT_EQ(copy.GetCount(), 3);
    EXPECT_EQ(copy.GetIndexBit(1), 9);
    EXPECT_EQ(copy.GetBitIndex(30), 2);
    a.SetLength(1);
    EXPECT_EQ(a.GetCount(), 2);
    EXPECT_EQ(a.GetIndexBit(2), -1);
    CBitArray packed = BitsOf({0, 9});
    packed.Compress();
    EXPECT_EQ(packed.GetCount(), 3);  // the bits of 01 01 02, as every plain operation reads them
    packed.Decompress();
    EXPECT_EQ(packed.GetCount(), 2);
}

TEST(BitArrayLists, Bmp2ArrayGivesTheSetBitsOrNothing) {
    CBitArray a = BitsOf({0, 63, 64, 700});
    int* ints = nullptr;
    unsigned short* shorts = nullptr;
    ASSERT_EQ(a.Bmp2Array(ints), 4);
    EXPECT_EQ(std::vector<int>(ints, ints + 4), (std::vector<int>{0, 63, 64, 700}));
    delete[] ints;
    ASSERT_EQ(a.Bmp2Array(shorts), 4);
    EXPECT_EQ(shorts[3], 700);
    delete[] shorts;
    CDWordArray list;
    list.Add(99);
    EXPECT_EQ(a.Bmp2Array(list), 4);
    EXPECT_EQ(list.GetSize(), 4);
    EXPECT_EQ(list[1], 63u);
    CBitArray clear = Plain(Hex("00 00"));
    int sentinel = 0;
    int* untouched = &sentinel;
    EXPECT_EQ(clear.Bmp2Array(untouched), 0);
    EXPECT_EQ(untouched, &sentinel);
    EXPECT_EQ(clear.Bmp2Array(list), 0);
    EXPECT_EQ(list.GetSize(), 4);
}

TEST(BitArrayLists, Array2BmpSetsEveryElementInAnyOrder) {
    CDWordArray list;
    for (DWORD v : {40u, 3u, 40u, 0x80000000u, 9u}) list.Add(v);
    CBitArray a = BitsOf({100});
    a.Array2Bmp(list);
    EXPECT_EQ(SetBits(a), (std::vector<int>{3, 9, 40}));
    EXPECT_EQ(a.GetLength(), 6);
    CBitArray packed(true);
    packed.Array2Bmp(list);
    EXPECT_TRUE(packed.IsCompressed());
    EXPECT_TRUE(packed.GetAt(40));
    a.Array2Bmp(CDWordArray());
    EXPECT_EQ(a.GetLength(), 0);
}

TEST(BitArrayLists, Append2ArrayAndRange2ArrayExtendAList) {
    CBitArray a = BitsOf({2, 70});
    CDWordArray list;
    EXPECT_EQ(a.Append2Array(list), 2);
    a.SetAt(71);
    a.SetAt(200);
    EXPECT_EQ(a.Append2Array(list), 2);
    EXPECT_EQ(list.GetSize(), 4);
    EXPECT_EQ(list[3], 200u);
    EXPECT_EQ(a.Append2Array(list), 4);  // complete: its size, not 0
    EXPECT_EQ(CBitArray().Append2Array(list), 0);

    CBitArray ff = Plain(Hex("FF"));
    CDWordArray range;
    range.Add(77);
    EXPECT_EQ(ff.Range2Array(3, 5, range), 3);
    EXPECT_EQ(range.GetSize(), 4);
    EXPECT_EQ(range[0], 77u);
    EXPECT_EQ(range[3], 5u);
    EXPECT_EQ(ff.Range2Array(8, 20, range), 0);
    EXPECT_EQ(a.Range2Array(60, 1000, range), 3);
    EXPECT_EQ(range[6], 200u);
}

// ---- The fast codec against the item walker and the sorted-bits builder -----------------

namespace {
// Plain bitmaps of the shapes the codec meets: sparse, mixed, dense, long runs of both
// values (past 65535 bytes), and isolated 0x00 and 0xFF bytes among literals.
Bytes RandomPlain(std::mt19937& rng) {
    Bytes out(1 + rng() % 200000, 0);
    int shape = static_cast<int>(rng() % 5);
    for (std::size_t i = 0; i < out.size();) {
        std::size_t stretch = 1 + rng() % (shape == 3 ? 90000 : 300);
        int kind = static_cast<int>(rng() % 4);
        for (std::size_t k = 0; k < stretch && i < out.size(); ++k, ++i) {
            if (shape == 0)
                out[i] = rng() % 50 == 0 ? static_cast<unsigned char>(1u << (rng() % 8)) : 0;
            if (shape == 1 || shape == 4) out[i] = static_cast<unsigned char>(rng());
            if (shape == 2 || shape == 3)
                out[i] = kind == 0 ? 0 : kind == 1 ? 0xFF : static_cast<unsigned char>(rng());
        }
    }
    return out;
}
}  // namespace

TEST(CompressedForm, EncodesAndDecodesAsTheReferenceWritersDo) {
    std::mt19937 rng(21);
    for (int round = 0; round < 60; ++round) {
        Bytes plain = RandomPlain(rng);
        std::vector<unsigned> bits;
        for (std::size_t i = 0; i < plain.size(); ++i)
            for (int b = 0; b < 8; ++b)
                if (plain[i] >> b & 1) bits.push_back(static_cast<unsigned>(i * 8 + b));
        unsigned char* form = nullptr;
        int length = 0;
        CBitArray::Compress(plain.data(), static_cast<int>(plain.size()), form, length);
        Bytes expected = dorvik::form::EncodeSortedBits(bits);
        ASSERT_EQ(Bytes(form, form + length), expected) << "round " << round;
        // Back again, whole and cut at a limit: the plain item walker is the reference.
        for (int limit : {-1, 0, 1, static_cast<int>(rng() % (plain.size() + 1))}) {
            unsigned char* copy =
                static_cast<unsigned char*>(GrabBlock(static_cast<std::size_t>(length)));
            if (length) std::memcpy(copy, form, static_cast<std::size_t>(length));
            int n = length;
            CBitArray::Decompress(copy, n, limit);
            std::int64_t want = length
                                    ? dorvik::form::Expand(form, static_cast<std::size_t>(length),
                                                           1, limit, nullptr)
                                    : 0;
            Bytes reference(static_cast<std::size_t>(want));
            if (want)
                dorvik::form::Expand(form, static_cast<std::size_t>(length), 1, limit,
                                     reference.data());
            EXPECT_EQ(Bytes(copy, copy + n), reference) << "round " << round << " limit " << limit;
            DropBlock(copy);
        }
        DropBlock(form);
    }
}

TEST(CompressedForm, DecodesAnyByteStringAsTheItemWalkerDoes) {
    std::mt19937 rng(22);
    for (int round = 0; round < 200; ++round) {
        Bytes junk(1 + rng() % 200);
        for (auto& b : junk)
            b = rng() % 3 == 0 ? (rng() % 2 ? 0 : 0xFF) : static_cast<unsigned char>(rng());
        for (int limit : {-1, static_cast<int>(rng() % 100000)}) {
            unsigned char* copy = static_cast<unsigned char*>(GrabBlock(junk.size()));
            std::memcpy(copy, junk.data(), junk.size());
            int n = static_cast<int>(junk.size());
            CBitArray::Decompress(copy, n, limit);
            std::int64_t want = dorvik::form::Expand(junk.data(), junk.size(), 1, limit, nullptr);
            Bytes reference(static_cast<std::size_t>(want));
            if (want) dorvik::form::Expand(junk.data(), junk.size(), 1, limit, reference.data());
            EXPECT_EQ(Bytes(copy, copy + n), reference) << "round " << round;
            DropBlock(copy);
        }
    }
}

TEST(CompressedForm, MarkHeldBitsAnswersAsTheExpandedBytes) {
    std::mt19937 rng(23);
    for (int round = 0; round < 400; ++round) {
        // Forms as writers make them, and any byte string (runs cut short, counts of 0).
        Bytes form;
        if (round % 2 == 0) {
            const Bytes plain = RandomPlain(rng);
            unsigned char* packed = nullptr;
            int length = 0;
            CBitArray::Compress(plain.data(), static_cast<int>(plain.size()), packed, length);
            form.assign(packed, packed + length);
            DropBlock(packed);
        } else {
            form.resize(1 + rng() % 400);
            for (auto& b : form)
                b = rng() % 3 == 0 ? (rng() % 2 ? 0 : 0xFF) : static_cast<unsigned char>(rng() % 4);
        }
        const std::int64_t length =
            form.empty() ? 0 : dorvik::form::Expand(form.data(), form.size(), 1, -1, nullptr);
        Bytes plain(static_cast<std::size_t>(length));
        if (length) dorvik::form::Expand(form.data(), form.size(), 1, -1, plain.data());
        // Rising bits, dense or sparse, some past the end.
        std::vector<std::uint32_t> bits;
        const std::uint32_t span = static_cast<std::uint32_t>(length * 8 + 64);
        for (std::uint32_t b = rng() % 8; b < span; b += 1 + rng() % (round % 3 == 0 ? 4 : 90))
            bits.push_back(b);
        std::vector<char> held(bits.size(), 0);
        dorvik::form::MarkHeldBits(form.data(), form.size(), bits, held.data());
        for (std::size_t i = 0; i < bits.size(); ++i) {
            const std::size_t byte = bits[i] / 8;
            const bool want = byte < plain.size() && (plain[byte] >> (bits[i] % 8) & 1);
            ASSERT_EQ(held[i] != 0, want) << "round " << round << " bit " << bits[i];
        }
    }
}
