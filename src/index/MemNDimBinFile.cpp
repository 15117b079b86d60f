#include "dorvik/MemNDimBinFile.h"

#include "recordfile/MemTwin.h"

namespace dorvik::classic {
template class CMemTwinBase<CBaseMemFile, CNDimBinFile>;
template class CMemTwin<CNDimBinFile>;
template class CMemTwinBase<CBaseMemFile, CNDimBitsBinFile>;
template class CMemTwin<CNDimBitsBinFile>;

CMemNDimBinFile::~CMemNDimBinFile() = default;
CMemNDimBitsBinFile::~CMemNDimBitsBinFile() = default;

}  // namespace dorvik::classic
