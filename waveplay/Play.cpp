#include <algorithm>
#include <cstdio>
#include <memory>

#include "waveplay/Commands.h"
#include "waveplay/DemoPhrase.h"
#include "waveplay/PlayOnTerminal.h"

namespace Tolvar {
namespace {

constexpr std::int32_t ProgressMs = 1000;
constexpr double TurnBeforeEndSeconds = 0.5;

void Say(const std::string& Line) {
    std::fprintf(stderr, "%s\n", Line.c_str());
}

const char* StateName(std::int32_t RunningState) {
    switch (RunningState) {
        case 1:
            return "playing";
        case 2:
            return "looping";
        case 3:
            return "paused";
        default:
            return "stopped";
    }
}

void SayProgress(PlayerPort& Player, const PlayRun& Run, const Wave& Whole) {
    const std::int32_t Frame = std::clamp(Player.PlayCurrentPosition(), 0, Whole.WaveNos);
    const double Position = static_cast<double>(Frame) / Whole.FmtFriq;
    std::fprintf(stderr, "%s %s %.1f / %.1f s\n", StateName(Player.PlayRunningDx7State()),
                 Run.Direction() < 0 ? "reverse" : "forward", Position, Whole.Seconds());
}

void SayReport(std::string_view Msg, std::string_view Ttl) {
    Say(Msg == "S2" ? std::string(Ttl) : std::string(Msg) + ": " + std::string(Ttl));
}

// The program's own phrase turns round shortly before its end, so that both directions are heard.
Apartment::AlarmId TurnNearEnd(Apartment& Home, PlayRun& Run, std::int32_t FramesToPlay) {
    const double EndSeconds = static_cast<double>(FramesToPlay) / Run.PlayedHz();
    const double TurnSeconds = std::max(0.0, EndSeconds - TurnBeforeEndSeconds);
    const auto Ahead = static_cast<std::int64_t>(TurnSeconds * NsPerSecond);
    return Home.Arm(Home.Time().NowNs() + Ahead, [&Run] { Run.UTurn(); });
}

bool PlayThrough(Session& Playing, const Wave& Whole, const PlayOptions& Options) {
    PlayRun Run(Playing, SayReport);
    Timer Progress(Playing.Home(), ProgressMs);
    Progress.Bind([&] { SayProgress(Playing.Player(), Run, Whole); });

    Run.Start(Whole, Options.Run);
    Progress.Enabled(true);
    Apartment::AlarmId Turn;
    if (Options.Pieces.empty())
        Turn = TurnNearEnd(Playing.Home(), Run, PlayRun::FramesToPlay(Whole, Options.Run));
    const bool ToTheEnd = Run.Finish();
    Playing.Home().Disarm(Turn);
    if (!ToTheEnd) Playing.Player().StopPlay();
    return ToTheEnd;
}

}  // namespace

ExitCode Play(PlayOptions Options) {
    // Virtual time passes without anybody who could listen.
    if (Options.Setup.VirtualClock && Options.Setup.Device == "auto") Options.Setup.Device = "null";
    std::unique_ptr<DemoPhrase> Demo;
    if (Options.Pieces.empty()) Demo = std::make_unique<DemoPhrase>();
    const Wave Whole = Demo ? Demo->Phrase() : JoinPieces(Options.Pieces);
    Options.Setup.Engine = EngineFor(Whole, Options.Setup.Engine);
    Session Playing(MakePlayer(Options.Setup));
    // The program's own phrase shows the bare road, plain lines, that every terminal has.
    const bool WithPicture = !Options.Pieces.empty() && CanPlayOnTerminal();
    const bool ToTheEnd = WithPicture ? PlayOnTerminal(Playing, Whole, Options)
                                      : PlayThrough(Playing, Whole, Options);
    Playing.Release();
    Playing.Finish();
    if (!ToTheEnd) Say("interrupted");
    return ToTheEnd ? ExitDone : ExitInterrupted;
}

}  // namespace Tolvar
