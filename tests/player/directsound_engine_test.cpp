#include <cstdlib>

#include "tests/player/Studio.h"

namespace Tolvar::Testing {
namespace {

using ::testing::ElementsAre;

constexpr std::array Both{EngineOrder::Dx9, EngineOrder::Dx7};

/// Hands over Length frames of silence at 1000 Hz.
void LoadSilence(Studio& S, std::int32_t Length) {
    S.TakeEngine();
    const auto List = ListOf({{.Type = BlkSilent, .Len = Length}});
    S.Player->WriteWaveMemo(16, 1, 1000, Length, List, {});
}

TEST(DirectSound, EndsWhenTheCountdownHasCounted) {
    struct Case {
        float Tempo;
        std::int32_t Length;
        std::int64_t Dx7Ms, Dx9Ms;
    };
    // The DirectSound 9 engine sees the first crossing at its first poll, and counts from there.
    for (const Case& C : std::vector<Case>{{1, 500, 502, 602},
                                           {1, 3999, 4001, 4101},  // longer than its segment
                                           {1, 4000, 4002, 4002},
                                           {1, 9000, 9002, 9002},
                                           {2, 500, 252, 302},
                                           {2, 9000, 4502, 4502},
                                           {0.5, 500, 1003, 1203}}) {
        for (const EngineOrder Engine : Both) {
            Studio S(Engine);
            S.Load({.Frames = C.Length});
            S.Player->PlayTempoFor(C.Tempo);
            S.HandOver({.Frames = C.Length});  // takes the tempo for the poll's interval
            S.PlayAll();
            EXPECT_EQ(S.NowMs(), Engine == EngineOrder::Dx7 ? C.Dx7Ms : C.Dx9Ms) << C.Length;
            EXPECT_EQ(S.Said().back(), "Play Done");
        }
    }
}

TEST(DirectSound, TempoTakesEffectAtTheNextStartAndNotBefore) {
    for (const EngineOrder Engine : Both) {
        Studio S(Engine);
        S.Load({.Frames = 20'000});
        const auto PositionAfter = [&](std::int64_t Ms) {
            S.Advance(Ms);
            return S.Position();
        };
        S.Player->PlayTempoFor(1.5F);
        S.Player->PlayTempoRev(0.5F);
        S.Player->PlayAgain();
        EXPECT_EQ(PositionAfter(2000), 3000);
        S.Player->PlayTempoFor(3.0F);
        EXPECT_EQ(PositionAfter(2000), 6000);
        S.Player->PlayPause();
        S.Player->PlayContinue();
        EXPECT_EQ(PositionAfter(1000), 9000);
        S.Player->PlayUTurn();
        EXPECT_EQ(PositionAfter(1000), 8501);
        S.Player->PlayTempoFor(1.05946F);
        S.Player->PlayAtPos(1);
        EXPECT_EQ(PositionAfter(10'000), 10'590);
    }
}

TEST(DirectSound, PositionNeverLosesAPassHoweverItIsPolled) {
    constexpr std::int32_t TenMinutes = 600'000;
    for (const EngineOrder Engine : Both) {
        Studio S(Engine);
        LoadSilence(S, TenMinutes);
        for (const int Direction : {1, -1}) {
            S.Play(Direction);
            for (std::int32_t Ms = 1; Ms < TenMinutes; ++Ms) {
                S.Advance(1);
                const std::int32_t Place = Direction == 1 ? Ms : TenMinutes - Ms + 1;
                ASSERT_EQ(S.Player->PlayCurrentPosition(), Place);
            }
        }
        // Not asked for passes, asked just before and after a wrap, and asked while the wrap's own
        // signal still waits for the thread.
        S.Player->PlayAgain();
        const auto Start = S.NowMs();
        for (const std::int32_t Ms : {100, 30'100, 31'999, 32'000, 32'001, 55'999}) {
            S.Advance(Start + Ms - S.NowMs());
            EXPECT_EQ(S.Position(), Ms);
        }
        S.Home.Sleep(2);
        EXPECT_EQ(S.Position(), 56'001);
        S.Advance(8001);
        EXPECT_EQ(S.Position(), 64'002);
    }
}

TEST(DirectSound, PauseInTheCountdownGivesItItsFullIntervalAgain) {
    for (const EngineOrder Engine : Both) {
        Studio S(Engine);
        S.Load({.Frames = 500});
        S.Player->PlayAgain();
        S.Advance(300);
        S.Player->PlayPause();
        S.Advance(10'000);
        S.Player->PlayContinue();
        ASSERT_TRUE(S.PlayOut());
        EXPECT_EQ(S.NowMs(), 10'802);
        EXPECT_EQ(S.Heard(), Frames(1, 500));
    }
}

TEST(DirectSound, AStaleCountdownMarkNeverEndsALaterRun) {
    for (const EngineOrder Engine : Both) {
        Studio S(Engine);
        S.Load({.Frames = 9000});
        S.Player->PlayAgain();
        S.Advance(8500);  // the countdown is armed
        S.Player->PlayAtPos(1);
        S.Heard();
        S.Advance(500);
        S.Player->PlayPause();
        S.Player->PlayContinue();
        ASSERT_TRUE(S.PlayOut());
        EXPECT_EQ(S.Heard(), Frames(1, 9000));
    }
}

TEST(DirectSound, SleepsWhenStoppedExceptForThePollOfALoop) {
    for (const EngineOrder Engine : Both) {
        Studio S(Engine);
        S.Load({.Frames = 9000});
        EXPECT_LE(S.Wakings(), 1);
        S.Player->PlayAgain();
        S.Advance(1000);
        S.Player->StopPlay();
        S.Advance(1000);  // the poll sees that the buffer has stopped
        EXPECT_LE(S.Wakings(), 1);
        S.Player->LoopPlayON(true);
        S.Player->PlayAgain();
        S.Player->StopPlay();
        EXPECT_EQ(S.Wakings() > 1, Engine == EngineOrder::Dx9);
    }
}

TEST(DirectSound, EachEngineAnswersItsNumberAndWhetherItHasADevice) {
    for (const auto& [Order, Code] : {std::pair(EngineOrder::Auto, 3), {EngineOrder::Dx7, 1}}) {
        Studio S(Order);
        EXPECT_EQ(S.TakeEngine(4711), 1);
        EXPECT_EQ(S.Player->EngineCode(), Code);
        S.TakeEngine(0);
        EXPECT_THAT(S.Said(), ::testing::IsEmpty());
    }
    Studio Nine(EngineOrder::Auto, false);
    EXPECT_EQ(Nine.TakeEngine(), 1);
    LoadSilence(Nine, 500);
    EXPECT_EQ(Nine.Said().back(), "Done");
    Nine.Player->PlayAgain();
    Nine.Player->PlayUTurn();
    EXPECT_THAT(Nine.Said(), ElementsAre("Play Failed", "Play Failed", "U-Turn Failed"));
    EXPECT_EQ(Nine.Player->PlayRunningDx7State(), 0);
    Studio Seven(EngineOrder::Dx7, false);
    EXPECT_EQ(Seven.TakeEngine(), -1);
    EXPECT_EQ(Seven.Player->EngineCode(), 0);
    EXPECT_THAT(Seven.Said(), ElementsAre("Stopped"));
}

TEST(DirectSound, AMissingServiceLibraryFailsTheCallsThatNeedIt) {
    ::setenv("TOLVAR_SERVICE_LIBRARY", "/nowhere/libSondervalService2.so", 1);
    Studio S(EngineOrder::Dx9);
    EXPECT_EQ(S.TakeEngine(), 1);
    const TestWave W{.Frames = 500};
    S.PutWave(W);
    S.HandOver(W);
    EXPECT_THAT(S.Said(), ElementsAre("Writing to Play Buffer", "Stopped", "Play Buffer - Failed",
                                      "Sound Buffer Failed"));
    S.Player->PlayAgain();
    EXPECT_THAT(S.Said(), ElementsAre("Play Failed"));
    EXPECT_THROW(S.Player->PlayUTurn(), RuntimeFailure);
    EXPECT_THROW(S.Player->PlayCurrentPosition(), RuntimeFailure);
    S.Player->PlayContinue();
    EXPECT_THAT(S.Said(), ElementsAre("Play Continue error"));
    ::unsetenv("TOLVAR_SERVICE_LIBRARY");

    S.HandOver(W);
    S.PlayAll();
    EXPECT_EQ(S.Heard(), Frames(1, 500));
    EXPECT_EQ(S.Said().back(), "Play Done");
}

TEST(DirectSound, AContinueAfterTheEndEndsAgain) {
    for (const EngineOrder Engine : Both) {
        Studio S(Engine);
        S.Load({.Frames = 9000});
        S.Player->PlayAgain();
        ASSERT_TRUE(S.PlayOut());
        S.Player->PlayContinue();
        EXPECT_TRUE(S.PlayOut(20'000));
        EXPECT_THAT(S.Said(), ElementsAre("Playing", "Play Done", "Play Done"));
    }
}

TEST(DirectSound, TheEditorMayDropTheEngineInsideTheReportOfAFailedRefill) {
    for (const EngineOrder Engine : Both) {
        Studio S(Engine);
        S.Load({.Frames = 9000});
        S.Disk.Content["wave"].resize(15000);
        S.OnReport = [&](const std::string& Report) {
            if (Report == "Play Failed") S.TakeEngine(0);
        };
        S.Player->PlayAgain();
        S.Advance(10'000);
        EXPECT_EQ(S.Player->EngineCode(), 0);
    }
}

}  // namespace
}  // namespace Tolvar::Testing
