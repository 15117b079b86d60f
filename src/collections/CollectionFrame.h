// The frame that every collection shares: slots made on demand, loading a range of
// records, and a save that writes straight into an empty file or merges through a
// temporary file that then takes the place of the file.
#pragma once

#include <algorithm>
#include <memory>

#include "dorvik/Arrays.h"
#include "dorvik/BinFile.h"
#include "dorvik/BitArray.h"
#include "dorvik/BitsBinFile.h"
#include "dorvik/MemBitsBinFile.h"
#include "dorvik/Operation.h"
#include "frame/TempFile.h"

namespace dorvik::collections {
using Progress = bool (*)(int, int);

constexpr UINT kOpenShared = CFile::shareDenyNone | CFile::modeReadWrite;  // 0x42

// The open mode of the path forms: created when missing, or when `truncate` is asked.
UINT OpenMode(const char* path, bool truncate);

// The element in slot `index` of an array of owned pointers, made by `make` when the
// slot is null or past the end (slots between stay null). Null for a negative index;
// CMemoryException, as from SetAtGrow, when the slots cannot be had (INT_MAX among them).
template <class T, class Make>
T* SlotOnDemand(CPtrArray& array, int index, Make make) {
    if (index < 0) return nullptr;
    if (index >= array.GetSize()) array.SetAtGrow(index, nullptr);
    void*& slot = array.ElementAt(index);
    if (!slot) slot = make();
    return static_cast<T*>(slot);
}

// Deletes every element and empties the array.
template <class T>
void DeleteSlots(CPtrArray& array) {
    for (int i = 0; i < array.GetSize(); ++i) delete static_cast<T*>(array.GetAt(i));
    array.RemoveAll();
}

// Deletes the elements of slots first .. last (cut to the array) and sets them null.
// Saves free their elements only once the file is complete, so that a failure midway
// loses nothing that was in memory.
template <class T>
void FreeRange(CPtrArray& array, int first, int last) {
    last = std::min(last, array.GetUpperBound());
    for (int i = std::max(first, 0); i <= last; ++i) {
        delete static_cast<T*>(array.GetAt(i));
        array.SetAt(i, nullptr);
    }
}

// Sizes an emptied array to `count` slots and fills slots first .. last (last -1: the
// end; both cut to the slots) with `load(i)`, which returns a unique_ptr. `progress`
// gets (i, count).
template <class Load>
void LoadRange(CPtrArray& array, int count, int first, int last, Progress progress, Load load) {
    array.SetSize(count, -1);
    last = std::min(last == -1 ? count - 1 : last, count - 1);
    for (int i = std::max(first, 0); i <= last; ++i) {
        if (progress) progress(i, count);
        auto element = load(i);
        array.SetAt(i, element.release());
    }
}

// A temporary file that is removed unless it was moved into place.
struct Temporary {
    CString path;
    bool keep = false;
    Temporary() = default;
    Temporary(const Temporary&) = delete;
    Temporary& operator=(const Temporary&) = delete;
    ~Temporary();
};

// How a family of collections runs its save.
struct SaveRules {
    bool deleteAll;  // opCopy empties the file with DeleteAll, not Delete over the range
    bool notSafe;    // both files go to not safe mode for the run
};

// The frame of a save: a direct run writes into `file` itself; a merge (a file with
// records and an op other than opCopy) writes into a temporary of the same class that
// then takes the place of `file`, and so does an opCopy over a file on disk that holds
// more than an empty table. The temporary of a file on disk lies beside it,
// "<path>.XXXXXX", so that the rename stays on one file system; that of a memory twin
// without a path is in $TMPDIR. The temporary is removed whatever happens; `file`
// is replaced only after the run is complete, so an exception, or the death of the
// process, leaves it as it was.
// A direct run puts `file` in not safe mode (SaveRules::notSafe) and restores its
// mode at the end, also when the run fails.
template <class OutFile>
class SaveRun {
public:
    SaveRun(OutFile* file, Operation op, int size, SaveRules rules)
        : m_file(file), m_memory(dynamic_cast<CBaseMemFile*>(file)), m_rules(rules) {
        m_merge = op != opCopy && file->GetRecordCount() > 0;
        m_count = size;
        if (m_merge && file->GetFilePath().IsEmpty() && !m_memory)
            throw CFileException(CFileException::invalidFile, -1, nullptr);
        m_replace = op == opCopy && !m_memory && !file->GetFilePath().IsEmpty() &&
                    file->CFile::GetLength() > 4;
        if (m_merge) {
            const CString path = file->GetFilePath();
            MakeTemporary(path.IsEmpty() ? nullptr : static_cast<const char*>(path));
            m_count = std::max(m_count, file->GetRecordCount());
        } else if (m_replace) {
            MakeTemporary(file->GetFilePath());
        } else if (op == opCopy) {
            if (rules.deleteAll)
                file->DeleteAll();
            else
                file->Delete(0, file->GetRecordCount() - 1);
        }
        // A merge only reads `file`, which keeps its mode and its table on disk.
        m_safe = file->IsSafeMode();
        m_switched = rules.notSafe && !m_merge && !m_replace;
        if (m_switched) file->SetSafeMode(false);
    }
    ~SaveRun() {
        if (!m_switched) return;
        try {
            m_file->SetSafeMode(m_safe);
        } catch (const CFileException&) {
            // The run failed already; its exception is the one that counts.
        }
    }
    SaveRun(const SaveRun&) = delete;
    SaveRun& operator=(const SaveRun&) = delete;

    bool Merge() const { return m_merge; }
    // The array's size, raised to the file's record count in a merge.
    int Count() const { return m_count; }
    // The file the records go to: the temporary in a merge, else `file` itself.
    OutFile* Out() const { return m_merged ? m_merged.get() : m_file; }

    // Restores the mode; a merge then puts the temporary in the place of the file and
    // opens the file on it again, or reloads a memory twin from it.
    void Finish() {
        if (m_switched) {
            m_switched = false;
            m_file->SetSafeMode(m_safe);
        }
        if (!m_merged) return;
        m_merged->Close();
        m_merged.reset();
        CString path = m_file->GetFilePath();
        m_file->Close();
        if (path.IsEmpty()) {
            m_memory->LoadFromFile(m_temp.path, 0);
            return;
        }
        // The rename replaces the old file in one step, so no moment is without one;
        // when it fails the old file is opened again and stays as it was.
        try {
            CFile::Rename(m_temp.path, path);
        } catch (const CFileException&) {
            m_file->Open(path, kOpenShared, nullptr);
            throw;
        }
        m_temp.keep = true;
        m_file->Open(path, kOpenShared, nullptr);
    }

private:
    // In $TMPDIR, or beside `beside` when one is given.
    void MakeTemporary(const char* beside) {
        if (beside)
            MakeTempFileBeside(m_temp.path, beside);
        else
            MakeTempFileName(m_temp.path, nullptr);
        m_merged = std::make_unique<OutFile>(m_temp.path, CFile::modeCreate | CFile::modeReadWrite);
        if (m_rules.notSafe) m_merged->SetSafeMode(false);
    }

    OutFile* m_file;
    CBaseMemFile* m_memory;
    SaveRules m_rules;
    Temporary m_temp;  // outlives m_merged, which is closed first
    std::unique_ptr<OutFile> m_merged;
    bool m_merge;
    bool m_replace = false;  // an opCopy written to the temporary
    bool m_safe = true;
    bool m_switched = false;  // `file` is in not safe mode for the run
    int m_count;
};

// Packed targets: without `packed` element i goes to record i; with it, record 0 is a
// map of the indexes saved and the k-th index saved goes to record k.
class RecordTargets {
public:
    // With `packed` the map starts as record 0 of `file`.
    RecordTargets(CBitsBinFile* file, bool packed);
    // The record number for index `i`, marking it in the map.
    int Next(int i);
    // Writes the map as record 0 of `out` when packed.
    void Finish(CBitsBinFile* out);

private:
    CBitArray m_map;
    int m_target = 1;
    bool m_packed;
};

// In a merge: record `index` of `file` goes to `out` unchanged. `record` is scratch.
void CopyRecord(CBitsBinFile* file, CBitsBinFile* out, int index, CBitArray& record);

// In a merge: record `target` of `file` combined with `bits` by op (opOr: union,
// opXor: exclusive or, anything else: unchanged) goes to `out` under `target`,
// whether it changed or not. `record` is scratch space.
void MergeRecord(CBitsBinFile* file, CBitsBinFile* out, int target, Operation op,
                 const CBitArray& bits, CBitArray& record);

// The save of a collection into a record file of bit record file images: for each
// index of the range, record i is read into a memory bit record file (in a merge),
// the element saves itself into it with the same op and flags, and the image is
// written back as record i. A record without an element stays as it was in a merge
// and becomes the image of an empty file in a direct run. With `free` each saved
// element is deleted and its slot set null at the end (the element's own save runs
// without it, which ends in the same state).
template <class Element>
void SaveImages(CPtrArray& slots, int first, int last, CBinFile* file, Operation op, bool free,
                bool packed, Progress progress, SaveRules rules) {
    SaveRun<CBinFile> run(file, op, slots.GetSize(), rules);
    int count = run.Count();
    if (last == -1) last = count - 1;
    for (int i = std::max(first, 0); i <= last; ++i) {
        if (progress) progress(i, count);
        CMemBitsBinFile image(102400);
        image.SetSafeMode(false);
        if (run.Merge()) file->GetRecord(i, image);
        if (auto* element = static_cast<Element*>(slots.GetAt(i)))
            element->Save(&image, op, false, packed, nullptr);
        run.Out()->Modify(i, &image);
    }
    run.Finish();
    if (free) FreeRange<Element>(slots, first, last);
}

// The load of a collection: records first .. last of `file` are bit record file
// images, each loaded into a new element made by `make`.
template <class Make>
void LoadImages(CPtrArray& slots, int count, int first, int last, CBinFile* file, Progress progress,
                Make make) {
    LoadRange(slots, count, first, last, progress, [&](int i) {
        unsigned char* block = nullptr;
        int length = 0;
        file->CBinFile::GetRecord(i, block, length, true);
        CMemBitsBinFile image(0);
        image.Attach(block, static_cast<DWORD>(length), 0);
        auto element = make();
        element->Init(&image, nullptr);
        return element;
    });
}
}  // namespace dorvik::collections
