// A record file image that lies whole in memory (a mapped file, or a record that holds a
// nested file), read without copying and checked as strictly as a change needs it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace dorvik {

class RecordImage {
public:
    // The image in `bytes` when it is a valid record file: its last word names a table
    // in step with the end (the rule of RecordTable.h), whose entries start at 0 and
    // rise to the table's own offset. False otherwise, also for fewer than 4 bytes.
    // Reads every table word once; keeps a view of `bytes`, which must outlive it.
    static bool Check(std::span<const unsigned char> bytes, RecordImage& image);

    std::uint32_t count() const noexcept { return count_; }
    // The bytes of record `index` (below count()).
    std::span<const unsigned char> record(std::uint32_t index) const noexcept;

private:
    std::span<const unsigned char> bytes_;
    std::uint32_t table_ = 0;
    std::uint32_t count_ = 0;
};

}  // namespace dorvik
