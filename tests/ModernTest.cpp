#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <random>
#include <ranges>
#include <set>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "Dorvik01.h"
#include "TestUtil.h"
#include "dorvik/dorvik.hpp"

// The ranges and the ownership the types promise.
static_assert(std::ranges::input_range<dorvik::RecordFile>);
static_assert(std::ranges::input_range<dorvik::Dictionary>);
static_assert(std::ranges::forward_range<const dorvik::BitSet>);
static_assert(std::is_nothrow_move_constructible_v<dorvik::RecordFile> &&
              !std::is_copy_constructible_v<dorvik::RecordFile>);
static_assert(std::is_nothrow_move_assignable_v<dorvik::PostingsFile> &&
              !std::is_copy_assignable_v<dorvik::Dictionary>);

namespace {
using dorvik::ErrorCode;

std::span<const std::byte> AsBytes(std::string_view text) {
    return std::as_bytes(std::span<const char>(text.data(), text.size()));
}

// The code of the Error that `work` throws; a different exception or none fails.
template <class Work>
ErrorCode CodeOf(Work work) {
    try {
        work();
    } catch (const dorvik::Error& e) {
        return e.code();
    }
    ADD_FAILURE() << "no dorvik::Error";
    return ErrorCode::io;
}

std::string Utf8(const std::string& hex) {
    Bytes b = Hex(hex);
    return dorvik::from_cp1256(std::string(b.begin(), b.end()));
}

// The marked forms of tests/data with their counts, in UTF-8.
std::vector<std::pair<std::string, int>> Forms() {
    std::ifstream in(std::string(DORVIK_TEST_DATA) + "/forms-1256.txt", std::ios::binary);
    std::vector<std::pair<std::string, int>> forms;
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        std::size_t tab = line.find('\t');
        if (tab == std::string::npos) continue;
        forms.emplace_back(dorvik::from_cp1256(line.substr(0, tab)),
                           std::stoi(line.substr(tab + 1)));
    }
    return forms;
}

// A diacritizer folder built from the forms of tests/data.
std::filesystem::path BuildForms(const TempDir& dir) {
    std::filesystem::path folder = dir.Path("forms");
    dorvik::Diacritizer::Builder builder(folder);
    for (const auto& [form, count] : Forms()) builder.add(form, static_cast<std::uint32_t>(count));
    builder.finish();
    return folder;
}
}  // namespace

// ---- Errors and text ------------------------------------------------------------------

TEST(ModernErrors, CarryCodePathAndOsError) {
    TempDir dir;
    try {
        dorvik::RecordFile file(dir.Path("missing.bin"));
        FAIL();
    } catch (const dorvik::Error& e) {
        EXPECT_EQ(e.code(), ErrorCode::not_found);
        EXPECT_EQ(e.path(), dir.Path("missing.bin"));
        EXPECT_EQ(e.os_error(), ENOENT);
        EXPECT_NE(std::string(e.what()).find("missing.bin"), std::string::npos);
    }
    WriteAll(dir.Path("text.txt"), B("not a record file at all"));
    WriteAll(dir.Path("short.bin"), B("ab"));
    EXPECT_EQ(CodeOf([&] { dorvik::RecordFile f(dir.Path("text.txt")); }), ErrorCode::invalid_file);
    EXPECT_EQ(CodeOf([&] { dorvik::RecordFile f(dir.Path("short.bin")); }),
              ErrorCode::invalid_file);
    EXPECT_EQ(CodeOf([&] { dorvik::PostingsFile f(dir.Root(), {.create = true}); }),
              ErrorCode::access_denied);
    EXPECT_EQ(
        CodeOf([&] { dorvik::RecordFile f(dir.Path("x"), {.create = true, .read_only = true}); }),
        ErrorCode::invalid_argument);
    EXPECT_EQ(ReadAll(dir.Path("text.txt")), B("not a record file at all"));  // left alone

    dorvik::RecordFile file(dir.Path("a.bin"), {.create = true});
    file.append("x");
    file.close();
    dorvik::RecordFile reader(dir.Path("a.bin"), {.read_only = true});
    EXPECT_EQ(CodeOf([&] { reader.append("y"); }), ErrorCode::access_denied);
    EXPECT_EQ(CodeOf([&] { reader.read(1); }), ErrorCode::out_of_range);
    EXPECT_EQ(CodeOf([&] { file.size(); }), ErrorCode::closed);
    EXPECT_EQ(ReadAll(dir.Path("a.bin")), RecordFileImage({B("x")}));
}

TEST(ModernText, ConvertsUtf8AndRefusesWhatWindows1256CannotHold) {
    // Arabic with marks, Latin letters that the code page has, ASCII, and NUL.
    std::string arabic = "\xD9\x83\xD9\x8E\xD8\xAA\xD9\x8E\xD8\xA8\xD9\x8E";  // kataba, marked
    EXPECT_EQ(dorvik::to_cp1256(arabic), "\xDF\xF3\xCA\xF3\xC8\xF3");
    EXPECT_EQ(dorvik::to_cp1256("caf\xC3\xA9 \xC3\xA0"), "caf\xE9 \xE0");
    EXPECT_EQ(dorvik::to_cp1256(std::string_view("a\0b", 3)), std::string("a\0b", 3));
    std::string all;
    for (int b = 0; b < 256; ++b) all += static_cast<char>(b);
    EXPECT_EQ(dorvik::to_cp1256(dorvik::from_cp1256(all)), all);

    // Each length of UTF-8 at both its ends; what UTF-8 cannot carry becomes U+FFFD.
    std::string encoded;
    for (char32_t c : {0x7F, 0x80, 0x7FF, 0x800, 0xFFFF, 0x10000, 0x10FFFF, 0xD800, 0x110000})
        dorvik::append_utf8(encoded, c);
    EXPECT_EQ(encoded,
              "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF0\x90\x80\x80"
              "\xF4\x8F\xBF\xBF\xEF\xBF\xBD\xEF\xBF\xBD");

    struct Case {
        std::string text, says;
    };
    for (const Case& c : std::vector<Case>{{"ma\xC3\xB1"
                                            "ana",
                                            "U+00F1 at byte 2"},
                                           {"\xE4\xB8\xAD", "U+4E2D at byte 0"},
                                           {"ok \xF0\x9F\x98\x80", "U+1F600 at byte 3"},
                                           {"\xC3", "invalid UTF-8 at byte 0"},
                                           {"a\xC0\x80", "invalid UTF-8 at byte 1"},
                                           {"\xED\xA0\x80", "invalid UTF-8 at byte 0"},
                                           {"\x80", "invalid UTF-8 at byte 0"}}) {
        try {
            dorvik::to_cp1256(c.text);
            ADD_FAILURE() << c.says;
        } catch (const dorvik::Error& e) {
            EXPECT_EQ(e.code(), ErrorCode::bad_text);
            EXPECT_NE(std::string(e.what()).find(c.says), std::string::npos) << e.what();
        }
    }
}

// ---- RecordFile -------------------------------------------------------------------------

TEST(ModernRecordFile, ChangesWriteTheClassicFormat) {
    TempDir dir;
    std::string path = dir.Path("r.bin");
    dorvik::RecordFile file(path, {.create = true});
    EXPECT_EQ(file.append("alpha"), 0u);
    EXPECT_EQ(file.append(AsBytes("")), 1u);
    EXPECT_EQ(file.append("omega"), 2u);
    file.insert(0, "first");
    file.insert(4, "last");
    file.insert(2, "mid");
    file.replace(1, "ALPHA");    // same length: in place
    file.replace(4, "OMEGA!!");  // longer
    file.replace(0, "");         // shorter
    // "", ALPHA, mid, "", OMEGA!!, last
    EXPECT_EQ(ReadAll(path),
              RecordFileImage({B(""), B("ALPHA"), B("mid"), B(""), B("OMEGA!!"), B("last")}));
    EXPECT_EQ(file.find("OMEGA!!"), 4u);
    EXPECT_EQ(file.find("OMEGA"), std::nullopt);  // a prefix is no match
    EXPECT_EQ(file.find("ALPHA", 2), std::nullopt);
    EXPECT_EQ(file.find(""), std::nullopt);
    file.erase(2, 4);
    file.erase(0);
    file.erase(7, 9);  // past the end: nothing
    std::vector<std::string> seen;
    for (std::span<const std::byte> r : file)
        seen.emplace_back(reinterpret_cast<const char*>(r.data()), r.size());
    EXPECT_EQ(seen, (std::vector<std::string>{"ALPHA", "OMEGA!!", "last"}));
    EXPECT_EQ(CodeOf([&] { file.insert(4, "x"); }), ErrorCode::out_of_range);
    EXPECT_EQ(CodeOf([&] { file.replace(3, "x"); }), ErrorCode::out_of_range);
    EXPECT_EQ(file.size(), 3u);

    // A record cut by a short buffer reports its full length.
    std::array<std::byte, 4> buffer{};
    EXPECT_EQ(file.read(1, buffer), 7u);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(buffer.data()), 4), "OMEG");
    file.close();

    CBinFile classic(path.c_str(), CFile::modeRead);  // the classic face reads the same
    EXPECT_EQ(RecordsOf(classic), (std::vector<std::string>{"ALPHA", "OMEGA!!", "last"}));
}

TEST(ModernRecordFile, BulkModeWritesTheTableOnceAtClose) {
    TempDir dir;
    std::vector<Bytes> records;
    {
        dorvik::RecordFile bulk(dir.Path("bulk.bin"), {.truncate = true, .bulk = true});
        for (int i = 0; i < 500; ++i) {
            records.push_back(
                B(std::string(static_cast<std::size_t>(i % 7), static_cast<char>('a' + i % 26))));
            bulk.append(AsBytes(std::string(records.back().begin(), records.back().end())));
        }
        EXPECT_FALSE(CBinFile::IsValidBinFile(dir.Path("bulk.bin").c_str()));  // no table yet
        EXPECT_EQ(bulk.read_string(499), std::string(2, 'f'));
        bulk.close();
    }
    EXPECT_EQ(ReadAll(dir.Path("bulk.bin")), RecordFileImage(records));
}

TEST(ModernRecordFile, MovesBetweenOwnersAndClosesOnce) {
    TempDir dir;
    auto open = [&](const std::string& name) {
        dorvik::RecordFile f(dir.Path(name), {.create = true, .bulk = true});
        f.append(name);
        return f;  // a factory can return one
    };
    std::vector<dorvik::RecordFile> files;
    for (const char* name : {"a", "b", "c"}) files.push_back(open(name));
    dorvik::RecordFile taken = std::move(files[1]);
    EXPECT_FALSE(files[1].is_open());
    EXPECT_EQ(CodeOf([&] { files[1].append("x"); }), ErrorCode::closed);
    files[1].close();  // a closed object stays closed, quietly
    EXPECT_EQ(taken.read_string(0), "b");
    taken = std::move(files[0]);  // closes b, writing its table
    EXPECT_EQ(ReadAll(dir.Path("b")), RecordFileImage({B("b")}));
    EXPECT_EQ(taken.path(), dir.Path("a"));
    files.clear();  // destructors write the tables
    EXPECT_EQ(ReadAll(dir.Path("c")), RecordFileImage({B("c")}));
}

// ---- BitSet -------------------------------------------------------------------------------

TEST(ModernBitSet, SetLogicAgreesWithAModel) {
    std::mt19937 rng(5);
    auto random = [&](int n, std::uint32_t range) {
        std::pair<dorvik::BitSet, std::set<std::uint32_t>> s;
        for (int i = 0; i < n; ++i) {
            std::uint32_t bit = rng() % range;
            s.first.set(bit);
            s.second.insert(bit);
        }
        return s;
    };
    auto list = [](const dorvik::BitSet& s) {
        return std::vector<std::uint32_t>(s.begin(), s.end());
    };
    auto model = [](const std::set<std::uint32_t>& s) {
        return std::vector<std::uint32_t>(s.begin(), s.end());
    };
    for (int round = 0; round < 40; ++round) {
        auto [a, ma] = random(static_cast<int>(rng() % 300), 1 + rng() % 5000);
        auto [b, mb] = random(static_cast<int>(rng() % 300), 1 + rng() % 5000);
        std::set<std::uint32_t> both, either, one, only;
        std::set_intersection(ma.begin(), ma.end(), mb.begin(), mb.end(),
                              std::inserter(both, both.end()));
        std::set_union(ma.begin(), ma.end(), mb.begin(), mb.end(),
                       std::inserter(either, either.end()));
        std::set_symmetric_difference(ma.begin(), ma.end(), mb.begin(), mb.end(),
                                      std::inserter(one, one.end()));
        std::set_difference(ma.begin(), ma.end(), mb.begin(), mb.end(),
                            std::inserter(only, only.end()));
        EXPECT_EQ(list(a & b), model(both));
        EXPECT_EQ(list(a | b), model(either));
        EXPECT_EQ(list(a ^ b), model(one));
        EXPECT_EQ(list(a - b), model(only));
        EXPECT_EQ((a & b).count(), both.size());
        EXPECT_EQ(a.count(), ma.size());
        EXPECT_EQ(a.first(), ma.empty() ? std::nullopt : std::optional(*ma.begin()));
        EXPECT_EQ(a.last(), ma.empty() ? std::nullopt : std::optional(*ma.rbegin()));
        // Equal sets compare equal whatever their bitmaps end in.
        EXPECT_EQ((a | b) - (b - a), a);
        EXPECT_EQ(dorvik::BitSet::from_compressed(a.to_compressed()), a);
    }
    dorvik::BitSet s{3, 9};
    s ^= s;
    EXPECT_TRUE(s.empty());
    dorvik::BitSet moved{1, 2}, empty;
    dorvik::BitSet to(std::move(moved));
    EXPECT_TRUE(moved.empty());
    EXPECT_EQ(moved.begin(), moved.end());
    EXPECT_EQ(to & empty, empty);
    EXPECT_EQ(empty - to, empty);
}

TEST(ModernBitSet, KeepsToTheLargestBitAndTheCompressedForm) {
    dorvik::BitSet top{70000};
    EXPECT_EQ(CodeOf([&] { top.set(dorvik::BitSet::max_bit + 1u); }), ErrorCode::out_of_range);
    EXPECT_EQ(top.last(), 70000u);
    EXPECT_FALSE(top.test(0xFFFFFFFFu));
    top.reset(0xFFFFFFFFu);  // nothing to clear

    // The compressed form is the engine's, byte for byte.
    dorvik::BitSet s{0, 1, 8, 900};
    CBitArray classic = BitsOf({0, 1, 8, 900});
    classic.Compress();
    std::vector<std::byte> form = s.to_compressed();
    EXPECT_EQ(Bytes(reinterpret_cast<const unsigned char*>(form.data()),
                    reinterpret_cast<const unsigned char*>(form.data()) + form.size()),
              Bytes(classic.GetBuffer(), classic.GetBuffer() + classic.GetLength()));
    EXPECT_TRUE(dorvik::BitSet().to_compressed().empty());

    // A form of a few kilobytes that would expand past bit 2^31 - 1 is refused before
    // anything is allocated; a form cut short reads what it holds.
    Bytes huge{1};
    for (int i = 0; i < 4200; ++i) huge.insert(huge.end(), {0x00, 0xFF, 0xFF});
    huge.insert(huge.end(), {0x07});
    EXPECT_EQ(CodeOf([&] { dorvik::BitSet::from_compressed(std::as_bytes(std::span(huge))); }),
              ErrorCode::out_of_range);
    Bytes cut{1, 0x05, 0xFF, 0x02};
    EXPECT_EQ(dorvik::BitSet::from_compressed(std::as_bytes(std::span(cut))),
              (dorvik::BitSet{0, 2}));
}

// A const set is read by several threads at once: no call may write a cache behind
// the caller's back (the CI runs this under ThreadSanitizer).
TEST(ModernBitSet, ServesManyThreadsReadingAtOnce) {
    dorvik::BitSet built;
    for (std::uint32_t bit = 0; bit < 100000; bit += 3) built.set(bit);
    const dorvik::BitSet& shared = built;
    const std::size_t count = shared.count();
    std::vector<char> good(4, 0);
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < good.size(); ++t)
        threads.emplace_back([&, t] {
            bool ok = true;
            for (int i = 0; i < 20 && ok; ++i) {
                std::size_t seen = 0;
                for (std::uint32_t bit : shared) seen += bit % 3 == 0;
                ok = seen == count && shared.count() == count && !shared.empty() &&
                     shared.test(99999) && shared.last() == 99999u && shared.first() == 0u &&
                     dorvik::BitSet::from_compressed(shared.to_compressed()) == shared &&
                     (shared - shared).empty();
            }
            good[t] = ok;
        });
    for (std::thread& t : threads) t.join();
    EXPECT_EQ(good, std::vector<char>(4, 1));
}

// ---- PostingsFile and Indexer ---------------------------------------------------------------

TEST(ModernPostings, IndexerWritesWhatTheClassicCollectionWrites) {
    TempDir dir;
    std::mt19937 rng(9);
    std::map<std::size_t, std::set<std::uint32_t>> model;
    dorvik::Indexer indexer;
    CBitArrayArray classic;
    for (int i = 0; i < 3000; ++i) {
        std::size_t term = rng() % 150;
        std::uint32_t doc = rng() % 2000;
        indexer.add(term, doc);
        classic.GetAt(static_cast<int>(term))->SetAt(static_cast<int>(doc));
        model[term].insert(doc);
    }
    EXPECT_EQ(indexer.postings(), 3000u);
    dorvik::PostingsFile file(dir.Path("p.bin"), {.create = true});
    indexer.save(file);
    EXPECT_EQ(indexer.postings(), 0u);
    classic.Save(dir.Path("c.bin").c_str(), opCopy, true, false, nullptr);
    file.flush();
    EXPECT_EQ(ReadAll(dir.Path("p.bin")), ReadAll(dir.Path("c.bin")));

    auto docs = [&](std::size_t term) {
        const std::set<std::uint32_t>& s = model[term];
        return std::vector<std::uint32_t>(s.begin(), s.end());
    };
    for (std::size_t term : {0u, 7u, 149u}) {
        dorvik::BitSet row = file.read(term);
        EXPECT_EQ(std::vector<std::uint32_t>(row.begin(), row.end()), docs(term));
    }
    EXPECT_TRUE(file.read(150).empty());  // a term past the end has no documents
    std::vector<std::size_t> terms{3, 4, 5, 400};
    dorvik::BitSet all = file.unite(terms), common = file.intersect(std::vector<std::size_t>{3, 4});
    EXPECT_EQ(all, file.read(3) | file.read(4) | file.read(5));
    EXPECT_EQ(common, file.read(3) & file.read(4));
    EXPECT_TRUE(file.intersect({}).empty());

    // The indexer collects again, and a union merge keeps the old documents.
    indexer.add(3, 1999);
    indexer.add(200, 5);
    indexer.save(file, dorvik::Indexer::Merge::unite);
    dorvik::BitSet three = file.read(3);
    EXPECT_TRUE(three.test(1999));
    EXPECT_EQ(three.count(), model[3].size() + (model[3].count(1999) ? 0 : 1));
    EXPECT_EQ(file.size(), 201u);
    EXPECT_EQ(file.read(200), (dorvik::BitSet{5}));
}

TEST(ModernPostings, AFailedSaveKeepsThePostings) {
    TempDir dir;
    { dorvik::PostingsFile made(dir.Path("p.bin"), {.create = true}); }
    dorvik::PostingsFile reader(dir.Path("p.bin"), {.read_only = true});
    dorvik::Indexer indexer;
    indexer.add(2, 40);
    EXPECT_EQ(CodeOf([&] { indexer.save(reader); }), ErrorCode::access_denied);
    EXPECT_EQ(indexer.postings(), 1u);
    dorvik::PostingsFile writer(dir.Path("q.bin"), {.create = true});
    indexer.save(writer);
    EXPECT_EQ(writer.read(2), (dorvik::BitSet{40}));
    EXPECT_EQ(CodeOf([&] { indexer.add(0x80000000u, 1); }), ErrorCode::out_of_range);
    EXPECT_EQ(CodeOf([&] { writer.unite(std::vector<std::size_t>{0x80000000u}); }),
              ErrorCode::out_of_range);
}

// ---- Dictionary -------------------------------------------------------------------------------

TEST(ModernDictionary, KeepsWordsSortedByTheirBytesWithStableIds) {
    TempDir dir;
    std::string path = dir.Path("w.bin");
    // Prefixes, a blank, punctuation and Arabic, added out of order.
    const std::vector<std::string> words = {
        "abd", "ab!", "ab", Utf8("DF CA C8"), "ab cd", "b", "abc", Utf8("C7 E1"), "a"};
    {
        dorvik::Dictionary d(path, {.create = true});
        for (std::size_t i = 0; i < words.size(); ++i)
            EXPECT_EQ(d.add(words[i]), std::pair(i, true));
        EXPECT_EQ(d.add("ab"), std::pair(std::size_t{2}, false));
        EXPECT_EQ(d.size(), words.size());
    }
    dorvik::Dictionary d(path, {.read_only = true});
    for (std::size_t i = 0; i < words.size(); ++i) {
        EXPECT_EQ(d.find(words[i]), i) << words[i];
        EXPECT_EQ(d.word(i), words[i]);
    }
    for (const std::string& absent :
         std::vector<std::string>{"", "abe", "ab ", "aa", "\xC3\xB1", std::string("a\0", 2)})
        EXPECT_EQ(d.find(absent), std::nullopt) << absent;
    EXPECT_EQ(CodeOf([&] { d.find("\xC3"); }), ErrorCode::bad_text);
    EXPECT_EQ(CodeOf([&] { d.word(words.size()); }), ErrorCode::out_of_range);
    EXPECT_EQ(CodeOf([&] { d.add("new"); }), ErrorCode::access_denied);

    std::vector<std::string> sorted = words, seen;
    std::sort(sorted.begin(), sorted.end(), [](const std::string& a, const std::string& b) {
        return dorvik::to_cp1256(a) < dorvik::to_cp1256(b);  // bytes as unsigned values
    });
    std::vector<std::size_t> ids;
    for (auto it = d.begin(); it != d.end(); ++it) {
        seen.push_back(*it);
        ids.push_back(it.id());
    }
    EXPECT_EQ(seen, sorted);
    for (std::size_t i = 0; i < ids.size(); ++i) EXPECT_EQ(words[ids[i]], seen[i]);

    dorvik::Dictionary w(dir.Path("x.bin"), {.create = true});
    EXPECT_EQ(CodeOf([&] {
                  w.add(
                      "ma\xC3\xB1"
                      "ana");
              }),
              ErrorCode::bad_text);
    EXPECT_EQ(CodeOf([&] { w.add(""); }), ErrorCode::invalid_argument);
    EXPECT_EQ(CodeOf([&] { w.add(std::string_view("a\0b", 3)); }), ErrorCode::invalid_argument);
    EXPECT_EQ(w.size(), 0u);
    EXPECT_EQ(CodeOf([&] { dorvik::Dictionary e(dir.Path("x.sort")); }),
              ErrorCode::invalid_argument);
}

TEST(ModernDictionary, BulkLoadingWritesTheSameFilesAsSingleAdds) {
    TempDir dir;
    std::mt19937 rng(2);
    std::vector<std::string> words;
    for (int i = 0; i < 400; ++i) {
        std::string w;
        for (int n = 1 + static_cast<int>(rng() % 6); n > 0; --n)
            w += static_cast<char>('a' + rng() % 4);
        words.push_back(w);
    }
    {
        dorvik::Dictionary one(dir.Path("one.bin"), {.create = true});
        dorvik::Dictionary bulk(dir.Path("bulk.bin"), {.create = true, .bulk = true});
        for (const std::string& w : words) EXPECT_EQ(one.add(w), bulk.add(w)) << w;
        EXPECT_EQ(bulk.size(), one.size());  // words still gathering count
        EXPECT_EQ(bulk.word(5), one.word(5));
        EXPECT_EQ(bulk.find(words[17]), one.find(words[17]));  // a query writes the words out
        bulk.add("dddddddd");
        one.add("dddddddd");
    }
    for (const char* ext : {".bin", ".sort", ".wild"})
        EXPECT_EQ(ReadAll(dir.Path(std::string("one") + ext)),
                  ReadAll(dir.Path(std::string("bulk") + ext)))
            << ext;
    // Opened again: words from before and words of this opening, repeated, keep their ids.
    dorvik::Dictionary one(dir.Path("one.bin"));
    dorvik::Dictionary bulk(dir.Path("bulk.bin"), {.bulk = true});
    for (const std::string& w : {words[3], std::string("eeee"), std::string("eeee"), words[3]})
        EXPECT_EQ(one.add(w), bulk.add(w)) << w;
}

TEST(ModernDictionary, KeepsTheWildcardIndexCurrent) {
    TempDir dir;
    std::string path = dir.Path("w.bin"), wild = dir.Path("w.wild");
    std::string kataba = Utf8("DF F3 CA F3 C8 F3"), kutub = Utf8("DF F5 CA F5 C8"),
                kalb = Utf8("DF E1 C8");
    {
        dorvik::Dictionary d(path, {.create = true});
        d.add("cab");
        d.add("abc");
        d.add(kataba);
        EXPECT_FALSE(Exists(wild));  // nothing current on disk while words come in
        EXPECT_EQ(d.match("?b?"), (std::vector<std::string>{"abc"}));
        EXPECT_TRUE(Exists(wild));  // built for the query
        d.add(kutub);
        EXPECT_FALSE(Exists(wild));  // the first change deletes it
        d.add(kalb);
        // A bare word finds all its marked forms; a mark must stand in its place.
        EXPECT_EQ(d.match(Utf8("DF CA C8")), (std::vector<std::string>{kataba, kutub}));
        EXPECT_EQ(d.match(Utf8("DF F5 CA C8")), (std::vector<std::string>{kutub}));
        EXPECT_EQ(d.match(Utf8("DF") + "*"), (std::vector<std::string>{kataba, kutub, kalb}));
        EXPECT_EQ(d.match("*b"), (std::vector<std::string>{"cab"}));
        EXPECT_EQ(d.match_ids("*").count(), 5u);
        EXPECT_TRUE(d.match("").empty());
        d.add("bc");
    }
    EXPECT_TRUE(Exists(wild));  // written at close
    CTextBinFile classic(path.c_str(), CFile::modeRead);
    CBitArray hits;
    classic.Find(wild.c_str(), "?c", opEqual, DiacriticMarks, false, hits);
    EXPECT_EQ(SetBits(hits), Set({5}));

    // Read-only without an index: one in memory, and the folder is left as it was.
    std::filesystem::remove(wild);
    dorvik::Dictionary reader(path, {.read_only = true});
    EXPECT_EQ(reader.match("?c"), (std::vector<std::string>{"bc"}));
    EXPECT_FALSE(Exists(wild));
}

TEST(ModernDictionary, RebuildsASortedViewThatDoesNotMatchItsWords) {
    TempDir dir;
    std::string path = dir.Path("w.bin");
    {
        CTextBinFile classic(path.c_str(), CFile::modeCreate | CFile::modeReadWrite);
        for (const char* w : {"pear", "apple", "fig"}) classic.Add(w);  // no sorted view
    }
    EXPECT_EQ(CodeOf([&] { dorvik::Dictionary d(path, {.read_only = true}); }),
              ErrorCode::invalid_file);
    {
        dorvik::Dictionary d(path);
        EXPECT_EQ(d.find("fig"), 2u);
        EXPECT_EQ(*d.begin(), "apple");
    }
    dorvik::Dictionary d(path, {.read_only = true});
    EXPECT_EQ(d.find("pear"), 0u);
}

// ---- Diacritizer ------------------------------------------------------------------------------

TEST(ModernDiacritizer, AgreesWithTheClassicBufferCall) {
    TempDir dir;
    std::filesystem::path folder = BuildForms(dir);
    dorvik::Diacritizer diacritizer(folder);
    EXPECT_EQ(diacritizer.size(), Forms().size());
    const std::vector<std::string> pieces = {"DF CA C8",    "DF F5 CA C8", "DA E1 E3",
                                             "DA E1 F3 E3", "DD ED",       "E5 E6",
                                             "78 79",       "DF F6 CA C8", "C7 E1 E3 CF"};
    const std::vector<std::string> gaps = {"20", "A1 20", "0D 0A", "2E", "BA", "21 3F"};
    std::mt19937 rng(4);
    std::string text;
    for (int i = 0; i < 2000; ++i) {
        Bytes w = Hex(pieces[rng() % pieces.size()]), g = Hex(gaps[rng() % gaps.size()]);
        text.append(w.begin(), w.end()).append(g.begin(), g.end());
    }
    CString classic;
    std::string buffer = text;
    std::string forms = (folder / "forms.bin").string(), wild = (folder / "forms.wild").string(),
                freq = (folder / "forms.freq").string();
    DiacritizeBuffer(buffer.data(), classic, forms.c_str(), wild.c_str(), freq.c_str());
    EXPECT_EQ(diacritizer.diacritize(dorvik::from_cp1256(text)),
              dorvik::from_cp1256(classic.str()));

    EXPECT_EQ(diacritizer.lookup(Utf8("DF CA C8")), Utf8("DF F3 CA F3 C8"));
    EXPECT_EQ(diacritizer.lookup(Utf8("DF F6 CA C8")), std::nullopt);     // no form agrees
    EXPECT_EQ(diacritizer.lookup(Utf8("DF CA C8 20 DF")), std::nullopt);  // two words
    // What the code page cannot hold, and NUL, come through and end words.
    std::string mixed = Utf8("DF CA C8") + "\xF0\x9F\x98\x80" + Utf8("DD ED") +
                        std::string(1, '\0') + "\xE4\xB8\xAD" + Utf8("DD ED");
    EXPECT_EQ(diacritizer.diacritize(mixed), Utf8("DF F3 CA F3 C8") + "\xF0\x9F\x98\x80" +
                                                 Utf8("DD F6 ED") + std::string(1, '\0') +
                                                 "\xE4\xB8\xAD" + Utf8("DD F6 ED"));
    EXPECT_EQ(CodeOf([&] { diacritizer.diacritize("ok \xFF"); }), ErrorCode::bad_text);
    EXPECT_EQ(diacritizer.diacritize(""), "");
}

TEST(ModernDiacritizer, StreamsGiveTheWholeTextsResultWhereverPiecesEnd) {
    TempDir dir;
    dorvik::Diacritizer diacritizer(BuildForms(dir));
    std::string text = Utf8("DF CA C8 20 DA E1 E3 A1 0D 0A DD ED 20 28 E5 E6 29 20") +
                       "\xC3\xA9t\xC3\xA9 " + Utf8("DF F5 CA C8 2E");
    std::string whole = diacritizer.diacritize(text);
    ASSERT_NE(whole, text);
    std::mt19937 rng(8);
    for (int round = 0; round < 200; ++round) {
        dorvik::Diacritizer::Stream stream = diacritizer.stream();
        std::string out;
        for (std::size_t at = 0; at < text.size();) {
            std::size_t n = std::min<std::size_t>(text.size() - at, rng() % 7);
            out += stream.feed(std::string_view(text).substr(at, n));
            at += n;
        }
        out += stream.finish();
        ASSERT_EQ(out, whole) << "round " << round;
    }
    // A word no form can match is passed on as it comes: nothing piles up.
    dorvik::Diacritizer::Stream stream = diacritizer.stream();
    std::string letters(5000, 'x'), marks;
    for (int i = 0; i < 2000; ++i) marks += Utf8("F3");
    EXPECT_EQ(stream.feed(letters).size() + stream.feed(letters).size(), 10000u);
    EXPECT_EQ(stream.feed(" " + Utf8("DF") + marks).size(), 1 + Utf8("DF").size() + marks.size());
    EXPECT_EQ(stream.finish(), "");
    EXPECT_EQ(stream.feed("\xD9"), "");  // half a character is held back
    EXPECT_EQ(CodeOf([&] { stream.finish(); }), ErrorCode::bad_text);
}

TEST(ModernDiacritizer, ServesManyThreadsAtOnce) {
    TempDir dir;
    const dorvik::Diacritizer shared(BuildForms(dir));
    std::string text;
    for (int i = 0; i < 300; ++i) text += Utf8(i % 2 ? "DF CA C8 20" : "DA E1 E3 A1 20 DD ED 0A");
    const std::string expected = shared.diacritize(text);
    std::vector<std::string> results(4);
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < results.size(); ++t)
        threads.emplace_back([&, t] {
            dorvik::Diacritizer copy = shared;  // copies share the open folder
            for (int i = 0; i < 20; ++i) {
                results[t] = (t % 2 ? copy : shared).diacritize(text);
                if (results[t] != expected) return;
            }
        });
    for (std::thread& t : threads) t.join();
    for (const std::string& r : results) EXPECT_EQ(r, expected);
}

TEST(ModernDiacritizer, CutsWordsAsItDiacritizesThem) {
    std::string kataba = Utf8("DF F3 CA F3 C8 F3"), comma = Utf8("A1"), ask = Utf8("BF");
    std::string text = " " + kataba + comma + "(x)\xF0\x9F\x98\x80" + "abc" + std::string(1, '\0') +
                       "d" + ask + "e2";
    EXPECT_EQ(dorvik::split_words(text),
              (std::vector<std::string_view>{kataba, "x", "abc", "d", "e2"}));
    EXPECT_TRUE(dorvik::split_words(" ,.\r\n").empty());
    EXPECT_EQ(CodeOf([&] { dorvik::split_words("ab\xD9"); }), ErrorCode::bad_text);

    // A marked corpus counts its forms: the most frequent one wins.
    TempDir dir;
    std::filesystem::path folder = dir.Path("corpus");
    dorvik::Diacritizer::Builder builder(folder);
    std::string kutiba = Utf8("DF F5 CA F6 C8 F3");
    builder.add_text(kataba + " " + kutiba + comma + kutiba + "\n" + kataba + ". " + kutiba);
    builder.finish();
    EXPECT_EQ(ReadAll((folder / "forms.freq").string()), Words({2, 3}));
    EXPECT_EQ(dorvik::Diacritizer(folder).diacritize(Utf8("DF CA C8")), Utf8("DF F5 CA F6 C8"));
}

TEST(ModernDiacritizer, ABuilderReplacesAFolderOnlyWhenItFinishes) {
    TempDir dir;
    std::filesystem::path folder = BuildForms(dir);
    WriteAll((folder / "manifest.json").string(), B("{}"));
    Bytes forms = ReadAll((folder / "forms.bin").string());
    {
        dorvik::Diacritizer::Builder builder(folder);
        builder.add("other");
        EXPECT_EQ(CodeOf([&] { builder.add("\xE4\xB8\xAD"); }), ErrorCode::bad_text);
    }  // dropped: the folder is as it was
    EXPECT_EQ(ReadAll((folder / "forms.bin").string()), forms);
    EXPECT_FALSE(Exists((folder / ".build").string()));

    dorvik::Diacritizer::Builder builder(folder);
    builder.add("b", 2);
    builder.add("a", 0xFFFFFFFFu);
    builder.add("b", 3);
    builder.add("a", 5);  // sums stop at 2^31 - 1
    builder.finish();
    EXPECT_EQ(CodeOf([&] { builder.add("c"); }), ErrorCode::closed);
    EXPECT_EQ(ReadAll((folder / "forms.freq").string()), Words({5, 0x7FFFFFFF}));
    EXPECT_EQ(ReadAll((folder / "manifest.json").string()), B("{}"));
    dorvik::Diacritizer d(folder);
    EXPECT_EQ(d.size(), 2u);
    dorvik::Diacritizer taken = std::move(d);
    EXPECT_EQ(CodeOf([&] { d.diacritize("a"); }), ErrorCode::closed);  // moved from
    EXPECT_EQ(taken.lookup("a"), "a");
    WriteAll((folder / "forms.wild").string(), B("damaged"));
    EXPECT_EQ(CodeOf([&] { dorvik::Diacritizer damaged(folder); }), ErrorCode::invalid_file);
    std::filesystem::remove(folder / "forms.freq");
    try {
        dorvik::Diacritizer missing(folder);
        FAIL();
    } catch (const dorvik::Error& e) {
        EXPECT_EQ(e.code(), ErrorCode::not_found);
        EXPECT_EQ(e.path(), folder / "forms.freq");
    }
}
