#pragma once

#include <functional>
#include <memory>
#include <span>
#include <vector>

struct soxr;

namespace Tolvar {

/// Brings one run of interleaved frames to another rate, in high quality. The same frames always
/// give the same output, in whatever pieces they come. One thread.
class RateConverter {
  public:
    using Output = std::function<void(std::span<const double>)>;

    /// RuntimeFailure(Input) when the rates cannot be converted.
    RateConverter(int FromHz, int ToHz, int Channels);

    /// Out gets zero or more pieces of whole frames; equal rates go through as they are.
    void Convert(std::span<const double> Frames, const Output& Out);

    /// Brings out what is still held. The run is over.
    void Flush(const Output& Out);

  private:
    struct Free {
        void operator()(soxr* Held) const;
    };

    std::size_t Step(const double* From, std::size_t Frames, const Output& Out, std::size_t& Made);

    std::size_t Channels_;
    std::unique_ptr<soxr, Free> Resampler_;  // null: equal rates
    std::vector<double> Resampled_;
};

}  // namespace Tolvar
