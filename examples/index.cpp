// An inverted index on the modern face: indexes text files and answers AND/OR queries.
//   dorvik_index INDEX QUERY PATH...
// Each PATH is a text file or a folder, whose regular files are taken in name order.
// INDEX is a folder, made when missing, that receives the dictionary of words
// (words.bin with words.sort and words.wild) and the postings (postings.bin): record t
// of postings.bin is the set of file numbers that hold word t.
// QUERY: the words of a group must all be in a file (AND); groups separated by "|" are
// alternatives (OR). "red apple | pear" finds the files that hold red and apple, or pear.
// Words are UTF-8; a word with a character that the dictionary's Windows-1256 form
// cannot hold is left out of the index.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include <dorvik/dorvik.hpp>

#include "Words.h"

namespace fs = std::filesystem;

// The files to index: the PATH arguments, a folder standing for its files.
static std::vector<fs::path> FilesOf(int count, char** paths) {
    std::vector<fs::path> files;
    for (int i = 0; i < count; ++i) {
        if (!fs::is_directory(paths[i])) {
            files.emplace_back(paths[i]);
            continue;
        }
        std::vector<fs::path> inside;
        for (const fs::directory_entry& entry : fs::directory_iterator(paths[i]))
            if (entry.is_regular_file()) inside.push_back(entry.path());
        std::sort(inside.begin(), inside.end());
        files.insert(files.end(), inside.begin(), inside.end());
    }
    return files;
}

// The files that hold every word of `group`: the intersection of their postings.
static dorvik::BitSet AllOf(const std::string& group, dorvik::Dictionary& words,
                            dorvik::PostingsFile& postings) {
    std::vector<std::size_t> terms;
    for (const std::string& word : WordsOf(group)) {
        std::optional<std::size_t> term = words.find(word);
        if (!term) return {};  // a word no file holds: no file holds them all
        terms.push_back(*term);
    }
    return postings.intersect(terms);
}

int main(int argc, char** argv) {
    if (argc < 4) {
        std::cerr << "usage: " << argv[0] << " INDEX QUERY PATH...\n";
        return 2;
    }
    const fs::path folder = argv[1];
    try {
        const std::vector<fs::path> files = FilesOf(argc - 3, argv + 3);

        // Build: number the words in a dictionary (bulk mode gathers them in memory and
        // writes the files once), and collect one posting (word, file) per occurrence.
        fs::create_directories(folder);
        dorvik::Dictionary words(folder / "words.bin", {.truncate = true, .bulk = true});
        dorvik::Indexer indexer;
        for (std::uint32_t file = 0; file < files.size(); ++file) {
            std::ifstream in(files[file], std::ios::binary);
            if (!in) throw std::runtime_error("cannot read " + files[file].string());
            std::stringstream text;
            text << in.rdbuf();
            for (const std::string& word : WordsOf(text.str())) {
                try {
                    indexer.add(words.add(word).first, file);
                } catch (const dorvik::Error& e) {
                    if (e.code() != dorvik::ErrorCode::bad_text) throw;
                }
            }
        }
        // One save writes every term's set of files, compressed, into the postings.
        dorvik::PostingsFile postings(folder / "postings.bin", {.truncate = true});
        indexer.save(postings);

        // Query: AND within a group, OR across groups. BitSet is a value with set logic.
        dorvik::BitSet hits;
        std::string query = argv[2];
        for (std::size_t start = 0; start <= query.size();) {
            std::size_t bar = std::min(query.find('|', start), query.size());
            hits = hits | AllOf(query.substr(start, bar - start), words, postings);
            start = bar + 1;
        }
        for (std::uint32_t file : hits) std::cout << files[file].string() << '\n';
    } catch (const std::exception& e) {
        std::cerr << argv[0] << ": " << e.what() << '\n';
        return 1;
    }
    return 0;
}
