// Any bytes as a query over a fixed small index: parsing either succeeds or throws a
// QueryError pointing inside the text; an answer holds only units of the index, the
// Searcher gives the same answer (or refuses the same query), and a query and its
// negation split the units between them.
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "FuzzUtil.h"
#include "dorvik/dorvik.hpp"

namespace {

constexpr std::uint32_t kUnits = 7;

// Seven units of marked and bare words, indexed once per process.
struct FuzzIndex {
    std::string words = ScratchPath("q.bin");
    std::string postings = ScratchPath("q.post");
    FuzzIndex() {
        const char* units[kUnits] = {"كَتَبَ قلم",  "كُتُب ورق", "قلم ورق", "حبر",
                                     "كتاب قلم", "a-b ab?", ""};
        dorvik::Dictionary dictionary(words, {.create = true, .bulk = true});
        dorvik::PostingsFile file(postings, {.create = true});
        dorvik::Indexer indexer;
        for (std::uint32_t u = 0; u < kUnits; ++u)
            for (std::string_view word : dorvik::split_words(units[u]))
                indexer.add(dictionary.add(word).first, u);
        indexer.save(file);
    }
};

// The units of `query` through a Searcher; nothing when it refuses the query.
std::optional<std::vector<std::uint32_t>> Searched(const FuzzIndex& index,
                                                   const dorvik::Query& query) {
    try {
        dorvik::Dictionary words(index.words, {.read_only = true});
        dorvik::PostingsFile postings(index.postings, {.read_only = true});
        dorvik::Searcher searcher(words, postings, kUnits);
        return searcher.search(query);
    } catch (const dorvik::Error&) {
        return std::nullopt;
    }
}

// The units of `query`, or false when it cannot be parsed or answered.
bool Answer(const std::string& query, dorvik::BitSet& found) {
    static const FuzzIndex index;
    std::optional<dorvik::Query> parsed;
    try {
        parsed.emplace(query);
        (void)parsed->wanted();
        dorvik::Dictionary words(index.words, {.read_only = true});
        dorvik::PostingsFile postings(index.postings, {.read_only = true});
        found = parsed->evaluate(words, postings, kUnits);
        (void)parsed->wanted_forms(words);
    } catch (const dorvik::QueryError& e) {
        if (e.offset() > query.size()) std::abort();           // points past the text
        if (parsed && Searched(index, *parsed)) std::abort();  // the Searcher took it
        return false;
    } catch (const dorvik::Error&) {
        return false;
    }
    if (Searched(index, *parsed) != std::vector<std::uint32_t>(found.begin(), found.end()))
        std::abort();
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > 4096) return 0;
    const std::string text(reinterpret_cast<const char*>(data), size);
    dorvik::BitSet found;
    if (!Answer(text, found)) return 0;
    for (std::uint32_t unit : found)
        if (unit >= kUnits) std::abort();
    dorvik::BitSet others;
    if (!Answer("-(" + text + ")", others)) return 0;  // only too deep a nesting fails
    if ((found & others).count() != 0 || (found | others).count() != kUnits) std::abort();
    return 0;
}
