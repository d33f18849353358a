#include <dlfcn.h>
#include <stdlib.h>

#include <functional>

#include "tests/support/Studio.h"

namespace Tolvar::Testing {
namespace {

const TestWave Short{.Frames = 500};

INSTANTIATE_TEST_SUITE_P(Player, EachEngine, ValuesIn(AllEngines), EngineName);

TEST_P(EachEngine, NothingWakesUpWhenNothingPlaysExceptForThePollOfALoop) {
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

TEST_P(EachEngine, AThreadThatComesLateNeitherEndsAPlayNorKeepsItAlive) {
    for (const std::int64_t LateMs : {2, 300, 5000, 60'000}) {
        for (std::int64_t At = 19; At < 9500; At += 190) {
            SCOPED_TRACE(std::to_string(LateMs) + " ms late after " + std::to_string(At));
            Studio S(GetParam());
            S.Load({.Frames = 9000, .BlockFrames = 9000});
            S.Player->PlayAgain();
            S.Advance(At);
            S.Home.Sleep(LateMs);  // nothing is delivered meanwhile
            // Also over a pass whose signal still waits, and when nobody has asked before.
            const bool IsShort = LateMs <= 300 && At + LateMs < 9000;
            EXPECT_TRUE(!IsShort || S.Position() == At + LateMs);
            EXPECT_TRUE(S.PlayOut(40'000));
            S.Advance(10'000);
            EXPECT_EQ(S.Said(), (Strings{"Playing", "Play Done"}));
            EXPECT_TRUE(GetParam() != EngineOrder::WaveOut || S.Heard() == Frames(1, 9000));
        }
    }
}

TEST_P(EachEngine, AMissingFileIsToldByEachCommandThatNeedsIt) {
    Studio S(GetParam());
    S.Load({.Frames = 9000});
    S.Disk.Content.erase("wave");
    S.Player->PlayAgain();
    EXPECT_EQ(S.Said(), Strings(GetParam() == EngineOrder::Dx9 ? 1 : 2, "Play Failed"));
    if (GetParam() == EngineOrder::WaveOut) {
        S.Player->PlayAtPosRev(8000);
        S.Player->PlayUTurn();
        EXPECT_THAT(S.Said(), ElementsAre("Play at.. failed", "Play at.. failed", "UTurn failed",
                                          "U-Turn Failed"));
    } else {  // no trap: the editor gets the failure itself
        EXPECT_THROW(S.Player->PlayAtPosRev(8000), RuntimeFailure);
        EXPECT_THROW(S.Player->PlayUTurn(), RuntimeFailure);
    }
}

TEST_P(EachEngine, SurvivesAnEditorThatDropsItInsideAReport) {
    for (const std::string At :
         {"Playing", "Playing Loop", "Playing Loop 1", "Stopped", "Play Failed"}) {
        Studio S(GetParam());
        S.Load({.Frames = 9000});
        // Short in segment 2, or for waveOut, which plays out what it has, in segment 1.
        const std::size_t Left = GetParam() == EngineOrder::WaveOut ? 100 : 15'000;
        if (At == "Play Failed") S.Disk.Content["wave"].resize(Left);
        S.Player->LoopPlayON(At.starts_with("Playing Loop"));
        S.Inside(At, [&] { S.TakeEngine(0); });
        S.Player->PlayAgain();
        S.Advance(12'000);
        S.Player->StopPlay();
        EXPECT_EQ(S.Player->EngineCode(), 0) << At;
    }
}

TEST_P(EachEngine, SurvivesAnEditorThatCallsBackOrThrowsInsideAReport) {
    Studio S(GetParam());
    const TestWave W{.Frames = 9000};
    S.Load(W);
    S.Inside("Play Done", [&, Passes = 1]() mutable {
        if (++Passes <= 3) S.Player->PlayAgainRev();
    });
    S.Player->PlayAgain();
    S.Advance(40'000);
    EXPECT_EQ(S.Said(),
              (Strings{"Playing", "Play Done", "Playing", "Play Done", "Playing", "Play Done"}));
    S.Inside("Stopped", [&] { S.Player->PlayAgain(); });
    S.Player->PlayAgain();
    S.HandOver({.Frames = 500, .Rate = 400'000'000});  // no buffer can be made
    S.Advance(20'000);
    S.Inside("Stopped", [&] { S.TakeEngine(); });
    S.HandOver(W);
    S.Player->PlayAgain();
    S.HandOver(W);
    S.OnReport = {};
    S.HandOver(W);
    S.Heard();
    S.OnReport = [](const std::string&) { throw std::runtime_error("editor is gone"); };
    S.PlayAll();
    EXPECT_EQ(S.Heard(), Frames(1, 9000));
    EXPECT_THAT(S.Journal.Lines, Contains(HasSubstr("editor is gone")));
}

TEST(WaveOutEngine, PlaysOutWhatIsQueuedWhenAFillFails) {
    Studio S;
    S.Load({.Frames = 9000});
    S.Disk.Content["wave"].resize(10'000);  // short in segment 2
    S.PlayAll();
    EXPECT_EQ(S.Said(), (Strings{"Playing", "Play Done"}));
    EXPECT_EQ(S.Heard(), Frames(1, 4000));
    EXPECT_THAT(S.Journal.Lines, ElementsAre(HasSubstr("Segment not filled")));
}

// A library that tells no position and cannot be stopped.
TEST(DirectSound9Engine, LivesWithALibraryThatTellsNothing) {
    ::setenv("TOLVAR_SERVICE_LIBRARY", INCOMPLETE_SERVICE, 1);
    Studio S(EngineOrder::Dx9);
    S.TakeEngine();
    S.Player->PlayContinue();  // at a frequency of 0: there is no wave
    S.Advance(1000);
    S.Load({.Frames = 3000});
    S.PlayAll();
    EXPECT_EQ(S.NowMs(), 4002) << "the end waits for no position";
    EXPECT_EQ(S.Said(), (Strings{"Playing", "Play Done"}));
    S.Journal.Lines.clear();
    S.Advance(20'000);
    EXPECT_EQ(S.Journal.Lines.size(), 1U) << "each poll tells it to stop, and says so once";
    S.Load({.Frames = 9000});
    S.Player->PlayAgain();
    S.Home.Sleep(20'000);  // frozen, and the device with it
    S.Advance(5000);
    EXPECT_EQ(S.Said().back(), "Playing");
    S.Advance(4000);
    EXPECT_EQ(S.Said(), Strings{"Play Failed"}) << "a round of the buffer in which nothing is told";
    EXPECT_NE(::dlopen(INCOMPLETE_SERVICE, RTLD_NOW | RTLD_NOLOAD), nullptr) << "in use";
    ::unsetenv("TOLVAR_SERVICE_LIBRARY");
}

TEST(Engines, AnswerTheirNumbersAndWhetherThereIsADevice) {
    const std::string Writing = "Writing to Play Buffer", Fails = "Play Failed";
    const std::string Turn = "U-Turn Failed", Off = "Driver is Off";
    const Strings Nine{Writing, "Stopped", "Done", Fails, Fails, Turn};
    const Strings Seven{"Stopped", Writing, Off, Off, "Done", Off, Off, Turn};
    const Strings Two{Writing,        "Stopped", "Sound Buffer Failed", Fails, Fails,
                      "UTurn failed", Turn};
    for (const auto& [Order, Answer, Code, Deaf, Told] :
         {std::tuple(EngineOrder::Auto, 1, 3, 1, Nine),
          {EngineOrder::Dx7, 1, 1, -1, Seven},
          {EngineOrder::WaveOut, 2, 2, 2, Two}}) {
        Studio S(Order);
        EXPECT_EQ(S.TakeEngine(4711), Answer);
        EXPECT_EQ(S.Player->EngineCode(), Code);
        S.TakeEngine(0);
        EXPECT_EQ(S.Said(), Strings{});
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

TEST(PlayerObject, EveryCommandAnswersWithoutEngineAndWave) {
    using P = PlayDllClass;
    const std::string Off = "Driver is Off", NotReady = "Not ready|Do \"Play New\" first";
    const std::string Turn = "U-Turn Failed", At = "Play at.. failed";
    const std::vector<std::tuple<std::function<void(P&)>, Strings, Strings>> Commands{
        {&P::PlayAgain, {"Play Again - Failed", NotReady}, {Off}},
        {&P::PlayAgainRev, {"Play Again Rev. - Failed", NotReady}, {Off}},
        {&P::PlayUTurn, {Off, Turn}, {Off, Turn}},
        {[](P& It) { It.PlayAtPos(3); }, {Off, At}, {Off, At}},
        {[](P& It) { It.PlayAtPosRev(3); }, {Off, At}, {Off, At}},
        {&P::StopPlay, {Off}, {Off}},
        {&P::PlayContinue, {"Nothing to Continue"}, {Off}},
        {&P::PlayPause, {Off}, {Off}},
        {&P::UpdatePlayPosition, {}, {}},
        {&P::ReleaseFiles, {Off}, {Off}}};
    for (const auto& [Call, NoEngineNoWave, NoEngine] : Commands) {
        Studio S;
        Call(*S.Player);
        EXPECT_EQ(S.Said(), NoEngineNoWave);
        EXPECT_EQ(S.State.PlayDirection != 0, NoEngine == Strings({Off, At}));
        S.PutWave(Short);
        S.HandOver(Short);
        EXPECT_THAT(S.Said(), ElementsAre("Writing to Play Buffer", Off, Off, "Done"));
        Call(*S.Player);
        EXPECT_EQ(S.Said(), NoEngine);
    }
}

TEST(PlayerObject, SelectsDropsAndSelectsAgain) {
    Studio S;
    for (const auto& [Window, Answer] : {std::pair(0, 0), {-7, -7}, {4711, 2}})
        EXPECT_EQ(S.TakeEngine(Window), Answer);
    S.Load(Short);
    S.Player->PlayAgain();
    S.Advance(100);
    EXPECT_EQ(S.TakeEngine(5), 2);
    EXPECT_EQ(S.Player->PlayRunningDx7State(), 0);
    S.Advance(5000);
    EXPECT_EQ(S.Heard(), Frames(1, 100));
    S.Player->PlayAgain();  // the new engine has no device buffer until the next hand-over
    EXPECT_THAT(S.Said(), ElementsAre("Playing", "Play Failed", "Play Failed"));
}

TEST_P(EachEngine, RefusesAHandOverThatItCannotPlayAndKeepsTheOldWave) {
    if (GetParam() == EngineOrder::Dx9) return;  // it tells at the start of a play
    Studio S(GetParam());
    S.Load(Short);
    const auto List = Studio::WaveList(Short, 0);
    const auto* const Empty = "Zero size wave found|Play wave error";
    const auto* const Unknown = "Format not Known to write wave file|Play wave error";
    for (const auto& [Bits, Channels, Length, Cause] :
         {std::tuple(16, 1, 0, Empty), {24, 1, 500, Unknown}, {16, 3, 500, Unknown}}) {
        S.Player->WriteWaveMemo(Bits, Channels, 1000, Length, List, {});
        EXPECT_THAT(S.Said(), ElementsAre("Writing to Play Buffer", Cause, "Sound Buffer Failed"));
    }
    const std::vector<std::int32_t> Broken{3, 1, 0, 10, 5, 1, 1, 1, 16};
    S.Player->PlayAgain();
    S.Advance(100);
    EXPECT_THROW(S.Player->WriteWaveMemo(16, 1, 1000, 500, Broken, {}), RuntimeFailure);
    EXPECT_THROW(S.Player->WriteWaveMemo(16, 2, 1000, 500, List, Broken), RuntimeFailure);
    ASSERT_TRUE(S.PlayOut());
    EXPECT_EQ(S.Heard(), Frames(1, 500));
    S.Said();
    S.Player->WriteWaveMemo(16, 1, 1000, 500, List, Broken);  // a mono wave has no right side
    EXPECT_THAT(S.Said(), ElementsAre("Writing to Play Buffer", "Stopped", "Done"));

    for (const std::int32_t Rate : {0, 50, 500'000, INT32_MAX, INT32_MIN, Short.Rate}) {
        S.Player->StopPlay();
        S.DeviceFaults = {.FailAtCall = Rate == Short.Rate ? 1 : 0, .ForGood = true};
        S.HandOver({.Frames = 500, .Rate = Rate});
        EXPECT_EQ(S.Said().back(), "Sound Buffer Failed") << Rate;
        S.DeviceFaults = {};
        S.Player->PlayAgainRev();
        EXPECT_EQ(S.Said().back(), "Play Failed") << Rate << ": the wave before is gone";
        S.HandOver(Short);
        S.Player->PlayAgain();
        EXPECT_EQ(S.Said().back(), "Playing") << Rate;
    }
    if (GetParam() != EngineOrder::WaveOut) return;  // DirectSound plays silence
    S.Player->WriteWaveMemo(16, 1, 1000, -5, List, {});
    S.Said();
    S.Player->PlayAtPos(1);
    EXPECT_THAT(S.Said(), ElementsAre("Play at.. failed", "Play at.. failed"));
}

}  // namespace
}  // namespace Tolvar::Testing
