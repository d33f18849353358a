#include "waveplay/commands/PlayOnTerminal.h"

#include <cstdlib>
#include <memory>
#include <string>
#include <utility>

#include "engines/EngineFacts.h"
#include "waveplay/commands/MediaControls.h"
#include "waveplay/player/PlayRun.h"
#include "waveplay/player/WaveFrames.h"
#include "waveplay/terminal/TerminalPlayer.h"

namespace Tolvar {
namespace {

std::string EngineName(const SessionOptions& Setup) {
    if (Setup.To == Connection::Bus) return "the server's engine";
    const EngineFacts* const Named = EngineFactsOf(std::string_view(Setup.Engine));
    return std::string((Named != nullptr ? *Named : AllEngineFacts.front()).Title);
}

TerminalFacts FactsOf(const Wave& Whole, const PlayOptions& Options) {
    TerminalFacts Facts;
    Facts.FmtChannal = Whole.FmtChannal;
    Facts.Name = TitleOf(Options.Pieces);
    Facts.Engine = EngineName(Options.Setup);
    Facts.Device = Options.Setup.To == Connection::Bus ? "session bus" : Options.Setup.Device;
    Facts.Format = std::to_string(Whole.FmtFriq) + " Hz " + std::to_string(Whole.FmtBits) +
                   " bit " + (Whole.FmtChannal == 2 ? "stereo" : "mono");
    const auto Frames = std::make_shared<WaveFrames>(Whole);
    Facts.Read = [Frames](std::int32_t From, std::span<std::int16_t> Into) {
        Frames->Read(From, Into);
    };
    return Facts;
}

const char* Variable(const char* Name) {
    return std::getenv(Name);
}

// Lines that would have been written over the picture are shown in its message line instead.
class ErrorsInPicture {
  public:
    ErrorsInPicture(Apartment& Home, HeldErrors* Errors, TerminalPlayer& Interface)
        : Home_(Home), Fd_(Errors == nullptr ? -1 : Errors->Fd()) {
        if (Fd_ < 0) return;
        Home_.Watch({Fd_}, [Errors, &Interface] {
            for (std::string& Line : Errors->Take())
                Interface.Say(std::move(Line), true);
        });
    }
    ~ErrorsInPicture() { Home_.Unwatch({Fd_}); }
    ErrorsInPicture(const ErrorsInPicture&) = delete;
    ErrorsInPicture& operator=(const ErrorsInPicture&) = delete;

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
    TerminalPlayer Interface(Playing.Player(), Playing.Home(), std::move(Facts),
                             LookFrom(Variable));
    Interface.Control().Report("S2", Last);
    const auto Controls = OfferMediaControls(Playing, Interface.Control(), Options,
                                             [&Interface] { Interface.Quit(); });
    const ErrorsInPicture Shown(Playing.Home(), Errors, Interface);
    const TerminalEnd How = Interface.Run();
    if (How != TerminalEnd::PlayedOut) Playing.Player().StopPlay();
    return How != TerminalEnd::Interrupted;
}

}  // namespace Tolvar
