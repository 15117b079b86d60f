// Throughput of the bit array over 16 MB bitmaps, with memcpy of the same size as the
// yardstick of the machine's memory bandwidth on the same run.
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <vector>

#include "dorvik/BitArray.h"

namespace {
constexpr int kBytes = 16 << 20;

// A bitmap of kBytes bytes in which each bit is set with the given probability.
std::vector<unsigned char> RandomBitmap(double density, unsigned seed) {
    std::vector<unsigned char> bytes(kBytes, 0);
    std::mt19937_64 random(seed);
    if (density >= 0.5) {
        for (auto& b : bytes) b = static_cast<unsigned char>(random());
        return bytes;
    }
    std::geometric_distribution<long> gap(density);
    for (long bit = gap(random); bit < long{kBytes} * 8; bit += 1 + gap(random))
        bytes[static_cast<std::size_t>(bit >> 3)] |= static_cast<unsigned char>(1u << (bit & 7));
    return bytes;
}

CBitArray RandomArray(double density, unsigned seed) {
    auto bytes = RandomBitmap(density, seed);
    bytes.back() |= 0x80;  // keeps the full length through Init's trim
    return CBitArray(bytes.data(), kBytes, false);
}

void BM_Memcpy(benchmark::State& state) {
    std::vector<unsigned char> from(kBytes, 0x5A), to(kBytes, 0);
    for (auto _ : state) {
        std::memcpy(to.data(), from.data(), kBytes);
        benchmark::DoNotOptimize(to.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * kBytes);
}
BENCHMARK(BM_Memcpy)->UseRealTime();

template <int kOp>
void BM_SetLogic(benchmark::State& state) {
    CBitArray target = RandomArray(0.5, 1);
    CBitArray other = RandomArray(0.5, 2);
    for (auto _ : state) {
        if (kOp == 0) target &= other;
        if (kOp == 1) target |= other;
        if (kOp == 2) target ^= other;
        benchmark::DoNotOptimize(target.GetBuffer());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * kBytes);
}
BENCHMARK_TEMPLATE(BM_SetLogic, 0)->Name("BM_And")->UseRealTime();
BENCHMARK_TEMPLATE(BM_SetLogic, 1)->Name("BM_Or")->UseRealTime();
BENCHMARK_TEMPLATE(BM_SetLogic, 2)->Name("BM_Xor")->UseRealTime();

void BM_GetCount(benchmark::State& state) {
    CBitArray array = RandomArray(0.5, 3);
    for (auto _ : state) {
        array.ResetAt(0);  // drops the cached count, so every round counts
        benchmark::DoNotOptimize(array.GetCount());
    }
    state.SetBytesProcessed(state.iterations() * kBytes);
}
BENCHMARK(BM_GetCount)->UseRealTime();

void BM_Compress(benchmark::State& state) {
    auto bytes = RandomBitmap(state.range(0) / 1000.0, 4);
    for (auto _ : state) {
        unsigned char* packed = nullptr;
        int length = 0;
        CBitArray::Compress(bytes.data(), kBytes, packed, length);
        benchmark::DoNotOptimize(packed);
        DropBlock(packed);
    }
    state.SetBytesProcessed(state.iterations() * kBytes);
}
// Density in thousandths: 0.1 % (sparse) and 50 % (dense).
BENCHMARK(BM_Compress)->Arg(1)->Arg(500)->UseRealTime();

void BM_Decompress(benchmark::State& state) {
    auto bytes = RandomBitmap(state.range(0) / 1000.0, 5);
    unsigned char* packed = nullptr;
    int packedLength = 0;
    CBitArray::Compress(bytes.data(), kBytes, packed, packedLength);
    for (auto _ : state) {
        state.PauseTiming();  // Decompress consumes its block: each round gets a copy
        unsigned char* buffer =
            static_cast<unsigned char*>(GrabBlock(static_cast<std::size_t>(packedLength)));
        std::memcpy(buffer, packed, static_cast<std::size_t>(packedLength));
        int length = packedLength;
        state.ResumeTiming();
        CBitArray::Decompress(buffer, length, -1);
        benchmark::DoNotOptimize(buffer);
        DropBlock(buffer);
    }
    DropBlock(packed);
    state.SetBytesProcessed(state.iterations() * kBytes);
}
BENCHMARK(BM_Decompress)->Arg(1)->Arg(500)->UseRealTime();
}  // namespace
