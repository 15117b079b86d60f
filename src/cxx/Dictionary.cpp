#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <optional>
#include <string_view>
#include <system_error>
#include <vector>

#include "cxx/Boundary.h"
#include "cxx/Progress.h"
#include "dorvik/IXFile.h"
#include "dorvik/MemBinFile.h"
#include "dorvik/MemNDimBinFile.h"
#include "dorvik/NDimBitsBinFile.h"
#include "dorvik/TextBinFile.h"

namespace dorvik {

using cxx::Guard;

namespace {

// Words and their ids: open addressing over 64-bit hashes, the words back to back in
// one string, so that a look-up touches one slot and, on a hit, the word's bytes.
class WordIds {
public:
    std::optional<std::size_t> Find(std::string_view word) const {
        if (slots_.empty()) return std::nullopt;
        std::uint64_t hash = std::hash<std::string_view>{}(word);
        for (std::size_t i = hash & (slots_.size() - 1);; i = (i + 1) & (slots_.size() - 1)) {
            const Slot& slot = slots_[i];
            if (slot.id == kEmpty) return std::nullopt;
            if (slot.hash == hash && slot.size == word.size() &&
                std::memcmp(text_.data() + slot.at, word.data(), word.size()) == 0)
                return slot.id;
        }
    }

    // Adds a word that Find() does not know.
    void Add(std::string_view word, std::size_t id) {
        if ((used_ + 1) * 4 > slots_.size() * 3) Grow();
        Place({std::hash<std::string_view>{}(word), text_.size(), word.size(), id});
        text_ += word;
        ++used_;
    }

private:
    static constexpr std::size_t kEmpty = SIZE_MAX;
    struct Slot {
        std::uint64_t hash;
        std::size_t at, size, id = kEmpty;
    };

    void Place(const Slot& slot) {
        std::size_t i = slot.hash & (slots_.size() - 1);
        while (slots_[i].id != kEmpty) i = (i + 1) & (slots_.size() - 1);
        slots_[i] = slot;
    }

    void Grow() {
        std::vector<Slot> old(std::max<std::size_t>(1024, slots_.size() * 2));
        old.swap(slots_);
        for (const Slot& slot : old)
            if (slot.id != kEmpty) Place(slot);
    }

    std::vector<Slot> slots_;
    std::string text_;
    std::size_t used_ = 0;
};

}  // namespace

struct Dictionary::Impl {
    std::filesystem::path path, sortPath, wildPath;
    bool readOnly = false;
    bool bulk = false;
    bool inTree = false;   // bulk words are gathering in the sort tree
    bool changed = false;  // the wildcard index on disk is missing or stale: write it
    CIXFile view{4};       // the sorted view; declared first so that it outlives `text`
    CTextBinFile text;
    std::unique_ptr<CNDimBitsBinFile> wild;  // the open wildcard index, once current

    // Bulk mode: the ids of the words added through this object, by their UTF-8 text, so
    // that the repeats of a text being loaded skip the encoding and the sort tree. Ids
    // never change, so an entry stays true for as long as the object lives.
    WordIds ids;

    // Bulk mode on a dictionary that held no word when the words began to come: the new
    // words wait here (Windows-1256 bytes, in the order of their ids 0, 1, ...) and reach
    // the file in one insertion and the sorted view in one sort and one write, at
    // Settle. A dictionary that holds words takes them through the sort tree instead.
    // `ids` knows every word waiting: UTF-8 maps one to one onto the bytes, so a word
    // that `ids` does not know is not waiting either.
    std::vector<std::string> pending;

    void Open(OpenOptions options);
    void WritePending();
    void MarkChanged();
    void Settle();
    void WriteWildcards();
    void Flush();
    CNDimBitsBinFile& Wildcards();
    std::optional<std::size_t> FindRecord(const std::string& word);
    // Adds the bytes of a word; in bulk mode only a word that `ids` does not know.
    std::pair<std::size_t, bool> Add(std::string word);
};

void Dictionary::Impl::Open(OpenOptions options) {
    std::filesystem::path extension = path.extension();
    if (extension == ".sort" || extension == ".wild" || extension == ".freq")
        throw cxx::MakeError(ErrorCode::invalid_argument,
                             "the extension belongs to a companion file", path);
    sortPath = std::filesystem::path(path).replace_extension(".sort");
    wildPath = std::filesystem::path(path).replace_extension(".wild");
    readOnly = options.read_only;
    bulk = options.bulk;

    OpenOptions textOptions = options;
    textOptions.bulk = false;  // bulk here means the sort tree, not a table held back
    cxx::OpenRecordFile(text, path, textOptions);

    Guard(sortPath, [&] {
        unsigned flags = readOnly
                             ? CFile::modeRead | CFile::shareDenyNone
                             : CFile::modeReadWrite | CFile::shareDenyNone | CFile::modeCreate |
                                   (options.truncate ? 0u : unsigned{CFile::modeNoTruncate});
        CFileException error;
        if (!view.Open(sortPath.c_str(), flags, &error)) {
            if (readOnly && error.m_cause == CFileException::fileNotFound)
                throw cxx::MakeError(ErrorCode::invalid_file,
                                     "no sorted view (open the dictionary writable once)",
                                     sortPath);
            throw error;
        }
        text.SetIndexFile(&view);
        bool stale = view.GetRecordCount() != text.CBinFile::GetRecordCount();
        if (stale && readOnly)
            throw cxx::MakeError(ErrorCode::invalid_file,
                                 "the sorted view does not match the words (open the "
                                 "dictionary writable once)",
                                 sortPath);
        if (readOnly) return;
        if (options.truncate || stale || !std::filesystem::exists(wildPath)) MarkChanged();
        if (stale) text.Sort(true, false, nullptr, nullptr);
    });
}

// The first change deletes the wildcard index, so that no stale index stays on disk.
void Dictionary::Impl::MarkChanged() {
    if (changed) return;
    wild.reset();
    std::filesystem::remove(wildPath);
    changed = true;
}

void Dictionary::Impl::Settle() {
    if (pending.empty() && !inTree) return;
    WritePending();
    if (inTree) {
        text.FreeSortTree(true, cxx::ProgressHook(cxx::Stage::sorting));
        inTree = false;
    }
    cxx::RethrowProgressFailure();
}

void Dictionary::Impl::WritePending() {
    if (pending.empty()) return;
    // The view lists the ids by their bytes, as the sort tree would (unsigned bytes, a
    // prefix first); the words are distinct.
    const int n = static_cast<int>(pending.size());
    cxx::CallProgress(cxx::Stage::sorting, 0, n);
    // Sorted on the first eight bytes, big-endian in one number (no word holds a NUL,
    // so the zeros that pad a short word sort it first), the words compared only where
    // those are equal.
    struct Key {
        std::uint64_t prefix;
        DWORD id;
    };
    std::vector<Key> keys(pending.size());
    for (DWORD id = 0; id < keys.size(); ++id) {
        const std::string& word = pending[id];
        std::uint64_t prefix = 0;
        for (std::size_t i = 0; i < 8; ++i)
            prefix = prefix << 8 | (i < word.size() ? static_cast<unsigned char>(word[i]) : 0u);
        keys[id] = {prefix, id};
    }
    std::sort(keys.begin(), keys.end(), [&](const Key& a, const Key& b) {
        return a.prefix != b.prefix ? a.prefix < b.prefix : pending[a.id] < pending[b.id];
    });
    std::vector<DWORD> order(keys.size());
    for (std::size_t i = 0; i < keys.size(); ++i) order[i] = keys[i].id;
    CMemBinFile words;
    words.SetSafeMode(false);
    for (std::string& word : pending)
        words.Add(reinterpret_cast<unsigned char*>(word.data()), static_cast<int>(word.size()));
    words.SetSafeMode(true);
    text.CBinFile::Insert(text.CBinFile::GetRecordCount() - 1, &words);  // one change
    pending.clear();
    try {
        view.SetGrowCount(1000);  // what the sort tree leaves on the view
        view.RemoveAll();
        view.AddRecords(order.data(), n);
        cxx::CallProgress(cxx::Stage::sorting, n, n);
    } catch (...) {
        // The words are in; a view that does not match them is rebuilt from them (and
        // an open rebuilds it when this fails too).
        try {
            text.Sort(true, false, nullptr, nullptr);
        } catch (const CException&) {
        }
        throw;
    }
}

void Dictionary::Impl::WriteWildcards() {
    if (readOnly || !changed) return;
    wild.reset();
    text.IndexForWildCards(wildPath.c_str(), DiacriticMarks,
                           cxx::ProgressHook(cxx::Stage::indexing));
    if (cxx::ProgressFailed()) {
        // Stopped half way: what was written is no index of all the words.
        std::filesystem::remove(wildPath);
        cxx::RethrowProgressFailure();
    }
    changed = false;
}

void Dictionary::Impl::Flush() {
    Settle();
    WriteWildcards();
    if (!readOnly) {
        text.Flush();
        view.Flush();
    }
}

CNDimBitsBinFile& Dictionary::Impl::Wildcards() {
    if (wild) return *wild;
    WriteWildcards();
    if (std::filesystem::exists(wildPath)) {
        auto file = std::make_unique<CNDimBitsBinFile>();
        OpenOptions readOnlyOptions;
        readOnlyOptions.read_only = true;
        cxx::OpenRecordFile(*file, wildPath, readOnlyOptions);
        wild = std::move(file);
    } else {
        // Read-only without an index: one in memory, for as long as this object lives.
        auto image = std::make_unique<CMemNDimBitsBinFile>(1u << 20);
        text.IndexForWildCards(image.get(), DiacriticMarks, nullptr);
        wild = std::move(image);
    }
    return *wild;
}

std::optional<std::size_t> Dictionary::Impl::FindRecord(const std::string& word) {
    Settle();
    int serial =
        text.Find(-1, word.c_str(), nullptr, false, false, true, false, true, true, nullptr);
    int record = serial < 0 ? -1 : text.GetSerialRecord(serial);
    if (record < 0) return std::nullopt;
    return static_cast<std::size_t>(record);
}

std::pair<std::size_t, bool> Dictionary::Impl::Add(std::string word) {
    int record = -1;
    int length = static_cast<int>(word.size());
    if (bulk && !inTree && (!pending.empty() || text.CBinFile::GetRecordCount() == 0)) {
        MarkChanged();
        pending.push_back(std::move(word));
        return {pending.size() - 1, true};
    }
    if (bulk) {
        MarkChanged();
        if (!inTree) {
            text.InitSortTree(true, true, nullptr, nullptr);
            inTree = true;
        }
        bool added = text.Add(word.c_str(), length, record, true, false);
        return {static_cast<std::size_t>(record), added};
    }
    // A look first, so that adding a word that is there changes nothing on disk.
    if (std::optional<std::size_t> there = FindRecord(word)) return {*there, false};
    MarkChanged();
    bool added = text.Add(word.c_str(), length, record, true, false);
    return {static_cast<std::size_t>(record), added};
}

Dictionary::Dictionary() noexcept = default;

Dictionary::Dictionary(const std::filesystem::path& path, OpenOptions options)
    : impl_(std::make_unique<Impl>()) {
    impl_->path = path;
    impl_->Open(options);
}

Dictionary::Dictionary(Dictionary&& other) noexcept = default;

Dictionary& Dictionary::operator=(Dictionary&& other) noexcept {
    if (this != &other) {
        Dictionary old(std::move(*this));
        impl_ = std::move(other.impl_);
    }
    return *this;
}

Dictionary::~Dictionary() {
    if (!impl_) return;
    try {
        impl_->Settle();
        impl_->WriteWildcards();
    } catch (...) {
        // A destructor cannot report; close() is the way to see this error.
    }
}

void Dictionary::close() {
    if (!impl_) return;
    std::unique_ptr<Impl> impl = std::move(impl_);
    Guard(impl->path, [&] {
        impl->Settle();
        impl->WriteWildcards();
        impl->text.Close();
        impl->view.Close();
    });
}

void Dictionary::flush() {
    cxx::RequireOpen(is_open(), {});
    Guard(impl_->path, [&] { impl_->Flush(); });
}

bool Dictionary::is_open() const noexcept { return impl_ != nullptr; }

const std::filesystem::path& Dictionary::path() const noexcept { return cxx::PathOf(impl_); }

std::size_t Dictionary::size() const {
    cxx::RequireOpen(is_open(), {});
    return Guard(impl_->path,
                 [&] {
                     // Words gathering in bulk are not in the file yet.
                     return static_cast<std::size_t>(impl_->text.GetRecordCount()) +
                            impl_->pending.size();
                 });
}

std::pair<std::size_t, bool> Dictionary::add(std::string_view word) {
    cxx::RequireOpen(is_open(), {});
    cxx::RequireWritable(impl_->readOnly, impl_->path);
    if (impl_->bulk) {
        if (std::optional<std::size_t> known = impl_->ids.Find(word)) return {*known, false};
    }
    std::string bytes = cxx::EncodeWord(word, "word");
    cxx::ToInt(bytes.size(), "word length");
    std::pair<std::size_t, bool> result =
        Guard(impl_->path, [&] { return impl_->Add(std::move(bytes)); });
    if (!impl_->bulk) return result;
    try {
        impl_->ids.Add(word, result.first);
    } catch (...) {
        // A waiting word that `ids` cannot know would wait twice: it goes again.
        if (result.second && !impl_->pending.empty() && result.first + 1 == impl_->pending.size())
            impl_->pending.pop_back();
        throw;
    }
    return result;
}

std::optional<std::size_t> Dictionary::find(std::string_view word) {
    cxx::RequireOpen(is_open(), {});
    if (word.empty() || word.find('\0') != std::string_view::npos) return std::nullopt;
    std::optional<std::string> bytes = cxx::Encode(word, false);
    if (!bytes) return std::nullopt;  // a character without a byte: no word of the dictionary
    return Guard(impl_->path, [&] { return impl_->FindRecord(*bytes); });
}

std::string Dictionary::word(std::size_t id) {
    std::size_t count = size();
    if (id >= count)
        throw cxx::MakeError(ErrorCode::out_of_range,
                             "word " + std::to_string(id) + " of " + std::to_string(count),
                             impl_->path);
    if (!impl_->pending.empty()) return from_cp1256(impl_->pending[id]);  // the file has none
    return Guard(impl_->path, [&] {
        CString text;
        impl_->text.GetString(static_cast<int>(id), text, false);
        return from_cp1256(text.str());
    });
}

BitSet Dictionary::match_ids(std::string_view pattern) {
    cxx::RequireOpen(is_open(), {});
    if (pattern.empty()) return BitSet();
    std::string bytes = cxx::EncodeWord(pattern, "pattern");
    return Guard(impl_->path, [&] {
        impl_->Settle();
        CBitArray result;
        impl_->text.Find(&impl_->Wildcards(), bytes.c_str(), opEqual, DiacriticMarks, false,
                         result);
        auto set = std::make_unique<BitSet::Impl>();
        set->bits = std::move(result);
        return BitSet(std::move(set));
    });
}

std::vector<std::string> Dictionary::match(std::string_view pattern) {
    BitSet ids = match_ids(pattern);
    std::vector<std::string> words;
    words.reserve(ids.count());
    for (std::uint32_t id : ids) words.push_back(word(id));
    return words;
}

Dictionary::iterator Dictionary::begin() {
    cxx::RequireOpen(is_open(), {});
    Guard(impl_->path, [&] { impl_->Settle(); });
    return iterator(this, size());
}

Dictionary::iterator::iterator(Dictionary* dictionary, std::size_t end)
    : dictionary_(dictionary), position_(0), end_(end) {
    load();
}

Dictionary::iterator& Dictionary::iterator::operator++() {
    ++position_;
    load();
    return *this;
}

void Dictionary::iterator::load() {
    if (position_ >= end_) return;
    cxx::RequireOpen(dictionary_->is_open(), {});
    Impl& impl = *dictionary_->impl_;
    Guard(impl.path, [&] {
        CString text;
        int serial = static_cast<int>(position_);
        impl.text.GetString(serial, text, true);
        word_ = from_cp1256(text.str());
        id_ = static_cast<std::size_t>(impl.text.GetSerialRecord(serial));
    });
}

}  // namespace dorvik
