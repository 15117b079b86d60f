// CString: a string of single-byte characters, always NUL-terminated. Bytes above 127
// are ordinary characters everywhere; no operation knows an encoding or a locale.
#pragma once

#include <string>

#include "Platform.h"

namespace dorvik::classic {
class DORVIK_API CString {
public:
    CString() = default;
    CString(const CString&) = default;
    CString(CString&&) noexcept = default;
    CString(const char* text);              // null gives the empty string
    CString(const char* text, int length);  // `length` bytes, NULs included
    ~CString() = default;

    CString& operator=(const CString&) = default;
    CString& operator=(CString&&) noexcept = default;
    CString& operator=(const char* text);

    operator const char*() const { return m_s.c_str(); }
    int GetLength() const { return static_cast<int>(m_s.size()); }
    bool IsEmpty() const { return m_s.empty(); }
    void Empty() { m_s.clear(); }
    // The byte at `index`; 0 outside 0 .. length - 1.
    char operator[](int index) const { return GetAt(index); }
    char GetAt(int index) const;

    // A writable buffer of at least `minLength` bytes plus a NUL; the content stays.
    // ReleaseBuffer ends the writing: with -1 the length is measured up to the first
    // NUL, otherwise it is `newLength` (clamped to the buffer).
    char* GetBuffer(int minLength);
    void ReleaseBuffer(int newLength = -1);

    // Index of the first match at or behind `start`, or -1.
    int Find(char c) const { return Find(c, 0); }
    int Find(char c, int start) const;
    int Find(const char* text) const { return Find(text, 0); }
    int Find(const char* text, int start) const;

    // Substrings; counts beyond the string are clamped.
    CString Left(int count) const;
    CString Right(int count) const;
    CString Mid(int first) const;
    CString Mid(int first, int count) const;

    void TrimLeft();  // white space: blank, \t, \n, \v, \f, \r
    void TrimRight();
    void TrimRight(const char* characters);  // any of the given bytes

    void Format(const char* format, ...) __attribute__((format(printf, 2, 3)));

    CString& operator+=(const CString& text);
    CString& operator+=(char c);
    CString& operator+=(const char* text);

    const std::string& str() const { return m_s; }

private:
    std::string m_s;
};

DORVIK_API CString operator+(const CString& a, const CString& b);
DORVIK_API CString operator+(const CString& a, char b);
DORVIK_API CString operator+(const CString& a, const char* b);
DORVIK_API CString operator+(char a, const CString& b);
DORVIK_API CString operator+(const char* a, const CString& b);
inline bool operator==(const CString& a, const CString& b) { return a.str() == b.str(); }
inline bool operator==(const CString& a, const char* b) { return a.str() == (b ? b : ""); }
inline bool operator!=(const CString& a, const CString& b) { return !(a == b); }
inline bool operator!=(const CString& a, const char* b) { return !(a == b); }
inline bool operator<(const CString& a, const CString& b) { return a.str() < b.str(); }

}  // namespace dorvik::classic

using dorvik::classic::CString;
