#include "dorvik/MemBitsBinFile.h"

#include "recordfile/MemTwin.h"

namespace dorvik::classic {
template class CMemTwinBase<CBaseMemFile, CBitsBinFile>;
template class CMemTwin<CBitsBinFile>;

CMemBitsBinFile::~CMemBitsBinFile() = default;

}  // namespace dorvik::classic
