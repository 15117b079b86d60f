// Direct search of a text record file: a walk or a bisection of the view under the six
// switches, comparing zero-terminated texts by unsigned bytes.
#include <cstring>
#include <string>

#include "dorvik/TextBinFile.h"

namespace {
constexpr int kStop = -2;  // the accept callback ended the search

class CTextMatcher {
public:
    CTextMatcher(const char* text, const char* ignore, bool wholeWord, bool anchored, bool exact)
        : m_bWholeWord(wholeWord), m_bAnchored(anchored), m_bExact(exact) {
        if (ignore) {
            for (const unsigned char* p = reinterpret_cast<const unsigned char*>(ignore); *p; ++p)
                m_Ignore[*p] = true;
        }
        Strip(text, m_Text);
    }

    const std::string& Text() const { return m_Text; }

    // `text` without the ignored bytes, into `out`.
    void Strip(const char* text, std::string& out) const {
        out.clear();
        for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p; ++p) {
            if (!m_Ignore[*p]) out.push_back(static_cast<char>(*p));
        }
    }

    // The ordered comparison of an anchored search: above 0 when the record sorts
    // behind the text, 0 on a match.
    int Compare(const std::string& record) const {
        const char* r = record.c_str();
        const char* t = m_Text.c_str();
        const std::size_t n = m_Text.size();
        if (m_bExact) return std::strcmp(r, t);
        if (m_bWholeWord) {
            if (record.size() > n && r[n] == ' ') return std::memcmp(r, t, n);
            return std::strcmp(r, t);
        }
        return std::strncmp(r, t, n);
    }

    // True when the record begins with the text: the run that a bisection walks.
    bool Prefix(const std::string& record) const {
        return std::strncmp(record.c_str(), m_Text.c_str(), m_Text.size()) == 0;
    }

    bool Match(const std::string& record) const {
        if (m_bAnchored) return Compare(record) == 0;
        const char* r = record.c_str();
        const char* t = m_Text.c_str();
        if (!m_bWholeWord) return std::strstr(r, t) != nullptr;
        const std::size_t n = m_Text.size();
        if (n == 0) return false;
        // Every occurrence counts, overlapping ones too: the first may fail its
        // neighbours while a later one stands between blanks.
        for (const char* at = std::strstr(r, t); at; at = std::strstr(at + 1, t)) {
            bool before = at == r || at[-1] == ' ';
            bool after = at[n] == ' ' || at[n] == '\0';
            if (before && after) return true;
        }
        return false;
    }

private:
    bool m_Ignore[256] = {};
    std::string m_Text;
    bool m_bWholeWord;
    bool m_bAnchored;
    bool m_bExact;
};
}  // namespace

int CTextBinFile::Find(int start, const char* text, const char* ignore, bool backward,
                       bool wholeWord, bool anchored, bool wrap, bool binary, bool exact,
                       int (*accept)(int)) {
    if (!text) return -1;
    CTextMatcher matcher(text, ignore, wholeWord, anchored, exact);
    // An empty text stands everywhere and between no blanks: nothing to find.
    if (matcher.Text().empty() && wholeWord && !anchored) return -1;
    const int n = GetRecordCount();
    if (n <= 0) return -1;
    // Outside -1..n every start gives the same passes; inside, start +- 1 cannot overflow.
    if (start < -1) start = -1;
    if (start > n) start = n;

    // One read buffer and one stripped copy serve every record of the call; the view is
    // measured once.
    const int indexCount = IndexCount(n);
    CString raw;
    std::string record;
    auto read = [&](int serial) -> const std::string& {
        ReadRecordText(ViewRecord(serial, indexCount), raw);
        matcher.Strip(raw, record);
        return record;
    };
    // 1 test, -1 stop, anything else skip.
    auto verdict = [&](int serial) { return accept ? accept(serial) : 1; };

    auto walk = [&](int from, int to, int step) -> int {
        for (int s = from; step > 0 ? s <= to : s >= to; s += step) {
            int v = verdict(s);
            if (v == -1) return kStop;
            if (v != 1) continue;
            if (matcher.Match(read(s))) return s;
        }
        return -1;
    };

    // Bisection of lo..hi for the end of the run of matching words on the side the
    // search comes from: forward the lowest serial whose comparison is 0 or above,
    // backward the highest whose comparison is 0 or below. From there the run is walked
    // in the direction of the search, and its first accepted match is the result.
    auto bisect = [&](int lo, int hi) -> int {
        int a = lo, b = hi + 1;  // forward: the answer lies in a..b, b meaning none
        if (backward) {
            a = lo - 1;
            b = hi;  // backward: the answer lies in a..b, a meaning none
        }
        while (a < b) {
            if (!backward) {
                int m = a + (b - a) / 2;
                if (matcher.Compare(read(m)) >= 0)
                    b = m;
                else
                    a = m + 1;
            } else {
                int m = b - (b - a) / 2;
                if (matcher.Compare(read(m)) <= 0)
                    a = m;
                else
                    b = m - 1;
            }
        }
        int s = backward ? a : b;
        const int step = backward ? -1 : 1;
        for (; s >= lo && s <= hi; s += step) {
            // Exact and prefix matches stand together; whole words may have words
            // between them that share the beginning, so the walk goes on over those.
            const std::string& r = read(s);
            if (wholeWord && !exact ? !matcher.Prefix(r) : matcher.Compare(r) != 0) break;
            int v = verdict(s);
            if (v == -1) return kStop;
            if (v != 1) continue;
            if (matcher.Match(record)) return s;
        }
        return -1;
    };

    auto pass = [&](int lo, int hi) -> int {
        if (lo < 0) lo = 0;
        if (hi > n - 1) hi = n - 1;
        if (lo > hi) return -1;
        if (binary && anchored) return bisect(lo, hi);
        return backward ? walk(hi, lo, -1) : walk(lo, hi, 1);
    };

    int found;
    if (!backward) {
        found = pass(start + 1, n - 1);
        if (found == -1 && wrap) found = pass(0, start);
    } else {
        found = pass(0, start - 1);
        if (found == -1 && wrap) found = pass(start, n - 1);
    }
    return found < 0 ? -1 : found;
}
