// A dictionary on the modern face: adds words, lists them in sorted order, and finds
// the words that match a wildcard pattern.
//   dorvik_dictionary DICTIONARY PATTERN [WORD...]
// DICTIONARY is the path of the word file; its sorted view (".sort") and wildcard
// index (".wild") lie beside it. Words already there stay, so a second run adds to the
// first. Words are UTF-8 and must fit Windows-1256 (Latin letters and Arabic do).
//
// The pattern dialect is the engine's own, not a shell glob:
//   ?      one letter:  "f?g" finds fig but not figs (without * the length is fixed)
//   ab*    words that begin with ab;  *ab  words that end in ab;  *ab*  words holding ab
//   marks  an Arabic word without marks finds all its marked forms: "كتب" finds كَتَبَ
//          and كُتُبٌ; a mark in the pattern must be there in the word.
#include <iostream>

#include <dorvik/dorvik.hpp>

int main(int argc, char** argv) {
    if (argc < 3) {
        std::cerr << "usage: " << argv[0] << " DICTIONARY PATTERN [WORD...]\n";
        return 2;
    }
    try {
        // `create` makes the files when they are missing and keeps them otherwise. Each
        // add() files the word into the sorted view at once; for thousands of words,
        // open with {.bulk = true} instead, which sorts once at close().
        dorvik::Dictionary words(argv[1], {.create = true});
        for (int i = 3; i < argc; ++i) {
            // A word's id is its number in order of arrival; it never changes.
            auto [id, added] = words.add(argv[i]);
            std::cout << (added ? "added " : "known ") << argv[i] << " as " << id << '\n';
        }

        // Iteration walks the sorted view: the words in byte order of their
        // Windows-1256 form (Latin before Arabic), each with its id.
        std::cout << "sorted:";
        for (auto word = words.begin(); word != words.end(); ++word)
            std::cout << ' ' << *word << '(' << word.id() << ')';
        std::cout << '\n';

        // find() is a binary search of the sorted view; an empty optional means absent.
        if (std::optional<std::size_t> id = words.find(argv[2]))
            std::cout << argv[2] << " is word " << *id << '\n';

        // match() reads the wildcard index, which the dictionary rebuilt after the adds
        // above; the words come back in id order.
        std::cout << "matching " << argv[2] << ":";
        for (const std::string& word : words.match(argv[2])) std::cout << ' ' << word;
        std::cout << '\n';

        // close() writes what is pending (the wildcard index) and reports errors; the
        // destructor would do the same but could only drop them.
        words.close();
    } catch (const dorvik::Error& e) {
        // Every failure of the library is a dorvik::Error with a code and the path.
        std::cerr << argv[0] << ": " << e.what() << '\n';
        return 1;
    }
    return 0;
}
