#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace Tolvar {

/// What takes the frames that the clock says were heard: a file, or nothing. Abstract because the
/// card plays the same to either. Real devices are behind LiveOutput. Apartment's thread only.
class Sink {
  public:
    virtual ~Sink() = default;

    /// False: frames need not be rendered at all; the card then only keeps time.
    virtual bool WantsFrames() const = 0;

    /// True: it is opened anew for every format in which frames come, so none are ever converted
    /// to another channel count (nor, with SinkRate::Rule::Native, to another rate).
    virtual bool TakesEveryFormat() const { return false; }

    /// Called before the first Write, and then no more unless it TakesEveryFormat. Channels 1 or 2.
    /// RuntimeFailure when it cannot take that format.
    virtual void Open(int Channels, int RateHz) = 0;

    /// Whole interleaved frames in the order in which they are heard; read before it returns.
    /// RuntimeFailure when they could not be taken: the card then goes on in silence.
    virtual void Write(std::span<const std::int16_t> Samples) = 0;

    /// Nothing more will come: everything is on its medium when it returns, or RuntimeFailure says
    /// what was lost. Called at most once.
    virtual void Finish() = 0;
};

/// The rate at which a sink is opened, decided when its first frames come.
struct SinkRate {
    enum class Rule {
        Wave,    ///< the nominal rate of the voice's format
        Native,  ///< the voice's frequency at that moment
        Fixed,   ///< Hz
    };
    Rule By = Rule::Wave;
    int Hz = 0;
};

/// "null", "wav:PATH", or "none" (a null pointer: a machine without a sound device).
/// RuntimeFailure for a path that cannot be written, RuntimeFailure(Input) for any other name.
std::unique_ptr<Sink> MakeSink(const std::string& Name);

}  // namespace Tolvar
