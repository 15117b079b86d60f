#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "Dorvik01.h"
#include "TestUtil.h"
#include "frame/Checksum.h"
#include "frame/Library.h"
#include "frame/TempFile.h"

namespace {
bool AllZero(const void* p, std::size_t n) {
    const unsigned char* b = static_cast<const unsigned char*>(p);
    for (std::size_t i = 0; i < n; ++i)
        if (b[i]) return false;
    return true;
}

std::vector<std::string> g_lines;
void Capture(const char* text) { g_lines.emplace_back(text); }
}  // namespace

TEST(Blocks, ComeZeroedAndStayZeroedThroughShrinkAndGrowth) {
    for (std::size_t size : {0u, 1u, 7u, 4096u, 1u << 20}) {
        void* b = GrabBlock(size);
        ASSERT_NE(b, nullptr);
        EXPECT_TRUE(AllZero(b, size));
        DropBlock(b);
    }
    auto* b = static_cast<unsigned char*>(GrabBlock(1000));
    std::memset(b, 0xAA, 1000);
    b = static_cast<unsigned char*>(RegrowBlock(b, 10));    // shrink in place
    b = static_cast<unsigned char*>(RegrowBlock(b, 5000));  // and grow again
    for (int i = 0; i < 10; ++i) EXPECT_EQ(b[i], 0xAA);
    EXPECT_TRUE(AllZero(b + 10, 4990));
    std::free(b);  // the two families mix
    // A block from malloc may be regrown: its bytes stay, and the new ones read 0.
    auto* m = static_cast<unsigned char*>(std::malloc(16));
    std::memset(m, 0x55, 16);
    m = static_cast<unsigned char*>(RegrowBlock(m, 1 << 16));
    EXPECT_EQ(m[0], 0x55);
    EXPECT_EQ(m[15], 0x55);
    EXPECT_TRUE(AllZero(m + 64, (1 << 16) - 64));
    DropBlock(m);
}

TEST(Blocks, TheLimitHookMakesLargeRequestsFail) {
    void* small = nullptr;
    {
        BlockLimit limit(100);
        EXPECT_EQ(GrabBlock(101), nullptr);
        small = GrabBlock(100);
        EXPECT_NE(small, nullptr);
        EXPECT_THROW(small = RegrowBlock(small, 200), CMemoryException);
        EXPECT_THROW(RegrowBlock(nullptr, 101), CMemoryException);
    }
    small = RegrowBlock(small, 200);  // lifted with the end of the scope
    EXPECT_TRUE(AllZero(small, 200));
    DropBlock(small);
}

TEST(File, WritesReadsAndSeeksAsAPlainByteFile) {
    TempDir dir;
    CFile f(dir.Path("a").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    f.Write(nullptr, 0);  // nothing, no failure
    EXPECT_EQ(f.GetLength(), 0u);
    f.Seek(10, CFile::begin);
    f.Write("xy", 2);
    EXPECT_EQ(f.GetLength(), 12u);
    EXPECT_EQ(f.GetPosition(), 12u);
    char buf[16] = {1};
    f.SeekToBegin();
    EXPECT_EQ(f.Read(buf, 16), 12u);
    EXPECT_TRUE(AllZero(buf, 10));
    EXPECT_EQ(f.Read(buf, 16), 0u);  // at the end
    f.Seek(100, CFile::begin);
    EXPECT_EQ(f.Read(buf, 4), 0u);  // past the end
    EXPECT_THROW(f.Seek(-1, CFile::begin), CFileException);
    EXPECT_THROW(f.Seek(-13, CFile::end), CFileException);
    f.SetLength(3);
    EXPECT_EQ(f.SeekToEnd(), 3u);
    EXPECT_EQ(std::string(f.GetFilePath()), dir.Path("a"));
    f.Close();
    EXPECT_THROW(f.Read(buf, 1), CFileException);
}

TEST(File, OpenFailuresReportTheirCause) {
    TempDir dir;
    CFile f;
    CFileException error;
    EXPECT_FALSE(f.Open(dir.Path("missing").c_str(), CFile::modeRead, &error));
    EXPECT_EQ(error.m_cause, CFileException::fileNotFound);
    EXPECT_FALSE(f.Open(dir.Root().c_str(), CFile::modeRead, &error));  // a directory
    EXPECT_EQ(error.m_cause, CFileException::accessDenied);
    try {
        CFile g(dir.Path("missing").c_str(), CFile::modeRead);
        FAIL();
    } catch (const CFileException& e) {
        EXPECT_EQ(e.m_cause, CFileException::fileNotFound);
        EXPECT_EQ(std::string(e.m_strFileName), dir.Path("missing"));
    }
    CFileStatus status;
    EXPECT_FALSE(CFile::GetStatus(dir.Path("missing").c_str(), status));
    EXPECT_THROW(CFile::Remove(dir.Path("missing").c_str()), CFileException);
    EXPECT_THROW(CFile::Rename(dir.Path("missing").c_str(), dir.Path("b").c_str()), CFileException);
    WriteAll(dir.Path("x"), B("abc"));
    EXPECT_TRUE(CFile::GetStatus(dir.Path("x").c_str(), status));
    CFile::Rename(dir.Path("x").c_str(), dir.Path("y").c_str());
    CFile::Remove(dir.Path("y").c_str());
    EXPECT_FALSE(Exists(dir.Path("y")));
}

TEST(File, TheBaseLengthMeasuresThroughTheRedirectedSeek) {
    CMemFile m;
    m.Write("hello", 5);
    m.Seek(2, CFile::begin);
    EXPECT_EQ(m.CFile::GetLength(), 5u);  // measured on the memory side
    EXPECT_EQ(m.GetPosition(), 2u);
}

TEST(MemFile, GrowsByStepsAndKeepsTheCallersBlock) {
    CMemFile m(100);
    m.Seek(150, CFile::begin);
    m.Write("z", 1);
    EXPECT_EQ(m.m_nBufferSize, 200u);
    EXPECT_EQ(m.GetLength(), 151u);
    char buf[151];
    m.SeekToBegin();
    EXPECT_EQ(m.Read(buf, 200), 151u);
    EXPECT_TRUE(AllZero(buf, 150));
    m.SetLength(10);
    EXPECT_EQ(m.GetPosition(), 10u);
    BYTE* block = m.Detach();
    EXPECT_EQ(m.GetLength(), 0u);
    EXPECT_EQ(m.Read(buf, 1), 0u);
    std::free(block);

    CMemFile fixed(0);
    EXPECT_THROW(fixed.Write("a", 1), CMemoryException);
    BYTE mine[4] = {1, 2, 3, 4};
    CMemFile borrowed(mine, 4, 8);
    borrowed.Write("abcdefgh", 8);  // must move to a block of its own
    EXPECT_EQ(mine[0], 1);
    EXPECT_NE(borrowed.m_lpBuffer, mine);
    borrowed.Close();
    EXPECT_EQ(borrowed.m_nGrowBytes, 0u);
}

TEST(MemFile, BytesGivenUpByAShrinkReadZeroWhenTheLengthGrowsBack) {
    CMemFile m(64);
    m.Write("abcdefgh", 8);
    char back[8] = {};
    m.SetLength(2);
    m.SetLength(8);  // inside the block: the old bytes must not come back
    m.SeekToBegin();
    EXPECT_EQ(m.Read(back, 8), 8u);
    EXPECT_EQ(std::string(back, 8), std::string("ab\0\0\0\0\0\0", 8));
    m.Write("cdefgh", 6);
    m.SetLength(2);
    m.Seek(6, CFile::begin);  // a gap left by a seek past the end, filled by a write
    m.Write("z", 1);
    m.SeekToBegin();
    EXPECT_EQ(m.Read(back, 8), 7u);
    EXPECT_EQ(std::string(back, 7), std::string("ab\0\0\0\0z", 7));
    m.SetLength(0);
    m.SetLength(3);
    m.SeekToBegin();
    EXPECT_EQ(m.Read(back, 8), 3u);
    EXPECT_EQ(std::string(back, 3), std::string(3, '\0'));
}

TEST(TempFiles, AreCreatedEmptyWithTheirPrefix) {
    CString a, b;
    MakeTempFileName(a, nullptr);
    MakeTempFileName(b, "egy");
    std::string sa(a), sb(b);
    EXPECT_EQ(sa.substr(sa.rfind('/') + 1, 3), "dvk");
    EXPECT_EQ(sb.substr(sb.rfind('/') + 1, 3), "egy");
    EXPECT_NE(sa, sb);
    EXPECT_TRUE(Exists(sa));
    EXPECT_TRUE(ReadAll(sa).empty());
    CFile::Remove(a);
    CFile::Remove(b);
}

TEST(Diagnostics, MessagesAndTraceReachTheirHandlers) {
    g_lines.clear();
    AfxTraceSink old = AfxSetTraceSink(&Capture);
    DorvikLibraryAttach();
    DorvikLibraryDetach();
    AfxSetTraceSink(old);
    EXPECT_EQ(g_lines, (std::vector<std::string>{"Dorvik.DLL Initializing!\n",
                                                 "Dorvik.DLL Terminating!\n"}));
    MessageCapture shown;
    EXPECT_EQ(AfxMessageBox("Can't move file data.\r\nNot enough memory!", 3, 7), 1);
    EXPECT_EQ(shown.messages,
              std::vector<std::string>{"Can't move file data.\r\nNot enough memory!|3|7"});
}

TEST(String, KeepsBytesAndFollowsTheBufferProtocol) {
    CString s("\xC8\xF3\xC7 ab");
    EXPECT_EQ(s.GetLength(), 6);
    EXPECT_EQ(static_cast<unsigned char>(s[0]), 0xC8);
    EXPECT_EQ(s.Find('a'), 4);
    EXPECT_EQ(s.Find("b", 5), 5);
    EXPECT_EQ(s.Find('q'), -1);
    EXPECT_EQ(s.Mid(4), "ab");
    EXPECT_EQ(s.Mid(1, 2), "\xF3\xC7");
    EXPECT_EQ(s.Left(99), s);
    char* p = s.GetBuffer(10);
    std::strcpy(p, "xy");
    s.ReleaseBuffer();
    EXPECT_EQ(s, "xy");
    CString t("word\xF3\xF8");
    t.TrimRight("\xF3\xF8");
    EXPECT_EQ(t, "word");
    // White space is blank, tab, LF, VT, FF and CR, on either side; nothing else.
    for (const char* padded : {"  pad \t", "\r\n\t\v\f pad\r\n\r", "pad\r", "\rpad"}) {
        CString v(padded);
        v.TrimLeft();
        v.TrimRight();
        EXPECT_EQ(v, "pad") << padded;
    }
    CString w("word\r\n\r");
    w.TrimRight();
    EXPECT_EQ(w, "word");
    CString kept("\xA0x\x01");  // bytes that are no white space stay
    kept.TrimLeft();
    kept.TrimRight();
    EXPECT_EQ(kept, "\xA0x\x01");
    CString u;
    u.Format("%d-%d", 3, -4);
    EXPECT_EQ(u + '!' + "?", "3--4!?");
    EXPECT_EQ('<' + u, "<3--4");
    EXPECT_TRUE(CString(nullptr).IsEmpty());
}

TEST(Arrays, GrowingBackOverGivenUpElementsReadsZero) {
    CDWordArray a;
    a.SetSize(10, -1);
    for (int i = 0; i < 10; ++i) a[i] = static_cast<DWORD>(i + 1);
    a.SetSize(2, -1);
    a.SetSize(10, -1);  // within the capacity: the old values must not come back
    EXPECT_EQ(a[1], 2u);
    for (int i = 2; i < 10; ++i) EXPECT_EQ(a.GetAt(i), 0u) << i;
    a.SetSize(1, -1);
    a.SetAtGrow(4, 9);
    EXPECT_EQ(a.GetAt(1), 0u);
    EXPECT_EQ(a.GetAt(3), 0u);
    CPtrArray p;
    int x = 0;
    p.SetSize(6, -1);
    for (int i = 0; i < 6; ++i) p[i] = &x;
    p.SetSize(1, -1);
    p.SetSize(6, -1);
    for (int i = 1; i < 6; ++i) EXPECT_EQ(p.GetAt(i), nullptr) << i;
}

TEST(Arrays, GrowWithZerosAndCopy) {
    CDWordArray a;
    a.SetSize(3, 1024);
    EXPECT_EQ(a.GetAt(2), 0u);
    a.SetAtGrow(5, 7);
    EXPECT_EQ(a.GetSize(), 6);
    EXPECT_EQ(a[4], 0u);
    EXPECT_EQ(a.GetAt(99), 0u);
    CDWordArray b;
    b.Add(1);
    EXPECT_EQ(b.Append(a), 1);
    EXPECT_EQ(b.GetSize(), 7);
    a.Copy(b);
    EXPECT_EQ(a.GetSize(), 7);
    EXPECT_EQ(a[6], 7u);
    b.Append(b);
    EXPECT_EQ(b.GetSize(), 14);
    EXPECT_EQ(b[13], 7u);
    CPtrArray p;
    int x = 0;
    p.SetSize(4, -1);
    p.SetAt(3, &x);
    p.RemoveAt(1, 2);
    EXPECT_EQ(p.GetSize(), 2);
    EXPECT_EQ(p.GetAt(1), &x);
    EXPECT_EQ(p.GetAt(2), nullptr);
}

TEST(File, WriteBehindGathersSmallWritesWithoutChangingWhatIsRead) {
    TempDir dir;
    CFile f(dir.Path("a").c_str(), CFile::modeCreate | CFile::modeReadWrite);
    f.SetWriteBehind(true);
    f.Write("abc", 3);
    f.Write("def", 3);
    EXPECT_EQ(ReadAll(dir.Path("a")).size(), 0u);  // still in memory
    f.Seek(1, CFile::begin);
    f.Write("X", 1);  // not behind the last write: what was gathered goes out first
    EXPECT_EQ(ReadAll(dir.Path("a")), B("abcdef"));
    char buf[8] = {};
    f.SeekToBegin();
    EXPECT_EQ(f.Read(buf, 8), 6u);  // a read sends the X out before it reads
    EXPECT_EQ(std::string(buf, 6), "aXcdef");
    f.SeekToEnd();
    f.Write("gh", 2);
    EXPECT_EQ(ReadAll(dir.Path("a")).size(), 6u);
    EXPECT_EQ(f.GetLength(), 8u);  // the end counts what is gathered
    f.SetWriteBehind(false);
    EXPECT_EQ(ReadAll(dir.Path("a")), B("aXcdefgh"));
    f.SetWriteBehind(true);
    f.Write("ij", 2);
    f.Close();
    EXPECT_EQ(ReadAll(dir.Path("a")), B("aXcdefghij"));
}

// The checksum of the journal: the standard check value, the same in any pieces (the
// eight-byte steps and the byte tail meet at every split) and by the instruction as by
// the tables, and every single changed byte of a page seen.
TEST(Checksum, IsCrc32cInAnyPiecesAndSeesEveryChangedByte) {
    const std::string check = "123456789";
    dorvik::Crc32c whole;
    whole.Add(check.data(), check.size());
    EXPECT_EQ(whole.Value(), 0xE3069283u);
    EXPECT_EQ(dorvik::Crc32c().Value(), 0u);
    std::vector<unsigned char> page(4096);
    for (std::size_t i = 0; i < page.size(); ++i) page[i] = static_cast<unsigned char>(i * 7);
    dorvik::Crc32c all;
    all.Add(page.data(), page.size());
    for (std::size_t split : {1u, 3u, 8u, 13u, 4095u}) {
        dorvik::Crc32c pieces, tables;
        pieces.Add(page.data(), split);
        pieces.Add(page.data() + split, page.size() - split);
        EXPECT_EQ(pieces.Value(), all.Value()) << split;
        tables.AddByTable(page.data(), split);
        tables.AddByTable(page.data() + split, page.size() - split);
        EXPECT_EQ(tables.Value(), all.Value()) << split;
    }
    dorvik::Crc32c tables;
    tables.AddByTable(check.data(), check.size());
    EXPECT_EQ(tables.Value(), 0xE3069283u);
    for (std::size_t at = 0; at < page.size(); at += 97) {
        std::vector<unsigned char> changed = page;
        changed[at] ^= 0x01;
        dorvik::Crc32c other;
        other.Add(changed.data(), changed.size());
        EXPECT_NE(other.Value(), all.Value()) << at;
    }
}
