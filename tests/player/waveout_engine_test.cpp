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

}  // namespace
}  // namespace Tolvar::Testing
