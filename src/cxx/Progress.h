// Progress of the engine's long steps, handed to a dorvik::Progress. The engine calls a
// plain function without user data, so the function in force lives in a scope of the
// calling thread, and what it throws waits there until the engine has returned.
#pragma once

#include <exception>

#include "dorvik/dorvik.hpp"

namespace dorvik::cxx {

enum class Stage { sorting, indexing };

// Tells the scope in force; false once its progress has thrown (and when none is in
// force: then it is never called).
bool CallProgress(Stage stage, int done, int total) noexcept;

// While alive, the progress hooks of this thread reach `progress` (an empty one hears
// nothing). Scopes nest; the innermost is in force.
class ProgressScope {
public:
    explicit ProgressScope(const Progress& progress) noexcept;
    ~ProgressScope();
    ProgressScope(const ProgressScope&) = delete;
    ProgressScope& operator=(const ProgressScope&) = delete;

    // Read by the hooks of this thread only.
    const Progress& progress_;
    std::exception_ptr failure_;

private:
    ProgressScope* outer_;
};

// The engine callback for `stage`: it tells the scope in force and returns false (stop)
// once the progress has thrown. Null when no scope is in force, so the engine skips it.
bool (*ProgressHook(Stage stage) noexcept)(int, int);
// True when the progress of the scope in force has thrown.
bool ProgressFailed() noexcept;
// Rethrows what the progress of the scope in force threw, once; nothing otherwise.
void RethrowProgressFailure();

}  // namespace dorvik::cxx
