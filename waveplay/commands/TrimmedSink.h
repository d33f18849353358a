#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <utility>

#include "card/sinks/Sink.h"

namespace Tolvar {

/// Passes the first frames on and drops the rest: what an engine's buffer sounds on after the
/// wave's last frame, until its countdown stops it, is not part of the wave.
class TrimmedSink : public Sink {
  public:
    /// Frames says, when the first ones come, how many there are at the sink's rate.
    TrimmedSink(std::unique_ptr<Sink> To, std::function<std::int64_t(int RateHz)> Frames)
        : Target(std::move(To)), FramesAt(std::move(Frames)) {}

    bool WantsFrames() const override { return Target->WantsFrames(); }
    void Open(int Channels, int RateHz) override {
        Left = FramesAt(RateHz) * Channels;
        Target->Open(Channels, RateHz);
    }
    void Write(std::span<const std::int16_t> Samples) override {
        const auto Taken = std::min<std::int64_t>(Left, static_cast<std::int64_t>(Samples.size()));
        Left -= Taken;
        if (Taken > 0) Target->Write(Samples.first(static_cast<std::size_t>(Taken)));
    }
    void Finish() override { Target->Finish(); }

  private:
    std::unique_ptr<Sink> Target;
    std::function<std::int64_t(int RateHz)> FramesAt;
    std::int64_t Left = 0;  // samples
};

}  // namespace Tolvar
