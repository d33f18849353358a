#pragma once

#include <cstdint>

#include "card/frames/FrameTimer.h"
#include "platform/Clock.h"

namespace Tolvar {

/// What time it is for whoever listens to a live output. While nothing plays it is the clock's.
/// From Begin on it is frozen until the run's first frame is heard; then it is the position of the
/// device, extrapolated between the looks at it. It never runs backward.
///
/// A run's frames are counted as its source counts them, a device's from 0 on. Not synchronised.
class ListenerTime {
  public:
    /// A device is taken to play on unseen for MostUnseenNs.
    ListenerTime(const Clock& Clock, std::int64_t MostUnseenNs)
        : Time_(Clock), MostUnseen_(MostUnseenNs) {}

    std::int64_t NowNs();

    /// A run sets off now with frame Frame. InSilence: the clock goes on telling until a device
    /// has been heard.
    std::int64_t Begin(int RateHz, std::int64_t Frame, bool InSilence);
    /// The frame of the run that the listener is at.
    std::int64_t FrameNow() { return RunTime_.FramesAt(NowNs()); }
    /// All frames of the run before that one have been heard.
    void HeardUpTo(std::int64_t Frame);
    /// The run is over, or its device lost: the clock goes on from what was heard last. The
    /// listener's time at that moment.
    std::int64_t End();

    /// A device is to play the run from Frame on.
    void Adopt(int DeviceHz, std::int64_t Frame);
    bool HasDevice() const { return Adopted_; }
    /// It was given so many frames more.
    void WasGiven(std::int64_t Frames) { WrittenFrames_ += Frames; }
    /// It has played so many in all.
    void Saw(std::int64_t Frames);
    /// It plays nothing until it is seen to have played more.
    void RanDry() { PlaysOn_ = false; }

    // Of the device adopted last.
    std::int64_t Written() const { return WrittenFrames_; }
    std::int64_t Heard() const { return HeardFrames_; }

  private:
    enum class Teller { Clock, Nobody, Device };

    std::int64_t DeviceNs() const;
    void GoOnFrom(std::int64_t Ns);

    const Clock& Time_;
    const std::int64_t MostUnseen_;
    Teller Told_ = Teller::Clock;
    std::int64_t ToldNs_ = 0;
    std::int64_t BaseNs_ = 0;       // the time at which the clock was
    std::int64_t BaseClockNs_ = 0;  // this, and from which it tells
    FrameTimer RunTime_{1};
    FrameTimer DeviceTime_{1};
    bool Adopted_ = false;
    std::int64_t WrittenFrames_ = 0;
    std::int64_t HeardFrames_ = 0;
    std::int64_t SeenClockNs_ = 0;  // the clock's when HeardFrames was seen
    bool PlaysOn_ = false;          // it has, between two looks at it
};

}  // namespace Tolvar
