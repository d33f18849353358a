#include <random>

#include "tests/player/Studio.h"

namespace Tolvar::Testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// What all engines do alike. After the wave's last frame the DirectSound engines play on until
/// their countdown fires: silence, or at a segment's border what the buffer held before.
class Engine : public ::testing::TestWithParam<EngineOrder> {
  protected:
    static bool IsWaveOut() { return GetParam() == EngineOrder::WaveOut; }

    /// What was heard begins with Expected; TailMs: how long the buffer may have sounded on.
    static void ExpectHeard(Studio& S, std::vector<int> Expected, std::int64_t TailMs = 110) {
        std::vector<int> Actual = S.Heard();
        const auto Tail = static_cast<std::int64_t>(Actual.size() - Expected.size());
        if (!IsWaveOut() && Tail > 0 && Tail * 1000 <= TailMs * S.State.FmtFriq) {
            Actual.resize(Expected.size());
        }
        EXPECT_EQ(Actual, Expected);
    }
};

INSTANTIATE_TEST_SUITE_P(All, Engine,
                         ::testing::Values(EngineOrder::Dx9, EngineOrder::Dx7,
                                           EngineOrder::WaveOut),
                         [](const auto& Info) {
                             return std::string(std::array{"Dx9", "Dx7", "WaveOut"}[Info.index]);
                         });

TEST_P(Engine, PlaysEveryFrameOnceInBothDirections) {
    // Around the segment border of 4000 frames, and several segments.
    for (const std::int32_t Length : {1, 2, 3999, 4000, 4001, 7999, 8000, 8001, 21234}) {
        for (const std::int32_t Channels : {1, 2}) {
            Studio S(GetParam());
            S.Load({.Frames = Length, .Channels = Channels});
            S.PlayAll();
            ExpectHeard(S, Frames(1, Length));
            S.PlayAll(-1);
            ExpectHeard(S, Frames(Length, 1));
            EXPECT_THAT(S.Said(), ElementsAre("Playing", "Play Done", "Playing", "Play Done"));
        }
    }
}

TEST_P(Engine, PositionIsExactAtEveryMomentAndNeverRunsBackward) {
    for (const std::int32_t Rate : {1000, 1103, 11025, 44100}) {
        Studio S(GetParam());
        const std::int32_t Length = 30000;
        S.Load({.Frames = Length, .Rate = Rate});
        for (const int Direction : {1, -1}) {
            S.Play(Direction);
            const auto Start = S.NowMs();
            const auto PlayMs = std::int64_t{Length} * 1000 / Rate;
            for (std::int64_t Ms = 0; Ms <= PlayMs; Ms += 7) {
                S.Advance(Start + Ms - S.NowMs());
                const auto Played =
                    static_cast<std::int32_t>(std::min<std::int64_t>(Length, Ms * Rate / 1000));
                ASSERT_EQ(S.Position(), Direction == 1 ? Played : Length - Played + 1) << Ms;
            }
            ASSERT_TRUE(S.PlayOut());
        }
    }
}

TEST_P(Engine, PlayAtStartsAtTheFrameClampedIntoTheWave) {
    constexpr std::int32_t Max = 2147483647;
    Studio S(GetParam());
    S.Load({.Frames = 500});
    for (const std::int32_t Pos : {1, 250, 500, 501, Max, 0, -1, -Max - 1}) {
        const std::int32_t From = std::clamp(Pos, 1, 500);
        S.Player->PlayAtPos(Pos);
        ASSERT_TRUE(S.PlayOut());
        EXPECT_EQ(S.Heard(), Frames(From, 500)) << Pos;
        S.Player->PlayAtPosRev(Pos);
        ASSERT_TRUE(S.PlayOut());
        EXPECT_EQ(S.Heard(), Frames(From, 1)) << Pos;
        EXPECT_THAT(S.Said(), ElementsAre("Playing", "Play Done", "Playing", "Play Done"));
    }
}

TEST_P(Engine, LoopsCountTheirPasses) {
    for (const int Direction : {1, -1}) {
        Studio S(GetParam());
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
        ExpectHeard(S, Expected);

        // A U-turn keeps the count, PlayAgain clears it.
        S.Player->LoopPlayON(true);
        S.Player->PlayAgain();
        S.Advance(1000);
        S.Player->PlayUTurn();
        EXPECT_THAT(S.Said(), ElementsAre("Playing Loop", "Playing Loop", "Playing Loop 1",
                                          "Playing Loop 1"));
    }
}

TEST_P(Engine, PauseHoldsTheFrameAndContinueGoesOnWithTheNext) {
    Studio S(GetParam());
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
    ExpectHeard(S, Frames(1, 9000));

    // A pause before anything plays, and a stop in a pause, leave nothing stuck.
    S.Player->PlayPause();
    S.Player->PlayAgain();
    S.Player->PlayPause();
    S.Player->StopPlay();
    S.Said();
    S.PlayAll(-1);
    EXPECT_THAT(S.Said(), ElementsAre("Playing", "Play Done"));
}

TEST_P(Engine, TurnsJumpsAndPausesAtArbitraryMomentsLoseAndRepeatNothing) {
    std::mt19937 Random(20260101);
    const auto Pick = [&](int Below) { return static_cast<int>(Random() % unsigned(Below)); };
    for (int Round = 0; Round < 40; ++Round) {
        const std::int32_t Rate = Round % 2 == 0 ? 1000 : 1103;
        const std::int32_t Length = 1 + Pick(30000);
        Studio S(GetParam());
        S.Load({.Frames = Length, .Channels = 1 + Round % 3 / 2, .Rate = Rate});
        int Direction = 1;
        int From = 1;  // the run's first frame
        S.Player->PlayAgain();
        for (int Step = 0; Step < 12; ++Step) {
            const std::int64_t Ms = Pick(6000);
            S.Advance(Ms);
            const std::int32_t Left = Direction == 1 ? Length - From + 1 : From;
            const auto Played = static_cast<int>(std::min<std::int64_t>(Left, Ms * Rate / 1000));
            const int Last = From + Direction * (Played - 1);
            bool Ended = S.Player->PlayRunningDx7State() == 0;
            if (!Ended && Pick(3) == 0) {  // a pause in between changes nothing but the time
                S.Player->PlayPause();
                S.Advance(Pick(500));
                Ended = S.Player->PlayRunningDx7State() == 0;
                if (!Ended) S.Player->PlayContinue();
            }
            if (!Ended && Played < Left) {
                EXPECT_EQ(S.Position(), Last);
            }
            const auto Expected = Played > 0 ? Frames(From, Last) : std::vector<int>{};
            if (Ended || Pick(2) == 0) {
                From = 1 + Pick(Length);
                Direction = Pick(2) == 0 ? 1 : -1;
                Direction == 1 ? S.Player->PlayAtPos(From) : S.Player->PlayAtPosRev(From);
            } else {
                S.Player->PlayUTurn();
                From = std::clamp(Last, 1, Length);
                Direction = -Direction;
            }
            ExpectHeard(S, Expected, Played < Left ? 0 : 210);
            ASSERT_FALSE(HasFailure()) << "round " << Round << ", step " << Step;
        }
        ASSERT_TRUE(S.PlayOut());
        ExpectHeard(S, Frames(From, Direction == 1 ? Length : 1));
        EXPECT_EQ(S.Said().back(), "Play Done");
    }
}

TEST_P(Engine, StopEndsTheRunAtOnceAndClosesTheFiles) {
    Studio S(GetParam());
    S.Load({.Frames = 9000});
    for (const int Ms : {0, 1, 39, 40, 4000, 8990, 9060, 9100}) {
        S.Player->PlayAgain();
        S.Advance(Ms);
        S.Said();
        S.Player->StopPlay();
        EXPECT_THAT(S.Said(), ElementsAre("Stopped")) << Ms;
        EXPECT_EQ(S.Disk.OpenNow, 0);
        S.Advance(20'000);
        EXPECT_THAT(S.Said(), IsEmpty()) << Ms;
        ExpectHeard(S, Ms == 0 ? std::vector<int>{} : Frames(1, std::min(Ms, 9000)));
    }
}

TEST_P(Engine, AFileThatFailsEndsThePlayAndTheNextCommandWorks) {
    Studio S(GetParam());
    S.Load({.Frames = 9000});
    const auto Whole = S.Disk.Content["wave"];

    S.Disk.Content.erase("wave");
    S.Player->PlayAgain();
    EXPECT_EQ(S.Said(),
              std::vector<std::string>(GetParam() == EngineOrder::Dx9 ? 1 : 2, "Play Failed"));
    if (IsWaveOut()) {
        S.Player->PlayAtPosRev(8000);
        S.Player->PlayUTurn();
        EXPECT_THAT(S.Said(), ElementsAre("Play at.. failed", "Play at.. failed", "UTurn failed",
                                          "U-Turn Failed"));
    } else {  // no trap: the editor gets the failure itself
        EXPECT_THROW(S.Player->PlayAtPosRev(8000), RuntimeFailure);
        EXPECT_THROW(S.Player->PlayUTurn(), RuntimeFailure);
    }

    S.Disk.Content["wave"] = {Whole.begin(), Whole.begin() + 15000};  // short in segment 2
    S.PlayAll();
    S.Advance(20'000);
    EXPECT_THAT(S.Said(), ElementsAre("Playing", "Play Failed"));
    EXPECT_THAT(S.Journal.Lines.back(), ::testing::HasSubstr("wave"));
    S.Heard();
    S.Disk.Content["wave"] = Whole;
    S.PlayAll();
    ExpectHeard(S, Frames(1, 9000));
    S.Advance(1000);
    EXPECT_THAT(S.Said(), ElementsAre("Playing", "Play Done"));
}

TEST_P(Engine, SurvivesAnEditorThatCallsBackOrThrowsInsideAReport) {
    for (const std::string At : {"Playing", "Playing Loop", "Playing Loop 1", "Stopped"}) {
        Studio S(GetParam());
        S.Load({.Frames = 500});
        S.Player->LoopPlayON(At.starts_with("Playing Loop"));
        S.OnReport = [&](const std::string& Report) {
            if (Report == At && S.Player->EngineCode() != 0) S.TakeEngine(0);
        };
        S.Player->PlayAgain();
        S.Advance(2000);
        S.Player->StopPlay();
        EXPECT_EQ(S.Player->EngineCode(), 0) << At;
    }
    Studio S(GetParam());
    S.Load({.Frames = 500});
    int Passes = 0;
    S.OnReport = [&](const std::string& Report) {
        if (Report == "Play Done" && ++Passes < 3) S.Player->PlayAgainRev();
    };
    S.Player->PlayAgain();
    S.Advance(5000);
    EXPECT_EQ(Passes, 3);
    S.Heard();
    S.OnReport = [](const std::string&) { throw std::runtime_error("editor is gone"); };
    S.PlayAll();
    ExpectHeard(S, Frames(1, 500));
    EXPECT_THAT(S.Journal.Lines, ::testing::Contains(::testing::HasSubstr("editor is gone")));
}

}  // namespace
}  // namespace Tolvar::Testing
