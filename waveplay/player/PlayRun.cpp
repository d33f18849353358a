#include "waveplay/player/PlayRun.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <utility>

#include "engines/EngineFacts.h"
#include "platform/Checked.h"
#include "platform/DirectX7.h"
#include "platform/RuntimeFailure.h"

namespace Tolvar {
namespace {

[[noreturn]] void Refuse(const std::string& Why) {
    throw RuntimeFailure(FailureKind::Input, Why);
}

// The frame that is heard first, 1-based from the wave's start.
std::int32_t FirstFrame(const Wave& Whole, const RunOptions& Options) {
    if (!Options.At) return Options.Reverse ? Whole.WaveNos : 1;
    const double Boundary = std::nearbyint(*Options.At * Whole.FmtFriq);
    const double Frame = Options.Reverse ? Boundary : Boundary + 1;
    if (!(Frame >= 1 && Frame <= Whole.WaveNos)) {
        Refuse("nothing to play at " + std::to_string(*Options.At) + " s of a wave of " +
               std::to_string(Whole.Seconds()) + " s");
    }
    return static_cast<std::int32_t>(Frame);
}

float PlayableTempo(float Tempo, const Wave& Whole) {
    const auto Rate = static_cast<float>(Whole.FmtFriq);
    return std::clamp(Tempo, DSBFREQUENCY_MIN / Rate, DSBFREQUENCY_MAX / Rate);
}

}  // namespace

std::string EngineFor(const Wave& Whole, const std::string& Wanted) {
    const bool BeyondDirectSound = Whole.FmtFriq > DSBFREQUENCY_MAX;
    return Wanted == "auto" && BeyondDirectSound ? "waveout" : Wanted;
}

void HandOver(PlayerPort& Player, const Wave& Whole) {
    Player.WriteWaveMemo(Whole.FmtBits, Whole.FmtChannal, Whole.FmtFriq, Whole.WaveNos,
                         Whole.Left.Values(), Whole.Right.Values());
}

PlayRun::PlayRun(Session& Live, EventHandler Also) : Playing_(Live), OnEvent_(std::move(Also)) {
    Playing_.Player().OnMsgBoxOb(
        [this](std::string_view Msg, std::string_view Ttl) { OnReport(Msg, Ttl); });
}

PlayRun::~PlayRun() {
    if (Playing_.HasPlayer()) Playing_.Player().OnMsgBoxOb({});
}

void PlayRun::OnReport(std::string_view Msg, std::string_view Ttl) {
    if (Failure_.empty() && TellsOfFailure(Ttl)) Failure_ = Ttl;
    if (OnEvent_) OnEvent_(Msg, Ttl);
}

void PlayRun::RequireNoFailure() const {
    if (Failure_.empty()) return;
    throw RuntimeFailure(FailureKind::Device, "the player reported \"" + Failure_ + "\"");
}

void PlayRun::Start(const Wave& Whole, const RunOptions& Options) {
    if (Whole.WaveNos == 0) Refuse("the wave holds no frame");
    const std::int32_t First = FirstFrame(Whole, Options);

    PlayerPort& Player = Playing_.Player();
    std::int32_t Window = 1;
    Player.DxObj(Window);
    if (Window < 1) throw RuntimeFailure(FailureKind::Device, "no output engine can be used");
    Player.MemorySizeToUse(Options.MemorySizeToUse);
    Player.AppTmpDir(std::filesystem::temp_directory_path().string());
    Player.LoopPlayON(Options.Loop);
    // The engine takes its pace of refilling from the tempo when the wave is handed over; the
    // player holds a tempo to what the wave's rate allows only once the wave is there.
    const float Tempo = PlayableTempo(Options.Reverse ? Options.TempoRev : Options.Tempo, Whole);
    Player.PlayTempoFor(Tempo);
    HandOver(Player, Whole);
    RequireNoFailure();
    Player.PlayTempoFor(Options.Tempo);
    Player.PlayTempoRev(Options.TempoRev);

    const EngineFacts* const Engine = EngineFactsOf(Window);
    const bool HasTempo = Engine == nullptr || Engine->HasTempo;
    FramesPerSecond_ = HasTempo ? Round32(double{Tempo} * Whole.FmtFriq) : Whole.FmtFriq;
    Known_ = {Whole.WaveNos, Whole.FmtFriq, Options.Reverse ? -1 : 1,
              Options.Loop,  Options.Tempo, Options.TempoRev,
              HasTempo,      true};
    if (!Options.At) {
        Options.Reverse ? Player.PlayAgainRev() : Player.PlayAgain();
    } else {
        Options.Reverse ? Player.PlayAtPosRev(First) : Player.PlayAtPos(First);
    }
    RequireNoFailure();
}

bool PlayRun::Finish(const std::function<bool()>& Quit) {
    const bool Stopped = Playing_.RunFor(
        std::nullopt, [&] { return Quit() || Playing_.Player().PlayRunningDx7State() == 0; });
    RequireNoFailure();
    return Stopped;
}

std::int32_t PlayRun::FramesToPlay(const Wave& Whole, const RunOptions& Options) {
    const std::int32_t First = FirstFrame(Whole, Options);
    return Options.Reverse ? First : Whole.WaveNos - First + 1;
}

}  // namespace Tolvar
