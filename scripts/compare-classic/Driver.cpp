// Builds a diacritizer folder from a marked corpus and restores the marks of a text with
// the classic calls: DiacritizeBuffer over 64 KiB pieces, then DiacritizeWord for the
// first 20,000 words (1 or 0 for its result, then the word). Everything goes to
// standard output, so that two builds of the library can be compared byte for byte.
//   driver CORPUS FOLDER TEXT
#include <dorvik/Diacritize.h>
#include <dorvik/dorvik.hpp>

#include <fstream>
#include <iostream>
#include <sstream>

namespace {
std::string Slurp(const char* path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream all;
    all << in.rdbuf();
    return all.str();
}
}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) return 2;
    dorvik::CorpusNormalizer corpus;
    dorvik::Diacritizer::Builder builder(argv[2]);
    builder.add_text(corpus.feed(Slurp(argv[1])));
    builder.add_text(corpus.finish());
    builder.finish();

    dorvik::CorpusNormalizer normalizer;
    std::string text = Slurp(argv[3]);
    text = dorvik::to_cp1256(dorvik::strip_marks(normalizer.feed(text) + normalizer.finish()));
    std::string folder = argv[2];
    std::string forms = folder + "/forms.bin", wild = folder + "/forms.wild",
                freq = folder + "/forms.freq";
    std::string out;
    for (std::size_t at = 0; at < text.size(); at += 65536) {
        std::string part = text.substr(at, 65536);
        CString result;
        DiacritizeBuffer(part.data(), result, forms.c_str(), wild.c_str(), freq.c_str());
        out += result.str();
    }
    std::istringstream words(text);
    std::string w;
    for (int k = 0; k < 20000 && words >> w; ++k) {
        CString word(w.c_str());
        bool found = DiacritizeWord(word, forms.c_str(), wild.c_str(), freq.c_str());
        out += (found ? "1" : "0") + word.str() + "\n";
    }
    std::cout << out;
    return 0;
}
