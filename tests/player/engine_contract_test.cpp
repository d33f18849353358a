#include "tests/player/Studio.h"

namespace Tolvar::Testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// What all engines do alike, and where they differ.
class Engine : public ::testing::TestWithParam<EngineOrder> {
  protected:
    static bool IsWaveOut() { return GetParam() == EngineOrder::WaveOut; }
};

INSTANTIATE_TEST_SUITE_P(All, Engine,
                         ::testing::Values(EngineOrder::Dx9, EngineOrder::Dx7,
                                           EngineOrder::WaveOut),
                         [](const auto& Info) {
                             return std::string(std::array{"Dx9", "Dx7", "WaveOut"}[Info.index]);
                         });

TEST_P(Engine, NothingWakesUpWhenNothingPlaysExceptForThePollOfALoop) {
    Studio S(GetParam());
    S.Load({.Frames = 9000});
    EXPECT_LE(S.Wakings(), 1);
    S.Player->PlayAgain();
    if (GetParam() != EngineOrder::Dx7) {
        EXPECT_EQ(S.Wakings(), 2);
    }
    S.Player->PlayPause();
    S.Advance(1000);  // a poll sees that the buffer has stopped
    EXPECT_LE(S.Wakings(), 1);
    S.Player->PlayContinue();
    S.Player->StopPlay();
    S.Advance(1000);
    EXPECT_LE(S.Wakings(), 1);
    S.Player->LoopPlayON(true);
    S.Player->PlayAgain();
    S.Player->StopPlay();
    EXPECT_EQ(S.Wakings() > 1, GetParam() == EngineOrder::Dx9);
}

TEST_P(Engine, AMissingFileIsToldByEachCommandThatNeedsIt) {
    Studio S(GetParam());
    S.Load({.Frames = 9000});
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
}

TEST_P(Engine, SurvivesAnEditorThatCallsBackOrThrowsInsideAReport) {
    for (const std::string At :
         {"Playing", "Playing Loop", "Playing Loop 1", "Stopped", "Play Failed"}) {
        Studio S(GetParam());
        S.Load({.Frames = 9000});
        if (At == "Play Failed") S.Disk.Content["wave"].resize(15000);  // short in segment 2
        S.Player->LoopPlayON(At.starts_with("Playing Loop"));
        S.OnReport = [&](const std::string& Report) {
            if (Report == At && S.Player->EngineCode() != 0) S.TakeEngine(0);
        };
        S.Player->PlayAgain();
        S.Advance(12'000);
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
    EXPECT_EQ(S.Heard(), Frames(1, 500));
    EXPECT_THAT(S.Journal.Lines, ::testing::Contains(::testing::HasSubstr("editor is gone")));
}

TEST(Engines, AnswerTheirNumbersAndWhetherThereIsADevice) {
    const TestWave W{.Frames = 500};
    for (const auto& [Order, Result, Code] : {std::tuple(EngineOrder::Auto, 1, 3),
                                              {EngineOrder::Dx7, 1, 1},
                                              {EngineOrder::WaveOut, 2, 2}}) {
        Studio S(Order);
        EXPECT_EQ(S.TakeEngine(4711), Result);
        EXPECT_EQ(S.Player->EngineCode(), Code);
        S.TakeEngine(0);
        EXPECT_THAT(S.Said(), IsEmpty());
    }
    Studio Nine(EngineOrder::Auto, false), Seven(EngineOrder::Dx7, false),
        Two(EngineOrder::WaveOut, false);
    EXPECT_EQ(Nine.TakeEngine(), 1);
    Nine.PutWave(W);
    Nine.HandOver(W);
    EXPECT_EQ(Nine.Said().back(), "Done");
    Nine.Player->PlayAgain();
    Nine.Player->PlayUTurn();
    EXPECT_THAT(Nine.Said(), ElementsAre("Play Failed", "Play Failed", "U-Turn Failed"));
    EXPECT_EQ(Nine.Player->PlayRunningDx7State(), 0);
    EXPECT_EQ(Seven.TakeEngine(), -1);
    EXPECT_EQ(Seven.Player->EngineCode(), 0);
    EXPECT_THAT(Seven.Said(), ElementsAre("Stopped"));
    EXPECT_EQ(Two.TakeEngine(), 2);
    Two.PutWave(W);
    Two.HandOver(W);
    EXPECT_EQ(Two.Said().back(), "Sound Buffer Failed");
    Two.Player->PlayAgain();
    EXPECT_THAT(Two.Said(), ElementsAre("Play Failed", "Play Failed"));
    Two.Player->PlayContinue();
    ASSERT_TRUE(Two.PlayOut(1000));
    Two.Player->PlayUTurn();
    EXPECT_THAT(Two.Said(), ElementsAre("Play Done", "UTurn failed", "U-Turn Failed"));
}

TEST(DirectSound, PositionKeepsAPassWhoseSignalStillWaitsForTheThread) {
    for (const EngineOrder Order : {EngineOrder::Dx9, EngineOrder::Dx7}) {
        Studio S(Order);
        S.Load({.Frames = 100'000, .BlockFrames = 100'000});
        S.Player->PlayAgain();
        S.Advance(55'999);
        S.Home.Sleep(2);
        EXPECT_EQ(S.Position(), 56'001);
        S.Advance(8001);
        EXPECT_EQ(S.Position(), 64'002);
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
    S.PlayAll();
    EXPECT_EQ(S.Heard(), Frames(1, 9000));
}

}  // namespace
}  // namespace Tolvar::Testing
