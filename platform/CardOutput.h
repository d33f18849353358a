#pragma once

#include <memory>
#include <string>

#include "platform/Clock.h"
#include "platform/LiveOutput.h"
#include "platform/Sink.h"

namespace Tolvar {

/// Where a sound card's output ends: one of the two, or, on a machine without a sound device, none.
struct CardOutput {
    std::unique_ptr<Sink> Recorded;    ///< takes what was heard, as the clock tells it
    std::unique_ptr<LiveOutput> Live;  ///< is heard, and tells what was
};

/// Whether a device of that name is a real one: "auto" or "alsa", which are the user's default
/// device, or "alsa:PCM".
bool IsLiveDevice(const std::string& Name);

/// What that name stands for, or as MakeSink takes it. A real device keeps real time, so Time is
/// to be a real clock; it is opened when something is played, so nothing is said of it here.
/// RuntimeFailure as MakeSink.
CardOutput MakeOutput(const std::string& Name, const LiveOptions& Options, const Clock& Time);

}  // namespace Tolvar
