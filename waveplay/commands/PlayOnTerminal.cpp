#include "waveplay/commands/PlayOnTerminal.h"

#include <cstdlib>
#include <memory>
#include <string>
#include <utility>

#include "waveplay/commands/PlayRemote.h"
#include "waveplay/player/PlayRun.h"
#include "waveplay/player/WaveFrames.h"
#include "waveplay/terminal/TerminalPlayer.h"

namespace Tolvar {
namespace {

std::string EngineName(const SessionOptions& Setup) {
    if (Setup.To == Connection::Bus) return "the server's engine";
    if (Setup.Engine == "waveout") return "waveOut";
    return Setup.Engine == "dx7" ? "DirectSound 7" : "DirectSound 9";
}

TerminalFacts FactsOf(const Wave& Whole, const PlayOptions& Options) {
    TerminalFacts Facts;
    Facts.FmtChannal = Whole.FmtChannal;
    Facts.Name = TitleOf(Options.Pieces);
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

// What would have been written over the picture is in it, the last line of all.
class ErrorsShown {
  public:
    ErrorsShown(Apartment& HomeOf, HeldErrors* Errors, TerminalPlayer& Show)
        : Home_(HomeOf), Fd_(Errors == nullptr ? -1 : Errors->Fd()) {
        if (Fd_ < 0) return;
        Home_.Watch({Fd_}, [Errors, &Show] {
            for (std::string& Line : Errors->Take())
                Show.Say(std::move(Line), true);
        });
    }
    ~ErrorsShown() { Home_.Unwatch({Fd_}); }
    ErrorsShown(const ErrorsShown&) = delete;
    ErrorsShown& operator=(const ErrorsShown&) = delete;

  private:
    Apartment& Home_;
    int Fd_;
};

}  // namespace

bool CanPlayOnTerminal() {
    return TerminalPlayer::Usable();
}

bool PlayOnTerminal(Session& Playing, const Wave& Whole, const PlayOptions& Options,
                    HeldErrors* Errors) {
    TerminalFacts Facts = FactsOf(Whole, Options);
    Facts.Interrupted = [&Playing] { return Playing.Interrupted(); };
    std::string Last;
    {
        PlayRun Begun(Playing, [&Last](std::string_view, std::string_view Ttl) { Last = Ttl; });
        Begun.Start(Whole, Options.Run);
        Facts.Wave = Begun.Facts();
    }
    TerminalPlayer Show(Playing.Player(), Playing.Home(), std::move(Facts), LookFrom(Variable));
    Show.Control().Report("S2", Last);
    const auto Remote = OfferRemote(Playing, Show.Control(), Options, [&Show] { Show.Quit(); });
    const ErrorsShown Shown(Playing.Home(), Errors, Show);
    const TerminalEnd How = Show.Run();
    if (How != TerminalEnd::PlayedOut) Playing.Player().StopPlay();
    return How != TerminalEnd::Interrupted;
}

}  // namespace Tolvar
