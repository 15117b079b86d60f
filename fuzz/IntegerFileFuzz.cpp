// Any bytes as an integer file and as its index file (the sorted view): reads, searches,
// sorting and inverting stay inside the files and bounded in memory, whatever the
// records hold; a position that the index maps outside the file reads as -1.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>

#include "FuzzUtil.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // The inverse has an entry for every value up to the largest: an application that
    // inverts untrusted files bounds its blocks, and so does this target.
    static const std::size_t bound = DorvikSetBlockLimit(4 << 20);
    (void)bound;
    FuzzedDataProvider in(data, size);
    const int recordSize = in.ConsumeIntegralInRange<int>(1, 4);
    const int indexSize = in.ConsumeIntegralInRange<int>(1, 4);
    const int value = in.ConsumeIntegral<int>();
    const int position = in.ConsumeIntegralInRange<int>(-2, 300);
    std::vector<unsigned char> order =
        in.ConsumeBytes<unsigned char>(in.ConsumeIntegralInRange<std::size_t>(0, 256));
    std::vector<unsigned char> records = in.ConsumeRemainingBytes<unsigned char>();
    if (records.empty()) records.push_back(0);
    if (order.empty()) order.push_back(0);
    try {
        CMemIXFile file(records.data(), static_cast<UINT>(records.size()), 0, recordSize);
        const int count = file.GetRecordCount();
        for (int i = -1; i <= count && i < 64; ++i) file.GetRecord(i);
        file.Find(position, value);
        DWORD* list = nullptr;
        file.Find(value, opEqual, list);
        DropBlock(list);
        CBitArray bits;
        file.Find(value, opGreater, bits, true);
        file.GetRecordsBitmap(bits);
        file.GetRecords(position, position + 8, bits);
        CMemIXFile sorted(4);
        file.Sort(&sorted, nullptr);
        CMemFile inverse(1 << 20);
        file.Invert(nullptr, &inverse);

        // A damaged index file: positions anywhere, or none.
        CMemIXFile index(order.data(), static_cast<UINT>(order.size()), 0, indexSize);
        file.SetIndexFile(&index);
        for (int i = -1; i <= count && i < 32; ++i) file.GetRecord(i);
        file.Find(-1, value);
        file.Find(value, opLess, bits, false);
        file.Modify(position, value);
        file.IncRecord(position);
        file.Delete(position);
        file.SetIndexFile(nullptr);
        file.Insert(position, value);
        file.DeleteEmpty();
    } catch (const CException&) {
        // A clear result for a file the operation cannot use.
    }
    return 0;
}
