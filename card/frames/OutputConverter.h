#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "card/frames/StreamFormat.h"

struct soxr;

namespace Tolvar {

/// Brings one run of frames to a sink's channels and rate. One seamless stream from its making to
/// Flush, in whatever pieces it comes. The same frames always give the same output. One thread.
class OutputConverter {
  public:
    using Output = std::function<void(std::span<const std::int16_t>)>;

    /// RuntimeFailure(Device) when the rates cannot be converted.
    OutputConverter(StreamFormat From, StreamFormat To);
    ~OutputConverter();
    OutputConverter(const OutputConverter&) = delete;
    OutputConverter& operator=(const OutputConverter&) = delete;

    StreamFormat From() const { return From_; }

    /// Samples are whole frames. Out gets zero or more pieces of whole frames; equal formats go
    /// through in place, without a copy. What Out throws passes through.
    void Convert(std::span<const std::int16_t> Samples, const Output& Out);

    /// Brings out what the resampler still holds. The run is over: no Convert may follow.
    void Flush(const Output& Out);

  private:
    struct FreeResampler {
        void operator()(soxr* Held) const;
    };

    std::span<const std::int16_t> ToOutputChannels(std::span<const std::int16_t> Samples);
    void Resample(std::span<const std::int16_t> Samples, const Output& Out);
    /// One piece through the resampler; null Samples asks for what it holds. Frames taken.
    std::size_t ResampleOnce(const std::int16_t* Samples, std::size_t Frames, const Output& Out,
                             std::size_t& Made);

    StreamFormat From_;
    StreamFormat To_;
    std::unique_ptr<soxr, FreeResampler> Resampler_;  // null: equal rates
    std::vector<std::int16_t> Mixed_;
    std::vector<std::int16_t> Resampled_;
};

}  // namespace Tolvar
