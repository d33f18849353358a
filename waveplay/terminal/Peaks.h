#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

namespace Tolvar {

/// The least and the greatest sample of a stretch of the wave.
struct Peak {
    std::int16_t Least = 0;
    std::int16_t Greatest = 0;
};

/// The overview of a whole wave, found bit by bit between other work: first a coarse one from a
/// probe of every stretch, then finer. Waves of a few minutes are read whole; of longer ones every
/// stretch is probed in up to 16 places, so that memory and reading stay bounded whatever the
/// length.
class Peaks {
  public:
    /// Fills Into with the frames from From (0-based) on, 16 bits, interleaved. May throw.
    using FrameReader = std::function<void(std::int32_t From, std::span<std::int16_t> Into)>;

    /// WaveNos in frames, 1 or more. An empty Read gives an overview that stays empty.
    Peaks(std::int32_t WaveNos, std::int32_t FmtChannal, FrameReader Read);

    /// Reads at most Probes short runs of frames; true while there is more to do. A read that
    /// fails ends the work, with its text in Failure.
    bool Work(int Probes);

    const std::string& Failure() const { return Failure_; }

    /// The peaks of column Column of Columns over the whole wave. Zeros where nothing is known.
    Peak Column(int Column, int Columns) const;

  private:
    void Probe();
    std::int64_t StretchStart(std::int64_t Stretch) const;

    std::int64_t Frames_;
    std::int32_t Channels_;
    FrameReader ReadFrames_;
    std::vector<Peak> Stretches_;
    std::vector<std::int16_t> Samples_;
    std::int64_t Places_;    // probes in a stretch
    std::int64_t Pass_ = 0;  // probes that every stretch has had
    std::size_t Next_ = 0;   // stretch to probe
    std::string Failure_;
};

}  // namespace Tolvar
