#pragma once

#include <chrono>
#include <optional>

#include "platform/WaveOut.h"

namespace Tolvar::Bench {

/// Passes every call on and notes when the first header since Forget() was written.
class FirstWrite : public WaveOut {
  public:
    using Moment = std::chrono::steady_clock::time_point;

    explicit FirstWrite(WaveOut& To) : Target(To) {}

    void Forget() { First.reset(); }
    std::optional<Moment> Written() const { return First; }

    UINT waveOutGetNumDevs() override { return Target.waveOutGetNumDevs(); }
    MMRESULT waveOutOpen(HWAVEOUT* Handle, UINT Id, const WAVEFORMATEX* Format,
                         std::uintptr_t Callback, std::uintptr_t Instance, DWORD Flags) override {
        return Target.waveOutOpen(Handle, Id, Format, Callback, Instance, Flags);
    }
    MMRESULT waveOutClose(HWAVEOUT Handle) override { return Target.waveOutClose(Handle); }
    MMRESULT waveOutPrepareHeader(HWAVEOUT Handle, WAVEHDR* Header, UINT Bytes) override {
        return Target.waveOutPrepareHeader(Handle, Header, Bytes);
    }
    MMRESULT waveOutUnprepareHeader(HWAVEOUT Handle, WAVEHDR* Header, UINT Bytes) override {
        return Target.waveOutUnprepareHeader(Handle, Header, Bytes);
    }
    MMRESULT waveOutWrite(HWAVEOUT Handle, WAVEHDR* Header, UINT Bytes) override {
        if (!First) First = std::chrono::steady_clock::now();
        return Target.waveOutWrite(Handle, Header, Bytes);
    }
    MMRESULT waveOutGetPosition(HWAVEOUT Handle, MMTIME* Time, UINT Bytes) override {
        return Target.waveOutGetPosition(Handle, Time, Bytes);
    }
    MMRESULT waveOutPause(HWAVEOUT Handle) override { return Target.waveOutPause(Handle); }
    MMRESULT waveOutRestart(HWAVEOUT Handle) override { return Target.waveOutRestart(Handle); }
    MMRESULT waveOutReset(HWAVEOUT Handle) override { return Target.waveOutReset(Handle); }

  private:
    WaveOut& Target;
    std::optional<Moment> First;
};

}  // namespace Tolvar::Bench
