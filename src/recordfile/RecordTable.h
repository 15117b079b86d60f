// The address table of a record file image as it lies in storage: the one place that
// reads and writes its words. An image is the stored range [start, start + size) of a
// file: a whole record file, or one nested in a record of another. Its last word is the
// offset of its table from the image start, and the table holds count + 1 entries,
// entry i being where record i starts.
#pragma once

#include "dorvik/File.h"

namespace dorvik {

// Where the table of an image stands, as its last word says.
struct TableLocation {
    DWORD offset = 0;  // of the table, from the image start
    DWORD count = 0;   // records: the table's words less one
};

// Reads the last word of the image. True when it can be a table offset: at most
// size - 4 (a table has one word at least); a word with the top bit set never is.
// An image of 0 to 3 bytes throws CFileException(badSeek): no word ends it.
bool LocateTable(CFile& file, DWORD start, DWORD size, TableLocation& table);

// Reads `count` table words from stored offset `at` into `entries` as host numbers.
// Returns the number of whole words read: fewer only where the storage ends.
DWORD ReadTableEntries(CFile& file, DWORD at, DWORD* entries, DWORD count);

// Writes `count` entries at the file's position, in their stored form.
void WriteTableEntries(CFile& file, const DWORD* entries, DWORD count);

}  // namespace dorvik
