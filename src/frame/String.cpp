#include "dorvik/String.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "dorvik/Exceptions.h"

namespace dorvik::classic {
CString::CString(const char* text) : m_s(text ? text : "") {}

CString::CString(const char* text, int length) {
    if (text && length > 0) m_s.assign(text, static_cast<std::size_t>(length));
}

CString& CString::operator=(const char* text) {
    m_s = text ? text : "";
    return *this;
}

char CString::GetAt(int index) const {
    return (index >= 0 && index < GetLength()) ? m_s[static_cast<std::size_t>(index)] : '\0';
}

char* CString::GetBuffer(int minLength) {
    if (minLength > GetLength()) m_s.resize(static_cast<std::size_t>(minLength));
    return m_s.data();
}

void CString::ReleaseBuffer(int newLength) {
    std::size_t n = newLength < 0 ? std::strlen(m_s.c_str()) : static_cast<std::size_t>(newLength);
    if (n > m_s.size()) n = m_s.size();
    m_s.resize(n);
}

int CString::Find(char c, int start) const {
    if (start < 0) start = 0;
    if (start >= GetLength()) return -1;
    std::size_t at = m_s.find(c, static_cast<std::size_t>(start));
    return at == std::string::npos ? -1 : static_cast<int>(at);
}

int CString::Find(const char* text, int start) const {
    if (!text || start < 0 || start > GetLength()) return -1;
    // Compared as C strings: the search stops at the first NUL of this string.
    const char* base = m_s.c_str();
    if (static_cast<std::size_t>(start) > std::strlen(base)) return -1;
    const char* hit = std::strstr(base + start, text);
    return hit ? static_cast<int>(hit - base) : -1;
}

CString CString::Left(int count) const {
    if (count <= 0) return CString();
    return CString(m_s.c_str(), count < GetLength() ? count : GetLength());
}

CString CString::Right(int count) const {
    if (count <= 0) return CString();
    if (count >= GetLength()) return *this;
    return CString(m_s.c_str() + GetLength() - count, count);
}

CString CString::Mid(int first) const { return Mid(first, GetLength()); }

CString CString::Mid(int first, int count) const {
    if (first < 0) first = 0;
    if (first >= GetLength() || count <= 0) return CString();
    int rest = GetLength() - first;
    return CString(m_s.c_str() + first, count < rest ? count : rest);
}

namespace {
bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
}  // namespace

void CString::TrimLeft() {
    std::size_t i = 0;
    while (i < m_s.size() && IsSpace(m_s[i])) ++i;
    m_s.erase(0, i);
}

void CString::TrimRight() {
    std::size_t n = m_s.size();
    while (n > 0 && IsSpace(m_s[n - 1])) --n;
    m_s.resize(n);
}

void CString::TrimRight(const char* characters) {
    if (!characters) return;
    std::size_t n = m_s.size();
    while (n > 0 && m_s[n - 1] != '\0' && std::strchr(characters, m_s[n - 1])) --n;
    m_s.resize(n);
}

void CString::Format(const char* format, ...) {
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    int n = std::vsnprintf(nullptr, 0, format, args);
    va_end(args);
    if (n < 0) {
        va_end(again);
        m_s.clear();
        return;
    }
    std::string out(static_cast<std::size_t>(n) + 1, '\0');
    std::vsnprintf(out.data(), out.size(), format, again);
    va_end(again);
    out.resize(static_cast<std::size_t>(n));
    m_s.swap(out);
}

CString& CString::operator+=(const CString& text) {
    m_s += text.m_s;
    return *this;
}

CString& CString::operator+=(char c) {
    m_s += c;
    return *this;
}

CString& CString::operator+=(const char* text) {
    if (text) m_s += text;
    return *this;
}

CString operator+(const CString& a, const CString& b) {
    CString r(a);
    r += b;
    return r;
}
CString operator+(const CString& a, char b) {
    CString r(a);
    r += b;
    return r;
}
CString operator+(const CString& a, const char* b) {
    CString r(a);
    r += b;
    return r;
}
CString operator+(char a, const CString& b) {
    CString r;
    r += a;
    r += b;
    return r;
}
CString operator+(const char* a, const CString& b) {
    CString r(a);
    r += b;
    return r;
}

}  // namespace dorvik::classic
