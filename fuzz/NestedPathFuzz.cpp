// Any bytes as a nested record file image, walked by any path: every step stays inside
// the image of its level, and a path that leads nowhere gives nothing.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>

#include "FuzzUtil.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzedDataProvider in(data, size);
    int path[8];
    const int dim = in.ConsumeIntegralInRange<int>(0, 8);
    for (int& step : path) step = in.ConsumeIntegralInRange<int>(-2, 40);
    const bool change = in.ConsumeBool();
    const std::vector<unsigned char> image = in.ConsumeRemainingBytes<unsigned char>();
    try {
        CMemNDimBinFile file(MallocCopy(image), static_cast<UINT>(image.size()), 0);
        for (int d = 0; d <= dim; ++d) {
            file.GetRecordLength(d, path);
            file.GetRecordCount(d, path);
            unsigned char* bytes = nullptr;
            int length = 0;
            file.GetRecord(d, path, bytes, length);
            DropBlock(bytes);
            CBitArray nonEmpty;
            file.GetRecordsBitmap(d, path, nonEmpty);
            CMemBinFile inner;
            file.GetFile(d, path, inner);
        }
        if (change) {
            unsigned char word[] = {'n', 'e', 'w'};
            file.Modify(dim, path, word, 3);
            file.Insert(dim, path, word, 2);
            file.Delete(dim, path, path[dim > 0 ? dim - 1 : 0], path[0]);
            file.Add(dim, path, word, 1);
            file.GetRecordLength(dim, path);
        }
    } catch (const CException&) {
        // A clear result for an image that is no nested record file.
    }
    return 0;
}
