#include "host/PlayServer.h"

#include <charconv>
#include <utility>

#include "card/devices/DirectX7Layer.h"
#include "platform/RuntimeFailure.h"
#include "platform/VirtualClock.h"
#include "platform/posix/ConsoleMessageBox.h"
#include "platform/posix/RealClock.h"
#include "store/BlockCarrBuffClass.h"

namespace Tolvar {
namespace {

std::unique_ptr<Clock> MakeClock(bool Virtual) {
    if (Virtual) return std::make_unique<VirtualClock>();
    return std::make_unique<RealClock>();
}

class HandlerBox : public MessageBox {
  public:
    explicit HandlerBox(std::function<void(std::string_view)> Answer) : OnBox_(std::move(Answer)) {}
    void Show(std::string_view Text) override { OnBox_(Text); }

  private:
    std::function<void(std::string_view)> OnBox_;
};

std::unique_ptr<MessageBox> MakeBox(const PlayServerOptions& Options, Log& Journal) {
    if (Options.OnBox) return std::make_unique<HandlerBox>(Options.OnBox);
    return std::make_unique<ConsoleMessageBox>(Journal);
}

CardOutput OutputFor(const PlayServerOptions& Options, const Clock& Time) {
    if (Options.VirtualClock && IsLiveDevice(Options.Device)) {
        throw RuntimeFailure(FailureKind::Input,
                             Options.Device + ": a sound device keeps real time: --clock real");
    }
    CardOutput Made = MakeOutput(Options.Device, Options.Output, Time);
    if (Options.Through) Made.Recorded = Options.Through(std::move(Made.Recorded));
    return Made;
}

}  // namespace

SinkRate SinkRateOf(const std::string& Word) {
    constexpr int LeastHz = 100;
    constexpr int MostHz = 384000;
    if (Word == "wave") return {SinkRate::Rule::Wave, 0};
    if (Word == "native") return {SinkRate::Rule::Native, 0};
    int Hz = 0;
    const char* const End = Word.data() + Word.size();
    const auto [Rest, Error] = std::from_chars(Word.data(), End, Hz);
    if (Error != std::errc() || Rest != End || Hz < LeastHz || Hz > MostHz) {
        throw RuntimeFailure(FailureKind::Input,
                             Word + ": neither wave nor native nor a rate of 100 to 384000 Hz");
    }
    return {SinkRate::Rule::Fixed, Hz};
}

EngineOrder EngineOrderOf(const std::string& Word) {
    if (Word == "auto") return EngineOrder::Auto;
    if (const EngineFacts* const Facts = EngineFactsOf(std::string_view(Word))) return Facts->Name;
    throw RuntimeFailure(FailureKind::Input, Word + ": not one of auto, dx9, dx7, waveout");
}

PlayServer::PlayServer(const PlayServerOptions& Options)
    : Time_(MakeClock(Options.VirtualClock)),
      Lines_(Options.LogPath),
      Loop_(*Time_, Lines_),
      Box_(MakeBox(Options, Lines_)),
      Card_(Loop_, OutputFor(Options, *Time_), Options.Rate, Lines_),
      Wave_(Card_),
      Service_(Card_, Lines_),
      Parts_{Loop_,
             FileLayer_,
             *Box_,
             Lines_,
             Wave_,
             Service_,
             [this] { return std::make_unique<DirectX7Root>(Card_); }},
      Blocks_(FileLayer_, *Box_, Shared_),
      Object_(std::make_unique<PlayDllClass>(Parts_, Shared_, Blocks_, Options.Engine)) {}

PlayServer::~PlayServer() {
    Object_.reset();
    // The store goes before the state, and the carriers give their blocks back to it.
    Shared_.BlkCarrL.reset();
    Shared_.BlkCarrR.reset();
}

void PlayServer::Release() {
    const auto Leaving = std::move(Object_);
    Leaving->Release();
}

}  // namespace Tolvar
