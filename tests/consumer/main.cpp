// Links against the installed library as a user would, touching each class family.
#include <Dorvik01.h>

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
    std::printf("consumer: %s\n", ok ? "ok" : "FAILED");
    return ok ? 0 : 1;
}
