// Linked list arrays: values chained per list in a temporary node file.
#include <algorithm>
#include <cstdint>
#include <vector>

#include "dorvik/Collections.h"

#include "bits/CompressedForm.h"
#include "collections/CollectionFrame.h"
#include "frame/Coding.h"
#include "frame/TempFile.h"

namespace dorvik::classic {
using namespace dorvik::collections;

namespace {
constexpr SaveRules kArrayRules{true, true};
constexpr SaveRules kCollectionRules{true, false};
constexpr UINT kNodeFileMode = CFile::modeCreate | CFile::shareDenyNone | CFile::modeReadWrite;
constexpr UINT kNodeBytes = 8;
constexpr UINT kBatchBlock = 1 << 20;            // bytes per read of a batch pass
constexpr DWORD kBatchValues = 2 * 1024 * 1024;  // values per batch: 8 MiB of lists

// The last list of the batch that starts at `first`: lists are added while their
// counted values fit kBatchValues, and the first always counts.
int NextBatch(const CDWordArray& counts, int first, int last) {
    std::uint64_t values = counts.GetAt(first);
    int end = first;
    while (end < last && values + counts.GetAt(end + 1) <= kBatchValues)
        values += counts.GetAt(++end);
    return end;
}

// The set bits of a list: its values at or above 0, rising, each once, as setting them
// in a bitmap keeps them. The list is reordered in place (an indexer's lists rise
// already, and are only checked).
std::span<const unsigned> SetBitsOf(std::vector<int>& values) {
    std::erase_if(values, [](int v) { return v < 0; });
    if (!std::is_sorted(values.begin(), values.end())) std::sort(values.begin(), values.end());
    values.erase(std::unique(values.begin(), values.end()), values.end());
    // int and unsigned int may name the same object: the values are not negative.
    return {reinterpret_cast<const unsigned*>(values.data()), values.size()};
}

// A slot holds a file position, not a pointer.
DWORD Head(const CPtrArray& array, int list) {
    return static_cast<DWORD>(reinterpret_cast<std::uintptr_t>(array.GetAt(list)));
}

void* AsSlot(DWORD position) { return reinterpret_cast<void*>(std::uintptr_t{position}); }

// A list's chain in a walk over many lists: the position still to be read.
struct Chain {
    DWORD head;
    int list;
};

// Reads nodes of the node file a piece of `block` bytes at a time: piece p holds the
// bytes from p * block on. A block is a multiple of 8, so no node straddles two.
class NodeReader {
public:
    NodeReader(CFile& file, UINT block, DWORD end) : m_file(file), m_piece(block), m_end(end) {}

    // The number of pieces of the file, and the piece of the node whose link field
    // lies at `head` (which must lie within the file).
    std::size_t Pieces() const { return m_end / m_piece.size() + 1; }
    std::size_t Piece(DWORD head) const {
        return std::min((head - 4) / m_piece.size(), Pieces() - 1);
    }

    // The node whose link field lies at `head`: value and link. False when the node
    // does not lie whole within the file.
    bool Read(DWORD head, DWORD (&node)[2]) {
        if (head < 4 || m_end < 8 || head > m_end - 4) return false;
        if (head - 4 < m_from || head + 4 > m_to) {
            auto block = static_cast<DWORD>(m_piece.size());
            m_from = (head - 4) / block * block;
            m_file.Seek(static_cast<LONG>(m_from), CFile::begin);
            m_to = m_from + m_file.Read(m_piece.data(), std::min(block, m_end - m_from));
            if (head + 4 > m_to) return false;
        }
        const unsigned char* at = m_piece.data() + (head - 4 - m_from);
        node[0] = dorvik::DecodeFixed32(at);
        node[1] = dorvik::DecodeFixed32(at + 4);
        return true;
    }

private:
    CFile& m_file;
    std::vector<unsigned char> m_piece;
    DWORD m_end;
    DWORD m_from = 0;  // the bytes of the node file in m_piece
    DWORD m_to = 0;
};

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
    unsigned char node[kNodeBytes];
    dorvik::EncodeFixed32(node, static_cast<DWORD>(value));
    dorvik::EncodeFixed32(node + 4, Head(*this, list));
    m_TempFile.Write(node, sizeof node);
    SetAt(list, AsSlot(end + 4));
    if (list >= m_aCounts.GetSize()) m_aCounts.SetSize(list + 1, -1);
    ++m_aCounts[list];
    return 0;
}

template <class Visit>
void CLinkedListArray::Walk(int list, Visit visit) {
    DWORD head = Head(*this, list);
    if (head == 0) return;
    KeepPosition keep(m_TempFile);
    NodeReader reader(m_TempFile, kNodeBytes, keep.Position());
    for (DWORD node[2]; reader.Read(head, node); head = node[1]) {
        visit(static_cast<int>(node[0]));
        // Links always lead to an earlier node, so a link that does not is the end.
        if (node[1] == 0 || node[1] >= head) return;
    }
}

template <class Visit>
void CLinkedListArray::Gather(int first, int last, Visit visit) {
    // Each chain waits in the bucket of the piece that holds its next node. The pieces
    // are read from the end of the file to its start, each once: a link always leads
    // to the same piece or an earlier one.
    KeepPosition keep(m_TempFile);
    NodeReader reader(m_TempFile, kBatchBlock, keep.Position());
    std::vector<std::vector<Chain>> buckets(reader.Pieces());
    for (int list = std::max(first, 0); list <= std::min(last, GetUpperBound()); ++list)
        if (DWORD head = Head(*this, list)) buckets[reader.Piece(head)].push_back({head, list});
    for (std::size_t piece = buckets.size(); piece-- > 0;) {
        std::vector<Chain>& waiting = buckets[piece];
        while (!waiting.empty()) {
            Chain chain = waiting.back();
            waiting.pop_back();
            DWORD node[2];
            if (!reader.Read(chain.head, node)) continue;
            visit(chain.list, static_cast<int>(node[0]));
            if (node[1] != 0 && node[1] < chain.head)
                buckets[reader.Piece(node[1])].push_back({node[1], chain.list});
        }
        std::vector<Chain>().swap(waiting);
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
    CBitsBinFile file(path, OpenMode(path, op == opCopy && !CBinFile::IsValidBinFile(path)));
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
    RecordTargets targets(op == opCopy ? out : file, packed);  // a copy starts a new map
    int first = std::max(m_nFirst, 0);
    int last = m_nLast == -1 ? count - 1 : m_nLast;
    // A plain merge keeps the records outside the range as they are.
    auto keep = [&](int from, int to) {
        for (int i = from; run.Merge() && !packed && i <= to; ++i) CopyRecord(file, out, i, record);
    };
    keep(0, first - 1);
    // The lists are read in batches of counted values, each in one pass over the node
    // file; a list's values are dropped once its record is written.
    std::vector<std::vector<int>> batch;
    int batchFirst = 0, batchLast = -1;
    auto readBatch = [&](int from) {
        batchFirst = from;
        batchLast = NextBatch(m_aCounts, from, std::min(last, GetUpperBound()));
        batch.assign(static_cast<std::size_t>(batchLast - batchFirst + 1), {});
        for (int k = batchFirst; k <= batchLast; ++k)
            batch[static_cast<std::size_t>(k - batchFirst)].reserve(m_aCounts.GetAt(k));
        Gather(batchFirst, batchLast, [&](int list, int value) {
            batch[static_cast<std::size_t>(list - batchFirst)].push_back(value);
        });
    };
    for (int i = first; i <= last; ++i) {
        if (i > batchLast && i < GetSize()) readBatch(i);
        std::vector<int> values;
        if (i >= batchFirst && i <= batchLast)
            values.swap(batch[static_cast<std::size_t>(i - batchFirst)]);
        if (progress) progress(i, count);
        int target = targets.Next(i);
        if (run.Merge()) {
            bits.FreeBuffer();
            for (int value : values) bits.SetAt(value);
            MergeRecord(file, out, target, op, bits, record);
        } else if (!values.empty()) {
            // Nothing to merge with: the compressed form is built from the list itself,
            // without the plain bitmap, in time with the list's length.
            std::vector<unsigned char> form = dorvik::form::EncodeSortedBits(SetBitsOf(values));
            if (!form.empty()) {
                CBitArray stored(form.data(), static_cast<int>(form.size()), true);
                out->Modify(target, &stored);
            }
        }
    }
    keep(std::max(last + 1, first), file->GetRecordCount() - 1);
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

}  // namespace dorvik::classic
