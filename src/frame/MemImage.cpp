#include "frame/MemImage.h"

#include <cstdlib>

namespace dorvik {

void AdoptBlock(CMemFile& file, BYTE* buffer, DWORD size, UINT growBytes) {
    if (file.m_bAutoDelete) std::free(file.m_lpBuffer);
    file.m_nGrowBytes = GrowOrDefault(growBytes);
    file.m_nPosition = 0;
    file.m_lpBuffer = buffer;
    file.m_nBufferSize = file.m_nFileSize = buffer ? size : 0;
    file.m_bAutoDelete = 1;
}

bool ReadFileBlock(const char* path, Block<>& block, DWORD& length) {
    CFileStatus status;
    if (!CFile::GetStatus(path, status)) return false;
    CFile file(path, CFile::shareDenyNone);
    DWORD n = file.CFile::GetLength();
    Block<> read = GrabOrThrow(n);
    file.Read(read.get(), n);
    block = std::move(read);
    length = n;
    return true;
}

void WriteFileBlock(const char* path, const BYTE* data, DWORD length) {
    CFile file(path, CFile::modeCreate | CFile::modeWrite);
    file.Write(data, length);
    file.Close();
}

}  // namespace dorvik
