// Writes a small record file, reads it back and prints every record.
//   dorvik_records FILE [TEXT...]
// Each TEXT becomes one record (default: three sample words). A FILE that is a record
// file is rebuilt; one that exists and is not (any other file, a directory) is refused
// and left untouched.
#include <cstdio>
#include <cstring>

#include <Dorvik01.h>

namespace {
void Usage(std::FILE* out, const char* program) {
    std::fprintf(out,
                 "usage: %s FILE [TEXT...]\n"
                 "Writes each TEXT as one record of the record file FILE (default: three\n"
                 "sample words), then reads the file back and prints its records. FILE is\n"
                 "created, or rebuilt when it is a record file; any other existing file is\n"
                 "refused. Use -- before a FILE or TEXT that begins with a dash.\n",
                 program);
}

// True when `path` names something that the program must not overwrite: an existing
// file that is not empty and is not a record file, or anything that is no file.
bool MustNotOverwrite(const char* path) {
    CFileStatus status;
    if (!CFile::GetStatus(path, status)) return false;
    if (status.m_attribute & 0x10) return true;  // a directory
    if (status.m_size == 0) return false;
    try {
        return !CBinFile::IsValidBinFile(path);
    } catch (const CFileException&) {
        return true;  // 1 to 3 bytes: no record file either
    }
}
}  // namespace

int main(int argc, char** argv) {
    int first = 1;
    if (argc > 1 && (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0)) {
        Usage(stdout, argv[0]);
        return 0;
    }
    if (argc > 1 && std::strcmp(argv[1], "--") == 0) {
        first = 2;
    } else if (argc > 1 && argv[1][0] == '-' && argv[1][1] != '\0') {
        std::fprintf(stderr, "%s: unknown option %s\n", argv[0], argv[1]);
        Usage(stderr, argv[0]);
        return 2;
    }
    if (argc <= first) {
        Usage(stderr, argv[0]);
        return 2;
    }
    const char* path = argv[first];
    if (MustNotOverwrite(path)) {
        std::fprintf(stderr, "%s: %s exists and is not a record file; it is left as it is\n",
                     argv[0], path);
        return 1;
    }
    const char* samples[] = {"alpha", "", "omega"};
    try {
        {
            CBinFile file(path, CFile::modeCreate | CFile::modeReadWrite);
            file.SetSafeMode(false);  // bulk building: the table is written once, at Close
            if (argc > first + 1) {
                for (int i = first + 1; i < argc; ++i)
                    file.Add(reinterpret_cast<unsigned char*>(argv[i]),
                             static_cast<int>(std::strlen(argv[i])));
            } else {
                for (const char* s : samples)
                    file.Add(reinterpret_cast<unsigned char*>(const_cast<char*>(s)),
                             static_cast<int>(std::strlen(s)));
            }
            file.Close();
        }
        CBinFile file(path, CFile::modeRead);
        std::printf("%s: %d records, %u bytes, %s\n", path, file.GetRecordCount(), file.GetLength(),
                    file.IsValidBinFile() ? "valid" : "not valid");
        for (int i = 0; i < file.GetRecordCount(); ++i) {
            unsigned char* bytes = nullptr;
            int length = 0;
            file.GetRecord(i, bytes, length, true);
            std::printf("%d\t%d\t%.*s\n", i, length, length,
                        bytes ? reinterpret_cast<char*>(bytes) : "");
            DropBlock(bytes);
        }
    } catch (const CException& e) {
        std::fprintf(stderr, "%s: %s\n", argv[0], e.what());
        return 1;
    }
    return 0;
}
