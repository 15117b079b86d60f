// The inverted index of index.cpp on the classic face, for a list of files and a query
// whose words must all be in a file (AND): the same files, the same answers. Words are
// taken as bytes, whatever their encoding.
//   dorvik_index_classic INDEX QUERY FILE...
#include <sys/stat.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <Dorvik01.h>

#include "Words.h"

int main(int argc, char** argv) {
    if (argc < 4) {
        std::fprintf(stderr, "usage: %s INDEX QUERY FILE...\n", argv[0]);
        return 2;
    }
    std::string folder = argv[1];
    mkdir(folder.c_str(), 0777);
    std::string words = folder + "/words.bin", order = folder + "/words.sort",
                postings = folder + "/postings.bin";
    try {
        CTextBinFile dictionary(words.c_str(), CFile::modeCreate | CFile::modeReadWrite);
        CIXFile sorted(order.c_str(), CFile::modeCreate | CFile::modeReadWrite, 4);
        dictionary.SetIndexFile(&sorted);
        dictionary.InitSortTree(true, true, nullptr, nullptr);  // gather words in memory
        CLinkedListArray lists;
        for (int file = 3; file < argc; ++file) {
            std::ifstream in(argv[file], std::ios::binary);
            if (!in) {
                std::fprintf(stderr, "%s: cannot read %s\n", argv[0], argv[file]);
                return 1;
            }
            std::stringstream text;
            text << in.rdbuf();
            for (const std::string& word : WordsOf(text.str())) {
                int record = -1;
                dictionary.Add(word.c_str(), static_cast<int>(word.size()), record, true, false);
                lists.AddValue(record, file - 3);
            }
        }
        dictionary.FreeSortTree(true, nullptr);  // writes the words and their sorted view
        CBitsBinFile file(postings.c_str(), CFile::modeCreate | CFile::modeReadWrite);
        lists.Save(&file, opCopy, true, false, nullptr);

        std::vector<int> terms;
        for (const std::string& word : WordsOf(argv[2])) {
            int serial = dictionary.Find(-1, word.c_str(), nullptr, false, false, true, false, true,
                                         true, nullptr);
            if (serial < 0) return 0;
            terms.push_back(dictionary.GetSerialRecord(serial));
        }
        CBitArray hits;
        if (!terms.empty())
            file.GetRecords(static_cast<int>(terms.size()), terms.data(), hits, false, -1);
        CDWordArray found;
        hits.Bmp2Array(found);
        for (int i = 0; i < found.GetSize(); ++i) std::printf("%s\n", argv[found[i] + 3]);
    } catch (const CException& e) {
        std::fprintf(stderr, "%s: %s\n", argv[0], e.what());
        return 1;
    }
    return 0;
}
