#include "card/frames/EdgeRamps.h"

#include <algorithm>

namespace Tolvar {
namespace {

/// Frame is counted from the silent end of the ramp.
std::int16_t Ramped(std::int16_t Sample, std::int64_t Frame, std::int64_t Ramp) {
    return static_cast<std::int16_t>(Sample * (Frame + 1) / (Ramp + 1));
}

}  // namespace

void Rise(std::span<std::int16_t> Samples, std::int64_t Channels, std::int64_t& Seen,
          std::int64_t Ramp) {
    for (auto At = Samples.begin(); At != Samples.end() && Seen < Ramp; ++Seen) {
        for (std::int64_t Channel = 0; Channel < Channels; ++Channel, ++At)
            *At = Ramped(*At, Seen, Ramp);
    }
}

void Fall(std::span<std::int16_t> Samples, std::int64_t Channels, std::int64_t Ramp) {
    std::int64_t Left = std::ssize(Samples);
    for (std::int16_t& Sample : Samples)
        Sample = Ramped(Sample, --Left / Channels, Ramp);
}

void EdgeRamps::Pass(std::span<const std::int16_t> Samples, const Output& Out) {
    const std::size_t First = Held_.size();
    Held_.insert(Held_.end(), Samples.begin(), Samples.end());
    Rise(std::span(Held_).subspan(First), Channels_, Seen_, Ramp_);
    const std::int64_t Ready = FramesHeld() - Ramp_;
    if (Ready <= 0) return;
    const auto End = Held_.begin() + Ready * Channels_;
    Out({Held_.begin(), End});
    Held_.erase(Held_.begin(), End);
}

void EdgeRamps::Finish(const Output& Out) {
    Fall(Held_, Channels_, Ramp_);
    if (!Held_.empty()) Out(Held_);
    Held_.clear();
    Seen_ = 0;
}

}  // namespace Tolvar
