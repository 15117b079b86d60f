// In-memory twins of the record file classes. A twin joins a memory file (its first
// base, which holds the bytes) with a file class (its second base, which holds the
// logic and is never opened) and redirects Seek, SetLength, GetLength, Read, Write
// and Close to the memory side: every operation of the file class runs unchanged over
// the block, and the block is byte for byte the file. IsOpen is false on a twin and
// Open has no meaning there.
//
// A twin holds a block and a loaded table, or nothing after Detach, Close or
// SaveToFile; the next use that needs the table then starts a new empty image (after
// Close only once Attach or LoadFromFile gave it room to grow again).
#pragma once

#include "BaseMemFile.h"
#include "BinFile.h"
#include "BitsBinFile.h"

template <class FileClass>
class DORVIK_API CMemTwin : public CBaseMemFile, public FileClass {
public:
    // Each constructor makes the memory side as CBaseMemFile does, then loads the
    // table; an empty memory file becomes the 4-byte empty record file at once. A block
    // that is no record file leaves the twin with no table and 0 records.
    explicit CMemTwin(UINT growBytes = 0);
    CMemTwin(const char* path, UINT growBytes);
    CMemTwin(BYTE* buffer, UINT size, UINT growBytes);
    ~CMemTwin() override;

    LONG Seek(LONG offset, UINT from) override;
    void SetLength(DWORD length) override;
    // The stored length, plus the table in not safe mode (as the file class says).
    DWORD GetLength() const override;
    UINT Read(void* buffer, UINT count) override;
    void Write(const void* buffer, UINT count) override;
    // Releases the table and the block. No table is written: in not safe mode the
    // changes go with the block.
    void Close() override;
    DWORD GetPosition() const override;
    CString GetFilePath() const override { return CString(); }
    void Flush() override {}
    void SeekToBegin() { Seek(0, CFile::begin); }
    DWORD SeekToEnd() { return static_cast<DWORD>(Seek(0, CFile::end)); }

    // Takes over `buffer` (a C heap block, or null with size 0) and loads its table.
    void Attach(BYTE* buffer, DWORD size, UINT growBytes) override;
    // Completes the image with its table (the twin is in safe mode afterwards),
    // releases the table and gives the block away; release it with free or DropBlock.
    BYTE* Detach() override;
    virtual DWORD ReadHuge(void* buffer, DWORD count);
    virtual void WriteHuge(const void* buffer, DWORD count);
};

extern template class CMemTwin<CBinFile>;
extern template class CMemTwin<CBitsBinFile>;

// A record file in memory.
class DORVIK_API CMemBinFile : public CMemTwin<CBinFile> {
public:
    using CMemTwin<CBinFile>::CMemTwin;
    ~CMemBinFile() override;
};

// A bit record file in memory.
class DORVIK_API CMemBitsBinFile : public CMemTwin<CBitsBinFile> {
public:
    using CMemTwin<CBitsBinFile>::CMemTwin;
    ~CMemBitsBinFile() override;
};
