// The wildcard search over the index of a text file, in its two ways.
#pragma once

#include "dorvik/BitArray.h"
#include "dorvik/NDimBitsBinFile.h"
#include "dorvik/TextBinFile.h"

namespace dorvik::classic {

// The levels of the bytes of one word in the wildcard index: a letter after c letters
// has level c; a mark after c letters and r marks on the last letter has level 2c + r.
class WordLevels {
public:
    // The level of the next byte, a mark or a letter.
    int Level(bool mark) const { return mark ? 2 * m_letters + m_marks : m_letters; }
    // Counts that byte.
    void Advance(bool mark) {
        if (mark) {
            ++m_marks;
        } else {
            ++m_letters;
            m_marks = 0;
        }
    }
    int Letters() const { return m_letters; }

private:
    int m_letters = 0;
    int m_marks = 0;
};

// CTextBinFile::FindTokenForWildCards on `text`. With `plain` the cells are read
// expanded and ANDed one by one into the word set, each no further than the set so far;
// without it they are read as stored and intersected on their compressed forms. Both
// ways give the same `result` and return value.
int FindWildCards(CTextBinFile& text, CNDimBitsBinFile* index, const char* pattern, Operation op,
                  const char* marks, bool ignoreCase, int startLevel, CBitArray& result,
                  bool plain);

}  // namespace dorvik::classic
