#pragma once

#include "platform/Clock.h"

namespace Tolvar {

/// The system's clock that nobody sets, in nanoseconds. Any thread.
std::int64_t MonotonicNs();

/// The machine's monotonic time, counted from the clock's making; waits in the kernel. Time of day
/// is local time.
class RealClock : public Clock {
  public:
    RealClock();
    std::int64_t NowNs() const override;
    double SecondsSinceMidnight() const override;
    void WaitUntil(std::int64_t DueNs, const EventWait& Events) override;

  private:
    std::int64_t StartNs_;
};

}  // namespace Tolvar
