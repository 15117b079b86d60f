#include <cerrno>
#include <cstring>
#include <new>
#include <system_error>

#include "cxx/Boundary.h"
#include "dorvik/Exceptions.h"
#include "dorvik/File.h"

namespace dorvik {

Error::Error(ErrorCode code, const std::string& message, std::filesystem::path path, int os_error)
    : std::runtime_error(message), code_(code), path_(std::move(path)), os_error_(os_error) {}

namespace cxx {
namespace {
const char* CodeText(ErrorCode code) {
    switch (code) {
        case ErrorCode::io:
            return "I/O error";
        case ErrorCode::not_found:
            return "not found";
        case ErrorCode::bad_path:
            return "bad path";
        case ErrorCode::too_many_open_files:
            return "too many open files";
        case ErrorCode::access_denied:
            return "access denied";
        case ErrorCode::invalid_file:
            return "invalid file";
        case ErrorCode::disk_full:
            return "disk full";
        case ErrorCode::out_of_memory:
            return "out of memory";
        case ErrorCode::bad_text:
            return "bad text";
        case ErrorCode::invalid_argument:
            return "invalid argument";
        case ErrorCode::out_of_range:
            return "out of range";
        case ErrorCode::closed:
            return "closed";
    }
    return "error";
}

ErrorCode CodeOfCause(int cause) {
    switch (cause) {
        case CFileException::fileNotFound:
            return ErrorCode::not_found;
        case CFileException::badPath:
            return ErrorCode::bad_path;
        case CFileException::tooManyOpenFiles:
            return ErrorCode::too_many_open_files;
        case CFileException::accessDenied:
            return ErrorCode::access_denied;
        case CFileException::invalidFile:
        case CFileException::badSeek:  // a seek outside 0 .. 2 GiB: an offset the file cannot hold
        case CFileException::endOfFile:
            return ErrorCode::invalid_file;
        case CFileException::diskFull:
            return ErrorCode::disk_full;
        default:
            return ErrorCode::io;
    }
}

ErrorCode CodeOfErrno(int error) { return CodeOfCause(CFileException::OsErrorToException(error)); }
}  // namespace

Error MakeError(ErrorCode code, std::string_view detail, const std::filesystem::path& path,
                int osError) {
    std::string message = CodeText(code);
    if (!detail.empty()) message.append(": ").append(detail);
    if (!path.empty()) message.append(": ").append(path.string());
    if (osError > 0) message.append(" (").append(std::strerror(osError)).append(")");
    return Error(code, message, path, osError > 0 ? osError : 0);
}

void Rethrow(const std::filesystem::path& path) {
    try {
        throw;
    } catch (const Error&) {
        throw;
    } catch (const CFileException& e) {
        std::filesystem::path where =
            e.m_strFileName.IsEmpty() ? path : std::filesystem::path(e.m_strFileName.str());
        throw MakeError(CodeOfCause(e.m_cause), {}, where, e.m_lOsError);
    } catch (const CMemoryException&) {
        throw MakeError(ErrorCode::out_of_memory, {}, path);
    } catch (const std::bad_alloc&) {
        throw MakeError(ErrorCode::out_of_memory, {}, path);
    } catch (const std::filesystem::filesystem_error& e) {
        int error = e.code().category() == std::generic_category() ||
                            e.code().category() == std::system_category()
                        ? e.code().value()
                        : 0;
        throw MakeError(error ? CodeOfErrno(error) : ErrorCode::io, {},
                        e.path1().empty() ? path : e.path1(), error);
    }
}

int ToInt(std::size_t number, std::string_view what) {
    if (number > 0x7FFFFFFF) throw MakeError(ErrorCode::out_of_range, what);
    return static_cast<int>(number);
}

unsigned OpenFlags(const OpenOptions& options, const std::filesystem::path& path) {
    if (options.read_only) {
        if (options.create || options.truncate || options.bulk)
            throw MakeError(ErrorCode::invalid_argument,
                            "read_only cannot be combined with create, truncate or bulk", path);
        return CFile::modeRead | CFile::shareDenyNone;
    }
    unsigned flags = CFile::modeReadWrite | CFile::shareDenyNone;
    if (options.truncate) return flags | CFile::modeCreate;
    if (options.create) return flags | CFile::modeCreate | CFile::modeNoTruncate;
    return flags;
}

}  // namespace cxx
}  // namespace dorvik
