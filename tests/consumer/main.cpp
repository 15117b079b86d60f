// Links against the installed library: writes a record file in memory and on disk.
#include <Dorvik01.h>

#include <cstdio>
#include <string>

int main(int argc, char** argv) {
    std::string path = argc > 1 ? argv[1] : "consumer.bin";
    {
        CBinFile file(path.c_str(), CFile::modeCreate | CFile::modeReadWrite);
        unsigned char word[] = {'o', 'k'};
        file.Add(word, 2);
    }
    CBinFile file(path.c_str(), CFile::modeRead);
    unsigned char* bytes = nullptr;
    int length = 0;
    file.GetRecord(0, bytes, length, true);
    bool ok = file.IsValidBinFile() && file.GetRecordCount() == 1 && length == 2 && bytes[0] == 'o';
    DropBlock(bytes);
    std::printf("consumer: %s\n", ok ? "ok" : "FAILED");
    return ok ? 0 : 1;
}
