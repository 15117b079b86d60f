// Helpers shared by the fuzz targets: input bytes as a block the library may own, and
// a scratch folder that lives as long as the process.
#pragma once

#include <stdlib.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <Dorvik01.h>

// A malloc copy of `bytes`, as a memory twin takes it over.
inline BYTE* MallocCopy(const std::vector<unsigned char>& bytes) {
    auto* block = static_cast<BYTE*>(std::malloc(bytes.empty() ? 1 : bytes.size()));
    if (!bytes.empty()) std::memcpy(block, bytes.data(), bytes.size());
    return block;
}

// "<scratch folder>/<name>", the folder made once per process.
inline std::string ScratchPath(const char* name) {
    static const std::string dir = [] {
        char pattern[] = "/tmp/dorvik-fuzz-XXXXXX";
        return std::string(mkdtemp(pattern));
    }();
    return dir + "/" + name;
}

// A small dictionary of forms, its wildcard index and its frequencies, made once per
// process in the scratch folder.
struct FuzzDictionary {
    std::string words = ScratchPath("w.bin");
    std::string index = ScratchPath("w.idx");
    std::string counts = ScratchPath("w.frq");
    FuzzDictionary() {
        CTextBinFile dictionary(words.c_str(), CFile::modeCreate | CFile::modeReadWrite);
        CIXFile frequencies(counts.c_str(), CFile::modeCreate | CFile::modeReadWrite, 4);
        const char* forms[] = {
            "\xDF\xF3\xCA\xF3\xC8\xF3", "\xDF\xF5\xCA\xF5\xC8\xF1", "ab", "a?b", "*", ""};
        int n = 0;
        for (const char* f : forms) {
            dictionary.Add(f);
            frequencies.Add(n++);
        }
        dictionary.IndexForWildCards(index.c_str(), DiacriticMarks, nullptr);
    }
};
