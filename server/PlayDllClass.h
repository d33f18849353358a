#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "engines/EngineFacts.h"
#include "platform/System.h"
#include "state/PlayDllMod.h"
#include "store/CheckedBlockList.h"

namespace Tolvar {

struct EngineForms;
class PlayEngine;
class WoroFileBlockMod;

/// The player object: the one thing that an editor talks to. It chooses the output engine, takes
/// the wave over, routes every command to the live engine and raises every report as
/// MsgBoxOb(Msg, Ttl), synchronously, before the operation that raised it goes on.
///
/// Apartment's thread only. A command may be called at any time and in any order, also from
/// inside a report (but the object must not be destroyed there). Where no report is named, a
/// failure goes to the caller as RuntimeFailure (or std::bad_alloc) and the object stays usable.
/// Positions and lengths are frames, 1-based, counted from the wave's start in either direction.
class PlayDllClass {
  public:
    using EventSink = std::function<void(std::string_view Msg, std::string_view Ttl)>;

    /// Everything given stays the caller's and outlives the object.
    PlayDllClass(System& Os, PlayerState& Shared, WoroFileBlockMod& Blocks,
                 EngineOrder Allowed = EngineOrder::Auto);
    /// Release, if that has not been called.
    ~PlayDllClass();
    PlayDllClass(const PlayDllClass&) = delete;
    PlayDllClass& operator=(const PlayDllClass&) = delete;

    /// Where reports go from now on. What the sink throws is written to the log.
    void OnMsgBoxOb(EventSink Sink);

    /// Drops the live engine and, for a window handle above 0, selects a new one. MFrmHwnd becomes
    /// 1 (a DirectSound engine), 2 (waveOut) or -1 (failure); 0 or less stays as it was.
    void DxObj(std::int32_t& MFrmHwnd);
    std::int32_t PlayCurrentPosition();
    void PlayAgain();
    void PlayAgainRev();
    /// 0 stopped, 1 playing, 2 playing in a loop, 3 paused.
    std::int32_t PlayRunningDx7State() const;
    void PlayUTurn();
    void StopPlay();
    void PlayContinue();
    void UpdatePlayPosition();
    void PlayPause();
    /// A block list that breaks its rules is refused (RuntimeFailure) before the old wave goes.
    void WriteWaveMemo(std::int32_t FmtBits, std::int32_t FmtChannal, std::int32_t FmtFriq,
                       std::int32_t WaveNos, BlockList BlkInLstL, BlockList BlkInLstR);
    void MemorySizeToUse(std::int32_t Bytes);
    void LoopPlayON(bool On);
    /// A factor; clamped so that the loaded wave plays at 100 to 100000 Hz. Not a number: refused.
    void PlayTempoFor(float Factor);
    void PlayTempoRev(float Factor);
    void AppTmpDir(std::string Folder);
    void ReleaseFiles();
    void PlayAtPos(std::int32_t Pos);
    void PlayAtPosRev(std::int32_t Pos);

    /// The editor lets go: the engine and the wave go, 300 ms pass. The host then ends the process.
    /// Once only; no member may be called afterwards.
    void Release();

    /// Of the live engine, as EngineFacts has it; 0: none.
    std::int32_t EngineCode() const;

  private:
    void RaiseMsg(std::string_view Msg, std::string_view Ttl);
    void Status(std::string_view Ttl) { RaiseMsg("S2", Ttl); }
    void DropEngine();
    bool TakeEngine(const EngineFacts& Facts, std::int32_t& MFrmHwnd);
    std::shared_ptr<PlayEngine> LiveEngine();
    void PlayFromEdge(std::int32_t Direction, std::string_view NotReadyText);
    void PlayFrom(std::int32_t Direction, std::int32_t Pos);
    bool FormatAccepted(std::int32_t FmtBits, std::int32_t FmtChannal, std::int32_t WaveNos);
    void GiveBlocks(BlockCarrBuffClass& Carrier, const CheckedBlockList& BlkInLst);
    void CreateEngineBuffer();
    template <typename Operation, typename Answer>
    void Trapped(std::string_view What, Operation Do, Answer OnFailure);
    float ClampedTempo(float Factor) const;

    System& Os_;
    PlayerState& State_;
    WoroFileBlockMod& Store_;
    EngineOrder Allowed_;
    std::shared_ptr<EngineForms> Forms_;
    EventSink MsgBoxOb;
    const EngineFacts* Live_ = nullptr;   // null: no engine
    std::shared_ptr<PlayEngine> Engine_;  // null exactly when Live is
    bool Released_ = false;
};

}  // namespace Tolvar
