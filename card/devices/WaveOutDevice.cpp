#include "card/devices/WaveOutDevice.h"

namespace Tolvar {
UINT WaveOutDevice::waveOutGetNumDevs() {
    return Card_.Present() ? 1 : 0;
}

MMRESULT WaveOutDevice::waveOutOpen(HWAVEOUT* Handle, UINT Device, const WAVEFORMATEX* Format,
                                    std::uintptr_t Callback, std::uintptr_t Instance, DWORD Flags) {
    if (Device != WAVE_MAPPER && Device >= waveOutGetNumDevs()) return MMSYSERR_BADDEVICEID;
    if (!Card_.Present()) return MMSYSERR_BADDEVICEID;
    if (Flags != 0) return MMSYSERR_INVALFLAG;
    if (Handle == nullptr || Format == nullptr || Callback != 0 || Instance != 0) {
        return MMSYSERR_INVALPARAM;
    }
    const auto Playable = PlayableFormat(*Format, 384'000);
    if (!Playable) return WAVERR_BADFORMAT;
    if (Playing_) return MMSYSERR_ALLOCATED;
    Playing_ = std::make_unique<QueueVoice>(Card_, *Playable);
    BytesPerFrame_ = Format->nBlockAlign;
    *Handle = ++OpenHandle_;
    return MMSYSERR_NOERROR;
}

MMRESULT WaveOutDevice::waveOutClose(HWAVEOUT Handle) {
    if (!IsOpen(Handle)) return MMSYSERR_INVALHANDLE;
    if (!Playing_->IsEmpty()) return WAVERR_STILLPLAYING;
    Playing_.reset();
    return MMSYSERR_NOERROR;
}

/// What every function with a header refuses.
MMRESULT WaveOutDevice::CheckHeader(HWAVEOUT Handle, const WAVEHDR* Header, UINT Bytes) {
    if (!IsOpen(Handle)) return MMSYSERR_INVALHANDLE;
    if (Header == nullptr || Bytes != WaveHdrBytes) return MMSYSERR_INVALPARAM;
    return Playing_->IsQueued(Header) ? WAVERR_STILLPLAYING : MMSYSERR_NOERROR;
}

MMRESULT WaveOutDevice::waveOutPrepareHeader(HWAVEOUT Handle, WAVEHDR* Header, UINT Bytes) {
    const MMRESULT Refused = CheckHeader(Handle, Header, Bytes);
    if (Refused == MMSYSERR_NOERROR) Header->dwFlags |= WHDR_PREPARED;
    return Refused;
}

MMRESULT WaveOutDevice::waveOutUnprepareHeader(HWAVEOUT Handle, WAVEHDR* Header, UINT Bytes) {
    const MMRESULT Refused = CheckHeader(Handle, Header, Bytes);
    if (Refused == MMSYSERR_NOERROR) Header->dwFlags &= ~WHDR_PREPARED;
    return Refused;
}

MMRESULT WaveOutDevice::waveOutWrite(HWAVEOUT Handle, WAVEHDR* Header, UINT Bytes) {
    const MMRESULT Refused = CheckHeader(Handle, Header, Bytes);
    if (Refused != MMSYSERR_NOERROR) return Refused;
    if ((Header->dwFlags & WHDR_PREPARED) == 0) return WAVERR_UNPREPARED;
    const bool Missing = Header->lpData == nullptr && Header->dwBufferLength > 0;
    const bool Odd = reinterpret_cast<std::uintptr_t>(Header->lpData) % alignof(std::int16_t) != 0;
    if (Missing || Odd || Header->dwBufferLength % BytesPerFrame_ != 0) return MMSYSERR_INVALPARAM;
    if (Card_.PlaysOther(*Playing_)) return MMSYSERR_ALLOCATED;
    Playing_->Queue(*Header);
    return MMSYSERR_NOERROR;
}

MMRESULT WaveOutDevice::waveOutGetPosition(HWAVEOUT Handle, MMTIME* Time, UINT Bytes) {
    if (!IsOpen(Handle)) return MMSYSERR_INVALHANDLE;
    if (Time == nullptr || Bytes != MmTimeBytes) return MMSYSERR_INVALPARAM;
    const std::int64_t Frames = Playing_->FramesHeard();
    if (Time->wType == TIME_BYTES) {
        Time->cb = static_cast<DWORD>(Frames * BytesPerFrame_);
    } else {
        Time->wType = TIME_SAMPLES;
        Time->sample = static_cast<DWORD>(Frames);
    }
    return MMSYSERR_NOERROR;
}

MMRESULT WaveOutDevice::waveOutPause(HWAVEOUT Handle) {
    if (!IsOpen(Handle)) return MMSYSERR_INVALHANDLE;
    Playing_->Pause();
    return MMSYSERR_NOERROR;
}

MMRESULT WaveOutDevice::waveOutRestart(HWAVEOUT Handle) {
    if (!IsOpen(Handle)) return MMSYSERR_INVALHANDLE;
    if (Card_.PlaysOther(*Playing_)) return MMSYSERR_ALLOCATED;
    Playing_->Restart();
    return MMSYSERR_NOERROR;
}

MMRESULT WaveOutDevice::waveOutReset(HWAVEOUT Handle) {
    if (!IsOpen(Handle)) return MMSYSERR_INVALHANDLE;
    Playing_->Reset();
    return MMSYSERR_NOERROR;
}

}  // namespace Tolvar
