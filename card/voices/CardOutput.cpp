#include "card/voices/CardOutput.h"

#include "card/live/AlsaDevice.h"

namespace Tolvar {
namespace {

const std::string AlsaPrefix = "alsa:";

}  // namespace

bool IsLiveDevice(const std::string& Name) {
    return Name == "auto" || Name == "alsa" ||
           (Name.starts_with(AlsaPrefix) && Name.size() > AlsaPrefix.size());
}

CardOutput MakeOutput(const std::string& Name, const OutputOptions& Options, const Clock& Time) {
    if (!IsLiveDevice(Name)) return {MakeSink(Name), nullptr, Options.FadeMs.value_or(0)};
    const LiveOptions Live{.LatencyMs = Options.LatencyMs,
                           .FadeMs = Options.FadeMs.value_or(LiveOptions{}.FadeMs)};
    const std::string Pcm =
        Name.starts_with(AlsaPrefix) ? Name.substr(AlsaPrefix.size()) : "default";
    return {nullptr, std::make_unique<LiveOutput>(std::make_unique<AlsaDevice>(Pcm), Time, Live)};
}

}  // namespace Tolvar
