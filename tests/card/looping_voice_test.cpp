#include <cmath>
#include <numbers>

#include "card/voices/LoopingVoice.h"
#include "tests/card/CardRig.h"

namespace Tolvar::Testing {
namespace {

/// A mono buffer of 20 frames, 1 ms each: a at its start, b at its half, c at its last byte.
struct TwentyFrames : CardRig, Test {
    LoopingVoice Voice{Card, {1, 1000}, 40};
    std::vector<std::string> Told;

    LoopingVoice::Notification Tell(std::int32_t Offset, const char* Name) {
        return {Offset,
                [this, Name] { Told.push_back(Name + std::to_string(Time.NowNs() / NsPerMs)); }};
    }
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
    Voice.Write(0, 40, Samples(20, 1000).data());
    Voice.Play();
    for (const int Hz : {2000, 500, 1000, 100'000, 100}) {
        Voice.SetFrequency(Hz);
        Home.AdvanceBy(3000);
    }
    Voice.Stop();
    EXPECT_NEAR(static_cast<double>(Heard.Heard.size()), 15000, 5);
    EXPECT_NEAR(std::accumulate(Heard.Heard.begin(), Heard.Heard.end(), 0.0), 15e6, 3e4);
}

TEST_F(TwentyFrames, MissedSignalsComeInOrderAlsoAfterAStop) {
    Voice.SetNotifications({Tell(39, "c"), Tell(0, "a"), Tell(20, "b")});
    Voice.Play();
    Home.Sleep(32);
    Home.AdvanceBy(0);
    EXPECT_THAT(std::exchange(Told, {}), ElementsAre("a32", "b32", "c32", "a32", "b32"));
    Home.Sleep(40);
    Voice.Stop();
    Home.AdvanceBy(10);
    Voice.Play();
    Home.AdvanceBy(7);
    EXPECT_THAT(Told, ElementsAre("c82", "a82", "b82", "c82", "a82", "b82", "c89"))
        << "those that the stop overtook first";
}

TEST(LoopingVoiceTest, ATempoMovesThePitchAndAddsNoNoiseWhereTheBufferWraps) {
    for (const int Rate : {22050, 44100, 48000, 96000}) {
        for (const double Tempo : {2.0, 0.5, 1.05946}) {
            CardRig Rig;
            const auto Hz = std::min(100'000, static_cast<int>(std::lround(Rate * Tempo)));
            LoopingVoice Voice(Rig.Card, {1, Rate}, Rate / 10 * 2);
            const auto Sine = [&](std::size_t Frame, double Pitch) {
                return 30000 *
                       std::sin(2 * std::numbers::pi * Pitch * static_cast<double>(Frame) / Rate);
            };
            Samples Content(static_cast<std::size_t>(Rate) / 10);
            for (std::size_t I = 0; I < Content.size(); ++I)
                Content[I] = static_cast<std::int16_t>(std::lround(Sine(I, 1000)));
            Voice.Write(0, Rate / 10 * 2, Content.data());
            Voice.SetFrequency(Hz);
            Voice.Play();
            Rig.Home.AdvanceBy(1000);
            Voice.Stop();
            const Samples& Heard = Rig.Heard.Heard;
            EXPECT_NEAR(static_cast<double>(Heard.size()), Rate, 1);
            for (std::size_t I = Heard.size() / 10; I < Heard.size() / 10 * 9; ++I)
                ASSERT_NEAR(Heard[I], Sine(I, 1000.0 * Hz / Rate), 2) << Rate << " x " << Tempo;
        }
    }
}

}  // namespace
}  // namespace Tolvar::Testing
