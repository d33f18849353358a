#pragma once

#include <atomic>

#include "platform/Clock.h"

namespace Tolvar {

/// The system's clock that nobody sets.
std::int64_t MonotonicNs();

/// The machine's monotonic time, counted from the clock's making; waits in the kernel. Time of day
/// is local time.
class RealClock : public Clock {
  public:
    RealClock();
    std::int64_t NowNs() const override;
    double SecondsSinceMidnight() const override;
    void WaitUntil(std::int64_t DueNs, std::span<pollfd> Fds) override;

  private:
    std::int64_t StartNs;
};

/// Time that stands still until somebody waits, and then jumps. It was made at noon.
class VirtualClock : public Clock {
  public:
    std::int64_t NowNs() const override { return Now; }
    double SecondsSinceMidnight() const override;
    /// std::logic_error for Forever: nothing could ever end that wait.
    void WaitUntil(std::int64_t DueNs, std::span<pollfd> Fds) override;

  private:
    std::atomic<std::int64_t> Now = 0;
};

}  // namespace Tolvar
