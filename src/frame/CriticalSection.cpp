#include "dorvik/CriticalSection.h"

namespace dorvik::classic {
CCriticalSection::CCriticalSection() = default;

CCriticalSection::~CCriticalSection() = default;

BOOL CCriticalSection::Lock() {
    m_mutex.lock();
    return 1;
}

BOOL CCriticalSection::Unlock() {
    m_mutex.unlock();
    return 1;
}

}  // namespace dorvik::classic
