// An index folder, as dorvik index writes it and dorvik search reads it:
//   words.bin   the word forms of the text (a Dictionary, with words.sort and words.wild)
//   postings.bin  record t: the units where form t occurs (a PostingsFile)
//   units.bin   record u: the place of unit u, 16 bytes: file, line, byte offset and byte
//               length, each 4 bytes little-endian (files stay below 4 GiB)
//   files.bin   record f: the first unit of file f and its number of units (4 bytes
//               little-endian each), then its path as given at indexing. A file's units
//               are numbered one after the other, so a file is a range of units.
//   manifest.json  what the index was built from (Manifest, kind index)
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "Manifest.h"
#include "dorvik/dorvik.hpp"

namespace tool {

struct IndexFiles {
    static constexpr std::string_view words = "words.bin";
    static constexpr std::string_view postings = "postings.bin";
    static constexpr std::string_view units = "units.bin";
    static constexpr std::string_view files = "files.bin";
};

// Where a unit lies.
struct Place {
    std::uint32_t file = 0, line = 0, offset = 0, length = 0;
};
std::string Encode(const Place& place);

// A source file of the index.
struct SourceFile {
    std::uint32_t first = 0, count = 0;
    std::string path;
};
std::string Encode(const SourceFile& file);

// An index folder opened for reading (or for adding, when `writable`). Throws
// Failure(kDataError) naming the folder when it is no index (no or another manifest),
// and dorvik::Error when a file is missing or damaged.
struct Index {
    Index(const std::filesystem::path& folder, bool writable);

    // The place of unit `unit`. Throws Failure(kDataError) for a damaged record.
    Place PlaceOf(std::uint32_t unit);
    // The source files in order. Throws Failure(kDataError) for a damaged record.
    std::vector<SourceFile> Files();

    std::filesystem::path folder;
    Manifest manifest;
    dorvik::Dictionary words;
    dorvik::PostingsFile postings;
    dorvik::RecordFile units, files;
};

}  // namespace tool
