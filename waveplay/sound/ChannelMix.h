#pragma once

#include <span>
#include <vector>

namespace Tolvar {

/// Brings interleaved frames of any width to one or two channels. One channel goes to both, two
/// become their mean. Surround sound, in the order of WAV and FLAC files, keeps its front and
/// takes centre and back in at -3 dB, scaled so that it cannot clip; the bass channel stays out.
/// Of more than eight channels the first two count.
class ChannelMix {
  public:
    /// From >= 1, To 1 or 2.
    ChannelMix(int From, int To);

    /// Whether 16-bit samples come out as finer ones.
    bool Weighs() const { return From_ > 2; }

    /// Valid until the next call. Frames that need no mixing come back as they are.
    std::span<const double> Mix(std::span<const double> Frames);

  private:
    std::size_t From_;
    std::size_t To_;
    std::vector<double> Weights_;  // for each output channel one of every input channel
    std::vector<double> Mixed_;
};

}  // namespace Tolvar
