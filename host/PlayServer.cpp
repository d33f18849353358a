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
    explicit HandlerBox(std::function<void(std::string_view)> Answer) : OnBox(std::move(Answer)) {}
    void Show(std::string_view Text) override { OnBox(Text); }

  private:
    std::function<void(std::string_view)> OnBox;
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
    if (Word == "dx9") return EngineOrder::Dx9;
    if (Word == "dx7") return EngineOrder::Dx7;
    if (Word == "waveout") return EngineOrder::WaveOut;
    throw RuntimeFailure(FailureKind::Input, Word + ": not one of auto, dx9, dx7, waveout");
}

PlayServer::PlayServer(const PlayServerOptions& Options)
    : Time(MakeClock(Options.VirtualClock)),
      Lines(Options.LogPath),
      Loop(*Time, Lines),
      Box(MakeBox(Options, Lines)),
      Card(Loop, OutputFor(Options, *Time), Options.Rate, Lines),
      Wave(Card),
      Service(Card, Lines),
      Parts{Loop,
            FileLayer,
            *Box,
            Lines,
            Wave,
            Service,
            [this] { return std::make_unique<DirectX7Root>(Card); }},
      Blocks(FileLayer, *Box, Shared),
      Object(std::make_unique<PlayDllClass>(Parts, Shared, Blocks, Options.Engine)) {}

PlayServer::~PlayServer() {
    Object.reset();
    // The store goes before the state, and the carriers give their blocks back to it.
    Shared.BlkCarrL.reset();
    Shared.BlkCarrR.reset();
}

void PlayServer::Release() {
    const auto Leaving = std::move(Object);
    Leaving->Release();
}

}  // namespace Tolvar
