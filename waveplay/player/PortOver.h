#pragma once

#include <utility>

#include "host/client/PlayDllClient.h"
#include "platform/RuntimeFailure.h"
#include "waveplay/player/PlayerPort.h"

namespace Tolvar {

/// The port over an object that has the player's members by their names: the player object itself
/// or the proxy of one.
template <typename Object>
class PortOver : public PlayerPort {
  public:
    void OnMsgBoxOb(EventSink Sink) override { It().OnMsgBoxOb(std::move(Sink)); }

    void DxObj(std::int32_t& MFrmHwnd) override { Do(&Object::DxObj, MFrmHwnd); }
    std::int32_t PlayCurrentPosition() override { return Do(&Object::PlayCurrentPosition); }
    void PlayAgain() override { Do(&Object::PlayAgain); }
    void PlayAgainRev() override { Do(&Object::PlayAgainRev); }
    std::int32_t PlayRunningDx7State() override { return Do(&Object::PlayRunningDx7State); }
    void PlayUTurn() override { Do(&Object::PlayUTurn); }
    void StopPlay() override { Do(&Object::StopPlay); }
    void PlayContinue() override { Do(&Object::PlayContinue); }
    void UpdatePlayPosition() override { Do(&Object::UpdatePlayPosition); }
    void PlayPause() override { Do(&Object::PlayPause); }
    void WriteWaveMemo(std::int32_t FmtBits, std::int32_t FmtChannal, std::int32_t FmtFriq,
                       std::int32_t WaveNos, BlockList BlkInLstL, BlockList BlkInLstR) override {
        Do(&Object::WriteWaveMemo, FmtBits, FmtChannal, FmtFriq, WaveNos, BlkInLstL, BlkInLstR);
    }
    void MemorySizeToUse(std::int32_t Bytes) override { Do(&Object::MemorySizeToUse, Bytes); }
    void LoopPlayON(bool On) override { Do(&Object::LoopPlayON, On); }
    void PlayTempoFor(float Factor) override { Do(&Object::PlayTempoFor, Factor); }
    void PlayTempoRev(float Factor) override { Do(&Object::PlayTempoRev, Factor); }
    void AppTmpDir(const std::string& Folder) override { Do(&Object::AppTmpDir, Folder); }
    void ReleaseFiles() override { Do(&Object::ReleaseFiles); }
    void PlayAtPos(std::int32_t Pos) override { Do(&Object::PlayAtPos, Pos); }
    void PlayAtPosRev(std::int32_t Pos) override { Do(&Object::PlayAtPosRev, Pos); }

  protected:
    template <typename Step>
    static auto Translated(Step Call) {
        try {
            return Call();
        } catch (const PlayDllError& Refused) {
            throw RuntimeFailure(FailureKind::Library, Refused.what());
        }
    }

  private:
    /// RuntimeFailure when it has been released.
    virtual Object& It() = 0;

    template <typename Member, typename... Values>
    auto Do(Member Of, Values&&... Given) {
        return Translated([&] { return (It().*Of)(std::forward<Values>(Given)...); });
    }
};

}  // namespace Tolvar
