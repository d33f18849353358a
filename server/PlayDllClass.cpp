#include "server/PlayDllClass.h"

#include <cmath>
#include <exception>
#include <optional>
#include <span>
#include <utility>

#include "engines/PlayApiClass.h"
#include "engines/StreamDx7Class.h"
#include "engines/StreamDx9Class.h"
#include "platform/Apartment.h"
#include "platform/DirectX7.h"
#include "platform/Log.h"
#include "platform/RuntimeFailure.h"
#include "store/BlockCarrBuffClass.h"
#include "store/BlocksFromBlkInLst.h"

namespace Tolvar {

namespace {

constexpr std::int64_t LastReportsMs = 300;  // given to the reports that are on their way
constexpr double LeastPlayFriq = DSBFREQUENCY_MIN;
constexpr double MostPlayFriq = DSBFREQUENCY_MAX;

using EnginePtr = std::shared_ptr<PlayEngine>;

// Null when the engine does not accept the window.
EnginePtr MakeEngine(EngineOrder Name, EngineSetup Setup, std::int32_t MFrmHwnd) {
    if (Name == EngineOrder::WaveOut) return std::make_shared<PlayApiClass>(std::move(Setup));
    if (Name == EngineOrder::Dx7) {
        auto StrmDx7Cls = std::make_shared<StreamDx7Class>(std::move(Setup));
        return StrmDx7Cls->PutONDx7Ds(MFrmHwnd) ? StrmDx7Cls : nullptr;
    }
    auto StrmDx9Cls = std::make_shared<StreamDx9Class>(std::move(Setup));
    return StrmDx9Cls->PutONDx9Ds(MFrmHwnd) ? StrmDx9Cls : nullptr;
}

}  // namespace

PlayDllClass::PlayDllClass(System& OsOf, PlayerState& Shared, WoroFileBlockMod& Blocks,
                           EngineOrder AllowedEngines)
    : Os_(OsOf),
      State_(Shared),
      Store_(Blocks),
      Allowed_(AllowedEngines),
      Forms_(std::make_shared<EngineForms>(OsOf.Home)) {
    State_.PlayTempoFor = 1.0F;
    State_.PlayTempoRev = 1.0F;
}

PlayDllClass::~PlayDllClass() {
    if (Released_) return;
    try {
        Release();
    } catch (const std::exception& Cause) {
        LogCause(Os_.Journal, "Release", Cause.what());
    } catch (...) {
        LogCause(Os_.Journal, "Release", "failed");
    }
}

void PlayDllClass::Release() {
    Released_ = true;
    std::int32_t NoWindow = 0;
    DxObj(NoWindow);
    ReleaseFiles();
    State_.BlkCarrL.reset();
    State_.BlkCarrR.reset();
    Os_.Home.Sleep(LastReportsMs);
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
        LogCause(Os_.Journal, "Report sink", Cause.what());
    } catch (...) {
        LogCause(Os_.Journal, "Report sink", "threw what is no std::exception");
    }
}

// The engine.

void PlayDllClass::DxObj(std::int32_t& MFrmHwnd) {
    try {
        DropEngine();
        State_.PlayRunningState = 0;
        if (MFrmHwnd <= 0) return;
        for (const EngineFacts& Each : AllEngineFacts) {
            const bool Wanted = Allowed_ == EngineOrder::Auto || Allowed_ == Each.Name;
            if (Wanted && TakeEngine(Each, MFrmHwnd)) return;
        }
        MFrmHwnd = -1;
    } catch (const std::exception& Cause) {
        LogCause(Os_.Journal, "Engine selection", Cause.what());
        DropEngine();
        MFrmHwnd = -1;
    }
}

void PlayDllClass::DropEngine() {
    Live_ = nullptr;
    if (const auto Dropped = std::exchange(Engine_, nullptr)) Dropped->Drop();
}

bool PlayDllClass::TakeEngine(const EngineFacts& Facts, std::int32_t& MFrmHwnd) {
    const auto Forward = [this](std::string_view Msg, std::string_view Ttl) { RaiseMsg(Msg, Ttl); };
    auto Made = MakeEngine(Facts.Name, {Os_, State_, Forms_, Forward}, MFrmHwnd);
    if (!Made) return false;
    Engine_ = std::move(Made);
    Live_ = &Facts;
    MFrmHwnd = Facts.Answer;
    return true;
}

std::int32_t PlayDllClass::EngineCode() const {
    return Live_ == nullptr ? 0 : Live_->Code;
}

std::shared_ptr<PlayEngine> PlayDllClass::LiveEngine() {
    if (!Engine_) Status("Driver is Off");
    return Engine_;
}

// Commands. Each holds the engine while it runs, because a report may drop it.

void PlayDllClass::PlayAgain() {
    PlayFromEdge(1, "Play Again - Failed");
}

void PlayDllClass::PlayAgainRev() {
    PlayFromEdge(-1, "Play Again Rev. - Failed");
}

void PlayDllClass::PlayFromEdge(std::int32_t Direction, std::string_view NotReadyText) {
    if (State_.WaveNos < 1) {
        Status(NotReadyText);
        RaiseMsg("Not ready", "Do \"Play New\" first");
        return;
    }
    State_.PlayDirection = Direction;
    State_.FillNextPos = 1;
    const EngineFacts* const Facts = Live_;
    const auto Playing = LiveEngine();
    if (Playing && !Playing->PlayMe() && Facts->PlayerTellsOfPlayFailed) Status("Play Failed");
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
    State_.PlayDirection = Direction;
    State_.PlayCurPos = Pos;
    const auto Playing = LiveEngine();
    if (!Playing || !Playing->PlayAtCurrentPosition()) Status("Play at.. failed");
}

template <typename Operation, typename Answer>
void PlayDllClass::Trapped(std::string_view What, Operation Do, Answer OnFailure) {
    try {
        Do();
    } catch (const std::exception& Cause) {
        LogCause(Os_.Journal, What, Cause.what());
        OnFailure();
    }
}

void PlayDllClass::StopPlay() {
    constexpr std::string_view Text = "Stop Play error";
    const auto StopAndClose = [this] {
        if (const auto Playing = LiveEngine()) Playing->StopPlay();
        Store_.OrgFileCloseNo(Store_.OrgFileOpen());
        Store_.WorkFileCloseNo(Store_.WorkFileOpen());
    };
    Trapped(Text, StopAndClose, [&] { RaiseMsg(Text, Text); });
}

void PlayDllClass::PlayContinue() {
    constexpr std::string_view Text = "Play Continue error";
    const auto Continue = [this] {
        if (State_.WaveNos <= 0) {
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
        if (const auto Playing = Engine_) Playing->UpdatePlayPosition();
    };
    Trapped("Update position", Update, [this] { State_.PlayCurPos = 0; });
}

std::int32_t PlayDllClass::PlayCurrentPosition() {
    if (Live_ == nullptr) return 0;
    if (const auto Playing = Engine_; Live_->PositionIsAskedFor) Playing->UpdatePlayPosition();
    return State_.PlayCurPos;
}

std::int32_t PlayDllClass::PlayRunningDx7State() const {
    return State_.PlayRunningState;
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
    const CheckedBlockList Left(BlkInLstL, "left");
    std::optional<CheckedBlockList> Right;
    if (FmtChannal == 2) Right.emplace(BlkInLstR, "right");

    State_.PlayDirection = 1;
    State_.FillNextPos = 1;
    ReleaseFiles();
    GiveBlocks(*State_.BlkCarrL, Left);
    if (Right) GiveBlocks(*State_.BlkCarrR, *Right);
    // Only now, so that a failure above (there may be no memory for the blocks) leaves no wave.
    State_.WaveNos = WaveNos;
    State_.FmtBits = FmtBits;
    State_.FmtChannal = FmtChannal;
    State_.FmtFriq = FmtFriq;
    CreateEngineBuffer();
}

void PlayDllClass::GiveBlocks(BlockCarrBuffClass& Carrier, const CheckedBlockList& BlkInLst) {
    const auto BlkSet = BlocksFromBlkInLst(Store_, BlkInLst);
    try {
        Carrier.BuffBlocksPutFresh(BlkSet);
    } catch (...) {
        for (const std::int32_t Blk : std::span(BlkSet).subspan(1))
            Store_.BlockFree(Blk);
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
    State_.WaveNos = 0;
    State_.BlkCarrL.reset();
    State_.BlkCarrR.reset();
    State_.BlkCarrL = std::make_shared<BlockCarrBuffClass>(Store_);
    State_.BlkCarrR = std::make_shared<BlockCarrBuffClass>(Store_);
}

// Settings.

void PlayDllClass::MemorySizeToUse(std::int32_t Bytes) {
    State_.MemorySizeToUse = Bytes;
}

void PlayDllClass::LoopPlayON(bool On) {
    State_.LoopPlayON = On;
}

void PlayDllClass::PlayTempoFor(float Factor) {
    State_.PlayTempoFor = ClampedTempo(Factor);
}

void PlayDllClass::PlayTempoRev(float Factor) {
    State_.PlayTempoRev = ClampedTempo(Factor);
}

void PlayDllClass::AppTmpDir(std::string Folder) {
    State_.AppTmpDir = std::move(Folder);
}

float PlayDllClass::ClampedTempo(float Factor) const {
    if (std::isnan(Factor)) throw RuntimeFailure(FailureKind::Input, "The tempo is not a number");
    if (State_.FmtFriq == 0) return Factor;
    const double PlayFriq = static_cast<double>(Factor) * State_.FmtFriq;
    if (PlayFriq < LeastPlayFriq) return static_cast<float>(LeastPlayFriq / State_.FmtFriq);
    if (PlayFriq > MostPlayFriq) return static_cast<float>(MostPlayFriq / State_.FmtFriq);
    return Factor;
}

}  // namespace Tolvar
