// Telling the engine's files apart and checking them, in namespace dorvik (included by
// <dorvik/dorvik.hpp>). The files carry no magic number, so the kind is read from the
// bytes, helped by the name where the bytes cannot tell.
//
// Threads: inspect() may run on several threads at once, on the same file too.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace dorvik {

// The kinds of file inspect() tells apart.
enum class FileKind {
    unknown,                 // no file of the engine (or a damaged one: see problem)
    record_file,             // records of any bytes (RecordFile)
    bit_record_file,         // records that are compressed bit sets (PostingsFile)
    nested_record_file,      // records that hold whole record files, `depth` levels deep
    nested_bit_record_file,  // nested, with compressed bit sets at the deepest level
    dictionary,              // records of text, one word each (Dictionary, forms.bin)
    wildcard_index,          // a dictionary's wildcard index (".wild")
    sorted_view,             // a dictionary's sorted view: 4-byte word ids (".sort")
    frequency_file,          // 4-byte frequencies of a dictionary's words (".freq")
    integer_file,            // integers of 1 to 4 bytes each, no header
};

// The kind's name as the tool prints it: "record file", "wildcard index", ...
__attribute__((visibility("default"))) std::string_view to_string(FileKind kind) noexcept;

// What inspect() found. Counts that do not apply to the kind stay 0.
struct FileSummary {
    // kind and valid: what the file is, and whether every check passed.
    FileKind kind = FileKind::unknown;
    bool valid = false;
    std::string problem;        // why the file is not valid; empty when it is
    std::uint64_t bytes = 0;    // the file's length
    std::uint64_t records = 0;  // records of the top level, or integers
    // Records of the top level that are empty.
    std::uint64_t empty_records = 0;
    std::uint64_t data_bytes = 0;  // bytes of all records of the top level
    std::uint64_t shortest = 0;    // the shortest and longest non-empty record (bytes)
    // The longest non-empty record (bytes).
    std::uint64_t longest = 0;
    std::uint64_t depth = 0;        // levels of record files inside records: 0 for flat
    std::uint64_t leaves = 0;       // records of the deepest level (nested files)
    std::uint64_t bit_sets = 0;     // non-empty bit sets (records or leaves)
    std::uint64_t set_bits = 0;     // bits set in all of them
    std::uint64_t fewest_bits = 0;  // per non-empty bit set
    // The most bits set in one bit set.
    std::uint64_t most_bits = 0;
    std::uint64_t highest_bit = 0;  // the highest bit set anywhere, when bit_sets > 0
    unsigned record_size = 0;       // integer files: bytes per integer
    std::int64_t smallest = 0;      // integer files: values (sorted views and
    std::int64_t largest = 0;       // frequency files too), when records > 0
};

// How inspect() reads a file.
struct InspectOptions {
    // A file that is no record file is taken as an integer file of this many bytes per
    // integer (1 to 4); 0: only when its name says so (".sort", ".freq": 4 bytes).
    unsigned record_size = 0;
};

// Says what the file at `path` is, checks it and sums it up. The kind comes from the
// bytes: a record file (a valid address table) whose non-empty records all hold record
// files is nested (up to 8 levels are looked into); records, or deepest records, that
// are all well-formed compressed bit sets make a bit file; records that are all text
// (no byte below 0x20 but tab) make a dictionary. A name ending in ".wild", ".sort" or
// ".freq" names the kind, and the bytes are then checked against it; so are the
// companions beside it: a sorted view must be a permutation of the dictionary's ids in
// the order of its words, a wildcard index and a frequency file may not speak of more
// words than the dictionary has (the dictionary is the file of the same name without
// the extension, or "forms.bin" beside a "forms.*" file).
//
// Valid means that the engine reads the file as its kind says. A file that is neither a
// record file nor an integer file by its name or `options` is of kind unknown, and not
// valid. Reads the file whole, once, and keeps at most one record, one nested file or
// the sorted view's dictionary in memory. Throws Error for what the OS reports
// (not_found, access_denied, ...) and Error(invalid_argument) for a folder or a
// record_size above 4; a damaged file is no error but an invalid summary.
__attribute__((visibility("default"))) FileSummary inspect(const std::filesystem::path& path,
                                                           InspectOptions options = {});

}  // namespace dorvik
