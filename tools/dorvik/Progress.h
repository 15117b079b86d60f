// A one-line progress bar on standard error, redrawn at most ten times a second, shown
// only when standard error is a terminal and the user did not ask for quiet.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

namespace tool {

class ProgressBar {
public:
    // Shown when `wanted` and standard error is a terminal.
    explicit ProgressBar(bool wanted);
    // Clears the line.
    ~ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    // `done` of `total` (0: unknown) in `stage`; `bytes` says they are bytes, which are
    // shown in MB. A new stage is always drawn; otherwise at most every 100 ms.
    void Show(std::string_view stage, std::uint64_t done, std::uint64_t total, bool bytes);
    // Removes the bar from the terminal, so that other output starts on a clean line.
    void Clear();

private:
    bool shown_;
    bool drawn_ = false;
    std::string stage_;
    std::chrono::steady_clock::time_point last_{};
};

}  // namespace tool
