// Library entry and exit. The shared library calls these from its load and unload
// functions; they write the two trace lines and set up nothing else.
#pragma once

void DorvikLibraryAttach();
void DorvikLibraryDetach();
