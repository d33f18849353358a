#pragma once

#include <memory>

#include "card/voices/QueueVoice.h"
#include "card/voices/SoundCard.h"
#include "platform/WaveOut.h"

namespace Tolvar {

/// The wave output functions over a sound card: one device, which one caller at a time has open
/// (MMSYSERR_ALLOCATED for a second, and for a write or restart while another voice of the card
/// plays). Every wrong argument has a result code and changes nothing.
class WaveOutDevice : public WaveOut {
  public:
    /// Card stays the caller's, and outlives this.
    explicit WaveOutDevice(SoundCard& Card) : Card_(Card) {}

    UINT waveOutGetNumDevs() override;
    MMRESULT waveOutOpen(HWAVEOUT* Handle, UINT Device, const WAVEFORMATEX* Format,
                         std::uintptr_t Callback, std::uintptr_t Instance, DWORD Flags) override;
    MMRESULT waveOutClose(HWAVEOUT Handle) override;
    MMRESULT waveOutPrepareHeader(HWAVEOUT Handle, WAVEHDR* Header, UINT Bytes) override;
    MMRESULT waveOutUnprepareHeader(HWAVEOUT Handle, WAVEHDR* Header, UINT Bytes) override;
    /// Samples that are not whole frames, or do not lie on an even address, are
    /// MMSYSERR_INVALPARAM.
    MMRESULT waveOutWrite(HWAVEOUT Handle, WAVEHDR* Header, UINT Bytes) override;
    MMRESULT waveOutGetPosition(HWAVEOUT Handle, MMTIME* Time, UINT Bytes) override;
    MMRESULT waveOutPause(HWAVEOUT Handle) override;
    MMRESULT waveOutRestart(HWAVEOUT Handle) override;
    MMRESULT waveOutReset(HWAVEOUT Handle) override;

  private:
    bool IsOpen(HWAVEOUT Handle) const { return Playing_ != nullptr && Handle == OpenHandle_; }
    MMRESULT CheckHeader(HWAVEOUT Handle, const WAVEHDR* Header, UINT Bytes);

    SoundCard& Card_;
    HWAVEOUT OpenHandle_ = 0;  // of the last open; a closed one is never used again
    DWORD BytesPerFrame_ = 0;
    std::unique_ptr<QueueVoice> Playing_;  // null: closed
};

}  // namespace Tolvar
