// A bit record file in memory: the twin of CBitsBinFile (see MemTwin.h).
#pragma once

#include "BitsBinFile.h"
#include "MemTwin.h"

namespace dorvik::classic {
extern template class CMemTwinBase<CBaseMemFile, CBitsBinFile>;
extern template class CMemTwin<CBitsBinFile>;

class DORVIK_API CMemBitsBinFile : public CMemTwin<CBitsBinFile> {
public:
    using CMemTwin<CBitsBinFile>::CMemTwin;
    ~CMemBitsBinFile() override;
};

}  // namespace dorvik::classic

using dorvik::classic::CMemBitsBinFile;
