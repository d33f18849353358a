#include <cmath>
#include <numbers>
#include <optional>

#include "platform/LoopingVoice.h"
#include "tests/platform/CardRig.h"

namespace Tolvar::Testing {
namespace {

void Fill(LoopingVoice& Voice, int Frame, const Samples& Some) {
    Voice.Write(Frame * Voice.BytesPerFrame(), static_cast<std::int32_t>(Some.size()) * 2,
                Some.data());
}

TEST(LoopingVoiceTest, PositionsAreExactAndEveryFrameIsHeardOnceBitForBit) {
    for (const auto& [Channels, Hz] :
         {std::pair(1, 100), {2, 11025}, {1, 44100}, {2, 88200}, {2, 99999}, {1, 100000}}) {
        CardRig Rig({SinkRate::Rule::Native, 0});
        LoopingVoice Voice(Rig.Card, {Channels, 44100}, 997 * Channels * 2);
        const Samples Content = Numbers(-500, 997 * Channels);
        Fill(Voice, 0, Content);
        Voice.SetFrequency(Hz);
        Voice.Play();
        std::int64_t Passed = 0;
        for (const std::int64_t Ns : {0, 1, 999'999'998, 1, 333'333'333, 1'900'000'001}) {
            Rig.AdvanceNs(Ns);
            Passed += Ns;
            EXPECT_EQ(Voice.FramesHeard(), Passed * Hz / NsPerSecond) << Hz << " at " << Passed;
        }
        Voice.Stop();
        const auto Frames = static_cast<std::size_t>(Passed * Hz / NsPerSecond * Channels);
        ASSERT_EQ(Rig.Heard.Heard.size(), Frames) << Hz;
        EXPECT_EQ(Rig.Heard.RateHz, Hz);
        for (std::size_t I = 0; I < Frames; ++I)
            ASSERT_EQ(Rig.Heard.Heard[I], Content[I % Content.size()]) << "sample " << I;
    }
}

/// A mono buffer of 20 frames, 1 ms each: a at its start, b at its half, c at its last byte.
struct TwentyFrames : CardRig, ::testing::Test {
    std::optional<LoopingVoice> Voice{std::in_place, Card, StreamFormat{1, 1000}, 40};
    std::vector<std::string> Told;

    LoopingVoice::Notification Tell(std::int32_t Offset, const char* Name) {
        return {Offset, [this, Name] { Told.push_back(Name + std::to_string(NowMs())); }};
    }
    std::vector<std::string> TakeTold() { return std::exchange(Told, {}); }
    void Notify() { Voice->SetNotifications({Tell(39, "c"), Tell(0, "a"), Tell(20, "b")}); }
};

TEST(FrameTimerTest, IsExactAfterAMonth) {
    FrameTimer Long(100'000);
    Long.Start(7, 3);
    const std::int64_t Month = 30 * 86'400 * NsPerSecond;
    const std::int64_t Frame = 3 + 30 * 86'400 * 100'000LL;
    EXPECT_EQ(Long.NsOf(Frame), 7 + Month);
    EXPECT_EQ(Long.FramesAt(6 + Month), Frame - 1);
}

TEST_F(TwentyFrames, AFrequencyChangeLosesNothingOfWhatTheResamplerHolds) {
    Fill(*Voice, 0, Samples(20, 1000));
    Voice->Play();
    for (const int Hz : {2000, 500, 1000, 100'000, 100}) {
        Voice->SetFrequency(Hz);
        Home.AdvanceBy(3000);
    }
    Voice->Stop();
    EXPECT_NEAR(static_cast<double>(Heard.Heard.size()), 15000, 5);
    EXPECT_NEAR(std::accumulate(Heard.Heard.begin(), Heard.Heard.end(), 0.0), 15e6, 3e4);
}

TEST_F(TwentyFrames, MissedSignalsComeInOrderAlsoAfterAStop) {
    Notify();
    Voice->Play();
    Home.Sleep(32);
    Home.AdvanceBy(0);
    EXPECT_THAT(TakeTold(), ElementsAre("a32", "b32", "c32", "a32", "b32"));
    Home.Sleep(40);
    Voice->Stop();
    Home.AdvanceBy(10);
    Voice->Play();
    Home.AdvanceBy(7);
    EXPECT_THAT(TakeTold(), ElementsAre("c82", "a82", "b82", "c82", "a82", "b82", "c89"))
        << "those that the stop overtook first";
    Home.Sleep(1);
    Voice->Stop();
    Voice->Play();
    Home.AdvanceBy(0);
    EXPECT_THAT(TakeTold(), ElementsAre("a90")) << "it sets off from a, which was not told";
    Voice->PlayFromStart();
    Home.AdvanceBy(0);
    EXPECT_THAT(TakeTold(), ElementsAre("a90")) << "the cursor was put there anew";
    Voice->Stop();
    Voice->SetNotifications({{18, [&] { Voice.reset(); }}, Tell(18, "never")});
    Voice->Play();
    Home.AdvanceBy(100);
    EXPECT_FALSE(Voice.has_value()) << "gone by its own signal";
    EXPECT_THAT(Told, ElementsAre());
}

// ---- resampling

/// How far (dB) the best sine of Hz stands above everything else, away from the two ends.
double SignalToNoise(const Samples& Found, double Hz, int RateHz) {
    const std::size_t Edge = Found.size() / 10;
    double SS = 0, CC = 0, SC = 0, SX = 0, CX = 0, XX = 0;
    for (std::size_t I = Edge; I < Found.size() - Edge; ++I) {
        const double Angle = 2 * std::numbers::pi * Hz * static_cast<double>(I) / RateHz;
        const double S = std::sin(Angle), C = std::cos(Angle), X = Found[I];
        SS += S * S, CC += C * C, SC += S * C, SX += S * X, CX += C * X, XX += X * X;
    }
    const double Determinant = SS * CC - SC * SC;
    const double A = (SX * CC - CX * SC) / Determinant, B = (CX * SS - SX * SC) / Determinant;
    const double Signal = A * SX + B * CX;
    return 10 * std::log10(Signal / (XX - Signal));
}

TEST(LoopingVoiceTest, ATempoMovesThePitchAndAddsNoNoiseWhereTheBufferWraps) {
    for (const int Rate : {22050, 44100, 48000, 96000}) {
        for (const double Tempo : {2.0, 0.5, 1.05946}) {
            CardRig Rig;
            const auto Hz = std::min(100'000, static_cast<int>(std::lround(Rate * Tempo)));
            LoopingVoice Voice(Rig.Card, {1, Rate}, Rate / 10 * 2);
            Samples Sine;
            for (int I = 0; I < Rate / 10; ++I) {
                const double Angle = 2 * std::numbers::pi * 1000 * I / Rate;
                Sine.push_back(static_cast<std::int16_t>(std::lround(30000 * std::sin(Angle))));
            }
            Fill(Voice, 0, Sine);
            Voice.SetFrequency(Hz);
            Voice.Play();
            Rig.Home.AdvanceBy(1000);
            Voice.Stop();
            const double Pitch = 1000.0 * Hz / Rate;
            // Noise this low bounds the pitch too: a sine that is off by 0.01 % misses by 40 dB.
            EXPECT_GT(SignalToNoise(Rig.Heard.Heard, Pitch, Rate), 90) << Rate << " x " << Tempo;
            EXPECT_NEAR(static_cast<double>(Rig.Heard.Heard.size()), Rate, 1);
        }
    }
}

}  // namespace
}  // namespace Tolvar::Testing
