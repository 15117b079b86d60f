// Any bytes as a buffer to cut and as the delimiters, under every switch: each step
// makes progress, stays inside the buffer, and a finished scan leaves the buffer whole.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "FuzzUtil.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzedDataProvider in(data, size);
    CStringToken token;
    token.m_bDelimiters = in.ConsumeBool();
    token.m_bEmpty = in.ConsumeBool();
    token.m_bWholeDelimiter = in.ConsumeBool();
    const std::string first = in.ConsumeRandomLengthString(8);
    const std::string second = in.ConsumeRandomLengthString(8);
    const std::string what = in.ConsumeRandomLengthString(8);
    const std::string text = in.ConsumeRemainingBytesAsString();
    std::string buffer = text;  // zero bytes inside end the buffer early
    const std::string whole = buffer.c_str();
    const std::size_t limit = whole.size() + 2;
    std::size_t steps = 0;
    for (char* piece = token.GetFirst(buffer.data(), first.c_str()); piece;
         piece = token.GetNext(steps % 2 ? first.c_str() : second.c_str())) {
        if (piece < buffer.data() || piece > buffer.data() + whole.size()) std::abort();
        if (++steps > limit) std::abort();  // a step that made no progress
    }
    if (std::string(buffer.c_str()) != whole) std::abort();  // the scan ended but left a cut

    int count = 0;
    char** parts = nullptr;
    CStringToken::Split(text.c_str(), first.c_str(), count, parts);
    for (int i = 0; i < count; ++i) DropBlock(parts[i]);
    DropBlock(parts);
    for (bool exact : {false, true}) {
        const char* hit = CStringToken::Find(text.c_str(), second.c_str(), what.c_str(),
                                             first.empty() ? nullptr : first.c_str(), exact);
        if (hit && (hit < text.c_str() || hit > text.c_str() + whole.size())) std::abort();
    }
    return 0;
}
