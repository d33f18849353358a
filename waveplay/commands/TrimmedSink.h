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
        : Target_(std::move(To)), FramesAt_(std::move(Frames)) {}

    bool WantsFrames() const override { return Target_->WantsFrames(); }
    void Open(int Channels, int RateHz) override {
        Left_ = FramesAt_(RateHz) * Channels;
        Target_->Open(Channels, RateHz);
    }
    void Write(std::span<const std::int16_t> Samples) override {
        const auto Taken = std::min<std::int64_t>(Left_, static_cast<std::int64_t>(Samples.size()));
        Left_ -= Taken;
        if (Taken > 0) Target_->Write(Samples.first(static_cast<std::size_t>(Taken)));
    }
    void Finish() override { Target_->Finish(); }

  private:
    std::unique_ptr<Sink> Target_;
    std::function<std::int64_t(int RateHz)> FramesAt_;
    std::int64_t Left_ = 0;  // samples
};

}  // namespace Tolvar
