// Temporary files of the library.
#pragma once

#include "dorvik/String.h"

namespace dorvik::classic {
// Creates a new empty file in $TMPDIR (else /tmp) whose name starts with `prefix`
// ("dvk" when null) and puts its full path in `name`. No other caller gets the same
// name. Throws CFileException when no file can be created.
void MakeTempFileName(CString& name, const char* prefix);
// Creates a new empty file "<path>.XXXXXX" beside `path`, on the same file system, so
// that it can be renamed over `path`, and puts its name in `name`. It has the mode of
// the file at `path`, or 0666 less the umask when there is none. Throws as above.
void MakeTempFileBeside(CString& name, const char* path);

}  // namespace dorvik::classic

using dorvik::classic::MakeTempFileBeside;
using dorvik::classic::MakeTempFileName;
