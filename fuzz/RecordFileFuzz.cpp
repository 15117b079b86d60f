// Any bytes as a record file image: reads, nested path walks and changes must give a
// result or a platform exception, never a fault.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <Dorvik01.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    auto* block = static_cast<BYTE*>(std::malloc(size ? size : 1));
    std::memcpy(block, data, size);
    try {
        CMemNDimBitsBinFile file(block, static_cast<UINT>(size), 0);
        int count = file.GetRecordCount();
        file.IsValidBinFile();
        file.GetMaxRecordLength();
        for (int i = 0; i < count && i < 16; ++i) {
            unsigned char* bytes = nullptr;
            int length = 0;
            file.CBinFile::GetRecord(i, bytes, length, true);
            DropBlock(bytes);
            int path[3] = {i, 0, 1};
            file.GetRecordLength(2, path);
            file.GetRecordLength(3, path);
            file.CNDimBinFile::GetRecordCount(1, path);
            CBitArray bits;
            file.GetRecord(2, path, bits, -1);
            file.GetAt(2, path, 5);
        }
        CBitArray nonEmpty;
        file.GetRecordsBitmap(nonEmpty);
        unsigned char word[] = {'x', 'y'};
        file.CBinFile::Add(word, 2);
        file.CBinFile::Delete(0);
        int path[2] = {0, 1};
        file.CNDimBinFile::Modify(2, path, word, 2);
    } catch (const CException&) {
        // A clear result for a file that is no record file.
    }
    return 0;
}
