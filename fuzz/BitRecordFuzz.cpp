// Any bytes as a bit record file image: the compressed records are read in place and
// changed in place by single bits; every reader stays inside its record and every
// expansion within its limit.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>

#include "FuzzUtil.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzedDataProvider in(data, size);
    int bits[6];
    for (int& bit : bits) bit = in.ConsumeIntegralInRange<int>(-2, 1 << 20);
    const std::vector<unsigned char> image = in.ConsumeRemainingBytes<unsigned char>();
    try {
        CMemBitsBinFile file(MallocCopy(image), static_cast<UINT>(image.size()), 0);
        const int count = file.GetRecordCount();
        for (int i = -1; i < count && i < 12; ++i) {
            file.GetCount(i);
            for (int bit : bits) {
                file.GetAt(i, bit);
                file.GetBitIndex(i, bit);
                file.GetIndexBit(i, bit & 0xFF);
            }
            CBitArray record;
            file.GetRecord(i, record, 1 << 16);
        }
        int records[] = {0, 1, count - 1, count};
        CBitArray united;
        file.GetRecords(4, records, united, true, 1 << 16);
        CBitArray common;
        file.GetRecords(4, records, common, false, 1 << 16);
        for (int i = 0; i < count && i < 4; ++i) {
            file.SetAt(i, bits[i]);
            file.ResetAt(i, bits[i + 1]);
            file.GetAt(i, bits[i]);
        }
        file.SetAt(count, bits[5] & 0xFFF);
    } catch (const CException&) {
        // A clear result for an image that is no bit record file.
    }
    return 0;
}
