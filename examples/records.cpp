// Writes a small record file, reads it back and prints every record.
//   dorvik_records FILE [TEXT...]
// Each TEXT becomes one record (default: three sample words). The file is rebuilt.
#include <cstdio>
#include <cstring>

#include <Dorvik01.h>

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s FILE [TEXT...]\n", argv[0]);
        return 2;
    }
    const char* samples[] = {"alpha", "", "omega"};
    try {
        {
            CBinFile file(argv[1], CFile::modeCreate | CFile::modeReadWrite);
            file.SetSafeMode(false);  // bulk building: the table is written once, at Close
            if (argc > 2) {
                for (int i = 2; i < argc; ++i)
                    file.Add(reinterpret_cast<unsigned char*>(argv[i]),
                             static_cast<int>(std::strlen(argv[i])));
            } else {
                for (const char* s : samples)
                    file.Add(reinterpret_cast<unsigned char*>(const_cast<char*>(s)),
                             static_cast<int>(std::strlen(s)));
            }
            file.Close();
        }
        CBinFile file(argv[1], CFile::modeRead);
        std::printf("%s: %d records, %u bytes, %s\n", argv[1], file.GetRecordCount(),
                    file.GetLength(), file.IsValidBinFile() ? "valid" : "not valid");
        for (int i = 0; i < file.GetRecordCount(); ++i) {
            unsigned char* bytes = nullptr;
            int length = 0;
            file.GetRecord(i, bytes, length, true);
            std::printf("%d\t%d\t%.*s\n", i, length, length,
                        bytes ? reinterpret_cast<char*>(bytes) : "");
            DropBlock(bytes);
        }
    } catch (const CException& e) {
        std::fprintf(stderr, "error: %s\n", e.what());
        return 1;
    }
    return 0;
}
