#include "dorvik/MemFile.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "frame/Block.h"
#include "frame/Coding.h"

namespace dorvik::classic {
namespace {
constexpr std::uint64_t kMaxMemSize = dorvik::kMaxFileLength;
}  // namespace

CMemFile::CMemFile(UINT growBytes) : m_nGrowBytes(growBytes) {}

CMemFile::CMemFile(BYTE* buffer, UINT size, UINT growBytes)
    : m_nGrowBytes(growBytes),
      m_nBufferSize(buffer ? size : 0),
      m_nFileSize(buffer && growBytes == 0 ? size : 0),
      m_lpBuffer(buffer),
      m_bAutoDelete(0) {}

CMemFile::~CMemFile() {
    if (m_bAutoDelete) std::free(m_lpBuffer);
    m_lpBuffer = nullptr;
}

BYTE* CMemFile::Detach() {
    BYTE* block = m_lpBuffer;
    m_lpBuffer = nullptr;
    m_nBufferSize = m_nFileSize = m_nPosition = 0;
    return block;
}

LONG CMemFile::Seek(LONG offset, UINT from) {
    std::int64_t base = 0;
    if (from == current)
        base = m_nPosition;
    else if (from == end)
        base = m_nFileSize;
    else if (from != begin)
        throw CFileException(CFileException::badSeek, EINVAL);
    std::int64_t target = base + offset;
    if (target < 0 || static_cast<std::uint64_t>(target) > kMaxMemSize)
        throw CFileException(CFileException::badSeek, EINVAL);
    m_nPosition = static_cast<DWORD>(target);
    return static_cast<LONG>(target);
}

void CMemFile::GrowFile(DWORD newLength) {
    if (newLength <= m_nBufferSize) return;
    if (m_nGrowBytes == 0 || newLength > kMaxMemSize) throw CMemoryException();
    std::uint64_t size = m_nBufferSize;
    std::uint64_t steps =
        (static_cast<std::uint64_t>(newLength) - size + m_nGrowBytes - 1) / m_nGrowBytes;
    size += steps * m_nGrowBytes;
    if (size > kMaxMemSize) size = kMaxMemSize;
    BYTE* grown;
    if (m_bAutoDelete || !m_lpBuffer) {
        grown = static_cast<BYTE*>(RegrowBlock(m_lpBuffer, static_cast<std::size_t>(size)));
    } else {
        // Never reallocate a block that belongs to the caller: move to a block of our own.
        grown = dorvik::GrabOrThrow<BYTE>(static_cast<std::size_t>(size)).release();
        std::memcpy(grown, m_lpBuffer, m_nBufferSize);
    }
    m_lpBuffer = grown;
    m_bAutoDelete = 1;
    m_nBufferSize = static_cast<DWORD>(size);
}

void CMemFile::SetLength(DWORD length) {
    if (length > m_nBufferSize) GrowFile(length);
    if (length > m_nFileSize) std::memset(m_lpBuffer + m_nFileSize, 0, length - m_nFileSize);
    if (length < m_nPosition) m_nPosition = length;
    m_nFileSize = length;
}

DWORD CMemFile::GetLength() const { return m_nFileSize; }

DWORD CMemFile::GetPosition() const { return m_nPosition; }

UINT CMemFile::Read(void* buffer, UINT count) {
    if (count == 0 || m_nPosition >= m_nFileSize) return 0;
    UINT n = m_nFileSize - m_nPosition;
    if (count < n) n = count;
    std::memcpy(buffer, m_lpBuffer + m_nPosition, n);
    m_nPosition += n;
    return n;
}

void CMemFile::Write(const void* buffer, UINT count) {
    if (count == 0) return;
    std::uint64_t stop = static_cast<std::uint64_t>(m_nPosition) + count;
    if (stop > kMaxMemSize) throw CMemoryException();
    if (stop > m_nBufferSize) GrowFile(static_cast<DWORD>(stop));
    if (m_nPosition > m_nFileSize)
        std::memset(m_lpBuffer + m_nFileSize, 0, m_nPosition - m_nFileSize);
    std::memmove(m_lpBuffer + m_nPosition, buffer, count);
    m_nPosition = static_cast<DWORD>(stop);
    if (m_nPosition > m_nFileSize) m_nFileSize = m_nPosition;
}

void CMemFile::Close() {
    if (m_bAutoDelete) std::free(m_lpBuffer);
    m_lpBuffer = nullptr;
    m_nBufferSize = m_nFileSize = m_nPosition = 0;
    m_nGrowBytes = 0;
}

}  // namespace dorvik::classic
