// CMemFile: the CFile interface on a growable block of the C heap.
#pragma once

#include "File.h"

namespace dorvik::classic {
class DORVIK_API CMemFile : public CFile {
public:
    // Empty, no block yet; owns what it will allocate.
    explicit CMemFile(UINT growBytes = 1024);
    // Works on `buffer` without owning it: m_nBufferSize is `size`, m_nFileSize is
    // `size` when `growBytes` is 0 and 0 otherwise. When such a file must grow it
    // moves to a block of its own (which it then owns) and never reallocates the
    // caller's block.
    CMemFile(BYTE* buffer, UINT size, UINT growBytes = 0);
    ~CMemFile() override;

    // Gives the block to the caller (release with free or DropBlock) and forgets it:
    // block null, position and both sizes 0. Null when there was no block.
    BYTE* Detach();

    // Positions past the end are allowed; a negative one throws CFileException(badSeek).
    LONG Seek(LONG offset, UINT from) override;
    // Grows the block as Write does; a length below the position moves it back.
    void SetLength(DWORD length) override;
    DWORD GetLength() const override;
    DWORD GetPosition() const override;
    // Copies at most what lies between the position and the end of the content.
    UINT Read(void* buffer, UINT count) override;
    // Grows the block by whole m_nGrowBytes steps; a gap left by a seek past the end
    // reads 0. Throws CMemoryException when it cannot grow (m_nGrowBytes 0, memory
    // exhausted, or past 2 GiB).
    void Write(const void* buffer, UINT count) override;
    // Frees the block when owned, then block, position, sizes and m_nGrowBytes are 0.
    void Close() override;
    void Flush() override {}
    CString GetFilePath() const override { return CString(); }

    UINT m_nGrowBytes;
    DWORD m_nPosition = 0;
    DWORD m_nBufferSize = 0;
    DWORD m_nFileSize = 0;
    BYTE* m_lpBuffer = nullptr;
    BOOL m_bAutoDelete = 1;

protected:
    void GrowFile(DWORD newLength);
};

}  // namespace dorvik::classic

using dorvik::classic::CMemFile;
