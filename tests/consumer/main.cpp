// Links against the installed library as a user would, touching each class family of
// the classic face and the types of the modern one, in the same program.
#include <Dorvik01.h>
#include <dorvik/dorvik.hpp>

#include <cstdio>
#include <string>

int main(int argc, char** argv) {
    std::string dir = argc > 1 ? argv[1] : ".";
    std::string records = dir + "/consumer.bin", words = dir + "/words.bin",
                index = dir + "/words.idx", counts = dir + "/words.frq";
    bool ok = true;
    try {
        {
            CBinFile file(records.c_str(), CFile::modeCreate | CFile::modeReadWrite);
            unsigned char word[] = {'o', 'k'};
            file.Add(word, 2);
        }
        CBinFile file(records.c_str(), CFile::modeRead);
        CDWordArray numbers;
        file.GetRecord(0, numbers);
        ok = ok && file.IsValidBinFile() && file.GetRecordCount() == 1 &&
             file.GetRecordLength(0) == 2;

        CMemBitsBinFile bits;
        bits.SetAt(0, 12);
        CBitArray row;
        bits.GetRecord(0, row, -1);
        ok = ok && row.GetAt(12) && row.GetCount() == 1;

        {
            CTextBinFile dictionary(words.c_str(), CFile::modeCreate | CFile::modeReadWrite);
            dictionary.Add("\xC8\xF3\xC7");
            dictionary.IndexForWildCards(index.c_str(), DiacriticMarks, nullptr);
            CIXFile frequencies(counts.c_str(), CFile::modeCreate | CFile::modeReadWrite, 4);
            frequencies.Add(1);
        }
        CString text;
        char buffer[] = "\xC8\xC7, x";
        DiacritizeBuffer(buffer, text, words.c_str(), index.c_str(), counts.c_str());
        ok = ok && text == "\xC8\xF3\xC7, x";
    } catch (const CException& e) {
        std::printf("consumer: %s\n", e.what());
        ok = false;
    }
    try {
        // The same record file and the same diacritization, in UTF-8.
        dorvik::RecordFile file(records, {.read_only = true});
        ok = ok && file.size() == 1 && file.read_string(0) == "ok";
        dorvik::Diacritizer::Builder builder(dir + "/forms");
        builder.add("\xD8\xA8\xD9\x8E\xD8\xA7");  // ba, fatha, alef
        builder.finish();
        dorvik::Diacritizer diacritizer(dir + "/forms");
        ok = ok && diacritizer.diacritize("\xD8\xA8\xD8\xA7, x") == "\xD8\xA8\xD9\x8E\xD8\xA7, x";
    } catch (const dorvik::Error& e) {
        std::printf("consumer: %s\n", e.what());
        ok = false;
    }
    std::printf("consumer: %s\n", ok ? "ok" : "FAILED");
    return ok ? 0 : 1;
}
