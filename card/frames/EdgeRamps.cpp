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
    const std::size_t First = Held.size();
    Held.insert(Held.end(), Samples.begin(), Samples.end());
    Rise(std::span(Held).subspan(First), Channels, Seen, Ramp);
    const std::int64_t Ready = FramesHeld() - Ramp;
    if (Ready <= 0) return;
    const auto End = Held.begin() + Ready * Channels;
    Out({Held.begin(), End});
    Held.erase(Held.begin(), End);
}

void EdgeRamps::Finish(const Output& Out) {
    Fall(Held, Channels, Ramp);
    if (!Held.empty()) Out(Held);
    Held.clear();
    Seen = 0;
}

}  // namespace Tolvar
