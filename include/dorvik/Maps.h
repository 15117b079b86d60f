// Maps of the platform, keyed by strings: to strings (the attributes of an XML node)
// and to pointers (the children of an XML node by name).
//
// Keys compare exactly, byte by byte, up to their terminating NUL; case counts. The
// iteration order is the order of insertion: a key keeps its place when its value is
// replaced, and comes last when it is removed and set again. An empty map holds no
// block; small maps are searched by a scan, maps of more than eight keys through a hash
// table, so that look-up costs O(1) on average. RemoveKey costs O(n).
//
// A map is one pointer and has no base class (nothing uses it as a CObject), so that
// the many small maps of an XML tree stay small. Up to eight pairs of a string map sit
// packed in one block until operator[] hands out a reference.
//
// Positions are handed out by GetStartPosition and moved by GetNextAssoc; any change to
// the map makes them and the references of operator[] invalid. Not safe for concurrent
// use; const operations may run on several threads at once.
#pragma once

#include "Platform.h"
#include "String.h"

namespace dorvik::classic {
class DORVIK_API CMapStringToString {
public:
    // `blockSize` is accepted for compatibility; memory grows as needed.
    explicit CMapStringToString(int blockSize = 10);
    ~CMapStringToString();
    CMapStringToString(const CMapStringToString&) = delete;
    CMapStringToString& operator=(const CMapStringToString&) = delete;

    int GetCount() const;
    bool IsEmpty() const { return GetCount() == 0; }

    // The position of the first pair; null for an empty map.
    POSITION GetStartPosition() const;
    // Gives the pair at `position` and moves it to the next one; null after the last
    // pair. A position that does not stand for a pair gives two empty strings and null.
    void GetNextAssoc(POSITION& position, CString& key, CString& value) const;

    // Nonzero, with the value in `value`, when `key` is there; 0 and `value` untouched
    // otherwise. A null key stands for the empty key, here and in every operation.
    BOOL Lookup(const char* key, CString& value) const;
    // Sets or replaces the value of `key` (a null value is the empty string).
    void SetAt(const char* key, const char* value);
    // The value of `key`; a new key is inserted with the empty value first. The
    // reference stays valid until the map changes.
    CString& operator[](const char* key);

    // Nonzero when the key was there and is now removed.
    BOOL RemoveKey(const char* key);
    void RemoveAll();

private:
    struct Table;
    struct Hashed;
    Table* m_pTable = nullptr;
};

class DORVIK_API CMapStringToPtr {
public:
    // `blockSize` is accepted for compatibility; memory grows as needed.
    explicit CMapStringToPtr(int blockSize = 10);
    ~CMapStringToPtr();
    CMapStringToPtr(const CMapStringToPtr&) = delete;
    CMapStringToPtr& operator=(const CMapStringToPtr&) = delete;

    int GetCount() const;
    bool IsEmpty() const { return GetCount() == 0; }

    // As CMapStringToString. The map owns none of the pointees.
    POSITION GetStartPosition() const;
    void GetNextAssoc(POSITION& position, CString& key, void*& value) const;
    BOOL Lookup(const char* key, void*& value) const;
    void SetAt(const char* key, void* value);
    // The pointer under `key`; a new key is inserted with null first.
    void*& operator[](const char* key);
    BOOL RemoveKey(const char* key);
    void RemoveAll();

private:
    struct Table;
    Table* m_pTable = nullptr;
};

}  // namespace dorvik::classic

using dorvik::classic::CMapStringToPtr;
using dorvik::classic::CMapStringToString;
