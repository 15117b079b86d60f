// The wildcard index of a text file and the search through it.
//
// The index is a two-dimensional bit record file: cell (0, n) holds the records of n
// letters, cell (L + 1, b) the records that hold byte b at level L. A letter (any byte
// that is not a mark) after c letters has level c; a mark after c letters and r marks
// on the last letter has level 2c + r.
#include <cctype>
#include <cstddef>
#include <cstring>
#include <vector>

#include "bits/CompressedForm.h"
#include "dorvik/BitArray.h"
#include "dorvik/Collections.h"
#include "dorvik/NDimBitsBinFile.h"
#include "dorvik/TextBinFile.h"
#include "frame/Block.h"
#include "text/WildCardSearch.h"

namespace dorvik::classic {
const char DiacriticMarks[9] = {'\xF3', '\xF0', '\xF5', '\xF1', '\xF6',
                                '\xF2', '\xF8', '\xFA', '\0'};

namespace {
constexpr int kMaxLevel = 1024;
constexpr unsigned char kArabicQuestionMark = 0xBF;

bool IsIn(const char* set, unsigned char byte) {
    return set && byte != 0 && std::strchr(set, static_cast<char>(byte)) != nullptr;
}

// The records of every cell, gathered in rising order while the file is read. Lists
// of record numbers take far less memory than a plain bitmap per cell.
class CellLists {
public:
    void Add(int level, int key, DWORD record) {
        if (level >= static_cast<int>(m_levels.size()))
            m_levels.resize(static_cast<std::size_t>(level) + 1);
        auto& cells = m_levels[static_cast<std::size_t>(level)];
        if (key >= static_cast<int>(cells.size())) cells.resize(static_cast<std::size_t>(key) + 1);
        cells[static_cast<std::size_t>(key)].push_back(record);
    }

    // One compressed element per non-empty cell, in the form that compressing the
    // cell's plain bitmap gives; each list is dropped as soon as it is turned.
    void Fill(CBitArrayCollection& collection) {
        for (std::size_t level = 0; level < m_levels.size(); ++level) {
            auto& cells = m_levels[level];
            for (std::size_t key = 0; key < cells.size(); ++key) {
                std::vector<DWORD>& list = cells[key];
                if (list.empty()) continue;
                // A cell's records rise, each once: its form is built from the list.
                const std::vector<unsigned char> form = dorvik::form::EncodeSortedBits(list);
                const int packedLength = static_cast<int>(form.size());
                dorvik::Block<> packed = dorvik::GrabOrThrow(form.size());
                std::memcpy(packed.get(), form.data(), form.size());
                std::vector<DWORD>().swap(list);
                CBitArray* element =
                    collection.GetAt(static_cast<int>(level))->GetAt(static_cast<int>(key));
                element->SetCompressed(true);
                element->Attach(packed.release(), packedLength);
            }
            std::vector<std::vector<DWORD>>().swap(cells);
        }
    }

private:
    std::vector<std::vector<std::vector<DWORD>>> m_levels;
};

// The cell (levelKey, byte) as stored, compressed; empty when the index has none.
struct StoredCell {
    dorvik::Block<> bytes;
    int length = 0;
};

StoredCell ReadCell(CNDimBitsBinFile& index, int levelKey, int byte) {
    StoredCell cell;
    int path[] = {levelKey, byte};
    unsigned char* raw = nullptr;
    index.CNDimBinFile::GetRecord(2, path, raw, cell.length);
    cell.bytes.reset(raw);
    if (!raw) cell.length = 0;
    return cell;
}

// The AND of the cells, worked out on their compressed forms.
void IntersectCells(const std::vector<StoredCell>& cells, CBitArray& words) {
    std::vector<dorvik::form::FormSpan> forms;
    for (const StoredCell& c : cells)
        forms.push_back({c.bytes.get(), static_cast<std::size_t>(c.length)});
    int length = 0;
    dorvik::Block<> plain = dorvik::form::IntersectForms(forms.data(), forms.size(), -1, length);
    words.FreeBuffer();
    if (length > 0) words.Attach(plain.release(), length);
}

// W becomes `cell` when W is empty, else W AND `cell`.
void Narrow(CBitArray& words, const CBitArray& cell) {
    if (words.GetLength() == 0) {
        words = cell;
    } else {
        words &= cell;
    }
}
}  // namespace

void CTextBinFile::IndexForWildCards(CBinFile* file, const char* marks,
                                     bool (*progress)(int, int)) {
    CellLists cells;
    int n = CBinFile::GetRecordCount();
    // The words in memory for the walk, read in one piece rather than one read each.
    bool loaded = m_bFileMem;
    InitFileMem();
    struct Unload {
        CTextBinFile& file;
        bool keep;
        ~Unload() {
            if (!keep) file.FreeFileMem();
        }
    } unload{*this, loaded};
    CString text;
    for (int i = 0; i < n; ++i) {
        if (progress && !progress(i, n)) break;
        GetString(i, text, false);
        if (text.IsEmpty()) continue;
        WordLevels levels;
        for (const unsigned char* p =
                 reinterpret_cast<const unsigned char*>(static_cast<const char*>(text));
             *p; ++p) {
            bool mark = IsIn(marks, *p);
            int level = levels.Level(mark);
            if (level > kMaxLevel) continue;  // too deep: skipped, the counters stay
            cells.Add(level + 1, *p, static_cast<DWORD>(i));
            levels.Advance(mark);
        }
        cells.Add(0, levels.Letters(), static_cast<DWORD>(i));
    }
    CBitArrayCollection collection;
    cells.Fill(collection);
    collection.Save(file, opOr, true, false, progress);
}

void CTextBinFile::IndexForWildCards(const char* path, const char* marks,
                                     bool (*progress)(int, int)) {
    CBinFile file(path, CFile::modeCreate | CFile::modeReadWrite);
    IndexForWildCards(&file, marks, progress);
}

int CTextBinFile::Find(CNDimBitsBinFile* index, const char* pattern, Operation op,
                       const char* marks, bool ignoreCase, CBitArray& result) {
    return FindTokenForWildCards(index, pattern, op, marks, ignoreCase, 0, result);
}

int CTextBinFile::Find(const char* path, const char* pattern, Operation op, const char* marks,
                       bool ignoreCase, CBitArray& result) {
    CNDimBitsBinFile index(path, CFile::shareDenyNone);
    return Find(&index, pattern, op, marks, ignoreCase, result);
}

int CTextBinFile::FindTokenForWildCards(CNDimBitsBinFile* index, const char* pattern, Operation op,
                                        const char* marks, bool ignoreCase, int startLevel,
                                        CBitArray& result) {
    return FindWildCards(*this, index, pattern, op, marks, ignoreCase, startLevel, result, false);
}

int FindWildCards(CTextBinFile& text, CNDimBitsBinFile* index, const char* pattern, Operation op,
                  const char* marks, bool ignoreCase, int startLevel, CBitArray& result,
                  bool plain) {
    if (!pattern) {
        text.GetRecordsBitmap(result);
        if (op == opEqual) result.Invert(text.GetRecordCount());
        return 1;
    }
    result.FreeBuffer();
    if (!*pattern) return -1;
    // Cells are read as stored and intersected on their compressed forms; a pattern
    // that folds case takes two cells per byte and goes the plain way.
    if (ignoreCase) plain = true;
    const auto* rest = reinterpret_cast<const unsigned char*>(pattern);
    int firstLevel = startLevel;
    int endLevel = startLevel + 1;
    if (*rest == '*') {
        while (*rest == '*') ++rest;
        if (!*rest && startLevel == 0) {
            if (text.GetRecordCount() > 0) result.SetRange(0, text.GetRecordCount() - 1);
            return 1;
        }
        int lengthKey[] = {0};
        endLevel = index->GetRecordCount(1, lengthKey);
    }
    CBitArray words(false), cell(false);
    std::vector<StoredCell> cells;
    for (int level = firstLevel; level < endLevel; ++level) {
        int p = level, r = 0;
        words.FreeBuffer();
        cells.clear();
        bool checkLength = *rest != 0;
        bool lastLevel = false;
        bool emptied = false;  // a cell left no word: the level contributes nothing
        for (const unsigned char* q = rest; *q; ++q) {
            if (*q == '?' || *q == kArabicQuestionMark) {
                ++p;
                r = 0;
                continue;
            }
            if (*q == '*') {
                checkLength = false;
                if (q[1] == 0) break;  // the last character: any ending
                if (!cells.empty()) {
                    IntersectCells(cells, words);
                    cells.clear();
                    if (words.GetLength() == 0) {
                        emptied = true;  // the star is not reached
                        break;
                    }
                }
                // Any other star, a second one at the end included, matches the rest of
                // the pattern from the letter reached, and ends the start levels.
                lastLevel = true;
                if (FindWildCards(text, index, reinterpret_cast<const char*>(q), op, marks,
                                  ignoreCase, p, cell, plain) == -1) {
                    words.FreeBuffer();
                } else {
                    Narrow(words, cell);
                }
                break;
            }
            int levelKey;
            if (IsIn(DiacriticMarks, *q)) {
                levelKey = 2 * p + r + 1;
                ++r;
            } else {
                levelKey = p + 1;
                ++p;
                r = 0;
            }
            if (!plain) {
                cells.push_back(ReadCell(*index, levelKey, *q));
                if (cells.back().length == 0) {
                    emptied = true;
                    checkLength = false;
                    break;
                }
                continue;
            }
            int keys[2] = {*q, *q};
            int keyCount = 1;
            if (ignoreCase && std::tolower(*q) != std::toupper(*q)) {
                keys[0] = std::tolower(*q);
                keys[1] = std::toupper(*q);
                keyCount = 2;
            }
            int path[] = {levelKey};
            index->GetRecords(1, path, keyCount, keys, cell, true,
                              words.GetLength() ? words.GetLength() : -1);
            Narrow(words, cell);
            if (words.GetLength() == 0) {
                checkLength = false;
                break;
            }
        }
        if (checkLength && !plain) {
            cells.push_back(ReadCell(*index, 0, p));
            if (cells.back().length == 0) emptied = true;
        } else if (checkLength) {
            int path[] = {0, p};
            index->GetRecord(2, path, cell, words.GetLength() ? words.GetLength() : -1);
            Narrow(words, cell);
        }
        if (emptied)
            words.FreeBuffer();
        else if (!cells.empty())
            IntersectCells(cells, words);
        if (words.GetLength() != 0) result |= words;
        if (lastLevel) break;
    }
    if (startLevel == 0 && (op & (opEqual | opNot)) == (opEqual | opNot))
        result.Invert(text.GetRecordCount());
    return result.IsEmpty() ? -1 : 1;
}

}  // namespace dorvik::classic
