// The format guide (docs/formats.md) shows every file form as a hex dump. Each dump is
// a fenced block tagged "hex NAME"; here the library writes example NAME again and the
// bytes must be those of the guide, so the guide cannot drift from the code.
//
// A dump line is an offset (4 hex digits, the bytes before the line), bytes (2 upper-case
// hex digits each), an optional repeat "×N" (the line's bytes N times), then two blanks
// and free text.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <string>

#include "Dorvik01.h"
#include "TestUtil.h"
#include "dorvik/dorvik.hpp"

namespace {
using Dumps = std::map<std::string, Bytes>;

// Upper-case hex digits only, as the guide writes them; -1 for anything else.
int HexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// One dump line: "OOOO XX XX ... [×N][  note]". Gives the offset and appends the bytes
// (N times); false when the line breaks the rules.
bool ParseDumpLine(const std::string& text, std::size_t& offset, Bytes& bytes) {
    std::size_t at = 0;
    offset = 0;
    for (; at < 4; ++at) {
        if (at >= text.size() || HexDigit(text[at]) < 0) return false;
        offset = offset * 16 + static_cast<std::size_t>(HexDigit(text[at]));
    }
    Bytes piece;
    while (at + 3 <= text.size() && text[at] == ' ' && HexDigit(text[at + 1]) >= 0 &&
           HexDigit(text[at + 2]) >= 0) {
        piece.push_back(
            static_cast<unsigned char>(HexDigit(text[at + 1]) * 16 + HexDigit(text[at + 2])));
        at += 3;
    }
    if (piece.empty()) return false;
    int times = 1;
    const std::string repeat = " ×";
    if (text.compare(at, repeat.size(), repeat) == 0) {
        at += repeat.size();
        std::size_t digits = text.find_first_not_of("0123456789", at);
        if (digits == at) return false;
        times = std::stoi(text.substr(at, digits - at));
        at = digits == std::string::npos ? text.size() : digits;
    }
    if (at != text.size() && text.compare(at, 2, "  ") != 0) return false;
    for (; times > 0; --times) bytes.insert(bytes.end(), piece.begin(), piece.end());
    return true;
}

// The dumps of the guide by name; a line that breaks the dump rules fails the test.
Dumps ReadGuide(const std::string& path) {
    std::ifstream in(path);
    EXPECT_TRUE(in) << "cannot read " << path;
    const std::string open = "```hex ";
    Dumps dumps;
    std::string text, name;
    int number = 0;
    while (std::getline(in, text)) {
        ++number;
        if (name.empty()) {
            if (text.compare(0, open.size(), open) == 0) {
                name = text.substr(open.size());
                EXPECT_FALSE(dumps.count(name)) << "dump " << name << " appears twice";
                dumps[name];
            }
            continue;
        }
        if (text == "```") {
            name.clear();
            continue;
        }
        Bytes& bytes = dumps[name];
        std::size_t before = bytes.size(), offset = 0;
        if (!ParseDumpLine(text, offset, bytes)) {
            ADD_FAILURE() << path << ":" << number << ": not a dump line: " << text;
            continue;
        }
        EXPECT_EQ(offset, before) << path << ":" << number
                                  << ": the offset is not the bytes before the line";
    }
    EXPECT_TRUE(name.empty()) << "dump " << name << " is not closed";
    return dumps;
}

// Bytes as a plain dump in the guide's form, 16 to a line, for the failure message.
std::string Dump(const Bytes& bytes) {
    std::string out;
    char cell[24];
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i % 16 == 0) {
            std::snprintf(cell, sizeof cell, "%s%04zX", i ? "\n" : "", i);
            out += cell;
        }
        std::snprintf(cell, sizeof cell, " %02X", bytes[i]);
        out += cell;
    }
    return out;
}

const UINT create = CFile::modeCreate | CFile::modeReadWrite;

Bytes WrittenBy(const std::function<void(const std::string&)>& write) {
    TempDir dir;
    write(dir.Path("f"));
    return ReadAll(dir.Path("f"));
}

Bytes RecordFile(bool closed) {
    TempDir dir;
    CBinFile file(dir.Path("f").c_str(), create);
    file.SetSafeMode(closed);
    for (const char* record : {"AB", "", "CDE"}) file.Add(P(record), int(std::strlen(record)));
    file.Flush();
    return ReadAll(dir.Path("f"));
}

Bytes IntegerFile(int size) {
    return WrittenBy([size](const std::string& path) {
        CIXFile file(path.c_str(), create, size);
        for (int value : {5, 200, -1}) file.Add(value);
    });
}

// A dictionary of two marked words: "ما" with a fatha on the first letter, and "لا".
Bytes WildcardIndex() {
    TempDir dir;
    CTextBinFile words(dir.Path("words").c_str(), create);
    words.Add("\xE3\xF3\xC7");
    words.Add("\xE1\xC7");
    words.IndexForWildCards(dir.Path("f").c_str(), DiacriticMarks, nullptr);
    return ReadAll(dir.Path("f"));
}

// The diacritizer folder of two forms of "من": "مِنْ" seen three times, "مَنْ" once.
Bytes FormsFile(const std::string& name) {
    TempDir dir;
    dorvik::Diacritizer::Builder builder(dir.Root());
    builder.add("مِنْ", 3);
    builder.add("مَنْ");
    builder.finish();
    return ReadAll(dir.Path(name));
}

// The pair counts of the text "مِنْ مَنْ مِنْ".
Bytes PairsFile() {
    TempDir dir;
    dorvik::Diacritizer::Builder builder(dir.Root());
    builder.add_text("مِنْ مَنْ مِنْ");
    builder.finish();
    return ReadAll(dir.Path("forms.pair"));
}

Bytes DictionaryFile(const std::string& name) {
    TempDir dir;
    {
        dorvik::Dictionary words(dir.Path("words.bin"), {.create = true});
        for (const char* word : {"pear", "apple", "fig"}) words.add(word);
    }
    return ReadAll(dir.Path(name));
}

const std::map<std::string, std::function<Bytes()>>& Examples() {
    static const std::map<std::string, std::function<Bytes()>> examples = {
        {"record-file", [] { return RecordFile(true); }},
        {"record-file-bulk", [] { return RecordFile(false); }},
        {"record-file-empty",
         [] { return WrittenBy([](const std::string& p) { CBinFile(p.c_str(), create); }); }},
        {"compressed-form",
         [] {
             dorvik::BitSet bits{40, 47};
             for (std::uint32_t bit = 16; bit < 40; ++bit) bits.set(bit);
             std::vector<std::byte> form = bits.to_compressed();
             return Bytes(reinterpret_cast<unsigned char*>(form.data()),
                          reinterpret_cast<unsigned char*>(form.data()) + form.size());
         }},
        {"bit-record-file",
         [] {
             return WrittenBy([](const std::string& path) {
                 CBitsBinFile file(path.c_str(), create);
                 AddRows(file, {{1, 3}, {}, {40}});
             });
         }},
        {"integer-file-1", [] { return IntegerFile(1); }},
        {"integer-file-2", [] { return IntegerFile(2); }},
        {"integer-file-3", [] { return IntegerFile(3); }},
        {"integer-file-4", [] { return IntegerFile(4); }},
        {"number-array",
         [] {
             return WrittenBy([](const std::string& path) {
                 CMyDWordArray numbers;
                 numbers.Add(7);
                 numbers.Add(65536);
                 numbers.Save(path.c_str());
             });
         }},
        {"nested-file",
         [] {
             return WrittenBy([](const std::string& path) {
                 CNDimBinFile file(path.c_str(), create);
                 file.Add(P("hi"), 2);
                 int first[] = {1, 0}, second[] = {1, 1};
                 file.Modify(2, first, P("a"), 1);
                 file.Modify(2, second, P("bc"), 2);
             });
         }},
        {"bit-matrix",
         [] {
             return WrittenBy([](const std::string& path) {
                 CNDimBitsBinFile file(path.c_str(), create);
                 int cell[] = {1, 0};
                 file.SetAt(2, cell, 3);
             });
         }},
        {"wildcard-index", WildcardIndex},
        {"dictionary-words", [] { return DictionaryFile("words.bin"); }},
        {"dictionary-sorted", [] { return DictionaryFile("words.sort"); }},
        {"packed-array",
         [] {
             return WrittenBy([](const std::string& path) {
                 CBitArrayArray lists;
                 lists.GetAt(1)->SetAt(2);
                 lists.GetAt(4)->SetAt(0);
                 lists.GetAt(4)->SetAt(9);
                 lists.Save(path.c_str(), opCopy, true, true, nullptr);
             });
         }},
        {"collection",
         [] {
             return WrittenBy([](const std::string& path) {
                 CBitArrayCollection collection;
                 collection.GetAt(0)->GetAt(0)->SetAt(0);
                 collection.GetAt(1)->GetAt(1)->SetAt(2);
                 collection.Save(path.c_str(), opCopy, true, false, nullptr);
             });
         }},
        {"hierarchy",
         [] {
             return WrittenBy([](const std::string& path) {
                 CHierarchy tree;
                 int levels[] = {0, 1, 2, 1, 0};  // node n stands at depth levels[n]
                 for (int node = 0; node < 5; ++node) tree.SetNodeLevel(node, levels[node], true);
                 tree.Save(path.c_str(), opCopy, false, false, nullptr);
             });
         }},
        {"index-tree",
         [] {
             return WrittenBy([](const std::string& path) {
                 dorvik::Tree tree;
                 for (int level : {0, 1, 1, 0, 1}) tree.add(level);  // files and their units
                 tree.save(path);
             });
         }},
        {"spill-file",
         [] {
             return WrittenBy([](const std::string& path) {
                 CBitArraySaver saver;
                 saver.SetTempFile(path.c_str());
                 CBitArray bits = BitsOf({1, 9});
                 saver.Push(bits);
                 CDWordArray numbers;
                 numbers.Add(7);
                 saver.Push(numbers);
             });
         }},
        {"xml-text",
         [] {
             return WrittenBy([](const std::string& path) {
                 CXMLDocument document;
                 document.LoadXML("<list kind=\"a\"><item>one</item><item/></list>");
                 document.Save(path.c_str());
             });
         }},
        {"forms-bin", [] { return FormsFile("forms.bin"); }},
        {"forms-sort", [] { return FormsFile("forms.sort"); }},
        {"forms-freq", [] { return FormsFile("forms.freq"); }},
        {"forms-pair", [] { return PairsFile(); }},
    };
    return examples;
}
}  // namespace

TEST(FormatGuide, EveryDumpIsWhatTheLibraryWrites) {
    Dumps dumps = ReadGuide(std::string(DORVIK_DOCS) + "/formats.md");
    for (const auto& [name, build] : Examples()) {
        SCOPED_TRACE(name);
        auto dump = dumps.find(name);
        if (dump == dumps.end()) {
            ADD_FAILURE() << "the guide has no dump " << name;
            continue;
        }
        Bytes written = build();
        EXPECT_TRUE(dump->second == written) << "the guide has\n"
                                             << Dump(dump->second) << "\nthe library writes\n"
                                             << Dump(written);
        dumps.erase(dump);
    }
    for (const auto& [name, bytes] : dumps) ADD_FAILURE() << "no example builds dump " << name;
}
