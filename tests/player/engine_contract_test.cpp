#include "tests/player/Studio.h"

namespace Tolvar::Testing {
namespace {

using ::testing::ElementsAre;
using Texts = std::vector<std::string>;

/// What all engines do alike, and where they differ.
class Engine : public ::testing::TestWithParam<EngineOrder> {
  protected:
    static bool IsWaveOut() { return GetParam() == EngineOrder::WaveOut; }
};

INSTANTIATE_TEST_SUITE_P(All, Engine, ::testing::ValuesIn(AllEngines), EngineName);

TEST_P(Engine, NothingWakesUpWhenNothingPlaysExceptForThePollOfALoop) {
    Studio S(GetParam());
    S.Load({.Frames = 9000});
    EXPECT_LE(S.Wakings(), 1);
    S.Player->PlayAgain();
    EXPECT_TRUE(GetParam() == EngineOrder::Dx7 || S.Wakings() == 2);
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

TEST_P(Engine, AThreadThatComesLateNeitherEndsAPlayNorKeepsItAlive) {
    for (const std::int64_t LateMs : {2, 300, 5000, 60'000}) {
        for (std::int64_t At = 19; At < 9500; At += 190) {
            SCOPED_TRACE(std::to_string(LateMs) + " ms late after " + std::to_string(At));
            Studio S(GetParam());
            S.Load({.Frames = 9000, .BlockFrames = 9000});
            S.Player->PlayAgain();
            S.Advance(At);
            // Also over a pass whose signal still waits.
            const bool IsShort = LateMs <= 300 && At + LateMs < 9000;
            EXPECT_TRUE(!IsShort || LateMs == 2 || S.Position() == At);
            S.Home.Sleep(LateMs);  // nothing is delivered meanwhile
            EXPECT_TRUE(!IsShort || S.Position() == At + LateMs);
            EXPECT_TRUE(S.PlayOut(40'000));
            S.Advance(10'000);
            EXPECT_EQ(S.Said(), (Texts{"Playing", "Play Done"}));
            EXPECT_TRUE(!IsWaveOut() || S.Heard() == Frames(1, 9000));
        }
    }
}

TEST_P(Engine, AMissingFileIsToldByEachCommandThatNeedsIt) {
    Studio S(GetParam());
    S.Load({.Frames = 9000});
    S.Disk.Content.erase("wave");
    S.Player->PlayAgain();
    EXPECT_EQ(S.Said(), Texts(GetParam() == EngineOrder::Dx9 ? 1 : 2, "Play Failed"));
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

TEST_P(Engine, SurvivesAnEditorThatDropsItInsideAReport) {
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
}

TEST_P(Engine, SurvivesAnEditorThatCallsBackOrThrowsInsideAReport) {
    Studio S(GetParam());
    const TestWave W{.Frames = 9000};
    S.Load(W);
    const auto Inside = [&](const std::string& At, const std::function<void()>& Do) {
        S.OnReport = [At, Do](const std::string& Report) {
            if (Report == At) Do();
        };
    };
    Inside("Play Done", [&, Passes = 1]() mutable {
        if (++Passes <= 3) S.Player->PlayAgainRev();
    });
    S.Player->PlayAgain();
    S.Advance(40'000);
    EXPECT_EQ(S.Said(),
              (Texts{"Playing", "Play Done", "Playing", "Play Done", "Playing", "Play Done"}));
    Inside("Stopped", [&] { S.Player->PlayAgain(); });
    S.Player->PlayAgain();
    S.HandOver({.Frames = 500, .Rate = 400'000'000});  // no buffer can be made
    S.Advance(20'000);
    Inside("Stopped", [&] { S.TakeEngine(); });
    S.HandOver(W);
    S.Player->PlayAgain();
    S.HandOver(W);
    S.OnReport = {};
    S.HandOver(W);
    S.Heard();
    Inside("Playing", [] { throw std::runtime_error("editor is gone"); });
    S.PlayAll();
    EXPECT_EQ(S.Heard(), Frames(1, 9000));
    EXPECT_THAT(S.Journal.Lines, ::testing::Contains(::testing::HasSubstr("editor is gone")));
}

TEST(Engines, AnswerTheirNumbersAndWhetherThereIsADevice) {
    const std::string Writing = "Writing to Play Buffer", Fails = "Play Failed";
    const std::string Turn = "U-Turn Failed", Off = "Driver is Off";
    for (const auto& [Order, Answer, Code, Deaf, Told] :
         {std::tuple(EngineOrder::Auto, 1, 3, 1,
                     Texts{Writing, "Stopped", "Done", Fails, Fails, Turn}),
          {EngineOrder::Dx7, 1, 1, -1, {"Stopped", Writing, Off, Off, "Done", Off, Off, Turn}},
          {EngineOrder::WaveOut,
           2,
           2,
           2,
           {Writing, "Stopped", "Sound Buffer Failed", Fails, Fails, "UTurn failed", Turn}}}) {
        Studio S(Order);
        EXPECT_EQ(S.TakeEngine(4711), Answer);
        EXPECT_EQ(S.Player->EngineCode(), Code);
        S.TakeEngine(0);
        EXPECT_EQ(S.Said(), Texts{});
        Studio Without(Order, nullptr);
        EXPECT_EQ(Without.TakeEngine(), Deaf);
        EXPECT_EQ(Without.Player->EngineCode(), Deaf == -1 ? 0 : Code);
        Without.PutWave({.Frames = 500});
        Without.HandOver({.Frames = 500});
        Without.Player->PlayAgain();
        Without.Player->PlayUTurn();
        EXPECT_EQ(Without.State.PlayRunningState, 0);
        EXPECT_EQ(Without.Said(), Told);
    }
}

}  // namespace
}  // namespace Tolvar::Testing
