#include "dorvik/MemBinFile.h"

#include "recordfile/MemTwin.h"

namespace dorvik::classic {
template class CMemTwinBase<CBaseMemFile, CBinFile>;
template class CMemTwin<CBinFile>;

CMemBinFile::~CMemBinFile() = default;

}  // namespace dorvik::classic
