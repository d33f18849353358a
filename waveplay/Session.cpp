#include "waveplay/Session.h"

#include <utility>

#include "platform/Clocks.h"
#include "platform/DirectX7Layer.h"
#include "platform/RuntimeFailure.h"
#include "store/BlockCarrBuffClass.h"

namespace Tolvar {
namespace {

class HandlerBox : public MessageBox {
  public:
    explicit HandlerBox(Session::BoxHandler Answer) : OnBox(std::move(Answer)) {}
    void Show(std::string_view Text) override { OnBox(Text); }

  private:
    Session::BoxHandler OnBox;
};

std::unique_ptr<Clock> MakeClock(bool Virtual) {
    if (Virtual) return std::make_unique<VirtualClock>();
    return std::make_unique<RealClock>();
}

std::unique_ptr<Sink> MakeOutput(const SessionOptions& Options) {
    auto Output = MakeSink(Options.Device);
    return Options.Through ? Options.Through(std::move(Output)) : std::move(Output);
}

std::unique_ptr<MessageBox> MakeBox(Session::BoxHandler OnBox, Log& Journal) {
    if (OnBox) return std::make_unique<HandlerBox>(std::move(OnBox));
    return std::make_unique<ConsoleMessageBox>(Journal);
}

}  // namespace

Session::Session(const SessionOptions& Options, BoxHandler OnBox)
    : Time(MakeClock(Options.VirtualClock)),
      BeganNs(Time->NowNs()),
      Journal(Options.LogPath),
      Loop(*Time, Journal),
      Box(MakeBox(std::move(OnBox), Journal)),
      Card(Loop, MakeOutput(Options), Options.Rate, Journal),
      Watching(std::make_unique<Interrupts>(Loop)),
      Device(Card),
      Service(Card, Journal),
      Blocks(FileLayer, *Box, Shared),
      Parts{Loop,
            FileLayer,
            *Box,
            Journal,
            Device,
            Service,
            [this] { return std::make_unique<DirectX7Root>(Card); }},
      Object(std::make_unique<PlayDllClass>(Parts, Shared, Blocks, Options.Engine)) {}

Session::~Session() {
    Object.reset();
    // The store goes before the state, and the carriers give their blocks back to it.
    Shared.BlkCarrL.reset();
    Shared.BlkCarrR.reset();
}

PlayDllClass& Session::Player() {
    if (!Object) throw RuntimeFailure(FailureKind::Input, "the player object has been released");
    return *Object;
}

std::int32_t Session::PlayedHz() const {
    constexpr std::int32_t WaveOutCode = 2;  // plays at the wave's own rate
    const bool HasTempo = Object && Object->EngineCode() != WaveOutCode;
    return HasTempo ? Shared.PlayFriq : Shared.FmtFriq;
}

void Session::Release() {
    Player().Release();
    Object.reset();
}

bool Session::RunFor(std::optional<std::int64_t> Ms, const std::function<bool()>& Until) {
    if (Until && Until()) return true;
    const std::int64_t DueNs = Ms ? Time->NowNs() + *Ms * NsPerMs : Forever;
    Loop.RunUntil(DueNs, [&] { return Interrupted() || (Until && Until()); });
    return Until && Until();
}

void Session::Finish() {
    Watching.reset();
    Card.Finish();
}

}  // namespace Tolvar
