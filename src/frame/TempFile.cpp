#include "frame/TempFile.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "dorvik/Exceptions.h"

namespace dorvik::classic {
namespace {
// Creates a new empty file from `pattern`, whose last six characters are XXXXXX.
void MakeUnique(CString& name, std::string pattern) {
    int fd = mkstemp(pattern.data());
    if (fd < 0)
        throw CFileException(CFileException::OsErrorToException(errno), errno, pattern.c_str());
    close(fd);
    name = pattern.c_str();
}
}  // namespace

void MakeTempFileName(CString& name, const char* prefix) {
    const char* dir = std::getenv("TMPDIR");
    std::string path = (dir && *dir) ? dir : "/tmp";
    if (path.back() != '/') path += '/';
    path += prefix ? prefix : "dvk";
    MakeUnique(name, path + "XXXXXX");
}

void MakeTempFileBeside(CString& name, const char* path) {
    MakeUnique(name, std::string(path) + ".XXXXXX");
}

}  // namespace dorvik::classic
