#pragma once

#include <memory>
#include <optional>
#include <string>

#include "card/live/LiveOutput.h"
#include "card/sinks/Sink.h"
#include "platform/Clock.h"

namespace Tolvar {

struct OutputOptions {
    static constexpr int LeastLatencyMs = 10;
    static constexpr int MostLatencyMs = 500;
    static constexpr int MostFadeMs = 20;

    int LatencyMs = 60;  ///< of sound that a real device is given ahead
    std::optional<int> FadeMs =
        {};  ///< of the ramps at the edges; none: 5 on a real device, else 0
};

/// Where a sound card's output ends: one of the two, or, on a machine without a sound device, none.
struct CardOutput {
    std::unique_ptr<Sink> Recorded;    ///< takes what was heard, as the clock tells it
    std::unique_ptr<LiveOutput> Live;  ///< is heard, and tells what was
    int RecordedFadeMs = 0;            ///< of the ramps at the edges of what is recorded
};

/// Whether a device of that name is a real one: "auto" or "alsa", which are the user's default
/// device, or "alsa:PCM".
bool IsLiveDevice(const std::string& Name);

/// What that name stands for, or as MakeSink takes it. A real device keeps real time, so Time is
/// to be a real clock; it is opened when something is played, so nothing is said of it here.
/// RuntimeFailure as MakeSink.
CardOutput MakeOutput(const std::string& Name, const OutputOptions& Options, const Clock& Time);

}  // namespace Tolvar
