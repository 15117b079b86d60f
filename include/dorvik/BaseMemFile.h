// CBaseMemFile: a file in memory that always owns its block (a C heap block, released
// with free). A block is byte for byte what a disk file would hold, so an image moves
// between memory, disk and a record of another file without conversion. Record files
// hand out and take in whole records in this type.
#pragma once

#include "MemFile.h"

namespace dorvik::classic {
class DORVIK_API CBaseMemFile : public CMemFile {
public:
    // Empty; grows by `growBytes` (1024 for 0).
    explicit CBaseMemFile(UINT growBytes = 0);
    // Loads the file at `path`; a missing path leaves the object empty, and with a
    // `growBytes` of 0 it then cannot grow (Write throws CMemoryException).
    CBaseMemFile(const char* path, UINT growBytes);
    // Takes over `buffer`, which must be a C heap block of `size` bytes.
    CBaseMemFile(BYTE* buffer, UINT size, UINT growBytes);
    ~CBaseMemFile() override;

    // Frees the present block, then takes `buffer` (a C heap block, or null with size
    // 0, which empties the object) as content of `size` bytes; position 0.
    virtual void Attach(BYTE* buffer, DWORD size, UINT growBytes);
    // Gives the block to the caller, who releases it with free or DropBlock; the object
    // is empty afterwards. Null when there was no block.
    virtual BYTE* Detach();

    // Replaces the content by the file at `path`. A missing path changes nothing.
    // Throws CFileException when the file exists but cannot be read.
    void LoadFromFile(const char* path, UINT growBytes);
    // Writes the content to `path` (created or truncated) and empties the object. An
    // object that holds nothing writes no file. When the file cannot be written the
    // content is put back and the CFileException passes on.
    void SaveToFile(const char* path);
};

}  // namespace dorvik::classic

using dorvik::classic::CBaseMemFile;
