// Diacritization: restores the marks of Arabic words in Windows-1256 text by dictionary
// look-up. Three files, built beforehand and only read here (opened with
// CFile::shareDenyNone):
//  - a dictionary CTextBinFile of marked word forms, one per record, with no index
//    file and no filter;
//  - its wildcard index, written by CTextBinFile::IndexForWildCards with
//    DiacriticMarks as the mark set;
//  - a CIXFile of 4-byte records: entry i is the frequency of dictionary record i.
// A word (bare or partly marked) selects every form with the same letters, exactly as
// many, and the marks it has in the same places of each letter's run of marks; the
// most frequent form wins, the lowest record number on a tie, and marks at its end
// are trimmed. A frequency file shorter than the dictionary gives -1 to the forms
// beyond its end, which can never be chosen: when no candidate has a frequency of 0 or
// more the word is left unchanged.
//
// Threads: both functions keep no state between calls and share none; several threads
// may run them at once, on the same three files too (each call opens its own read-only
// objects). Each thread passes its own buffer and result.
//
// The two functions keep C linkage and stay in the global namespace.
#pragma once

#include "String.h"

extern "C" {

// Replaces `word` by its most frequent dictionary form. Returns true when `word` was
// replaced; false leaves it unchanged (no form, or no form with a frequency). The
// three files are opened and closed for this one call. Throws CFileException when a
// file cannot be opened.
DORVIK_API bool DiacritizeWord(CString& word, const char* dictionaryPath, const char* indexPath,
                               const char* frequencyPath);

// Appends to `result` (not cleared first) the text of `buffer` with each word
// diacritized; white space, punctuation and line ends come through unchanged in their
// places, and words the dictionary does not know pass unchanged. `buffer` must be
// writable for the call and is whole again afterwards. The files are opened once for
// the call; the index is read into memory whole, each cell is expanded at most once,
// and a repeated word is looked up once: the two cells of the word with the fewest
// forms are ANDed a word at a time and each form left is tested in the others, which
// picks the same form as DiacritizeWord. Throws CFileException when a file cannot be
// opened.
DORVIK_API void DiacritizeBuffer(char* buffer, CString& result, const char* dictionaryPath,
                                 const char* indexPath, const char* frequencyPath);
}

namespace dorvik::classic {
// The word delimiters of DiacritizeBuffer: blank, tab, ! @ # % ^ & - = ( ) [ ] { },
// the Arabic comma and semicolon (A1 BA), ; : " , . < > / ` ' CR LF | $ ? and the Arabic
// question mark (BF), + *. Digits and Latin letters are not delimiters.
extern DORVIK_API const char DiacritizeDelimiters[37];
}  // namespace dorvik::classic

using dorvik::classic::DiacritizeDelimiters;
