#include "Progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace tool {
namespace {

std::string Amount(std::uint64_t n, bool bytes) {
    char text[32];
    if (bytes)
        std::snprintf(text, sizeof text, "%.1f MB", static_cast<double>(n) / 1e6);
    else
        std::snprintf(text, sizeof text, "%llu", static_cast<unsigned long long>(n));
    return text;
}

}  // namespace

ProgressBar::ProgressBar(bool wanted) : shown_(wanted && ::isatty(2) == 1) {}

ProgressBar::~ProgressBar() { Clear(); }

void ProgressBar::Show(std::string_view stage, std::uint64_t done, std::uint64_t total,
                       bool bytes) {
    if (!shown_) return;
    auto now = std::chrono::steady_clock::now();
    if (stage == stage_ && now - last_ < std::chrono::milliseconds(100)) return;
    stage_ = stage;
    last_ = now;
    constexpr int kWidth = 30;
    std::string line = "\r\033[K" + stage_;
    line.resize(std::max<std::size_t>(line.size(), 4 + 10), ' ');
    if (total > 0) {
        if (done > total) done = total;
        int filled = static_cast<int>(done * kWidth / total);
        line += " [" + std::string(static_cast<std::size_t>(filled), '#') +
                std::string(static_cast<std::size_t>(kWidth - filled), '.') + "] ";
        char percent[16];
        std::snprintf(percent, sizeof percent, "%3d%%", static_cast<int>(done * 100 / total));
        line += percent;
        line += "  " + Amount(done, bytes) + " of " + Amount(total, bytes);
    } else {
        line += " " + Amount(done, bytes);
    }
    std::fputs(line.c_str(), stderr);
    std::fflush(stderr);
    drawn_ = true;
}

void ProgressBar::Clear() {
    if (!drawn_) return;
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
    drawn_ = false;
    stage_.clear();
}

}  // namespace tool
