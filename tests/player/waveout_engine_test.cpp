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
        S.PlayAll();
        EXPECT_EQ(S.NowMs(), DoneMs) << Length;
    }
}

TEST(WaveOutEngine, NothingWakesUpWhenNothingPlays) {
    Studio S;
    S.Load({.Frames = 9000});
    EXPECT_LE(S.Wakings(), 1);
    S.Player->PlayAgain();
    EXPECT_EQ(S.Wakings(), 2);
    S.Player->PlayPause();
    EXPECT_LE(S.Wakings(), 1);
    S.Player->PlayContinue();
    S.Player->StopPlay();
    EXPECT_LE(S.Wakings(), 1);
}

TEST(WaveOutEngine, WithoutADeviceEveryStartFailsAndNothingHangs) {
    Studio S(EngineOrder::WaveOut, false);
    EXPECT_EQ(S.TakeEngine(), 2);
    const TestWave W{.Frames = 500};
    S.PutWave(W);
    S.HandOver(W);
    EXPECT_EQ(S.Said().back(), "Sound Buffer Failed");
    S.Player->PlayAgain();
    EXPECT_THAT(S.Said(), ElementsAre("Play Failed", "Play Failed"));
    S.Player->PlayContinue();
    ASSERT_TRUE(S.PlayOut(1000));
    S.Player->PlayUTurn();
    EXPECT_THAT(S.Said(), ElementsAre("Play Done", "UTurn failed", "U-Turn Failed"));
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
    S.PlayAll();
    EXPECT_EQ(S.Heard(), Frames(1, 9000));
}

}  // namespace
}  // namespace Tolvar::Testing
