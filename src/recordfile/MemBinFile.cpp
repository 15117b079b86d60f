#include "recordfile/MemTwin.h"

template class CMemTwin<CBinFile>;
template class CMemTwin<CBitsBinFile>;

CMemBinFile::~CMemBinFile() = default;
CMemBitsBinFile::~CMemBitsBinFile() = default;
