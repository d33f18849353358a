#pragma once

#include <array>
#include <cstdint>
#include <memory>

#include "engines/DxEventFrm.h"
#include "engines/StreamEngine.h"
#include "platform/DirectX7.h"

namespace Tolvar {

/// The DirectSound 7 engine: one looping DirectSoundBuffer, whose position notifications tell when
/// a segment has been left and when the buffer's end has been reached.
class StreamDx7Class final : public StreamEngine {
  public:
    explicit StreamDx7Class(EngineSetup Setup);
    ~StreamDx7Class() override;

    /// Binds the device to the editor's window. False, with everything given back (and "Stopped"
    /// reported), when there is no DirectX 7, no device, or the device refuses the window.
    bool PutONDx7Ds(std::int32_t MFrmHwnd);

    bool CreateSoundBuffer() override;
    void PlayContinue() override;
    void PlayPause() override;
    void Close() noexcept override;

  private:
    bool WriteSegment(std::int32_t Segment) override;
    bool StartDevice(bool Restart) override;
    void StopDevice() override;
    std::optional<std::int32_t> FramesPlayed() override;

    DirectSoundBuffer& Buffer();
    void CloseDirectSound();
    void RefillNotified(std::int32_t Segment);
    void DxEventFrm2_DxEventForward() { ++PendingWraps; }
    void SeenInSegment2();
    void ForgetWraps();
    std::int32_t WrapsSeen(std::int32_t Cursor);

    std::unique_ptr<DirectX7> DxRoot;
    std::unique_ptr<DirectSound> DSound;
    std::unique_ptr<DirectSoundBuffer> DsBuffer;
    std::array<DxEventFrm, 3> EventFrms_;  // DxEventFrm0, DxEventFrm1, DxEventFrm2
    std::array<std::int32_t, 3> EventIds_{};
    bool FillBusy = false;
    bool IsClosed_ = false;
    std::int32_t WrapCount = 0;       // passes round the buffer that the position counts
    std::int32_t PendingWraps = 0;    // end-of-buffer signals it does not count yet; -1: one ahead
    std::int32_t LastPlayCursor = 0;  // bytes: as it was seen last, or signalled since
};

}  // namespace Tolvar
