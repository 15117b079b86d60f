// Bit array collections: on-demand elements, loading, and saving direct or merged.
#include "dorvik/Collections.h"

#include <algorithm>
#include <memory>

#include "dorvik/MemBitsBinFile.h"
#include "frame/TempFile.h"

namespace {
constexpr UINT kOpenShared = CFile::shareDenyNone | CFile::modeReadWrite;  // 0x42

UINT OpenMode(const char* path, bool truncate) {
    CFileStatus status;
    bool exists = CFile::GetStatus(path, status);
    return kOpenShared | ((!exists || truncate) ? static_cast<UINT>(CFile::modeCreate) : 0u);
}

// The element slot `index` of an array of owned pointers, made on demand.
template <class T, class Make>
T* SlotOnDemand(CPtrArray& array, int index, Make make) {
    if (index < 0) return nullptr;
    if (index >= array.GetSize()) array.SetSize(index + 1, -1);
    void*& slot = array.ElementAt(index);
    if (!slot) slot = make();
    return static_cast<T*>(slot);
}

// A temporary output file that is removed unless it was moved into place.
struct Temporary {
    CString path;
    bool keep = false;
    ~Temporary() {
        if (!keep && !path.IsEmpty()) {
            try {
                CFile::Remove(path);
            } catch (const CFileException&) {}
        }
    }
};

// The frame of a Save: a direct run writes into `file` itself; a merge (a file with
// records and an op other than opCopy) writes into a temporary that then takes the
// place of `file`. `file` stays in not safe mode for the run; Finish restores it.
template <class OutFile>
class SaveRun {
public:
    SaveRun(CBinFile* file, Operation op, int size) : m_file(file), m_out(nullptr), m_count(size) {
        m_merge = op != opCopy && file->GetRecordCount() > 0;
        m_memory = dynamic_cast<CBaseMemFile*>(file);
        if (m_merge && file->GetFilePath().IsEmpty() && !m_memory)
            throw CFileException(CFileException::invalidFile, -1, nullptr);
        if (m_merge) {
            MakeTempFileName(m_temp.path, nullptr);
            m_merged =
                std::make_unique<OutFile>(m_temp.path, CFile::modeCreate | CFile::modeReadWrite);
            m_merged->SetSafeMode(false);
            m_out = m_merged.get();
            m_count = std::max(m_count, file->GetRecordCount());
        } else if (op == opCopy) {
            file->Delete(0, file->GetRecordCount() - 1);
        }
        m_safe = file->IsSafeMode();
        file->SetSafeMode(false);
    }

    bool Merge() const { return m_merge; }
    int Count() const { return m_count; }
    // The file the records go to: the temporary in a merge, else `file` itself.
    template <class Direct>
    OutFile* Out(Direct* direct) {
        return m_merge ? m_out : direct;
    }

    // Restores the mode; a merge then puts the temporary in the place of the file and
    // opens the file on it again, or reloads a memory twin from it.
    void Finish() {
        m_file->SetSafeMode(m_safe);
        if (!m_merge) return;
        m_merged->Close();
        m_merged.reset();
        CString path = m_file->GetFilePath();
        m_file->Close();
        if (path.IsEmpty()) {
            m_memory->LoadFromFile(m_temp.path, 0);
            return;
        }
        CFile::Remove(path);
        CFile::Rename(m_temp.path, path);
        m_temp.keep = true;
        m_file->Open(path, kOpenShared, nullptr);
    }

private:
    CBinFile* m_file;
    CBaseMemFile* m_memory;
    OutFile* m_out;
    std::unique_ptr<OutFile> m_merged;
    Temporary m_temp;
    bool m_merge;
    bool m_safe;
    int m_count;
};
}  // namespace

CBitArrayArray::CBitArrayArray(bool compressed) : m_bCompressed(compressed) {}

CBitArrayArray::~CBitArrayArray() { RemoveAll(); }

void CBitArrayArray::RemoveAll() {
    for (int i = 0; i < GetSize(); ++i) delete static_cast<CBitArray*>(CPtrArray::GetAt(i));
    CPtrArray::RemoveAll();
}

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
    SetSize(n, -1);
    m_nMaxLength = 0;
    int last = std::min(m_nLast == -1 ? n - 1 : m_nLast, n - 1);
    for (int i = std::max(m_nFirst, 0); i <= last; ++i) {
        if (progress) progress(i, n);
        auto element = std::make_unique<CBitArray>(m_bCompressed);
        file->GetRecord(i, *element, -1);
        m_nMaxLength = std::max(m_nMaxLength, element->GetLength());
        SetAt(i, element.release());
    }
}

void CBitArrayArray::Save(const char* path, Operation op, bool free, bool packed,
                          Progress progress) {
    CBitsBinFile file(path, OpenMode(path, op == opCopy));
    Save(&file, op, free, packed, progress);
}

void CBitArrayArray::Save(CBitsBinFile* file, Operation op, bool free, bool packed,
                          Progress progress) {
    SaveRun<CBitsBinFile> run(file, op, GetSize());
    bool merge = run.Merge();
    int count = run.Count();
    CBitsBinFile* out = run.Out(file);
    CBitArray record(false);
    CBitArray map(false);
    if (packed) file->GetRecord(0, map, -1);
    int target = 1;
    int last = m_nLast == -1 ? count - 1 : m_nLast;
    for (int i = std::max(m_nFirst, 0); i <= last; ++i) {
        auto* element = static_cast<CBitArray*>(CPtrArray::GetAt(i));
        if (!element) {
            if (merge && !packed) {
                file->GetRecord(i, record, -1);
                out->Modify(i, &record);
            }
            continue;
        }
        if (progress) progress(i, count);
        if (packed) {
            map.SetAt(i);
        } else {
            target = i;
        }
        if (merge) {
            if (element->IsCompressed()) element->Decompress();
            file->GetRecord(target, record, -1);
            if (op == opOr) record |= *element;
            if (op == opXor) record ^= *element;
            out->Modify(target, &record);
        } else {
            out->Modify(target, element);
        }
        if (free) {
            delete element;
            SetAt(i, nullptr);
        }
        ++target;
    }
    if (packed) out->Modify(0, &map);
    run.Finish();
}

CBitArrayCollection::CBitArrayCollection(bool compressed) : m_bCompressed(compressed) {}

CBitArrayCollection::~CBitArrayCollection() { RemoveAll(); }

void CBitArrayCollection::RemoveAll() {
    for (int i = 0; i < GetSize(); ++i) delete static_cast<CBitArrayArray*>(CPtrArray::GetAt(i));
    CPtrArray::RemoveAll();
}

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
    SetSize(n, -1);
    int last = std::min(m_nLast == -1 ? n - 1 : m_nLast, n - 1);
    for (int i = std::max(m_nFirst, 0); i <= last; ++i) {
        if (progress) progress(i, n);
        unsigned char* block = nullptr;
        int length = 0;
        file->CBinFile::GetRecord(i, block, length, true);
        CMemBitsBinFile image(0);
        image.Attach(block, static_cast<DWORD>(length), 0);
        auto element = std::make_unique<CBitArrayArray>(m_bCompressed);
        element->Init(&image, nullptr);
        SetAt(i, element.release());
    }
}

void CBitArrayCollection::Save(const char* path, Operation op, bool free, bool packed,
                               Progress progress) {
    CBinFile file(path, OpenMode(path, false));
    Save(&file, op, free, packed, progress);
}

void CBitArrayCollection::Save(CBinFile* file, Operation op, bool free, bool packed,
                               Progress progress) {
    SaveRun<CBinFile> run(file, op, GetSize());
    bool merge = run.Merge();
    int count = run.Count();
    CBinFile* out = run.Out(file);
    int last = m_nLast == -1 ? count - 1 : m_nLast;
    for (int i = std::max(m_nFirst, 0); i <= last; ++i) {
        if (progress) progress(i, count);
        CMemBitsBinFile image(102400);
        image.SetSafeMode(false);
        if (merge) file->GetRecord(i, image);
        auto* element = static_cast<CBitArrayArray*>(CPtrArray::GetAt(i));
        if (element) {
            element->Save(&image, op, free, packed, nullptr);
            if (free) {
                delete element;
                SetAt(i, nullptr);
            }
        }
        out->Modify(i, &image);
    }
    run.Finish();
}
