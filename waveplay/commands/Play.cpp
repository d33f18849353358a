#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <optional>
#include <utility>

#include "waveplay/commands/Commands.h"
#include "waveplay/commands/MediaControls.h"
#include "waveplay/commands/PlayOnTerminal.h"
#include "waveplay/wave/DemoPhrase.h"

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

std::string ProgressLine(PlayerPort& Player, const PlayerControl& Control, const Wave& Whole) {
    const std::int32_t Frame = std::clamp(Player.PlayCurrentPosition(), 0, Whole.WaveNos);
    std::array<char, 80> Line{};
    std::snprintf(Line.data(), Line.size(), "%s %s %.1f / %.1f s",
                  StateName(Player.PlayRunningDx7State()),
                  Control.Wave().Direction < 0 ? "reverse" : "forward",
                  static_cast<double>(Frame) / Whole.FmtFriq, Whole.Seconds());
    return Line.data();
}

void SayReport(std::string_view Msg, std::string_view Ttl) {
    Say(Msg == "S2" ? std::string(Ttl) : std::string(Msg) + ": " + std::string(Ttl));
}

// The program's own phrase turns round shortly before its end, so that both directions are heard.
Apartment::AlarmId TurnNearEnd(Apartment& Home, PlayerControl& Player, double EndSeconds) {
    const double TurnSeconds = std::max(0.0, EndSeconds - TurnBeforeEndSeconds);
    const auto Ahead = static_cast<std::int64_t>(TurnSeconds * NsPerSecond);
    return Home.Arm(Home.Time().NowNs() + Ahead, [&Player] { Player.UTurn(); });
}

bool PlayThrough(Session& Playing, const Wave& Whole, const PlayOptions& Options) {
    std::optional<PlayerControl> Control;
    PlayRun Run(Playing, [&](std::string_view Msg, std::string_view Ttl) {
        if (!Options.Quiet) SayReport(Msg, Ttl);
        if (Control) Control->Report(Msg, Ttl);
    });
    Run.Start(Whole, Options.Run);
    Control.emplace(Playing.Player(), Run.Facts());
    bool Quit = false;
    const auto Controls = OfferMediaControls(Playing, *Control, Options, [&Quit] { Quit = true; });

    Timer Progress(Playing.Home(), ProgressMs);
    Progress.Bind([&, Before = std::string()]() mutable {
        const std::string Line = ProgressLine(Playing.Player(), *Control, Whole);
        if (std::exchange(Before, Line) != Line) Say(Line);  // what is paused is said once
    });
    Progress.Enabled(!Options.Quiet);
    Apartment::AlarmId Turn;
    if (Options.Pieces.empty()) {
        const double Frames = PlayRun::FramesToPlay(Whole, Options.Run);
        Turn = TurnNearEnd(Playing.Home(), *Control, Frames / Run.PlayedHz());
    }
    const bool ToTheEnd = Run.Finish([&Quit] { return Quit; });
    Playing.Home().Disarm(Turn);
    if (!ToTheEnd || Quit) Playing.Player().StopPlay();
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
    // The program's own phrase shows the bare road, plain lines, that every terminal has.
    const bool WithPicture = !Options.Quiet && !Options.Pieces.empty() && CanPlayOnTerminal();
    std::optional<HeldErrors> Errors;  // until the server, which writes there as well, is gone
    if (WithPicture && isatty(STDERR_FILENO) == 1) Errors.emplace();
    Session Playing(MakePlayer(Options.Setup));
    bool ToTheEnd = WithPicture
                        ? PlayOnTerminal(Playing, Whole, Options, Errors ? &*Errors : nullptr)
                        : PlayThrough(Playing, Whole, Options);
    Playing.Release();
    Playing.Finish();
    ToTheEnd = ToTheEnd && !Playing.Interrupted();
    if (!ToTheEnd && !Options.Quiet) Say("interrupted");
    return ToTheEnd ? ExitDone : ExitInterrupted;
}

}  // namespace Tolvar
