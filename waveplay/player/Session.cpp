#include "waveplay/player/Session.h"

#include <utility>

#include "platform/RuntimeFailure.h"
#include "waveplay/player/LocalPlayer.h"
#include "waveplay/player/RemotePlayer.h"

namespace Tolvar {
namespace {

std::vector<std::string> ServerArguments(const SessionOptions& Options) {
    std::vector<std::string> Words{
        "--device", Options.Device, "--rate",    Options.Rate,
        "--engine", Options.Engine, "--latency", std::to_string(Options.Output.LatencyMs)};
    if (Options.Output.FadeMs) {
        Words.insert(Words.end(), {"--fade", std::to_string(*Options.Output.FadeMs)});
    }
    if (!Options.LogPath.empty()) Words.insert(Words.end(), {"--log", Options.LogPath});
    return Words;
}

}  // namespace

PlayServerOptions LocalSetup(const SessionOptions& Options) {
    PlayServerOptions Setup;
    Setup.VirtualClock = Options.VirtualClock;
    Setup.Device = Options.Device;
    Setup.Output = Options.Output;
    Setup.Rate = SinkRateOf(Options.Rate);
    Setup.Engine = EngineOrderOf(Options.Engine);
    Setup.LogPath = Options.LogPath;
    return Setup;
}

std::unique_ptr<PlayerHost> MakePlayer(const SessionOptions& Options,
                                       std::function<void(std::string_view Text)> OnBox) {
    if (Options.IsInProcess()) {
        PlayServerOptions Setup = LocalSetup(Options);
        Setup.OnBox = std::move(OnBox);
        return std::make_unique<LocalPlayer>(Setup);
    }
    if (Options.To == Connection::Bus) {
        return std::make_unique<RemotePlayer>(std::nullopt, Options.LogPath);
    }
    return std::make_unique<RemotePlayer>(ServerArguments(Options), Options.LogPath);
}

Session::Session(std::unique_ptr<PlayerHost> Found)
    : Host_(std::move(Found)),
      BeganNs_(Host_->Home().Time().NowNs()),
      Watching_(std::make_unique<Interrupts>(Host_->Home())) {}

void Session::Release() {
    Player().Release();
    Released_ = true;
}

void Session::RequirePlayer() const {
    if (Lost()) throw RuntimeFailure(FailureKind::Library, Host_->WhyGone());
}

bool Session::RunFor(std::optional<std::int64_t> Ms, const std::function<bool()>& Until) {
    if (Until && Until()) return true;
    const std::int64_t DueNs = Ms ? Home().Time().NowNs() + *Ms * NsPerMs : Forever;
    // A server that found this side too slow to answer tells no more, so it is asked as well.
    constexpr std::int32_t LookMs = 1000;
    Timer Look(Home(), LookMs);
    Look.Enabled(Until && Inside() == nullptr);
    try {
        Home().RunUntil(DueNs, [&] {
            RequirePlayer();
            return Interrupted() || (Until && Until());
        });
        return Until && Until();
    } catch (const RuntimeFailure&) {
        RequirePlayer();  // says why, whatever was tried when it was found to be gone
        throw;
    }
}

void Session::Finish() {
    Interrupted();  // what was asked for by now is not asked again while a stream is written
    Host_->Finish();
    WasInterrupted_ = Interrupted();
    Watching_.reset();
}

}  // namespace Tolvar
