#pragma once

#include <pthread.h>

#include <cstdint>
#include <mutex>

namespace Tolvar {

/// A mutex whose owner runs at the priority of the thread that waits for it: one at real-time
/// priority waits for what is done under it, and not for all else that the machine does.
class InheritingMutex {
  public:
    InheritingMutex();
    ~InheritingMutex() { pthread_mutex_destroy(&Mutex_); }
    InheritingMutex(const InheritingMutex&) = delete;
    InheritingMutex& operator=(const InheritingMutex&) = delete;

    void lock() { pthread_mutex_lock(&Mutex_); }
    void unlock() { pthread_mutex_unlock(&Mutex_); }

  private:
    friend class InheritingCondition;
    pthread_mutex_t Mutex_;
};

/// What threads wait for under such a mutex, which Held keeps.
class InheritingCondition {
  public:
    InheritingCondition();
    ~InheritingCondition() { pthread_cond_destroy(&Condition_); }
    InheritingCondition(const InheritingCondition&) = delete;
    InheritingCondition& operator=(const InheritingCondition&) = delete;

    void NotifyOne() { pthread_cond_signal(&Condition_); }
    void NotifyAll() { pthread_cond_broadcast(&Condition_); }
    /// Until it holds, or ForNs are over (Forever: never). Whether it holds.
    template <typename Predicate>
    bool WaitFor(std::unique_lock<InheritingMutex>& Held, std::int64_t ForNs, Predicate Holds) {
        for (const std::int64_t DueNs = After(ForNs); !Holds();) {
            if (!WaitUntil(*Held.mutex(), DueNs)) return Holds();
        }
        return true;
    }

  private:
    static std::int64_t After(std::int64_t Ns);
    /// False: it is too late.
    bool WaitUntil(InheritingMutex& Held, std::int64_t DueNs);

    pthread_cond_t Condition_;
};

}  // namespace Tolvar
