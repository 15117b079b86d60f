// The compressed form of CBitArray and the statics on raw plain buffers.
//
// Readers take any byte string: a run needs its three bytes inside the string, and a
// run cut short by the end is ignored, so no read passes `length`. Sizes are computed
// before allocating, so a hostile string costs no more memory than its items expand to.
#include <algorithm>
#include <bit>
#include <climits>
#include <cstdint>
#include <cstring>

#include "dorvik/BitArray.h"
#include "dorvik/Exceptions.h"

namespace {
using Word = std::uint64_t;
using Bits = std::int64_t;
constexpr std::size_t kMaxRun = 65535;
constexpr std::size_t kNone = SIZE_MAX;
constexpr Word kLow7 = 0x7F7F7F7F7F7F7F7FULL;

Word Load(const unsigned char* p) {
    Word w;
    std::memcpy(&w, p, sizeof w);
    return w;
}

// A high bit in every byte of `w` that is 0x00 or 0xFF, the bytes whose bits all equal
// their neighbours within the byte. Exact: no carry passes between bytes.
Word UniformBytes(Word w) {
    Word t = (w ^ (w >> 1)) & kLow7;
    return ~(t + kLow7) & ~kLow7;
}

// The place of the first byte of a word loaded from memory that has a bit in `flags`.
std::size_t FirstFlagged(Word flags) {
    if constexpr (std::endian::native == std::endian::little)
        return static_cast<std::size_t>(std::countr_zero(flags)) / 8;
    else
        return static_cast<std::size_t>(std::countl_zero(flags)) / 8;
}

// The number of leading bytes that can stand as literals (neither 0x00 nor 0xFF).
std::size_t LiteralSpan(const unsigned char* p, std::size_t n) {
    std::size_t i = 0;
    for (; i + 16 <= n; i += 16) {
        Word low = UniformBytes(Load(p + i)), high = UniformBytes(Load(p + i + 8));
        if (low) return i + FirstFlagged(low);
        if (high) return i + 8 + FirstFlagged(high);
    }
    for (; i + 8 <= n; i += 8)
        if (Word stops = UniformBytes(Load(p + i))) return i + FirstFlagged(stops);
    while (i < n && p[i] != 0 && p[i] != 0xFF) ++i;
    return i;
}

// The number of leading bytes equal to `value` (0x00 or 0xFF).
std::size_t RunSpan(const unsigned char* p, std::size_t n, unsigned char value) {
    Word pattern = value ? ~Word{0} : 0;
    std::size_t i = 0;
    for (; i + 8 <= n; i += 8) {
        if (Word other = Load(p + i) ^ pattern) return i + FirstFlagged(other);
    }
    while (i < n && p[i] == value) ++i;
    return i;
}

int TrimmedLength(const unsigned char* p, int length) {
    while (length >= 8 && Load(p + length - 8) == 0) length -= 8;
    while (length > 0 && p[length - 1] == 0) --length;
    return length;
}

std::size_t RunCount(const unsigned char* run) {
    return run[1] | static_cast<std::size_t>(run[2]) << 8;
}

void PutRunCount(unsigned char* run, std::size_t count) {
    run[1] = static_cast<unsigned char>(count);
    run[2] = static_cast<unsigned char>(count >> 8);
}

// One item of a compressed string: a stretch of literals (`plain` of them, one byte
// each) or one run (`plain` bytes of `value`).
struct Item {
    std::size_t pos;
    std::size_t plain;
    bool run;
    unsigned char value;
};

// Calls visit(item) for the items of p[pos..n) in order until it returns false.
template <typename Visit>
void WalkItems(const unsigned char* p, std::size_t n, std::size_t pos, Visit&& visit) {
    while (pos < n) {
        unsigned char b = p[pos];
        Item item{pos, 0, b == 0 || b == 0xFF, b};
        if (!item.run) {
            item.plain = LiteralSpan(p + pos, n - pos);
            pos += item.plain;
        } else {
            if (n - pos < 3) return;
            item.plain = RunCount(p + pos);
            pos += 3;
        }
        if (!visit(item)) return;
    }
}

// Expands the items of p[start..n) into `out` (or only counts when `out` is null) and
// returns the plain bytes. With `limit` 0 or above it stops after the item that reaches
// it; a literal stretch counts as one item per byte.
Bits Expand(const unsigned char* p, std::size_t n, std::size_t start, Bits limit,
            unsigned char* out) {
    Bits written = 0;
    WalkItems(p, n, start, [&](const Item& item) {
        if (limit >= 0 && written >= limit) return false;
        Bits plain = static_cast<Bits>(item.plain);
        if (!item.run && limit >= 0) plain = std::min(plain, limit - written);
        if (out && item.run && item.value)
            std::memset(out + written, 0xFF, static_cast<std::size_t>(plain));
        if (out && !item.run)
            std::memcpy(out + written, p + item.pos, static_cast<std::size_t>(plain));
        written += plain;
        return written <= INT_MAX;
    });
    return written;
}

// A growing output block for the compressor. Growth is geometric, so that a source that
// expands (isolated 0x00 and 0xFF bytes triple) is not copied over and over.
class Packer {
public:
    explicit Packer(std::size_t size)
        : m_block(static_cast<unsigned char*>(GrabBlock(size))), m_size(size) {
        if (!m_block) throw CMemoryException();
    }
    ~Packer() { DropBlock(m_block); }
    Packer(const Packer&) = delete;
    Packer& operator=(const Packer&) = delete;

    void Put(const unsigned char* bytes, std::size_t n) {
        Reserve(n);
        std::memcpy(m_block + m_length, bytes, n);
        m_length += n;
    }
    void PutRun(unsigned char value, std::size_t count) {
        unsigned char run[3] = {value, 0, 0};
        PutRunCount(run, count);
        Put(run, 3);
    }
    void Release(unsigned char*& block, int& length) {
        if (m_length > INT_MAX) throw CMemoryException();
        block = m_block;
        length = static_cast<int>(m_length);
        m_block = nullptr;
    }

private:
    void Reserve(std::size_t n) {
        if (m_length + n <= m_size) return;
        std::size_t size = std::max(m_length + n, m_size + m_size / 2 + 1024);
        m_block = static_cast<unsigned char*>(RegrowBlock(m_block, size));
        m_size = size;
    }

    unsigned char* m_block;
    std::size_t m_size;
    std::size_t m_length = 0;
};

// Makes room for `count` bytes at `at` in a compressed string, growing it exactly.
void OpenGap(unsigned char*& buffer, int& length, std::size_t at, std::size_t count) {
    std::size_t n = static_cast<std::size_t>(length);
    if (n + count > INT_MAX) throw CMemoryException();
    buffer = static_cast<unsigned char*>(RegrowBlock(buffer, n + count));
    std::memmove(buffer + at + count, buffer + at, n - at);
    length = static_cast<int>(n + count);
}

// Removes `count` bytes at `at`; the freed bytes at the end are zeroed, the block stays.
void CloseGap(unsigned char* buffer, int& length, std::size_t at, std::size_t count) {
    std::size_t n = static_cast<std::size_t>(length);
    std::memmove(buffer + at, buffer + at + count, n - at - count);
    std::memset(buffer + n - count, 0, count);
    length = static_cast<int>(n - count);
}

// The target byte lies at place `k` of the 0x00 run at `pos` with `count` bytes: the
// run gives up that byte to a literal holding `mask`. The gap is opened before anything
// is written, so that a failed growth leaves the string as it was.
void SplitZeroRun(unsigned char*& buffer, int& length, std::size_t pos, std::size_t count,
                  std::size_t k, unsigned char mask) {
    if (count == 1) {
        buffer[pos] = mask;
        CloseGap(buffer, length, pos + 1, 2);
    } else if (k == count - 1) {
        OpenGap(buffer, length, pos + 3, 1);
        PutRunCount(buffer + pos, count - 1);
        buffer[pos + 3] = mask;
    } else if (k > 0) {
        OpenGap(buffer, length, pos + 3, 4);
        PutRunCount(buffer + pos, k);
        buffer[pos + 3] = mask;
        buffer[pos + 4] = 0;
        PutRunCount(buffer + pos + 4, count - 1 - k);
    } else {
        OpenGap(buffer, length, pos, 1);
        buffer[pos] = mask;
        PutRunCount(buffer + pos + 1, count - 1);
    }
}

bool IsGrowableFFRun(const unsigned char* buffer, std::size_t n, std::size_t pos) {
    return pos != kNone && pos + 3 <= n && buffer[pos] == 0xFF && RunCount(buffer + pos) < kMaxRun;
}

// Sets `mask` in the literal at `at`. A literal that becomes 0xFF joins the 0xFF run
// before it (`before`, or kNone), else the one behind it, else becomes a run of 1.
bool SetInLiteral(unsigned char*& buffer, int& length, std::size_t at, std::size_t before,
                  unsigned char mask) {
    if (buffer[at] & mask) return false;
    unsigned char value = static_cast<unsigned char>(buffer[at] | mask);
    std::size_t n = static_cast<std::size_t>(length);
    if (value != 0xFF) {
        buffer[at] = value;
    } else if (IsGrowableFFRun(buffer, n, before)) {
        CloseGap(buffer, length, at, 1);
        PutRunCount(buffer + before, RunCount(buffer + before) + 1);
    } else if (IsGrowableFFRun(buffer, n, at + 1)) {
        CloseGap(buffer, length, at, 1);
        PutRunCount(buffer + at, RunCount(buffer + at) + 1);
    } else {
        OpenGap(buffer, length, at + 1, 2);
        buffer[at] = 0xFF;
        PutRunCount(buffer + at, 1);
    }
    return true;
}

// Appends zero runs for `gap` plain bytes and a literal holding `mask` at `end`, which
// is the end of the items; an empty string first gets its marker.
void AppendBit(unsigned char*& buffer, int& length, std::size_t end, Bits gap, unsigned char mask) {
    std::size_t runs = static_cast<std::size_t>((gap + kMaxRun - 1) / kMaxRun);
    std::size_t start = length == 0 ? 1 : end;
    std::size_t total = start + 3 * runs + 1;
    if (total > INT_MAX) throw CMemoryException();
    buffer = static_cast<unsigned char*>(RegrowBlock(buffer, total));
    buffer[0] = length == 0 ? 1 : buffer[0];
    unsigned char* out = buffer + start;
    for (std::size_t i = 0; i < runs; ++i, out += 3) {
        out[0] = 0;
        PutRunCount(out,
                    i + 1 < runs ? kMaxRun : static_cast<std::size_t>(gap) - kMaxRun * (runs - 1));
    }
    *out = mask;
    length = static_cast<int>(total);
}
}  // namespace

// ---- Members ---------------------------------------------------------------------------

void CBitArray::Compress() {
    if (m_bCompressed || m_nLength == 0) return;
    unsigned char* packed = nullptr;
    int packedLength = 0;
    Compress(m_pBuffer, m_nLength, packed, packedLength);
    FreeBuffer();
    m_pBuffer = packed;
    m_nLength = m_nCapacity = packedLength;
    m_bCompressed = true;
}

void CBitArray::Decompress() {
    if (!m_bCompressed || m_nLength == 0) return;
    Decompress(m_pBuffer, m_nLength, -1);
    m_nCapacity = m_nLength;
    m_bCompressed = false;
    // The count and index, if any were taken, described the compressed bytes.
    bool modified = m_bModified;
    SetModified();
    m_bModified = modified;
}

// ---- Statics on the compressed form ------------------------------------------------------

void CBitArray::Compress(const unsigned char* source, int length, unsigned char*& target,
                         int& targetLength) {
    target = nullptr;
    targetLength = 0;
    std::size_t n =
        source && length > 0 ? static_cast<std::size_t>(TrimmedLength(source, length)) : 0;
    if (n == 0) return;
    Packer out(std::min(n, n / 4 + 4096));  // sparse forms are small; dense ones grow
    const unsigned char marker = 1;
    out.Put(&marker, 1);
    for (std::size_t i = 0; i < n;) {
        unsigned char value = source[i];
        if (value != 0 && value != 0xFF) {
            std::size_t span = LiteralSpan(source + i, n - i);
            out.Put(source + i, span);
            i += span;
            continue;
        }
        std::size_t run = RunSpan(source + i, n - i, value);
        i += run;
        for (; run > kMaxRun; run -= kMaxRun) out.PutRun(value, kMaxRun);
        out.PutRun(value, run);
    }
    out.Release(target, targetLength);
}

void CBitArray::Decompress(unsigned char*& buffer, int& length, int limit) {
    if (!buffer || length <= 0) return;
    std::size_t n = static_cast<std::size_t>(length);
    Bits plain = Expand(buffer, n, 1, limit, nullptr);
    if (plain > INT_MAX) throw CMemoryException();
    unsigned char* out = nullptr;
    if (plain > 0) {
        out = static_cast<unsigned char*>(GrabBlock(static_cast<std::size_t>(plain)));
        if (!out) throw CMemoryException();
        Expand(buffer, n, 1, limit, out);
    }
    DropBlock(buffer);
    buffer = out;
    length = static_cast<int>(plain);
}

int CBitArray::DecompressLength(const unsigned char* buffer, int length) {
    if (!buffer || length <= 0) return 0;
    Bits plain = Expand(buffer, static_cast<std::size_t>(length), 0, -1, nullptr);
    return plain > INT_MAX ? -1 : static_cast<int>(plain);
}

bool CBitArray::GetAt(const unsigned char* buffer, int length, int bit) {
    if (!buffer || length <= 0 || bit < 0) return false;
    std::size_t target = static_cast<std::size_t>(bit >> 3), done = 0;
    bool result = false;
    WalkItems(buffer, static_cast<std::size_t>(length), 1, [&](const Item& item) {
        if (done + item.plain <= target) {
            done += item.plain;
            return true;
        }
        if (item.run)
            result = item.value == 0xFF;
        else
            result = buffer[item.pos + (target - done)] & (1u << (bit & 7));
        return false;
    });
    return result;
}

bool CBitArray::SetAt(unsigned char*& buffer, int& length, int bit) {
    if (bit < 0) return false;
    if (!buffer || length < 0) length = 0;
    std::size_t n = static_cast<std::size_t>(length), pos = 1, before = kNone;
    std::size_t target = static_cast<std::size_t>(bit >> 3), done = 0;
    unsigned char mask = static_cast<unsigned char>(1u << (bit & 7));
    while (pos < n) {
        unsigned char value = buffer[pos];
        if (value != 0 && value != 0xFF) {
            std::size_t span = LiteralSpan(buffer + pos, n - pos);
            if (done + span > target) {
                std::size_t at = pos + (target - done);
                return SetInLiteral(buffer, length, at, at == pos ? before : kNone, mask);
            }
            done += span;
            pos += span;
            before = kNone;
            continue;
        }
        if (n - pos < 3) break;  // a run cut short: the appended bytes take its place
        std::size_t count = RunCount(buffer + pos);
        if (done + count > target) {
            if (value == 0xFF) return false;
            SplitZeroRun(buffer, length, pos, count, target - done, mask);
            return true;
        }
        done += count;
        before = value == 0xFF ? pos : kNone;
        pos += 3;
    }
    AppendBit(buffer, length, std::min(pos, n), static_cast<Bits>(target - done), mask);
    return true;
}

// ---- Statics on plain buffers --------------------------------------------------------------

void CBitArray::Mem(Operation op, const unsigned char* source, int sourceLength,
                    unsigned char*& target, int& targetLength) {
    if (!source || sourceLength < 0) sourceLength = 0;
    if (!target || targetLength < 0) targetLength = 0;
    if (op == opAnd) {
        int n = std::min(sourceLength, targetLength);
        CombineBytes(opAnd, target, source, static_cast<std::size_t>(n));
        targetLength = n ? TrimmedLength(target, n) : 0;
        return;
    }
    if (targetLength < sourceLength) {
        std::size_t size = static_cast<std::size_t>(sourceLength);
        if (targetLength == 0) {
            unsigned char* block = static_cast<unsigned char*>(GrabBlock(size));
            if (!block) throw CMemoryException();
            target = block;
        } else {
            // The block may hold leftovers past the length (an earlier opAnd trims
            // without shrinking), which must not come back as set bits.
            target = static_cast<unsigned char*>(RegrowBlock(target, size));
            std::memset(target + targetLength, 0, size - static_cast<std::size_t>(targetLength));
        }
        targetLength = sourceLength;
    }
    if (op == opCopy || op == opOr || op == opXor)
        CombineBytes(op, target, source, static_cast<std::size_t>(sourceLength));
}

int CBitArray::BitsNot(unsigned char* buffer, int length, int bits) {
    if (!buffer || length <= 0 || bits <= 0) return 0;
    int needed = bits / 8 + (bits % 8 != 0);
    int n = std::min(needed, length);
    for (int i = 0; i < n; ++i) buffer[i] = static_cast<unsigned char>(~buffer[i]);
    if (n == needed && bits % 8)
        buffer[n - 1] &= static_cast<unsigned char>((1u << (bits % 8)) - 1);
    return n;
}

int CBitArray::GetBitsValue(const unsigned char* buffer, int from, int bits) {
    if (!buffer || from < 0 || bits <= 0) return 0;
    bits = std::min(bits, 32);
    const unsigned char* p = buffer + (from >> 3);
    int shift = from & 7;
    int bytes = (shift + bits + 7) / 8;
    Word w = 0;
    for (int i = 0; i < bytes; ++i) w |= static_cast<Word>(p[i]) << (8 * i);
    w = (w >> shift) & ((Word{1} << bits) - 1);
    return static_cast<int>(static_cast<std::uint32_t>(w));
}
