#include <vector>

#include "bits/CompressedForm.h"
#include "cxx/Boundary.h"
#include "dorvik/BitsBinFile.h"
#include "dorvik/Collections.h"

namespace dorvik {

using cxx::Guard;

CBitArray cxx::ReadStoredSet(CBitsBinFile& file, int record, const std::filesystem::path& path) {
    // The stored form first, so that a damaged record that would expand past the
    // largest set is refused before anything is expanded.
    CBitArray bits(true);
    file.GetRecord(record, bits, -1);
    if (form::Expand(bits.GetBuffer(), static_cast<std::size_t>(bits.GetLength()), 1, -1, nullptr) >
        kMaxSetBytes)
        throw MakeError(ErrorCode::invalid_file, "a set reaches past bit 2^31 - 1", path);
    bits.Decompress();
    bits.SetCompressed(false);
    return bits;
}

struct PostingsFile::Impl {
    CBitsBinFile file;
    std::filesystem::path path;
    bool readOnly = false;

    BitSet Adopt(CBitArray& plain) {
        cxx::CheckSetFromFile(plain, path);
        auto impl = std::make_unique<BitSet::Impl>();
        impl->bits = std::move(plain);
        return BitSet(std::move(impl));
    }

    BitSet Combine(std::span<const std::size_t> terms, bool unite) {
        std::vector<int> records;
        records.reserve(terms.size());
        for (std::size_t term : terms) records.push_back(cxx::ToInt(term, "term"));
        return Guard(path, [&] {
            CBitArray result;
            if (!records.empty())
                file.GetRecords(static_cast<int>(records.size()), records.data(), result, unite,
                                -1);
            return Adopt(result);
        });
    }
};

PostingsFile::PostingsFile() noexcept = default;

PostingsFile::PostingsFile(const std::filesystem::path& path, OpenOptions options)
    : impl_(std::make_unique<Impl>()) {
    impl_->path = path;
    impl_->readOnly = options.read_only;
    cxx::OpenRecordFile(impl_->file, path, options);
}

PostingsFile::PostingsFile(PostingsFile&& other) noexcept = default;
PostingsFile& PostingsFile::operator=(PostingsFile&& other) noexcept = default;
PostingsFile::~PostingsFile() = default;

void PostingsFile::close() { cxx::Close(impl_); }

bool PostingsFile::is_open() const noexcept { return impl_ != nullptr; }

const std::filesystem::path& PostingsFile::path() const noexcept { return cxx::PathOf(impl_); }

void PostingsFile::flush() { cxx::Flush(impl_); }

std::size_t PostingsFile::size() const { return cxx::RecordCount(impl_); }

BitSet PostingsFile::read(std::size_t term) {
    cxx::RequireOpen(is_open(), {});
    if (term >= size()) return BitSet();
    return Guard(impl_->path, [&] {
        CBitArray bits = cxx::ReadStoredSet(impl_->file, static_cast<int>(term), impl_->path);
        return impl_->Adopt(bits);
    });
}

std::vector<std::byte> PostingsFile::read_compressed(std::size_t term) {
    cxx::RequireOpen(is_open(), {});
    if (term >= size()) return {};
    return Guard(impl_->path, [&] {
        int length = impl_->file.GetRecordLength(static_cast<int>(term));
        std::vector<std::byte> form(static_cast<std::size_t>(length));
        if (length > 0) {
            auto* buffer = reinterpret_cast<unsigned char*>(form.data());
            impl_->file.CBinFile::GetRecord(static_cast<int>(term), buffer, length, false);
            form.resize(static_cast<std::size_t>(length));
        }
        return form;
    });
}

BitSet PostingsFile::unite(std::span<const std::size_t> terms) {
    cxx::RequireOpen(is_open(), {});
    return impl_->Combine(terms, true);
}

BitSet PostingsFile::intersect(std::span<const std::size_t> terms) {
    cxx::RequireOpen(is_open(), {});
    return impl_->Combine(terms, false);
}

std::size_t PostingsFile::append(const BitSet& documents) {
    cxx::RequireOpen(is_open(), {});
    cxx::RequireWritable(impl_->readOnly, impl_->path);
    return Guard(impl_->path, [&] {
        std::size_t term = static_cast<std::size_t>(impl_->file.GetRecordCount());
        std::span<const std::byte> bitmap = documents.bitmap();
        impl_->file.Add(cxx::Writable(bitmap.data()), static_cast<int>(bitmap.size()));
        return term;
    });
}

void PostingsFile::replace(std::size_t term, const BitSet& documents) {
    cxx::RequireOpen(is_open(), {});
    cxx::RequireWritable(impl_->readOnly, impl_->path);
    int record = cxx::ToInt(term, "term");
    Guard(impl_->path, [&] {
        std::span<const std::byte> bitmap = documents.bitmap();
        impl_->file.Modify(record, cxx::Writable(bitmap.data()), static_cast<int>(bitmap.size()));
    });
}

// ---- Indexer ---------------------------------------------------------------------------

struct Indexer::Impl {
    CLinkedListArray lists;
};

Indexer::Indexer() noexcept = default;
Indexer::Indexer(Indexer&& other) noexcept
    : impl_(std::move(other.impl_)), postings_(std::exchange(other.postings_, 0)) {}

Indexer& Indexer::operator=(Indexer&& other) noexcept {
    impl_ = std::move(other.impl_);
    postings_ = std::exchange(other.postings_, 0);
    return *this;
}

Indexer::~Indexer() = default;

void Indexer::add(std::size_t term, std::uint32_t document) {
    int list = cxx::ToInt(term, "term");
    if (document > BitSet::max_bit)
        throw cxx::MakeError(ErrorCode::out_of_range, "document " + std::to_string(document));
    Guard({}, [&] {
        if (!impl_) impl_ = std::make_unique<Impl>();
        impl_->lists.AddValue(list, static_cast<int>(document));
    });
    ++postings_;
}

void Indexer::save(PostingsFile& file, Merge how) {
    cxx::RequireOpen(file.is_open(), {});
    PostingsFile::Impl& target = *file.impl_;
    cxx::RequireWritable(target.readOnly, target.path);
    Guard(target.path, [&] {
        Operation op = how == Merge::unite ? opOr : opCopy;
        if (impl_) {
            // Without the free flag the lists survive a failed save, which can be repeated.
            impl_->lists.Save(&target.file, op, false, false, nullptr);
        } else if (op == opCopy) {
            target.file.DeleteAll();
        }
    });
    impl_.reset();
    postings_ = 0;
}

}  // namespace dorvik
