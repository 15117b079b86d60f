#include "dorvik/MemNDimBinFile.h"

#include "recordfile/MemTwin.h"

template class CMemTwin<CNDimBinFile>;
template class CMemTwin<CNDimBitsBinFile>;

CMemNDimBinFile::~CMemNDimBinFile() = default;
CMemNDimBitsBinFile::~CMemNDimBitsBinFile() = default;
