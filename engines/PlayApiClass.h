#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "engines/PlayEngine.h"
#include "platform/Apartment.h"
#include "platform/WaveOut.h"

namespace Tolvar {

/// The output engine on waveOut: hands one segment at a time to the device as a header, keeps at
/// most two queued and polls the device position every 40 ms. Plays at the wave's own rate: the
/// tempo factors have no effect.
class PlayApiClass final : public PlayEngine {
  public:
    explicit PlayApiClass(EngineSetup Setup);
    ~PlayApiClass() override;

    bool StopPlay() override;
    void UpdatePlayPosition() override;
    bool CreateSoundBuffer() override;
    bool PlayMe() override;
    void PlayPause() override;
    void PlayContinue() override;
    bool UTurn() override;
    bool PlayAtCurrentPosition() override;
    void Close() noexcept override;

  private:
    void OpenWaveDevice();
    void CloseWaveDevice();
    void PrepareHeader(std::int32_t Segment);
    void FillAndQueue();
    void QueueSegment(std::int32_t Segment);
    void ResetDevice();
    void CheckProgress(std::int32_t PlayedBefore);
    void Note(std::string_view Call, MMRESULT Result);
    void HaltPlayback() noexcept;
    bool StartRun(std::string_view StartText, std::string_view FailText);
    std::string RunText() const;
    void CallBackTimer_Timer();
    void StopPlayTimer_Timer();
    void LoopAgain();
    void EndFailedRun(std::string_view Cause);
    template <typename Operation>
    bool Trapped(std::string_view FailText, Operation Do);

    WaveOut& Mm_;
    Timer& StopPlayTimer;
    Timer& CallBackTimer;

    WAVEFORMATEX WaveFmt;
    HWAVEOUT hWaveOut = 0;
    bool DeviceOpen = false;
    std::array<WAVEHDR, 3> WaveHdr;     // indices 1 and 2
    std::array<bool, 3> HdrPrepared{};  // likewise
    MMTIME PosTime;
    std::int32_t LoopCount = 0;        // loop restarts since the last PlayMe
    std::int32_t NextSeg = 0;          // the segment filled next; 0: nothing was left
    std::int32_t TotalQueued = 0;      // frames written since the run started
    std::int32_t LastQueuedStart = 0;  // device position at which the newest segment begins
    bool LastQueueOk = false;
    bool Stopping = true;           // no run is on
    std::int32_t PlayedFrames = 0;  // device position last read
    bool StallSeen = false;         // the previous poll found everything queued played
    int StillPolls_ = 0;            // on which the device had not moved, and had more to play
    bool ResetOwed_ = false;        // refused, so the queue is still the device's
    bool PositionLost_ = false;
    bool FillBusy = false;
    bool IsClosed_ = false;
};

}  // namespace Tolvar
