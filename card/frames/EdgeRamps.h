#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "card/frames/StreamFormat.h"

namespace Tolvar {

/// Frames of a run of which Seen came before: the first Ramp of it rise from silence. Counts Seen
/// on, as far as the ramp goes.
void Rise(std::span<std::int16_t> Samples, std::int64_t Channels, std::int64_t& Seen,
          std::int64_t Ramp);
/// The last frames of a run, at most Ramp, fall to silence.
void Fall(std::span<std::int16_t> Samples, std::int64_t Channels, std::int64_t Ramp);

/// Lets the first frames of a run rise from silence and the last ones fall to it; none is added or
/// lost. It holds as many back as a ramp is long, because the end is known only when it is there.
class EdgeRamps {
  public:
    using Output = std::function<void(std::span<const std::int16_t>)>;

    EdgeRamps(StreamFormat Of, int Ms) : Channels_(Of.Channels), Ramp_(Of.RateHz * Ms / 1000) {}

    /// Whole frames of the run; Out gets those that cannot be in its last ramp.
    void Pass(std::span<const std::int16_t> Samples, const Output& Out);
    /// The run is over. The next Pass begins another.
    void Finish(const Output& Out);

  private:
    std::int64_t FramesHeld() const { return std::ssize(Held_) / Channels_; }

    std::int64_t Channels_;
    std::int64_t Ramp_;
    std::int64_t Seen_ = 0;  // frames of the run
    std::vector<std::int16_t> Held_;
};

}  // namespace Tolvar
