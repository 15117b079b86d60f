#include "dorvik/MemBinFile.h"

#include "recordfile/MemTwin.h"

template class CMemTwinBase<CBaseMemFile, CBinFile>;
template class CMemTwin<CBinFile>;

CMemBinFile::~CMemBinFile() = default;
