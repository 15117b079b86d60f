// In-memory twins of the file classes. A twin joins a memory file (its first base,
// which holds the bytes) with a file class (its second base, which holds the logic and
// is never opened) and redirects the virtuals through which the file class reaches its
// storage to the memory side: every operation of the file class runs unchanged over the
// block, and the block is byte for byte the file. IsOpen is false on a twin and Open
// has no meaning there. Not safe for concurrent use: one twin, one thread.
#pragma once

#include <cstddef>
#include <tuple>
#include <utility>

#include "BaseMemFile.h"

namespace dorvik::classic {
// The storage half of every twin: Seek, SetLength, GetLength, Read, Write, Close,
// GetPosition, ReadHuge and WriteHuge all act on the memory side. GetLength is the
// stored length and Close that of the memory side; a twin whose file class measures or
// closes otherwise (the record files' table) overrides them.
template <class MemoryClass, class FileClass>
class DORVIK_API CMemTwinBase : public MemoryClass, public FileClass {
public:
    ~CMemTwinBase() override;

    LONG Seek(LONG offset, UINT from) override;
    void SetLength(DWORD length) override;
    DWORD GetLength() const override;
    UINT Read(void* buffer, UINT count) override;
    void Write(const void* buffer, UINT count) override;
    void Close() override;
    DWORD GetPosition() const override;
    CString GetFilePath() const override { return CString(); }
    void Flush() override {}
    void SeekToBegin() { Seek(0, CFile::begin); }
    DWORD SeekToEnd() { return static_cast<DWORD>(Seek(0, CFile::end)); }
    virtual DWORD ReadHuge(void* buffer, DWORD count);
    virtual void WriteHuge(const void* buffer, DWORD count);

protected:
    // Builds the memory side from the `memory` arguments and the file side from the
    // `file` arguments, in that order.
    template <class... MemoryArgs, class... FileArgs>
    CMemTwinBase(std::piecewise_construct_t, std::tuple<MemoryArgs...> memory,
                 std::tuple<FileArgs...> file)
        : CMemTwinBase(memory, file, std::index_sequence_for<MemoryArgs...>{},
                       std::index_sequence_for<FileArgs...>{}) {}

private:
    template <class MemoryTuple, class FileTuple, std::size_t... M, std::size_t... F>
    CMemTwinBase(MemoryTuple& memory, FileTuple& file, std::index_sequence<M...>,
                 std::index_sequence<F...>)
        : MemoryClass(std::get<M>(std::move(memory))...),
          FileClass(std::get<F>(std::move(file))...) {}
};

// The twin of a record file class (CBinFile and every class derived from it): the
// memory side is a CBaseMemFile, which always owns its block.
//
// A twin holds a block and a loaded table, or nothing after Detach, Close or
// SaveToFile; the next use that needs the table then starts a new empty image (after
// Close only once Attach or LoadFromFile gave it room to grow again).
template <class FileClass>
class DORVIK_API CMemTwin : public CMemTwinBase<CBaseMemFile, FileClass> {
public:
    // Each constructor makes the memory side as CBaseMemFile does, then loads the
    // table; an empty memory file becomes the 4-byte empty record file at once. A block
    // that is no record file leaves the twin with no table and 0 records.
    explicit CMemTwin(UINT growBytes = 0);
    CMemTwin(const char* path, UINT growBytes);
    CMemTwin(BYTE* buffer, UINT size, UINT growBytes);
    ~CMemTwin() override;

    // The stored length, plus the table in not safe mode (as the file class says).
    DWORD GetLength() const override;
    // Releases the table and the block. No table is written: in not safe mode the
    // changes go with the block.
    void Close() override;
    // Takes over `buffer` (a C heap block, or null with size 0) and loads its table.
    void Attach(BYTE* buffer, DWORD size, UINT growBytes) override;
    // Completes the image with its table (the twin is in safe mode afterwards),
    // releases the table and gives the block away; release it with free or DropBlock.
    BYTE* Detach() override;
};

}  // namespace dorvik::classic

using dorvik::classic::CMemTwin;
using dorvik::classic::CMemTwinBase;
