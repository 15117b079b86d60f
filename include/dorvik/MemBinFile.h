// A record file in memory: the twin of CBinFile (see MemTwin.h for what a twin is).
#pragma once

#include "BinFile.h"
#include "MemTwin.h"

namespace dorvik::classic {
extern template class CMemTwinBase<CBaseMemFile, CBinFile>;
extern template class CMemTwin<CBinFile>;

class DORVIK_API CMemBinFile : public CMemTwin<CBinFile> {
public:
    using CMemTwin<CBinFile>::CMemTwin;
    ~CMemBinFile() override;
};

}  // namespace dorvik::classic

using dorvik::classic::CMemBinFile;
