// The record decoding rule of the value keys; the sort tree itself is a template.
#include "dorvik/SortTree.h"

#include "frame/Coding.h"

namespace dorvik::classic {
int GetRecordValue(const void* record, int size) {
    if (!record || size < 1) return 0;
    const auto* p = static_cast<const unsigned char*>(record);
    if (size >= 4) return static_cast<int>(dorvik::DecodeFixed32(p));
    DWORD v = dorvik::DecodeFixed(p, size);
    if (size == 3 && (v & 0x800000)) return -1;
    return static_cast<int>(v);
}

}  // namespace dorvik::classic
