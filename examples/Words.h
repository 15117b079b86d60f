// The words of a text for the two index examples: runs of ASCII letters, digits and
// bytes above 127 (the letters of UTF-8 or Windows-1256 text), with ASCII letters
// lower-cased.
#pragma once

#include <string>
#include <string_view>
#include <vector>

inline std::vector<std::string> WordsOf(std::string_view text) {
    std::vector<std::string> words;
    std::string word;
    for (char c : text) {
        auto b = static_cast<unsigned char>(c);
        bool letter =
            b >= 0x80 || (b >= '0' && b <= '9') || (b >= 'a' && b <= 'z') || (b >= 'A' && b <= 'Z');
        if (letter) {
            word += (b >= 'A' && b <= 'Z') ? static_cast<char>(b - 'A' + 'a') : c;
        } else if (!word.empty()) {
            words.push_back(word);
            word.clear();
        }
    }
    if (!word.empty()) words.push_back(word);
    return words;
}
