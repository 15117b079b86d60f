#include "cxx/Progress.h"

#include <string_view>
#include <utility>

namespace dorvik::cxx {
namespace {
thread_local ProgressScope* current = nullptr;

bool SortingHook(int done, int total) { return CallProgress(Stage::sorting, done, total); }
bool IndexingHook(int done, int total) { return CallProgress(Stage::indexing, done, total); }
}  // namespace

bool CallProgress(Stage stage, int done, int total) noexcept {
    ProgressScope* scope = current;
    if (!scope || scope->failure_) return !scope;
    if (!scope->progress_) return true;  // an empty progress hears nothing
    try {
        std::string_view name = stage == Stage::sorting ? "sorting" : "indexing";
        scope->progress_(name, static_cast<std::size_t>(done < 0 ? 0 : done),
                         static_cast<std::size_t>(total < 0 ? 0 : total));
    } catch (...) {
        scope->failure_ = std::current_exception();
        return false;
    }
    return true;
}

ProgressScope::ProgressScope(const Progress& progress) noexcept
    : progress_(progress), outer_(current) {
    current = this;
}

ProgressScope::~ProgressScope() { current = outer_; }

bool (*ProgressHook(Stage stage) noexcept)(int, int) {
    if (!current || !current->progress_) return nullptr;
    return stage == Stage::sorting ? SortingHook : IndexingHook;
}

bool ProgressFailed() noexcept { return current && current->failure_; }

void RethrowProgressFailure() {
    if (!current || !current->failure_) return;
    std::rethrow_exception(std::exchange(current->failure_, nullptr));
}

}  // namespace dorvik::cxx
