// Any bytes as a file of tagged text: every piece lies inside the loaded text, the
// pieces end, and a copy taken halfway goes on by itself.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "FuzzUtil.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const std::string path = ScratchPath("page.htm");
    std::FILE* out = std::fopen(path.c_str(), "wb");
    if (!out) return 0;
    std::fwrite(data, 1, size, out);
    std::fclose(out);
    try {
        CHtmlText text;
        std::size_t pieces = 0;
        CHtmlText copy;
        for (char* piece = text.GetFirst(path.c_str()); piece; piece = text.GetNext()) {
            if (++pieces > size + 2) std::abort();  // a piece for no byte
            if (pieces == 2) copy = text;
        }
        for (char* piece = copy.GetNext(); piece; piece = copy.GetNext())
            if (--pieces == 0) std::abort();  // the copy handed out more than the original
    } catch (const CException&) {
        // The file could not be read.
    }
    return 0;
}
