#include "dorvik/HtmlText.h"

#include <cstring>

#include "dorvik/Exceptions.h"
#include "dorvik/File.h"
#include "frame/Block.h"

namespace dorvik::classic {
namespace {

char* Duplicate(const char* block, std::size_t size) {
    if (!block) return nullptr;
    char* copy = dorvik::GrabOrThrow<char>(size).release();
    std::memcpy(copy, block, size);
    return copy;
}

}  // namespace

CHtmlText::~CHtmlText() { DropBlock(m_pBuffer); }

CHtmlText::CHtmlText(const CHtmlText& other)
    : m_pBuffer(Duplicate(other.m_pBuffer, other.m_nSize)),
      m_pNext(other.m_pNext ? m_pBuffer + (other.m_pNext - other.m_pBuffer) : nullptr),
      m_nSize(other.m_nSize) {}

CHtmlText& CHtmlText::operator=(const CHtmlText& other) {
    if (this == &other) return *this;
    char* buffer = Duplicate(other.m_pBuffer, other.m_nSize);
    DropBlock(m_pBuffer);
    m_pBuffer = buffer;
    m_pNext = other.m_pNext ? buffer + (other.m_pNext - other.m_pBuffer) : nullptr;
    m_nSize = other.m_nSize;
    return *this;
}

char* CHtmlText::GetFirst(const char* path) {
    CFileStatus status;
    if (!path || !CFile::GetStatus(path, status)) return nullptr;

    // The new text is read completely before the old one goes, so that a failure
    // leaves the object as it was.
    CFile file(path, CFile::shareDenyNone);
    DWORD length = file.GetLength();
    std::size_t size = static_cast<std::size_t>(length) + 1;
    dorvik::Block<char> block = dorvik::GrabOrThrow<char>(size);
    // The file may shrink while it is read (others may write); the block is
    // zero-filled, so a short read still ends in zeros.
    DWORD done = 0;
    while (done < length) {
        UINT got = file.Read(block.get() + done, length - done);
        if (got == 0) break;
        done += got;
    }
    file.Close();

    DropBlock(m_pBuffer);
    m_pBuffer = block.release();
    m_nSize = size;
    m_pNext = m_pBuffer;
    return GetNext();
}

char* CHtmlText::GetNext() {
    while (m_pNext) {
        char* s = m_pNext;
        char* close = std::strchr(s, '>');
        if (!close) {
            m_pNext = nullptr;
            return s;
        }
        m_pNext = close + 1;
        s += std::strspn(s, " \t\r\n");
        // The cut stays inside this stretch: a `<` behind the `>` belongs to the text
        // that the next call hands out.
        auto* open = static_cast<char*>(std::memchr(s, '<', static_cast<std::size_t>(close - s)));
        *(open ? open : close) = 0;
        if (*s) return s;
    }
    return nullptr;
}

}  // namespace dorvik::classic
