// The compressed form of a bit array: encoder, decoder and in-place bit setter. Every
// size is computed before a block is taken, so a hostile string costs no more memory
// than its items expand to.
#include "bits/CompressedForm.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "bits/Words.h"
#include "dorvik/Exceptions.h"
#include "dorvik/Platform.h"
#include "frame/Block.h"

namespace dorvik::form {
namespace {
using bits::Bits;
using bits::Load;
using bits::TrimmedLength;
using bits::Word;
constexpr std::size_t kNone = SIZE_MAX;
constexpr Word kLow7 = 0x7F7F7F7F7F7F7F7FULL;

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

// A growing output block for the compressor. Growth is geometric, so that a source that
// expands (isolated 0x00 and 0xFF bytes triple) is not copied over and over.
class Packer {
public:
    explicit Packer(std::size_t size) : m_block(GrabOrThrow(size).release()), m_size(size) {}
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

// Expands the items of p[start..n) into `out` (or only counts when `out` is null) and
// returns the plain bytes. With `limit` 0 or above it stops after the item that reaches
// it; a literal stretch counts as one item per byte.
std::int64_t Expand(const unsigned char* p, std::size_t n, std::size_t start, std::int64_t limit,
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

int CountSetBits(const unsigned char* form, int length) {
    if (!form || length <= 1) return 0;
    long long count = 0;
    WalkItems(form, static_cast<std::size_t>(length), 1, [&](const Item& item) {
        if (!item.run) {
            for (std::size_t k = 0; k < item.plain; ++k)
                count += std::popcount(static_cast<unsigned>(form[item.pos + k]));
        } else if (item.value) {
            count += 8LL * static_cast<long long>(item.plain);
        }
        return true;
    });
    return count > INT_MAX ? INT_MAX : static_cast<int>(count);
}

bool TestBit(const unsigned char* buffer, int length, int bit) {
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

bool SetBit(unsigned char*& buffer, int& length, int bit) {
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

void Encode(const unsigned char* source, int length, unsigned char*& target, int& targetLength) {
    target = nullptr;
    targetLength = 0;
    std::size_t n =
        source && length > 0 ? static_cast<std::size_t>(TrimmedLength(source, length)) : 0;
    if (n == 0) return;
    Packer out(std::min(n, n / 4 + 4096));  // sparse forms are small; dense ones grow
    out.Put(&kMarker, 1);
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

// The compressed form of the plain bitmap whose set bits are `bits` (rising, each at
// most once), byte for byte what compressing that bitmap gives, built without it.
std::vector<unsigned char> EncodeSortedBits(const std::vector<unsigned>& bits) {
    std::vector<unsigned char> out;
    if (bits.empty()) return out;
    out.push_back(kMarker);
    long long done = 0;       // plain bytes written
    std::size_t fullRun = 0;  // where the 0xFF run that ends the form starts, or 0
    auto put = [&](unsigned byte, unsigned char value) {
        for (long long gap = byte - done; gap > 0;) {
            std::size_t count = static_cast<std::size_t>(
                gap < static_cast<long long>(kMaxRun) ? gap : static_cast<long long>(kMaxRun));
            out.insert(out.end(), {0x00, 0, 0});
            PutRunCount(&out[out.size() - 3], count);
            gap -= count;
            fullRun = 0;
        }
        done = static_cast<long long>(byte) + 1;
        if (value != 0xFF) {
            out.push_back(value);
            fullRun = 0;
            return;
        }
        std::size_t count = fullRun ? RunCount(&out[fullRun]) : kMaxRun;
        if (count < kMaxRun) {
            PutRunCount(&out[fullRun], count + 1);
            return;
        }
        fullRun = out.size();
        out.insert(out.end(), {0xFF, 1, 0});
    };
    unsigned byte = bits[0] / 8;
    unsigned char value = 0;
    for (unsigned bit : bits) {
        if (bit / 8 != byte) {
            put(byte, value);
            byte = bit / 8;
            value = 0;
        }
        value |= static_cast<unsigned char>(1u << (bit & 7));
    }
    put(byte, value);
    return out;
}

}  // namespace dorvik::form
