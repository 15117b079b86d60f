// Any bytes as a wildcard pattern and as a buffer to diacritize.
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include <Dorvik01.h>

namespace {
struct Files {
    std::string dir, words, index, counts;
    Files() {
        char pattern[] = "/tmp/dorvik-fuzz-XXXXXX";
        dir = mkdtemp(pattern);
        words = dir + "/w.bin";
        index = dir + "/w.idx";
        counts = dir + "/w.frq";
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
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Files files;
    std::string text(reinterpret_cast<const char*>(data), size);
    text = text.c_str();  // up to the first zero byte, as a C string
    CTextBinFile dictionary(files.words.c_str(), CFile::shareDenyNone);
    CBitArray result;
    dictionary.Find(files.index.c_str(), text.c_str(), opEqual, DiacriticMarks, size % 2 == 0,
                    result);
    CString out;
    DiacritizeBuffer(text.data(), out, files.words.c_str(), files.index.c_str(),
                     files.counts.c_str());
    return 0;
}
