// UTF-8 and Windows-1256. The character of each of the 256 bytes comes from glibc's
// iconv once, at the first conversion; from then on converting is a table look-up per
// character, needs no iconv handle per thread, and cannot fail half-way.
#include <iconv.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "cxx/Boundary.h"

namespace dorvik {
namespace cxx {
namespace {

struct Cp1256 {
    std::array<std::string, 256> utf8;                     // the UTF-8 of each byte
    std::vector<std::pair<char32_t, unsigned char>> back;  // code point -> byte, sorted
    // The byte of each code point below U+0800 (the one- and two-byte sequences, where
    // Arabic lies), -1 for none: tokenising looks up every character.
    std::array<std::int16_t, 0x800> low;

    Cp1256() {
        iconv_t cd = iconv_open("UTF-8", "CP1256");
        if (cd == reinterpret_cast<iconv_t>(-1))
            throw MakeError(ErrorCode::bad_text, "this system's iconv has no CP1256", {}, errno);
        for (int b = 0; b < 256; ++b) {
            char in = static_cast<char>(b), out[8] = {};
            char* from = &in;
            char* to = out;
            std::size_t left = 1, room = sizeof out;
            if (iconv(cd, &from, &left, &to, &room) != static_cast<std::size_t>(-1))
                utf8[static_cast<std::size_t>(b)].assign(out, to);
            // A byte without a character would read as U+FFFD; CP1256 defines all 256.
            if (utf8[static_cast<std::size_t>(b)].empty())
                utf8[static_cast<std::size_t>(b)] = "\xEF\xBF\xBD";
            else
                back.emplace_back(Decode(utf8[static_cast<std::size_t>(b)]),
                                  static_cast<unsigned char>(b));
        }
        iconv_close(cd);
        std::sort(back.begin(), back.end());
        low.fill(-1);
        for (auto [c, b] : back)
            if (c < low.size()) low[c] = b;
        for (std::size_t c = 0; c < 0x80; ++c) low[c] = static_cast<std::int16_t>(c);  // ASCII
    }

    static char32_t Decode(const std::string& s) {
        auto u = [&](std::size_t i) {
            return static_cast<char32_t>(static_cast<unsigned char>(s[i]));
        };
        if (s.size() == 1) return u(0);
        if (s.size() == 2) return (u(0) & 0x1F) << 6 | (u(1) & 0x3F);
        if (s.size() == 3) return (u(0) & 0x0F) << 12 | (u(1) & 0x3F) << 6 | (u(2) & 0x3F);
        return (u(0) & 0x07) << 18 | (u(1) & 0x3F) << 12 | (u(2) & 0x3F) << 6 | (u(3) & 0x3F);
    }

    int Byte(char32_t c) const {
        if (c < 0x80) return static_cast<int>(c);  // CP1256 is ASCII below 0x80
        if (c < low.size()) return low[c];
        auto at = std::lower_bound(back.begin(), back.end(),
                                   std::make_pair(c, static_cast<unsigned char>(0)));
        return (at != back.end() && at->first == c) ? at->second : -1;
    }
};

const Cp1256& Table() {
    static const Cp1256 table;
    return table;
}

// The code point of the UTF-8 sequence at `at` and its length (0: invalid; -1: cut
// short by the end of the text). Overlong forms, surrogates and values above U+10FFFF
// are invalid.
std::pair<char32_t, int> DecodeAt(std::string_view s, std::size_t at) {
    auto u = [&](std::size_t i) { return static_cast<unsigned char>(s[i]); };
    unsigned char lead = u(at);
    if (lead < 0x80) return {lead, 1};
    int length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 0;
    if (length == 0 || lead > 0xF4) return {0, 0};
    char32_t c = lead & (0x7F >> length);
    for (int k = 1; k < length; ++k) {
        if (at + static_cast<std::size_t>(k) >= s.size()) return {0, -1};
        unsigned char next = u(at + static_cast<std::size_t>(k));
        if ((next & 0xC0) != 0x80) return {0, 0};
        c = c << 6 | (next & 0x3F);
        // The second byte alone tells an overlong form or a surrogate: fail there.
        if (k == 1) {
            if ((length == 3 && c < 0x20) || (length == 4 && c < 0x10) ||
                (length == 3 && c >= 0x360 && c < 0x380) || (length == 4 && c >= 0x110))
                return {0, 0};
        }
    }
    if (length == 2 && c < 0x80) return {0, 0};
    return {c, length};
}

std::string CodePoint(char32_t c) {
    char text[16];
    std::snprintf(text, sizeof text, "U+%04X", static_cast<unsigned>(c));
    return text;
}
}  // namespace

Decoded DecodeUtf8(std::string_view utf8, std::size_t at) {
    auto [c, length] = DecodeAt(utf8, at);
    return {c, length};
}

int Cp1256Byte(char32_t c) { return Table().Byte(c); }

const std::int16_t* LowCp1256Bytes() { return Table().low.data(); }

Char NextLongChar(std::string_view utf8, std::size_t at) {
    auto [c, length] = DecodeAt(utf8, at);
    return {length, length > 0 ? Table().Byte(c) : -1};
}

void AppendUtf8(std::string& out, std::string_view cp1256) {
    const Cp1256& table = Table();
    for (char b : cp1256) {
        auto byte = static_cast<unsigned char>(b);
        if (byte < 0x80)
            out += b;
        else
            out += table.utf8[byte];
    }
}

std::string EncodeWord(std::string_view utf8, std::string_view what) {
    if (utf8.empty()) throw MakeError(ErrorCode::invalid_argument, std::string(what) + " is empty");
    if (utf8.find('\0') != std::string_view::npos)
        throw MakeError(ErrorCode::invalid_argument, std::string(what) + " holds a NUL");
    return to_cp1256(utf8);
}

std::optional<std::string> Encode(std::string_view utf8, bool strict) {
    const Cp1256& table = Table();
    std::string out;
    out.reserve(utf8.size());
    for (std::size_t at = 0; at < utf8.size();) {
        auto [c, length] = DecodeAt(utf8, at);
        if (length <= 0)
            throw MakeError(ErrorCode::bad_text, "invalid UTF-8 at byte " + std::to_string(at));
        int byte = table.Byte(c);
        if (byte < 0) {
            if (!strict) return std::nullopt;
            throw MakeError(ErrorCode::bad_text, CodePoint(c) + " at byte " + std::to_string(at) +
                                                     " has no Windows-1256 form");
        }
        out += static_cast<char>(byte);
        at += static_cast<std::size_t>(length);
    }
    return out;
}

}  // namespace cxx

std::string to_cp1256(std::string_view utf8) { return *cxx::Encode(utf8, true); }

void append_utf8(std::string& out, char32_t c) {
    if (c > 0x10FFFF || (c >= 0xD800 && c < 0xE000)) c = 0xFFFD;
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

std::string from_cp1256(std::string_view cp1256) {
    std::string out;
    out.reserve(cp1256.size() * 2);
    cxx::AppendUtf8(out, cp1256);
    return out;
}

}  // namespace dorvik
