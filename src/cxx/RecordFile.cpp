#include <algorithm>
#include <cstring>

#include "cxx/Boundary.h"
#include "dorvik/BinFile.h"
#include "dorvik/Exceptions.h"

namespace dorvik {
namespace cxx {

void OpenRecordFile(CBinFile& file, const std::filesystem::path& path, const OpenOptions& options) {
    unsigned flags = OpenFlags(options, path);
    Guard(path, [&] {
        CFileException error;
        if (!file.Open(path.c_str(), flags, &error)) {
            if (error.m_cause != CFileException::none) throw error;
            throw MakeError(ErrorCode::invalid_file, "no record file", path);
        }
        // A 0-byte file opened for reading has no table and counts as empty.
        if (file.GetLength() > 0 && !file.IsValidBinFile())
            throw MakeError(ErrorCode::invalid_file, "no record file", path);
        if (options.bulk) file.SetSafeMode(false);
    });
}

void RequireOpen(bool open, const std::filesystem::path& path) {
    if (!open) throw MakeError(ErrorCode::closed, {}, path);
}

void RequireWritable(bool readOnly, const std::filesystem::path& path) {
    if (readOnly) throw MakeError(ErrorCode::access_denied, "opened read-only", path);
}

}  // namespace cxx

using cxx::Guard;

struct RecordFile::Impl {
    CBinFile file;
    std::filesystem::path path;
    bool readOnly = false;

    // `index` as a record number below the count (or at it when `end` is allowed).
    int Index(std::size_t index, bool end = false) {
        int count = file.GetRecordCount();
        if (index > static_cast<std::size_t>(count) ||
            (!end && index == static_cast<std::size_t>(count)))
            throw cxx::MakeError(ErrorCode::out_of_range,
                                 "record " + std::to_string(index) + " of " + std::to_string(count),
                                 path);
        return static_cast<int>(index);
    }

    void Change() { cxx::RequireWritable(readOnly, path); }
};

namespace {
std::span<const std::byte> Bytes(std::string_view text) {
    return std::as_bytes(std::span<const char>(text.data(), text.size()));
}
}  // namespace

RecordFile::RecordFile() noexcept = default;

RecordFile::RecordFile(const std::filesystem::path& path, OpenOptions options)
    : impl_(std::make_unique<Impl>()) {
    impl_->path = path;
    impl_->readOnly = options.read_only;
    cxx::OpenRecordFile(impl_->file, path, options);
}

RecordFile::RecordFile(RecordFile&& other) noexcept = default;
RecordFile& RecordFile::operator=(RecordFile&& other) noexcept = default;
RecordFile::~RecordFile() = default;

void RecordFile::close() { cxx::Close(impl_); }

bool RecordFile::is_open() const noexcept { return impl_ != nullptr; }

const std::filesystem::path& RecordFile::path() const noexcept { return cxx::PathOf(impl_); }

void RecordFile::flush() { cxx::Flush(impl_); }

std::size_t RecordFile::size() const { return cxx::RecordCount(impl_); }

std::size_t RecordFile::record_size(std::size_t index) const {
    cxx::RequireOpen(is_open(), {});
    return Guard(impl_->path, [&] {
        return static_cast<std::size_t>(impl_->file.GetRecordLength(impl_->Index(index)));
    });
}

std::vector<std::byte> RecordFile::read(std::size_t index) {
    std::vector<std::byte> record(record_size(index));
    std::size_t length = read(index, record);
    record.resize(std::min(length, record.size()));
    return record;
}

std::string RecordFile::read_string(std::size_t index) {
    std::string record(record_size(index), '\0');
    std::size_t length = read(index, std::as_writable_bytes(std::span<char>(record)));
    record.resize(std::min(length, record.size()));
    return record;
}

std::size_t RecordFile::read(std::size_t index, std::span<std::byte> buffer) {
    cxx::RequireOpen(is_open(), {});
    return Guard(impl_->path, [&] {
        int i = impl_->Index(index);
        int length = impl_->file.GetRecordLength(i);
        if (length > 0 && !buffer.empty()) {
            auto* into = reinterpret_cast<unsigned char*>(buffer.data());
            int room = static_cast<int>(std::min<std::size_t>(buffer.size(), 0x7FFFFFFF));
            impl_->file.GetRecord(i, into, room, false);
        }
        return static_cast<std::size_t>(length);
    });
}

std::size_t RecordFile::append(std::span<const std::byte> record) {
    cxx::RequireOpen(is_open(), {});
    impl_->Change();
    return Guard(impl_->path, [&] {
        int length = cxx::ToInt(record.size(), "record length");
        std::size_t index = static_cast<std::size_t>(impl_->file.GetRecordCount());
        impl_->file.Add(cxx::Writable(record.data()), length);
        return index;
    });
}

std::size_t RecordFile::append(std::string_view record) { return append(Bytes(record)); }

void RecordFile::insert(std::size_t index, std::span<const std::byte> record) {
    cxx::RequireOpen(is_open(), {});
    impl_->Change();
    Guard(impl_->path, [&] {
        int at = impl_->Index(index, true);
        impl_->file.Insert(at - 1, cxx::Writable(record.data()),
                           cxx::ToInt(record.size(), "record length"));
    });
}

void RecordFile::insert(std::size_t index, std::string_view record) {
    insert(index, Bytes(record));
}

void RecordFile::replace(std::size_t index, std::span<const std::byte> record) {
    cxx::RequireOpen(is_open(), {});
    impl_->Change();
    Guard(impl_->path, [&] {
        int at = impl_->Index(index);
        int length = cxx::ToInt(record.size(), "record length");
        // Null data would keep the old bytes: an empty record gets a real pointer.
        static const unsigned char none = 0;
        impl_->file.Modify(at, length ? cxx::Writable(record.data()) : cxx::Writable(&none),
                           length);
    });
}

void RecordFile::replace(std::size_t index, std::string_view record) {
    replace(index, Bytes(record));
}

void RecordFile::erase(std::size_t index) { erase(index, index + 1); }

void RecordFile::erase(std::size_t first, std::size_t last) {
    cxx::RequireOpen(is_open(), {});
    impl_->Change();
    Guard(impl_->path, [&] {
        std::size_t count = static_cast<std::size_t>(impl_->file.GetRecordCount());
        last = std::min(last, count);
        if (first >= last) return;
        impl_->file.Delete(static_cast<int>(first), static_cast<int>(last - 1));
    });
}

std::optional<std::size_t> RecordFile::find(std::span<const std::byte> record, std::size_t from) {
    cxx::RequireOpen(is_open(), {});
    return Guard(impl_->path, [&]() -> std::optional<std::size_t> {
        std::size_t count = static_cast<std::size_t>(impl_->file.GetRecordCount());
        if (record.empty() || from >= count) return std::nullopt;
        int found = impl_->file.Find(static_cast<int>(from) - 1,
                                     reinterpret_cast<const unsigned char*>(record.data()),
                                     cxx::ToInt(record.size(), "record length"));
        if (found < 0) return std::nullopt;
        return static_cast<std::size_t>(found);
    });
}

std::optional<std::size_t> RecordFile::find(std::string_view record, std::size_t from) {
    return find(Bytes(record), from);
}

RecordFile::iterator RecordFile::begin() { return iterator(this, size()); }

RecordFile::iterator::iterator(RecordFile* file, std::size_t end)
    : file_(file), index_(0), end_(end) {
    load();
}

RecordFile::iterator& RecordFile::iterator::operator++() {
    ++index_;
    load();
    return *this;
}

void RecordFile::iterator::load() {
    if (index_ >= end_) {
        record_ = {};
        return;
    }
    buffer_.resize(file_->record_size(index_));
    std::size_t length = file_->read(index_, buffer_);
    record_ = std::span<const std::byte>(buffer_.data(), std::min(length, buffer_.size()));
}

}  // namespace dorvik
