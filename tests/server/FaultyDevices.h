#pragma once

#include <array>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "card/devices/ServiceLoader.h"
#include "platform/DirectX7.h"
#include "platform/Log.h"
#include "platform/RuntimeFailure.h"
#include "platform/SondervalService2.h"
#include "platform/WaveOut.h"
#include "tests/support/Fakes.h"

namespace Tolvar::Testing {

/// The device interfaces with the plan's calls refused, as each of them refuses: nothing is done.
/// What is given stays the caller's.

struct FaultyWaveOut : WaveOut {
    FaultyWaveOut(WaveOut& Behind, FaultPlan& Plan) : Real_(Behind), Faults_(Plan) {}

    UINT waveOutGetNumDevs() override { return Faults_.Fails() ? 0 : Real_.waveOutGetNumDevs(); }
    MMRESULT waveOutOpen(HWAVEOUT* Handle, UINT Device, const WAVEFORMATEX* Format,
                         std::uintptr_t Callback, std::uintptr_t Instance, DWORD Flags) override {
        if (Faults_.Fails()) return MMSYSERR_NODRIVER;
        return Real_.waveOutOpen(Handle, Device, Format, Callback, Instance, Flags);
    }
    MMRESULT waveOutClose(HWAVEOUT H) override { return Reach(H, &WaveOut::waveOutClose); }
    MMRESULT waveOutPrepareHeader(HWAVEOUT H, WAVEHDR* Header, UINT Bytes) override {
        return Reach(H, &WaveOut::waveOutPrepareHeader, Header, Bytes);
    }
    MMRESULT waveOutUnprepareHeader(HWAVEOUT H, WAVEHDR* Header, UINT Bytes) override {
        return Reach(H, &WaveOut::waveOutUnprepareHeader, Header, Bytes);
    }
    MMRESULT waveOutWrite(HWAVEOUT H, WAVEHDR* Header, UINT Bytes) override {
        return Reach(H, &WaveOut::waveOutWrite, Header, Bytes);
    }
    MMRESULT waveOutGetPosition(HWAVEOUT H, MMTIME* Time, UINT Bytes) override {
        return Reach(H, &WaveOut::waveOutGetPosition, Time, Bytes);
    }
    MMRESULT waveOutPause(HWAVEOUT H) override { return Reach(H, &WaveOut::waveOutPause); }
    MMRESULT waveOutRestart(HWAVEOUT H) override { return Reach(H, &WaveOut::waveOutRestart); }
    MMRESULT waveOutReset(HWAVEOUT H) override { return Reach(H, &WaveOut::waveOutReset); }

  private:
    /// A call that names no device is refused as it is.
    MMRESULT Reach(HWAVEOUT Handle, auto Call, auto... Given) {
        if (Handle != 0 && Faults_.Fails()) return MMSYSERR_NODRIVER;
        return (Real_.*Call)(Handle, Given...);
    }

    WaveOut& Real_;
    FaultPlan& Faults_;
};

template <typename Seam>
struct Faulty : Seam {
    Faulty(std::unique_ptr<Seam> Behind, FaultPlan& Plan) : Real(std::move(Behind)), Faults(Plan) {}

    Seam& Reach() {
        RequireOfDevice(!Faults.Fails(), "refused");
        return *Real;
    }

    std::unique_ptr<Seam> Real;
    FaultPlan& Faults;
};

struct FaultyBuffer : Faulty<DirectSoundBuffer> {
    using Faulty::Faulty;

    void SetNotificationPositions(std::span<const DSBPOSITIONNOTIFY> Positions) override {
        Reach().SetNotificationPositions(Positions);
    }
    void WriteBuffer(std::int32_t Start, std::int32_t Bytes, const std::int16_t* FirstSample,
                     std::int32_t Flags) override {
        Reach().WriteBuffer(Start, Bytes, FirstSample, Flags);
    }
    void SetCurrentPosition(std::int32_t Bytes) override { Reach().SetCurrentPosition(Bytes); }
    void SetFrequency(std::int32_t Hz) override { Reach().SetFrequency(Hz); }
    void Play(std::int32_t Flags) override { Reach().Play(Flags); }
    void Stop() override { Reach().Stop(); }
    void GetCurrentPosition(DSCURSORS& At) override { Reach().GetCurrentPosition(At); }
};

struct FaultySound : Faulty<DirectSound> {
    using Faulty::Faulty;

    void SetCooperativeLevel(std::int32_t Window, std::int32_t Level) override {
        Reach().SetCooperativeLevel(Window, Level);
    }
    std::unique_ptr<DirectSoundBuffer> CreateSoundBuffer(const DSBUFFERDESC& Desc,
                                                         const WAVEFORMATEX& Format) override {
        return std::make_unique<FaultyBuffer>(Reach().CreateSoundBuffer(Desc, Format), Faults);
    }
};

struct FaultyDirectX7 : Faulty<DirectX7> {
    using Faulty::Faulty;

    std::unique_ptr<DirectSound> DirectSoundCreate(const std::string& Device) override {
        return std::make_unique<FaultySound>(Reach().DirectSoundCreate(Device), Faults);
    }
    std::int32_t CreateEvent(DirectXEvent& Event) override { return Reach().CreateEvent(Event); }
    void DestroyEvent(std::int32_t Handle) override { Reach().DestroyEvent(Handle); }
};

/// The plan's calls find no library, or one whose entry point refuses (which the library writes to
/// the log itself).
struct FaultyLibrary : DlServiceLibrary {
    FaultyLibrary(SoundCard& Card, FaultPlan& Plan, Log& Journal)
        : DlServiceLibrary(Card, Journal), Faults_(Plan), Journal_(Journal) {}

    bool Refuses = false;

    void* Entry(const char* Name) override {
        if (!Faults_.Fails()) return DlServiceLibrary::Entry(Name);
        if (!Refuses) throw RuntimeFailure(FailureKind::Library, std::string("no ") + Name);
        Journal_.Write(std::string(Name) + ": refused");
        const std::array All{Like(&Service01), Like(&Service02), Like(&Service03),
                             Like(&Service04), Like(&Service05), Like(&Service06),
                             Like(&Service07), Like(&Service08)};
        return All.at(static_cast<std::size_t>(std::string_view(Name).back() - '1'));
    }

  private:
    /// A function of the same type, because it is called through that, which does nothing.
    template <typename... Arguments>
    static void* Like(std::int32_t (*)(Arguments...)) {
        std::int32_t (*const Refusing)(Arguments...) = [](Arguments...) { return 0; };
        return reinterpret_cast<void*>(Refusing);
    }

    FaultPlan& Faults_;
    Log& Journal_;
};

}  // namespace Tolvar::Testing
