#include "dorvik/File.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "frame/Coding.h"
#include "frame/FileHook.h"

namespace dorvik {
namespace {
std::atomic<FileHook> g_hook{nullptr};
}  // namespace

FileHook SetFileHook(FileHook hook) { return g_hook.exchange(hook); }

UINT AllowFileCall(FileCall call, UINT bytes, std::int64_t at) {
    FileHook hook = g_hook.load(std::memory_order_relaxed);
    return hook ? hook(call, bytes, at) : bytes;
}

}  // namespace dorvik

namespace dorvik::classic {
namespace {
using dorvik::FileCall;
using dorvik::kMaxFileLength;
constexpr std::size_t kWriteBehind = 64 * 1024;
// Files smaller than this are read with pread: a mapping would cost more than it saves.
constexpr std::int64_t kMapAtLeast = 256 * 1024;

// Counts every SetLength in the process. A mapping taken before a file was cut could
// reach past its new end, so a mapping is trusted only while this count stands.
std::atomic<std::uint64_t> g_lengthChanges{0};
}  // namespace

CFile::CFile(const char* path, UINT flags) {
    CFileException error;
    if (!Open(path, flags, &error)) throw error;
}

CFile::~CFile() {
    if (m_hFile == hFileNull) return;
    try {
        FlushWriteBehind();
    } catch (const CFileException&) {
        // A destructor cannot report; Close is the way to see this error.
    }
    Unmap();
    ::close(m_hFile);
}

BOOL CFile::Open(const char* path, UINT flags, CFileException* error) {
    if (m_hFile != hFileNull) Close();
    m_nPos = 0;
    m_strFileName = path;
    int access = O_RDONLY;
    if ((flags & 3) == modeWrite) access = O_WRONLY;
    if ((flags & 3) == modeReadWrite) access = O_RDWR;
    int oflags = access | O_CLOEXEC;
    if (flags & modeCreate) oflags |= O_CREAT | ((flags & modeNoTruncate) ? 0 : O_TRUNC);
    auto fail = [&](int err) {
        if (error) *error = CFileException(CFileException::OsErrorToException(err), err, path);
        return 0;
    };
    if (!path || !*path) return fail(ENOENT);
    if (oflags & O_CREAT) {
        try {
            dorvik::AllowFileCall(FileCall::create, 0);
        } catch (const CFileException& e) {
            return fail(e.m_lOsError > 0 ? static_cast<int>(e.m_lOsError) : EIO);
        }
    }
    int fd;
    do {
        fd = ::open(path, oflags, 0666);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) return fail(errno);
    struct stat st;
    if (::fstat(fd, &st) != 0 || S_ISDIR(st.st_mode)) {
        int err = S_ISDIR(st.st_mode) ? EISDIR : errno;
        ::close(fd);
        return fail(err);
    }
    m_hFile = fd;
    m_bReadOnly = access == O_RDONLY;
    m_bMapTried = false;
    return 1;
}

void CFile::Close() {
    if (m_hFile == hFileNull) return;
    try {
        FlushWriteBehind();
    } catch (...) {
        Unmap();
        ::close(m_hFile);
        m_hFile = hFileNull;
        m_pending.clear();
        throw;
    }
    Unmap();
    int fd = m_hFile;
    m_hFile = hFileNull;
    m_nPos = 0;
    if (::close(fd) != 0 && errno != EINTR) ThrowOsError(errno);
}

DWORD CFile::GetPosition() const {
    return static_cast<DWORD>(const_cast<CFile*>(this)->Seek(0, current));
}

CString CFile::GetFilePath() const { return m_strFileName; }

void CFile::Flush() {
    if (m_hFile == hFileNull) return;
    FlushWriteBehind();
    if (::fdatasync(m_hFile) != 0 && errno != EINVAL && errno != EROFS) ThrowOsError(errno);
}

void CFile::CheckOpen() const {
    if (m_hFile == hFileNull)
        throw CFileException(CFileException::invalidFile, EBADF, m_strFileName);
}

void CFile::ThrowOsError(int error) const {
    throw CFileException(CFileException::OsErrorToException(error), error, m_strFileName);
}

LONG CFile::Seek(LONG offset, UINT from) {
    CheckOpen();
    std::int64_t base = 0;
    if (from == current) {
        base = m_nPos;
    } else if (from == end) {
        FlushWriteBehind();
        struct stat st;
        if (::fstat(m_hFile, &st) != 0) ThrowOsError(errno);
        base = st.st_size;
    } else if (from != begin) {
        throw CFileException(CFileException::badSeek, EINVAL, m_strFileName);
    }
    std::int64_t target = base + offset;
    if (target < 0 || target > kMaxFileLength)
        throw CFileException(CFileException::badSeek, EINVAL, m_strFileName);
    m_nPos = target;
    return static_cast<LONG>(target);
}

DWORD CFile::GetLength() const {
    if (!m_pending.empty()) {
        // The length the gathered writes will give, without sending them: a file
        // written record by record asks for its length before every record.
        struct stat st;
        if (::fstat(m_hFile, &st) != 0) ThrowOsError(errno);
        std::int64_t pendingEnd = m_nPendingStart + static_cast<std::int64_t>(m_pending.size());
        return static_cast<DWORD>(std::max<std::int64_t>(st.st_size, pendingEnd));
    }
    CFile* self = const_cast<CFile*>(this);
    LONG position = self->Seek(0, current);
    LONG length = self->Seek(0, end);
    self->Seek(position, begin);
    return static_cast<DWORD>(length);
}

void CFile::SetLength(DWORD length) {
    CheckOpen();
    if (length > kMaxFileLength)
        throw CFileException(CFileException::diskFull, EFBIG, m_strFileName);
    FlushWriteBehind();
    dorvik::AllowFileCall(FileCall::truncate, 0);
    g_lengthChanges.fetch_add(1, std::memory_order_relaxed);
    int rc;
    do {
        rc = ::ftruncate(m_hFile, static_cast<off_t>(length));
    } while (rc != 0 && errno == EINTR);
    // A descriptor opened for reading only answers EINVAL or EBADF here.
    if (rc != 0) ThrowOsError(errno == EINVAL || errno == EBADF ? EACCES : errno);
}

bool CFile::ReadMapped(void* buffer, UINT count) {
    if (!m_bReadOnly) return false;  // an object that writes reads its own writes by pread
    if (m_pMap && m_nMapChanges != g_lengthChanges.load(std::memory_order_relaxed)) Unmap();
    if (!m_pMap && !m_bMapTried) Map();
    if (!m_pMap || m_nPos + count > m_nMapLength) return false;
    std::memcpy(buffer, m_pMap + m_nPos, count);
    m_nPos += count;
    return true;
}

void CFile::Map() {
    m_bMapTried = true;
    struct stat st;
    if (::fstat(m_hFile, &st) != 0 || st.st_size < kMapAtLeast || st.st_size > kMaxFileLength)
        return;
    std::uint64_t changes = g_lengthChanges.load(std::memory_order_relaxed);
    void* map =
        ::mmap(nullptr, static_cast<std::size_t>(st.st_size), PROT_READ, MAP_SHARED, m_hFile, 0);
    if (map == MAP_FAILED) return;  // reads go on by pread
    m_pMap = static_cast<const unsigned char*>(map);
    m_nMapLength = st.st_size;
    m_nMapChanges = changes;
}

void CFile::Unmap() {
    if (m_pMap)
        ::munmap(const_cast<unsigned char*>(m_pMap), static_cast<std::size_t>(m_nMapLength));
    m_pMap = nullptr;
    m_nMapLength = 0;
    m_bMapTried = false;  // a later read maps the file as it is then
}

UINT CFile::Read(void* buffer, UINT count) {
    CheckOpen();
    if (count > 0 && ReadMapped(buffer, count)) return count;
    FlushWriteBehind();
    count = dorvik::AllowFileCall(FileCall::read, count, m_nPos);
    UINT done = 0;
    char* out = static_cast<char*>(buffer);
    while (done < count) {
        ssize_t n = ::pread(m_hFile, out + done, count - done, static_cast<off_t>(m_nPos + done));
        if (n < 0) {
            if (errno == EINTR) continue;
            ThrowOsError(errno);
        }
        if (n == 0) break;
        done += static_cast<UINT>(n);
    }
    m_nPos += done;
    return done;
}

void CFile::Write(const void* buffer, UINT count) {
    if (count == 0) return;
    CheckOpen();
    if (m_nPos + count > kMaxFileLength)
        throw CFileException(CFileException::diskFull, EFBIG, m_strFileName);
    if (m_bWriteBehind && count < kWriteBehind / 2) {
        if (!m_pending.empty() &&
            m_nPos != m_nPendingStart + static_cast<std::int64_t>(m_pending.size()))
            FlushWriteBehind();
        if (m_pending.empty()) {
            m_nPendingStart = m_nPos;
            m_pending.reserve(kWriteBehind + kWriteBehind / 2);
        }
        m_pending.append(static_cast<const char*>(buffer), count);
        m_nPos += count;
        if (m_pending.size() >= kWriteBehind) FlushWriteBehind();
        return;
    }
    FlushWriteBehind();
    WriteAt(buffer, count, m_nPos);
    m_nPos += count;
}

void CFile::WriteAt(const void* buffer, UINT count, std::int64_t at) {
    const UINT allowed = dorvik::AllowFileCall(FileCall::write, count, at);
    UINT done = 0;
    const char* in = static_cast<const char*>(buffer);
    while (done < allowed) {
        ssize_t n = ::pwrite(m_hFile, in + done, allowed - done, static_cast<off_t>(at + done));
        if (n < 0) {
            if (errno == EINTR) continue;
            ThrowOsError(errno);
        }
        if (n == 0) ThrowOsError(ENOSPC);
        done += static_cast<UINT>(n);
    }
    if (allowed < count) ThrowOsError(ENOSPC);
}

void CFile::FlushWriteBehind() {
    if (m_pending.empty()) return;
    try {
        WriteAt(m_pending.data(), static_cast<UINT>(m_pending.size()), m_nPendingStart);
    } catch (...) {
        m_pending.clear();  // dropped when the write fails: the error is reported once
        throw;
    }
    m_pending.clear();  // keeps its room for the next gathering
}

void CFile::SetWriteBehind(bool on) {
    if (!on) FlushWriteBehind();
    m_bWriteBehind = on;
}

DWORD CFile::ReadHuge(void* buffer, DWORD count) { return Read(buffer, count); }

void CFile::WriteHuge(const void* buffer, DWORD count) { Write(buffer, count); }

BOOL CFile::GetStatus(const char* path, CFileStatus& status) {
    struct stat st;
    if (!path || ::stat(path, &st) != 0) return 0;
    status.m_ctime = st.st_ctime;
    status.m_atime = st.st_atime;
    status.m_mtime = st.st_mtime;
    status.m_size = static_cast<DWORD>(st.st_size);
    status.m_attribute = S_ISDIR(st.st_mode) ? 0x10 : 0;
    status.m_szFullName = path;
    return 1;
}

void CFile::Remove(const char* path) {
    dorvik::AllowFileCall(FileCall::remove, 0);
    if (!path || ::unlink(path) != 0) {
        int err = path ? errno : ENOENT;
        throw CFileException(CFileException::OsErrorToException(err), err, path);
    }
}

void CFile::Rename(const char* from, const char* to) {
    dorvik::AllowFileCall(FileCall::rename, 0);
    if (!from || !to || ::rename(from, to) != 0) {
        int err = (from && to) ? errno : ENOENT;
        throw CFileException(CFileException::OsErrorToException(err), err, from);
    }
}

}  // namespace dorvik::classic
