#include "dorvik/StringToken.h"

#include <cstring>
#include <vector>

#include "dorvik/Exceptions.h"

namespace dorvik::classic {
namespace {

const char* OrEmpty(const char* delimiters) { return delimiters ? delimiters : ""; }

// One token as a range of bytes, so that the static operations can walk a string
// without cutting it.
struct Span {
    const char* p;
    std::size_t n;
};

// The next token of `*cursor` as GetNext gives it with the default switches (skip a
// run of delimiters, then take a run of non-delimiters); false at the end.
bool NextToken(const char*& cursor, const char* delimiters, Span& token) {
    cursor += std::strspn(cursor, delimiters);
    if (*cursor == 0) return false;
    token.p = cursor;
    token.n = std::strcspn(cursor, delimiters);
    cursor += token.n;
    return true;
}

// The tokens of `s`, or `s` itself as one piece when no delimiters are given.
std::vector<Span> Pieces(const char* s, const char* delimiters) {
    std::vector<Span> out;
    if (!delimiters) {
        out.push_back({s, std::strlen(s)});
        return out;
    }
    Span token;
    for (const char* cursor = s; NextToken(cursor, delimiters, token);) out.push_back(token);
    return out;
}

const char* Match(const Span& in, const Span& what, bool whole) {
    if (whole) return in.n == what.n && std::memcmp(in.p, what.p, in.n) == 0 ? in.p : nullptr;
    return static_cast<const char*>(memmem(in.p, in.n, what.p, what.n));
}

}  // namespace

bool CStringToken::IsDelimiter(char c, const char* delimiters) {
    return std::strchr(OrEmpty(delimiters), static_cast<unsigned char>(c)) != nullptr;
}

void CStringToken::SetNext(const char* position) {
    if (m_cSaved && m_pNext) *m_pNext = m_cSaved;
    m_cSaved = 0;
    // The caller's buffer is writable by contract; the pointer arrives as const only
    // because a position may be taken from a const view of it.
    m_pNext = const_cast<char*>(position);
}

char* CStringToken::GetFirst(char* buffer, const char* delimiters) {
    Break();
    m_pNext = buffer;
    return GetNext(delimiters);
}

char* CStringToken::GetNext(const char* delimiters) {
    if (!m_pNext) return nullptr;
    if (m_cSaved) *m_pNext = m_cSaved;
    const char* d = OrEmpty(delimiters);
    char* t = m_pNext;

    if (*t == 0) {
        // Only a fresh start (or SetNext) can stand on the terminator: nothing was
        // replaced here. Stepping over it would leave the buffer.
        m_pNext = nullptr;
    } else if (m_bWholeDelimiter) {
        std::size_t n = std::strlen(d);
        if (n == 0) {
            m_pNext = t + std::strlen(t);
        } else if (m_bDelimiters) {
            m_pNext = std::strncmp(t, d, n) == 0 ? t + n : std::strstr(t, d);
        } else {
            if (m_bEmpty) {
                if (std::strncmp(t, d, n) == 0) t += n;
            } else {
                while (std::strncmp(t, d, n) == 0) t += n;
            }
            m_pNext = std::strstr(t, d);
        }
    } else if (m_bDelimiters) {
        m_pNext = IsDelimiter(*t, d) ? t + 1 : t + std::strcspn(t, d);
    } else if (m_bEmpty) {
        // A delimiter that the last step stopped on separates that token from this
        // one; a delimiter met without a saved byte (at the start) opens an empty one.
        if (m_cSaved && IsDelimiter(*t, d)) ++t;
        m_pNext = t + std::strcspn(t, d);
    } else {
        t += std::strspn(t, d);
        m_pNext = t + std::strcspn(t, d);
    }

    if (!m_pNext || *m_pNext == 0) {
        m_pNext = nullptr;
        m_cSaved = 0;
    } else {
        m_cSaved = *m_pNext;
        *m_pNext = 0;
    }
    if (*t == 0 && !m_bEmpty) return nullptr;
    return t;
}

int CStringToken::Split(const char* text, const char* delimiters, int& count, char**& parts) {
    const char* d = OrEmpty(delimiters);
    int capacity = 10;
    int found = 0;
    auto** list = static_cast<char**>(GrabBlock(capacity * sizeof(char*)));
    if (!list) throw CMemoryException();
    auto fail = [&]() {
        for (int i = 0; i < found; ++i) DropBlock(list[i]);
        DropBlock(list);
        throw CMemoryException();
    };

    Span token;
    for (const char* cursor = text ? text : ""; NextToken(cursor, d, token);) {
        if (found == capacity) {
            try {
                list = static_cast<char**>(RegrowBlock(list, (capacity + 10) * sizeof(char*)));
            } catch (const CMemoryException&) {
                fail();
            }
            capacity += 10;
        }
        auto* copy = static_cast<char*>(GrabBlock(token.n + 1));
        if (!copy) fail();
        std::memcpy(copy, token.p, token.n);
        list[found++] = copy;
    }
    count = found;
    parts = list;
    return found;
}

char* CStringToken::Find(const char* text, const char* textDelimiters, const char* what,
                         const char* whatDelimiters, bool whole) {
    if (!text || !what) return nullptr;
    // The searched pieces are few and met once per text token; the text, which may be
    // long, is walked without collecting its tokens.
    const std::vector<Span> searched = Pieces(what, whatDelimiters);
    auto search = [&](const Span& in) -> const char* {
        for (const Span& w : searched) {
            if (const char* hit = Match(in, w, whole)) return hit;
        }
        return nullptr;
    };
    const char* hit = nullptr;
    if (!textDelimiters) {
        hit = search({text, std::strlen(text)});
    } else {
        Span token;
        for (const char* cursor = text; !hit && NextToken(cursor, textDelimiters, token);)
            hit = search(token);
    }
    return const_cast<char*>(hit);
}

}  // namespace dorvik::classic
