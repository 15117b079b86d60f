// manifest.json of a diacritizer folder or an index folder: what the folder was built
// from. The library never reads it; the tool writes it at build and index, and checks it
// when it opens a folder.
//
// The format: one JSON object with "format": "dorvik diacritizer folder" (or "dorvik
// index folder", which adds "unit" and "units") and an integer
// "version" (this tool writes and reads version 1). A reader takes the keys it knows
// and ignores all others, so later versions may add keys; a version above the one it
// knows means the meaning of known keys changed, and the folder is refused.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tool {

struct Manifest {
    static constexpr int kVersion = 1;

    struct Source {
        std::string name;  // as given: a path, or "standard input"
        std::uint64_t bytes = 0;
    };

    enum class Kind { diacritizer, index };

    Kind kind = Kind::diacritizer;
    int version = kVersion;
    std::string created;   // UTC, "2025-01-31T12:00:00Z"
    std::string encoding;  // of the sources: "utf-8" or "cp1256"
    std::vector<Source> sources;
    std::uint64_t tokens = 0;   // words counted
    std::uint64_t forms = 0;    // distinct marked forms
    std::uint64_t pairs = 0;    // distinct pairs of adjacent forms, in forms.pair ("pairs")
    std::uint64_t mapped = 0;   // characters mapped to another by the normalizer
    std::uint64_t dropped = 0;  // characters dropped by it, in all and by code point
    std::map<char32_t, std::uint64_t> dropped_by_character;
    std::string unit;         // index: "line", "paragraph" or "file"
    std::uint64_t units = 0;  // index: units numbered
};

// The manifest's JSON text.
std::string ToJson(const Manifest& manifest);
// The current time in the form of Manifest::created.
std::string UtcNow();

// The manifest of `folder`; empty when it has none. Throws Failure(kDataError) when it
// is no manifest of a folder of `kind` (not JSON, another format, no version) or of a
// newer version.
std::optional<Manifest> ReadManifest(const std::filesystem::path& folder,
                                     Manifest::Kind kind = Manifest::Kind::diacritizer);

}  // namespace tool
