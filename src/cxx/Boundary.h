// What every type of the modern face needs at its boundary with the engine: turning
// the engine's exceptions into dorvik::Error, checked numbers, open flags, and the
// Windows-1256 form of words.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "dorvik/BinFile.h"
#include "dorvik/BitArray.h"
#include "dorvik/BitsBinFile.h"
#include "dorvik/dorvik.hpp"

namespace dorvik::cxx {

// Rethrows the exception in flight as dorvik::Error: CFileException with its cause,
// path (`path` when it names none) and errno; CMemoryException and std::bad_alloc as
// out_of_memory; std::filesystem errors with their code. Error passes as it is, and so
// does anything else.
[[noreturn]] void Rethrow(const std::filesystem::path& path);

// Runs `work`, translating what it throws.
template <class Work>
decltype(auto) Guard(const std::filesystem::path& path, Work&& work) {
    try {
        return std::forward<Work>(work)();
    } catch (...) {
        Rethrow(path);
    }
}

// An Error whose what() is "<what the code says>[: detail][: path][ (strerror)]".
Error MakeError(ErrorCode code, std::string_view detail, const std::filesystem::path& path = {},
                int osError = 0);

// `number` as the engine's int; Error(out_of_range) above 2^31 - 1.
int ToInt(std::size_t number, std::string_view what);

// The CFile open flags of `options`; Error(invalid_argument) for read_only with
// another option.
unsigned OpenFlags(const OpenOptions& options, const std::filesystem::path& path);

// Opens `file` at `path` as `options` say; bulk switches safe mode off. Throws
// Error(invalid_file) for a file that holds no record file.
void OpenRecordFile(CBinFile& file, const std::filesystem::path& path, const OpenOptions& options);

// Error(closed) unless `open`; Error(access_denied) when `readOnly` and `change`.
void RequireOpen(bool open, const std::filesystem::path& path);
void RequireWritable(bool readOnly, const std::filesystem::path& path);

// The shared part of the types that hold one engine record file: `Holder` has the
// members `file` (a CBinFile or subclass) and `path`.
template <class Holder>
const std::filesystem::path& PathOf(const std::unique_ptr<Holder>& holder) noexcept {
    static const std::filesystem::path none;
    return holder ? holder->path : none;
}

// Closes the file; the holder goes either way.
template <class Holder>
void Close(std::unique_ptr<Holder>& holder) {
    if (!holder) return;
    std::unique_ptr<Holder> closing = std::move(holder);
    Guard(closing->path, [&] { closing->file.Close(); });
}

template <class Holder>
void Flush(const std::unique_ptr<Holder>& holder) {
    RequireOpen(holder != nullptr, {});
    Guard(holder->path, [&] { holder->file.Flush(); });
}

template <class Holder>
std::size_t RecordCount(const std::unique_ptr<Holder>& holder) {
    RequireOpen(holder != nullptr, {});
    return Guard(holder->path,
                 [&] { return static_cast<std::size_t>(holder->file.GetRecordCount()); });
}

// The Windows-1256 bytes of UTF-8 text. Invalid UTF-8 throws Error(bad_text); a
// character without a byte throws it too when `strict`, and gives nothing otherwise.
std::optional<std::string> Encode(std::string_view utf8, bool strict);

// The Windows-1256 form of a word or pattern. Error(bad_text) from to_cp1256; an empty
// text or one holding a NUL is Error(invalid_argument), naming it as `what`.
std::string EncodeWord(std::string_view utf8, std::string_view what);

// Appends the UTF-8 text of Windows-1256 bytes to `out`.
void AppendUtf8(std::string& out, std::string_view cp1256);

// One character of UTF-8 text: `length` bytes long (0: invalid UTF-8 there; -1: the
// text ends inside a sequence that could still be valid) and its Windows-1256 byte,
// -1 when it has none.
struct Char {
    int length;
    int byte;
};
// The Windows-1256 byte of each code point below U+0800 (-1: none).
const std::int16_t* LowCp1256Bytes();
// NextChar for the sequences of three and four bytes, and for invalid text.
Char NextLongChar(std::string_view utf8, std::size_t at);
// One- and two-byte sequences (ASCII, Arabic) are read in line: tokenising reads every
// character of the text through here.
inline Char NextChar(std::string_view utf8, std::size_t at) {
    static const std::int16_t* const low = LowCp1256Bytes();
    const auto lead = static_cast<unsigned char>(utf8[at]);
    if (lead < 0x80) return {1, low[lead]};
    if (lead >= 0xC2 && lead < 0xE0 && at + 1 < utf8.size()) {
        const auto next = static_cast<unsigned char>(utf8[at + 1]);
        if ((next & 0xC0) == 0x80) return {2, low[(lead & 0x1F) << 6 | (next & 0x3F)]};
    }
    return NextLongChar(utf8, at);
}

// The code point of the UTF-8 sequence at `at` and its length (0: invalid; -1: cut short
// by the end of the text), under the rules NextChar keeps.
struct Decoded {
    char32_t value;
    int length;
};
Decoded DecodeUtf8(std::string_view utf8, std::size_t at);
// The Windows-1256 byte of `c`; -1 when it has none.
int Cp1256Byte(char32_t c);
// True when a character of Windows-1256 byte `byte` (-1: none) ends a word for the
// diacritizer: a delimiter of the classic DiacritizeDelimiters, NUL, or no byte at all.
bool EndsWord(int byte);
// True for the byte of one of the eight marks the diacritizer restores.
bool IsMark(int byte);

// The longest bitmap whose bits all have numbers up to BitSet::max_bit: 2^28 bytes.
inline constexpr std::int64_t kMaxSetBytes = (std::int64_t{BitSet::max_bit} + 1) / 8;

// Error(invalid_file) naming `path` when a set read from it reaches past bit 2^31 - 1,
// which only a damaged file can give.
void CheckSetFromFile(const CBitArray& plain, const std::filesystem::path& path);

// Record `record` of `file` as a plain set. Error(invalid_file) naming `path` when the
// stored form would expand past bit 2^31 - 1, told before anything is expanded.
CBitArray ReadStoredSet(CBitsBinFile& file, int record, const std::filesystem::path& path);

// Text as the engine's writers take it; they only read the bytes.
inline unsigned char* Writable(const void* bytes) {
    return static_cast<unsigned char*>(const_cast<void*>(bytes));
}

}  // namespace dorvik::cxx

// The set that a BitSet holds: a plain (uncompressed) bit array.
struct dorvik::BitSet::Impl {
    CBitArray bits;
};
