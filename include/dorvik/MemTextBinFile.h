// A dictionary in memory: the twin of CTextBinFile (see MemTwin.h for what a twin is).
#pragma once

#include "MemTwin.h"
#include "TextBinFile.h"

namespace dorvik::classic {
extern template class CMemTwinBase<CBaseMemFile, CTextBinFile>;
extern template class CMemTwin<CTextBinFile>;

// Sort-tree mode works on a twin as on a file, and a twin never gives its block away
// without the words of that mode: Detach (and so SaveToFile) and Close first leave the
// mode as CTextBinFile::Close does, writing the words (and the index file, when one is
// attached) in the direction given to InitSortTree. Destruction drops them, as it does
// for a file.
class DORVIK_API CMemTextBinFile : public CMemTwin<CTextBinFile> {
public:
    using CMemTwin<CTextBinFile>::CMemTwin;
    ~CMemTextBinFile() override;

    // As every record file twin; in sort-tree mode the length the image will have once
    // the words of the mode are written.
    DWORD GetLength() const override;
    // Leaves sort-tree mode, then releases table and block. When writing the words
    // throws, the twin stays in the mode and keeps its block.
    void Close() override;
    // Leaves sort-tree mode, then gives the complete image away as every twin does.
    // When writing the words throws, nothing is given away.
    BYTE* Detach() override;
};

}  // namespace dorvik::classic

using dorvik::classic::CMemTextBinFile;
