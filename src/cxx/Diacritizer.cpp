#include <algorithm>
#include <array>
#include <climits>
#include <mutex>
#include <system_error>
#include <unordered_map>
#include <vector>

#include "cxx/Boundary.h"
#include "cxx/Progress.h"
#include "dorvik/Diacritize.h"
#include "dorvik/IXFile.h"
#include "dorvik/TextBinFile.h"
#include "index/IXRecords.h"
#include "text/Diacritization.h"

namespace dorvik {

using cxx::Guard;

namespace {
// The Windows-1256 bytes that end a word (the classic delimiters) and the mark bytes.
struct WordBytes {
    std::array<bool, 256> delimiter{};
    std::array<bool, 256> mark{};

    WordBytes() {
        for (const char* d = DiacritizeDelimiters; *d; ++d)
            delimiter[static_cast<unsigned char>(*d)] = true;
        for (const char* m = DiacriticMarks; *m; ++m) mark[static_cast<unsigned char>(*m)] = true;
    }
};

const WordBytes& Classes() {
    static const WordBytes classes;
    return classes;
}

bool EndsWord(cxx::Char c) { return cxx::EndsWord(c.byte); }

Error InvalidUtf8(std::size_t at) {
    return cxx::MakeError(ErrorCode::bad_text, "invalid UTF-8 at byte " + std::to_string(at));
}
}  // namespace

bool cxx::EndsWord(int byte) {
    return byte <= 0 || Classes().delimiter[static_cast<unsigned char>(byte)];
}

bool cxx::IsMark(int byte) { return byte > 0 && Classes().mark[static_cast<unsigned char>(byte)]; }

std::vector<std::string_view> split_words(std::string_view text) {
    std::vector<std::string_view> words;
    std::size_t start = 0, at = 0;
    while (at < text.size()) {
        cxx::Char c = cxx::NextChar(text, at);
        if (c.length <= 0) throw InvalidUtf8(at);
        std::size_t next = at + static_cast<std::size_t>(c.length);
        if (EndsWord(c)) {
            if (at > start) words.push_back(text.substr(start, at - start));
            start = next;
        }
        at = next;
    }
    if (at > start) words.push_back(text.substr(start, at - start));
    return words;
}

struct Diacritizer::Impl {
    std::filesystem::path folder;
    std::string forms, wildcards, frequencies;
    std::size_t size = 0;
    std::size_t longest = 0;  // bytes (= characters) of the longest form
    std::mutex mutex;         // guards `idle`
    std::vector<std::unique_ptr<Diacritization>> idle;

    std::unique_ptr<Diacritization> Open() const {
        return Guard(folder, [&] {
            return std::make_unique<Diacritization>(forms.c_str(), wildcards.c_str(),
                                                    frequencies.c_str());
        });
    }

    // A working set for one call, taken from the idle ones or made anew, and given back
    // when the call ends, also by an exception.
    class Lease {
    public:
        explicit Lease(Impl& impl) : m_impl(impl) {
            {
                std::lock_guard<std::mutex> lock(impl.mutex);
                if (!impl.idle.empty()) {
                    m_files = std::move(impl.idle.back());
                    impl.idle.pop_back();
                }
            }
            if (!m_files) m_files = impl.Open();
        }
        ~Lease() {
            std::lock_guard<std::mutex> lock(m_impl.mutex);
            try {
                m_impl.idle.push_back(std::move(m_files));
            } catch (...) {
                // No room to keep it: it goes, and the next call makes a new one.
            }
        }
        Lease(const Lease&) = delete;
        Lease& operator=(const Lease&) = delete;
        Diacritization* operator->() { return m_files.get(); }

    private:
        Impl& m_impl;
        std::unique_ptr<Diacritization> m_files;
    };
};

Diacritizer::Diacritizer(const std::filesystem::path& folder) : impl_(std::make_shared<Impl>()) {
    Impl& impl = *impl_;
    impl.folder = folder;
    impl.forms = (folder / Files::forms).string();
    impl.wildcards = (folder / Files::wildcards).string();
    impl.frequencies = (folder / Files::frequencies).string();
    for (const std::string* file : {&impl.forms, &impl.wildcards, &impl.frequencies}) {
        if (!std::filesystem::exists(*file))
            throw cxx::MakeError(ErrorCode::not_found, {}, *file, ENOENT);
    }
    // A damaged dictionary or index would only leave every word unchanged: say so here.
    for (const std::string* file : {&impl.forms, &impl.wildcards}) {
        if (!Guard(*file, [&] { return CBinFile::IsValidBinFile(file->c_str()); }))
            throw cxx::MakeError(ErrorCode::invalid_file, "no record file", *file);
    }
    std::unique_ptr<Diacritization> first = impl.Open();
    Guard(folder, [&] {
        impl.size = static_cast<std::size_t>(first->FormCount());
        impl.longest = static_cast<std::size_t>(first->LongestForm());
    });
    impl.idle.push_back(std::move(first));
}

Diacritizer::Diacritizer(const Diacritizer&) noexcept = default;
Diacritizer::Diacritizer(Diacritizer&&) noexcept = default;
Diacritizer& Diacritizer::operator=(const Diacritizer&) noexcept = default;
Diacritizer& Diacritizer::operator=(Diacritizer&&) noexcept = default;
Diacritizer::~Diacritizer() = default;

const std::filesystem::path& Diacritizer::folder() const noexcept {
    static const std::filesystem::path none;
    return impl_ ? impl_->folder : none;
}

std::size_t Diacritizer::size() const noexcept { return impl_ ? impl_->size : 0; }

Diacritizer::Impl& Diacritizer::engine() const {
    cxx::RequireOpen(impl_ != nullptr, {});
    return *impl_;
}

// ---- Streams ------------------------------------------------------------------------

struct Diacritizer::Stream::Impl {
    std::shared_ptr<Diacritizer::Impl> engine;
    std::string held;          // UTF-8: the trailing partial word of the pieces so far
    std::uint64_t offset = 0;  // of `held` (or of the next piece) in the whole text
    bool passing = false;      // inside a word longer than any form: it goes on unchanged

    // Diacritizes `text` up to its last word end and appends the result to `out`;
    // returns the bytes used. With `final` everything is used.
    std::size_t Run(std::string_view text, bool final, std::string& out);
};

std::size_t Diacritizer::Stream::Impl::Run(std::string_view text, bool final, std::string& out) {
    Diacritizer::Impl& e = *engine;
    const std::size_t longest = e.longest;
    std::string run;           // Windows-1256 text not yet diacritized
    std::size_t runWord = 0;   // where the current word starts in `run`
    std::size_t textWord = 0;  // and in `text`
    std::size_t letters = 0;   // letters of the current word
    std::size_t marks = 0;     // marks on its last letter
    std::size_t at = 0;
    std::optional<Diacritizer::Impl::Lease> files;
    // Diacritizes run[0, end) and drops it from `run`.
    auto flush = [&](std::size_t end) {
        if (end == 0) return;
        std::string part = run.substr(0, end);
        std::string done;
        if (!files) files.emplace(e);
        Guard(e.folder, [&] { (*files)->Buffer(part.data(), done); });
        cxx::AppendUtf8(out, done);
        run.erase(0, end);
        runWord -= std::min(runWord, end);
    };
    auto wordEnd = [&](std::size_t runAt, std::size_t textAt) {
        runWord = runAt;
        textWord = textAt;
        letters = marks = 0;
    };
    while (at < text.size()) {
        cxx::Char c = cxx::NextChar(text, at);
        if (c.length == 0) throw InvalidUtf8(offset + at);
        if (c.length < 0) break;  // the piece ends inside a sequence: keep it for the next
        std::size_t next = at + static_cast<std::size_t>(c.length);
        std::string_view raw = text.substr(at, next - at);
        at = next;
        if (c.byte <= 0) {
            // NUL, or no Windows-1256 form: a word end that comes through as it stands.
            flush(run.size());
            out.append(raw);
            passing = false;
            wordEnd(0, at);
            continue;
        }
        auto byte = static_cast<unsigned char>(c.byte);
        if (Classes().delimiter[byte]) {
            passing = false;
            run += static_cast<char>(byte);
            wordEnd(run.size(), at);
            continue;
        }
        if (passing) {
            out.append(raw);
            textWord = at;
            continue;
        }
        run += static_cast<char>(byte);
        // A letter after n letters picks index level n + 1, the r-th mark on it level
        // 2n + r + 1; no form of at most `longest` bytes reaches a level above
        // 2 * longest, or has more letters than `longest`.
        bool hopeless;
        if (Classes().mark[byte]) {
            hopeless = 2 * letters + ++marks > 2 * longest;
        } else {
            marks = 0;
            hopeless = ++letters > longest;
        }
        if (hopeless) {
            // No form can match: the word stays as it is, so it goes on now, and so does
            // the rest of it as it comes; nothing of it is held back.
            flush(runWord);
            out.append(text.substr(textWord, at - textWord));
            run.clear();
            wordEnd(0, at);
            passing = true;
        }
    }
    if (final) {
        if (at < text.size())
            throw cxx::MakeError(
                ErrorCode::bad_text,
                "the text ends inside a UTF-8 sequence at byte " + std::to_string(offset + at));
        flush(run.size());
        passing = false;
        return text.size();
    }
    flush(runWord);
    return textWord;
}

Diacritizer::Stream::Stream(std::unique_ptr<Impl> impl) noexcept : impl_(std::move(impl)) {}
Diacritizer::Stream::Stream(Stream&&) noexcept = default;
Diacritizer::Stream& Diacritizer::Stream::operator=(Stream&&) noexcept = default;
Diacritizer::Stream::~Stream() = default;

std::string Diacritizer::Stream::feed(std::string_view piece) {
    cxx::RequireOpen(impl_ != nullptr, {});
    std::string out;
    std::string text = std::move(impl_->held);
    impl_->held.clear();
    text.append(piece);
    std::size_t used = impl_->Run(text, false, out);
    impl_->held.assign(text, used);
    impl_->offset += used;
    return out;
}

std::string Diacritizer::Stream::finish() {
    cxx::RequireOpen(impl_ != nullptr, {});
    std::string out;
    std::string text = std::move(impl_->held);
    impl_->held.clear();
    try {
        impl_->Run(text, true, out);
    } catch (...) {
        impl_->offset = 0;
        throw;
    }
    impl_->offset = 0;
    return out;
}

Diacritizer::Stream Diacritizer::stream() const {
    engine();
    auto impl = std::make_unique<Stream::Impl>();
    impl->engine = impl_;
    return Stream(std::move(impl));
}

std::string Diacritizer::diacritize(std::string_view text) const {
    engine();
    Stream::Impl stream;
    stream.engine = impl_;
    std::string out;
    out.reserve(text.size() + text.size() / 2);
    stream.Run(text, true, out);
    return out;
}

std::optional<std::string> Diacritizer::lookup(std::string_view word) const {
    Impl& impl = engine();
    if (word.empty() || word.find('\0') != std::string_view::npos) return std::nullopt;
    std::optional<std::string> bytes = cxx::Encode(word, false);
    if (!bytes) return std::nullopt;
    for (char b : *bytes)
        if (Classes().delimiter[static_cast<unsigned char>(b)]) return std::nullopt;
    Impl::Lease files(impl);
    return Guard(impl.folder, [&]() -> std::optional<std::string> {
        CString form(bytes->c_str());
        if (!files->Word(form)) return std::nullopt;
        return from_cp1256(form.str());
    });
}

// ---- Building a folder -------------------------------------------------------------

namespace {
// The sentence boundary in forms.pair: its start on the left, its end on the right.
constexpr std::uint32_t kBoundary = 0xFFFFFFFF;
}  // namespace

struct Diacritizer::Builder::Impl {
    std::filesystem::path folder, work;
    Dictionary forms;
    std::vector<std::uint32_t> counts;
    // How often form (key >> 32) was followed by form (key & 0xFFFFFFFF).
    std::unordered_map<std::uint64_t, std::uint32_t> pairs;
    // The form before the blanks that end the text so far; kBoundary when a sentence
    // starts (at the beginning, or after a delimiter other than blanks).
    std::uint32_t last = kBoundary;

    // Counts `right` after `left` (either may be kBoundary).
    void Pair(std::uint32_t left, std::uint32_t right) {
        std::uint32_t& n = pairs[(std::uint64_t{left} << 32) | right];
        if (n < INT_MAX) ++n;
    }
    // Ends the sentence: its last form is followed by the boundary.
    void EndSentence() {
        if (last != kBoundary) Pair(last, kBoundary);
        last = kBoundary;
    }

    // Adds `count` to `form`; returns its id.
    std::size_t Add(std::string_view form, std::uint32_t count);

    // Removes the work folder; errors are dropped (a later build clears it again).
    void Discard() noexcept {
        forms = Dictionary();
        std::error_code ignored;
        std::filesystem::remove_all(work, ignored);
    }
};

Diacritizer::Builder::Builder(const std::filesystem::path& folder)
    : impl_(std::make_unique<Impl>()) {
    impl_->folder = folder;
    impl_->work = folder / ".build";
    Guard(folder, [&] {
        std::filesystem::create_directories(folder);
        std::filesystem::remove_all(impl_->work);
        std::filesystem::create_directory(impl_->work);
    });
    OpenOptions options;
    options.truncate = true;
    options.bulk = true;
    impl_->forms = Dictionary(impl_->work / Files::forms, options);
}

Diacritizer::Builder::Builder(Builder&&) noexcept = default;

Diacritizer::Builder& Diacritizer::Builder::operator=(Builder&& other) noexcept {
    if (this != &other) {
        if (impl_) impl_->Discard();
        impl_ = std::move(other.impl_);
    }
    return *this;
}

Diacritizer::Builder::~Builder() {
    if (impl_) impl_->Discard();
}

std::size_t Diacritizer::Builder::Impl::Add(std::string_view form, std::uint32_t count) {
    std::size_t id = forms.add(form).first;
    if (id >= counts.size()) counts.resize(id + 1, 0);
    counts[id] = static_cast<std::uint32_t>(
        std::min<std::uint64_t>(std::uint64_t{counts[id]} + count, INT_MAX));
    return id;
}

void Diacritizer::Builder::add(std::string_view form, std::uint32_t count) {
    cxx::RequireOpen(impl_ != nullptr, {});
    impl_->Add(form, count);
}

namespace {
bool OnlyBlanks(std::string_view gap) {
    return gap.find_first_not_of(" \t") == std::string_view::npos;
}
}  // namespace

std::size_t Diacritizer::Builder::add_text(std::string_view text) {
    cxx::RequireOpen(impl_ != nullptr, {});
    std::vector<std::string_view> words = split_words(text);
    std::size_t end = 0;  // of the previous word in `text`
    for (std::string_view word : words) {
        std::size_t start = static_cast<std::size_t>(word.data() - text.data());
        if (!OnlyBlanks(text.substr(end, start - end))) impl_->EndSentence();
        auto id = static_cast<std::uint32_t>(impl_->Add(word, 1));
        impl_->Pair(impl_->last, id);
        impl_->last = id;
        end = start + word.size();
    }
    if (!OnlyBlanks(text.substr(end))) impl_->EndSentence();
    return words.size();
}

std::size_t Diacritizer::Builder::pairs() const {
    cxx::RequireOpen(impl_ != nullptr, {});
    return impl_->pairs.size();
}

std::size_t Diacritizer::Builder::size() const {
    cxx::RequireOpen(impl_ != nullptr, {});
    return impl_->counts.size();
}

void Diacritizer::Builder::finish(const Progress& progress) {
    cxx::RequireOpen(impl_ != nullptr, {});
    std::unique_ptr<Impl> impl = std::move(impl_);
    try {
        cxx::ProgressScope scope(progress);
        impl->EndSentence();
        impl->forms.close();
        std::filesystem::path frequencies = impl->work / Files::frequencies;
        Guard(frequencies, [&] {
            CIXFile file(frequencies.c_str(), CFile::modeCreate | CFile::modeReadWrite, 4);
            WriteIXRecords(file, std::vector<int>(impl->counts.begin(), impl->counts.end()));
            file.Close();
        });
        std::filesystem::path pairs = impl->work / Files::pairs;
        Guard(pairs, [&] {
            std::vector<std::uint64_t> keys;
            keys.reserve(impl->pairs.size());
            for (const auto& [key, n] : impl->pairs) keys.push_back(key);
            std::sort(keys.begin(), keys.end());
            std::vector<int> records;
            records.reserve(3 * keys.size());
            for (std::uint64_t key : keys) {
                records.push_back(static_cast<int>(key >> 32));
                records.push_back(static_cast<int>(key & 0xFFFFFFFFu));
                records.push_back(static_cast<int>(impl->pairs[key]));
            }
            CIXFile file(pairs.c_str(), CFile::modeCreate | CFile::modeReadWrite, 4);
            WriteIXRecords(file, records);
            file.Close();
        });
        Guard(impl->folder, [&] {
            for (std::string_view name :
                 {Files::sorted, Files::wildcards, Files::frequencies, Files::pairs, Files::forms})
                std::filesystem::rename(impl->work / name, impl->folder / name);
            std::filesystem::remove(impl->work);
        });
    } catch (...) {
        impl->Discard();
        throw;
    }
}

}  // namespace dorvik
