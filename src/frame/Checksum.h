// CRC-32C (Castagnoli polynomial, reflected, initial and final value 0xFFFFFFFF), the
// checksum that files guard their own bytes with. Computed eight bytes at a step by the
// processor's CRC-32C instruction where it has one (x86-64 with SSE4.2), else from
// tables, about a byte per cycle.
#pragma once

#include <cstddef>
#include <cstdint>

namespace dorvik {

// A running CRC-32C: Add bytes in any pieces, Value gives the checksum of all of them
// so far. Value("123456789") is 0xE3069283.
class Crc32c {
public:
    void Add(const void* bytes, std::size_t count);
    std::uint32_t Value() const { return ~m_state; }
    // The same sum from the tables alone, whatever the processor has: Add's fallback,
    // open to a test.
    void AddByTable(const void* bytes, std::size_t count);

private:
    std::uint32_t m_state = 0xFFFFFFFF;
};

}  // namespace dorvik
