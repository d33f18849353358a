#pragma once

#include <cstdint>
#include <span>

#include "waveplay/player/LocalPlayer.h"
#include "waveplay/wave/Pieces.h"

namespace Tolvar {

/// Reads the frames of a wave, wherever it is played: the same block lists, handed over to a
/// player object that never plays. One thread.
class WaveFrames {
  public:
    /// RuntimeFailure when the block lists are refused.
    explicit WaveFrames(const Wave& Whole);

    /// Into has one sample for each channel of a frame; From counts from 0 and what is asked for
    /// lies inside the wave. All left samples come first, then all right ones. RuntimeFailure when
    /// a file cannot be read.
    void Read(std::int32_t From, std::span<std::int16_t> Into) const;

  private:
    LocalPlayer Silent_;
};

}  // namespace Tolvar
