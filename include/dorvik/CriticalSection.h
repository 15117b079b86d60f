// CCriticalSection: the lock of the platform layer, for objects that several threads
// share.
#pragma once

#include <mutex>

#include "Platform.h"

namespace dorvik::classic {
// Re-entrant: the thread that holds the lock may take it again, and gives it up after
// as many Unlock calls as it made Lock calls. Not copyable.
class DORVIK_API CCriticalSection : public CObject {
public:
    CCriticalSection();
    // Must not be destroyed while a thread holds it.
    ~CCriticalSection() override;

    // Blocks until the calling thread holds the lock; returns nonzero.
    BOOL Lock();
    // Gives up one hold of the calling thread, which must hold the lock; returns nonzero.
    virtual BOOL Unlock();

private:
    std::recursive_mutex m_mutex;
};

}  // namespace dorvik::classic

using dorvik::classic::CCriticalSection;
