#include "dorvik/MemIXFile.h"

#include <cstdlib>

#include "frame/MemImage.h"
#include "recordfile/MemTwin.h"

namespace dorvik::classic {
template class CMemTwinBase<CMemFile, CIXFile>;

using dorvik::GrowOrDefault;

CMemIXFile::CMemIXFile(int recordSize)
    : CMemTwinBase(std::piecewise_construct, std::make_tuple(1024u), std::make_tuple(recordSize)) {}

CMemIXFile::CMemIXFile(UINT growBytes, int recordSize)
    : CMemTwinBase(std::piecewise_construct, std::make_tuple(growBytes),
                   std::make_tuple(recordSize)) {
    m_nGrowBytes = GrowOrDefault(growBytes);
    SetGrowCount(static_cast<int>(m_nGrowBytes / 4));
}

CMemIXFile::CMemIXFile(const char* path, UINT growBytes, int recordSize)
    : CMemTwinBase(std::piecewise_construct, std::make_tuple(growBytes),
                   std::make_tuple(recordSize)) {
    LoadFromFile(path, 0);
    m_nGrowBytes = GrowOrDefault(growBytes);
    SetGrowCount(static_cast<int>(m_nGrowBytes / 4));
}

CMemIXFile::CMemIXFile(BYTE* buffer, UINT size, UINT growBytes, int recordSize)
    : CMemTwinBase(std::piecewise_construct, std::make_tuple(buffer, size, growBytes),
                   std::make_tuple(recordSize)) {
    m_nGrowBytes = GrowOrDefault(growBytes);
    SetGrowCount(static_cast<int>(m_nGrowBytes / 4));
}

CMemIXFile::~CMemIXFile() { Close(); }

void CMemIXFile::Attach(BYTE* buffer, DWORD size, UINT growBytes) {
    dorvik::AdoptBlock(*this, buffer, size, growBytes);
    SetGrowCount(static_cast<int>(m_nGrowBytes / 4));
}

void CMemIXFile::LoadFromFile(const char* path, UINT growBytes) {
    dorvik::Block<> block;
    DWORD n = 0;
    if (!dorvik::ReadFileBlock(path, block, n)) return;
    Attach(block.release(), n, growBytes);
}

void CMemIXFile::SaveToFile(const char* path) {
    dorvik::WriteFileBlock(path, m_lpBuffer, GetLength());
    bool owned = m_bAutoDelete;
    BYTE* block = CMemFile::Detach();
    if (owned) std::free(block);
}

void CMemIXFile::UpdateToFile(const char* path) {
    dorvik::WriteFileBlock(path, m_lpBuffer, GetLength());
}

}  // namespace dorvik::classic
