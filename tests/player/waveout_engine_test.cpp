#include "tests/player/Studio.h"

namespace Tolvar::Testing {
namespace {

using ::testing::ElementsAre;

TEST(WaveOutEngine, EndsTwoPollsAndACountdownAfterTheLastFrame) {
    // The polls run every 40 ms from the start: the two that find everything played, and the
    // countdown's 40 ms after the second.
    for (const auto& [Length, DoneMs] : std::vector<std::pair<std::int32_t, std::int64_t>>{
             {1, 120}, {39, 120}, {40, 120}, {41, 160}, {4000, 4080}, {9000, 9080}}) {
        Studio S;
        S.Load({.Frames = Length});
        S.Player->PlayAgain();
        ASSERT_TRUE(S.PlayOut());
        EXPECT_EQ(S.NowMs(), DoneMs) << Length;
    }
}

TEST(WaveOutEngine, StoredPositionFollowsThePollAndTheTempoChangesNothing) {
    Studio S;
    S.Load({.Frames = 9000});
    S.Player->PlayTempoFor(2.0F);
    S.Player->PlayAgain();
    S.Advance(79);
    EXPECT_EQ(S.Player->PlayCurrentPosition(), 40);
    S.Advance(1);
    EXPECT_EQ(S.Player->PlayCurrentPosition(), 80);
    ASSERT_TRUE(S.PlayOut());
    EXPECT_EQ(S.NowMs(), 9080);
}

TEST(WaveOutEngine, NothingWakesUpWhenNothingPlays) {
    Studio S;
    S.Load({.Frames = 9000});
    const auto Idle = [&] {  // asked before the first and after every delivery
        int Asked = 0;
        S.Home.RunUntil(S.Time.NowNs() + NsPerSecond, [&] { return ++Asked > 3; });
        return Asked <= 2;
    };
    EXPECT_TRUE(Idle());
    S.Player->PlayAgain();
    S.Advance(1000);
    EXPECT_FALSE(Idle());
    S.Player->PlayPause();
    EXPECT_TRUE(Idle());
    S.Player->PlayContinue();
    S.Player->StopPlay();
    EXPECT_TRUE(Idle());
}

TEST(WaveOutEngine, RecoversFromAnUnderrun) {
    Studio S;
    S.Load({.Frames = 12'000});
    S.Player->PlayAgain();
    S.Advance(40);         // segment 2 is queued
    S.Home.Sleep(10'000);  // the thread is away until both have been played
    ASSERT_TRUE(S.PlayOut());
    EXPECT_EQ(S.Heard(), Frames(1, 12'000));
    EXPECT_THAT(S.Said(), ElementsAre("Playing", "Play Done"));
}

TEST(WaveOutEngine, ContinueWithNothingToContinueEndsWithAnAnswer) {
    const std::vector<std::pair<std::int64_t, std::string>> Cases{
        {-1, "Play Failed"}, {1000, "Play Failed"}, {8500, "Play Done"}};  // stopped after ms
    for (const auto& [PlayedMs, Answer] : Cases) {
        Studio S;
        S.Load({.Frames = 9000});
        if (PlayedMs >= 0) {
            S.Player->PlayAgain();
            S.Advance(PlayedMs);
            S.Player->StopPlay();
        }
        S.Heard();
        S.Player->PlayContinue();
        EXPECT_EQ(S.Player->PlayRunningDx7State(), 1);
        ASSERT_TRUE(S.PlayOut(1000)) << PlayedMs;
        EXPECT_EQ(S.Said().back(), Answer);
        EXPECT_THAT(S.Heard(), ::testing::IsEmpty());
    }
}

TEST(WaveOutEngine, CommandsInsideStoppedDoNotUpsetTheHandOverThatRaisedIt) {
    Studio S;
    const TestWave W{.Frames = 9000};
    S.Load(W);
    S.OnReport = [&](const std::string& Report) {
        if (Report == "Stopped") S.Player->PlayAgain();
    };
    S.Player->PlayAgain();
    S.HandOver({.Frames = 500, .Rate = 400'000'000});  // no buffer can be made
    S.Advance(20'000);
    S.OnReport = [&](const std::string& Report) {
        if (Report == "Stopped") S.TakeEngine();
    };
    S.HandOver(W);
    S.Player->PlayAgain();
    S.HandOver(W);
    S.OnReport = {};
    S.Heard();
    S.HandOver(W);
    S.Player->PlayAgain();
    ASSERT_TRUE(S.PlayOut());
    EXPECT_EQ(S.Heard(), Frames(1, 9000));
}

}  // namespace
}  // namespace Tolvar::Testing
