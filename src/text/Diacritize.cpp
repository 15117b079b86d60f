// Diacritization by dictionary look-up over the wildcard index.
#include "dorvik/Diacritize.h"

#include <bit>
#include <cstdint>
#include <cstring>
#include <string>
#include <unordered_map>
#include <vector>

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

const char dorvik::classic::DiacritizeDelimiters[37] = {
    ' ', '\t', '!',  '@',    '#',    '%', '^', '&',    '-', '=', '(', ')', '[',
    ']', '{',  '}',  '\xA1', '\xBA', ';', ':', '"',    ',', '.', '<', '>', '/',
    '`', '\'', '\r', '\n',   '|',    '$', '?', '\xBF', '+', '*', '\0'};

namespace {
// The chosen form of `word` among the records of `hits`, by `frequency(i)`; false when
// no record has a frequency of 0 or more.
template <class Frequency>
bool Choose(CString& word, CTextBinFile& dictionary, const CBitArray& hits, Frequency frequency) {
    int best = -1, chosen = -1;
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
            int f = frequency(record);
            if (f > best) {  // greater, not equal: the lowest record wins a tie
                best = f;
                chosen = record;
            }
        }
    }
    if (chosen < 0) return false;
    dictionary.GetString(chosen, word, true);
    word.TrimRight(DiacriticMarks);
    return true;
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
// The wildcard index held in memory, each cell expanded once. A cell is
// handed out whole whatever limit is asked: the search only ANDs it into a set no
// longer than that limit, so the result is the same.
class CachedIndex : public CMemNDimBitsBinFile {
public:
    explicit CachedIndex(const char* path) : CMemNDimBitsBinFile(path, 0) {}

    using CMemNDimBitsBinFile::GetRecord;

    void GetRecord(int dim, int* indices, CBitArray& bits, int limit) override {
        if (dim != 2) {
            CMemNDimBitsBinFile::GetRecord(dim, indices, bits, limit);
            return;
        }
        std::uint64_t key =
            (static_cast<std::uint64_t>(static_cast<std::uint32_t>(indices[0])) << 32) |
            static_cast<std::uint32_t>(indices[1]);
        auto at = m_cells.find(key);
        if (at == m_cells.end()) {
            unsigned char* block = nullptr;
            int length = 0;
            CMemNDimBitsBinFile::GetRecord(dim, indices, block, length, -1);
            at = m_cells.emplace(key, std::vector<unsigned char>(block, block + length)).first;
            DropBlock(block);
        }
        const std::vector<unsigned char>& cell = at->second;
        bits.SetCompressed(false);
        if (cell.empty()) {
            bits.FreeBuffer();
            return;
        }
        dorvik::Block<> copy = dorvik::GrabOrThrow(cell.size());
        std::memcpy(copy.get(), cell.data(), cell.size());
        bits.Attach(copy.release(), static_cast<int>(cell.size()));
    }

private:
    std::unordered_map<std::uint64_t, std::vector<unsigned char>> m_cells;
};
}  // namespace dorvik

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
    m_index = std::make_unique<CachedIndex>(indexPath);
    m_frequencies = LoadFrequencies(frequencyPath);
}

Diacritization::~Diacritization() = default;

int Diacritization::Frequency(int form) const {
    return (form >= 0 && static_cast<std::size_t>(form) < m_frequencies.size())
               ? m_frequencies[static_cast<std::size_t>(form)]
               : -1;
}

bool Diacritization::Word(CString& word) {
    return Lookup(word, m_dictionary, *m_index, [this](int i) { return Frequency(i); });
}

void Diacritization::Candidates(const char* word, std::vector<int>& forms) {
    CBitArray hits;
    m_dictionary.Find(m_index.get(), word, opEqual, DiacriticMarks, false, hits);
    int length = hits.GetLength();
    const unsigned char* bytes = hits.GetBuffer();
    for (int i = 0; i < length; ++i) {
        for (unsigned bits = bytes[i]; bits; bits &= bits - 1) {
            int form = i * 8 + std::countr_zero(bits);
            if (Frequency(form) >= 0) forms.push_back(form);
        }
    }
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
