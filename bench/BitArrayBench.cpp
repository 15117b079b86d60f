// Bit arrays of 16 MiB: set logic and counting next to CRoaring and a plain loop over
// 64-bit words (the floor), and the compressed form next to memcpy of the plain size
// (the machine's memory bandwidth) and CRoaring's portable serialization. Workloads 1
// and 2 of bench/compare.sh.
#include <benchmark/benchmark.h>
#include <roaring/roaring.h>

#include <bit>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "BenchUtil.h"
#include "dorvik/BitArray.h"

namespace {
constexpr std::size_t kBytes = 16 << 20;

const std::vector<unsigned char>& Bitmap(int density, unsigned seed) {
    static std::vector<unsigned char> made[4];
    std::vector<unsigned char>& at = made[(density == 500 ? 2 : 0) + (seed & 1)];
    if (at.empty()) {
        at = RandomBitmap(kBytes, density / 1000.0, seed);
        at.back() |= 0x80;  // keeps the full length through Init's trim
    }
    return at;
}

CBitArray Array(unsigned seed) {
    const auto& bytes = Bitmap(500, seed);
    return CBitArray(bytes.data(), static_cast<int>(bytes.size()), false);
}

std::vector<std::uint64_t> Words(unsigned seed) {
    const auto& bytes = Bitmap(500, seed);
    std::vector<std::uint64_t> words(bytes.size() / 8);
    std::memcpy(words.data(), bytes.data(), bytes.size());
    return words;
}

}  // namespace

// One 65536-bit chunk at a time.
roaring_bitmap_t* ToRoaring(const unsigned char* bytes, std::size_t n) {
    roaring_bitmap_t* r = roaring_bitmap_create();
    std::vector<std::uint32_t> bits;
    for (std::size_t chunk = 0; chunk < n; chunk += 8192) {
        bits.clear();
        for (std::size_t i = chunk; i < n && i < chunk + 8192; ++i)
            for (unsigned v = bytes[i]; v; v &= v - 1)
                bits.push_back(static_cast<std::uint32_t>(i * 8 + std::countr_zero(v)));
        roaring_bitmap_add_many(r, bits.size(), bits.data());
    }
    return r;
}

namespace {

// ---- Workload 1: AND, OR and count of two dense arrays -------------------------------

template <int kOp>
void BM_W1_Dorvik(benchmark::State& state) {
    CBitArray target = Array(1), other = Array(2);
    for (auto _ : state) {
        if (kOp == 0) target &= other;
        if (kOp == 1) target |= other;
        if (kOp == 2) {
            target.ResetAt(0);  // drops the cached count, so every round counts
            benchmark::DoNotOptimize(target.GetCount());
        }
        benchmark::DoNotOptimize(target.GetBuffer());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kBytes));
}
BENCHMARK_TEMPLATE(BM_W1_Dorvik, 0)->Name("W1_And_Dorvik")->UseRealTime();
BENCHMARK_TEMPLATE(BM_W1_Dorvik, 1)->Name("W1_Or_Dorvik")->UseRealTime();
BENCHMARK_TEMPLATE(BM_W1_Dorvik, 2)->Name("W1_Count_Dorvik")->UseRealTime();

template <int kOp>
void BM_W1_Roaring(benchmark::State& state) {
    roaring_bitmap_t* target = ToRoaring(Bitmap(500, 1).data(), kBytes);
    roaring_bitmap_t* other = ToRoaring(Bitmap(500, 2).data(), kBytes);
    for (auto _ : state) {
        if (kOp == 0) roaring_bitmap_and_inplace(target, other);
        if (kOp == 1) roaring_bitmap_or_inplace(target, other);
        benchmark::ClobberMemory();
    }
    roaring_bitmap_free(target);
    roaring_bitmap_free(other);
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kBytes));
}
BENCHMARK_TEMPLATE(BM_W1_Roaring, 0)->Name("W1_And_Roaring")->UseRealTime();
BENCHMARK_TEMPLATE(BM_W1_Roaring, 1)->Name("W1_Or_Roaring")->UseRealTime();

// The floor: one pass of 64-bit words, the count with the machine's popcount.
__attribute__((target("popcnt"))) std::int64_t CountWords(const std::vector<std::uint64_t>& words) {
    std::int64_t count = 0;
    for (std::uint64_t w : words) count += std::popcount(w);
    return count;
}

template <int kOp>
void BM_W1_Floor(benchmark::State& state) {
    std::vector<std::uint64_t> target = Words(1), other = Words(2);
    for (auto _ : state) {
        if (kOp == 0)
            for (std::size_t i = 0; i < target.size(); ++i) target[i] &= other[i];
        if (kOp == 1)
            for (std::size_t i = 0; i < target.size(); ++i) target[i] |= other[i];
        if (kOp == 2) benchmark::DoNotOptimize(CountWords(target));
        benchmark::DoNotOptimize(target.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kBytes));
}
BENCHMARK_TEMPLATE(BM_W1_Floor, 0)->Name("W1_And_Floor")->UseRealTime();
BENCHMARK_TEMPLATE(BM_W1_Floor, 1)->Name("W1_Or_Floor")->UseRealTime();
BENCHMARK_TEMPLATE(BM_W1_Floor, 2)->Name("W1_Count_Floor")->UseRealTime();

void BM_Xor(benchmark::State& state) {
    CBitArray target = Array(1), other = Array(2);
    for (auto _ : state) {
        target ^= other;
        benchmark::DoNotOptimize(target.GetBuffer());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kBytes));
}
BENCHMARK(BM_Xor)->UseRealTime();

// ---- Workload 2: the compressed form; density in thousandths (0.1 % and 50 %) ---------

void BM_W2_Memcpy(benchmark::State& state) {
    const auto& from = Bitmap(static_cast<int>(state.range(0)), 5);
    std::vector<unsigned char> to(kBytes, 0);
    for (auto _ : state) {
        std::memcpy(to.data(), from.data(), kBytes);
        benchmark::DoNotOptimize(to.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kBytes));
}
BENCHMARK(BM_W2_Memcpy)->Name("W2_Memcpy")->Arg(1)->Arg(500)->UseRealTime();

void BM_W2_Compress(benchmark::State& state) {
    const auto& bytes = Bitmap(static_cast<int>(state.range(0)), 5);
    int length = 0;
    for (auto _ : state) {
        unsigned char* packed = nullptr;
        CBitArray::Compress(bytes.data(), static_cast<int>(kBytes), packed, length);
        benchmark::DoNotOptimize(packed);
        DropBlock(packed);
    }
    state.counters["form_MB"] = length / 1048576.0;
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kBytes));
}
BENCHMARK(BM_W2_Compress)->Name("W2_Compress_Dorvik")->Arg(1)->Arg(500)->UseRealTime();

void BM_W2_Decompress(benchmark::State& state) {
    const auto& bytes = Bitmap(static_cast<int>(state.range(0)), 5);
    unsigned char* packed = nullptr;
    int packedLength = 0;
    CBitArray::Compress(bytes.data(), static_cast<int>(kBytes), packed, packedLength);
    for (auto _ : state) {
        state.PauseTiming();  // Decompress consumes its block: each round gets a copy
        auto* buffer =
            static_cast<unsigned char*>(GrabBlock(static_cast<std::size_t>(packedLength)));
        std::memcpy(buffer, packed, static_cast<std::size_t>(packedLength));
        int length = packedLength;
        state.ResumeTiming();
        CBitArray::Decompress(buffer, length, -1);
        benchmark::DoNotOptimize(buffer);
        state.PauseTiming();
        DropBlock(buffer);
        state.ResumeTiming();
    }
    DropBlock(packed);
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kBytes));
}
BENCHMARK(BM_W2_Decompress)->Name("W2_Decompress_Dorvik")->Arg(1)->Arg(500)->UseRealTime();

// CRoaring's portable serialization of the same bits, into a block of its exact size.
void BM_W2_Serialize(benchmark::State& state) {
    const auto& bytes = Bitmap(static_cast<int>(state.range(0)), 5);
    roaring_bitmap_t* r = ToRoaring(bytes.data(), kBytes);
    std::size_t size = 0;
    for (auto _ : state) {
        size = roaring_bitmap_portable_size_in_bytes(r);
        char* out = static_cast<char*>(std::malloc(size));
        roaring_bitmap_portable_serialize(r, out);
        benchmark::DoNotOptimize(out);
        std::free(out);
    }
    roaring_bitmap_free(r);
    state.counters["form_MB"] = static_cast<double>(size) / 1048576.0;
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kBytes));
}
BENCHMARK(BM_W2_Serialize)->Name("W2_Serialize_Roaring")->Arg(1)->Arg(500)->UseRealTime();
}  // namespace
