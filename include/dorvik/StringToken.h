// CStringToken: cuts a zero-terminated buffer into tokens in place. Each step writes
// one zero byte behind the current token and keeps the byte it replaced; the next step
// puts that byte back. No token is copied, and the buffer is whole again when a scan
// ends, by reaching the end of the buffer or by Break().
#pragma once

#include "Platform.h"

namespace dorvik::classic {
// Bytes are compared by exact value: bytes above 127 are ordinary characters and may
// be text or delimiters. A null delimiter string is the empty set everywhere. The
// buffer of a scan must stay in place and writable until the scan ends; nothing is
// owned. Not safe for concurrent use.
//
// The switches, all false by default, choose how GetNext cuts:
// - m_bDelimiters: each delimiter is a token of its own, and so is the text between.
// - m_bEmpty: two delimiters in a row give an empty token between them.
// - m_bWholeDelimiter: the delimiter string is one delimiter matched as a whole, not
//   a set of single-byte delimiters.
class DORVIK_API CStringToken {
public:
    // All switches false, no buffer, nothing saved.
    CStringToken() = default;
    // Member by member: the copy takes over the same scan of the same buffer, so only
    // one of the two should go on with it (either one may end it with Break()).
    CStringToken(const CStringToken&) = default;
    CStringToken& operator=(const CStringToken&) = default;

    // Break(), then starts a scan of `buffer` and returns GetNext(delimiters). A null
    // buffer gives null and leaves no scan pending.
    char* GetFirst(char* buffer, const char* delimiters);
    // The next token, zero-terminated in place, or null when there is none. The
    // delimiters may differ from call to call; each call makes progress. With m_bEmpty
    // false a null result always means the scan is over and the buffer whole. An empty
    // buffer gives no token, and one empty token with m_bEmpty.
    // An empty whole delimiter (m_bWholeDelimiter with "" or null) matches nowhere:
    // the rest of the buffer is one token.
    char* GetNext(const char* delimiters);
    // Puts the replaced byte back, if any, and goes on at `position` (null ends the
    // scan). A position inside the buffer restarts the scan there.
    void SetNext(const char* position);
    // SetNext(nullptr): ends a scan early and makes the buffer whole.
    void Break() { SetNext(nullptr); }
    // True once the scan has reached the end of the buffer: already right after the
    // token that reaches the end was handed out, not one call later.
    bool IsEOB() const { return m_pNext == nullptr; }

    // True when strchr finds `c` in `delimiters`; the zero byte therefore always counts
    // as a delimiter (also for a null set, which is the empty one).
    static bool IsDelimiter(char c, const char* delimiters);

    // All tokens of `text` that GetNext gives with the default switches, each copied
    // into its own block. Returns their number, also in `count`. `parts` receives a
    // block of pointers from GrabBlock, allocated even when there is no token; it and
    // each string (GrabBlock, zero-terminated) belong to the caller, who releases them
    // with DropBlock. `text` is only read (read-only memory is fine); null has no
    // tokens. Throws CMemoryException when a block cannot be had; nothing is then
    // allocated and `count` and `parts` are untouched.
    static int Split(const char* text, const char* delimiters, int& count, char**& parts);

    // Searches for `what`, or for any token of it when `whatDelimiters` is given, in
    // `text`, or in any token of it when `textDelimiters` is given (tokens as with the
    // default switches; text tokens outer, what tokens inner). `whole` true: a hit is
    // a token (or `text`) equal to the searched string, and the result is its start;
    // false: the first place where the searched string lies inside it. Returns a
    // pointer into `text`, whose string runs on past the token, or null for no hit or
    // a null `text` or `what`. Both strings are only read and stay whole.
    static char* Find(const char* text, const char* textDelimiters, const char* what,
                      const char* whatDelimiters, bool whole);

    bool m_bDelimiters = false;
    bool m_bEmpty = false;
    bool m_bWholeDelimiter = false;

protected:
    // Where the scan goes on: the byte replaced by a zero; null at the end.
    char* m_pNext = nullptr;
    // The byte replaced at m_pNext; 0 when nothing is replaced.
    char m_cSaved = 0;
};

}  // namespace dorvik::classic

using dorvik::classic::CStringToken;
