// Value keys and the sort tree: CInt, CBuffer, CIXRecord, the record decoding rule
// GetRecordValue, and CSortTree, an ordered binary tree that turns keys with ids into
// a permutation (the ids in key order) for a number array or an integer index file.
#pragma once

#include <cstring>
#include <new>

#include "Arrays.h"
#include "Exceptions.h"
#include "IXFile.h"
#include "MyDWordArray.h"
#include "Platform.h"

namespace dorvik::classic {
// The number held in the raw little-endian bytes of one integer record: size 1 gives
// the byte (0..255), size 2 the 16-bit word (0..65535), size 3 -1 when bit 23 is set and
// else the low 23 bits; size 4 and above the first 4 bytes as a signed number. A null
// record, or a size below 1, reads nothing and gives 0.
DORVIK_API int GetRecordValue(const void* record, int size);

// A key that orders as a signed 32-bit number (so 0xFFFFFFFF sorts as -1, below 0).
class DORVIK_API CInt {
public:
    CInt() = default;
    CInt(int value) : m_nValue(value) {}
    CInt(const CInt&) = default;
    CInt& operator=(const CInt&) = default;
    void operator=(int value) { m_nValue = value; }
    bool operator==(int value) const { return m_nValue == value; }
    // 0 when equal, 1 when this value is greater, -1 when less; signed.
    int Compare(int value) const { return m_nValue == value ? 0 : (m_nValue > value ? 1 : -1); }
    int Compare(const CInt& other) const { return Compare(other.m_nValue); }
    // The address of the value (4 bytes, host order); the argument is not used.
    char* GetBuffer(int = 0) { return reinterpret_cast<char*>(&m_nValue); }
    int GetLength() const { return 4; }

    int m_nValue = 0;
};

// A key over bytes it does not own: copying copies the pointer. Orders by unsigned
// byte value over the shorter length, then the shorter key first; an empty key sorts
// before every other.
class DORVIK_API CBuffer {
public:
    CBuffer() = default;
    CBuffer(unsigned char* buffer, int length) : m_pBuffer(buffer), m_nLength(length) {}
    CBuffer(const CBuffer&) = default;
    CBuffer& operator=(const CBuffer&) = default;
    // Negative, 0 or positive, as described above.
    int Compare(const CBuffer& other) const {
        return CompareBytes(m_pBuffer, m_nLength, other.m_pBuffer, other.m_nLength);
    }
    bool operator==(const CBuffer& other) const { return Compare(other) == 0; }
    int GetLength() const { return m_nLength; }
    // The pointer; the argument is not used.
    char* GetBuffer(int = 0) { return reinterpret_cast<char*>(m_pBuffer); }

    // The key comparison shared with CBufferRef; lengths below 0 count as 0.
    static int CompareBytes(const void* a, int lengthA, const void* b, int lengthB) {
        if (lengthA < 0) lengthA = 0;
        if (lengthB < 0) lengthB = 0;
        int common = lengthA < lengthB ? lengthA : lengthB;
        if (common > 0) {
            int c = std::memcmp(a, b, static_cast<std::size_t>(common));
            if (c != 0) return c;
        }
        return lengthA == lengthB ? 0 : (lengthA < lengthB ? -1 : 1);
    }

    unsigned char* m_pBuffer = nullptr;
    int m_nLength = 0;
};

// The key of the text file's sort tree (internal to the library): a record inside a
// memory image that may be reallocated while keys refer to it, so the image start is
// read through `m_ppImage` at every use. Orders as CBuffer. Owns nothing.
class CBufferRef {
public:
    CBufferRef() = default;
    CBufferRef(char** image, int offset, int length)
        : m_ppImage(image), m_nOffset(offset), m_nLength(length) {}
    CBufferRef(const CBufferRef&) = default;
    CBufferRef& operator=(const CBufferRef&) = default;
    int Compare(const CBufferRef& other) const {
        return CBuffer::CompareBytes(Bytes(), m_nLength, other.Bytes(), other.m_nLength);
    }
    int GetLength() const { return m_nLength; }
    // The image start plus the offset; the argument is not used.
    char* GetBuffer(int = 0) { return const_cast<char*>(Bytes()); }

    char** m_ppImage = nullptr;
    int m_nOffset = 0;
    int m_nLength = 0;

private:
    const char* Bytes() const {
        return (m_ppImage && *m_ppImage) ? *m_ppImage + m_nOffset : nullptr;
    }
};

// One record of an integer index file seen as a value: an id, the record's bytes (not
// owned) and its size. Set the fields directly or through the constructor.
class DORVIK_API CIXRecord {
public:
    CIXRecord() = default;
    CIXRecord(int id, unsigned char* buffer, int size)
        : m_nID(id), m_pBuffer(buffer), m_nSize(size) {}
    CIXRecord(const CIXRecord&) = default;
    void operator=(const CIXRecord& other) {
        m_nID = other.m_nID;
        m_pBuffer = other.m_pBuffer;
        m_nSize = other.m_nSize;
    }
    // 1 when there are no bytes (null pointer), else 0.
    int IsEmpty() const { return m_pBuffer ? 0 : 1; }
    int GetID() const { return m_nID; }
    // 1 when the first m_nSize bytes (this record's size) of both are equal; ids are
    // not compared. Two null records are equal; a null and a non-null one are not.
    int operator==(const CIXRecord& other) const {
        if (m_nSize <= 0) return 1;
        if (!m_pBuffer || !other.m_pBuffer) return m_pBuffer == other.m_pBuffer ? 1 : 0;
        return std::memcmp(m_pBuffer, other.m_pBuffer, static_cast<std::size_t>(m_nSize)) == 0 ? 1
                                                                                               : 0;
    }
    // Both records decoded by GetRecordValue with this record's size, compared signed.
    int operator>(const CIXRecord& other) const {
        return GetRecordValue(m_pBuffer, m_nSize) > GetRecordValue(other.m_pBuffer, m_nSize) ? 1
                                                                                             : 0;
    }
    int operator<(const CIXRecord& other) const {
        return GetRecordValue(m_pBuffer, m_nSize) < GetRecordValue(other.m_pBuffer, m_nSize) ? 1
                                                                                             : 0;
    }

    int m_nID = 0;
    unsigned char* m_pBuffer = nullptr;
    int m_nSize = 0;
};

// An ordered, unbalanced binary tree of keys with integer ids. It hands the ids back
// in key order (a permutation); equal keys share one node and keep their ids in
// insertion order, so the order is stable. KEY needs a default constructor,
// assignment and `int Compare(const KEY&) const` (negative, 0, positive).
//
// Ascending and descending input cost two or three comparisons per key; keys between
// the extremes walk down from the root. No operation recurses, so a degenerate
// (chain-shaped) tree of millions of nodes is fine. Not safe for concurrent use.
template <class KEY>
class CSortTree {
public:
    // One key of the tree. The tree owns its nodes; a node owns its extra ids.
    class CSortTreeNode {
    public:
        CSortTreeNode() = default;
        ~CSortTreeNode() { delete m_pExtraIDs; }
        CSortTreeNode(const CSortTreeNode&) = delete;
        CSortTreeNode& operator=(const CSortTreeNode&) = delete;

        CSortTreeNode* m_pParent = nullptr;  // null at the root
        CSortTreeNode* m_pLeft = nullptr;    // smaller keys
        CSortTreeNode* m_pRight = nullptr;   // larger keys
        KEY m_Key{};
        // 1 when made; in a count-only tree raised by every repeat of the key.
        int m_nOccurrences = 0;
        // The id given with the first insertion of the key.
        int m_nID = 0;
        // The ids of the repeats in insertion order (not in a count-only tree); null
        // until the key repeats.
        CDWordArray* m_pExtraIDs = nullptr;
    };

    CSortTree() = default;
    ~CSortTree() { RemoveAll(); }
    CSortTree(const CSortTree&) = delete;
    CSortTree& operator=(const CSortTree&) = delete;

    // Adds `key` with `id` (-1 stands for the current count) and returns the node that
    // holds the key. A repeated key makes no node: in a count-only tree it raises the
    // node's occurrences and leaves the count; otherwise `id` joins the node's extra
    // ids and the count rises by 1. Throws CMemoryException when a node or an extra id
    // array cannot be had; the tree is then unchanged.
    CSortTreeNode* Insert(KEY key, int id = -1);

    // Empties `target` (CIXFile::RemoveAll or CMyDWordArray::RemoveAll) and appends
    // every id in key order, rising when `ascending`, else falling; equal keys give
    // their ids in insertion order either way. A count-only tree gives each key's
    // first id once. `progress`, when given, is called before every step of the walk
    // with (ids done, count) and its result is ignored; an empty tree never calls it.
    // A file target gets the ids in its own record size, appended in one write.
    // Throws CFileException from the file, CMemoryException.
    void Save(CIXFile* target, bool ascending, bool (*progress)(int, int));
    void Save(CMyDWordArray* target, bool ascending, bool (*progress)(int, int));

    // The number of ids held: one per node, plus one per extra id.
    int GetCount() const { return m_nCount; }

    // Deletes all nodes; the count becomes 0. The count-only flag keeps its value.
    void RemoveAll();

    // When true, a repeated key only raises its node's occurrences. Written directly
    // by its users; change it only while the tree is empty.
    bool m_bCountOnly = false;

protected:
    // Walks the tree in key order and passes the ids to `sink` (a callable taking a
    // DWORD). Stackless: it moves along parent links and knows from which side it came
    // back up, which visits the nodes in the same order as marking visited ids would.
    template <class SINK>
    void Walk(bool ascending, bool (*progress)(int, int), SINK sink);
    // The ids in key order, collected for a bulk append.
    void Collect(bool ascending, bool (*progress)(int, int), CDWordArray& ids);

    CSortTreeNode* m_pRoot = nullptr;     // the first node inserted
    CSortTreeNode* m_pLowest = nullptr;   // the node with the smallest key
    CSortTreeNode* m_pHighest = nullptr;  // the node with the largest key
    int m_nCount = 0;
};

template <class KEY>
typename CSortTree<KEY>::CSortTreeNode* CSortTree<KEY>::Insert(KEY key, int id) {
    CSortTreeNode* node;
    int c;
    if (!m_pRoot) {
        node = nullptr;
        c = 0;
    } else if ((c = m_pLowest->m_Key.Compare(key)) >= 0) {
        node = m_pLowest;
    } else if ((c = m_pHighest->m_Key.Compare(key)) <= 0) {
        node = m_pHighest;
    } else {
        node = m_pRoot;
        c = node->m_Key.Compare(key);
    }
    // Descend to the node of an equal key, or to the free link where the key belongs.
    CSortTreeNode* parent = nullptr;
    bool left = false;
    while (node) {
        if (c == 0) {
            if (m_bCountOnly) {
                ++node->m_nOccurrences;
                return node;
            }
            if (!node->m_pExtraIDs) {
                CDWordArray* extra = new (std::nothrow) CDWordArray;
                if (!extra) throw CMemoryException();
                try {
                    extra->SetSize(0, 1024);
                    extra->Add(static_cast<DWORD>(id == -1 ? m_nCount : id));
                } catch (...) {
                    delete extra;
                    throw;
                }
                node->m_pExtraIDs = extra;
            } else {
                node->m_pExtraIDs->Add(static_cast<DWORD>(id == -1 ? m_nCount : id));
            }
            ++m_nCount;
            return node;
        }
        CSortTreeNode* next = c > 0 ? node->m_pLeft : node->m_pRight;
        if (!next) {
            parent = node;
            left = c > 0;
            break;
        }
        node = next;
        c = node->m_Key.Compare(key);
    }

    CSortTreeNode* fresh = new (std::nothrow) CSortTreeNode;
    if (!fresh) throw CMemoryException();
    fresh->m_Key = key;
    fresh->m_nID = id == -1 ? m_nCount : id;
    fresh->m_nOccurrences = 1;
    fresh->m_pParent = parent;
    if (!parent) {
        m_pRoot = m_pLowest = m_pHighest = fresh;
    } else if (left) {
        parent->m_pLeft = fresh;
        // Only a left child of the leftmost node can be a new minimum.
        if (parent == m_pLowest) m_pLowest = fresh;
    } else {
        parent->m_pRight = fresh;
        if (parent == m_pHighest) m_pHighest = fresh;
    }
    ++m_nCount;
    return fresh;
}

template <class KEY>
template <class SINK>
void CSortTree<KEY>::Walk(bool ascending, bool (*progress)(int, int), SINK sink) {
    const int count = m_nCount;
    int remaining = count;
    CSortTreeNode* node = m_pRoot;
    // Where the walk stands at `node`: just arrived from above, back from the first
    // subtree, the node itself given out, or back from the second subtree. Every
    // move and every visit is one step.
    enum { Arrived, FirstDone, NodeDone, SecondDone } state = Arrived;
    while (remaining > 0 && node) {
        if (progress) progress(count - remaining, count);
        CSortTreeNode* first = ascending ? node->m_pLeft : node->m_pRight;
        CSortTreeNode* second = ascending ? node->m_pRight : node->m_pLeft;
        if (state == Arrived && first) {
            node = first;
        } else if (state == Arrived || state == FirstDone) {
            sink(static_cast<DWORD>(node->m_nID));
            --remaining;
            if (!m_bCountOnly && node->m_pExtraIDs) {
                const CDWordArray& extra = *node->m_pExtraIDs;
                for (int i = 0; i < extra.GetSize(); ++i) {
                    sink(extra.GetData()[i]);
                    --remaining;
                }
            }
            state = NodeDone;
        } else if (state == NodeDone && second) {
            node = second;
            state = Arrived;
        } else {
            CSortTreeNode* parent = node->m_pParent;
            if (parent)
                state = ((ascending ? parent->m_pLeft : parent->m_pRight) == node) ? FirstDone
                                                                                   : SecondDone;
            node = parent;
        }
    }
}

template <class KEY>
void CSortTree<KEY>::Collect(bool ascending, bool (*progress)(int, int), CDWordArray& ids) {
    ids.SetSize(m_nCount, 1024);
    DWORD* out = ids.GetData();
    int n = 0;
    Walk(ascending, progress, [&](DWORD id) {
        if (n < ids.GetSize()) out[n++] = id;
    });
    ids.SetSize(n, -1);
}

template <class KEY>
void CSortTree<KEY>::Save(CIXFile* target, bool ascending, bool (*progress)(int, int)) {
    if (!target) return;
    target->RemoveAll();
    CDWordArray ids;
    Collect(ascending, progress, ids);
    target->AddRecords(ids.GetData(), ids.GetSize());
}

template <class KEY>
void CSortTree<KEY>::Save(CMyDWordArray* target, bool ascending, bool (*progress)(int, int)) {
    if (!target) return;
    target->RemoveAll();
    CDWordArray ids;
    Collect(ascending, progress, ids);
    target->Append(ids);
}

template <class KEY>
void CSortTree<KEY>::RemoveAll() {
    // Post-order deletion along parent links: step down while there is a child, delete
    // a leaf and step back to its parent.
    CSortTreeNode* node = m_pRoot;
    while (node) {
        if (node->m_pLeft) {
            node = node->m_pLeft;
        } else if (node->m_pRight) {
            node = node->m_pRight;
        } else {
            CSortTreeNode* parent = node->m_pParent;
            if (parent) {
                if (parent->m_pLeft == node)
                    parent->m_pLeft = nullptr;
                else
                    parent->m_pRight = nullptr;
            }
            delete node;
            node = parent;
        }
    }
    m_pRoot = m_pLowest = m_pHighest = nullptr;
    m_nCount = 0;
}

}  // namespace dorvik::classic

using dorvik::classic::CBuffer;
using dorvik::classic::CBufferRef;
using dorvik::classic::CInt;
using dorvik::classic::CIXRecord;
using dorvik::classic::CSortTree;
using dorvik::classic::GetRecordValue;
