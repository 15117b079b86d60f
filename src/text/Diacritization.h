// The three files of diacritization opened once for many texts: what DiacritizeBuffer
// does for one buffer, and what a long-lived diacritizer does for many.
#pragma once

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "dorvik/String.h"
#include "dorvik/TextBinFile.h"

namespace dorvik {

class CellCache;

// The dictionary open, the wildcard index in memory with each cell expanded at most
// once, the frequencies read whole, and the latest words with their answers (up to
// kSeenWords, then forgotten together). One object, one thread at a time.
class Diacritization {
public:
    static constexpr std::size_t kSeenWords = 1 << 16;

    // Opens the three files (read-only, sharing allowed). Throws CFileException when one
    // cannot be opened, CMemoryException.
    Diacritization(const char* dictionaryPath, const char* indexPath, const char* frequencyPath);
    ~Diacritization();
    Diacritization(const Diacritization&) = delete;
    Diacritization& operator=(const Diacritization&) = delete;

    // Appends to `result` the zero-terminated `buffer` with each word diacritized, as
    // DiacritizeBuffer says. `buffer` must be writable for the call and is whole after.
    void Buffer(char* buffer, std::string& result);
    // Replaces `word` by its chosen form; false leaves it unchanged, as DiacritizeWord.
    // `word` holds no delimiter (no wildcard either): it is one word of a text.
    bool Word(CString& word);
    // Appends to `forms` the records of every form that `word` selects (as Word reads
    // it) and that has a frequency of 0 or more, in record order.
    void Candidates(const char* word, std::vector<int>& forms);
    // The text of form `form`, whole (no marks trimmed).
    std::string Form(int form);
    // The frequency of form `form`; -1 beyond the frequency file's end.
    int Frequency(int form) const;
    // The number of forms, and the length of the longest one in bytes.
    int FormCount();
    int LongestForm();

private:
    CTextBinFile m_dictionary;
    std::unique_ptr<CellCache> m_index;
    std::vector<int> m_frequencies;
    std::unordered_map<std::string, std::string> m_seen;
    int m_longest = -1;
};

}  // namespace dorvik
