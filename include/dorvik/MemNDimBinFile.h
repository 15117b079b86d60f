// In-memory twins of the nested record files (see MemTwin.h for what a twin is).
#pragma once

#include "MemTwin.h"
#include "NDimBinFile.h"
#include "NDimBitsBinFile.h"

namespace dorvik::classic {
extern template class CMemTwinBase<CBaseMemFile, CNDimBinFile>;
extern template class CMemTwin<CNDimBinFile>;
extern template class CMemTwinBase<CBaseMemFile, CNDimBitsBinFile>;
extern template class CMemTwin<CNDimBitsBinFile>;

// A nested record file in memory.
class DORVIK_API CMemNDimBinFile : public CMemTwin<CNDimBinFile> {
public:
    using CMemTwin<CNDimBinFile>::CMemTwin;
    ~CMemNDimBinFile() override;
};

// A nested bit record file in memory.
class DORVIK_API CMemNDimBitsBinFile : public CMemTwin<CNDimBitsBinFile> {
public:
    using CMemTwin<CNDimBitsBinFile>::CMemTwin;
    ~CMemNDimBitsBinFile() override;
};

}  // namespace dorvik::classic

using dorvik::classic::CMemNDimBinFile;
using dorvik::classic::CMemNDimBitsBinFile;
