#include "waveplay/PlayOnTerminal.h"

#include <cstdlib>
#include <memory>
#include <string>

#include "waveplay/PlayRun.h"
#include "waveplay/WaveFrames.h"
#include "waveplay/terminal/TerminalPlayer.h"

namespace Tolvar {
namespace {

std::string NameOf(const PlayOptions& Options) {
    if (Options.Pieces.empty()) return "a phrase of its own";
    const std::size_t More = Options.Pieces.size() - 1;
    return Options.Pieces.front() + (More == 0 ? "" : " + " + std::to_string(More));
}

std::string EngineName(const SessionOptions& Setup) {
    if (Setup.To == Connection::Bus) return "the server's engine";
    if (Setup.Engine == "waveout") return "waveOut";
    return Setup.Engine == "dx7" ? "DirectSound 7" : "DirectSound 9";
}

TerminalFacts FactsOf(const Wave& Whole, const PlayOptions& Options) {
    TerminalFacts Facts;
    Facts.Wave = {
        Whole.WaveNos,     Whole.FmtFriq,        Options.Run.Reverse ? -1 : 1,     Options.Run.Loop,
        Options.Run.Tempo, Options.Run.TempoRev, Options.Setup.Engine != "waveout"};
    Facts.FmtChannal = Whole.FmtChannal;
    Facts.Name = NameOf(Options);
    Facts.Engine = EngineName(Options.Setup);
    Facts.Device = Options.Setup.To == Connection::Bus ? "session bus" : Options.Setup.Device;
    Facts.Format = std::to_string(Whole.FmtFriq) + " Hz " + std::to_string(Whole.FmtBits) +
                   " bit " + (Whole.FmtChannal == 2 ? "stereo" : "mono");
    const auto Frames = std::make_shared<const WaveFrames>(Whole);
    Facts.Read = [Frames](std::int32_t From, std::span<std::int16_t> Into) {
        Frames->Read(From, Into);
    };
    return Facts;
}

const char* Variable(const char* Name) {
    return std::getenv(Name);
}

}  // namespace

bool CanPlayOnTerminal() {
    return TerminalPlayer::Usable();
}

bool PlayOnTerminal(Session& Playing, const Wave& Whole, const PlayOptions& Options) {
    TerminalFacts Facts = FactsOf(Whole, Options);
    Facts.Interrupted = [&Playing] { return Playing.Interrupted(); };
    std::string Last;
    PlayRun(Playing, [&Last](std::string_view, std::string_view Ttl) {
        Last = Ttl;
    }).Start(Whole, Options.Run);
    TerminalPlayer Show(Playing.Player(), Playing.Home(), std::move(Facts), LookFrom(Variable));
    Show.Control().Report("S2", Last);
    const TerminalEnd How = Show.Run();
    if (How != TerminalEnd::PlayedOut) Playing.Player().StopPlay();
    return How != TerminalEnd::Interrupted;
}

}  // namespace Tolvar
