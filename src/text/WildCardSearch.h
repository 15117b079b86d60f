// The wildcard search over the index of a text file, in its two ways.
#pragma once

#include "dorvik/BitArray.h"
#include "dorvik/NDimBitsBinFile.h"
#include "dorvik/TextBinFile.h"

namespace dorvik::classic {

// CTextBinFile::FindTokenForWildCards on `text`. With `plain` the cells are read
// expanded and ANDed one by one into the word set, each no further than the set so far;
// without it they are read as stored and intersected on their compressed forms. Both
// ways give the same `result` and return value.
int FindWildCards(CTextBinFile& text, CNDimBitsBinFile* index, const char* pattern, Operation op,
                  const char* marks, bool ignoreCase, int startLevel, CBitArray& result,
                  bool plain);

}  // namespace dorvik::classic
