#include "frame/TempFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <random>
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
    // Renamed over `path` later, the file must not change its permissions: it takes the
    // mode of the file there, else the mode a new file gets (0666 less the umask), never
    // the 0600 of mkstemp.
    static std::atomic<unsigned> serial{0};
    static const unsigned seed = std::random_device{}();
    static const char kLetters[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    std::minstd_rand pick(seed ^ (serial.fetch_add(1) * 2654435761u) ^ static_cast<unsigned>(getpid()));
    for (int attempt = 0;; ++attempt) {
        std::string candidate = std::string(path) + ".";
        for (int i = 0; i < 6; ++i) candidate += kLetters[pick() % (sizeof kLetters - 1)];
        int fd = ::open(candidate.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd < 0) {
            if (errno == EEXIST && attempt < 100) continue;
            throw CFileException(CFileException::OsErrorToException(errno), errno,
                                 candidate.c_str());
        }
        struct stat there;
        if (::stat(path, &there) == 0) (void)::fchmod(fd, there.st_mode & 07777);
        ::close(fd);
        name = candidate.c_str();
        return;
    }
}

}  // namespace dorvik::classic
