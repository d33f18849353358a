#pragma once

#include <cstdint>

#include "platform/Clock.h"

namespace Tolvar {

/// Counts the frames that a rate has played; exact, however long it runs and however often the
/// rate changes. A moment is a clock's NowNs.
class FrameTimer {
  public:
    /// RateHz 1..384000, as everywhere below.
    explicit FrameTimer(int RateHz) : Rate(RateHz) {}

    int RateHz() const { return static_cast<int>(Rate); }

    /// Sets off at NowNs with the beginning of frame Frame.
    void Start(std::int64_t NowNs, std::int64_t Frame) {
        StartNs = NowNs;
        StartFrame = Frame;
        Phase = 0;
    }

    /// The frame in progress goes on at the new rate from where it is.
    void ChangeRate(std::int64_t NowNs, int RateHz) {
        const std::int64_t Now = FramesAt(NowNs);
        Phase = PhaseAt(NowNs) % NsPerSecond;
        StartNs = NowNs;
        StartFrame = Now;
        Rate = RateHz;
    }

    /// What it was started for, or changed to, is put off to that moment.
    void PutOff(std::int64_t ToNs) { StartNs = ToNs; }

    /// Frames that are over, counted from frame 0. NowNs is not before the start.
    std::int64_t FramesAt(std::int64_t NowNs) const {
        return StartFrame + (NowNs - StartNs) / NsPerSecond * Rate + PhaseAt(NowNs) / NsPerSecond;
    }

    /// The first moment at which FramesAt is Frame; in the past for one that is over.
    std::int64_t NsOf(std::int64_t Frame) const {
        const std::int64_t Ahead = Frame - StartFrame;
        const std::int64_t Rest = Ahead % Rate * NsPerSecond - Phase;
        const std::int64_t RestNs = Rest > 0 ? (Rest + Rate - 1) / Rate : Rest / Rate;
        return StartNs + Ahead / Rate * NsPerSecond + RestNs;
    }

  private:
    // Whole seconds are counted apart, so that no product overflows.
    std::int64_t PhaseAt(std::int64_t NowNs) const {
        return (NowNs - StartNs) % NsPerSecond * Rate + Phase;
    }

    std::int64_t Rate;
    std::int64_t StartNs = 0;
    std::int64_t StartFrame = 0;
    std::int64_t Phase = 0;  // of the frame in progress at the start, in frames / 1e9
};

}  // namespace Tolvar
