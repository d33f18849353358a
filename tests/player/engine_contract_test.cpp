#include <random>

#include "tests/player/Studio.h"

namespace Tolvar::Testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(Engine, PlaysEveryFrameOnceInBothDirections) {
    // Around the segment border of 4000 frames, and several segments.
    for (const std::int32_t Length : {1, 2, 3999, 4000, 4001, 7999, 8000, 8001, 21234}) {
        for (const std::int32_t Channels : {1, 2}) {
            Studio S;
            S.Load({.Frames = Length, .Channels = Channels});
            S.Player->PlayAgain();
            EXPECT_EQ(S.Player->PlayRunningDx7State(), 1);
            ASSERT_TRUE(S.PlayOut());
            EXPECT_EQ(S.Heard(), Frames(1, Length));
            EXPECT_THAT(S.Said(), ElementsAre("Playing", "Play Done"));
            EXPECT_EQ(S.Player->PlayCurrentPosition(), Length);

            S.Player->PlayAgainRev();
            ASSERT_TRUE(S.PlayOut());
            EXPECT_EQ(S.Heard(), Frames(Length, 1));
            EXPECT_THAT(S.Said(), ElementsAre("Playing", "Play Done"));
            EXPECT_EQ(S.Player->PlayCurrentPosition(), 1);
        }
    }
}

TEST(Engine, PositionIsExactAtEveryMomentAndNeverRunsBackward) {
    for (const std::int32_t Rate : {1000, 1103, 11025, 44100}) {
        Studio S;
        const std::int32_t Length = 30000;
        S.Load({.Frames = Length, .Rate = Rate});
        for (const int Direction : {1, -1}) {
            Direction == 1 ? S.Player->PlayAgain() : S.Player->PlayAgainRev();
            const auto Start = S.NowMs();
            const auto PlayMs = std::int64_t{Length} * 1000 / Rate;
            for (std::int64_t Ms = 0; Ms <= PlayMs + 40; Ms += 7) {
                S.Advance(Start + Ms - S.NowMs());
                const auto Played =
                    static_cast<std::int32_t>(std::min<std::int64_t>(Length, Ms * Rate / 1000));
                ASSERT_EQ(S.Position(), Direction == 1 ? Played : Length - Played + 1) << Ms;
            }
            ASSERT_TRUE(S.PlayOut());
        }
    }
}

TEST(Engine, PlayAtStartsAtTheFrameClampedIntoTheWave) {
    constexpr std::int32_t Max = 2147483647;
    Studio S;
    S.Load({.Frames = 500});
    for (const auto& [Pos, From] : std::vector<std::pair<std::int32_t, int>>{{1, 1},
                                                                             {250, 250},
                                                                             {500, 500},
                                                                             {501, 500},
                                                                             {Max, 500},
                                                                             {0, 1},
                                                                             {-1, 1},
                                                                             {-Max - 1, 1}}) {
        S.Player->PlayAtPos(Pos);
        EXPECT_EQ(S.State.PlayStartOff, From - 1);
        ASSERT_TRUE(S.PlayOut());
        EXPECT_EQ(S.Heard(), Frames(From, 500)) << Pos;
        S.Player->PlayAtPosRev(Pos);
        ASSERT_TRUE(S.PlayOut());
        EXPECT_EQ(S.Heard(), Frames(From, 1)) << Pos;
        EXPECT_THAT(S.Said(), ElementsAre("Playing", "Play Done", "Playing", "Play Done"));
    }
}

TEST(Engine, LoopsCountTheirPasses) {
    for (const int Direction : {1, -1}) {
        Studio S;
        S.Load({.Frames = 500});
        S.Player->LoopPlayON(true);
        Direction == 1 ? S.Player->PlayAtPos(400) : S.Player->PlayAtPosRev(101);
        EXPECT_EQ(S.Player->PlayRunningDx7State(), 2);
        EXPECT_THAT(S.Said(), ElementsAre("Playing Loop 0"));
        S.OnReport = [&](const std::string& Report) {
            if (Report == "Playing Loop 3") S.Player->LoopPlayON(false);
        };
        ASSERT_TRUE(S.PlayOut());
        EXPECT_THAT(S.Said(),
                    ElementsAre("Playing Loop", "Playing Loop 1", "Playing Loop", "Playing Loop 2",
                                "Playing Loop", "Playing Loop 3", "Play Done"));
        auto Expected = Direction == 1 ? Frames(400, 500) : Frames(101, 1);
        for (int Pass = 0; Pass < 3; ++Pass) {
            const auto Whole = Direction == 1 ? Frames(1, 500) : Frames(500, 1);
            Expected.insert(Expected.end(), Whole.begin(), Whole.end());
        }
        EXPECT_EQ(S.Heard(), Expected);

        // A U-turn keeps the count, PlayAgain clears it.
        S.Player->LoopPlayON(true);
        S.Player->PlayAgain();
        S.Advance(1000);
        S.Player->PlayUTurn();
        EXPECT_THAT(S.Said(), ElementsAre("Playing Loop", "Playing Loop", "Playing Loop 1",
                                          "Playing Loop 1"));
    }
}

TEST(Engine, PauseHoldsTheFrameAndContinueGoesOnWithTheNext) {
    Studio S;
    S.Load({.Frames = 9000});
    S.Player->PlayAgain();
    S.Advance(4321);
    S.Player->PlayPause();
    EXPECT_EQ(S.Player->PlayRunningDx7State(), 3);
    S.Advance(10'000);
    EXPECT_EQ(S.Position(), 4321);
    S.Player->LoopPlayON(true);
    S.Player->PlayContinue();
    EXPECT_EQ(S.Player->PlayRunningDx7State(), 2);
    S.Player->LoopPlayON(false);
    S.Advance(1);
    EXPECT_EQ(S.Position(), 4322);
    ASSERT_TRUE(S.PlayOut());
    EXPECT_EQ(S.Heard(), Frames(1, 9000));

    // A pause before anything plays, and a stop in a pause, leave nothing stuck.
    S.Player->PlayPause();
    S.Player->PlayAgain();
    S.Advance(50);
    S.Player->PlayPause();
    S.Player->StopPlay();
    S.Said();
    S.Player->PlayAgainRev();
    ASSERT_TRUE(S.PlayOut());
    EXPECT_THAT(S.Said(), ElementsAre("Playing", "Play Done"));
}

TEST(Engine, TurnsJumpsAndPausesAtArbitraryMomentsLoseAndRepeatNothing) {
    std::mt19937 Random(20260101);
    const auto Pick = [&](int Below) { return static_cast<int>(Random() % unsigned(Below)); };
    for (int Round = 0; Round < 40; ++Round) {
        const std::int32_t Rate = Round % 2 == 0 ? 1000 : 1103;
        const std::int32_t Length = 1 + Pick(30000);
        Studio S;
        S.Load({.Frames = Length, .Channels = 1 + Round % 3 / 2, .Rate = Rate});
        std::vector<int> Expected;
        int Direction = 1;
        int From = 1;                            // the run's first frame
        const auto Run = [&](std::int64_t Ms) {  // plays on for Ms, returns the last frame heard
            const std::int32_t Left = Direction == 1 ? Length - From + 1 : From;
            const auto Played = static_cast<int>(std::min<std::int64_t>(Left, Ms * Rate / 1000));
            const int Last = From + Direction * (Played - 1);
            if (Played > 0) {
                const auto Part = Frames(From, Last);
                Expected.insert(Expected.end(), Part.begin(), Part.end());
            }
            return Last;
        };
        S.Player->PlayAgain();
        for (int Step = 0; Step < 12; ++Step) {
            const std::int64_t Ms = Pick(6000);
            S.Advance(Ms);
            const int Last = Run(Ms);
            bool Ended = S.Player->PlayRunningDx7State() == 0;
            if (!Ended && Pick(3) == 0) {  // a pause in between changes nothing but the time
                S.Player->PlayPause();
                S.Advance(Pick(500));
                Ended = S.Player->PlayRunningDx7State() == 0;
                if (!Ended) S.Player->PlayContinue();
            }
            if (!Ended) {
                EXPECT_EQ(S.Position(), Last);
            }
            if (Ended || Pick(2) == 0) {
                From = 1 + Pick(Length);
                Direction = Pick(2) == 0 ? 1 : -1;
                Direction == 1 ? S.Player->PlayAtPos(From) : S.Player->PlayAtPosRev(From);
            } else {
                S.Player->PlayUTurn();
                From = std::clamp(Last, 1, Length);
                Direction = -Direction;
            }
        }
        Run(40'000'000);
        ASSERT_TRUE(S.PlayOut());
        ASSERT_EQ(S.Heard(), Expected) << "round " << Round;
        EXPECT_EQ(S.Said().back(), "Play Done");
    }
}

TEST(Engine, StopEndsTheRunAtOnceAndClosesTheFiles) {
    Studio S;
    S.Load({.Frames = 9000});
    for (const std::int64_t Ms : {0, 1, 39, 40, 4000, 8990, 9060, 9100}) {
        S.Player->PlayAgain();
        S.Advance(Ms);
        S.Said();
        S.Player->StopPlay();
        EXPECT_THAT(S.Said(), ElementsAre("Stopped")) << Ms;
        EXPECT_EQ(S.Disk.OpenNow, 0);
        S.Advance(20'000);
        EXPECT_THAT(S.Said(), IsEmpty()) << Ms;
        EXPECT_EQ(S.Heard(), Ms == 0
                                 ? std::vector<int>{}
                                 : Frames(1, static_cast<int>(std::min<std::int64_t>(Ms, 9000))));
    }
}

TEST(Engine, AFileThatFailsEndsThePlayAndTheNextCommandWorks) {
    Studio S;
    const TestWave W{.Frames = 9000};
    S.Load(W);
    const auto Whole = S.Disk.Content["wave"];

    S.Disk.Content.erase("wave");
    S.Player->PlayAgain();
    EXPECT_THAT(S.Said(), ElementsAre("Play Failed", "Play Failed"));
    S.Player->PlayAtPosRev(8000);
    EXPECT_THAT(S.Said(), ElementsAre("Play at.. failed", "Play at.. failed"));
    S.Player->PlayUTurn();
    EXPECT_THAT(S.Said(), ElementsAre("UTurn failed", "U-Turn Failed"));
    EXPECT_EQ(S.Player->PlayRunningDx7State(), 0);

    S.Disk.Content["wave"] = {Whole.begin(), Whole.begin() + 15000};  // short in segment 2
    S.Player->PlayAgain();
    ASSERT_TRUE(S.PlayOut());
    EXPECT_THAT(S.Said(), ElementsAre("Playing", "Play Failed"));
    EXPECT_THAT(S.Journal.Lines.back(), ::testing::HasSubstr("wave"));
    S.Heard();

    S.Disk.Content["wave"] = Whole;
    S.Player->PlayAgain();
    ASSERT_TRUE(S.PlayOut());
    EXPECT_EQ(S.Heard(), Frames(1, 9000));
    S.Advance(1000);
    EXPECT_THAT(S.Said(), ElementsAre("Playing", "Play Done"));
}

TEST(Engine, WithoutADeviceEveryStartFailsAndNothingHangs) {
    Studio S(false);
    EXPECT_EQ(S.TakeEngine(), 2);
    const TestWave W{.Frames = 500};
    S.PutWave(W);
    S.HandOver(W);
    EXPECT_EQ(S.Said().back(), "Sound Buffer Failed");
    S.Player->PlayAgain();
    EXPECT_THAT(S.Said(), ElementsAre("Play Failed", "Play Failed"));
    S.Player->PlayPause();
    S.Player->PlayContinue();
    S.Advance(1000);
    S.Player->PlayUTurn();
    S.Player->StopPlay();
    EXPECT_THAT(S.Said(), ElementsAre("Play Done", "UTurn failed", "U-Turn Failed", "Stopped"));
    EXPECT_EQ(S.Player->PlayRunningDx7State(), 0);
}

}  // namespace
}  // namespace Tolvar::Testing
