#pragma once

#include <array>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "platform/DirectX7.h"
#include "platform/Log.h"
#include "platform/RuntimeFailure.h"
#include "platform/ServiceLibrary.h"
#include "platform/SondervalService2.h"
#include "platform/WaveOut.h"
#include "tests/support/Fakes.h"

namespace Tolvar::Testing {

/// The device interfaces with the plan's calls refused, as each of them refuses: nothing is done.
/// What is given stays the caller's.

class FaultyWaveOut : public WaveOut {
  public:
    FaultyWaveOut(WaveOut& Behind, FaultPlan& Plan) : Real(Behind), Faults(Plan) {}

    UINT waveOutGetNumDevs() override { return Faults.Fails() ? 0 : Real.waveOutGetNumDevs(); }
    MMRESULT waveOutOpen(HWAVEOUT* Handle, UINT Device, const WAVEFORMATEX* Format,
                         std::uintptr_t Callback, std::uintptr_t Instance, DWORD Flags) override {
        return Unless(
            1, [&] { return Real.waveOutOpen(Handle, Device, Format, Callback, Instance, Flags); });
    }
    MMRESULT waveOutClose(HWAVEOUT H) override {
        return Unless(H, [&] { return Real.waveOutClose(H); });
    }
    MMRESULT waveOutPrepareHeader(HWAVEOUT H, WAVEHDR* Header, UINT Bytes) override {
        return Unless(H, [&] { return Real.waveOutPrepareHeader(H, Header, Bytes); });
    }
    MMRESULT waveOutUnprepareHeader(HWAVEOUT H, WAVEHDR* Header, UINT Bytes) override {
        return Unless(H, [&] { return Real.waveOutUnprepareHeader(H, Header, Bytes); });
    }
    MMRESULT waveOutWrite(HWAVEOUT H, WAVEHDR* Header, UINT Bytes) override {
        return Unless(H, [&] { return Real.waveOutWrite(H, Header, Bytes); });
    }
    MMRESULT waveOutGetPosition(HWAVEOUT H, MMTIME* Time, UINT Bytes) override {
        return Unless(H, [&] { return Real.waveOutGetPosition(H, Time, Bytes); });
    }
    MMRESULT waveOutPause(HWAVEOUT H) override {
        return Unless(H, [&] { return Real.waveOutPause(H); });
    }
    MMRESULT waveOutRestart(HWAVEOUT H) override {
        return Unless(H, [&] { return Real.waveOutRestart(H); });
    }
    MMRESULT waveOutReset(HWAVEOUT H) override {
        return Unless(H, [&] { return Real.waveOutReset(H); });
    }

  private:
    /// A call that names no device is refused as it is.
    MMRESULT Unless(HWAVEOUT Handle, const auto& Call) {
        return Handle != 0 && Faults.Fails() ? MMSYSERR_NODRIVER : Call();
    }

    WaveOut& Real;
    FaultPlan& Faults;
};

/// Throws when the call is one of the plan's.
inline void FailAsDevice(FaultPlan& Faults, const std::string& Call) {
    RequireOfDevice(!Faults.Fails(), Call + ": refused");
}

template <typename Seam>
class Faulty : public Seam {
  public:
    Faulty(std::unique_ptr<Seam> Behind, FaultPlan& Plan) : Faults(Plan), Real(std::move(Behind)) {}

  protected:
    Seam& Reach(const char* Call) {
        FailAsDevice(Faults, Call);
        return *Real;
    }
    FaultPlan& Faults;

  private:
    std::unique_ptr<Seam> Real;
};

struct FaultyBuffer : Faulty<DirectSoundBuffer> {
    using Faulty::Faulty;

    void SetNotificationPositions(std::span<const DSBPOSITIONNOTIFY> Positions) override {
        Reach("SetNotificationPositions").SetNotificationPositions(Positions);
    }
    void WriteBuffer(std::int32_t Start, std::int32_t Bytes, const std::int16_t* FirstSample,
                     std::int32_t Flags) override {
        Reach("WriteBuffer").WriteBuffer(Start, Bytes, FirstSample, Flags);
    }
    void SetCurrentPosition(std::int32_t Bytes) override {
        Reach("SetCurrentPosition").SetCurrentPosition(Bytes);
    }
    void SetFrequency(std::int32_t Hz) override { Reach("SetFrequency").SetFrequency(Hz); }
    void Play(std::int32_t Flags) override { Reach("Play").Play(Flags); }
    void Stop() override { Reach("Stop").Stop(); }
    void GetCurrentPosition(DSCURSORS& Cursors) override {
        Reach("GetCurrentPosition").GetCurrentPosition(Cursors);
    }
};

struct FaultySound : Faulty<DirectSound> {
    using Faulty::Faulty;

    void SetCooperativeLevel(std::int32_t Window, std::int32_t Level) override {
        Reach("SetCooperativeLevel").SetCooperativeLevel(Window, Level);
    }
    std::unique_ptr<DirectSoundBuffer> CreateSoundBuffer(const DSBUFFERDESC& Desc,
                                                         const WAVEFORMATEX& Format) override {
        return std::make_unique<FaultyBuffer>(
            Reach("CreateSoundBuffer").CreateSoundBuffer(Desc, Format), Faults);
    }
};

struct FaultyDirectX7 : Faulty<DirectX7> {
    using Faulty::Faulty;

    std::unique_ptr<DirectSound> DirectSoundCreate(const std::string& Device) override {
        return std::make_unique<FaultySound>(Reach("DirectSoundCreate").DirectSoundCreate(Device),
                                             Faults);
    }
    std::int32_t CreateEvent(DirectXEvent& Event) override {
        return Reach("CreateEvent").CreateEvent(Event);
    }
    void DestroyEvent(std::int32_t Handle) override { Reach("DestroyEvent").DestroyEvent(Handle); }
};

/// The plan's calls find no library, or one whose entry point refuses (which the library writes to
/// the log itself).
class FaultyLibrary : public ServiceLibrary {
  public:
    FaultyLibrary(ServiceLibrary& Behind, FaultPlan& Plan, Log& TheJournal)
        : Real(Behind), Faults(Plan), Journal(TheJournal) {}

    bool Refuses = false;

    void* Entry(const char* Name) override {
        if (!Faults.Fails()) return Real.Entry(Name);
        if (!Refuses) throw RuntimeFailure(FailureKind::Library, std::string("no ") + Name);
        Journal.Write(std::string(Name) + ": refused");
        return RefusingEntry(Name);
    }

  private:
    template <typename... Arguments>
    static std::int32_t Refuse(Arguments...) {
        return 0;
    }
    /// A function of the same type, because it is called through that.
    template <typename... Arguments>
    static void* Like(std::int32_t (*)(Arguments...)) {
        return reinterpret_cast<void*>(&Refuse<Arguments...>);
    }
    static void* RefusingEntry(std::string_view Name) {
        const std::array<void*, 8> All{Like(&Service01), Like(&Service02), Like(&Service03),
                                       Like(&Service04), Like(&Service05), Like(&Service06),
                                       Like(&Service07), Like(&Service08)};
        return All.at(static_cast<std::size_t>(Name.back() - '1'));
    }

    ServiceLibrary& Real;
    FaultPlan& Faults;
    Log& Journal;
};

}  // namespace Tolvar::Testing
