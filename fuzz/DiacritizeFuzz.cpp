// Any bytes as a buffer to diacritize, over a dictionary whose files (forms, wildcard
// index, frequencies) are whole or damaged by the input: bytes overwritten and the file
// cut short. Damage gives words left as they are or an exception, never a fault.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

#include "FuzzUtil.h"

namespace {
std::vector<unsigned char> Load(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void Store(const std::string& path, const std::vector<unsigned char>& bytes) {
    std::FILE* out = std::fopen(path.c_str(), "wb");
    if (!out) return;
    std::fwrite(bytes.data(), 1, bytes.size(), out);
    std::fclose(out);
}

struct Originals {
    FuzzDictionary files;
    std::vector<unsigned char> bytes[3] = {Load(files.words), Load(files.index),
                                           Load(files.counts)};
};
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Originals originals;
    static const std::string paths[3] = {ScratchPath("d.bin"), ScratchPath("d.idx"),
                                         ScratchPath("d.frq")};
    FuzzedDataProvider in(data, size);
    for (int f = 0; f < 3; ++f) {
        std::vector<unsigned char> bytes = originals.bytes[f];
        const int edits = in.ConsumeIntegralInRange<int>(0, 4);
        for (int e = 0; e < edits && !bytes.empty(); ++e)
            bytes[in.ConsumeIntegralInRange<std::size_t>(0, bytes.size() - 1)] =
                in.ConsumeIntegral<unsigned char>();
        if (in.ConsumeBool()) bytes.resize(in.ConsumeIntegralInRange<std::size_t>(0, bytes.size()));
        Store(paths[f], bytes);
    }
    std::string text = in.ConsumeRemainingBytesAsString();
    text = text.c_str();  // up to the first zero byte, as a C string
    try {
        CString out;
        DiacritizeBuffer(text.data(), out, paths[0].c_str(), paths[1].c_str(), paths[2].c_str());
        CString word(text.c_str());
        DiacritizeWord(word, paths[0].c_str(), paths[1].c_str(), paths[2].c_str());
    } catch (const CException&) {
        // Files too damaged to open as a dictionary.
    }
    return 0;
}
