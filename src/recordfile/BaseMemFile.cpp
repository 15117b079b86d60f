#include "dorvik/BaseMemFile.h"

#include <cstdlib>

#include "frame/MemImage.h"

namespace dorvik::classic {
using dorvik::GrowOrDefault;

CBaseMemFile::CBaseMemFile(UINT growBytes) : CMemFile(GrowOrDefault(growBytes)) {}

CBaseMemFile::CBaseMemFile(const char* path, UINT growBytes) : CMemFile(growBytes) {
    LoadFromFile(path, growBytes);
}

CBaseMemFile::CBaseMemFile(BYTE* buffer, UINT size, UINT growBytes)
    : CMemFile(GrowOrDefault(growBytes)) {
    m_lpBuffer = buffer;
    m_nBufferSize = m_nFileSize = buffer ? size : 0;
    m_bAutoDelete = 1;
}

CBaseMemFile::~CBaseMemFile() { CMemFile::Close(); }

void CBaseMemFile::Attach(BYTE* buffer, DWORD size, UINT growBytes) {
    dorvik::AdoptBlock(*this, buffer, size, growBytes);
}

BYTE* CBaseMemFile::Detach() { return CMemFile::Detach(); }

void CBaseMemFile::LoadFromFile(const char* path, UINT growBytes) {
    dorvik::Block<> block;
    DWORD n = 0;
    if (!dorvik::ReadFileBlock(path, block, n)) return;
    std::free(Detach());
    Attach(block.release(), n, growBytes);
}

void CBaseMemFile::SaveToFile(const char* path) {
    DWORD n = GetLength();
    BYTE* block = Detach();
    if (!block) return;
    try {
        dorvik::WriteFileBlock(path, block, n);
    } catch (...) {
        Attach(block, n, m_nGrowBytes);
        throw;
    }
    std::free(block);
}

}  // namespace dorvik::classic
