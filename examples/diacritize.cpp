// Restores the marks (short vowels, shadda, sukun) of Arabic text in UTF-8.
//   dorvik_diacritize FOLDER CORPUS [TEXT]
// First it builds a dictionary of marked word forms from CORPUS, a marked UTF-8 text,
// into FOLDER: every word of the corpus is a form, counted as often as it occurs.
// Then it reads TEXT (or standard input) and writes it to standard output with each
// word that the dictionary knows in its most frequent marked form, less the marks on
// its last letter (they depend on the sentence, not on the word). Everything else
// (unknown words, Latin text, punctuation, line ends) comes through as it is.
#include <fstream>
#include <iostream>
#include <sstream>

#include <dorvik/dorvik.hpp>

namespace fs = std::filesystem;

static std::string ReadFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error("cannot read " + path.string());
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

int main(int argc, char** argv) {
    if (argc < 3 || argc > 4) {
        std::cerr << "usage: " << argv[0] << " FOLDER CORPUS [TEXT]\n";
        return 2;
    }
    try {
        // 1. Build the folder: forms.bin (the forms), forms.sort, forms.wild (the index
        //    that finds the marked forms of a bare word) and forms.freq (the counts).
        //    The builder writes beside the old files and swaps them in at finish(), so
        //    a failed build leaves a working folder as it was.
        dorvik::Diacritizer::Builder builder(argv[1]);
        builder.add_text(ReadFile(argv[2]));  // or add(form, count) for a counted list
        builder.finish();

        // 2. Open it. A Diacritizer is opened once and may be shared by any number of
        //    threads; here one is enough.
        dorvik::Diacritizer diacritizer(argv[1]);
        std::cerr << diacritizer.size() << " forms in " << argv[1] << '\n';

        // 3. Diacritize. diacritize(text) takes a whole text at once; a stream takes it
        //    in pieces of any size, even cut inside a word or a UTF-8 sequence, and
        //    gives the same result, so a large file never has to fit in memory.
        std::ifstream file;
        if (argc == 4) {
            file.open(argv[3], std::ios::binary);
            if (!file) throw std::runtime_error(std::string("cannot read ") + argv[3]);
        }
        std::istream& in = argc == 4 ? file : std::cin;
        dorvik::Diacritizer::Stream stream = diacritizer.stream();
        char piece[4096];
        while (in.read(piece, sizeof piece) || in.gcount() > 0)
            std::cout << stream.feed(std::string_view(piece, in.gcount()));
        std::cout << stream.finish();
    } catch (const dorvik::Error& e) {
        // For text that is not UTF-8 the message names the byte offset.
        std::cerr << argv[0] << ": " << e.what() << '\n';
        return 1;
    } catch (const std::exception& e) {
        std::cerr << argv[0] << ": " << e.what() << '\n';
        return 1;
    }
    return 0;
}
