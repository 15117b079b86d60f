#include "recordfile/RecordImage.h"

#include "frame/Coding.h"
#include "recordfile/RecordTable.h"

namespace dorvik {

bool RecordImage::Check(std::span<const unsigned char> bytes, RecordImage& image) {
    if (bytes.size() < 4 || bytes.size() > static_cast<std::size_t>(kMaxFileLength)) return false;
    auto size = static_cast<DWORD>(bytes.size());
    TableLocation table;
    if (!TableFromLastWord(DecodeFixed32(bytes.data() + size - 4), size, table)) return false;
    if (!table.inStep) return false;  // the last word would not be the table's last entry
    DWORD previous = 0;
    for (DWORD i = 0; i <= table.count; ++i) {
        DWORD entry = DecodeFixed32(bytes.data() + table.offset + 4 * i);
        if ((i == 0 && entry != 0) || entry < previous || entry > table.offset) return false;
        previous = entry;
    }
    if (previous != table.offset) return false;
    image.bytes_ = bytes;
    image.table_ = table.offset;
    image.count_ = table.count;
    return true;
}

std::span<const unsigned char> RecordImage::record(std::uint32_t index) const noexcept {
    const unsigned char* entry = bytes_.data() + table_ + 4 * std::size_t{index};
    DWORD first = DecodeFixed32(entry), next = DecodeFixed32(entry + 4);
    return bytes_.subspan(first, next - first);
}

}  // namespace dorvik
