// Any bytes as a compressed bit array: readers stay inside the string and expansion
// stays bounded by what the items stand for; the test of many bits at once answers as
// the test of each bit alone.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <Dorvik01.h>

#include "bits/CompressedForm.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > 4096) return 0;  // keeps the expansion of each input small
    int length = static_cast<int>(size);
    CBitArray::DecompressLength(data, length);
    for (int bit : {0, 7, 8, 100, 5000, 70000}) CBitArray::GetAt(data, length, bit);
    // Rising bits, their gaps taken from the input read backwards.
    std::vector<std::uint32_t> bits;
    std::uint32_t bit = 0;
    for (std::size_t i = size; i-- > 0 && bits.size() < 256;) bits.push_back(bit += data[i] % 29);
    std::vector<char> held(bits.size(), 0);
    dorvik::form::MarkHeldBits(data, size, bits, held.data());
    for (std::size_t i = 0; i < bits.size(); ++i)
        if ((held[i] != 0) != CBitArray::GetAt(data, length, static_cast<int>(bits[i]))) std::abort();
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
