// Any bytes as a compressed bit array: readers stay inside the string and expansion
// stays bounded by what the items stand for.
#include <cstdint>
#include <cstring>

#include <Dorvik01.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > 4096) return 0;  // keeps the expansion of each input small
    int length = static_cast<int>(size);
    CBitArray::DecompressLength(data, length);
    for (int bit : {0, 7, 8, 100, 5000, 70000}) CBitArray::GetAt(data, length, bit);
    try {
        auto* copy = static_cast<unsigned char*>(GrabBlock(size));
        std::memcpy(copy, data, size);
        int copyLength = length;
        CBitArray::SetAt(copy, copyLength, 9 + (size ? data[0] : 0));
        DropBlock(copy);
        copy = static_cast<unsigned char*>(GrabBlock(size));
        std::memcpy(copy, data, size);
        copyLength = length;
        CBitArray::Decompress(copy, copyLength, size ? data[0] : -1);
        if (copyLength > 0) {
            unsigned char* again = nullptr;
            int againLength = 0;
            CBitArray::Compress(copy, copyLength, again, againLength);
            DropBlock(again);
        }
        DropBlock(copy);
    } catch (const CMemoryException&) {}
    return 0;
}
