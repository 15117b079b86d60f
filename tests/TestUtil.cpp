#include "TestUtil.h"

#include "dorvik/BinFile.h"
#include "dorvik/BitArray.h"
#include "dorvik/BitsBinFile.h"
#include "dorvik/Platform.h"
#include "frame/FileHook.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>
#include <thread>

TempDir::TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "dorvik-test-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
    m_path = pattern;
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

TempFolder::TempFolder() : m_hadOld(std::getenv("TMPDIR") != nullptr) {
    if (m_hadOld) m_old = std::getenv("TMPDIR");
    setenv("TMPDIR", m_dir.Root().c_str(), 1);
}

TempFolder::~TempFolder() {
    if (m_hadOld) {
        setenv("TMPDIR", m_old.c_str(), 1);
    } else {
        unsetenv("TMPDIR");
    }
}

std::vector<std::string> TempFolder::Files(const std::string& prefix) const {
    std::vector<std::string> out;
    for (const auto& entry : std::filesystem::directory_iterator(m_dir.Root()))
        if (entry.path().filename().string().starts_with(prefix))
            out.push_back(entry.path().string());
    return out;
}

Bytes B(const std::string& text) { return Bytes(text.begin(), text.end()); }

Bytes Hex(const std::string& digits) {
    Bytes out;
    std::string pending;
    for (char c : digits) {
        if (c == ' ' || c == '\n') continue;
        pending += c;
        if (pending.size() == 2) {
            out.push_back(static_cast<unsigned char>(std::stoul(pending, nullptr, 16)));
            pending.clear();
        }
    }
    if (!pending.empty()) throw std::invalid_argument("odd number of hex digits");
    return out;
}

Bytes Words(std::initializer_list<unsigned> words) {
    Bytes out;
    for (unsigned w : words) {
        for (int i = 0; i < 4; ++i) out.push_back(static_cast<unsigned char>(w >> (8 * i)));
    }
    return out;
}

Bytes Cat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

Bytes ReadAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteAll(const std::string& path, const Bytes& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
}

bool Exists(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0;
}

Bytes RecordFileImage(const std::vector<Bytes>& records) {
    Bytes data;
    Bytes table;
    unsigned offset = 0;
    for (const Bytes& r : records) {
        table = Cat({table, Words({offset})});
        data.insert(data.end(), r.begin(), r.end());
        offset += static_cast<unsigned>(r.size());
    }
    table = Cat({table, Words({offset})});
    return Cat({data, table});
}

std::vector<std::string> RecordsOf(CBinFile& file) {
    std::vector<std::string> out;
    for (int i = 0; i < file.GetRecordCount(); ++i) {
        unsigned char* b = nullptr;
        int n = 0;
        file.GetRecord(i, b, n, true);
        out.emplace_back(reinterpret_cast<char*>(b), static_cast<std::size_t>(n));
        DropBlock(b);
    }
    return out;
}

std::vector<int> SetBits(const CBitArray& bits) {
    std::vector<int> out;
    for (int i = 0; i < bits.GetLength() * 8; ++i)
        if (bits.GetAt(i)) out.push_back(i);
    return out;
}

CBitArray BitsOf(std::initializer_list<int> bits) {
    CBitArray a;
    for (int b : bits) a.SetAt(b);
    return a;
}

Set Row(CBitsBinFile& file, int index) {
    CBitArray bits;
    file.GetRecord(index, bits, -1);
    return SetBits(bits);
}

std::vector<Set> RowsOf(const std::string& path) {
    CBitsBinFile file(path.c_str(), CFile::modeRead);
    std::vector<Set> rows;
    for (int i = 0; i < file.GetRecordCount(); ++i) rows.push_back(Row(file, i));
    return rows;
}

void AddRows(CBitsBinFile& file, const std::vector<Set>& rows) {
    for (const auto& row : rows) {
        CBitArray bits;
        for (int b : row) bits.SetAt(b);
        file.Add(&bits);
    }
}

BlockLimit::BlockLimit(std::size_t limit) : m_old(DorvikSetBlockLimit(limit)) {}

BlockLimit::~BlockLimit() { DorvikSetBlockLimit(m_old); }

namespace {
MessageCapture* g_capture = nullptr;

int Capture(const char* text, UINT type, UINT help) {
    if (g_capture)
        g_capture->messages.push_back(std::string(text) + "|" + std::to_string(type) + "|" +
                                      std::to_string(help));
    return 1;
}
}  // namespace

MessageCapture::MessageCapture() : m_old(AfxSetMessageHandler(&Capture)) { g_capture = this; }

MessageCapture::~MessageCapture() {
    g_capture = nullptr;
    AfxSetMessageHandler(m_old);
}

namespace {
FileFaults* g_faults = nullptr;
// A write this small lies within one page: the death of the process lands it whole or
// not at all.
constexpr std::int64_t kPage = 4096;
}  // namespace

FileFaults::FileFaults(Mode mode, long at, bool reads)
    : m_mode(mode), m_at(at), m_reads(reads), m_old(dorvik::SetFileHook(&FileFaults::Hook)) {
    g_faults = this;
}

FileFaults::~FileFaults() {
    g_faults = nullptr;
    dorvik::SetFileHook(m_old);
}

UINT FileFaults::Hook(dorvik::FileCall call, UINT bytes, std::int64_t at) {
    if (!g_faults) return bytes;
    FileFaults& f = *g_faults;
    const bool read = call == dorvik::FileCall::read;
    const bool write = call == dorvik::FileCall::write;
    if (read && !f.m_reads) return bytes;
    if (f.m_mode == Mode::tear && !write) return bytes;
    const long n = f.m_calls++;
    const auto refuse = [&f] {
        f.m_struck = true;
        throw CFileException(CFileException::hardIO, EIO, "fault");
    };
    switch (f.m_mode) {
        case Mode::count:
            return bytes;
        case Mode::fail:
            if (n == f.m_at) refuse();
            return bytes;
        case Mode::tear:
            if (n != f.m_at) return bytes;
            f.m_struck = true;
            return bytes / 2;
        case Mode::stop:
        case Mode::stopTorn:
            if (n < f.m_at || read) return bytes;
            if (n == f.m_at && write && f.m_mode == Mode::stopTorn && at >= 0 &&
                at / kPage != (at + bytes - 1) / kPage) {
                f.m_struck = true;
                // Up to the boundary; the layer then fails the rest of the write.
                return static_cast<UINT>(kPage - at % kPage);
            }
            refuse();
    }
    return bytes;
}

std::vector<DamageCase> DamageCases(const Bytes& valid, std::size_t maxCases,
                                    std::size_t tailBytes) {
    std::vector<DamageCase> out;
    const std::size_t n = valid.size();
    const std::size_t tail = std::min(n, tailBytes);
    const std::size_t head = n - tail;
    const std::size_t room = maxCases / 4 > tail ? maxCases / 4 - tail : 1;
    const std::size_t step = head <= room ? 1 : (head + room - 1) / room;
    auto sampled = [&](std::size_t p, std::size_t change) {
        return p >= head || (p + change) % step == 0;
    };
    for (std::size_t length = 0; length < n; ++length) {
        if (sampled(length, 3))
            out.push_back({"cut to " + std::to_string(length),
                           Bytes(valid.begin(), valid.begin() + static_cast<long>(length))});
    }
    const unsigned char values[] = {0, 0x00, 0x7F};  // 0 stands for the complement
    for (std::size_t p = 0; p < n; ++p) {
        for (std::size_t v = 0; v < 3; ++v) {
            if (!sampled(p, v)) continue;
            unsigned char b = v == 0 ? static_cast<unsigned char>(~valid[p]) : values[v];
            if (b == valid[p]) continue;
            Bytes damaged = valid;
            damaged[p] = b;
            out.push_back({"byte " + std::to_string(p) + " = " + std::to_string(b), damaged});
        }
    }
    return out;
}

void KillAtRandom(const KillPlan& plan,
                  const std::function<void(int round, const std::function<void()>& done)>& writer,
                  const std::function<void(int round, int count)>& check) {
    std::mt19937 timing(plan.seed);
    const unsigned spread = static_cast<unsigned>(std::max(1, plan.maxMicros - plan.minMicros));
    for (int round = 0; round < plan.rounds; ++round) {
        int pipe[2];
        ASSERT_EQ(::pipe(pipe), 0);
        pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            close(pipe[0]);
            int count = 0;
            try {
                writer(round, [&] {
                    ++count;
                    if (write(pipe[1], &count, sizeof count) != sizeof count || getppid() == 1)
                        _exit(1);
                });
            } catch (...) {
                _exit(2);
            }
            _exit(0);
        }
        close(pipe[1]);
        std::this_thread::sleep_for(
            std::chrono::microseconds(plan.minMicros + static_cast<int>(timing() % spread)));
        kill(child, SIGKILL);
        int status = 0;
        waitpid(child, &status, 0);
        int count = 0, n = 0;
        while (read(pipe[0], &n, sizeof n) == sizeof n) count = n;
        close(pipe[0]);
        ASSERT_TRUE(WIFSIGNALED(status)) << "round " << round << ": the writer ended by itself, "
                                         << (WIFEXITED(status) ? WEXITSTATUS(status) : -1);
        check(round, count);
        if (::testing::Test::HasFailure()) return;
    }
}

int KillRounds(int rounds) {
    const char* times = std::getenv("DORVIK_KILL_TIMES");
    return times ? std::max(1, rounds * std::atoi(times)) : rounds;
}
