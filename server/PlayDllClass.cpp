#include "server/PlayDllClass.h"

#include <array>
#include <cmath>
#include <exception>
#include <span>
#include <utility>

#include "engines/PlayApiClass.h"
#include "engines/StreamDx7Class.h"
#include "engines/StreamDx9Class.h"
#include "platform/Apartment.h"
#include "platform/Log.h"
#include "platform/RuntimeFailure.h"
#include "store/BlockCarrBuffClass.h"

namespace Tolvar {

/// One row of the selection order.
struct PlayDllClass::EngineKind {
    using Maker = std::shared_ptr<PlayEngine>(EngineSetup, std::int32_t MFrmHwnd);
    EngineOrder Name;
    std::int32_t Code;        // EngineCode
    std::int32_t Answer;      // what DxObj writes back
    bool TellsPlayFailed;     // the player adds "Play Failed" to a run that did not start
    bool PositionIsAskedFor;  // PlayCurrentPosition asks the engine, not its last poll
    Maker* Make;              // null when the engine does not accept the window
};

namespace {

constexpr std::int64_t LastBreathMs = 300;  // the editor's last reports get out in this time
constexpr double LeastPlayFriq = 100;
constexpr double MostPlayFriq = 100000;

using EnginePtr = std::shared_ptr<PlayEngine>;

EnginePtr MakeDx9(EngineSetup Setup, std::int32_t MFrmHwnd) {
    auto StrmDx9Cls = std::make_shared<StreamDx9Class>(std::move(Setup));
    return StrmDx9Cls->PutONDx9Ds(MFrmHwnd) ? StrmDx9Cls : nullptr;
}

EnginePtr MakeDx7(EngineSetup Setup, std::int32_t MFrmHwnd) {
    auto StrmDx7Cls = std::make_shared<StreamDx7Class>(std::move(Setup));
    return StrmDx7Cls->PutONDx7Ds(MFrmHwnd) ? StrmDx7Cls : nullptr;
}

EnginePtr MakeWaveOut(EngineSetup Setup, std::int32_t /*MFrmHwnd*/) {
    return std::make_shared<PlayApiClass>(std::move(Setup));
}

}  // namespace

constexpr std::array<PlayDllClass::EngineKind, 3> PlayDllClass::Kinds{{
    {EngineOrder::Dx9, 3, 1, false, true, &MakeDx9},
    {EngineOrder::Dx7, 1, 1, true, true, &MakeDx7},
    {EngineOrder::WaveOut, 2, 2, true, false, &MakeWaveOut},
}};

PlayDllClass::PlayDllClass(System& OsOf, PlayerState& Shared, WoroFileBlockMod& Blocks,
                           EngineOrder AllowedEngines)
    : Os(OsOf),
      State(Shared),
      Store(Blocks),
      Allowed(AllowedEngines),
      Forms(std::make_shared<EngineForms>(OsOf.Home)) {
    State.PlayTempoFor = 1.0F;
    State.PlayTempoRev = 1.0F;
}

PlayDllClass::~PlayDllClass() {
    if (Released) return;
    try {
        Release();
    } catch (const std::exception& Cause) {
        LogCause(Os.Journal, "Release", Cause.what());
    } catch (...) {
        LogCause(Os.Journal, "Release", "failed");
    }
}

void PlayDllClass::Release() {
    Released = true;
    std::int32_t NoWindow = 0;
    DxObj(NoWindow);
    ReleaseFiles();
    State.BlkCarrL.reset();
    State.BlkCarrR.reset();
    Os.Home.Sleep(LastBreathMs);
}

// Reports.

void PlayDllClass::OnMsgBoxOb(EventSink Sink) {
    MsgBoxOb = std::move(Sink);
}

void PlayDllClass::RaiseMsg(std::string_view Msg, std::string_view Ttl) {
    if (!MsgBoxOb) return;
    try {
        MsgBoxOb(Msg, Ttl);
    } catch (const std::exception& Cause) {
        LogCause(Os.Journal, "Report sink", Cause.what());
    } catch (...) {
        LogCause(Os.Journal, "Report sink", "threw what is no std::exception");
    }
}

// The engine.

void PlayDllClass::DxObj(std::int32_t& MFrmHwnd) {
    try {
        DropEngine();
        State.PlayRunningState = 0;
        if (MFrmHwnd <= 0) return;
        for (const EngineKind& Kind : Kinds) {
            const bool Wanted = Allowed == EngineOrder::Auto || Allowed == Kind.Name;
            if (Wanted && TakeEngine(Kind, MFrmHwnd)) return;
        }
        MFrmHwnd = -1;
    } catch (const std::exception& Cause) {
        LogCause(Os.Journal, "Engine selection", Cause.what());
        DropEngine();
        MFrmHwnd = -1;
    }
}

void PlayDllClass::DropEngine() {
    Live = nullptr;
    if (const auto Dropped = std::exchange(Engine, nullptr)) Dropped->Drop();
}

bool PlayDllClass::TakeEngine(const EngineKind& Kind, std::int32_t& MFrmHwnd) {
    const auto Forward = [this](std::string_view Msg, std::string_view Ttl) { RaiseMsg(Msg, Ttl); };
    auto Made = Kind.Make({Os, State, Forms, Forward}, MFrmHwnd);
    if (!Made) return false;
    Engine = std::move(Made);
    Live = &Kind;
    MFrmHwnd = Kind.Answer;
    return true;
}

std::int32_t PlayDllClass::EngineCode() const {
    return Live == nullptr ? 0 : Live->Code;
}

std::shared_ptr<PlayEngine> PlayDllClass::LiveEngine() {
    if (!Engine) Status("Driver is Off");
    return Engine;
}

// Commands. Each holds the engine while it runs, because a report may drop it.

void PlayDllClass::PlayAgain() {
    PlayFromEdge(1, "Play Again - Failed");
}

void PlayDllClass::PlayAgainRev() {
    PlayFromEdge(-1, "Play Again Rev. - Failed");
}

void PlayDllClass::PlayFromEdge(std::int32_t Direction, std::string_view NotReadyText) {
    if (State.WaveNos < 1) {
        Status(NotReadyText);
        RaiseMsg("Not ready", "Do \"Play New\" first");
        return;
    }
    State.PlayDirection = Direction;
    State.FillNextPos = 1;
    const EngineKind* const Kind = Live;
    const auto Playing = LiveEngine();
    if (Playing && !Playing->PlayMe() && Kind->TellsPlayFailed) Status("Play Failed");
}

void PlayDllClass::PlayUTurn() {
    const auto Playing = LiveEngine();
    if (!Playing || !Playing->UTurn()) Status("U-Turn Failed");
}

void PlayDllClass::PlayAtPos(std::int32_t Pos) {
    PlayFrom(1, Pos);
}

void PlayDllClass::PlayAtPosRev(std::int32_t Pos) {
    PlayFrom(-1, Pos);
}

void PlayDllClass::PlayFrom(std::int32_t Direction, std::int32_t Pos) {
    State.PlayDirection = Direction;
    State.PlayCurPos = Pos;
    const auto Playing = LiveEngine();
    if (!Playing || !Playing->PlayAtCurrentPosition()) Status("Play at.. failed");
}

template <typename Operation, typename Answer>
void PlayDllClass::Trapped(std::string_view What, Operation Do, Answer OnFailure) {
    try {
        Do();
    } catch (const std::exception& Cause) {
        LogCause(Os.Journal, What, Cause.what());
        OnFailure();
    }
}

void PlayDllClass::StopPlay() {
    constexpr std::string_view Text = "Stop Play error";
    const auto StopAndClose = [this] {
        if (const auto Playing = LiveEngine()) Playing->StopPlay();
        Store.OrgFileCloseNo(Store.OrgFileOpen());
        Store.WorkFileCloseNo(Store.WorkFileOpen());
    };
    Trapped(Text, StopAndClose, [&] { RaiseMsg(Text, Text); });
}

void PlayDllClass::PlayContinue() {
    constexpr std::string_view Text = "Play Continue error";
    const auto Continue = [this] {
        if (State.WaveNos <= 0) {
            Status("Nothing to Continue");
        } else if (const auto Playing = LiveEngine()) {
            Playing->PlayContinue();
        }
    };
    Trapped(Text, Continue, [&] { Status(Text); });
}

void PlayDllClass::PlayPause() {
    constexpr std::string_view Text = "Play Pause error";
    const auto Pause = [this] {
        if (const auto Playing = LiveEngine()) Playing->PlayPause();
    };
    Trapped(Text, Pause, [&] { Status(Text); });
}

void PlayDllClass::UpdatePlayPosition() {
    const auto Update = [this] {
        if (const auto Playing = Engine) Playing->UpdatePlayPosition();
    };
    Trapped("Update position", Update, [this] { State.PlayCurPos = 0; });
}

std::int32_t PlayDllClass::PlayCurrentPosition() {
    if (Live == nullptr) return 0;
    if (const auto Playing = Engine; Live->PositionIsAskedFor) Playing->UpdatePlayPosition();
    return State.PlayCurPos;
}

std::int32_t PlayDllClass::PlayRunningDx7State() const {
    return State.PlayRunningState;
}

// The wave.

void PlayDllClass::WriteWaveMemo(std::int32_t FmtBits, std::int32_t FmtChannal,
                                 std::int32_t FmtFriq, std::int32_t WaveNos, BlockList BlkInLstL,
                                 BlockList BlkInLstR) {
    Status("Writing to Play Buffer");
    if (!FormatAccepted(FmtBits, FmtChannal, WaveNos)) {
        Status("Sound Buffer Failed");
        return;
    }
    BlkInLstCheck(BlkInLstL, "left");
    if (FmtChannal == 2) BlkInLstCheck(BlkInLstR, "right");

    State.PlayDirection = 1;
    State.FillNextPos = 1;
    ReleaseFiles();
    GiveBlocks(*State.BlkCarrL, BlkInLstL);
    if (FmtChannal == 2) GiveBlocks(*State.BlkCarrR, BlkInLstR);
    // Only now, so that a failure above (there may be no memory for the blocks) leaves no wave.
    State.WaveNos = WaveNos;
    State.FmtBits = FmtBits;
    State.FmtChannal = FmtChannal;
    State.FmtFriq = FmtFriq;
    CreateEngineBuffer();
}

void PlayDllClass::GiveBlocks(BlockCarrBuffClass& Carrier, BlockList BlkInLst) {
    const auto BlkSet = BlocksFromBlkInLst(Store, BlkInLst);
    try {
        Carrier.BuffBlocksPutFresh(BlkSet);
    } catch (...) {
        for (const std::int32_t Blk : std::span(BlkSet).subspan(1))
            Store.BlockFree(Blk);
        throw;
    }
}

bool PlayDllClass::FormatAccepted(std::int32_t FmtBits, std::int32_t FmtChannal,
                                  std::int32_t WaveNos) {
    if (WaveNos == 0) {
        RaiseMsg("Zero size wave found", "Play wave error");
        return false;
    }
    if ((FmtChannal == 1 || FmtChannal == 2) && (FmtBits == 8 || FmtBits == 16)) return true;
    RaiseMsg("Format not Known to write wave file", "Play wave error");
    return false;
}

void PlayDllClass::CreateEngineBuffer() {
    const auto Playing = LiveEngine();
    Status(!Playing || Playing->CreateSoundBuffer() ? "Done" : "Sound Buffer Failed");
}

void PlayDllClass::ReleaseFiles() {
    StopPlay();
    State.WaveNos = 0;
    State.BlkCarrL.reset();
    State.BlkCarrR.reset();
    State.BlkCarrL = std::make_shared<BlockCarrBuffClass>(Store);
    State.BlkCarrR = std::make_shared<BlockCarrBuffClass>(Store);
}

// Settings.

void PlayDllClass::MemorySizeToUse(std::int32_t Bytes) {
    State.MemorySizeToUse = Bytes;
}

void PlayDllClass::LoopPlayON(bool On) {
    State.LoopPlayON = On;
}

void PlayDllClass::PlayTempoFor(float Factor) {
    State.PlayTempoFor = ClampedTempo(Factor);
}

void PlayDllClass::PlayTempoRev(float Factor) {
    State.PlayTempoRev = ClampedTempo(Factor);
}

void PlayDllClass::AppTmpDir(std::string Folder) {
    State.AppTmpDir = std::move(Folder);
}

float PlayDllClass::ClampedTempo(float Factor) const {
    if (std::isnan(Factor)) throw RuntimeFailure(FailureKind::Input, "The tempo is not a number");
    if (State.FmtFriq == 0) return Factor;
    const double PlayFriq = static_cast<double>(Factor) * State.FmtFriq;
    if (PlayFriq < LeastPlayFriq) return static_cast<float>(LeastPlayFriq / State.FmtFriq);
    if (PlayFriq > MostPlayFriq) return static_cast<float>(MostPlayFriq / State.FmtFriq);
    return Factor;
}

}  // namespace Tolvar
