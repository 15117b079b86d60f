// Platform layer: fixed-width types of the file formats, the root class, blocks of
// the C heap, and the two outputs of the library (message and trace).
#pragma once

#include <cstddef>
#include <cstdint>

#define DORVIK_API __attribute__((visibility("default")))

namespace dorvik::classic {
// File formats are 32-bit and little-endian: these types never let a 64-bit long
// reach a file. Seek offsets and results are LONG; sizes and positions are DWORD.
using DWORD = std::uint32_t;
using LONG = std::int32_t;
using UINT = unsigned int;
using BOOL = int;
using BYTE = unsigned char;

// Opaque iteration handle of the node classes.
struct DorvikPosition;
using POSITION = DorvikPosition*;

// Root of the file classes and of the pointer-array containers.
class DORVIK_API CObject {
public:
    CObject() = default;
    virtual ~CObject();
    CObject(const CObject&) = delete;
    CObject& operator=(const CObject&) = delete;
};

// Blocks of the C heap. Every byte of a new block, and every byte that a growth adds,
// reads 0, also after a shrink and a later growth. Blocks are released with DropBlock
// or with free(); malloc blocks may be given to DropBlock and RegrowBlock. Who releases
// what the library hands out (DropBlock, delete[], free) is listed in the README.

// A block of at least `size` bytes, all zero (size 0 gives a valid 1-byte block).
// Returns null when memory is exhausted; never throws.
DORVIK_API void* GrabBlock(std::size_t size);

// Resizes `block` (which may move) to `size` bytes; a null block is taken with
// GrabBlock. Content up to the old size stays, added bytes are 0. When memory is
// exhausted it throws CMemoryException and leaves the old block as it was.
DORVIK_API void* RegrowBlock(void* block, std::size_t size);

// Releases a block; null does nothing.
DORVIK_API void DropBlock(void* block);

// Test hook: GrabBlock returns null for any request above `limit` bytes, as if memory
// were exhausted (RegrowBlock throws). Pass SIZE_MAX to lift it. Returns the old limit.
// Like the two handlers below it is process-wide: it may be set from any thread, and it
// holds for every thread at once.
DORVIK_API std::size_t DorvikSetBlockLimit(std::size_t limit);

// A modal message with an OK button. The library shows one text only, when a data
// move runs out of memory. The handler gets the text as it stands, on the thread of the
// operation; the default handler writes it as one line on standard error. Returns 1
// (IDOK). Handler and sink are process-wide and may be replaced from any thread.
DORVIK_API int AfxMessageBox(const char* text, UINT type = 0, UINT help = 0);
using AfxMessageHandler = int (*)(const char* text, UINT type, UINT help);
// Replaces the message handler (null restores the default); returns the previous one.
DORVIK_API AfxMessageHandler AfxSetMessageHandler(AfxMessageHandler handler);

// Diagnostic output, printf-style. The sink gets each formatted text; the default
// sink writes to standard error in debug builds and is silent in release builds.
DORVIK_API void AfxTrace(const char* format, ...) __attribute__((format(printf, 1, 2)));
using AfxTraceSink = void (*)(const char* text);
// Replaces the trace sink (null restores the default); returns the previous one.
DORVIK_API AfxTraceSink AfxSetTraceSink(AfxTraceSink sink);

}  // namespace dorvik::classic

using dorvik::classic::AfxMessageBox;
using dorvik::classic::AfxMessageHandler;
using dorvik::classic::AfxSetMessageHandler;
using dorvik::classic::AfxSetTraceSink;
using dorvik::classic::AfxTrace;
using dorvik::classic::AfxTraceSink;
using dorvik::classic::BOOL;
using dorvik::classic::BYTE;
using dorvik::classic::CObject;
using dorvik::classic::DorvikPosition;
using dorvik::classic::DorvikSetBlockLimit;
using dorvik::classic::DropBlock;
using dorvik::classic::DWORD;
using dorvik::classic::GrabBlock;
using dorvik::classic::LONG;
using dorvik::classic::POSITION;
using dorvik::classic::RegrowBlock;
using dorvik::classic::UINT;
