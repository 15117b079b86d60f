#include "Io.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <system_error>

namespace tool {
namespace {

constexpr std::size_t kPiece = std::size_t{1} << 20;

volatile std::sig_atomic_t interrupted = 0;

void OnSignal(int signal) { interrupted = signal; }

Failure SystemFailure(const std::string& name, int error) {
    return Failure(kDataError, name + ": " + std::strerror(error));
}

// Writes all of `bytes` to `fd`; false with errno set when it cannot.
bool WriteAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        ssize_t n = ::write(fd, bytes.data(), bytes.size());
        if (n < 0) {
            if (errno == EINTR) {
                CheckInterrupted();
                continue;
            }
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(n));
    }
    return true;
}

// Syncs a file or folder to the disk; errors are reported by the caller's rename.
void Sync(const std::filesystem::path& path) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return;
    ::fsync(fd);
    ::close(fd);
}

std::filesystem::path FolderOf(const std::filesystem::path& path) {
    std::filesystem::path parent = path.parent_path();
    return parent.empty() ? std::filesystem::path(".") : parent;
}

// The template of a temporary name beside `target`: ".NAME.XXXXXX".
std::string TempTemplate(const std::filesystem::path& target) {
    std::filesystem::path name = target.filename();
    if (name.empty() || name == "." || name == "..") name = "dorvik";
    return (FolderOf(target) / ("." + name.string() + ".XXXXXX")).string();
}

// The process's file mode mask, which only umask() itself can tell.
mode_t Umask() {
    mode_t mask = ::umask(0);
    ::umask(mask);
    return mask;
}

}  // namespace

// ---- Interruption ------------------------------------------------------------------------

void CatchInterrupts() {
    struct sigaction action {};
    action.sa_handler = OnSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0;  // no SA_RESTART: a blocked read returns and sees the flag
    for (int signal : {SIGINT, SIGTERM, SIGHUP}) ::sigaction(signal, &action, nullptr);
}

void CheckInterrupted() {
    if (interrupted) throw Failure(kInterrupted, "interrupted");
}

// ---- Input -------------------------------------------------------------------------------

Input::Input(const std::string& name) : name_(name == "-" ? "standard input" : name) {
    if (name == "-") {
        fd_ = 0;
    } else {
        fd_ = ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd_ < 0) throw SystemFailure(name_, errno);
        own_ = true;
    }
    struct stat status {};
    if (::fstat(fd_, &status) == 0) {
        if (S_ISDIR(status.st_mode)) {
            if (own_) ::close(fd_);
            throw Failure(kDataError, name_ + ": is a folder, not a file");
        }
        if (S_ISREG(status.st_mode)) size_ = static_cast<std::uint64_t>(status.st_size);
    }
    buffer_.resize(kPiece);
}

Input::~Input() {
    if (own_) ::close(fd_);
}

std::string_view Input::Next() {
    for (;;) {
        CheckInterrupted();
        ssize_t n = ::read(fd_, buffer_.data(), buffer_.size());
        if (n >= 0) {
            done_ += static_cast<std::uint64_t>(n);
            return std::string_view(buffer_.data(), static_cast<std::size_t>(n));
        }
        if (errno != EINTR) throw SystemFailure(name_, errno);
    }
}

std::uint64_t SizeOf(const std::string& name) {
    if (name == "-") return 0;
    std::error_code error;
    std::uintmax_t size = std::filesystem::file_size(name, error);
    return error ? 0 : static_cast<std::uint64_t>(size);
}

// ---- Output ------------------------------------------------------------------------------

Output::Output(const std::string& path, bool force) {
    if (path.empty() || path == "-") return;
    target_ = path;
    struct stat status {};
    mode_t mode = 0666 & ~Umask();
    if (::stat(path.c_str(), &status) == 0) {
        if (S_ISDIR(status.st_mode)) throw Failure(kDataError, path + ": is a folder, not a file");
        if (!force) throw Failure(kDataError, path + ": exists (--force replaces it)");
        mode = status.st_mode & 07777;
    }
    std::string name = TempTemplate(path);
    fd_ = ::mkstemp(name.data());
    if (fd_ < 0) throw SystemFailure(FolderOf(path).string(), errno);
    temp_ = name;
    ::fchmod(fd_, mode);
}

Output::~Output() {
    if (temp_.empty()) return;
    ::close(fd_);
    ::unlink(temp_.c_str());
}

void Output::Write(std::string_view bytes) {
    if (!WriteAll(fd_, bytes))
        throw SystemFailure(temp_.empty() ? "standard output" : target_, errno);
}

void Output::Commit() {
    if (temp_.empty()) return;
    if (::fsync(fd_) != 0 || ::close(fd_) != 0) {
        int error = errno;
        fd_ = -1;
        throw SystemFailure(target_, error);
    }
    fd_ = -1;
    if (::rename(temp_.c_str(), target_.c_str()) != 0) throw SystemFailure(target_, errno);
    temp_.clear();
    Sync(FolderOf(target_));
}

// ---- Output folder -----------------------------------------------------------------------

OutputFolder::OutputFolder(const std::filesystem::path& target, bool force) : target_(target) {
    std::error_code error;
    std::filesystem::file_status status = std::filesystem::symlink_status(target, error);
    if (std::filesystem::exists(status)) {
        std::string name = target.string();
        if (!force) throw Failure(kDataError, name + ": exists (--force replaces it)");
        if (!std::filesystem::is_directory(std::filesystem::status(target, error)))
            throw Failure(kDataError, name + ": exists and is no folder; not replaced");
        bool empty = std::filesystem::is_empty(target, error);
        if (!empty && !std::filesystem::exists(target / dorvik::Diacritizer::Files::forms) &&
            !std::filesystem::exists(target / dorvik::Diacritizer::Files::manifest))
            throw Failure(kDataError, name + ": holds no diacritizer folder (no " +
                                          std::string(dorvik::Diacritizer::Files::forms) + " or " +
                                          std::string(dorvik::Diacritizer::Files::manifest) +
                                          "); not replaced");
        replace_ = true;
    }
    std::string name = TempTemplate(target);
    if (!::mkdtemp(name.data())) throw SystemFailure(FolderOf(target).string(), errno);
    work_ = name;
    ::chmod(work_.c_str(), 0777 & ~Umask());  // as mkdir makes a folder, not 0700
}

OutputFolder::~OutputFolder() {
    if (work_.empty()) return;
    std::error_code ignored;
    std::filesystem::remove_all(work_, ignored);
}

void OutputFolder::Commit() {
    for (const auto& entry : std::filesystem::directory_iterator(work_)) Sync(entry.path());
    Sync(work_);
    if (!replace_) {
        // Renaming onto a folder that appeared meanwhile fails unless it is empty.
        if (::rename(work_.c_str(), target_.c_str()) != 0) throw SystemFailure(target_, errno);
        work_.clear();
    } else if (::renameat2(AT_FDCWD, work_.c_str(), AT_FDCWD, target_.c_str(), RENAME_EXCHANGE) !=
               0) {
        if (errno != EINVAL && errno != ENOSYS) throw SystemFailure(target_, errno);
        // No atomic swap on this file system: move the old folder aside first.
        std::string aside = TempTemplate(target_);
        if (!::mkdtemp(aside.data())) throw SystemFailure(FolderOf(target_).string(), errno);
        if (::rename(target_.c_str(), aside.c_str()) != 0) {
            int error = errno;
            ::rmdir(aside.c_str());
            throw SystemFailure(target_, error);
        }
        if (::rename(work_.c_str(), target_.c_str()) != 0) {
            int error = errno;
            ::rename(aside.c_str(), target_.c_str());
            throw SystemFailure(target_, error);
        }
        work_ = aside;  // the old folder, removed below
    }
    // After a swap `work_` holds the old folder: the destructor removes it.
    Sync(FolderOf(target_));
}

// ---- Whole files -------------------------------------------------------------------------

void WriteFile(const std::filesystem::path& path, std::string_view bytes) {
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0) throw SystemFailure(path.string(), errno);
    bool ok = WriteAll(fd, bytes);
    int error = errno;
    if (::close(fd) != 0 && ok) {
        ok = false;
        error = errno;
    }
    if (!ok) throw SystemFailure(path.string(), error);
}

std::string ReadFile(const std::filesystem::path& path) {
    Input input(path.string());
    std::string text;
    for (std::string_view piece; !(piece = input.Next()).empty();) text.append(piece);
    return text;
}

}  // namespace tool
