// A seam of the file layer for tests: a process-wide hook that CFile calls before each
// system call that reads or changes a file on disk. A test makes calls fail (by throwing
// from the hook), makes a write land short, or stops the process at a chosen call, and
// so reaches every point where a change can be cut. Without a hook (the default) each
// call costs one load and one test.
#pragma once

#include <cstdint>

#include "dorvik/File.h"

namespace dorvik {

enum class FileCall { read, write, truncate, create, remove, rename };

// Called with the kind of call and, for reads and writes, its byte count and the offset
// in the file where it starts (-1 for the other calls). Returns the
// bytes to let through: `bytes` for the call as asked. A write given fewer writes those
// and then throws CFileException(diskFull), as on a full disk; a read given fewer reads
// those, as at the end of the file. The hook may also throw (the call then never starts)
// or end the process.
using FileHook = UINT (*)(FileCall call, UINT bytes, std::int64_t at);

// Installs `hook` (null removes it) for all threads; returns the one it replaces.
FileHook SetFileHook(FileHook hook);

// What the hook allows of a call; `bytes` when none is installed.
UINT AllowFileCall(FileCall call, UINT bytes, std::int64_t at = -1);

}  // namespace dorvik
