#include <bit>
#include <climits>
#include <cstring>

#include "bits/CompressedForm.h"
#include "bits/Words.h"
#include "cxx/Boundary.h"
#include "dorvik/Platform.h"

namespace dorvik {

namespace {
using cxx::kMaxSetBytes;

// The lowest set bit at or above `from` in `size` bytes, or -1.
std::int64_t NextBit(const unsigned char* bytes, std::size_t size, std::int64_t from) {
    std::size_t word = static_cast<std::size_t>(from >> 6) * 8;
    if (word >= size) return -1;
    bits::Word w = bits::LoadWord(bytes, size, word) & (~bits::Word{0} << (from & 63));
    while (w == 0) {
        word += 8;
        if (word >= size) return -1;
        w = bits::LoadWord(bytes, size, word);
    }
    return static_cast<std::int64_t>(word) * 8 + std::countr_zero(w);
}

std::uint32_t CheckedBit(std::uint32_t bit) {
    if (bit > BitSet::max_bit)
        throw cxx::MakeError(ErrorCode::out_of_range, "bit " + std::to_string(bit));
    return bit;
}

const unsigned char* Data(std::span<const std::byte> bytes) {
    return reinterpret_cast<const unsigned char*>(bytes.data());
}
}  // namespace

void cxx::CheckSetFromFile(const CBitArray& plain, const std::filesystem::path& path) {
    if (plain.GetLength() > kMaxSetBytes)
        throw MakeError(ErrorCode::invalid_file, "a set reaches past bit 2^31 - 1", path);
}

BitSet::BitSet() noexcept = default;

BitSet::BitSet(std::initializer_list<std::uint32_t> bits) {
    for (std::uint32_t bit : bits) set(bit);
}

BitSet::BitSet(const BitSet& other) {
    if (other.impl_) impl_ = cxx::Guard({}, [&] { return std::make_unique<Impl>(*other.impl_); });
}

BitSet::BitSet(BitSet&& other) noexcept = default;

BitSet& BitSet::operator=(const BitSet& other) {
    if (this != &other) *this = BitSet(other);
    return *this;
}

BitSet& BitSet::operator=(BitSet&& other) noexcept = default;
BitSet::~BitSet() = default;

BitSet::BitSet(std::unique_ptr<Impl> impl) noexcept : impl_(std::move(impl)) {}

BitSet::Impl& BitSet::writable() {
    if (!impl_) impl_ = cxx::Guard({}, [] { return std::make_unique<Impl>(); });
    return *impl_;
}

BitSet BitSet::from_compressed(std::span<const std::byte> form) {
    if (form.size() > INT_MAX)
        throw cxx::MakeError(ErrorCode::out_of_range, "compressed form of 2 GiB or more");
    if (dorvik::form::Expand(Data(form), form.size(), 1, -1, nullptr) > kMaxSetBytes)
        throw cxx::MakeError(ErrorCode::out_of_range, "set reaches past bit 2^31 - 1");
    BitSet set;
    if (form.empty()) return set;
    cxx::Guard({}, [&] {
        Impl& impl = set.writable();
        impl.bits.SetCompressed(true);
        impl.bits.Init(Data(form), static_cast<int>(form.size()));
        impl.bits.Decompress();
        impl.bits.SetCompressed(false);  // an all-zero form leaves the flag: clear it
    });
    return set;
}

BitSet BitSet::from_bitmap(std::span<const std::byte> bitmap) {
    if (static_cast<std::int64_t>(bitmap.size()) > kMaxSetBytes)
        throw cxx::MakeError(ErrorCode::out_of_range, "bitmap of more than 2^28 bytes");
    BitSet set;
    if (!bitmap.empty())
        cxx::Guard(
            {}, [&] { set.writable().bits.Init(Data(bitmap), static_cast<int>(bitmap.size())); });
    return set;
}

std::vector<std::byte> BitSet::to_compressed() const {
    std::vector<std::byte> form;
    if (!impl_ || impl_->bits.GetLength() == 0) return form;
    cxx::Guard({}, [&] {
        unsigned char* packed = nullptr;
        int length = 0;
        CBitArray::Compress(impl_->bits.GetBuffer(), impl_->bits.GetLength(), packed, length);
        std::unique_ptr<unsigned char, void (*)(void*)> hold(packed, DropBlock);
        auto* first = reinterpret_cast<const std::byte*>(packed);
        form.assign(first, first + length);
    });
    return form;
}

std::span<const std::byte> BitSet::bitmap() const noexcept {
    if (!impl_ || impl_->bits.GetLength() == 0) return {};
    return {reinterpret_cast<const std::byte*>(impl_->bits.GetBuffer()),
            static_cast<std::size_t>(impl_->bits.GetLength())};
}

void BitSet::set(std::uint32_t bit) {
    CheckedBit(bit);
    Impl& impl = writable();
    cxx::Guard({}, [&] { impl.bits.SetAt(static_cast<int>(bit)); });
}

void BitSet::reset(std::uint32_t bit) noexcept {
    if (impl_ && bit <= max_bit) impl_->bits.ResetAt(static_cast<int>(bit));
}

bool BitSet::test(std::uint32_t bit) const noexcept {
    return impl_ && bit <= max_bit && impl_->bits.GetAt(static_cast<int>(bit));
}

void BitSet::clear() noexcept { impl_.reset(); }

std::size_t BitSet::count() const noexcept {
    // The range count leaves the array's cached count alone, so that const calls on
    // one set may run on several threads.
    return impl_ ? static_cast<std::size_t>(impl_->bits.GetRangeCount(0, INT_MAX)) : 0;
}

bool BitSet::empty() const noexcept { return !impl_ || impl_->bits.IsEmpty(); }

std::optional<std::uint32_t> BitSet::first() const noexcept {
    int bit = impl_ ? impl_->bits.GetHeadBit() : -1;
    if (bit < 0) return std::nullopt;
    return static_cast<std::uint32_t>(bit);
}

std::optional<std::uint32_t> BitSet::last() const noexcept {
    int bit = impl_ ? impl_->bits.GetTailBit() : -1;
    if (bit < 0) return std::nullopt;
    return static_cast<std::uint32_t>(bit);
}

BitSet& BitSet::operator&=(const BitSet& other) {
    if (!impl_) return *this;
    if (!other.impl_) {
        clear();
        return *this;
    }
    impl_->bits &= other.impl_->bits;  // shrinks only: cannot fail
    return *this;
}

BitSet& BitSet::operator|=(const BitSet& other) {
    if (!other.impl_ || this == &other) return *this;
    if (!impl_) return *this = other;
    cxx::Guard({}, [&] { impl_->bits |= other.impl_->bits; });
    return *this;
}

BitSet& BitSet::operator^=(const BitSet& other) {
    if (this == &other) {
        clear();
        return *this;
    }
    if (!other.impl_) return *this;
    if (!impl_) return *this = other;
    cxx::Guard({}, [&] { impl_->bits ^= other.impl_->bits; });
    return *this;
}

BitSet& BitSet::operator-=(const BitSet& other) {
    if (this == &other) {
        clear();
        return *this;
    }
    if (impl_ && other.impl_) impl_->bits.ResetAt(&other.impl_->bits);
    return *this;
}

bool BitSet::operator==(const BitSet& other) const noexcept {
    std::span<const std::byte> a = bitmap(), b = other.bitmap();
    int na = bits::TrimmedLength(Data(a), static_cast<int>(a.size()));
    int nb = bits::TrimmedLength(Data(b), static_cast<int>(b.size()));
    return na == nb &&
           (na == 0 || std::memcmp(a.data(), b.data(), static_cast<std::size_t>(na)) == 0);
}

BitSet::iterator BitSet::begin() const noexcept {
    std::span<const std::byte> bytes = bitmap();
    return iterator(Data(bytes), bytes.size(), 0);
}

BitSet::iterator BitSet::end() const noexcept { return iterator(); }

BitSet::iterator::iterator(const unsigned char* bytes, std::size_t size, std::int64_t from) noexcept
    : bytes_(bytes), size_(size), bit_(NextBit(bytes, size, from)) {}

BitSet::iterator& BitSet::iterator::operator++() noexcept {
    bit_ = NextBit(bytes_, size_, bit_ + 1);
    return *this;
}

}  // namespace dorvik
