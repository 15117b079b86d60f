// Bit array collections: on-demand elements, loading, and saving direct or merged.
#include "dorvik/Collections.h"

#include <algorithm>
#include <memory>

#include "collections/CollectionFrame.h"

using namespace dorvik::collections;

namespace {
constexpr SaveRules kBitArrayRules{false, true};
}  // namespace

UINT dorvik::collections::OpenMode(const char* path, bool truncate) {
    CFileStatus status;
    bool exists = CFile::GetStatus(path, status);
    return kOpenShared | ((!exists || truncate) ? static_cast<UINT>(CFile::modeCreate) : 0u);
}

dorvik::collections::Temporary::~Temporary() {
    if (keep || path.IsEmpty()) return;
    try {
        CFile::Remove(path);
    } catch (const CFileException&) {
        // Nothing more can be done for a temporary that cannot be removed.
    }
}

RecordTargets::RecordTargets(CBitsBinFile* file, bool packed) : m_map(false), m_packed(packed) {
    if (packed) file->GetRecord(0, m_map, -1);
}

int RecordTargets::Next(int i) {
    if (!m_packed) return i;
    m_map.SetAt(i);
    return m_target++;
}

void RecordTargets::Finish(CBitsBinFile* out) {
    if (m_packed) out->Modify(0, &m_map);
}

void dorvik::collections::CopyRecord(CBitsBinFile* file, CBitsBinFile* out, int index,
                                     CBitArray& record) {
    file->GetRecord(index, record, -1);
    out->Modify(index, &record);
}

void dorvik::collections::MergeRecord(CBitsBinFile* file, CBitsBinFile* out, int target,
                                      Operation op, const CBitArray& bits, CBitArray& record) {
    file->GetRecord(target, record, -1);
    if (op == opOr) record |= bits;
    if (op == opXor) record ^= bits;
    out->Modify(target, &record);
}

namespace dorvik::classic {
CBitArrayArray::CBitArrayArray(bool compressed) : m_bCompressed(compressed) {}

CBitArrayArray::~CBitArrayArray() { RemoveAll(); }

void CBitArrayArray::RemoveAll() { DeleteSlots<CBitArray>(*this); }

CBitArray* CBitArrayArray::GetAt(int index) const {
    auto* self = const_cast<CBitArrayArray*>(this);
    return SlotOnDemand<CBitArray>(*self, index, [this] { return new CBitArray(m_bCompressed); });
}

CBitArray* CBitArrayArray::GetTail() { return GetSize() == 0 ? nullptr : GetAt(GetSize() - 1); }

void CBitArrayArray::Init(const char* path, Progress progress) {
    CBitsBinFile file(path, OpenMode(path, false));
    Init(&file, progress);
}

void CBitArrayArray::Init(CBitsBinFile* file, Progress progress) {
    int n = file->GetRecordCount();
    RemoveAll();
    m_nMaxLength = 0;
    LoadRange(*this, n, m_nFirst, m_nLast, progress, [&](int i) {
        auto element = std::make_unique<CBitArray>(m_bCompressed);
        file->GetRecord(i, *element, -1);
        m_nMaxLength = std::max(m_nMaxLength, element->GetLength());
        return element;
    });
}

void CBitArrayArray::Save(const char* path, Operation op, bool free, bool packed,
                          Progress progress) {
    CBitsBinFile file(path, OpenMode(path, op == opCopy && !CBinFile::IsValidBinFile(path)));
    Save(&file, op, free, packed, progress);
}

void CBitArrayArray::Save(CBitsBinFile* file, Operation op, bool free, bool packed,
                          Progress progress) {
    SaveRun<CBitsBinFile> run(file, op, GetSize(), kBitArrayRules);
    CBitsBinFile* out = run.Out();
    int count = run.Count();
    CBitArray record(false);
    RecordTargets targets(op == opCopy ? out : file, packed);  // a copy starts a new map
    int last = m_nLast == -1 ? count - 1 : m_nLast;
    for (int i = std::max(m_nFirst, 0); i <= last; ++i) {
        auto* element = static_cast<CBitArray*>(CPtrArray::GetAt(i));
        if (!element) {
            if (run.Merge() && !packed) CopyRecord(file, out, i, record);
            continue;
        }
        if (progress) progress(i, count);
        int target = targets.Next(i);
        if (run.Merge()) {
            if (element->IsCompressed()) element->Decompress();
            MergeRecord(file, out, target, op, *element, record);
        } else {
            out->Modify(target, element);
        }
    }
    targets.Finish(out);
    run.Finish();
    if (free) FreeRange<CBitArray>(*this, m_nFirst, last);
}

CBitArrayCollection::CBitArrayCollection(bool compressed) : m_bCompressed(compressed) {}

CBitArrayCollection::~CBitArrayCollection() { RemoveAll(); }

void CBitArrayCollection::RemoveAll() { DeleteSlots<CBitArrayArray>(*this); }

CBitArrayArray* CBitArrayCollection::GetAt(int index) const {
    auto* self = const_cast<CBitArrayCollection*>(this);
    return SlotOnDemand<CBitArrayArray>(*self, index,
                                        [this] { return new CBitArrayArray(m_bCompressed); });
}

void CBitArrayCollection::Init(const char* path, Progress progress) {
    CBinFile file(path, OpenMode(path, false));
    Init(&file, progress);
}

void CBitArrayCollection::Init(CBinFile* file, Progress progress) {
    int n = file->GetRecordCount();
    RemoveAll();
    LoadImages(*this, n, m_nFirst, m_nLast, file, progress,
               [this] { return std::make_unique<CBitArrayArray>(m_bCompressed); });
}

void CBitArrayCollection::Save(const char* path, Operation op, bool free, bool packed,
                               Progress progress) {
    CBinFile file(path, OpenMode(path, false));
    Save(&file, op, free, packed, progress);
}

void CBitArrayCollection::Save(CBinFile* file, Operation op, bool free, bool packed,
                               Progress progress) {
    SaveImages<CBitArrayArray>(*this, m_nFirst, m_nLast, file, op, free, packed, progress,
                               kBitArrayRules);
}

}  // namespace dorvik::classic
