#pragma once

#include <cstdint>

#include "platform/Clock.h"

namespace Tolvar {

/// Frames that a steady rate has played since a moment; exact, however long it runs.
class FrameTimer {
  public:
    /// RateHz 1..384000.
    explicit FrameTimer(int RateHz) : Rate(RateHz) {}

    void Start(std::int64_t NowNs) { StartNs = NowNs; }

    /// Whole frames, rounded down. Seconds and nanoseconds apart, so that no product overflows.
    std::int64_t FramesAt(std::int64_t NowNs) const {
        const std::int64_t Ns = NowNs - StartNs;
        return Ns / NsPerSecond * Rate + Ns % NsPerSecond * Rate / NsPerSecond;
    }

  private:
    std::int64_t Rate;
    std::int64_t StartNs = 0;
};

}  // namespace Tolvar
