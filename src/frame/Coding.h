// Little-endian coding of the integers that file formats store, and the size limit that
// every file and every offset in it stays below. Every reader and writer of file bytes
// goes through here, so the formats come out the same on any host.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace dorvik {

// Files and memory files stay below 2 GiB: every offset passes through a signed 32-bit
// number (LONG), and so does every record table entry.
inline constexpr std::int64_t kMaxFileLength = 0x7FFFFFFF;

inline void EncodeFixed16(unsigned char* dst, std::uint16_t value) {
    dst[0] = static_cast<unsigned char>(value);
    dst[1] = static_cast<unsigned char>(value >> 8);
}

inline std::uint16_t DecodeFixed16(const unsigned char* src) {
    return static_cast<std::uint16_t>(src[0] | (src[1] << 8));
}

inline void EncodeFixed32(unsigned char* dst, std::uint32_t value) {
    if constexpr (std::endian::native == std::endian::little) {
        std::memcpy(dst, &value, 4);
    } else {
        for (int k = 0; k < 4; ++k) dst[k] = static_cast<unsigned char>(value >> (8 * k));
    }
}

inline std::uint32_t DecodeFixed32(const unsigned char* src) {
    std::uint32_t value;
    if constexpr (std::endian::native == std::endian::little) {
        std::memcpy(&value, src, 4);
    } else {
        value = src[0] | (src[1] << 8) | (static_cast<std::uint32_t>(src[2]) << 16) |
                (static_cast<std::uint32_t>(src[3]) << 24);
    }
    return value;
}

inline std::uint64_t DecodeFixed64(const unsigned char* src) {
    std::uint64_t value;
    std::memcpy(&value, src, 8);
    if constexpr (std::endian::native != std::endian::little) value = __builtin_bswap64(value);
    return value;
}

// The low `size` bytes (1 to 4) of `value`.
inline void EncodeFixed(unsigned char* dst, std::uint32_t value, int size) {
    for (int k = 0; k < size; ++k) dst[k] = static_cast<unsigned char>(value >> (8 * k));
}

// The unsigned number held in `size` bytes (1 to 4).
inline std::uint32_t DecodeFixed(const unsigned char* src, int size) {
    std::uint32_t value = 0;
    for (int k = 0; k < size; ++k) value |= static_cast<std::uint32_t>(src[k]) << (8 * k);
    return value;
}

// Turns `count` words just read from a file into host numbers, in place: nothing to do
// on a little-endian host.
inline void FixedToHost32(std::uint32_t* words, std::size_t count) {
    if constexpr (std::endian::native != std::endian::little) {
        for (std::size_t i = 0; i < count; ++i)
            words[i] = DecodeFixed32(reinterpret_cast<const unsigned char*>(words + i));
    }
}

// The stored form of `count` host numbers, into `dst`.
inline void EncodeFixed32Array(unsigned char* dst, const std::uint32_t* words, std::size_t count) {
    if constexpr (std::endian::native == std::endian::little) {
        std::memcpy(dst, words, count * 4);
    } else {
        for (std::size_t i = 0; i < count; ++i) EncodeFixed32(dst + 4 * i, words[i]);
    }
}

// Hands the stored form of `count` host numbers to write(bytes, byteCount): in one
// call straight from `words` on a little-endian host, else in encoded pieces.
template <class Write>
void WriteFixed32(const std::uint32_t* words, std::size_t count, Write write) {
    if constexpr (std::endian::native == std::endian::little) {
        if (count > 0) write(reinterpret_cast<const unsigned char*>(words), count * 4);
    } else {
        unsigned char piece[4096];
        for (std::size_t done = 0; done < count;) {
            std::size_t n = count - done < sizeof piece / 4 ? count - done : sizeof piece / 4;
            EncodeFixed32Array(piece, words + done, n);
            write(piece, n * 4);
            done += n;
        }
    }
}

}  // namespace dorvik
