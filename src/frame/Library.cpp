#include "frame/Library.h"

#include "dorvik/Platform.h"

namespace dorvik::classic {
void DorvikLibraryAttach() { AfxTrace("%s", "Dorvik.DLL Initializing!\n"); }

void DorvikLibraryDetach() { AfxTrace("%s", "Dorvik.DLL Terminating!\n"); }

namespace {
__attribute__((constructor)) void OnLoad() { DorvikLibraryAttach(); }
__attribute__((destructor)) void OnUnload() { DorvikLibraryDetach(); }
}  // namespace

}  // namespace dorvik::classic
