#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "card/frames/OutputConverter.h"
#include "card/frames/StreamFormat.h"
#include "card/live/LiveOptions.h"

namespace Tolvar {

/// The frames of a run on their way from its source to a device: read, brought to the device's
/// format, and kept for a while after the device has taken them, for those that it gives back. The
/// first rise from silence. Render thread only.
class LiveFrames {
  public:
    /// Copies frames of the source from Frame on, as FrameSource::ReadAhead; how many.
    using Reader = std::function<std::size_t(std::int64_t Frame, std::span<std::int16_t> Into)>;

    LiveFrames(LiveOptions Options, Reader FromSource);

    /// A run, from its frame Frame on. All memory is taken here, but for a resampler that sets off
    /// anew. RuntimeFailure as OutputConverter.
    void Begin(StreamFormat Source, StreamFormat Device, std::int64_t Frame);

    /// What the device is to take next: whole frames, valid until the next call; none while the
    /// source has none. MayFlush: also what a resampler holds back, which ends its seamless stream.
    /// RuntimeFailure as OutputConverter.
    std::span<const std::int16_t> Next(bool MayFlush);
    /// The device took the first Frames of that.
    void Took(std::int64_t Frames);

    /// Nothing is there for the device, and the source had no more when it was asked last.
    bool IsDry() const { return Dry_ && PendingFrom_ == Pending_.size(); }
    /// Nor is anything held back.
    bool AllTaken() const { return IsDry() && !Converter_; }
    /// Of the source: the first that has not been read.
    std::int64_t NextFrame() const { return SourceFrame_; }

    /// Frames of the device that are kept at most.
    std::int64_t MostKept() const { return std::ssize(Recent_) / To_.Channels; }
    /// Of the last TakenBack frames that the device took the first Ramp, falling to silence.
    std::span<const std::int16_t> Fading(std::int64_t TakenBack, std::int64_t Ramp);
    /// The same of those that it would have taken next; none where fewer are there.
    std::span<const std::int16_t> FadingNext(std::int64_t Ramp);

  private:
    bool Produce(bool MayFlush);
    void Append(std::span<const std::int16_t> Samples);
    void Keep(std::span<const std::int16_t> Samples);
    std::int64_t FramesIn(std::int64_t Ms) const { return Ms * To_.RateHz / 1000; }

    const LiveOptions Options_;
    const Reader Read_;
    StreamFormat From_;
    StreamFormat To_;
    std::unique_ptr<OutputConverter> Converter_;  // none before the next frame is read
    OutputConverter::Output ToPending_;
    std::vector<std::int16_t> Piece_;
    std::vector<std::int16_t> Pending_;
    std::size_t PendingFrom_ = 0;       // samples of it that the device has taken
    std::vector<std::int16_t> Recent_;  // what it took last, round and round
    std::size_t RecentTo_ = 0;
    std::int64_t SourceFrame_ = 0;
    std::int64_t Made_ = 0;  // frames of the run for the device, as far as its ramp goes
    bool Dry_ = false;
};

}  // namespace Tolvar
