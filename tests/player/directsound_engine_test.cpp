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

TEST(DirectSound, PositionKeepsAPassWhoseSignalStillWaitsForTheThread) {
    for (const EngineOrder Engine : Both) {
        Studio S(Engine);
        LoadSilence(S, 100'000);
        S.Player->PlayAgain();
        S.Advance(55'999);
        S.Home.Sleep(2);
        EXPECT_EQ(S.Position(), 56'001);
        S.Advance(8001);
        EXPECT_EQ(S.Position(), 64'002);
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
