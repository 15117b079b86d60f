#include "recordfile/RecordTable.h"

#include <cerrno>

#include "frame/Coding.h"

namespace dorvik {

bool TableFromLastWord(DWORD lastWord, DWORD size, TableLocation& table) {
    // Sizes stay below 2 GiB, so a word with the top bit set fails here too.
    if (size < 4 || lastWord > size - 4) return false;
    table.offset = lastWord;
    table.count = (size - lastWord) / 4 - 1;
    table.inStep = (size - lastWord) % 4 == 0;
    return true;
}

bool LocateTable(CFile& file, DWORD start, DWORD size, TableLocation& table) {
    if (size < 4) throw CFileException(CFileException::badSeek, EINVAL, file.GetFilePath());
    unsigned char last[4] = {0, 0, 0, 0};
    file.Seek(static_cast<LONG>(start + size - 4), CFile::begin);
    file.Read(last, 4);
    return TableFromLastWord(DecodeFixed32(last), size, table);
}

DWORD ReadTableEntries(CFile& file, DWORD at, DWORD* entries, DWORD count) {
    if (count == 0) return 0;
    file.Seek(static_cast<LONG>(at), CFile::begin);
    DWORD got = file.Read(entries, count * 4) / 4;
    FixedToHost32(entries, got);
    return got;
}

void RequireRecordFileRoom(const CFile& file, std::int64_t dataBytes, std::int64_t records) {
    if (dataBytes < 0 || records < 0 || dataBytes + 4 * (records + 1) > kMaxFileLength)
        throw CFileException(CFileException::diskFull, EFBIG, file.GetFilePath());
}

void WriteTableEntries(CFile& file, const DWORD* entries, DWORD count) {
    WriteFixed32(entries, count, [&file](const unsigned char* bytes, std::size_t n) {
        file.Write(bytes, static_cast<UINT>(n));
    });
}

}  // namespace dorvik
