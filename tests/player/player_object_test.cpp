#include <cmath>
#include <functional>
#include <limits>

#include "tests/player/Studio.h"

namespace Tolvar::Testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Texts = std::vector<std::string>;

const TestWave Short{.Frames = 500};

struct Command {
    const char* Name;
    std::function<void(PlayDllClass&)> Call;
    Texts NoEngineNoWave;
    Texts NoEngine;
};

const std::vector<Command>& Commands() {
    const Texts Off{"Driver is Off"};
    const Texts NotReady{"Not ready|Do \"Play New\" first"};
    static const std::vector<Command> All{
        {"PlayAgain", [](auto& P) { P.PlayAgain(); }, {"Play Again - Failed", NotReady[0]}, Off},
        {"PlayAgainRev",
         [](auto& P) { P.PlayAgainRev(); },
         {"Play Again Rev. - Failed", NotReady[0]},
         Off},
        {"PlayUTurn",
         [](auto& P) { P.PlayUTurn(); },
         {"Driver is Off", "U-Turn Failed"},
         {"Driver is Off", "U-Turn Failed"}},
        {"PlayAtPos",
         [](auto& P) { P.PlayAtPos(3); },
         {"Driver is Off", "Play at.. failed"},
         {"Driver is Off", "Play at.. failed"}},
        {"PlayAtPosRev",
         [](auto& P) { P.PlayAtPosRev(3); },
         {"Driver is Off", "Play at.. failed"},
         {"Driver is Off", "Play at.. failed"}},
        {"StopPlay", [](auto& P) { P.StopPlay(); }, Off, Off},
        {"PlayContinue", [](auto& P) { P.PlayContinue(); }, {"Nothing to Continue"}, Off},
        {"PlayPause", [](auto& P) { P.PlayPause(); }, Off, Off},
        {"UpdatePlayPosition", [](auto& P) { P.UpdatePlayPosition(); }, {}, {}},
        {"ReleaseFiles", [](auto& P) { P.ReleaseFiles(); }, Off, Off},
    };
    return All;
}

TEST(PlayerObject, EveryCommandAnswersWithoutEngineAndWave) {
    for (const Command& C : Commands()) {
        Studio S;
        C.Call(*S.Player);
        EXPECT_EQ(S.Said(), C.NoEngineNoWave) << C.Name;
        EXPECT_EQ(S.Player->PlayCurrentPosition(), 0);
        const bool SetsDirection = std::string_view(C.Name).starts_with("PlayAtPos");
        EXPECT_EQ(S.State.PlayDirection == 0, !SetsDirection) << C.Name;

        S.PutWave(Short);
        S.HandOver(Short);
        EXPECT_EQ(S.Said(),
                  (Texts{"Writing to Play Buffer", "Driver is Off", "Driver is Off", "Done"}));
        C.Call(*S.Player);
        EXPECT_EQ(S.Said(), C.NoEngine) << C.Name;
    }
}

TEST(PlayerObject, SelectsDropsAndSelectsAgain) {
    Studio S;
    EXPECT_EQ(S.TakeEngine(0), 0);
    EXPECT_EQ(S.TakeEngine(-7), -7);
    EXPECT_EQ(S.Player->EngineCode(), 0);
    EXPECT_EQ(S.TakeEngine(4711), 2);
    EXPECT_EQ(S.Player->EngineCode(), 2);
    S.Load(Short);
    S.Player->PlayAgain();
    S.Advance(100);
    EXPECT_EQ(S.TakeEngine(5), 2);
    EXPECT_EQ(S.Player->PlayRunningDx7State(), 0);
    EXPECT_THAT(S.Said(), ElementsAre("Playing"));
    S.Advance(5000);
    EXPECT_EQ(S.Heard(), Frames(1, 100));
    EXPECT_THAT(S.Said(), IsEmpty());

    // The new engine has no device buffer until the next hand-over.
    S.Player->PlayAgain();
    EXPECT_THAT(S.Said(), ElementsAre("Play Failed", "Play Failed"));
    S.HandOver(Short);
    S.Said();
    S.Player->PlayAgain();
    EXPECT_THAT(S.Said(), ElementsAre("Playing"));

    EXPECT_EQ(S.TakeEngine(0), 0);
    EXPECT_EQ(S.Player->EngineCode(), 0);
    S.Player->PlayAgain();
    EXPECT_THAT(S.Said(), ElementsAre("Driver is Off"));
}

TEST(PlayerObject, HandOverRefusesWhatItCannotPlayAndKeepsTheOldWave) {
    Studio S;
    S.Load(Short);
    const auto List = Studio::WaveList(Short, 0);
    const std::string Known = "Format not Known to write wave file|Play wave error";
    const auto Hand = [&](int Bits, int Channels, int Length) {
        S.Player->WriteWaveMemo(Bits, Channels, 1000, Length, List, {});
    };
    Hand(16, 1, 0);
    EXPECT_THAT(S.Said(),
                ElementsAre("Writing to Play Buffer", "Zero size wave found|Play wave error",
                            "Sound Buffer Failed"));
    for (const auto& [Bits, Channels] : {std::pair{24, 1}, {0, 1}, {16, 3}, {16, 0}, {-8, -1}}) {
        Hand(Bits, Channels, 500);
        EXPECT_THAT(S.Said(), ElementsAre("Writing to Play Buffer", Known, "Sound Buffer Failed"));
    }
    const std::vector<std::int32_t> Broken{3, 1, 0, 10, 5, 1, 1, 1, 16};
    S.Player->PlayAgain();
    S.Advance(100);
    EXPECT_THROW(S.Player->WriteWaveMemo(16, 1, 1000, 500, Broken, {}), RuntimeFailure);
    EXPECT_THROW(S.Player->WriteWaveMemo(16, 2, 1000, 500, List, Broken), RuntimeFailure);
    EXPECT_EQ(S.State.WaveNos, 500);
    S.PlayOut();
    EXPECT_EQ(S.Heard(), Frames(1, 500));

    // A mono wave's right list is never looked at.
    S.Said();
    S.Player->WriteWaveMemo(16, 1, 1000, 500, List, Broken);
    EXPECT_THAT(S.Said(), ElementsAre("Writing to Play Buffer", "Stopped", "Done"));
}

TEST(PlayerObject, HandOverReplacesTheWaveInMidPlay) {
    Studio S;
    S.Load(Short);
    S.Player->PlayAgainRev();
    S.Advance(100);
    S.Said();
    S.HandOver({.Frames = 300});
    EXPECT_THAT(S.Said(), ElementsAre("Writing to Play Buffer", "Stopped", "Done"));
    EXPECT_EQ(S.State.PlayDirection, 1);
    EXPECT_EQ(S.State.FillNextPos, 1);
    EXPECT_EQ(S.Player->PlayRunningDx7State(), 0);
    EXPECT_EQ(S.State.BlkCarrR->WaveINos(), 0);
    S.Heard();
    S.Player->PlayAgain();
    S.PlayOut();
    EXPECT_EQ(S.Heard(), Frames(1, 300));

    S.Player->ReleaseFiles();
    S.Player->ReleaseFiles();
    EXPECT_EQ(S.State.WaveNos, 0);
    EXPECT_EQ(S.Disk.OpenNow, 0);
    EXPECT_EQ(S.Store.OrgFile(1).OrgFileName, "");
}

TEST(PlayerObject, AbsurdRatesAndLengthsFailAndLeaveTheServerUsable) {
    constexpr auto Max = std::numeric_limits<std::int32_t>::max();
    for (const std::int32_t Rate : {0, -1, -44100, 50, 500'000, 10'000'000, Max, -Max - 1}) {
        Studio S;
        S.Load(Short);
        S.HandOver({.Frames = 500, .Rate = Rate});
        EXPECT_EQ(S.Said().back(), "Sound Buffer Failed") << Rate;
        for (const auto& Play : {&PlayDllClass::PlayAgain, &PlayDllClass::PlayAgainRev}) {
            ((*S.Player).*Play)();
            EXPECT_EQ(S.Said().back(), "Play Failed") << Rate;
        }
        EXPECT_EQ(S.Player->PlayRunningDx7State(), 0);
        S.HandOver(Short);
        S.Player->PlayAgain();
        EXPECT_EQ(S.Said().back(), "Playing") << Rate;
    }
    Studio S;
    S.Load(Short);
    S.Player->WriteWaveMemo(16, 1, 1000, -5, Studio::WaveList(Short, 0), {});
    S.Said();
    S.Player->PlayAgain();
    EXPECT_EQ(S.Said().back(), "Not ready|Do \"Play New\" first");
    S.Player->PlayAtPos(1);
    EXPECT_THAT(S.Said(), ElementsAre("Play at.. failed", "Play at.. failed"));
}

TEST(PlayerObject, TempoIsClampedToTheLoadedWave) {
    Studio S;
    S.Player->PlayTempoFor(-3.5F);
    EXPECT_FLOAT_EQ(S.State.PlayTempoFor, -3.5F);
    S.Load({.Frames = 500, .Rate = 40000});
    const std::vector<std::pair<float, float>> Cases{
        {0.0F, 100.0F / 40000}, {-1.0F, 100.0F / 40000}, {1.5F, 1.5F}, {2.5F, 2.5F},
        {2.6F, 2.5F},           {INFINITY, 2.5F},
    };
    for (const auto& [Asked, Kept] : Cases) {
        S.Player->PlayTempoFor(Asked);
        S.Player->PlayTempoRev(Asked);
        EXPECT_EQ(S.State.PlayTempoFor, Kept) << Asked;
        EXPECT_EQ(S.State.PlayTempoRev, Kept) << Asked;
    }
    EXPECT_THROW(S.Player->PlayTempoRev(NAN), RuntimeFailure);
    EXPECT_EQ(S.State.PlayTempoRev, 2.5F);
    S.HandOver({.Frames = 500, .Rate = 1000});
    EXPECT_EQ(S.State.PlayTempoFor, 2.5F);
}

TEST(PlayerObject, ReleaseReportsWaitsAndLeavesNothing) {
    Studio S;
    S.Load(Short);
    S.Player->PlayAgain();
    S.Advance(100);
    S.Said();
    S.Player->Release();
    EXPECT_THAT(S.Said(), ElementsAre("Driver is Off"));
    EXPECT_EQ(S.NowMs(), 400);
    EXPECT_EQ(S.Heard(), Frames(1, 100));
    S.Player.reset();
    EXPECT_EQ(S.NowMs(), 400);
    EXPECT_EQ(S.Disk.OpenNow, 0);
    EXPECT_EQ(S.Store.OrgFile(1).OrgUseCnt, 0);
}

TEST(PlayerObject, SurvivesAnEditorThatCallsBackOrThrowsInsideAReport) {
    for (const std::string At : {"Playing", "Playing Loop", "Playing Loop 1", "Stopped"}) {
        Studio S;
        S.Load(Short);
        S.Player->LoopPlayON(At.starts_with("Playing Loop"));
        S.OnReport = [&](const std::string& Report) {
            if (Report == At) S.TakeEngine(0);
        };
        S.Player->PlayAgain();
        S.Advance(2000);
        S.Player->StopPlay();
        EXPECT_EQ(S.Player->EngineCode(), 0) << At;
    }
    Studio S;
    S.Load(Short);
    int Passes = 0;
    S.OnReport = [&](const std::string& Report) {
        if (Report == "Play Done" && ++Passes < 3) S.Player->PlayAgainRev();
    };
    S.Player->PlayAgain();
    S.Advance(5000);
    EXPECT_EQ(Passes, 3);
    EXPECT_EQ(S.Heard().size(), 1500U);

    S.OnReport = [](const std::string&) { throw std::runtime_error("editor is gone"); };
    S.Player->PlayAgain();
    S.PlayOut();
    EXPECT_EQ(S.Heard(), Frames(1, 500));
    EXPECT_THAT(S.Journal.Lines, ::testing::Contains(::testing::HasSubstr("editor is gone")));
}

}  // namespace
}  // namespace Tolvar::Testing
