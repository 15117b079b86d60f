// An index folder, as dorvik index writes it and dorvik search reads it:
//   words.bin   the word forms of the text (a Dictionary, with words.sort and words.wild)
//   postings.bin  record t: the units where form t occurs (a PostingsFile)
//   units.bin   record u: the place of unit u, 16 bytes: file, line, byte offset and byte
//               length, each 4 bytes little-endian (files stay below 4 GiB)
//   files.bin   record f: the path of file f as given at indexing
//   tree.bin    which units belong to which file (a Tree): file f is the node of index f
//               on level 0, its units are its children on level 1, and unit u is the
//               node of index u there. Files are numbered in the order indexed, and a
//               file's units one after the other, so a file's units are a run.
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
    static constexpr std::string_view tree = "tree.bin";
};

// Where a unit lies.
struct Place {
    std::uint32_t file = 0, line = 0, offset = 0, length = 0;
};
std::string Encode(const Place& place);

// A source file of the index: its units first .. first + count - 1, and its path.
struct SourceFile {
    std::uint32_t first = 0, count = 0;
    std::string path;
};

// An index folder opened for reading (or for adding, when `writable`). Throws
// Failure(kDataError) naming the folder when it is no index (no or another manifest),
// naming the file when the units, the files and the tree disagree in number, and
// dorvik::Error when a file is missing or damaged.
struct Index {
    Index(const std::filesystem::path& folder, bool writable);

    // The place of unit `unit`. Throws Failure(kDataError) for a damaged record.
    Place PlaceOf(std::uint32_t unit);
    // The source files in order, their units taken from the tree.
    std::vector<SourceFile> Files();

    std::filesystem::path folder;
    Manifest manifest;
    dorvik::Dictionary words;
    dorvik::PostingsFile postings;
    dorvik::RecordFile units, files;
    dorvik::Tree tree;
};

}  // namespace tool
