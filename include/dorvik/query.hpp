// Boolean word queries over an inverted index, in namespace dorvik (included by
// <dorvik/dorvik.hpp>): the text a person types ("كتب (قلم | ورق) -حبر"), parsed once and
// answered from a Dictionary of word forms and a PostingsFile whose record t holds the
// units (lines, paragraphs, files: any numbered pieces of text) where word t occurs.
//
// Threads: a Query is a value; const calls on one Query may run on several threads at
// once, each with its own Dictionary and PostingsFile.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace dorvik {

// A query that cannot be read or answered: Error(invalid_argument), or Error(bad_text)
// for a word that invalid UTF-8 or a character Windows-1256 cannot hold spoils. what()
// reads like "')' without '(' at character 7"; offset() is the byte offset in the query
// text of the place it points at (the query's length for "ends too early").
class __attribute__((visibility("default"))) QueryError : public Error {
public:
    // An error of `code` whose what() is `message`, pointing at byte `offset`.
    QueryError(ErrorCode code, const std::string& message, std::size_t offset);
    // The byte offset in the query text of the place the error points at.
    std::size_t offset() const noexcept { return offset_; }

private:
    std::size_t offset_;
};

// A parsed query. The syntax, in UTF-8:
//  - a word is a run of characters up to a blank, `|`, `(` or `)`; it is a pattern of
//    Dictionary::match_ids(): `?` and `*` as there, and marks optional (a bare word
//    finds every marked form of it, a mark written in the query must be there);
//  - words side by side must all occur in a unit (AND);
//  - `a | b` wants either (OR); AND binds tighter: "a b | c" is "(a b) | c";
//  - a `-` in front of a word or a parenthesis wants it absent (NOT); a `-` inside a
//    word is part of the word;
//  - parentheses group; nesting (parentheses and `-` together) deeper than 64 levels
//    is refused, so no query can exhaust the stack.
// A query of only NOTs ("-a") answers every unit without the word.
class __attribute__((visibility("default"))) Query {
public:
    // Parses `text`. Throws QueryError(invalid_argument) for an empty query, a `|` or
    // `-` with nothing to apply to, unbalanced parentheses, empty parentheses and too
    // deep nesting; the offset points at the culprit.
    explicit Query(std::string_view text);

    // The text given to the constructor.
    const std::string& text() const noexcept { return text_; }
    // The patterns of the words the query wants present (those under no NOT), in the
    // order written: what a result display would highlight.
    std::vector<std::string> wanted() const;

    // The units among 0 .. units - 1 that satisfy the query. Each word costs one
    // wildcard look-up in `words` and one union of the records of the forms it matches
    // ("*" alone reads every record); AND, OR and NOT are word-at-a-time over bitmaps of
    // at most units / 8 bytes. A unit past `units` in `postings` is never returned.
    // Throws QueryError(bad_text) naming the first word (in the order written) that
    // invalid UTF-8, a NUL or a character Windows-1256 cannot hold spoils, before
    // anything is read, and the Error of the files.
    BitSet evaluate(Dictionary& words, PostingsFile& postings, std::uint32_t units) const;

    // The ids of the forms in `words` that the wanted patterns match.
    BitSet wanted_forms(Dictionary& words) const;

private:
    friend class Searcher;
    // The parsed tree, defined by the implementation; shared by copies, never changed.
    struct Parsed;
    std::string text_;
    std::shared_ptr<const Parsed> parsed_;
};

// Answers queries over one index (a Dictionary of forms and the PostingsFile of their
// units) many times, faster than Query::evaluate() and with the same units.
//  - Word look-up: at construction every form is read once and kept, its marks removed,
//    in two sorted views (forwards and backwards). A pattern without marks and without
//    `?` that is a whole word, a prefix ("ab*") or a suffix ("*ab") is a binary search
//    in them; any other pattern goes through the wildcard index as match_ids() does.
//    (A dictionary holding a word of more than 1024 letters, which the wildcard index
//    only partly covers, takes the wildcard index for every pattern, so that both ways
//    agree.)
//  - Evaluation: a set of units stays a sorted list of unit numbers while it is small
//    (fewer than units / 32) and becomes a bitmap of units / 8 bytes only when it grows
//    past that, so a query of rare words never touches memory in proportion to `units`;
//    records are read in their stored form and never expanded beyond what they hold.
//    A short list against a long record (an AND of a rare and a common word) steps
//    through the record's runs only, its stretches of literals skipped 64 bytes at a
//    time: the cost follows the record's runs up to the last listed unit.
// Cost of construction: one read per form and a sort, about 30 ms for 100,000 forms;
// memory about 40 bytes per form.
//
// The Searcher keeps references to `words` and `postings`: they must stay open and
// unchanged while it is used. Threads: one at a time (the files' own rule), also for
// const calls.
class __attribute__((visibility("default"))) Searcher {
public:
    // Reads the forms of `words` into the views. Queries answer units 0 .. units - 1.
    // Throws the Error of the dictionary.
    Searcher(Dictionary& words, PostingsFile& postings, std::uint32_t units);

    // The units that satisfy `query`, rising: exactly the bits of
    // query.evaluate(words, postings, units). Throws as Query::evaluate() does.
    std::vector<std::uint32_t> search(const Query& query);

    // The ids of the forms that `pattern` matches: exactly words.match_ids(pattern).
    // Throws Error(bad_text) and Error(invalid_argument) as match_ids() does.
    BitSet forms(std::string_view pattern);

    // The number of units given at construction.
    std::uint32_t units() const noexcept { return units_; }

private:
    // Forms with their marks removed, in the byte order of their keys.
    struct View {
        std::string keys;  // the keys back to back
        // One form: its key, keys[at, at + size), and its id.
        struct Entry {
            std::uint32_t at;    // where the key starts in keys
            std::uint32_t size;  // its bytes
            std::uint32_t id;    // the form's id
        };
        std::vector<Entry> entries;  // in the byte order of their keys
        // The key of `e`.
        std::string_view Key(const Entry& e) const { return {keys.data() + e.at, e.size}; }
    };
    bool Lookup(std::string_view pattern, std::vector<std::uint32_t>& ids) const;

    Dictionary* words_;
    PostingsFile* postings_;
    std::uint32_t units_;
    bool viewsUsable_ = true;
    View forwards_, backwards_;
};

}  // namespace dorvik
