// Direct search of a text record file: a walk or a bisection of the view under the six
// switches, comparing zero-terminated texts by unsigned bytes.
#include <cstring>
#include <string>

#include "dorvik/TextBinFile.h"

namespace dorvik::classic {
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
    const bool bisecting = binary && anchored;
    const bool stripping = ignore && *ignore;

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

    // A walking pass over first..last (either order): tests, then moves one step.
    auto walk = [&](int from, int to, int step) -> int {
        for (int s = from; step > 0 ? s <= to : s >= to; s += step) {
            int v = verdict(s);
            if (v == -1) return kStop;
            if (v != 1) continue;
            if (matcher.Match(read(s))) return s;
        }
        return -1;
    };

    // After a hit the bisection turns round and walks the run of words that begin with
    // the text, from the hit towards `limit` (start + 1 forward, start - 1 backward); at
    // the first word that fails, or past `limit`, it steps back one serial. That is the
    // first word of the run in the order of the search, or the hit itself when `limit`
    // lies behind it (the second pass of a wrap).
    auto runStart = [&](int hit, int limit) -> int {
        const int step = backward ? 1 : -1;
        auto past = [&](long long s) { return step < 0 ? s < limit : s > limit; };
        // Forward the run is that of the prefix; backward, upward, the words that compare
        // as the hit did (a prefix run above an exact hit would pass other words).
        auto inRun = [&](const std::string& r) {
            return backward ? matcher.Compare(r) == 0 : matcher.Prefix(r);
        };
        if (!accept && !stripping && !(backward && wholeWord && !exact)) {
            // Nothing to call back and a sorted view: the walk's answer, found by
            // galloping away from the hit and bisecting the last gap, in reads
            // logarithmic in the length of the run. `good` begins with the text; `bad`
            // does not, or lies past the limit.
            if (past(hit + step)) return hit;
            long long good = hit, bad = static_cast<long long>(limit) + step;
            for (long long reach = 1;; reach *= 2) {
                long long s = hit + step * reach;
                if (past(s)) break;
                if (!inRun(read(static_cast<int>(s)))) {
                    bad = s;
                    break;
                }
                good = s;
            }
            while (bad - good > 1 || good - bad > 1) {
                long long middle = good + (bad - good) / 2;
                if (inRun(read(static_cast<int>(middle))))
                    good = middle;
                else
                    bad = middle;
            }
            return static_cast<int>(good);
        }
        int s = hit;
        do {
            int v = verdict(s);
            if (v == -1) return kStop;
            if (v == 1 && !inRun(read(s))) break;
            s += step;
        } while (!past(s));
        return s - step;
    };

    // A binary pass over first..last: probes the middle; above 0 moves `last` below it,
    // anything else moves `first` above it; a hit turns into the walk above. A probe
    // outside the view, or one that `accept` skips, has no comparison: it moves `first`.
    auto bisect = [&](int first, int last, int limit) -> int {
        while (first <= last) {
            int middle = static_cast<int>((static_cast<long long>(first) + last) / 2);
            int c = -1;
            if (middle >= 0 && middle < n) {
                int v = verdict(middle);
                if (v == -1) return kStop;
                if (v == 1) c = matcher.Compare(read(middle));
            }
            if (c == 0) return runStart(middle, limit);
            if (c > 0)
                last = middle - 1;
            else
                first = middle + 1;
        }
        return -1;
    };

    auto pass = [&](int first, int last) -> int {
        if (bisecting) return bisect(first, last, backward ? start - 1 : start + 1);
        if (first < 0) first = 0;
        if (last > n - 1) last = n - 1;
        if (first > last) return -1;
        return backward ? walk(last, first, -1) : walk(first, last, 1);
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

}  // namespace dorvik::classic
