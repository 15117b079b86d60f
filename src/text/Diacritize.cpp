// Diacritization by dictionary look-up over the wildcard index.
#include "dorvik/Diacritize.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <string>
#include <unordered_map>
#include <vector>

#include "bits/Words.h"
#include "dorvik/BitArray.h"
#include "dorvik/IXFile.h"
#include "dorvik/MemNDimBinFile.h"
#include "dorvik/NDimBitsBinFile.h"
#include "dorvik/StringToken.h"
#include "dorvik/TextBinFile.h"
#include "frame/Block.h"
#include "frame/Coding.h"
#include "index/IXRecords.h"
#include "text/Diacritization.h"
#include "text/WildCardSearch.h"

const char dorvik::classic::DiacritizeDelimiters[37] = {
    ' ', '\t', '!',  '@',    '#',    '%', '^', '&',    '-', '=', '(', ')', '[',
    ']', '{',  '}',  '\xA1', '\xBA', ';', ':', '"',    ',', '.', '<', '>', '/',
    '`', '\'', '\r', '\n',   '|',    '$', '?', '\xBF', '+', '*', '\0'};

namespace {
// The record of the highest frequency among those offered; the lowest record wins a tie.
class BestForm {
public:
    void Offer(int record, int frequency) {
        if (frequency > m_frequency) {  // greater, not equal: the lowest record wins a tie
            m_frequency = frequency;
            m_record = record;
        }
    }
    // Replaces `word` by the chosen form without its trailing marks; false when no
    // record had a frequency of 0 or more.
    bool Take(CString& word, CTextBinFile& dictionary) const {
        if (m_record < 0) return false;
        dictionary.GetString(m_record, word, true);
        word.TrimRight(DiacriticMarks);
        return true;
    }

private:
    int m_frequency = -1;
    int m_record = -1;
};

// The chosen form of `word` among the records of `hits`, by `frequency(i)`; false when
// no record has a frequency of 0 or more.
template <class Frequency>
bool Choose(CString& word, CTextBinFile& dictionary, const CBitArray& hits, Frequency frequency) {
    BestForm best;
    const unsigned char* bytes = hits.GetBuffer();
    int length = hits.GetLength();
    for (int i = 0; i < length; i += 8) {
        // Eight bytes at a time: most of a hit set is zero.
        std::uint64_t hitBits = 0;
        if (length - i >= 8) {
            hitBits = dorvik::DecodeFixed64(bytes + i);
        } else {
            for (int k = length - i - 1; k >= 0; --k) hitBits = (hitBits << 8) | bytes[i + k];
        }
        for (; hitBits; hitBits &= hitBits - 1) {
            int record = i * 8 + std::countr_zero(hitBits);
            best.Offer(record, frequency(record));
        }
    }
    return best.Take(word, dictionary);
}

template <class Frequency>
bool Lookup(CString& word, CTextBinFile& dictionary, CNDimBitsBinFile& index, Frequency frequency) {
    CBitArray hits;
    dictionary.Find(&index, word, opEqual, DiacriticMarks, false, hits);
    if (hits.GetLength() == 0) return false;
    return Choose(word, dictionary, hits, frequency);
}

// The frequency file read whole: entry i, or -1 beyond its end (the init value).
std::vector<int> LoadFrequencies(const char* path) {
    CIXFile file(path, CFile::shareDenyNone, 4);
    return dorvik::ReadIXRecords(file);
}

// The look-up for one word on open files, as the plain algorithm does it.
bool DiacritizeToken(CString& word, CTextBinFile* dictionary, CNDimBitsBinFile* index,
                     CIXFile* frequencies) {
    return Lookup(word, *dictionary, *index,
                  [frequencies](int i) { return frequencies->GetRecord(i); });
}
}  // namespace

namespace dorvik {
// The wildcard index held in memory, each cell expanded once into 64-bit words, with
// the number of its words.
class CellCache {
public:
    struct Cell {
        std::vector<std::uint64_t> bits;  // bit n is bit n % 64 of bits[n / 64]
        std::vector<std::uint64_t> used;  // bit w is set when bits[w] is not 0
        std::size_t count = 0;
    };

    explicit CellCache(const char* path) : m_index(path, 0) {}

    // The cell (levelKey, byte); null when it holds no word.
    const Cell* Get(int levelKey, int byte) {
        std::uint64_t key =
            (static_cast<std::uint64_t>(static_cast<std::uint32_t>(levelKey)) << 32) |
            static_cast<std::uint32_t>(byte);
        auto at = m_cells.find(key);
        if (at == m_cells.end()) at = m_cells.emplace(key, Load(levelKey, byte)).first;
        return at->second.count ? &at->second : nullptr;
    }

private:
    Cell Load(int levelKey, int byte) {
        int path[] = {levelKey, byte};
        unsigned char* block = nullptr;
        int length = 0;
        m_index.CNDimBitsBinFile::GetRecord(2, path, block, length, -1);
        dorvik::Block<> hold = dorvik::Hold(block);
        Cell cell;
        cell.bits.resize((static_cast<std::size_t>(length) + 7) / 8);
        for (std::size_t w = 0; w < cell.bits.size(); ++w)
            cell.bits[w] = dorvik::bits::LoadWord(block, static_cast<std::size_t>(length), 8 * w);
        cell.used.resize((cell.bits.size() + 63) / 64);
        for (std::size_t w = 0; w < cell.bits.size(); ++w) {
            cell.count += static_cast<std::size_t>(std::popcount(cell.bits[w]));
            if (cell.bits[w]) cell.used[w / 64] |= std::uint64_t{1} << (w % 64);
        }
        return cell;
    }

    CMemNDimBitsBinFile m_index;
    std::unordered_map<std::uint64_t, Cell> m_cells;
};
}  // namespace dorvik

namespace {
// The records that the wildcard search gives for `word` (which holds no wildcard) in
// rising order, found on the cached cells: the two with the fewest words are ANDed a
// word at a time, and each record left is tested in the others. The same cells as the
// search takes: one per letter and mark at its level, and the letter count.
std::vector<int> Hits(const CString& word, dorvik::CellCache& cells) {
    std::vector<const dorvik::CellCache::Cell*> needed;
    dorvik::classic::WordLevels levels;
    for (const unsigned char* q = reinterpret_cast<const unsigned char*>(word.str().c_str()); *q;
         ++q) {
        bool mark = std::memchr(DiacriticMarks, *q, 8) != nullptr;
        needed.push_back(cells.Get(levels.Level(mark) + 1, *q));
        levels.Advance(mark);
    }
    needed.push_back(cells.Get(0, levels.Letters()));
    std::vector<int> hits;
    for (const auto* cell : needed)
        if (!cell) return hits;
    std::sort(needed.begin(), needed.end(),
              [](const auto* a, const auto* b) { return a->count < b->count; });
    const auto& first = *needed[0];
    const auto& second = needed.size() > 1 ? *needed[1] : first;
    // The words that both cells use are found from their summaries, 64 words a step:
    // the later letters of a word pick cells that most words leave empty.
    std::size_t summaries = std::min(first.used.size(), second.used.size());
    for (std::size_t u = 0; u < summaries; ++u) {
        for (std::uint64_t both = first.used[u] & second.used[u]; both; both &= both - 1) {
            std::size_t w = 64 * u + static_cast<std::size_t>(std::countr_zero(both));
            for (std::uint64_t bits = first.bits[w] & second.bits[w]; bits; bits &= bits - 1) {
                std::size_t bit = 64 * w + static_cast<std::size_t>(std::countr_zero(bits));
                bool all = true;
                for (std::size_t k = 2; k < needed.size() && all; ++k) {
                    const auto& other = needed[k]->bits;
                    all = bit / 64 < other.size() && (other[bit / 64] >> (bit % 64) & 1);
                }
                if (all) hits.push_back(static_cast<int>(bit));
            }
        }
    }
    return hits;
}
}  // namespace

bool DiacritizeWord(CString& word, const char* dictionaryPath, const char* indexPath,
                    const char* frequencyPath) {
    CTextBinFile dictionary(dictionaryPath, CFile::shareDenyNone);
    CNDimBitsBinFile index(indexPath, CFile::shareDenyNone);
    CIXFile frequencies(frequencyPath, CFile::shareDenyNone, 4);
    return DiacritizeToken(word, &dictionary, &index, &frequencies);
}

void DiacritizeBuffer(char* buffer, CString& result, const char* dictionaryPath,
                      const char* indexPath, const char* frequencyPath) {
    dorvik::Diacritization files(dictionaryPath, indexPath, frequencyPath);
    if (!buffer) return;
    std::string text;
    files.Buffer(buffer, text);
    result += text.c_str();
}

namespace dorvik {

Diacritization::Diacritization(const char* dictionaryPath, const char* indexPath,
                               const char* frequencyPath)
    : m_dictionary(dictionaryPath, CFile::shareDenyNone) {
    CFileStatus status;
    if (!CFile::GetStatus(indexPath, status))
        throw CFileException(CFileException::fileNotFound, 2, indexPath);
    m_index = std::make_unique<CellCache>(indexPath);
    m_frequencies = LoadFrequencies(frequencyPath);
}

Diacritization::~Diacritization() = default;

int Diacritization::Frequency(int form) const {
    return (form >= 0 && static_cast<std::size_t>(form) < m_frequencies.size())
               ? m_frequencies[static_cast<std::size_t>(form)]
               : -1;
}

bool Diacritization::Word(CString& word) {
    BestForm best;
    for (int record : Hits(word, *m_index)) best.Offer(record, Frequency(record));
    return best.Take(word, m_dictionary);
}

void Diacritization::Candidates(const char* word, std::vector<int>& forms) {
    for (int form : Hits(CString(word), *m_index))
        if (Frequency(form) >= 0) forms.push_back(form);
}

std::string Diacritization::Form(int form) {
    CString text;
    m_dictionary.GetString(form, text, true);
    return text.str();
}

void Diacritization::Buffer(char* buffer, std::string& result) {
    CStringToken token;
    token.m_bDelimiters = true;
    for (char* t = token.GetFirst(buffer, DiacritizeDelimiters); t;
         t = token.GetNext(DiacritizeDelimiters)) {
        if (CStringToken::IsDelimiter(*t, DiacritizeDelimiters)) {
            result += t;
            continue;
        }
        auto at = m_seen.find(t);
        if (at == m_seen.end()) {
            if (m_seen.size() >= kSeenWords) m_seen.clear();
            CString word(t);
            Word(word);
            at = m_seen.emplace(t, word.str()).first;
        }
        result += at->second;
    }
}

int Diacritization::FormCount() { return m_dictionary.CBinFile::GetRecordCount(); }

int Diacritization::LongestForm() {
    if (m_longest < 0) m_longest = m_dictionary.GetMaxRecordLength();
    return m_longest;
}

}  // namespace dorvik
