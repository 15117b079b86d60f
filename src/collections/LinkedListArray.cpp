// Linked list arrays: values chained per list in a temporary node file.
#include <cstdint>
#include <cstring>

#include "dorvik/Collections.h"

#include "collections/CollectionFrame.h"
#include "frame/TempFile.h"

using namespace dorvik::collections;

namespace {
constexpr SaveRules kArrayRules{true, true};
constexpr SaveRules kCollectionRules{true, false};
constexpr UINT kNodeFileMode = CFile::modeCreate | CFile::shareDenyNone | CFile::modeReadWrite;

// A slot holds a file position, not a pointer.
DWORD Head(const CPtrArray& array, int list) {
    return static_cast<DWORD>(reinterpret_cast<std::uintptr_t>(array.GetAt(list)));
}

void* AsSlot(DWORD position) { return reinterpret_cast<void*>(std::uintptr_t{position}); }

// Puts the node file's position back where AddValue expects it, at the end, when a
// walk is over or has failed.
class KeepPosition {
public:
    explicit KeepPosition(CFile& file) : m_file(file), m_position(file.GetPosition()) {}
    ~KeepPosition() {
        try {
            m_file.Seek(static_cast<LONG>(m_position), CFile::begin);
        } catch (const CFileException&) {
            // A seek from the beginning to where the file was fails only on a closed file.
        }
    }
    KeepPosition(const KeepPosition&) = delete;
    KeepPosition& operator=(const KeepPosition&) = delete;
    DWORD Position() const { return m_position; }

private:
    CFile& m_file;
    DWORD m_position;
};
}  // namespace

CLinkedListArray::CLinkedListArray() {
    MakeTempFileName(m_strTempName, "egy");
    CFileException error;
    if (!m_TempFile.Open(m_strTempName, kNodeFileMode, &error)) {
        try {
            CFile::Remove(m_strTempName);
        } catch (const CFileException&) {
            // Reported below: the node file could not be opened.
        }
        throw error;
    }
    // Two small writes per value: gathering them saves a system call each.
    m_TempFile.SetWriteBehind(true);
}

CLinkedListArray::~CLinkedListArray() { EndNodeFile(); }

void CLinkedListArray::EndNodeFile() noexcept {
    if (m_strTempName.IsEmpty()) return;
    CString name = m_strTempName;
    m_strTempName.Empty();
    try {
        m_TempFile.Close();
    } catch (const CFileException&) {
        // Whatever was still gathered is of no use once the file goes.
    }
    try {
        CFile::Remove(name);
    } catch (const CFileException&) {
        // Nothing more can be done for a node file that cannot be removed.
    }
}

void CLinkedListArray::RequireNodeFile() const {
    if (m_strTempName.IsEmpty()) throw CFileException(CFileException::invalidFile, -1, nullptr);
}

int CLinkedListArray::AddValue(int list, int value) {
    RequireNodeFile();
    if (list < 0) return 0;
    if (list >= GetSize()) SetAtGrow(list, nullptr);
    // The position stays at the end of the node file between calls.
    DWORD end = m_TempFile.GetPosition();
    DWORD node[2] = {static_cast<DWORD>(value), Head(*this, list)};
    m_TempFile.Write(node, sizeof node);
    SetAt(list, AsSlot(end + 4));
    return 0;
}

template <class Visit>
void CLinkedListArray::Walk(int list, Visit visit) {
    DWORD head = Head(*this, list);
    if (head == 0) return;
    KeepPosition keep(m_TempFile);
    // Links always lead to an earlier node, so a link that does not is the end.
    for (DWORD next; head >= 4 && head + 4 <= keep.Position(); head = next) {
        m_TempFile.Seek(static_cast<LONG>(head - 4), CFile::begin);
        DWORD node[2];
        if (m_TempFile.Read(node, sizeof node) != sizeof node) return;
        visit(static_cast<int>(node[0]));
        next = node[1];
        if (next >= head) return;
    }
}

void CLinkedListArray::GetRecord(int list, CBitArray& bits) {
    RequireNodeFile();
    bits.FreeBuffer();
    if (list < 0 || list >= GetSize()) return;
    Walk(list, [&](int value) { bits.SetAt(value); });
}

void CLinkedListArray::GetRecord(int list, CDWordArray& values) {
    RequireNodeFile();
    values.RemoveAll();
    if (list < 0 || list >= GetSize()) return;
    values.SetSize(0, 1024);
    Walk(list, [&](int value) { values.Add(static_cast<DWORD>(value)); });
}

void CLinkedListArray::Save(const char* path, Operation op, bool free, bool packed,
                            Progress progress) {
    RequireNodeFile();
    CBitsBinFile file(path, OpenMode(path, op == opCopy));
    Save(&file, op, free, packed, progress);
}

void CLinkedListArray::Save(CBitsBinFile* file, Operation op, bool free, bool packed,
                            Progress progress) {
    RequireNodeFile();
    // Gathered writes reach the node file before the output file is touched, so that
    // a failure among them cannot leave it half changed.
    m_TempFile.SeekToEnd();
    SaveRun<CBitsBinFile> run(file, op, GetSize(), kArrayRules);
    CBitsBinFile* out = run.Out();
    int count = run.Count();
    CBitArray record(false);
    CBitArray bits(false);
    RecordTargets targets(file, packed);
    int last = m_nLast == -1 ? count - 1 : m_nLast;
    for (int i = std::max(m_nFirst, 0); i <= last; ++i) {
        GetRecord(i, bits);
        if (progress) progress(i, count);
        int target = targets.Next(i);
        if (run.Merge())
            MergeRecord(file, out, target, op, bits, record);
        else if (!bits.IsEmpty())
            out->Modify(target, &bits);
    }
    targets.Finish(out);
    run.Finish();
    if (free) EndNodeFile();
}

CLinkedListCollection::CLinkedListCollection() = default;

CLinkedListCollection::~CLinkedListCollection() { RemoveAll(); }

void CLinkedListCollection::RemoveAll() { DeleteSlots<CLinkedListArray>(*this); }

CLinkedListArray* CLinkedListCollection::GetAt(int index) const {
    auto* self = const_cast<CLinkedListCollection*>(this);
    return SlotOnDemand<CLinkedListArray>(*self, index, [] { return new CLinkedListArray(); });
}

void CLinkedListCollection::Save(const char* path, Operation op, bool free, bool packed,
                                 Progress progress) {
    CBinFile file(path, OpenMode(path, false));
    Save(&file, op, free, packed, progress);
}

void CLinkedListCollection::Save(CBinFile* file, Operation op, bool free, bool packed,
                                 Progress progress) {
    SaveImages<CLinkedListArray>(*this, m_nFirst, m_nLast, file, op, free, packed, progress,
                                 kCollectionRules);
}
