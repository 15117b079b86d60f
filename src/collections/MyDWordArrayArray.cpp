// Number array collections: raw numbers in, one bit per distinct number out.
#include <memory>

#include "dorvik/Collections.h"

#include "collections/CollectionFrame.h"

namespace dorvik::classic {
using namespace dorvik::collections;

namespace {
constexpr SaveRules kArrayRules{true, true};
constexpr SaveRules kCollectionRules{false, true};
}  // namespace

CMyDWordArrayArray::CMyDWordArrayArray() = default;

CMyDWordArrayArray::~CMyDWordArrayArray() { RemoveAll(); }

void CMyDWordArrayArray::RemoveAll() { DeleteSlots<CMyDWordArray>(*this); }

CMyDWordArray* CMyDWordArrayArray::GetAt(int index) const {
    auto* self = const_cast<CMyDWordArrayArray*>(this);
    return SlotOnDemand<CMyDWordArray>(*self, index, [] { return new CMyDWordArray(); });
}

void CMyDWordArrayArray::Init(const char* path, Progress progress) {
    CBinFile file(path, OpenMode(path, false));
    Init(&file, progress);
}

void CMyDWordArrayArray::Init(CBinFile* file, Progress progress) {
    int n = file->GetRecordCount();
    RemoveAll();
    LoadRange(*this, n, m_nFirst, m_nLast, progress, [&](int i) {
        auto element = std::make_unique<CMyDWordArray>();
        file->GetRecord(i, *element);
        return element;
    });
}

void CMyDWordArrayArray::Save(const char* path, Operation op, bool free, bool packed,
                              Progress progress) {
    CBitsBinFile file(path, OpenMode(path, false));
    Save(&file, op, free, packed, progress);
}

void CMyDWordArrayArray::Save(CBitsBinFile* file, Operation op, bool free, bool,
                              Progress progress) {
    SaveRun<CBitsBinFile> run(file, op, GetSize(), kArrayRules);
    CBitsBinFile* out = run.Out();
    int count = run.Count();
    bool applies = op == opOr || op == opXor || op == opCopy;
    CBitArray numbers(false);
    CBitArray record(false);
    for (int i = 0; i < count; ++i) {
        if (progress) progress(i, count);
        auto* element = static_cast<CMyDWordArray*>(CPtrArray::GetAt(i));
        numbers.FreeBuffer();
        if (element && applies) numbers.Array2Bmp(*element);
        if (run.Merge())
            MergeRecord(file, out, i, op, numbers, record);
        else if (!numbers.IsEmpty())
            out->Modify(i, &numbers);
    }
    run.Finish();
    if (free) FreeRange<CMyDWordArray>(*this, 0, count - 1);
}

CMyDWordArrayCollection::CMyDWordArrayCollection() = default;

CMyDWordArrayCollection::~CMyDWordArrayCollection() { RemoveAll(); }

void CMyDWordArrayCollection::RemoveAll() { DeleteSlots<CMyDWordArrayArray>(*this); }

CMyDWordArrayArray* CMyDWordArrayCollection::GetAt(int index) const {
    auto* self = const_cast<CMyDWordArrayCollection*>(this);
    return SlotOnDemand<CMyDWordArrayArray>(*self, index, [] { return new CMyDWordArrayArray(); });
}

void CMyDWordArrayCollection::Init(const char* path, Progress progress) {
    CBinFile file(path, OpenMode(path, false));
    Init(&file, progress);
}

void CMyDWordArrayCollection::Init(CBinFile* file, Progress progress) {
    int n = file->GetRecordCount();
    RemoveAll();
    LoadImages(*this, n, m_nFirst, m_nLast, file, progress,
               [] { return std::make_unique<CMyDWordArrayArray>(); });
}

void CMyDWordArrayCollection::Save(const char* path, Operation op, bool free, bool packed,
                                   Progress progress) {
    CBinFile file(path, OpenMode(path, false));
    Save(&file, op, free, packed, progress);
}

void CMyDWordArrayCollection::Save(CBinFile* file, Operation op, bool free, bool packed,
                                   Progress progress) {
    SaveImages<CMyDWordArrayArray>(*this, m_nFirst, m_nLast, file, op, free, packed, progress,
                                   kCollectionRules);
}

}  // namespace dorvik::classic
