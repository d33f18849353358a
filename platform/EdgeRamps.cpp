#include "platform/EdgeRamps.h"

#include <algorithm>

namespace Tolvar {

void EdgeRamps::Pass(std::span<const std::int16_t> Samples, const Output& Out) {
    const auto First = std::ssize(Held);
    Held.insert(Held.end(), Samples.begin(), Samples.end());
    for (auto At = Held.begin() + First; At != Held.end() && Seen < Ramp; ++Seen) {
        for (std::int64_t Channel = 0; Channel < Channels; ++Channel, ++At)
            *At = Ramped(*At, Seen, Ramp);
    }
    const std::int64_t Ready = FramesHeld() - Ramp;
    if (Ready <= 0) return;
    const auto End = Held.begin() + Ready * Channels;
    Out({Held.begin(), End});
    Held.erase(Held.begin(), End);
}

void EdgeRamps::Finish(const Output& Out) {
    const std::int64_t Frames = FramesHeld();
    for (std::int64_t At = 0; At < std::ssize(Held); ++At) {
        std::int16_t& Sample = Held[static_cast<std::size_t>(At)];
        Sample = Ramped(Sample, Frames - 1 - At / Channels, Ramp);
    }
    if (Frames > 0) Out(Held);
    Held.clear();
    Seen = 0;
}

}  // namespace Tolvar
