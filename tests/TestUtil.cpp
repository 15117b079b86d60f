#include "TestUtil.h"

#include "dorvik/BinFile.h"
#include "dorvik/BitArray.h"
#include "dorvik/BitsBinFile.h"
#include "dorvik/Platform.h"

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

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
