#pragma once

#include <gmock/gmock.h>

#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "platform/Clocks.h"
#include "platform/SoundCard.h"
#include "platform/WaveOut.h"
#include "tests/support/Fakes.h"

namespace Tolvar::Testing {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::Ge;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

using Samples = std::vector<std::int16_t>;

inline Samples Numbers(int First, int Count) {
    Samples Made(static_cast<std::size_t>(Count));
    std::iota(Made.begin(), Made.end(), static_cast<std::int16_t>(First));
    return Made;
}

inline std::string BytesOf(const Samples& Some) {
    return {reinterpret_cast<const char*>(Some.data()), Some.size() * 2};
}

/// The header of those samples, which stay the caller's.
inline WAVEHDR HeaderOf(const Samples& Some) {
    return {reinterpret_cast<const char*>(Some.data()), static_cast<DWORD>(Some.size() * 2)};
}

/// A sound card on the virtual clock, whose listener stays with the test and which can fail.
struct CardRig {
    explicit CardRig(SinkRate Rate = {})
        : Card(Home, {std::make_unique<TestSink>(*this), nullptr}, Rate, Journal) {}

    void AdvanceNs(std::int64_t Ns) { Home.RunUntil(Time.NowNs() + Ns); }
    std::int64_t NowMs() const { return Time.NowNs() / NsPerMs; }

    struct TestSink : Sink {
        CardRig& Rig;
        explicit TestSink(CardRig& TheRig) : Rig(TheRig) {}
        bool WantsFrames() const override { return true; }
        void Open(int Channels, int RateHz) override { Rig.Heard.Open(Channels, RateHz); }
        void Write(std::span<const std::int16_t> Some) override {
            if (!Rig.Fault.empty()) throw RuntimeFailure(FailureKind::Device, Rig.Fault);
            Rig.Heard.Write(Some);
        }
        void Finish() override { Rig.Heard.Finish(); }
    };

    VirtualClock Time;
    ListLog Journal;
    Apartment Home{Time, Journal};
    ListeningSink Heard;
    std::string Fault;
    SoundCard Card;
};

inline WAVEFORMATEX Pcm(int Channels, int Hz) {
    const auto Align = static_cast<WORD>(Channels * 2);
    const auto Rate = static_cast<DWORD>(Hz);
    return {WAVE_FORMAT_PCM, static_cast<WORD>(Channels), Rate, Rate * Align, Align, 16, 0};
}

}  // namespace Tolvar::Testing
