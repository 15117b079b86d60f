// CHtmlText: loads a file and hands out the pieces of text that stand between tags.
#pragma once

#include <cstddef>

#include "Platform.h"

namespace dorvik::classic {
// A piece is what stands before the first `<` in the stretch up to the next `>`, with
// its leading blanks, tabs, CRs and LFs skipped and its trailing ones kept; a stretch
// with nothing before its `<` gives no piece. Behind the last `>` comes the rest of
// the text as it is, perhaps empty, and after that null. Tag names, attributes,
// comments, scripts and entities get no treatment. Pieces point into a buffer that the
// object owns; they stay valid until a GetFirst loads another file, an assignment or
// destruction.
// Not safe for concurrent use.
class DORVIK_API CHtmlText {
public:
    // No buffer, nothing to read.
    CHtmlText() = default;
    // Releases the buffer.
    virtual ~CHtmlText();
    // Copying is a deep copy: the copy owns a buffer of its own and goes on from the
    // same place, independently of the original.
    CHtmlText(const CHtmlText& other);
    CHtmlText& operator=(const CHtmlText& other);

    // Reads the file at `path` whole (opened read-only, others may do anything) and
    // returns its first piece. Null when the file (or `path`) does not exist: the
    // earlier buffer and place are kept. A zero byte in the file ends the text. Throws
    // CFileException when the file exists but cannot be opened or read, and
    // CMemoryException when no buffer can be had; the earlier buffer is kept then too.
    char* GetFirst(const char* path);
    // The next piece, or null when the text is used up (and before any GetFirst).
    // A stray `>` with no `<` before it in its stretch ends the piece there; a piece
    // is never cut behind its own `>`, so the pieces after it stay intact.
    char* GetNext();

protected:
    // The whole file and a zero byte; owned.
    char* m_pBuffer = nullptr;
    // Where the next search for `>` begins; null when the text is used up.
    char* m_pNext = nullptr;

private:
    // Bytes in m_pBuffer, its zero byte included (0 with no buffer).
    std::size_t m_nSize = 0;
};

}  // namespace dorvik::classic

using dorvik::classic::CHtmlText;
