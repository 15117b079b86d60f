#include "dorvik/BitArraySaver.h"

#include <bit>
#include <climits>
#include <cstring>

#include "dorvik/Exceptions.h"
#include "frame/Block.h"
#include "frame/Coding.h"
#include "frame/TempFile.h"

namespace dorvik::classic {
namespace {
constexpr int kMaxIndex = 10000;
constexpr UINT kOpenMode = CFile::modeReadWrite | CFile::shareDenyNone;

// Holds the lock for one scope, also when an exception leaves it.
class Hold {
public:
    explicit Hold(CCriticalSection& lock) : m_lock(lock) { m_lock.Lock(); }
    ~Hold() { m_lock.Unlock(); }
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;

private:
    CCriticalSection& m_lock;
};

// Whether a failure of the record file test says that the file holds none: the record
// layer gives no OS cause for that, or badSeek for a file too short for its table.
bool SaysNoRecordFile(const CFileException& e) {
    return e.m_cause == CFileException::none || e.m_cause == CFileException::invalidFile ||
           e.m_cause == CFileException::badSeek;
}

// Whether `path` is to be made anew: it is missing, or it holds no record file. A file
// that cannot be opened or read throws instead, so that a passing fault of the file
// layer never empties a stack.
bool NeedsFreshFile(const char* path) {
    CFileStatus status;
    if (!*path || !CFile::GetStatus(path, status)) return true;
    try {
        CBinFile file;
        CFileException error;
        if (!file.Open(path, CFile::shareDenyNone, &error)) {
            if (SaysNoRecordFile(error)) return true;
            throw error;
        }
        return !file.IsValidBinFile();
    } catch (const CFileException& e) {
        if (!SaysNoRecordFile(e)) throw;
        return true;
    }
}
}  // namespace

CBitArraySaver::CBitArraySaver() : m_nTop(-1), m_nMaxIndex(kMaxIndex), m_bOwnFile(false) {}

CBitArraySaver::~CBitArraySaver() {
    if (!m_bOwnFile) return;
    try {
        m_File.Close();
    } catch (const CException&) {
        // A destructor cannot report; the file goes anyway.
    }
    try {
        CFile::Remove(m_strPath);
    } catch (const CException&) {
        // Already gone, or not ours to remove any more.
    }
}

void CBitArraySaver::LeaveFile(const char* next) {
    if (m_nTop != -1) {
        m_nTop = -1;
        m_File.Close();
    }
    if (m_bOwnFile && m_strPath != next) {
        // Nobody else knows the temporary's name: once left, it could only linger.
        m_bOwnFile = false;
        try {
            CFile::Remove(m_strPath);
        } catch (const CException&) {
            // Already gone.
        }
    }
}

bool CBitArraySaver::SetTempFile(const char* path) {
    if (!path) path = "";
    Hold hold(m_Lock);
    LeaveFile(path);
    m_strPath = path;
    UINT mode = kOpenMode;
    bool fresh = NeedsFreshFile(path);
    if (fresh) mode |= CFile::modeCreate;
    try {
        CFileException error;
        if (!m_File.Open(path, mode, &error)) throw error;
        m_nTop = fresh ? 0 : ReadTop();
        if (fresh) WriteTop(0);
    } catch (...) {
        m_nTop = -1;
        try {
            m_File.Close();
        } catch (const CException&) {
            // The first error is the one to report.
        }
        throw;
    }
    return true;
}

void CBitArraySaver::InitTempFile() {
    CString name;
    MakeTempFileName(name, "egy");
    try {
        SetTempFile(name);
    } catch (...) {
        try {
            CFile::Remove(name);
        } catch (const CException&) {
            // The first error is the one to report.
        }
        throw;
    }
    m_bOwnFile = true;
}

int CBitArraySaver::ReadTop() {
    BYTE stored[4] = {};
    unsigned char* into = stored;
    int length = 4;
    m_File.CBinFile::GetRecord(0, into, length, false);
    if (length != 4) return 0;
    int top = static_cast<int>(dorvik::DecodeFixed32(stored));
    return top > 0 && top < m_nMaxIndex ? top : 0;
}

void CBitArraySaver::WriteTop(int top) {
    BYTE stored[4];
    dorvik::EncodeFixed32(stored, static_cast<DWORD>(top));
    m_File.CBinFile::Modify(0, stored, 4);
}

int CBitArraySaver::Push(unsigned char* data, int length, bool compress) {
    if (!data || length < 0) length = 0;
    Hold hold(m_Lock);
    if (m_nTop == -1) InitTempFile();
    // The top moves only once record and top are both written: a failed Push leaves
    // the number to the next one.
    int number = m_nTop + 1;
    if (compress) {
        m_File.Modify(number, data, length);
    } else {
        m_File.CBinFile::Modify(number, data, length);
    }
    WriteTop(number);
    m_nTop = number;
    return number;
}

int CBitArraySaver::Push(CBitArray& bits) { return Push(bits.GetBuffer(), bits.GetLength(), true); }

int CBitArraySaver::Push(CDWordArray& array) {
    if (array.GetSize() > INT_MAX / 4) throw CMemoryException();
    int length = array.GetSize() * 4;
    if constexpr (std::endian::native == std::endian::little) {
        return Push(reinterpret_cast<unsigned char*>(array.GetData()), length, false);
    } else {
        dorvik::Block<> stored = dorvik::GrabOrThrow(static_cast<std::size_t>(length));
        dorvik::EncodeFixed32Array(stored.get(), array.GetData(), array.GetSize());
        return Push(stored.get(), length, false);
    }
}

bool CBitArraySaver::Pop(int number, unsigned char*& buffer, int& length, bool expand) {
    buffer = nullptr;
    length = 0;
    if (number < 0 || (number > m_nMaxIndex && number > m_nTop)) return false;
    Hold hold(m_Lock);
    if (m_nTop == -1) InitTempFile();
    if (expand) {
        m_File.GetRecord(number, buffer, length, -1);
    } else {
        m_File.CBinFile::GetRecord(number, buffer, length, true);
    }
    return true;
}

bool CBitArraySaver::Pop(int number, CBitArray& bits) {
    bits.FreeBuffer();
    unsigned char* buffer = nullptr;
    int length = 0;
    if (!Pop(number, buffer, length, true)) return false;
    bits.Attach(buffer, length);
    return true;
}

bool CBitArraySaver::Pop(int number, CDWordArray& array) {
    array.RemoveAll();
    unsigned char* buffer = nullptr;
    int length = 0;
    if (!Pop(number, buffer, length, false)) return false;
    dorvik::Block<> hold = dorvik::Hold(buffer);
    int size = length / 4;
    array.SetSize(size);
    if (size > 0) {
        std::memcpy(array.GetData(), buffer, static_cast<std::size_t>(size) * 4);
        dorvik::FixedToHost32(array.GetData(), static_cast<std::size_t>(size));
    }
    return true;
}

}  // namespace dorvik::classic
