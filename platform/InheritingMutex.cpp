#include "platform/InheritingMutex.h"

#include <cerrno>
#include <ctime>

#include "platform/Clock.h"

namespace Tolvar {

InheritingMutex::InheritingMutex() {
    pthread_mutexattr_t Kind;
    pthread_mutexattr_init(&Kind);
    pthread_mutexattr_setprotocol(&Kind, PTHREAD_PRIO_INHERIT);
    pthread_mutex_init(&Mutex, &Kind);
    pthread_mutexattr_destroy(&Kind);
}

InheritingCondition::InheritingCondition() {
    pthread_condattr_t Kind;
    pthread_condattr_init(&Kind);
    pthread_condattr_setclock(&Kind, CLOCK_MONOTONIC);
    pthread_cond_init(&Condition, &Kind);
    pthread_condattr_destroy(&Kind);
}

std::int64_t InheritingCondition::After(std::int64_t Ns) {
    if (Ns == Forever) return Forever;
    timespec Now{};
    clock_gettime(CLOCK_MONOTONIC, &Now);
    return Now.tv_sec * NsPerSecond + Now.tv_nsec + Ns;
}

bool InheritingCondition::WaitUntil(InheritingMutex& Held, std::int64_t DueNs) {
    if (DueNs == Forever) return pthread_cond_wait(&Condition, &Held.Mutex) == 0;
    const timespec Due{DueNs / NsPerSecond, DueNs % NsPerSecond};
    return pthread_cond_timedwait(&Condition, &Held.Mutex, &Due) != ETIMEDOUT;
}

}  // namespace Tolvar
