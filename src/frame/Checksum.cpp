#include "frame/Checksum.h"

#include <array>
#include <cstring>

#if defined(__x86_64__)
#include <nmmintrin.h>
#endif

#include "frame/Coding.h"

namespace dorvik {

namespace {

using Tables = std::array<std::array<std::uint32_t, 256>, 8>;

// tables[k][b]: the CRC of byte b followed by k zero bytes.
constexpr Tables MakeTables() {
    Tables t{};
    for (std::uint32_t b = 0; b < 256; ++b) {
        std::uint32_t c = b;
        for (int bit = 0; bit < 8; ++bit) c = (c >> 1) ^ (0x82F63B78u & (0u - (c & 1)));
        t[0][b] = c;
    }
    for (std::size_t k = 1; k < 8; ++k)
        for (std::size_t b = 0; b < 256; ++b)
            t[k][b] = (t[k - 1][b] >> 8) ^ t[0][t[k - 1][b] & 0xFF];
    return t;
}

constexpr Tables kTables = MakeTables();

#if defined(__x86_64__)
// The processor's own CRC-32C instruction, eight bytes a step, where it has one.
__attribute__((target("sse4.2"))) std::uint32_t AddByInstruction(std::uint32_t state,
                                                                 const unsigned char* p,
                                                                 std::size_t count) {
    std::uint64_t c = state;
    for (; count >= 8; count -= 8, p += 8) {
        std::uint64_t word;
        std::memcpy(&word, p, 8);
        c = _mm_crc32_u64(c, word);
    }
    auto c32 = static_cast<std::uint32_t>(c);
    for (; count > 0; --count, ++p) c32 = _mm_crc32_u8(c32, *p);
    return c32;
}

const bool kHasInstruction = __builtin_cpu_supports("sse4.2");
#endif

}  // namespace

void Crc32c::Add(const void* bytes, std::size_t count) {
    const unsigned char* p = static_cast<const unsigned char*>(bytes);
#if defined(__x86_64__)
    if (kHasInstruction) {
        m_state = AddByInstruction(m_state, p, count);
        return;
    }
#endif
    AddByTable(p, count);
}

void Crc32c::AddByTable(const void* bytes, std::size_t count) {
    const unsigned char* p = static_cast<const unsigned char*>(bytes);
    std::uint32_t c = m_state;
    for (; count >= 8; count -= 8, p += 8) {
        const std::uint32_t lo = DecodeFixed32(p) ^ c, hi = DecodeFixed32(p + 4);
        c = kTables[7][lo & 0xFF] ^ kTables[6][(lo >> 8) & 0xFF] ^ kTables[5][(lo >> 16) & 0xFF] ^
            kTables[4][lo >> 24] ^ kTables[3][hi & 0xFF] ^ kTables[2][(hi >> 8) & 0xFF] ^
            kTables[1][(hi >> 16) & 0xFF] ^ kTables[0][hi >> 24];
    }
    for (; count > 0; --count, ++p) c = (c >> 8) ^ kTables[0][(c ^ *p) & 0xFF];
    m_state = c;
}

}  // namespace dorvik
