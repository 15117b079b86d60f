#include "dorvik/BaseMemFile.h"

#include <cstdlib>

#include "frame/Block.h"

namespace {
UINT GrowOrDefault(UINT growBytes) { return growBytes ? growBytes : 1024; }
}  // namespace

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
    std::free(m_lpBuffer);
    m_nGrowBytes = GrowOrDefault(growBytes);
    m_nPosition = 0;
    m_lpBuffer = buffer;
    m_nBufferSize = m_nFileSize = buffer ? size : 0;
    m_bAutoDelete = 1;
}

BYTE* CBaseMemFile::Detach() { return CMemFile::Detach(); }

void CBaseMemFile::LoadFromFile(const char* path, UINT growBytes) {
    CFileStatus status;
    if (!CFile::GetStatus(path, status)) return;
    CFile file(path, shareDenyNone);
    DWORD n = file.CFile::GetLength();
    dorvik::Block<BYTE> block = dorvik::GrabOrThrow<BYTE>(n);
    file.Read(block.get(), n);
    std::free(Detach());
    Attach(block.release(), n, growBytes);
}

void CBaseMemFile::SaveToFile(const char* path) {
    DWORD n = GetLength();
    BYTE* block = Detach();
    if (!block) return;
    try {
        CFile file(path, modeCreate | modeWrite);
        file.Write(block, n);
        file.Close();
    } catch (...) {
        Attach(block, n, m_nGrowBytes);
        throw;
    }
    std::free(block);
}
