// Whole-block work of the memory files: taking a block over, and moving the whole
// content between a block and a disk file.
#pragma once

#include "dorvik/MemFile.h"
#include "frame/Block.h"

namespace dorvik {

// The grow size a memory file gets for `growBytes`: 1024 for 0, so that it can grow.
inline UINT GrowOrDefault(UINT growBytes) { return growBytes ? growBytes : 1024; }

// Releases the block of `file` when the file owns it (a caller's block stays alive),
// then makes `buffer` (a C heap block, or null with size 0) its own content of `size`
// bytes at position 0, growing by GrowOrDefault(growBytes).
void AdoptBlock(CMemFile& file, BYTE* buffer, DWORD size, UINT growBytes);

// Reads the whole file at `path` into a new block (a 1-byte block for an empty file)
// and its length into `length`. False, with nothing changed, when the path does not
// exist. Throws CFileException when it exists but cannot be read, CMemoryException.
bool ReadFileBlock(const char* path, Block<>& block, DWORD& length);

// Creates or truncates `path` and writes `length` bytes of `data` (null with length 0
// makes an empty file). Throws CFileException.
void WriteFileBlock(const char* path, const BYTE* data, DWORD length);

}  // namespace dorvik
