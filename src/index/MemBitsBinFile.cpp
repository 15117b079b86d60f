#include "dorvik/MemBitsBinFile.h"

#include "recordfile/MemTwin.h"

template class CMemTwinBase<CBaseMemFile, CBitsBinFile>;
template class CMemTwin<CBitsBinFile>;

CMemBitsBinFile::~CMemBitsBinFile() = default;
