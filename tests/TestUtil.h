// Helpers shared by the test suites: a temporary directory per test, byte helpers,
// bit sets, and the two process-wide hooks held for the length of a test.
#pragma once

#include <cstddef>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "dorvik/BinFile.h"
#include "dorvik/BitArray.h"
#include "dorvik/BitsBinFile.h"
#include "frame/FileHook.h"

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

// While alive, the calls of the file layer go through a plan. The calls that change
// files (write, truncate, create, remove, rename), and with `reads` the reads as well,
// are numbered from 0. `count` only counts them; `fail` makes call `at` fail with
// CFileException(hardIO) and lets all others through; `tear` lets half of write `at` land
// and then fails it, as a full disk would; `stop` refuses call `at` and every changing
// call after it, as if the process had died there, and `stopTorn` lets the part of write
// `at` up to its first page boundary land first when the write crosses one (a dying
// process copies a write page by page: within a page it lands whole or not at all).
// Process-wide: one plan at a time.
class FileFaults {
public:
    enum class Mode { count, fail, tear, stop, stopTorn };
    explicit FileFaults(Mode mode = Mode::count, long at = -1, bool reads = false);
    ~FileFaults();
    FileFaults(const FileFaults&) = delete;
    FileFaults& operator=(const FileFaults&) = delete;
    // The calls numbered so far.
    long Calls() const { return m_calls; }
    // Whether the plan acted (a call failed, tore or was refused).
    bool Struck() const { return m_struck; }

private:
    static UINT Hook(dorvik::FileCall call, UINT bytes, std::int64_t at);
    Mode m_mode;
    long m_at;
    bool m_reads;
    long m_calls = 0;
    bool m_struck = false;
    dorvik::FileHook m_old;
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

// A damaged copy of a valid file, and what was done to it.
struct DamageCase {
    std::string what;
    Bytes bytes;
};

// Every truncation, and every byte turned into its complement, 0x00 and 0x7F (where that
// changes it): four cases a byte. A file too large for `maxCases` keeps all cases of its
// last `tail` bytes (a table and its last word, a header) and those of every k-th byte
// before them, k the smallest step that keeps it within `maxCases`; the sample's offset
// turns with the change, so that neighbouring bytes see different ones.
std::vector<DamageCase> DamageCases(const Bytes& valid, std::size_t maxCases,
                                    std::size_t tail = 64);

// Kills a writer at random moments. Each of `rounds` rounds forks a child that runs
// `writer(round, done)`: it changes files without end and calls done() after each
// operation it completed. The parent kills it with SIGKILL after a random pause of
// `minMicros` to `maxMicros` (from a generator seeded with `seed`), waits for it and
// calls `check(round, count)` with the number of operations the child completed.
// Stops at the first failure; fails when a child ends by itself.
struct KillPlan {
    int rounds;
    int minMicros;
    int maxMicros;
    unsigned seed = 5;
};
void KillAtRandom(const KillPlan& plan,
                  const std::function<void(int round, const std::function<void()>& done)>& writer,
                  const std::function<void(int round, int count)>& check);
// `rounds` times $DORVIK_KILL_TIMES when that is set (a longer run of every kill test is
// one variable away), else `rounds`.
int KillRounds(int rounds);
