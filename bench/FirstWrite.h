#pragma once

#include <chrono>
#include <optional>

#include "platform/WaveOut.h"

namespace Tolvar::Bench {

/// Passes every call on and notes when the first header since Forget() was written.
class FirstWrite : public WaveOut {
  public:
    using Moment = std::chrono::steady_clock::time_point;

    explicit FirstWrite(WaveOut& To) : Target_(To) {}

    void Forget() { First_.reset(); }
    std::optional<Moment> Written() const { return First_; }

    UINT waveOutGetNumDevs() override { return Target_.waveOutGetNumDevs(); }
    MMRESULT waveOutOpen(HWAVEOUT* Handle, UINT Id, const WAVEFORMATEX* Format,
                         std::uintptr_t Callback, std::uintptr_t Instance, DWORD Flags) override {
        return Target_.waveOutOpen(Handle, Id, Format, Callback, Instance, Flags);
    }
    MMRESULT waveOutClose(HWAVEOUT Handle) override { return Target_.waveOutClose(Handle); }
    MMRESULT waveOutPrepareHeader(HWAVEOUT Handle, WAVEHDR* Header, UINT Bytes) override {
        return Target_.waveOutPrepareHeader(Handle, Header, Bytes);
    }
    MMRESULT waveOutUnprepareHeader(HWAVEOUT Handle, WAVEHDR* Header, UINT Bytes) override {
        return Target_.waveOutUnprepareHeader(Handle, Header, Bytes);
    }
    MMRESULT waveOutWrite(HWAVEOUT Handle, WAVEHDR* Header, UINT Bytes) override {
        if (!First_) First_ = std::chrono::steady_clock::now();
        return Target_.waveOutWrite(Handle, Header, Bytes);
    }
    MMRESULT waveOutGetPosition(HWAVEOUT Handle, MMTIME* Time, UINT Bytes) override {
        return Target_.waveOutGetPosition(Handle, Time, Bytes);
    }
    MMRESULT waveOutPause(HWAVEOUT Handle) override { return Target_.waveOutPause(Handle); }
    MMRESULT waveOutRestart(HWAVEOUT Handle) override { return Target_.waveOutRestart(Handle); }
    MMRESULT waveOutReset(HWAVEOUT Handle) override { return Target_.waveOutReset(Handle); }

  private:
    WaveOut& Target_;
    std::optional<Moment> First_;
};

}  // namespace Tolvar::Bench
