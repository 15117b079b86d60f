// The compressed form of a bit array: encoder, decoder and in-place bit setter. Every
// size is computed before a block is taken, so a hostile string costs no more memory
// than its items expand to.
#include "bits/CompressedForm.h"

#include <algorithm>
#include <climits>
#include <cstring>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "bits/Words.h"
#include "dorvik/Exceptions.h"
#include "dorvik/Platform.h"
#include "frame/Block.h"

#define DORVIK_ALWAYS_INLINE inline __attribute__((always_inline))

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

bool IsLiteral(unsigned char b) { return b != 0 && b != 0xFF; }

// A bit for each of the 64 bytes at `p` that stops a stretch of literals (0x00 or
// 0xFF), bit i for byte i: the scans take 64 bytes a step.
DORVIK_ALWAYS_INLINE std::uint64_t StopMask64(const unsigned char* p) {
#if defined(__SSE2__)
    const __m128i zero = _mm_setzero_si128(), ones = _mm_set1_epi8(static_cast<char>(0xFF));
    std::uint64_t mask = 0;
    for (int k = 0; k < 4; ++k) {
        __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 16 * k));
        __m128i stops = _mm_or_si128(_mm_cmpeq_epi8(v, zero), _mm_cmpeq_epi8(v, ones));
        mask |= static_cast<std::uint64_t>(static_cast<unsigned>(_mm_movemask_epi8(stops)))
                << (16 * k);
    }
    return mask;
#else
    std::uint64_t mask = 0;
    for (int k = 0; k < 64; ++k) mask |= static_cast<std::uint64_t>(!IsLiteral(p[k])) << k;
    return mask;
#endif
}

// Copies the literals at the start of `from` (at most `n` bytes, at most `room` of
// them to `to`) and returns how many there were. Copies in steps of 64 bytes, so up
// to 63 bytes behind the stretch are written too: the caller overwrites them next.
DORVIK_ALWAYS_INLINE std::size_t CopyLiterals(unsigned char* to, const unsigned char* from,
                                              std::size_t n, std::size_t room) {
    std::size_t i = 0;
    while (i + 64 <= n && i + 64 <= room) {
        std::memcpy(to + i, from + i, 64);
        if (std::uint64_t stops = StopMask64(from + i))
            return i + static_cast<std::size_t>(std::countr_zero(stops));
        i += 64;
    }
    std::size_t last = std::min(n, room);
    while (i < last && IsLiteral(from[i])) {
        to[i] = from[i];
        ++i;
    }
    return i;
}

// A growing output block for the compressor. Its bytes are written before they are
// read, so it starts unfilled and large enough for a form that barely compresses; a
// source that expands (isolated 0x00 and 0xFF bytes triple) grows it geometrically.
// Released at its exact length.
class Packer {
public:
    explicit Packer(std::size_t size)
        : m_block(GrabUnfilledOrThrow(size).release()), m_size(size) {}
    ~Packer() { DropBlock(m_block); }
    Packer(const Packer&) = delete;
    Packer& operator=(const Packer&) = delete;

    // Room for `n` more bytes at End().
    void Reserve(std::size_t n) {
        if (m_length + n <= m_size) return;
        std::size_t size = std::max(m_length + n, m_size + m_size / 2 + 1024);
        m_block = static_cast<unsigned char*>(RegrowBlock(m_block, size));
        m_size = size;
    }
    unsigned char* End() { return m_block + m_length; }
    void Advance(std::size_t n) { m_length += n; }

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
    // Hands the block over; what lies unwritten behind the length is cleared, and
    // given back when it is much.
    void Release(unsigned char*& block, int& length) {
        if (m_length > INT_MAX) throw CMemoryException();
        if (m_size - m_length > m_size / 8)
            m_block = static_cast<unsigned char*>(RegrowBlock(m_block, m_length));
        else
            std::memset(m_block + m_length, 0, m_size - m_length);
        block = m_block;
        length = static_cast<int>(m_length);
        m_block = nullptr;
    }

private:
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

std::size_t LongLiteralSpan(const unsigned char* p, std::size_t n) {
    std::size_t i = 0;
    for (; i + 64 <= n; i += 64)
        if (std::uint64_t stops = StopMask64(p + i))
            return i + static_cast<std::size_t>(std::countr_zero(stops));
    for (; i + 8 <= n; i += 8)
        if (Word stops = UniformBytes(Load(p + i))) return i + FirstFlagged(stops);
    while (i < n && IsLiteral(p[i])) ++i;
    return i;
}

// Expands the items of p[start..n) into `out` (or only counts when `out` is null) and
// returns the plain bytes. With `limit` 0 or above it stops after the item that reaches
// it; a literal stretch counts as one item per byte.
std::int64_t Expand(const unsigned char* p, std::size_t n, std::size_t start, std::int64_t limit,
                    unsigned char* out) {
    if (limit < 0 && !out) {
        // Counting all of it, the common case, in a loop of its own.
        Bits total = 0;
        for (std::size_t i = start; i < n && total <= INT_MAX;) {
            if (IsLiteral(p[i])) {
                std::size_t span = LiteralSpan(p + i, n - i);
                total += static_cast<Bits>(span);
                i += span;
            } else if (n - i < 3) {
                break;
            } else {
                total += static_cast<Bits>(RunCount(p + i));
                i += 3;
            }
        }
        return total;
    }
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

std::size_t ExpandInto(const unsigned char* p, std::size_t n, std::size_t& i, unsigned char* out,
                       std::size_t o, std::size_t room) {
    while (i < n && o < room) {
        unsigned char value = p[i];
        if (IsLiteral(value)) {
            std::size_t span = CopyLiterals(out + o, p + i, n - i, room - o);
            i += span;
            o += span;
            continue;
        }
        if (n - i < 3) break;
        std::size_t count = RunCount(p + i);
        if (count > room - o) break;
        if (count <= 32 && room - o >= 32) {
            std::memset(out + o, value, 32);  // one store; the bytes behind are overwritten next
        } else {
            std::memset(out + o, value, count);
        }
        o += count;
        i += 3;
    }
    return o;
}

Block<> Decode(const unsigned char* p, std::size_t n, int& plainLength) {
    plainLength = 0;
    // A dense form is about as long as its plain bytes: the first guess takes it in
    // one pass. A sparse one overflows the guess early; the rest is counted then.
    std::size_t room = std::min<std::size_t>(n + n / 8 + 64, INT_MAX);
    Block<> out = GrabUnfilledOrThrow(room);
    std::size_t i = 1;
    std::size_t o = ExpandInto(p, n, i, out.get(), 0, room);
    if (i < n) {
        std::int64_t rest = Expand(p, n, i, -1, nullptr);
        if (static_cast<std::int64_t>(o) + rest > INT_MAX) throw CMemoryException();
        if (rest > 0) {
            room = o + static_cast<std::size_t>(rest);
            Block<> larger = GrabUnfilledOrThrow(room);
            std::memcpy(larger.get(), out.get(), o);
            out = std::move(larger);
            o = ExpandInto(p, n, i, out.get(), o, room);
        }
    }
    if (o == 0) return {};
    plainLength = static_cast<int>(o);
    if (room - o > room / 8) {
        // The shrink gives back (and clears) the unused end.
        return Block<>(static_cast<unsigned char*>(RegrowBlock(out.release(), o)));
    }
    std::memset(out.get() + o, 0, room - o);  // unused bytes of a block read 0
    return out;
}

namespace {
// Walks the items of one whole form for an intersection: the current item covers the
// plain bytes [start, end) and is a 0x00 run, a 0xFF run or a stretch of literals.
struct ItemCursor {
    const unsigned char* p;
    std::size_t n;
    std::size_t pos = 1;
    Bits start = 0, end = 0;
    unsigned char kind = 0;  // 0x00, 0xFF, or 1 for literals
    const unsigned char* literals = nullptr;

    // Moves to the first item that is no zero run and ends above `at`; false at the end
    // of the form. The zero runs of a sparse form pass in this loop, a few steps each.
    bool SeekNonZero(Bits at) {
        while (end <= at || kind == 0)
            if (!Next()) return false;
        return true;
    }

    // Moves to the next item that covers a byte; false at the end of the form.
    bool Next() {
        for (;;) {
            start = end;
            if (pos >= n) return false;
            unsigned char b = p[pos];
            if (IsLiteral(b)) {
                std::size_t span = LiteralSpan(p + pos, n - pos);
                kind = 1;
                literals = p + pos;
                pos += span;
                end = start + static_cast<Bits>(span);
                return true;
            }
            if (n - pos < 3) return false;  // a run cut short by the end is no run
            kind = b;
            end = start + static_cast<Bits>(RunCount(p + pos));
            pos += 3;
            if (end > start) return true;
        }
    }
};

// The result block of an intersection. It is taken, zero-filled, at the first byte
// that the forms share, and only shared stretches are written: the pages of a large
// fresh block that no shared stretch reaches are never touched.
class AndWriter {
public:
    explicit AndWriter(Bits room) : m_room(room) {}

    unsigned char* At(Bits pos) {
        if (!m_block) m_block = GrabOrThrow(static_cast<std::size_t>(m_room));
        return m_block.get() + pos;
    }
    // `last` is one past the last byte written that is not 0.
    void Wrote(Bits last) {
        if (last > m_trimmed) m_trimmed = last;
    }
    Block<> Finish(int& length) {
        length = static_cast<int>(m_trimmed);
        if (m_trimmed == 0) return {};
        // The shrink gives back (and clears) what lay behind the last set byte.
        unsigned char* block = m_block.release();
        return Block<>(
            static_cast<unsigned char*>(RegrowBlock(block, static_cast<std::size_t>(m_trimmed))));
    }

private:
    Bits m_room;
    Block<> m_block;
    Bits m_trimmed = 0;
};

void AndInto(unsigned char* out, const unsigned char* a, const unsigned char* b, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) out[i] = static_cast<unsigned char>(a[i] & b[i]);
}

// The AND of the forms when the first is dense: the first expanded into the result,
// each other ANDed into it in place, item by item, and the result cut where a form ends.
Block<> AndIntoExpanded(const FormSpan* forms, std::size_t count, Bits room, int& length) {
    Block<> out = GrabUnfilledOrThrow(static_cast<std::size_t>(room));
    std::size_t at = 1;
    std::size_t kept = ExpandInto(forms[0].bytes, forms[0].length, at, out.get(), 0,
                                  static_cast<std::size_t>(room));
    unsigned char* bytes = out.get();
    for (std::size_t k = 1; k < count && kept > 0; ++k) {
        ItemCursor c{forms[k].bytes, forms[k].length};
        while (c.Next()) {
            std::size_t from = static_cast<std::size_t>(c.start);
            if (from >= kept) break;
            std::size_t to = std::min(static_cast<std::size_t>(c.end), kept);
            if (c.kind == 0)
                std::memset(bytes + from, 0, to - from);
            else if (c.kind == 1)
                AndInto(bytes + from, bytes + from, c.literals, to - from);
        }
        kept = std::min(kept, static_cast<std::size_t>(c.end));  // nothing of it lies beyond
    }
    while (kept > 0 && bytes[kept - 1] == 0) --kept;
    length = static_cast<int>(kept);
    if (kept == 0) return {};
    if (static_cast<std::size_t>(room) - kept > static_cast<std::size_t>(room) / 8)
        return Block<>(static_cast<unsigned char*>(RegrowBlock(out.release(), kept)));
    std::memset(bytes + kept, 0, static_cast<std::size_t>(room) - kept);  // unused bytes read 0
    return out;
}
}  // namespace

Block<> IntersectForms(const FormSpan* forms, std::size_t count, std::int64_t limit, int& length) {
    length = 0;
    if (count == 0) return {};
    // Nothing beyond the first form's expansion survives; it is counted as its own
    // expansion would count it, limit and overflow included.
    Bits room = Expand(forms[0].bytes, forms[0].length, 1, limit, nullptr);
    if (room > INT_MAX) throw CMemoryException();
    if (room == 0) return {};
    for (std::size_t k = 0; k < count; ++k)
        if (!forms[k].bytes || forms[k].length <= 1) return {};
    // A dense first form (mostly literals) is expanded, and the others are ANDed into it
    // item by item; otherwise the forms are merged and zero runs skip.
    if (static_cast<Bits>(forms[0].length) * 2 > room)
        return AndIntoExpanded(forms, count, room, length);
    std::vector<ItemCursor> cursors;
    cursors.reserve(count);
    for (std::size_t k = 0; k < count; ++k) {
        cursors.push_back(ItemCursor{forms[k].bytes, forms[k].length});
        if (!forms[k].bytes || !cursors.back().Next()) return {};
    }
    std::vector<const unsigned char*> literals(count);
    AndWriter out(room);
    Bits pos = 0;
    while (pos < room) {
        // Leapfrog: each form moves to its first non-zero item that ends above pos, and
        // pos moves up to where that item starts, until all forms agree on pos.
        bool agreed;
        do {
            agreed = true;
            for (ItemCursor& c : cursors) {
                if (!c.SeekNonZero(pos)) return out.Finish(length);
                if (c.start > pos) {
                    pos = c.start;
                    agreed = false;
                }
            }
        } while (!agreed);
        if (pos >= room) break;
        Bits stop = room;
        for (ItemCursor& c : cursors) stop = std::min(stop, c.end);
        std::size_t m = 0;
        for (ItemCursor& c : cursors)
            if (c.kind == 1) literals[m++] = c.literals + (pos - c.start);
        std::size_t n = static_cast<std::size_t>(stop - pos);
        unsigned char* dst = out.At(pos);
        Bits last = stop;
        if (m == 0) {
            std::memset(dst, 0xFF, n);
        } else if (m == 1) {
            std::memcpy(dst, literals[0], n);  // literals are never 0
        } else {
            AndInto(dst, literals[0], literals[1], n);
            for (std::size_t j = 2; j < m; ++j) AndInto(dst, dst, literals[j], n);
            std::size_t kept = n;
            while (kept > 0 && dst[kept - 1] == 0) --kept;
            last = pos + static_cast<Bits>(kept);
        }
        out.Wrote(last == pos ? 0 : last);
        pos = stop;
    }
    return out.Finish(length);
}

void MarkHeldBits(const unsigned char* p, std::size_t n, std::span<const std::uint32_t> bits,
                  char* held) {
    const std::size_t size = bits.size();
    if (size == 0) return;
    std::size_t pos = 1, done = 0, at = 0;  // done: the plain bytes before `pos`
    // The bit asked for now, as its plain byte (past the last one: none, the largest
    // number) and its place in that byte.
    std::size_t target = bits[0] / 8;
    unsigned shift = bits[0] & 7;
    auto next = [&] {
        const std::uint32_t bit = bits[at < size ? at : size - 1];
        target = at < size ? bit / 8 : SIZE_MAX;
        shift = bit & 7;
    };
    // Windows of 64 bytes that start on an item, while a run that starts in one can be
    // read whole. Each step takes a stretch of literals and the run behind it. The bits
    // asked for are about as many as the runs, so whether one lies in the step is a coin
    // toss for a branch predictor: the first one is taken without a branch, and only a
    // second in the same step takes the loop.
    while (pos + 66 <= n) {
        const unsigned char* w = p + pos;
        const std::uint64_t stops = StopMask64(w);
        std::size_t q = 0;
        while (q < 64) {
            const std::uint64_t ahead = stops >> q;
            const std::size_t literals =
                ahead ? static_cast<std::size_t>(std::countr_zero(ahead)) : 64 - q;
            const std::size_t r = q + literals;  // the run, when r < 64
            const unsigned char value = w[r];
            const std::size_t count = r < 64 ? RunCount(w + r) : 0;
            const std::size_t end = done + literals + count;
            auto take = [&] {
                const std::size_t k = target - done;
                const bool literal = k < literals;
                const unsigned bit = literal ? (w[q + (literal ? k : 0)] >> shift) & 1 : value != 0;
                const bool in = target < end;
                held[at < size ? at : size - 1] |= static_cast<char>(bit & in);
                at += in;
                next();
            };
            take();
            while (target < end) take();
            if (at >= size) return;
            done = end;
            q = r < 64 ? r + 3 : 64;
        }
        pos += q;
    }
    // The rest item by item; a run cut short by the end is no run.
    while (pos < n && at < size) {
        const unsigned char b = p[pos];
        const bool literal = IsLiteral(b);
        if (!literal && pos + 3 > n) return;
        const std::size_t plain = literal ? 1 : RunCount(p + pos);
        while (target < done + plain) {
            held[at] = static_cast<char>(held[at] | (literal ? (b >> shift) & 1 : b != 0));
            ++at;
            next();
        }
        done += plain;
        pos += literal ? 1 : 3;
    }
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
    // Dense random bytes grow by about 1/64 (a lone 0x00 or 0xFF takes three bytes);
    // pages a sparse form never reaches are never touched.
    Packer out(n + n / 32 + 64);
    out.Put(&kMarker, 1);
    for (std::size_t i = 0; i < n;) {
        unsigned char value = source[i];
        if (IsLiteral(value)) {
            out.Reserve(n - i < 64 ? n - i : 64 * 64);
            std::size_t span =
                CopyLiterals(out.End(), source + i, n - i, n - i < 64 ? n - i : 64 * 64);
            out.Advance(span);
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
std::vector<unsigned char> EncodeSortedBits(std::span<const unsigned> bits) {
    std::vector<unsigned char> out;
    if (bits.empty()) return out;
    // A sparse list takes a zero run and a literal per bit; a dense one about a byte per
    // eight bits: the smaller of the two, so a long list does not take four times its size.
    out.reserve(std::min<std::size_t>(bits.size() * 4, bits.back() / 8 + bits.back() / 64) + 8);
    out.push_back(kMarker);
    long long done = 0;       // plain bytes written
    std::size_t fullRun = 0;  // where the 0xFF run that ends the form starts, or 0
    auto put = [&](unsigned byte, unsigned char value) {
        for (long long gap = byte - done; gap > 0;) {
            std::size_t count = static_cast<std::size_t>(
                gap < static_cast<long long>(kMaxRun) ? gap : static_cast<long long>(kMaxRun));
            out.resize(out.size() + 3, 0x00);  // a zero run
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
