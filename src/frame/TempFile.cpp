#include "frame/TempFile.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "dorvik/Exceptions.h"

namespace dorvik::classic {
void MakeTempFileName(CString& name, const char* prefix) {
    const char* dir = std::getenv("TMPDIR");
    std::string path = (dir && *dir) ? dir : "/tmp";
    if (path.back() != '/') path += '/';
    path += prefix ? prefix : "dvk";
    path += "XXXXXX";
    int fd = mkstemp(path.data());
    if (fd < 0)
        throw CFileException(CFileException::OsErrorToException(errno), errno, path.c_str());
    close(fd);
    name = path.c_str();
}

}  // namespace dorvik::classic
