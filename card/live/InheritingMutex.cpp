#include "card/live/InheritingMutex.h"

#include <ctime>

#include "platform/posix/RealClock.h"

namespace Tolvar {

InheritingMutex::InheritingMutex() {
    pthread_mutexattr_t Kind;
    pthread_mutexattr_init(&Kind);
    pthread_mutexattr_setprotocol(&Kind, PTHREAD_PRIO_INHERIT);
    // A system that cannot do it has a plain one.
    if (pthread_mutex_init(&Mutex_, &Kind) != 0) pthread_mutex_init(&Mutex_, nullptr);
    pthread_mutexattr_destroy(&Kind);
}

InheritingCondition::InheritingCondition() {
    pthread_condattr_t Kind;
    pthread_condattr_init(&Kind);
    pthread_condattr_setclock(&Kind, CLOCK_MONOTONIC);
    pthread_cond_init(&Condition_, &Kind);
    pthread_condattr_destroy(&Kind);
}

std::int64_t InheritingCondition::After(std::int64_t Ns) {
    return Ns == Forever ? Forever : MonotonicNs() + Ns;
}

bool InheritingCondition::WaitUntil(InheritingMutex& Held, std::int64_t DueNs) {
    if (DueNs == Forever) return pthread_cond_wait(&Condition_, &Held.Mutex_) == 0;
    const timespec Due{DueNs / NsPerSecond, DueNs % NsPerSecond};
    return pthread_cond_timedwait(&Condition_, &Held.Mutex_, &Due) == 0;
}

}  // namespace Tolvar
