// Any bytes as a wildcard pattern and as a buffer to diacritize.
#include <cstdint>
#include <string>

#include "FuzzUtil.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static FuzzDictionary files;
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
