// Helpers shared by the test suites: a temporary directory per test, byte helpers,
// bit sets, and the two process-wide hooks held for the length of a test.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <vector>

#include "dorvik/BinFile.h"
#include "dorvik/BitArray.h"
#include "dorvik/BitsBinFile.h"

using Bytes = std::vector<unsigned char>;

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

// Points $TMPDIR at a directory of the test's own while it lives, so that the
// temporary files the library makes can be counted there.
class TempFolder {
public:
    TempFolder();
    ~TempFolder();
    // The files there whose names start with `prefix`, as full paths.
    std::vector<std::string> Files(const std::string& prefix) const;

private:
    TempDir m_dir;
    bool m_hadOld;
    std::string m_old;
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

// A set of bit numbers, rising.
using Set = std::vector<int>;
// The set bits of an array (plain bytes), rising.
Set SetBits(const CBitArray& bits);
// A plain array with these bits set.
CBitArray BitsOf(std::initializer_list<int> bits);
// The set bits of record `index` of a bit record file.
Set Row(CBitsBinFile& file, int index);
// Every record of the bit record file at `path`, opened read-only.
std::vector<Set> RowsOf(const std::string& path);
// Appends one record per set of bits (each given rising).
void AddRows(CBitsBinFile& file, const std::vector<Set>& rows);

// While alive, GrabBlock refuses every request above `limit` bytes (RegrowBlock
// throws), as if memory were that short; the old limit comes back at the end.
class BlockLimit {
public:
    explicit BlockLimit(std::size_t limit);
    ~BlockLimit();
    BlockLimit(const BlockLimit&) = delete;
    BlockLimit& operator=(const BlockLimit&) = delete;

private:
    std::size_t m_old;
};

// While alive, the texts shown by AfxMessageBox are recorded here, as "text|type|help",
// instead of reaching standard error.
class MessageCapture {
public:
    MessageCapture();
    ~MessageCapture();
    MessageCapture(const MessageCapture&) = delete;
    MessageCapture& operator=(const MessageCapture&) = delete;
    std::vector<std::string> messages;

private:
    int (*m_old)(const char*, unsigned, unsigned);
};
