// An integer file in memory: the twin of CIXFile (see MemTwin.h for what a twin is).
// Its memory side is a plain CMemFile, which may work on a caller's block without
// owning it; there is no table, so GetLength is the stored length.
#pragma once

#include "IXFile.h"
#include "MemTwin.h"

namespace dorvik::classic {
extern template class CMemTwinBase<CMemFile, CIXFile>;

class DORVIK_API CMemIXFile : public CMemTwinBase<CMemFile, CIXFile> {
public:
    // Every constructor throws CFileException for a record size outside 1 .. 4.

    // Empty; grows by 1 KiB. The grow count stays the integer file's own (0).
    explicit CMemIXFile(int recordSize = 4);
    // Empty; grows by `growBytes` (1024 for 0), and the grow count (spare records that
    // each extension adds) becomes that grow size / 4.
    CMemIXFile(UINT growBytes, int recordSize);
    // The content of the file at `path` (empty when it does not exist); grow size and
    // grow count as above. Throws CFileException when the file cannot be read.
    CMemIXFile(const char* path, UINT growBytes, int recordSize);
    // Works on the caller's `buffer` without taking it over: with `growBytes` 0 its
    // `size` bytes are the content, otherwise it is `size` bytes of room and the content
    // is empty. Grow size and grow count as above. Writes that fit land in the block;
    // when the content must grow past it, it moves to a block of the object's own. The
    // object never frees, reallocates or keeps the caller's block beyond that move,
    // Attach, LoadFromFile, SaveToFile or Close: the caller releases it, once the object
    // is done with it.
    CMemIXFile(BYTE* buffer, UINT size, UINT growBytes, int recordSize);
    ~CMemIXFile() override;

    // Takes `buffer` (a C heap block, or null with size 0) over as the content of `size`
    // bytes at position 0, releasing the present block if the object owns it; grows by
    // `growBytes` (1024 for 0), and the grow count becomes that grow size / 4.
    void Attach(BYTE* buffer, DWORD size, UINT growBytes);
    // Replaces the content by the file at `path`, as Attach does with `growBytes`. A
    // missing path changes nothing. Throws CFileException when the file cannot be read.
    void LoadFromFile(const char* path, UINT growBytes);
    // Writes the content to `path` (created or truncated; an empty file when nothing is
    // held) and then empties the object, which keeps its grow size and can go on at
    // once. When the file cannot be written the CFileException passes on and the
    // content stays.
    void SaveToFile(const char* path);
    // Writes the content to `path` (created or truncated) and leaves the object as it
    // was: content, length and position. Throws CFileException.
    void UpdateToFile(const char* path);
};

}  // namespace dorvik::classic

using dorvik::classic::CMemIXFile;
