#include "server/PlayDllClass.h"

#include <array>
#include <cmath>
#include <exception>
#include <span>
#include <utility>

#include "engines/PlayApiClass.h"
#include "platform/Apartment.h"
#include "platform/Log.h"
#include "platform/RuntimeFailure.h"
#include "store/BlockCarrBuffClass.h"

namespace Tolvar {

/// One row of the selection order.
struct PlayDllClass::EngineKind {
    EngineOrder Name;
    std::int32_t Code;    // EngineCode
    std::int32_t Answer;  // what DxObj writes back
    std::shared_ptr<PlayEngine> (*Make)(System&, PlayerState&, PlayEngine::MsgBoxObEvent);
};

namespace {

constexpr std::int64_t LastBreathMs = 300;  // the editor's last reports get out in this time
constexpr double LeastPlayFriq = 100;
constexpr double MostPlayFriq = 100000;

template <typename EngineClass>
std::shared_ptr<PlayEngine> Make(System& Os, PlayerState& State, PlayEngine::MsgBoxObEvent Event) {
    return std::make_shared<EngineClass>(Os, State, std::move(Event));
}

}  // namespace

PlayDllClass::PlayDllClass(System& OsOf, PlayerState& Shared, WoroFileBlockMod& Blocks,
                           EngineOrder AllowedEngines)
    : Os(OsOf), State(Shared), Store(Blocks), Allowed(AllowedEngines) {
    State.PlayTempoFor = 1.0F;
    State.PlayTempoRev = 1.0F;
}

PlayDllClass::~PlayDllClass() {
    if (Released) return;
    try {
        Release();
    } catch (const std::exception& Cause) {
        LogCause("Release", Cause.what());
    } catch (...) {
        LogCause("Release", "failed");
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
        LogCause("Report sink", Cause.what());
    } catch (...) {
        LogCause("Report sink", "threw what is no std::exception");
    }
}

void PlayDllClass::LogCause(std::string_view Where, std::string_view Cause) noexcept try {
    Os.Journal.Write(std::string(Where) + ": " + std::string(Cause));
} catch (...) {
    Os.Journal.Write(Where);  // out of memory for the cause
}

// The engine.

void PlayDllClass::DxObj(std::int32_t& MFrmHwnd) {
    static constexpr std::array Kinds{
        EngineKind{EngineOrder::WaveOut, 2, 2, &Make<PlayApiClass>},
    };
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
        LogCause("Engine selection", Cause.what());
        DropEngine();
        MFrmHwnd = -1;
    }
}

void PlayDllClass::DropEngine() {
    LiveCode = 0;
    if (const auto Dropped = std::exchange(Engine, nullptr)) Dropped->Close();
}

bool PlayDllClass::TakeEngine(const EngineKind& Kind, std::int32_t& MFrmHwnd) {
    Engine = Kind.Make(Os, State,
                       [this](std::string_view Msg, std::string_view Ttl) { RaiseMsg(Msg, Ttl); });
    LiveCode = Kind.Code;
    MFrmHwnd = Kind.Answer;
    return true;
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
    const auto Live = LiveEngine();
    if (Live && !Live->PlayMe()) Status("Play Failed");
}

void PlayDllClass::PlayUTurn() {
    const auto Live = LiveEngine();
    if (!Live || !Live->UTurn()) Status("U-Turn Failed");
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
    const auto Live = LiveEngine();
    if (!Live || !Live->PlayAtCurrentPosition()) Status("Play at.. failed");
}

void PlayDllClass::StopPlay() {
    try {
        if (const auto Live = LiveEngine()) Live->StopPlay();
        Store.OrgFileCloseNo(Store.OrgFileOpen());
        Store.WorkFileCloseNo(Store.WorkFileOpen());
    } catch (const std::exception& Cause) {
        LogCause("Stop Play error", Cause.what());
        RaiseMsg("Stop Play error", "Stop Play error");
    }
}

void PlayDllClass::PlayContinue() {
    try {
        if (State.WaveNos <= 0) {
            Status("Nothing to Continue");
        } else if (const auto Live = LiveEngine()) {
            Live->PlayContinue();
        }
    } catch (const std::exception& Cause) {
        LogCause("Play Continue error", Cause.what());
        Status("Play Continue error");
    }
}

void PlayDllClass::PlayPause() {
    try {
        if (const auto Live = LiveEngine()) Live->PlayPause();
    } catch (const std::exception& Cause) {
        LogCause("Play Pause error", Cause.what());
        Status("Play Pause error");
    }
}

void PlayDllClass::UpdatePlayPosition() {
    try {
        if (const auto Live = Engine) Live->UpdatePlayPosition();
    } catch (const std::exception& Cause) {
        LogCause("Update position", Cause.what());
        State.PlayCurPos = 0;
    }
}

std::int32_t PlayDllClass::PlayCurrentPosition() {
    return LiveCode == 0 ? 0 : State.PlayCurPos;
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
    const auto Live = LiveEngine();
    Status(!Live || Live->CreateSoundBuffer() ? "Done" : "Sound Buffer Failed");
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
