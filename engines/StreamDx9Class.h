#pragma once

#include <cstdint>

#include "engines/Dx9CallBackMod.h"
#include "engines/StreamEngine.h"

namespace Tolvar {

/// The DirectSound 9 engine: every device action is a call into the audio service library, which
/// owns the buffer; a poll asks it which segment the play cursor has left.
class StreamDx9Class final : public StreamEngine {
  public:
    explicit StreamDx9Class(EngineSetup Setup);
    ~StreamDx9Class() override;

    /// Keeps the window for the library and checks nothing: the library is first called by
    /// CreateSoundBuffer. Always True.
    bool PutONDx9Ds(std::int32_t MFrmHwnd);

    bool CreateSoundBuffer() override;
    void PlayContinue() override;
    void PlayPause() override;
    void Close() noexcept override;

  private:
    bool WriteSegment(std::int32_t Segment) override;
    bool StartDevice(bool Restart) override;
    void StopDevice() override;
    std::optional<std::int32_t> FramesPlayed() override;

    void CloseSoundService() noexcept;
    void SetPollInterval();
    void Watch(bool Tells);
    void Dx9CallBackTimer_Timer();

    Dx9CallBackMod Service_;
    Timer& Dx9CallBackTimer;
    std::int32_t DsHwnd = 0;
    bool IsClosed_ = false;
    std::int64_t UntoldNs_ = 0;    // of play since the run set off, or a segment was last told of
    std::int64_t LastPollNs_ = 0;  // or the run's start
};

}  // namespace Tolvar
