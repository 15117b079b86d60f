// Library entry and exit. The shared library calls these from its load and unload
// functions; they write the two trace lines and set up nothing else.
#pragma once

namespace dorvik::classic {
void DorvikLibraryAttach();
void DorvikLibraryDetach();

}  // namespace dorvik::classic

using dorvik::classic::DorvikLibraryAttach;
using dorvik::classic::DorvikLibraryDetach;
