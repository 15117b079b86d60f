// Telling the engine's files apart by their bytes, and checking them. The file is mapped
// and read in place; nothing here allocates by what the file says.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "bits/CompressedForm.h"
#include "cxx/Boundary.h"
#include "dorvik/filekind.hpp"
#include "frame/Coding.h"
#include "index/IXRecords.h"
#include "recordfile/RecordImage.h"

namespace dorvik {
namespace {

constexpr int kMaxDepth = 8;  // levels of nested record files looked into
// The longest plain bitmap whose bits stay at or below BitSet::max_bit.
constexpr std::uint64_t kMaxPlainBytes = (std::uint64_t{BitSet::max_bit} + 1) / 8;

[[noreturn]] void ThrowErrno(const std::filesystem::path& path) {
    throw std::filesystem::filesystem_error("inspect", path,
                                            std::error_code(errno, std::generic_category()));
}

// A file mapped read-only for as long as the object lives.
class MappedFile {
public:
    explicit MappedFile(const std::filesystem::path& path) {
        int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0) ThrowErrno(path);
        struct stat status {};
        if (::fstat(fd, &status) != 0) {
            int error = errno;
            ::close(fd);
            errno = error;
            ThrowErrno(path);
        }
        if (S_ISDIR(status.st_mode)) {
            ::close(fd);
            throw cxx::MakeError(ErrorCode::invalid_argument, "a folder, not a file", path);
        }
        size_ = static_cast<std::uint64_t>(status.st_size);
        if (size_ > 0 && size_ <= static_cast<std::uint64_t>(kMaxFileLength)) {
            void* at = ::mmap(nullptr, size_, PROT_READ, MAP_PRIVATE, fd, 0);
            if (at == MAP_FAILED) {
                int error = errno;
                ::close(fd);
                errno = error;
                ThrowErrno(path);
            }
            data_ = static_cast<const unsigned char*>(at);
        }
        ::close(fd);
    }
    ~MappedFile() {
        if (data_) ::munmap(const_cast<unsigned char*>(data_), size_);
    }
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;

    std::uint64_t size() const noexcept { return size_; }
    // The bytes; empty for an empty file or one past 2 GiB (which no engine file is).
    std::span<const unsigned char> bytes() const noexcept {
        return data_ ? std::span<const unsigned char>(data_, size_)
                     : std::span<const unsigned char>();
    }

private:
    const unsigned char* data_ = nullptr;
    std::uint64_t size_ = 0;
};

// ---- Records -------------------------------------------------------------------------

// Levels of record files inside the records of `image`: 0 when a non-empty record holds
// no record file (or none is non-empty), else one more than the least of its records.
int DepthOf(const RecordImage& image, int level) {
    if (level >= kMaxDepth) return 0;
    int depth = -1;
    for (std::uint32_t i = 0; i < image.count(); ++i) {
        std::span<const unsigned char> record = image.record(i);
        if (record.empty()) continue;
        RecordImage inner;
        if (!RecordImage::Check(record, inner)) return 0;
        int d = 1 + DepthOf(inner, level + 1);
        depth = depth < 0 ? d : std::min(depth, d);
    }
    return std::max(depth, 0);
}

// Calls visit(record) for every record `depth` levels below `image`.
template <class Visit>
void ForEachLeaf(const RecordImage& image, int depth, Visit& visit) {
    for (std::uint32_t i = 0; i < image.count(); ++i) {
        std::span<const unsigned char> record = image.record(i);
        if (depth == 0) {
            visit(record);
            continue;
        }
        RecordImage inner;
        if (!record.empty() && RecordImage::Check(record, inner))
            ForEachLeaf(inner, depth - 1, visit);
    }
}

// The set bits of a compressed form, counted without expanding it; false when the bytes
// are no form a writer makes: no marker 1, a run cut short or of count 0, or bits past
// BitSet::max_bit.
bool CountForm(std::span<const unsigned char> form, std::uint64_t& bits, std::uint64_t& highest) {
    bits = 0;
    if (form.empty()) return true;
    if (form[0] != form::kMarker) return false;
    std::uint64_t done = 0;  // plain bytes passed
    std::size_t end = 1;     // where the last item ended
    bool ok = true;
    form::WalkItems(form.data(), form.size(), 1, [&](const form::Item& item) {
        if (item.run) {
            if (item.plain == 0) return ok = false;
            if (item.value) {
                bits += 8 * item.plain;
                highest = (done + item.plain) * 8 - 1;
            }
            end = item.pos + 3;
        } else {
            for (std::size_t k = 0; k < item.plain; ++k) {
                unsigned v = form[item.pos + k];
                bits += static_cast<unsigned>(std::popcount(v));
                highest = (done + k) * 8 + 31 - static_cast<unsigned>(std::countl_zero(v));
            }
            end = item.pos + item.plain;
        }
        done += item.plain;
        return ok = done <= kMaxPlainBytes;
    });
    return ok && end == form.size();
}

bool IsText(std::span<const unsigned char> record) {
    return std::all_of(record.begin(), record.end(),
                       [](unsigned char b) { return b >= 0x20 || b == '\t'; });
}

// ---- Companions ------------------------------------------------------------------------

bool IsCompanion(const std::filesystem::path& path) {
    std::filesystem::path extension = path.extension();
    return extension == ".sort" || extension == ".wild" || extension == ".freq";
}

// The dictionary beside a companion file: the record file of the same stem with another
// extension (".bin" first) or none.
std::optional<std::filesystem::path> DictionaryBeside(const std::filesystem::path& companion) {
    std::filesystem::path folder = companion.parent_path(), stem = companion.stem();
    std::vector<std::filesystem::path> candidates = {folder / (stem.string() + ".bin"),
                                                     folder / stem};
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(
             folder.empty() ? std::filesystem::path(".") : folder, ignored)) {
        const std::filesystem::path& p = entry.path();
        if (p.stem() == stem && !IsCompanion(p) && p.extension() != ".bin" && p.has_extension())
            candidates.push_back(p);
    }
    for (const std::filesystem::path& candidate : candidates) {
        if (!std::filesystem::is_regular_file(candidate, ignored)) continue;
        return candidate;
    }
    return std::nullopt;
}

// A dictionary mapped for a companion's checks.
struct Words {
    MappedFile file;
    RecordImage image;
    bool valid = false;
    explicit Words(const std::filesystem::path& path) : file(path) {
        valid = RecordImage::Check(file.bytes(), image);
    }
};

bool WordBefore(std::span<const unsigned char> a, std::span<const unsigned char> b) {
    return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end());
}

// ---- Summaries ---------------------------------------------------------------------------

void Fail(FileSummary& summary, std::string problem) {
    summary.valid = false;
    summary.problem = std::move(problem);
}

std::string Count(std::uint64_t n, std::string_view what) {
    return std::to_string(n) + " " + std::string(what);
}

// Reads integers of `size` bytes; false (with the problem said) when the bytes do not
// divide into them.
bool ReadIntegers(std::span<const unsigned char> bytes, unsigned size, FileSummary& summary,
                  std::vector<std::int64_t>* values) {
    summary.record_size = size;
    if (summary.bytes % size != 0) {
        Fail(summary, Count(summary.bytes, "bytes: no whole number of " + std::to_string(size) +
                                               "-byte integers"));
        return false;
    }
    summary.records = summary.bytes / size;
    for (std::uint64_t i = 0; i < summary.records; ++i) {
        std::int64_t v = DecodeIXRecord(bytes.data() + i * size, static_cast<int>(size));
        if (i == 0 || v < summary.smallest) summary.smallest = v;
        if (i == 0 || v > summary.largest) summary.largest = v;
        if (values) values->push_back(v);
    }
    summary.valid = true;
    return true;
}

void CheckSortedView(const std::filesystem::path& path, std::span<const unsigned char> bytes,
                     FileSummary& summary) {
    std::vector<std::int64_t> ids;
    if (!ReadIntegers(bytes, 4, summary, &ids)) return;
    std::optional<std::filesystem::path> beside = DictionaryBeside(path);
    std::optional<Words> words;
    if (beside) words.emplace(*beside);
    if (words && !words->valid) return Fail(summary, "its dictionary is no record file");
    std::uint64_t count = words ? words->image.count() : ids.size();
    if (ids.size() != count)
        return Fail(summary, Count(ids.size(), "ids for " + Count(count, "words")));
    std::vector<bool> seen(ids.size());
    for (std::int64_t id : ids) {
        if (id < 0 || static_cast<std::uint64_t>(id) >= count || seen[static_cast<std::size_t>(id)])
            return Fail(summary, "no permutation of the word ids (id " + std::to_string(id) + ")");
        seen[static_cast<std::size_t>(id)] = true;
    }
    if (!words) return;
    for (std::size_t i = 1; i < ids.size(); ++i) {
        auto a = words->image.record(static_cast<std::uint32_t>(ids[i - 1]));
        auto b = words->image.record(static_cast<std::uint32_t>(ids[i]));
        if (WordBefore(b, a))
            return Fail(summary, "the words are out of order at position " + std::to_string(i));
    }
}

// Words of the dictionary beside a companion; none when there is none to read.
std::optional<std::uint64_t> WordsBeside(const std::filesystem::path& path) {
    std::optional<std::filesystem::path> beside = DictionaryBeside(path);
    if (!beside) return std::nullopt;
    Words words(*beside);
    if (!words.valid) return std::nullopt;
    return words.image.count();
}

void CheckRecords(const std::filesystem::path& path, const RecordImage& image,
                  FileSummary& summary) {
    summary.valid = true;
    summary.records = image.count();
    for (std::uint32_t i = 0; i < image.count(); ++i) {
        std::uint64_t length = image.record(i).size();
        summary.data_bytes += length;
        if (length == 0) {
            ++summary.empty_records;
            continue;
        }
        if (summary.shortest == 0 || length < summary.shortest) summary.shortest = length;
        summary.longest = std::max(summary.longest, length);
    }
    int depth = DepthOf(image, 0);
    summary.depth = static_cast<std::uint64_t>(depth);

    bool forms = true, text = true;
    std::uint64_t nonEmpty = 0;
    FileSummary bits;
    auto visit = [&](std::span<const unsigned char> leaf) {
        ++summary.leaves;
        if (leaf.empty()) return;
        ++nonEmpty;
        text = text && IsText(leaf);
        if (!forms) return;
        std::uint64_t n = 0, highest = 0;
        if (!CountForm(leaf, n, highest)) {
            forms = false;
            return;
        }
        if (n == 0) return;
        bits.fewest_bits = bits.bit_sets == 0 ? n : std::min(bits.fewest_bits, n);
        bits.most_bits = std::max(bits.most_bits, n);
        bits.highest_bit = std::max(bits.highest_bit, highest);
        bits.set_bits += n;
        ++bits.bit_sets;
    };
    ForEachLeaf(image, depth, visit);
    if (depth == 0) summary.leaves = 0;

    if (nonEmpty > 0 && forms) {
        summary.kind = depth == 0 ? FileKind::bit_record_file : FileKind::nested_bit_record_file;
        summary.bit_sets = bits.bit_sets;
        summary.set_bits = bits.set_bits;
        summary.fewest_bits = bits.fewest_bits;
        summary.most_bits = bits.most_bits;
        summary.highest_bit = bits.highest_bit;
    } else if (depth > 0) {
        summary.kind = FileKind::nested_record_file;
    } else if (nonEmpty > 0 && text &&
               std::filesystem::exists(std::filesystem::path(path).replace_extension(".sort"))) {
        summary.kind = FileKind::dictionary;
    } else {
        summary.kind = FileKind::record_file;
    }
}

void CheckWildcardIndex(const std::filesystem::path& path, std::span<const unsigned char> bytes,
                        FileSummary& summary) {
    RecordImage image;
    if (!RecordImage::Check(bytes, image)) return Fail(summary, "no record file");
    CheckRecords(path, image, summary);
    bool empty = summary.records == summary.empty_records;
    bool shaped = summary.kind == FileKind::nested_bit_record_file && summary.depth == 1;
    summary.kind = FileKind::wildcard_index;
    if (!empty && !shaped)
        return Fail(summary, "no wildcard index: not two levels of compressed bit sets");
    std::optional<std::uint64_t> words = WordsBeside(path);
    if (words && summary.bit_sets > 0 && summary.highest_bit >= *words)
        return Fail(summary, "speaks of word " + std::to_string(summary.highest_bit) +
                                 " of a dictionary of " + Count(*words, "words"));
}

}  // namespace

std::string_view to_string(FileKind kind) noexcept {
    switch (kind) {
        case FileKind::unknown:
            return "unknown";
        case FileKind::record_file:
            return "record file";
        case FileKind::bit_record_file:
            return "bit record file";
        case FileKind::nested_record_file:
            return "nested record file";
        case FileKind::nested_bit_record_file:
            return "nested bit record file";
        case FileKind::dictionary:
            return "dictionary";
        case FileKind::wildcard_index:
            return "wildcard index";
        case FileKind::sorted_view:
            return "sorted view";
        case FileKind::frequency_file:
            return "frequency file";
        case FileKind::integer_file:
            return "integer file";
    }
    return "unknown";
}

FileSummary inspect(const std::filesystem::path& path, InspectOptions options) {
    if (options.record_size > 4)
        throw cxx::MakeError(ErrorCode::invalid_argument, "a record size of 1 to 4 bytes", path);
    return cxx::Guard(path, [&] {
        FileSummary summary;
        MappedFile file(path);
        summary.bytes = file.size();
        std::span<const unsigned char> bytes = file.bytes();
        if (summary.bytes > static_cast<std::uint64_t>(kMaxFileLength)) {
            Fail(summary, "larger than 2 GiB, which no file of the engine is");
            return summary;
        }
        std::filesystem::path extension = path.extension();
        if (extension == ".wild") {
            CheckWildcardIndex(path, bytes, summary);
        } else if (extension == ".sort") {
            summary.kind = FileKind::sorted_view;
            CheckSortedView(path, bytes, summary);
        } else if (extension == ".freq") {
            summary.kind = FileKind::frequency_file;
            if (!ReadIntegers(bytes, 4, summary, nullptr)) return summary;
            std::optional<std::uint64_t> words = WordsBeside(path);
            if (words && summary.records > *words)
                Fail(summary, Count(summary.records, "frequencies for " + Count(*words, "words")));
        } else if (RecordImage image; RecordImage::Check(bytes, image)) {
            CheckRecords(path, image, summary);
        } else if (options.record_size > 0) {
            summary.kind = FileKind::integer_file;
            ReadIntegers(bytes, options.record_size, summary, nullptr);
        } else {
            Fail(summary, summary.bytes == 0
                              ? "empty: no record file yet, and no integer file by its name"
                              : "no record file (no valid address table at its end), and no "
                                "integer file by its name");
        }
        return summary;
    });
}

}  // namespace dorvik
