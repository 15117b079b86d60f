// Helpers shared by the test suites: a temporary directory per test and byte helpers.
#pragma once

#include <set>
#include <string>
#include <vector>

using Bytes = std::vector<unsigned char>;

class CBinFile;
class CBitArray;
class CBitsBinFile;

// A directory of its own for one test, removed with all it holds at the end.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    std::string Path(const std::string& name) const { return m_path + "/" + name; }
    const std::string& Root() const { return m_path; }

private:
    std::string m_path;
};

// The bytes of a text, without terminator.
Bytes B(const std::string& text);
// Bytes from hex digits; blanks are ignored ("61 62 00000000" is 6 bytes).
Bytes Hex(const std::string& digits);
// Little-endian 32-bit words.
Bytes Words(std::initializer_list<unsigned> words);
Bytes Cat(std::initializer_list<Bytes> parts);
Bytes ReadAll(const std::string& path);
void WriteAll(const std::string& path, const Bytes& bytes);
bool Exists(const std::string& path);
// The record file image of a list of records, built by hand.
Bytes RecordFileImage(const std::vector<Bytes>& records);
// A text as the unsigned bytes the record writers take.
inline unsigned char* P(const char* text) {
    return reinterpret_cast<unsigned char*>(const_cast<char*>(text));
}
// Every record of an open record file, in order.
std::vector<std::string> RecordsOf(CBinFile& file);

// The set bits of a plain bit array.
std::set<int> SetOf(const CBitArray& bits);
// The set bits of record `index` of a bit record file.
std::set<int> Row(CBitsBinFile& file, int index);
// Every record of the bit record file at `path`, opened read-only.
std::vector<std::set<int>> RowsOf(const std::string& path);
// Appends one record per set of bits.
void AddRows(CBitsBinFile& file, const std::vector<std::set<int>>& rows);
