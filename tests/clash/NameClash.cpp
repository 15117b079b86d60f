// A program with its own DWORD, BOOL, CString, CFile and opAnd, defined before and
// beside the library's modern header, which is all it includes of the library. Its
// classes have member functions whose names the engine's classic classes also have:
// the program must compile, link and run with both, and the library must never reach
// the program's own functions.
#include <unistd.h>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

typedef unsigned long DWORD;
typedef unsigned char BOOL;
int opAnd = 7;

namespace {
int userCalls = 0;
}

class CString {
public:
    CString(const char* text);
    CString& operator+=(const char* text);
    const std::string& str() const { return m_s; }

private:
    std::string m_s;
};

CString::CString(const char* text) : m_s(text ? text : "") { ++userCalls; }

CString& CString::operator+=(const char* text) {
    m_s += text;
    ++userCalls;
    return *this;
}

class CFile {
public:
    CFile();
    virtual ~CFile();
    virtual void Close();
    BOOL m_bOpen = 1;
};

CFile::CFile() { ++userCalls; }
CFile::~CFile() { ++userCalls; }
void CFile::Close() {
    m_bOpen = 0;
    ++userCalls;
}

#include <dorvik/dorvik.hpp>

namespace {
class Scratch {
public:
    Scratch() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "dorvik-clash-XXXXXX").string();
        if (mkdtemp(pattern.data())) m_path = pattern;
    }
    ~Scratch() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    std::filesystem::path operator/(const char* name) const { return m_path / name; }

private:
    std::filesystem::path m_path;
};
}  // namespace

TEST(NameClash, TheProgramsOwnClassesAndTheLibraryLiveSideBySide) {
    CString mine("mine");
    mine += " too";
    {
        CFile file;
        file.Close();
    }
    DWORD wide = 0xFFFFFFFFul;
    BOOL small = 200;
    const int calls = userCalls;

    Scratch dir;
    {
        dorvik::RecordFile records(dir / "r.bin", {.create = true});
        records.append("alpha");
        records.append("omega");
        EXPECT_EQ(records.read_string(1), "omega");
        records.close();
    }
    try {
        dorvik::RecordFile missing(dir / "missing.bin");
        ADD_FAILURE() << "opened a missing file";
    } catch (const dorvik::Error& e) {  // the engine built its exception with its own CString
        EXPECT_EQ(e.code(), dorvik::ErrorCode::not_found);
        EXPECT_NE(std::string(e.what()).find("missing.bin"), std::string::npos);
    }
    dorvik::BitSet a{1, 2, 3}, b{2, 3, 4};
    EXPECT_EQ(a & b, (dorvik::BitSet{2, 3}));
    {
        dorvik::Dictionary words(dir / "w.bin", {.create = true});
        words.add("kitab");
        EXPECT_EQ(words.find("kitab"), 0u);
    }

    EXPECT_EQ(userCalls, calls);  // the library never reached the program's functions
    EXPECT_EQ(mine.str(), "mine too");
    EXPECT_EQ(sizeof(wide), sizeof(unsigned long));
    EXPECT_EQ(small + opAnd, 207);
}
