// An inverted index on the modern face: indexes text files and prints those that hold
// every word of a query.
//   dorvik_index INDEX QUERY FILE...
// INDEX is a folder, made when missing, that receives words.bin (with words.sort and
// words.wild) and postings.bin. Words are UTF-8; a word with a character that the
// dictionary's Windows-1256 form cannot hold is left out of the index.
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include <dorvik/dorvik.hpp>

#include "Words.h"

int main(int argc, char** argv) {
    if (argc < 4) {
        std::cerr << "usage: " << argv[0] << " INDEX QUERY FILE...\n";
        return 2;
    }
    const std::filesystem::path folder = argv[1];
    try {
        std::filesystem::create_directories(folder);
        dorvik::Dictionary words(folder / "words.bin", {.truncate = true, .bulk = true});
        dorvik::Indexer indexer;
        for (int file = 3; file < argc; ++file) {
            std::ifstream in(argv[file], std::ios::binary);
            if (!in) throw std::runtime_error(std::string("cannot read ") + argv[file]);
            std::stringstream text;
            text << in.rdbuf();
            for (const std::string& word : WordsOf(text.str())) {
                try {
                    indexer.add(words.add(word).first, static_cast<std::uint32_t>(file - 3));
                } catch (const dorvik::Error& e) {
                    if (e.code() != dorvik::ErrorCode::bad_text) throw;
                }
            }
        }
        dorvik::PostingsFile postings(folder / "postings.bin", {.truncate = true});
        indexer.save(postings);

        std::vector<std::size_t> terms;
        for (const std::string& word : WordsOf(argv[2])) {
            std::optional<std::size_t> term = words.find(word);
            if (!term) return 0;  // a word no file holds: no file holds them all
            terms.push_back(*term);
        }
        for (std::uint32_t file : postings.intersect(terms)) std::cout << argv[file + 3] << '\n';
    } catch (const std::exception& e) {
        std::cerr << argv[0] << ": " << e.what() << '\n';
        return 1;
    }
    return 0;
}
