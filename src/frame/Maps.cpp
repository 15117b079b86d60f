#include "dorvik/Maps.h"

#include <malloc.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include "dorvik/Exceptions.h"

namespace dorvik::classic {
namespace {
// Pairs in insertion order. Up to kScanLimit keys a scan is faster than hashing; above
// it an open-addressed table of entry indexes, at most half full, finds a key.
template <typename V>
class StringTable {
public:
    struct Entry {
        CString key;
        V value;
    };

    int Count() const { return static_cast<int>(m_entries.size()); }
    Entry* At(int index) {
        return index >= 0 && index < Count() ? &m_entries[static_cast<std::size_t>(index)]
                                             : nullptr;
    }
    const Entry* At(int index) const { return const_cast<StringTable*>(this)->At(index); }

    // The index of `key`, or -1.
    int Find(const char* key) const {
        std::size_t length = std::strlen(key);
        if (m_slots.empty()) {
            for (std::size_t i = 0; i < m_entries.size(); ++i)
                if (Equal(m_entries[i].key, key, length)) return static_cast<int>(i);
            return -1;
        }
        std::size_t mask = m_slots.size() - 1;
        for (std::size_t s = Hash(key, length) & mask;; s = (s + 1) & mask) {
            int i = m_slots[s];
            if (i < 0) return -1;
            if (Equal(m_entries[static_cast<std::size_t>(i)].key, key, length)) return i;
        }
    }

    // The value of `key`, made with V() when the key is new.
    V& Get(const char* key) {
        int i = Find(key);
        if (i >= 0) return m_entries[static_cast<std::size_t>(i)].value;
        m_entries.push_back(Entry{CString(key), V()});
        if (m_entries.size() > kScanLimit) {
            if (m_slots.size() < 2 * m_entries.size())
                Rebuild();
            else
                Place(m_entries.size() - 1);
        }
        return m_entries.back().value;
    }

    bool Remove(const char* key) {
        int i = Find(key);
        if (i < 0) return false;
        m_entries.erase(m_entries.begin() + i);
        if (m_entries.size() <= kScanLimit)
            m_slots.clear();
        else
            Rebuild();
        return true;
    }

private:
    static constexpr std::size_t kScanLimit = 8;

    static bool Equal(const CString& a, const char* b, std::size_t length) {
        return static_cast<std::size_t>(a.GetLength()) == length &&
               std::memcmp(static_cast<const char*>(a), b, length) == 0;
    }
    // FNV-1a.
    static std::size_t Hash(const char* key, std::size_t length) {
        std::uint64_t h = 14695981039346656037ull;
        for (std::size_t i = 0; i < length; ++i) {
            h ^= static_cast<unsigned char>(key[i]);
            h *= 1099511628211ull;
        }
        return static_cast<std::size_t>(h ^ (h >> 29));
    }
    void Place(std::size_t index) {
        const CString& key = m_entries[index].key;
        std::size_t mask = m_slots.size() - 1;
        std::size_t s = Hash(key, static_cast<std::size_t>(key.GetLength())) & mask;
        while (m_slots[s] >= 0) s = (s + 1) & mask;
        m_slots[s] = static_cast<int>(index);
    }
    void Rebuild() {
        std::size_t size = 16;
        while (size < 4 * m_entries.size()) size *= 2;
        m_slots.assign(size, -1);
        for (std::size_t i = 0; i < m_entries.size(); ++i) Place(i);
    }

    std::vector<Entry> m_entries;
    std::vector<int> m_slots;
};

const char* KeyOf(const char* key) { return key ? key : ""; }

// Positions stand for entry index + 1, so that the null position ends a walk.
POSITION ToPosition(int index) {
    return reinterpret_cast<POSITION>(static_cast<std::uintptr_t>(index) + 1);
}
int FromPosition(POSITION position) {
    return static_cast<int>(reinterpret_cast<std::uintptr_t>(position)) - 1;
}

template <typename Table>
POSITION StartOf(const Table* table) {
    return table && table->Count() > 0 ? ToPosition(0) : nullptr;
}

// Gives the entry at `position` (null when it stands for none) and moves it on.
template <typename Table>
const typename Table::Entry* Advance(const Table* table, POSITION& position) {
    const typename Table::Entry* entry =
        table && position ? table->At(FromPosition(position)) : nullptr;
    int next = entry ? FromPosition(position) + 1 : -1;
    position = entry && next < table->Count() ? ToPosition(next) : nullptr;
    return entry;
}
}  // namespace

// The packed form: behind this header, "key\0value\0" for each pair in insertion
// order, in one block of the C heap. A Hashed (made with new, `hashed` set) takes over
// past kPackedLimit pairs, or once operator[] hands out a reference, for good.
struct CMapStringToString::Table {
    std::uint32_t count;
    std::uint32_t used;      // bytes of pairs
    std::uint32_t capacity;  // bytes for pairs behind the header
    std::uint32_t hashed;

    static constexpr std::uint32_t kPackedLimit = 8;

    char* Bytes() { return reinterpret_cast<char*>(this + 1); }
    // The pair that starts at `at`: the key, then the value behind its NUL.
    static const char* ValueOf(const char* at) { return at + std::strlen(at) + 1; }
    static const char* Behind(const char* at) {
        const char* value = ValueOf(at);
        return value + std::strlen(value) + 1;
    }

    // The offset of the pair of `key`, or -1.
    long Find(const char* key) {
        std::size_t length = std::strlen(key);
        for (const char* at = Bytes(); at < Bytes() + used; at = Behind(at))
            if (std::strlen(at) == length && std::memcmp(at, key, length) == 0) return at - Bytes();
        return -1;
    }

    // Room for `need` bytes of pairs; the block may move.
    static Table* Reserve(Table* table, std::size_t need) {
        std::size_t capacity = table ? table->capacity : 0;
        if (table && need <= capacity) return table;
        std::size_t wanted = std::max(need, capacity + capacity / 2);
        auto* grown = static_cast<Table*>(std::realloc(table, sizeof(Table) + wanted));
        if (!grown) throw CMemoryException();
        if (!table) grown->count = grown->used = grown->hashed = 0;
        grown->capacity = static_cast<std::uint32_t>(malloc_usable_size(grown) - sizeof(Table));
        return grown;
    }
};

struct CMapStringToString::Hashed : CMapStringToString::Table {
    StringTable<CString> pairs;
};

CMapStringToString::CMapStringToString(int) {}
CMapStringToString::~CMapStringToString() { RemoveAll(); }

int CMapStringToString::GetCount() const {
    if (!m_pTable) return 0;
    return m_pTable->hashed ? static_cast<Hashed*>(m_pTable)->pairs.Count()
                            : static_cast<int>(m_pTable->count);
}

POSITION CMapStringToString::GetStartPosition() const {
    return GetCount() ? ToPosition(0) : nullptr;
}

void CMapStringToString::GetNextAssoc(POSITION& position, CString& key, CString& value) const {
    if (m_pTable && m_pTable->hashed) {
        const auto* entry = Advance(&static_cast<Hashed*>(m_pTable)->pairs, position);
        key = entry ? entry->key : CString();
        value = entry ? entry->value : CString();
        return;
    }
    // Packed positions are the offset of a pair, plus 1.
    int at = FromPosition(position);
    if (!m_pTable || !position || at < 0 || static_cast<std::uint32_t>(at) >= m_pTable->used) {
        key = value = CString();
        position = nullptr;
        return;
    }
    const char* pair = m_pTable->Bytes() + at;
    key = pair;
    value = Table::ValueOf(pair);
    int next = static_cast<int>(Table::Behind(pair) - m_pTable->Bytes());
    position = static_cast<std::uint32_t>(next) < m_pTable->used ? ToPosition(next) : nullptr;
}

BOOL CMapStringToString::Lookup(const char* key, CString& value) const {
    if (!m_pTable) return 0;
    key = KeyOf(key);
    if (m_pTable->hashed) {
        const auto& pairs = static_cast<Hashed*>(m_pTable)->pairs;
        int i = pairs.Find(key);
        if (i < 0) return 0;
        value = pairs.At(i)->value;
        return 1;
    }
    long at = m_pTable->Find(key);
    if (at < 0) return 0;
    value = Table::ValueOf(m_pTable->Bytes() + at);
    return 1;
}

void CMapStringToString::SetAt(const char* key, const char* value) {
    key = KeyOf(key);
    value = value ? value : "";
    if (m_pTable && m_pTable->hashed) {
        CString copy(value);  // `value` may lie in an entry that the insertion moves
        static_cast<Hashed*>(m_pTable)->pairs.Get(key) = std::move(copy);
        return;
    }
    long at = m_pTable ? m_pTable->Find(key) : -1;
    if (at < 0 && m_pTable && m_pTable->count == Table::kPackedLimit) {
        (*this)[key] = value;  // the ninth key: over to the hash table
        return;
    }
    std::size_t valueLength = std::strlen(value);
    if (at < 0) {
        std::size_t keyLength = std::strlen(key);
        std::size_t used = m_pTable ? m_pTable->used : 0;
        m_pTable = Table::Reserve(m_pTable, used + keyLength + valueLength + 2);
        char* pair = m_pTable->Bytes() + used;
        std::memcpy(pair, key, keyLength + 1);
        std::memcpy(pair + keyLength + 1, value, valueLength + 1);
        m_pTable->used += static_cast<std::uint32_t>(keyLength + valueLength + 2);
        ++m_pTable->count;
        return;
    }
    // Replace in place, moving the pairs behind it.
    std::size_t valueAt =
        static_cast<std::size_t>(Table::ValueOf(m_pTable->Bytes() + at) - m_pTable->Bytes());
    std::size_t oldLength = std::strlen(m_pTable->Bytes() + valueAt);
    std::size_t used = m_pTable->used - oldLength + valueLength;
    m_pTable = Table::Reserve(m_pTable, used);
    char* bytes = m_pTable->Bytes();
    std::memmove(bytes + valueAt + valueLength + 1, bytes + valueAt + oldLength + 1,
                 m_pTable->used - valueAt - oldLength - 1);
    std::memcpy(bytes + valueAt, value, valueLength);
    bytes[valueAt + valueLength] = '\0';
    m_pTable->used = static_cast<std::uint32_t>(used);
}

CString& CMapStringToString::operator[](const char* key) {
    if (!m_pTable || !m_pTable->hashed) {
        // A reference must outlive later insertions: move the pairs to the hash table.
        auto hashed = std::make_unique<Hashed>();
        hashed->count = hashed->used = hashed->capacity = 0;
        hashed->hashed = 1;
        if (m_pTable) {
            for (const char* at = m_pTable->Bytes(); at < m_pTable->Bytes() + m_pTable->used;
                 at = Table::Behind(at))
                hashed->pairs.Get(at) = Table::ValueOf(at);
            std::free(m_pTable);
        }
        m_pTable = hashed.release();
    }
    return static_cast<Hashed*>(m_pTable)->pairs.Get(KeyOf(key));
}

BOOL CMapStringToString::RemoveKey(const char* key) {
    if (!m_pTable) return 0;
    key = KeyOf(key);
    if (m_pTable->hashed) return static_cast<Hashed*>(m_pTable)->pairs.Remove(key) ? 1 : 0;
    long at = m_pTable->Find(key);
    if (at < 0) return 0;
    char* pair = m_pTable->Bytes() + at;
    const char* behind = Table::Behind(pair);
    std::size_t length = static_cast<std::size_t>(behind - pair);
    std::memmove(pair, behind, m_pTable->used - static_cast<std::size_t>(at) - length);
    m_pTable->used -= static_cast<std::uint32_t>(length);
    --m_pTable->count;
    return 1;
}

void CMapStringToString::RemoveAll() {
    if (m_pTable && m_pTable->hashed)
        delete static_cast<Hashed*>(m_pTable);
    else
        std::free(m_pTable);
    m_pTable = nullptr;
}

struct CMapStringToPtr::Table : StringTable<void*> {};

CMapStringToPtr::CMapStringToPtr(int) {}
CMapStringToPtr::~CMapStringToPtr() { delete m_pTable; }

int CMapStringToPtr::GetCount() const { return m_pTable ? m_pTable->Count() : 0; }

POSITION CMapStringToPtr::GetStartPosition() const { return StartOf(m_pTable); }

void CMapStringToPtr::GetNextAssoc(POSITION& position, CString& key, void*& value) const {
    const Table::Entry* entry = Advance(m_pTable, position);
    key = entry ? entry->key : CString();
    value = entry ? entry->value : nullptr;
}

BOOL CMapStringToPtr::Lookup(const char* key, void*& value) const {
    int i = m_pTable ? m_pTable->Find(KeyOf(key)) : -1;
    if (i < 0) return 0;
    value = m_pTable->At(i)->value;
    return 1;
}

void CMapStringToPtr::SetAt(const char* key, void* value) { (*this)[key] = value; }

void*& CMapStringToPtr::operator[](const char* key) {
    if (!m_pTable) m_pTable = new Table;
    return m_pTable->Get(KeyOf(key));
}

BOOL CMapStringToPtr::RemoveKey(const char* key) {
    return m_pTable && m_pTable->Remove(KeyOf(key)) ? 1 : 0;
}

void CMapStringToPtr::RemoveAll() {
    delete m_pTable;
    m_pTable = nullptr;
}

}  // namespace dorvik::classic
