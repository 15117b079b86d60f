// CFile: a byte file over a POSIX descriptor with a position of its own. Every access
// goes through the virtuals Seek, Read, Write, SetLength, GetLength and Close, so a
// subclass that stores elsewhere redirects all of them. Files stay below 2 GiB.
#pragma once

#include <ctime>
#include <string>

#include "Exceptions.h"
#include "Platform.h"
#include "String.h"

namespace dorvik::classic {
// What CFile::GetStatus reports; only existence is used by the library.
struct DORVIK_API CFileStatus {
    std::time_t m_ctime = 0;  // last status change (st_ctime)
    std::time_t m_atime = 0;  // last access
    std::time_t m_mtime = 0;  // last modification
    DWORD m_size = 0;         // the length, cut to 32 bits
    BYTE m_attribute = 0;     // 0x10 for a directory, else 0
    CString m_szFullName;     // the path as given
};

class DORVIK_API CFile : public CObject {
public:
    // Open flags, with their historic bit values. Sharing bits are accepted and ignored.
    enum OpenFlags : UINT {
        modeRead = 0x0000,
        modeWrite = 0x0001,
        modeReadWrite = 0x0002,
        shareCompat = 0x0000,
        shareExclusive = 0x0010,
        shareDenyWrite = 0x0020,
        shareDenyRead = 0x0030,
        shareDenyNone = 0x0040,
        modeNoInherit = 0x0080,
        modeCreate = 0x1000,
        modeNoTruncate = 0x2000,
        typeText = 0x4000,
        typeBinary = 0x8000
    };
    // Where the offset of Seek counts from.
    enum SeekPosition : UINT { begin = 0, current = 1, end = 2 };
    static constexpr int hFileNull = -1;  // m_hFile of a closed object

    // A closed object.
    CFile() = default;
    // Opens at once; throws CFileException when it cannot.
    CFile(const char* path, UINT flags);
    // Closes if open; errors of that close are dropped.
    ~CFile() override;

    // Opens `path`. modeCreate creates or truncates (keeps the content with
    // modeNoTruncate). Returns nonzero on success; 0 on failure, with the cause in
    // `error` when given; never throws. A directory cannot be opened. An open object
    // is closed first.
    virtual BOOL Open(const char* path, UINT flags, CFileException* error = nullptr);
    // Closes; a closed object stays closed. Throws CFileException when the close fails.
    virtual void Close();
    // The position (through the virtual Seek).
    virtual DWORD GetPosition() const;
    // The path given at opening; empty for an object that was never opened.
    virtual CString GetFilePath() const;
    // Writes the file's data through to the disk. Throws CFileException on failure.
    virtual void Flush();
    // Sets and returns the position. Positions past the end are allowed; a position
    // before the beginning or at 2 GiB and beyond throws CFileException(badSeek).
    virtual LONG Seek(LONG offset, UINT from);
    // SeekToBegin and SeekToEnd move to either end; SeekToEnd returns the length.
    void SeekToBegin() { Seek(0, begin); }
    DWORD SeekToEnd() { return static_cast<DWORD>(Seek(0, end)); }
    // The length, measured through the virtual Seek: note the position, seek to the
    // end, seek back. A subclass that redirects Seek redirects this too. While
    // write-behind holds gathered writes, they count without being sent (one fstat).
    virtual DWORD GetLength() const;
    // Truncates or extends the file. Throws CFileException on failure.
    virtual void SetLength(DWORD length);
    // Reads at the position; returns the bytes read, fewer than `count` only at the
    // end of the file (0 there). Throws CFileException on a read error.
    // A file opened for reading only and of 256 KiB or more is read through a read-only
    // shared mapping, taken at the first read: no system call per read. Writes of other
    // objects and processes show through it as they do through pread; a read past the
    // mapped length (the file has grown) goes by pread, and after any SetLength in the
    // process the mapping is taken anew. Another process, or another thread, must not
    // cut a file while an object reads it: a read of the cut pages would fault.
    virtual UINT Read(void* buffer, UINT count);
    // Writes at the position, extending the file, and moves the position. A count of 0
    // does nothing, whatever the pointer. Throws CFileException on failure.
    virtual void Write(const void* buffer, UINT count);
    // Write-behind: while on, small writes that follow each other are gathered in
    // memory (up to 64 KiB) and reach the file together, at the latest at the next
    // Read, seek to the end, SetLength, Flush or Close, or when it is switched off.
    // An error of such a write surfaces as CFileException from that later call (and is
    // dropped at destruction). Off by default.
    void SetWriteBehind(bool on);
    // ReadHuge and WriteHuge: Read and Write with 32-bit counts.
    DWORD ReadHuge(void* buffer, DWORD count);
    void WriteHuge(const void* buffer, DWORD count);

    // Nonzero when `path` exists; fills `status`. Never throws.
    static BOOL GetStatus(const char* path, CFileStatus& status);
    // Deletes the file; throws CFileException on failure.
    static void Remove(const char* path);
    // Renames; throws CFileException on failure.
    static void Rename(const char* from, const char* to);

    // The descriptor, or hFileNull when closed.
    int m_hFile = hFileNull;

protected:
    [[noreturn]] void ThrowOsError(int error) const;
    void CheckOpen() const;
    // Writes the gathered bytes out.
    void FlushWriteBehind();
    void WriteAt(const void* buffer, UINT count, std::int64_t at);
    // The read through the mapping; false when it cannot serve the read.
    bool ReadMapped(void* buffer, UINT count);
    void Map();
    void Unmap();

    std::int64_t m_nPos = 0;
    CString m_strFileName;
    bool m_bWriteBehind = false;
    std::int64_t m_nPendingStart = 0;
    std::string m_pending;
    bool m_bReadOnly = false;
    bool m_bMapTried = false;
    const unsigned char* m_pMap = nullptr;
    std::int64_t m_nMapLength = 0;
    std::uint64_t m_nMapChanges = 0;
};

}  // namespace dorvik::classic

using dorvik::classic::CFile;
using dorvik::classic::CFileStatus;
