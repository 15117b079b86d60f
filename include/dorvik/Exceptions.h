// The two exceptions of the library. They are thrown by value and caught by
// reference; both also derive from std::exception.
#pragma once

#include <exception>
#include <string>

#include "Platform.h"
#include "String.h"

namespace dorvik::classic {
class DORVIK_API CException : public CObject, public std::exception {
public:
    CException() = default;
    CException(const CException&) : CObject(), std::exception() {}
    const char* what() const noexcept override;
};

// Memory could not be had: a memory file could not grow, or a block could not be made.
class DORVIK_API CMemoryException : public CException {
public:
    const char* what() const noexcept override;
};

// A file operation failed. `m_cause` tells the kind, `m_lOsError` the errno (or -1),
// `m_strFileName` the path of the file.
class DORVIK_API CFileException : public CException {
public:
    enum {
        none = 0,
        genericException,
        fileNotFound,
        badPath,
        tooManyOpenFiles,
        accessDenied,
        invalidFile,
        removeCurrentDir,
        directoryFull,
        badSeek,
        hardIO,
        sharingViolation,
        lockViolation,
        diskFull,
        endOfFile
    };
    explicit CFileException(int cause = none, LONG osError = -1, const char* fileName = nullptr);
    CFileException(const CFileException& other);
    CFileException& operator=(const CFileException& other);

    // The cause that stands for an errno value.
    static int OsErrorToException(int error);
    const char* what() const noexcept override;

    int m_cause;
    LONG m_lOsError;
    CString m_strFileName;

private:
    std::string m_what;
};

}  // namespace dorvik::classic

using dorvik::classic::CException;
using dorvik::classic::CFileException;
using dorvik::classic::CMemoryException;
