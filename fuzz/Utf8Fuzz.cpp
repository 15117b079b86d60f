// Any bytes as UTF-8 text the way the tool reads it: in pieces cut anywhere. The
// normalizer and a diacritizer stream give the same result wherever the pieces end,
// the same as the whole text at once, or fail with bad_text for the same texts;
// conversion to Windows-1256 and back gives the text again.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "FuzzUtil.h"
#include "dorvik/corpus.hpp"
#include "dorvik/dorvik.hpp"

namespace {

// A diacritizer folder of a few forms, built once per process.
const dorvik::Diacritizer& Folder() {
    static const dorvik::Diacritizer diacritizer = [] {
        const std::string folder = ScratchPath("forms");
        dorvik::Diacritizer::Builder builder(folder);
        builder.add_text("كَتَبَ الوَلَدُ الدَّرْسَ، وَكَتَبَ ab 12 كُتُبٌ");
        builder.finish();
        return dorvik::Diacritizer(folder);
    }();
    return diacritizer;
}

// The pieces of `text` at the cut points, in order.
std::vector<std::string_view> Cut(std::string_view text, std::vector<std::size_t> cuts) {
    std::vector<std::string_view> pieces;
    std::size_t from = 0;
    for (std::size_t cut : cuts) {
        cut = std::min(std::max(cut, from), text.size());
        pieces.push_back(text.substr(from, cut - from));
        from = cut;
    }
    pieces.push_back(text.substr(from));
    return pieces;
}

// What `feed`/`finish` of a fresh `Streamer` make of the pieces; nothing on bad_text.
template <class Streamer>
std::optional<std::string> Stream(Streamer streamer, const std::vector<std::string_view>& pieces) {
    try {
        std::string out;
        for (std::string_view piece : pieces) out += streamer.feed(piece);
        return out + streamer.finish();
    } catch (const dorvik::Error& e) {
        if (e.code() != dorvik::ErrorCode::bad_text) std::abort();
        return std::nullopt;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzedDataProvider in(data, size);
    std::vector<std::size_t> cuts(in.ConsumeIntegralInRange<int>(0, 6));
    for (std::size_t& cut : cuts) cut = in.ConsumeIntegralInRange<std::size_t>(0, 256);
    const std::string text = in.ConsumeRemainingBytesAsString();
    const std::vector<std::string_view> pieces = Cut(text, cuts);

    const auto whole = Stream(dorvik::CorpusNormalizer{}, {text});
    if (Stream(dorvik::CorpusNormalizer{}, pieces) != whole) std::abort();

    const dorvik::Diacritizer& diacritizer = Folder();
    std::optional<std::string> once;
    try {
        once = diacritizer.diacritize(text);
        (void)dorvik::split_words(text);
    } catch (const dorvik::Error& e) {
        if (e.code() != dorvik::ErrorCode::bad_text) std::abort();
    }
    if (Stream(diacritizer.stream(), pieces) != once) std::abort();

    try {
        if (dorvik::from_cp1256(dorvik::to_cp1256(text)) != text) std::abort();
    } catch (const dorvik::Error& e) {
        if (e.code() != dorvik::ErrorCode::bad_text) std::abort();
    }
    return 0;
}
