#include "card/sinks/NullSink.h"
#include "card/sinks/Sink.h"
#include "card/sinks/WavSink.h"
#include "platform/RuntimeFailure.h"

namespace Tolvar {

std::unique_ptr<Sink> MakeSink(const std::string& Name) {
    const std::string WavPrefix = "wav:";
    if (Name == "none") return nullptr;
    if (Name == "null") return std::make_unique<NullSink>();
    if (Name.starts_with(WavPrefix) && Name.size() > WavPrefix.size()) {
        return std::make_unique<WavSink>(Name.substr(WavPrefix.size()));
    }
    throw RuntimeFailure(FailureKind::Input,
                         "unknown sound device \"" + Name +
                             "\" (there are alsa[:PCM], auto, null, none and wav:PATH)");
}

}  // namespace Tolvar
