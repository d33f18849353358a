#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "store/CheckedBlockList.h"

namespace Tolvar {

/// The player object as the editor's side sees it, wherever it lives: in this process or behind
/// the wire. Abstract because every command of the program drives both the same way.
///
/// One thread. Reports come on it, from inside a member or from the message loop that the
/// implementation was given. A refused call is a RuntimeFailure with the player's own text; when
/// the player is gone every member fails so.
class PlayerPort {
  public:
    using EventSink = std::function<void(std::string_view Msg, std::string_view Ttl)>;

    virtual ~PlayerPort() = default;

    virtual void OnMsgBoxOb(EventSink Sink) = 0;

    virtual void DxObj(std::int32_t& MFrmHwnd) = 0;
    virtual std::int32_t PlayCurrentPosition() = 0;
    virtual void PlayAgain() = 0;
    virtual void PlayAgainRev() = 0;
    virtual std::int32_t PlayRunningDx7State() = 0;
    virtual void PlayUTurn() = 0;
    virtual void StopPlay() = 0;
    virtual void PlayContinue() = 0;
    virtual void UpdatePlayPosition() = 0;
    virtual void PlayPause() = 0;
    virtual void WriteWaveMemo(std::int32_t FmtBits, std::int32_t FmtChannal, std::int32_t FmtFriq,
                               std::int32_t WaveNos, BlockList BlkInLstL, BlockList BlkInLstR) = 0;
    virtual void MemorySizeToUse(std::int32_t Bytes) = 0;
    virtual void LoopPlayON(bool On) = 0;
    virtual void PlayTempoFor(float Factor) = 0;
    virtual void PlayTempoRev(float Factor) = 0;
    virtual void AppTmpDir(const std::string& Folder) = 0;
    virtual void ReleaseFiles() = 0;
    virtual void PlayAtPos(std::int32_t Pos) = 0;
    virtual void PlayAtPosRev(std::int32_t Pos) = 0;

    /// The editor lets go: the last reports come, then the player is gone. Once.
    virtual void Release() = 0;
};

/// Whether a report's title says that something failed. Any thread.
bool TellsOfFailure(std::string_view Ttl);

}  // namespace Tolvar
