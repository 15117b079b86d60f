// The address table of a record file image as it lies in storage: the one place that
// reads and writes its words. An image is the stored range [start, start + size) of a
// file: a whole record file, or one nested in a record of another. Its last word is the
// offset of its table from the image start, and the table holds count + 1 entries,
// entry i being where record i starts.
#pragma once

#include <cstdint>

#include "dorvik/File.h"

namespace dorvik {

// Where the table of an image stands, as its last word says.
struct TableLocation {
    DWORD offset = 0;     // of the table, from the image start
    DWORD count = 0;      // records: the table's words less one, rounding down
    bool inStep = false;  // whole words lie behind the offset
};

// The table that the last word `lastWord` of an image of `size` bytes names. True when
// it can be one: at most size - 4 (a table has one word at least; a word with the top
// bit set never is). The count rounds down. When the bytes behind the offset are no
// whole number of words, the table is read out of step with the end: its entry `count`
// is then other bytes than the last word, so that readers must bound every span by the
// offset itself, never by that entry.
bool TableFromLastWord(DWORD lastWord, DWORD size, TableLocation& table);

// Reads the last word of the image and judges it as TableFromLastWord does. An image
// of 0 to 3 bytes throws CFileException(badSeek): no word ends it.
bool LocateTable(CFile& file, DWORD start, DWORD size, TableLocation& table);

// Reads `count` table words from stored offset `at` into `entries` as host numbers.
// Returns the number of whole words read: fewer only where the storage ends.
DWORD ReadTableEntries(CFile& file, DWORD at, DWORD* entries, DWORD count);

// Writes `count` entries at the file's position, in their stored form.
void WriteTableEntries(CFile& file, const DWORD* entries, DWORD count);

// Throws CFileException(diskFull, EFBIG) for `file` when a record file of `dataBytes`
// bytes of data and `records` records would reach 2 GiB with its table: checked before
// a change begins, so that a record number or a length out of reach changes nothing.
void RequireRecordFileRoom(const CFile& file, std::int64_t dataBytes, std::int64_t records);

}  // namespace dorvik
