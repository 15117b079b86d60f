// Dorvik for C++20: record files, bit sets, inverted indexes, dictionaries and the
// diacritizer, in namespace dorvik, over the same engine and the same files as the
// classic interface of <Dorvik01.h>. This header puts no name into the global
// namespace and defines no macro, so it sits beside an application's own DWORD, BOOL,
// CString or CFile. Each type holds the engine's own objects and adds no file logic:
// a file written through one interface reads through the other.
//
// Errors. Failures are thrown as dorvik::Error (a std::runtime_error) with a code, the
// path concerned and the OS error: the engine's file and memory exceptions, and
// std::bad_alloc and std::filesystem errors met on the way, are translated at this
// boundary. "Not found" is an empty
// std::optional, never -1. Destructors never throw: they drop errors, so call close()
// to see them.
//
// Text. Dictionary and Diacritizer take and give UTF-8. The engine stores Windows-1256,
// one byte per character, and the conversion happens at this boundary only: a word
// with a character that Windows-1256 cannot hold is refused with ErrorCode::bad_text.
// Words order by their Windows-1256 bytes, not by code point.
//
// Numbers. Record, term and word numbers are std::size_t counted from 0; bit and
// document numbers are std::uint32_t. The file formats hold at most 2^31 - 1 of
// either: a larger number throws ErrorCode::out_of_range. Files stay below 2 GiB.
//
// Threads.
//  - BitSet is a value: const calls on one BitSet may run on several threads at once;
//    a change needs exclusive access, as with the standard containers.
//  - RecordFile, PostingsFile, Dictionary and Indexer belong to one thread at a time,
//    reads included (a read moves the object's file position). Objects on different
//    files may be used on different threads at once; two objects on one file see each
//    other's changes only after reopening.
//  - Diacritizer: every const call may run on any number of threads at once on one
//    shared object (copies share it too); see the class. A Diacritizer::Stream belongs
//    to one thread at a time.
//  - to_cp1256 and from_cp1256 may run anywhere at any time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace dorvik {

// ---- Errors ------------------------------------------------------------------------

// What went wrong: the kind of an Error (Error::code()).
enum class ErrorCode {
    io,                   // a read, write, close or sync failed (see os_error())
    not_found,            // the file or folder does not exist
    bad_path,             // a part of the path is no folder, or a name is too long
    too_many_open_files,  // the process or the system is out of file descriptors
    access_denied,        // permissions, a read-only file system, or a folder given as file
    invalid_file,         // the file exists but is not of the kind asked for, or is damaged
    disk_full,            // no room on the device, or the file would pass 2 GiB
    out_of_memory,        // a block could not be had
    bad_text,             // invalid UTF-8, or a character that Windows-1256 cannot hold
    invalid_argument,     // an argument the call does not accept (said at the call)
    out_of_range,         // a number past what exists or what the formats can hold
    closed,               // the object is closed, or was moved from
};

// The one exception of this interface. what() reads like "invalid file: /data/a.bin"
// or "not found: /data/a.bin (No such file or directory)".
class __attribute__((visibility("default"))) Error : public std::runtime_error {
public:
    // `message` becomes what(); the library composes it as shown above.
    Error(ErrorCode code, const std::string& message, std::filesystem::path path = {},
          int os_error = 0);
    // The kind of failure.
    ErrorCode code() const noexcept { return code_; }
    // The file or folder the failure concerns; empty when none does.
    const std::filesystem::path& path() const noexcept { return path_; }
    // The errno value behind the failure; 0 when the OS reported none.
    int os_error() const noexcept { return os_error_; }

private:
    ErrorCode code_;
    std::filesystem::path path_;
    int os_error_;
};

// ---- Text --------------------------------------------------------------------------

// The Windows-1256 bytes of UTF-8 text. Throws Error(bad_text) for invalid UTF-8 or a
// character that Windows-1256 cannot hold; the message names the character (U+XXXX)
// and its byte offset. NUL characters pass as NUL bytes.
__attribute__((visibility("default"))) std::string to_cp1256(std::string_view utf8);
// The UTF-8 text of Windows-1256 bytes; every byte has a character, so this never
// fails but for memory.
__attribute__((visibility("default"))) std::string from_cp1256(std::string_view cp1256);
// Appends the UTF-8 form of the character `c` (1 to 4 bytes) to `out`. A value that
// UTF-8 cannot carry (a surrogate, or above U+10FFFF) is appended as U+FFFD.
__attribute__((visibility("default"))) void append_utf8(std::string& out, char32_t c);

// ---- Opening files -----------------------------------------------------------------

// How RecordFile, PostingsFile and Dictionary open their files. The default opens an
// existing file for reading and writing.
struct OpenOptions {
    bool create = false;     // create the file when it is missing; an existing one stays
    bool truncate = false;   // start empty, creating the file when missing
    bool read_only = false;  // no change allowed; cannot be combined with the three others
    bool bulk = false;       // for loading: the file is complete on disk only after close()
};

class BitSet;

// ---- RecordFile ----------------------------------------------------------------------

// A record file: byte records of any length numbered from 0, with their address table
// behind them (the format of the classic CBinFile). By default every change leaves a
// complete record file on disk (nothing calls fsync but flush()); a change is not atomic.
// With OpenOptions::bulk the table is written once, by close() or the destructor, so
// appending is one write per record, and a process that dies before that leaves data
// without a table. Movable, not copyable. One thread at a time.
class __attribute__((visibility("default"))) RecordFile {
public:
    class iterator;

    // A closed object.
    RecordFile() noexcept;
    // Opens `path`. Throws Error: not_found (no file and neither create nor truncate),
    // invalid_file (a file that is no record file; a 0-byte file counts as an empty one
    // and becomes one when opened for writing), invalid_argument (read_only with create,
    // truncate or bulk), or the OS failure.
    explicit RecordFile(const std::filesystem::path& path, OpenOptions options = {});
    // Takes over the file of `other`, which is left closed.
    RecordFile(RecordFile&& other) noexcept;
    // Closes this object first, dropping errors of that close.
    RecordFile& operator=(RecordFile&& other) noexcept;
    // Closes; errors are dropped (in bulk mode the table may then be missing).
    ~RecordFile();

    // Writes what is owed (the table in bulk mode) and closes. Throws Error when that
    // fails; the object is closed either way. A closed object stays closed.
    void close();
    // False for a closed or moved-from object.
    bool is_open() const noexcept;
    // The path given at opening; empty for a closed object.
    const std::filesystem::path& path() const noexcept;
    // Writes the file's data through to the disk (fsync). In bulk mode the table still
    // reaches the file only at close().
    void flush();

    // Every call below throws Error(closed) on a closed object, Error(out_of_range) for
    // an index at or past size() (insert: past size()), Error(access_denied) for a
    // change of a read-only file, and the OS failure.

    // The number of records (held in memory: no I/O).
    std::size_t size() const;
    // The length of record `index` (no I/O).
    std::size_t record_size(std::size_t index) const;
    // A copy of record `index`: one read.
    std::vector<std::byte> read(std::size_t index);
    // The same copy as a string.
    std::string read_string(std::size_t index);
    // Copies the first min(record_size(index), buffer.size()) bytes of the record into
    // `buffer` and returns the record's full length: a result above buffer.size() means
    // the record was cut.
    std::size_t read(std::size_t index, std::span<std::byte> buffer);

    // Appends a record; returns its index. Bulk mode: one write, gathered in memory.
    std::size_t append(std::span<const std::byte> record);
    std::size_t append(std::string_view record);
    // Puts a new record at `index` (0 .. size()); the records from `index` on move up
    // by one. Cost: moves the file's bytes behind the new record.
    void insert(std::size_t index, std::span<const std::byte> record);
    void insert(std::size_t index, std::string_view record);
    // Replaces record `index`. Same length: written in place; otherwise the bytes
    // behind it move.
    void replace(std::size_t index, std::span<const std::byte> record);
    void replace(std::size_t index, std::string_view record);
    // Removes record `index`, or records first .. last - 1 (`last` is cut to size();
    // an empty range does nothing). The records behind move down.
    void erase(std::size_t index);
    void erase(std::size_t first, std::size_t last);
    // The index of the first record at or after `from` whose bytes equal `record`; an
    // empty `record` finds nothing. Reads at most record.size() + 1 bytes per record.
    std::optional<std::size_t> find(std::span<const std::byte> record, std::size_t from = 0);
    std::optional<std::size_t> find(std::string_view record, std::size_t from = 0);

    // The records in order, each read when the iterator reaches it. The span that an
    // iterator gives stays valid until the iterator moves or goes; changing the file
    // while iterating is not allowed.
    iterator begin();
    std::default_sentinel_t end() const noexcept { return {}; }

    // An input iterator over the records; compares equal to end() past the last one.
    class __attribute__((visibility("default"))) iterator {
    public:
        // The traits of an input_iterator: value_type, difference_type, iterator_concept.
        using value_type = std::span<const std::byte>;
        using difference_type = std::ptrdiff_t;
        using iterator_concept = std::input_iterator_tag;

        iterator() = default;
        // The record under the iterator.
        std::span<const std::byte> operator*() const noexcept { return record_; }
        // Its index.
        std::size_t index() const noexcept { return index_; }
        // operator++ reads the next record; operator== against end() is true past the last.
        iterator& operator++();
        void operator++(int) { ++*this; }
        friend bool operator==(const iterator& it, std::default_sentinel_t) noexcept {
            return it.index_ >= it.end_;
        }

    private:
        friend class RecordFile;
        iterator(RecordFile* file, std::size_t end);
        void load();

        RecordFile* file_ = nullptr;
        std::size_t index_ = 0;
        std::size_t end_ = 0;
        std::vector<std::byte> buffer_;
        std::span<const std::byte> record_;
    };

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

// ---- BitSet ------------------------------------------------------------------------

// A set of bit numbers 0 .. 2^31 - 1 held as a bitmap (the classic CBitArray), as the
// engine passes sets between its parts: a posting list, a search result. Memory is
// (largest bit + 1) / 8 bytes. to_compressed() gives the engine's run-length form, in
// which the bit record files store their records.
class __attribute__((visibility("default"))) BitSet {
public:
    class iterator;
    // The highest bit a set can hold (2^31 - 1).
    static constexpr std::uint32_t max_bit = 0x7FFFFFFF;

    // The empty set; allocates nothing.
    BitSet() noexcept;
    // The set of `bits`. Throws Error(out_of_range) for a bit above max_bit.
    BitSet(std::initializer_list<std::uint32_t> bits);
    // A copy of `other`'s bitmap.
    BitSet(const BitSet& other);
    // The moved-from set is empty.
    BitSet(BitSet&& other) noexcept;
    // Becomes a copy of `other`; on failure this set stays as it was.
    BitSet& operator=(const BitSet& other);
    // The moved-from set is empty.
    BitSet& operator=(BitSet&& other) noexcept;
    ~BitSet();

    // The set whose compressed form is `form` (as to_compressed() and the bit record
    // files write it). Any bytes are accepted and read without going past their end;
    // a set reaching past bit max_bit throws Error(out_of_range) before anything is
    // expanded.
    static BitSet from_compressed(std::span<const std::byte> form);
    // The set of a plain bitmap: bit n is byte n / 8 under the mask 1 << (n % 8).
    // Throws Error(out_of_range) for more than 2^28 bytes.
    static BitSet from_bitmap(std::span<const std::byte> bitmap);
    // The compressed form; empty for the empty set.
    std::vector<std::byte> to_compressed() const;
    // The plain bitmap, owned by the set and valid until its next change; it may end in
    // zero bytes.
    std::span<const std::byte> bitmap() const noexcept;

    // Adds `bit`; grows the bitmap to hold it. Throws Error(out_of_range) above max_bit.
    void set(std::uint32_t bit);
    // Removes `bit`; never grows.
    void reset(std::uint32_t bit) noexcept;
    // test and contains: whether `bit` is in the set; false above max_bit.
    bool test(std::uint32_t bit) const noexcept;
    bool contains(std::uint32_t bit) const noexcept { return test(bit); }
    // Empties the set and releases its memory.
    void clear() noexcept;

    // The number of bits in the set: a word-at-a-time count of the bitmap on every call.
    std::size_t count() const noexcept;
    // True when no bit is set.
    bool empty() const noexcept;
    // first() and last(): the lowest and the highest bit; empty for the empty set.
    std::optional<std::uint32_t> first() const noexcept;
    std::optional<std::uint32_t> last() const noexcept;

    // Intersection, union, symmetric difference, difference (the bits of this set that
    // `other` lacks). Word-at-a-time over the bitmaps.
    BitSet& operator&=(const BitSet& other);
    BitSet& operator|=(const BitSet& other);
    BitSet& operator^=(const BitSet& other);
    BitSet& operator-=(const BitSet& other);
    friend BitSet operator&(BitSet a, const BitSet& b) { return a &= b; }
    friend BitSet operator|(BitSet a, const BitSet& b) { return a |= b; }
    friend BitSet operator^(BitSet a, const BitSet& b) { return a ^= b; }
    friend BitSet operator-(BitSet a, const BitSet& b) { return a -= b; }
    // The same bits, whatever zero bytes either bitmap ends in.
    bool operator==(const BitSet& other) const noexcept;

    // The bits in rising order. Iterators stay valid until the set changes.
    iterator begin() const noexcept;
    iterator end() const noexcept;

    // A forward iterator over the bits in rising order; end() is the iterator past the
    // highest bit.
    class __attribute__((visibility("default"))) iterator {
    public:
        // The traits of a forward_iterator: value_type, difference_type, iterator_concept.
        using value_type = std::uint32_t;
        using difference_type = std::ptrdiff_t;
        using iterator_concept = std::forward_iterator_tag;

        iterator() = default;
        // operator* gives the bit; operator++ goes to the next set bit (a word-at-a-time
        // scan); operator== compares positions.
        std::uint32_t operator*() const noexcept { return static_cast<std::uint32_t>(bit_); }
        iterator& operator++() noexcept;
        iterator operator++(int) noexcept {
            iterator before = *this;
            ++*this;
            return before;
        }
        friend bool operator==(const iterator& a, const iterator& b) noexcept {
            return a.bit_ == b.bit_;
        }

    private:
        friend class BitSet;
        iterator(const unsigned char* bytes, std::size_t size, std::int64_t from) noexcept;

        const unsigned char* bytes_ = nullptr;
        std::size_t size_ = 0;
        std::int64_t bit_ = -1;  // -1: the end
    };

private:
    friend class PostingsFile;
    friend class Dictionary;
    friend class Tree;
    struct Impl;
    explicit BitSet(std::unique_ptr<Impl> impl) noexcept;
    Impl& writable();
    std::unique_ptr<Impl> impl_;  // null for the empty set
};

// ---- Inverted indexes ----------------------------------------------------------------

// A bit record file (the classic CBitsBinFile): record t is the set of documents of
// term t, stored in the compressed form. Opens and closes as RecordFile does, with the
// same options, errors and safety. Movable, not copyable. One thread at a time.
class __attribute__((visibility("default"))) PostingsFile {
public:
    // A closed object.
    PostingsFile() noexcept;
    // Opens `path`; options and errors as RecordFile's.
    explicit PostingsFile(const std::filesystem::path& path, OpenOptions options = {});
    // Takes over the file of `other`, which is left closed.
    PostingsFile(PostingsFile&& other) noexcept;
    // Closes this object first, dropping errors of that close.
    PostingsFile& operator=(PostingsFile&& other) noexcept;
    ~PostingsFile();

    // close, is_open, path and flush: as RecordFile's.
    void close();
    bool is_open() const noexcept;
    const std::filesystem::path& path() const noexcept;
    void flush();

    // Every call below throws Error(closed) on a closed object, Error(access_denied) for
    // a change of a read-only file, and the OS failure.

    // The number of records (terms), the last one being the highest term with a record.
    std::size_t size() const;
    // The documents of `term`: one read and an expansion. A term past size() has none.
    BitSet read(std::size_t term);
    // The record of `term` as stored: the compressed form that BitSet::from_compressed
    // reads, unexpanded (one read, no expansion, so its size follows the stored bytes
    // whatever set it stands for). Empty for an empty record and a term past size().
    std::vector<std::byte> read_compressed(std::size_t term);
    // unite and intersect: the union or intersection of the records of `terms` (any
    // order, repeats allowed; terms past size() count as empty). An intersection stops
    // at the first empty result and never expands a record beyond the result so far.
    // Intersecting no term gives the empty set. Throws Error(out_of_range) for a term
    // above 2^31 - 1.
    BitSet unite(std::span<const std::size_t> terms);
    BitSet intersect(std::span<const std::size_t> terms);
    // Appends a record; returns its term. Cost: one compression and one write.
    std::size_t append(const BitSet& documents);
    // Replaces the record of `term`, adding empty records before it when it lies past
    // the end. Cost: rewrites the record and moves the bytes behind it; to build an
    // index, collect with an Indexer and save once.
    void replace(std::size_t term, const BitSet& documents);

private:
    friend class Indexer;
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

// Collects (term, document) postings and writes them into a PostingsFile in one pass,
// the engine's fast way (the classic CLinkedListArray): each posting is 8 bytes in a
// temporary file (in $TMPDIR, else /tmp; made at the first add), memory is 8 bytes per
// term, and save() reads the postings back in large sequential pieces. Postings may
// come in any order; a repeated posting counts once. Movable, not copyable. One thread
// at a time.
class __attribute__((visibility("default"))) Indexer {
public:
    // How save() treats the records already in the file.
    enum class Merge {
        replace,  // the file gets exactly the collected postings
        unite     // each record becomes the union of its old and its collected documents
    };

    Indexer() noexcept;
    // Takes over the postings of `other`, which is left empty; the assignment first drops
    // this indexer's own postings and temporary file.
    Indexer(Indexer&& other) noexcept;
    Indexer& operator=(Indexer&& other) noexcept;
    // Removes the temporary file.
    ~Indexer();

    // Notes that `term` occurs in `document`. Throws Error(out_of_range) for a term
    // above 2^31 - 1 or a document above BitSet::max_bit, and the OS failure of the
    // temporary file (which passes 2 GiB at 268 million postings: disk_full).
    void add(std::size_t term, std::uint32_t document);
    // The postings added since the last save, repeats included.
    std::size_t postings() const noexcept { return postings_; }
    // Writes the collected postings into `file` and empties the indexer, which may
    // collect again. Merge::unite goes through a temporary copy that then replaces the
    // file, so a failure leaves the file as it was; Merge::replace empties the file
    // first. The file's bulk setting is kept. Throws Error(closed) for a closed file,
    // Error(access_denied) for a read-only one, and the OS failure; after an error the
    // postings stay collected, so the save can be repeated.
    void save(PostingsFile& file, Merge how = Merge::replace);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
    std::size_t postings_ = 0;
};

// ---- Dictionary ----------------------------------------------------------------------

// A set of distinct words in UTF-8, each with a stable number (its id: the order of
// arrival), kept in three files named after `path`: the words themselves at `path` (the
// classic CTextBinFile: one record per word, in Windows-1256), their sorted view at
// `path` with the extension ".sort" (a file of 4-byte ids in word order) and the
// wildcard index at `path` with the extension ".wild".
//
// The wildcard index is rebuilt from all words, never updated word by word: the first
// change after opening deletes it, and close() (or the destructor, or flush())
// writes it anew, so a stale index never stays on disk. match() on a dictionary
// without a current index builds one first (on disk, or in memory when read-only).
// Cost: about 1.3 s for a million words.
//
// Two ways to add. By default each add() puts the word into the sorted view at once,
// which moves the tail of the ".sort" file: fine for a few words. With
// OpenOptions::bulk the words gather in memory and the files are written once at
// flush() or close(): the way to load many. Into an empty dictionary the new words are
// sorted once when they are written (about 1 ms for 16,000 words); into one that holds
// words, the whole dictionary is read in at the first add and each new word goes into
// a sort tree, which costs several times more per word. Bulk mode also keeps each word added through the object in a hash table, so that
// adding a word again is one hash look-up (memory: about 64 bytes plus the word, per
// distinct word). A query (find, match, iteration) in bulk mode writes the gathered words first,
// and the next add reads the dictionary in again.
//
// Movable, not copyable. One thread at a time.
class __attribute__((visibility("default"))) Dictionary {
public:
    class iterator;

    Dictionary() noexcept;
    // Opens the dictionary at `path`. Writable, it makes a missing or outdated sorted
    // view (sorting all words once). Throws Error: not_found, invalid_file (no
    // dictionary file; or read-only without a current sorted view), invalid_argument
    // (a path whose extension is ".sort", ".wild" or ".freq", or read_only combined with
    // another option), and the OS failure.
    explicit Dictionary(const std::filesystem::path& path, OpenOptions options = {});
    // Takes over the dictionary of `other`, which is left closed.
    Dictionary(Dictionary&& other) noexcept;
    // Closes this object first, dropping errors of that close.
    Dictionary& operator=(Dictionary&& other) noexcept;
    // Closes; errors are dropped (words gathered in bulk mode may then be lost, and the
    // wildcard index missing until the next writable open and close).
    ~Dictionary();

    // Writes the gathered words and the wildcard index as flush() does, then closes.
    // Throws Error when a write fails; the object is closed either way.
    void close();
    // Writes the words that bulk mode gathered and, when words came in since it was
    // written, the wildcard index; the dictionary stays open in its mode.
    void flush();
    // False for a closed or moved-from object.
    bool is_open() const noexcept;
    // The path given at opening; empty for a closed object.
    const std::filesystem::path& path() const noexcept;

    // Every call below throws Error(closed) on a closed object and the OS failure.

    // The number of words.
    std::size_t size() const;
    // Adds `word` unless it is there. Returns its id and true when it was added, or the
    // id of the word already there and false. Throws Error(bad_text) for text that
    // Windows-1256 cannot hold, Error(invalid_argument) for an empty word or one that
    // holds a NUL, Error(access_denied) on a read-only dictionary.
    std::pair<std::size_t, bool> add(std::string_view word);
    // The id of `word`: a binary search of the sorted view, about log2(size()) reads.
    // Empty when the word is not there, also for text Windows-1256 cannot hold.
    std::optional<std::size_t> find(std::string_view word);
    // The word with id `id` (one read). Throws Error(out_of_range) at or past size().
    std::string word(std::size_t id);

    // The ids of the words that match `pattern`, read through the wildcard index:
    //  - `?` (or the Arabic question mark) stands for one letter; without `*` the
    //    number of letters is pinned: "ab" finds only words of two letters;
    //  - a `*` at the end frees the length from there ("ab*": words beginning with ab);
    //    leading stars try every start ("*ab": ending in ab; "*ab*": holding ab);
    //    "*" alone matches every word; an empty pattern matches none;
    //  - Arabic marks (fatha, damma, kasra, sukun, shadda, the three tanwin) in the
    //    pattern must stand at that place of the marks on their letter; marks the pattern
    //    does not name are free, so a bare word finds all its marked forms.
    // This is the engine's own dialect, not a shell glob; its corners (inner stars, a
    // star after nothing) are told at the wildcard Find of the classic CTextBinFile.
    // Throws Error(bad_text) as add() does, Error(invalid_argument) for a NUL.
    BitSet match_ids(std::string_view pattern);
    // The matching words themselves, in id order.
    std::vector<std::string> match(std::string_view pattern);

    // The words in sorted order, one read each. Changing or closing the dictionary
    // while iterating is not allowed (the iterator then throws Error(closed) or reads
    // stale positions).
    iterator begin();
    std::default_sentinel_t end() const noexcept { return {}; }

    // An input iterator over the words in sorted order; compares equal to end() past the
    // last one.
    class __attribute__((visibility("default"))) iterator {
    public:
        // The traits of an input_iterator: value_type, difference_type, iterator_concept.
        using value_type = std::string;
        using difference_type = std::ptrdiff_t;
        using iterator_concept = std::input_iterator_tag;

        iterator() = default;
        // The word under the iterator, valid until it moves.
        const std::string& operator*() const noexcept { return word_; }
        // The id of the word under the iterator.
        std::size_t id() const noexcept { return id_; }
        // operator++ reads the next word; operator== against end() is true past the last.
        iterator& operator++();
        void operator++(int) { ++*this; }
        friend bool operator==(const iterator& it, std::default_sentinel_t) noexcept {
            return it.position_ >= it.end_;
        }

    private:
        friend class Dictionary;
        iterator(Dictionary* dictionary, std::size_t end);
        void load();

        Dictionary* dictionary_ = nullptr;
        std::size_t position_ = 0;
        std::size_t end_ = 0;
        std::size_t id_ = 0;
        std::string word_;
    };

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

// ---- Diacritizer ---------------------------------------------------------------------

// Told how far a long step has come: `stage` names it ("sorting" the words, "indexing"
// them), `done` of `total` units. Called on the caller's thread, from inside the engine:
// it may throw to stop the work, which then ends with that exception as if it had failed.
using Progress = std::function<void(std::string_view stage, std::size_t done, std::size_t total)>;

// The words of UTF-8 text as a Diacritizer cuts it: the runs between word ends (the
// delimiters of the classic DiacritizeDelimiters, NUL, and every character that
// Windows-1256 cannot hold), as views into `text`, in order. Throws Error(bad_text) for
// invalid UTF-8, also a sequence cut by the end of `text`.
__attribute__((visibility("default"))) std::vector<std::string_view> split_words(
    std::string_view text);

// Restores the marks of Arabic words in UTF-8 text by dictionary look-up, as the
// classic DiacritizeBuffer does: each word takes its most frequent dictionary form
// with the same letters that agrees with the marks the word already has (the lowest
// id on a tie), less the marks at its end. Words the dictionary does not know, the
// delimiters of the classic DiacritizeDelimiters (blanks, line ends, punctuation,
// the Arabic comma, semicolon and question mark), NUL and every character that
// Windows-1256 cannot hold come through unchanged and end a word. Invalid UTF-8
// throws Error(bad_text).
//
// A diacritizer opens a folder once, which holds (Files):
//   forms.bin    the marked forms: a Dictionary, form id = record number
//   forms.sort   its sorted view (not read here)
//   forms.wild   its wildcard index
//   forms.freq   4-byte little-endian frequencies, entry i for form i; a form without
//                an entry is never chosen
//   forms.pair   optional, read by ContextDiacritizer only (described there)
//   manifest.json  optional; written and read by tools, never by the library
// Builder makes such a folder; the classic DiacritizeBuffer reads the same three
// files (forms.bin, forms.wild, forms.freq).
//
// Threads: diacritize, lookup and the streams may run on any number of threads at once
// on one shared diacritizer. A call takes a working set (open files, the wildcard
// index in memory, the cells of it expanded so far, the last words looked up) that no
// other call uses meanwhile, and gives it back; a second set is made only when all
// are busy, so memory grows with the number of threads that really run at once, each
// set up to the size of the wildcard index plus its expanded cells.
//
// Copies share the open folder; the folder's files must not change while it is open. A
// moved-from diacritizer is closed: its calls throw Error(closed).
class __attribute__((visibility("default"))) Diacritizer {
public:
    class Stream;
    class Builder;

    // The names of the folder's files.
    struct Files {
        // forms, sorted, wildcards, frequencies and manifest: as listed above.
        static constexpr std::string_view forms = "forms.bin";
        static constexpr std::string_view sorted = "forms.sort";
        static constexpr std::string_view wildcards = "forms.wild";
        static constexpr std::string_view frequencies = "forms.freq";
        static constexpr std::string_view manifest = "manifest.json";
        // Optional, read by ContextDiacritizer only: how often form b followed form a.
        static constexpr std::string_view pairs = "forms.pair";
    };

    // Opens the folder and makes a first working set, so missing or damaged files
    // show here: Error(not_found) with the path of the missing file, Error(invalid_file)
    // for a forms.bin or forms.wild that is no record file.
    explicit Diacritizer(const std::filesystem::path& folder);
    // Copies share the open folder and its working sets.
    Diacritizer(const Diacritizer&) noexcept;
    // The moved-from diacritizer is closed.
    Diacritizer(Diacritizer&&) noexcept;
    // Copies share the open folder and its working sets.
    Diacritizer& operator=(const Diacritizer&) noexcept;
    // The moved-from diacritizer is closed.
    Diacritizer& operator=(Diacritizer&&) noexcept;
    ~Diacritizer();

    // The folder given at opening; empty for a closed diacritizer.
    const std::filesystem::path& folder() const noexcept;
    // The number of forms.
    std::size_t size() const noexcept;

    // `text` with each word diacritized; everything else in its place.
    std::string diacritize(std::string_view text) const;
    // The chosen form of one word (marks at its end trimmed); empty when no form with a
    // frequency agrees with it, or it is no single word.
    std::optional<std::string> lookup(std::string_view word) const;
    // A stream over this diacritizer (which it keeps open, also past this object).
    Stream stream() const;

    // One result of forms().
    struct Form {
        std::string text;    // the marked form, in UTF-8
        std::size_t id = 0;  // its number in forms.bin
        // Its entry in forms.freq.
        std::uint32_t frequency = 0;
    };
    // The forms that match `pattern` (Dictionary::match_ids() says how patterns read),
    // most frequent first and the lowest id first among equals; forms without a
    // frequency are left out. At most `limit` of them; 0: all. Opens the folder's
    // dictionary once per call. Throws Error(bad_text) and Error(invalid_argument) for
    // a pattern as Dictionary::match_ids() does; an empty pattern matches nothing.
    std::vector<Form> forms(std::string_view pattern, std::size_t limit = 0) const;

    // Diacritizes text that comes in pieces, with the same result as diacritize() of
    // the whole. A piece may end inside a word or inside a UTF-8 sequence: feed()
    // holds back the trailing partial word (everything after the last word end) and
    // puts it in front of the next piece; finish() diacritizes what is held back. A
    // word that no form can match (more letters than the longest form has bytes, or
    // more marks on a letter than any form has there) is passed on unchanged as it
    // comes, so what is held back stays below L * (L + 2) bytes for a longest form of
    // L bytes, whatever the input. One thread at a time.
    class __attribute__((visibility("default"))) Stream {
    public:
        // The moved-from stream is closed: its calls throw Error(closed).
        Stream(Stream&&) noexcept;
        Stream& operator=(Stream&&) noexcept;
        ~Stream();
        // The diacritized text that `piece` completes; may be empty. Invalid UTF-8 throws
        // Error(bad_text) naming its byte offset from the start of the text (all pieces
        // since the last finish()).
        std::string feed(std::string_view piece);
        // The rest; the stream is empty afterwards and may take a new text. Throws
        // Error(bad_text) when the text ended inside a UTF-8 sequence.
        std::string finish();

    private:
        friend class Diacritizer;
        struct Impl;
        explicit Stream(std::unique_ptr<Impl> impl) noexcept;
        std::unique_ptr<Impl> impl_;
    };

    // Makes a diacritizer folder from forms and their counts. The files are written
    // into a ".build" folder inside `folder` and moved over the old ones only by
    // finish(), so a build that fails or is dropped leaves the folder as it was
    // (manifest.json is never touched). Memory: the forms and 4 bytes per form.
    // One thread at a time.
    class __attribute__((visibility("default"))) Builder {
    public:
        // Creates `folder` when missing. Throws Error from the file system.
        explicit Builder(const std::filesystem::path& folder);
        // The moved-from builder is closed: its calls throw Error(closed). The assignment
        // first removes what this builder built.
        Builder(Builder&&) noexcept;
        Builder& operator=(Builder&&) noexcept;
        // Without finish(): removes what was built; the folder stays as it was.
        ~Builder();
        // Adds `count` to the frequency of `form` (new forms start at 0; sums stop at
        // 2^31 - 1). Throws Error(bad_text) and Error(invalid_argument) as
        // Dictionary::add does, Error(closed) after finish().
        void add(std::string_view form, std::uint32_t count = 1);
        // Adds each word of a marked text, as split_words() cuts it, with a count of 1:
        // the way to count the forms of a corpus. Two words with only blanks and tabs
        // between them (also across calls: text may come in pieces cut anywhere between
        // words) count as a pair for forms.pair, and so do the sentence boundary and the
        // first word of a sentence, and its last word and the boundary; any other
        // delimiter, and finish(), end a sentence. Returns the number of words. Throws as
        // add() and split_words() do; the words before a failing one stay added.
        std::size_t add_text(std::string_view text);
        // The number of distinct forms added so far.
        std::size_t size() const;
        // The number of distinct pairs counted by add_text() so far.
        std::size_t pairs() const;
        // Writes the five files and moves them into the folder, telling `progress` (when
        // given) how the sorting and the indexing go. Throws Error, and what `progress`
        // throws; the builder is spent either way, and on failure the folder stays as it
        // was.
        void finish(const Progress& progress = {});

    private:
        struct Impl;
        std::unique_ptr<Impl> impl_;
    };

private:
    struct Impl;
    // The open folder; Error(closed) for a moved-from diacritizer.
    Impl& engine() const;
    std::shared_ptr<Impl> impl_;
};

// ---- ContextDiacritizer --------------------------------------------------------------

// A second way to restore marks, beside Diacritizer (whose results it never changes),
// for the best output rather than the classic one. It reads the same folder and adds
// two steps to the look-up:
//  - back-off: a word the dictionary does not know is split into proclitics (wa-, fa-,
//    bi-, ka-, li-, sa-, the article al-), a stem and a pronoun ending; the stem is
//    looked up, and the clitics are put back with their usual marks (the table is in
//    the source). Of all the splits whose stem is known, the one whose stem form is most
//    frequent wins, scored (frequency + 1) / 2^clitics; a word with no known stem stays
//    as it is;
//  - context: among the forms of an ambiguous word, the sentence's most likely sequence
//    of forms is chosen (an exact Viterbi search) under counts of adjacent form pairs
//    (forms.pair), smoothed towards the single-form counts (Witten-Bell). A sentence is
//    a run of words with only blanks and tabs between them; any other delimiter ends it.
// Unlike Diacritizer, a chosen form keeps its last marks (the case ending). Marks
// written in the input constrain the candidates as they do in Diacritizer; on the
// letters of a clitic they stand as written.
//
// forms.pair, written by Diacritizer::Builder: the classic CIXFile of 4-byte records
// (the format of forms.freq), three records per pair: the form id on the left, the form
// id on the right, and how often the right one followed the left one; -1 stands for
// the sentence boundary (on the left its start, on the right its end). Sorted by left
// then right id read as unsigned numbers (-1 last), each pair once. Without the file
// the context step is skipped (each word takes its most frequent form).
//
// One thread at a time (it keeps the candidates of the words seen).
class __attribute__((visibility("default"))) ContextDiacritizer {
public:
    // How far the restoration goes; each step includes the ones above it.
    enum class Steps {
        lookup,   // the classic choice, with the case ending kept
        backoff,  // + the back-off for unknown words
        context   // + the choice by context (when the folder has forms.pair)
    };

    // Opens the folder as Diacritizer does, and reads forms.pair whole when present.
    // Throws as Diacritizer's constructor, and Error(invalid_file) for a forms.pair whose
    // length is no multiple of 12 bytes or that names a form past the dictionary's end.
    explicit ContextDiacritizer(const std::filesystem::path& folder, Steps steps = Steps::context);
    // Moves take the open folder over; the moved-from object may only be destroyed or
    // assigned to.
    ContextDiacritizer(ContextDiacritizer&&) noexcept;
    ContextDiacritizer& operator=(ContextDiacritizer&&) noexcept;
    ~ContextDiacritizer();

    // True when the folder had forms.pair.
    bool has_context() const;
    // `text` with each word restored; everything but the words stays as it is, as in
    // Diacritizer::diacritize(). Invalid UTF-8 throws Error(bad_text).
    std::string diacritize(std::string_view text);
    // Text in pieces cut anywhere: feed() restores up to the last line end (or, after
    // 1 MiB without one, the last word end) and holds back the rest; finish() restores
    // what is held back. The result is that of diacritize() of the whole, but that a
    // sentence longer than 1 MiB is cut.
    std::string feed(std::string_view piece);
    std::string finish();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace dorvik

#include "dorvik/corpus.hpp"   // normalising a corpus, stripping and scoring marks
#include "dorvik/filekind.hpp"  // telling files apart and checking them
#include "dorvik/query.hpp"    // boolean word queries over an inverted index
#include "dorvik/tree.hpp"     // trees of numbered pieces: files and their units
