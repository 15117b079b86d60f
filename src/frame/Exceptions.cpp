#include "dorvik/Exceptions.h"

#include <cerrno>
#include <cstring>

namespace dorvik::classic {
CObject::~CObject() = default;

const char* CException::what() const noexcept { return "Dorvik exception"; }

const char* CMemoryException::what() const noexcept { return "Not enough memory"; }

namespace {
const char* CauseText(int cause) {
    static const char* const texts[] = {"no error",
                                        "file error",
                                        "file not found",
                                        "bad path",
                                        "too many open files",
                                        "access denied",
                                        "invalid file",
                                        "cannot remove the current directory",
                                        "directory full",
                                        "bad seek",
                                        "hardware I/O error",
                                        "sharing violation",
                                        "lock violation",
                                        "disk full",
                                        "end of file"};
    return (cause >= 0 && cause <= CFileException::endOfFile) ? texts[cause] : "file error";
}
}  // namespace

CFileException::CFileException(int cause, LONG osError, const char* fileName)
    : m_cause(cause), m_lOsError(osError), m_strFileName(fileName) {
    m_what = CauseText(cause);
    if (fileName && *fileName) m_what += std::string(": ") + fileName;
    if (osError > 0) m_what += std::string(" (") + std::strerror(osError) + ")";
}

CFileException::CFileException(const CFileException& other)
    : CException(other),
      m_cause(other.m_cause),
      m_lOsError(other.m_lOsError),
      m_strFileName(other.m_strFileName),
      m_what(other.m_what) {}

CFileException& CFileException::operator=(const CFileException& other) {
    m_cause = other.m_cause;
    m_lOsError = other.m_lOsError;
    m_strFileName = other.m_strFileName;
    m_what = other.m_what;
    return *this;
}

const char* CFileException::what() const noexcept { return m_what.c_str(); }

int CFileException::OsErrorToException(int error) {
    switch (error) {
        case 0:
            return none;
        case ENOENT:
            return fileNotFound;
        case ENOTDIR:
        case ENAMETOOLONG:
        case ELOOP:
            return badPath;
        case EMFILE:
        case ENFILE:
            return tooManyOpenFiles;
        case EACCES:
        case EPERM:
        case EROFS:
        case EISDIR:
        case EBADF:
            return accessDenied;
        case EBUSY:
        case ETXTBSY:
            return sharingViolation;
        case ENOSPC:
        case EDQUOT:
        case EFBIG:
            return diskFull;
        case EIO:
            return hardIO;
        case EINVAL:
        case ESPIPE:
        case EOVERFLOW:
            return badSeek;
        default:
            return genericException;
    }
}

}  // namespace dorvik::classic
