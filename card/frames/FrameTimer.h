#pragma once

#include <cstdint>

#include "platform/Clock.h"

namespace Tolvar {

/// Counts the frames that a rate has played; exact, however long it runs and however often the
/// rate changes. A moment is a clock's NowNs.
class FrameTimer {
  public:
    /// RateHz 1..384000, as everywhere below.
    explicit FrameTimer(int RateHz) : Rate_(RateHz) {}

    int RateHz() const { return static_cast<int>(Rate_); }

    /// Sets off at NowNs with the beginning of frame Frame.
    void Start(std::int64_t NowNs, std::int64_t Frame) {
        StartNs_ = NowNs;
        StartFrame_ = Frame;
        Phase_ = 0;
    }

    /// The frame in progress goes on at the new rate from where it is.
    void ChangeRate(std::int64_t NowNs, int RateHz) {
        const std::int64_t Now = FramesAt(NowNs);
        Phase_ = PhaseAt(NowNs) % NsPerSecond;
        StartNs_ = NowNs;
        StartFrame_ = Now;
        Rate_ = RateHz;
    }

    /// Moves the start time to that moment; the start frame stays.
    void PutOff(std::int64_t ToNs) { StartNs_ = ToNs; }

    /// Frames that are over, counted from frame 0. NowNs is not before the start.
    std::int64_t FramesAt(std::int64_t NowNs) const {
        return StartFrame_ + (NowNs - StartNs_) / NsPerSecond * Rate_ +
               PhaseAt(NowNs) / NsPerSecond;
    }

    /// The first moment at which FramesAt is Frame; in the past for one that is over.
    std::int64_t NsOf(std::int64_t Frame) const {
        const std::int64_t Ahead = Frame - StartFrame_;
        const std::int64_t Rest = Ahead % Rate_ * NsPerSecond - Phase_;
        const std::int64_t RestNs = Rest > 0 ? (Rest + Rate_ - 1) / Rate_ : Rest / Rate_;
        return StartNs_ + Ahead / Rate_ * NsPerSecond + RestNs;
    }

  private:
    // Whole seconds are counted apart, so that no product overflows.
    std::int64_t PhaseAt(std::int64_t NowNs) const {
        return (NowNs - StartNs_) % NsPerSecond * Rate_ + Phase_;
    }

    std::int64_t Rate_;
    std::int64_t StartNs_ = 0;
    std::int64_t StartFrame_ = 0;
    std::int64_t Phase_ = 0;  // of the frame in progress at the start, in frames / 1e9
};

}  // namespace Tolvar
