#pragma once

#include <atomic>

#include "platform/Clock.h"

namespace Tolvar {

/// Time that stands still until somebody waits, and then jumps. It was made at noon.
class VirtualClock : public Clock {
  public:
    std::int64_t NowNs() const override { return Now_; }
    double SecondsSinceMidnight() const override;
    /// std::logic_error for Forever: nothing could ever end that wait.
    void WaitUntil(std::int64_t DueNs, const EventWait& Events) override;

  private:
    std::atomic<std::int64_t> Now_ = 0;
};

}  // namespace Tolvar
