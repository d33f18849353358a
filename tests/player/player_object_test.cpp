#include <functional>
#include <limits>

#include "tests/player/Studio.h"

namespace Tolvar::Testing {
namespace {

using ::testing::ElementsAre;
using Strings = std::vector<std::string>;

const TestWave Short{.Frames = 500};

TEST(PlayerObject, EveryCommandAnswersWithoutEngineAndWave) {
    using P = PlayDllClass;
    const std::string Off = "Driver is Off", NotReady = "Not ready|Do \"Play New\" first";
    const std::string Turn = "U-Turn Failed", At = "Play at.. failed";
    struct Command {
        std::function<void(P&)> Call;
        Strings NoEngineNoWave, NoEngine;
    };
    for (const auto& [Call, NoEngineNoWave, NoEngine] :
         std::vector<Command>{{&P::PlayAgain, {"Play Again - Failed", NotReady}, {Off}},
                              {&P::PlayAgainRev, {"Play Again Rev. - Failed", NotReady}, {Off}},
                              {&P::PlayUTurn, {Off, Turn}, {Off, Turn}},
                              {[](P& It) { It.PlayAtPos(3); }, {Off, At}, {Off, At}},
                              {[](P& It) { It.PlayAtPosRev(3); }, {Off, At}, {Off, At}},
                              {&P::StopPlay, {Off}, {Off}},
                              {&P::PlayContinue, {"Nothing to Continue"}, {Off}},
                              {&P::PlayPause, {Off}, {Off}},
                              {&P::UpdatePlayPosition, {}, {}},
                              {&P::ReleaseFiles, {Off}, {Off}}}) {
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
    S.Player->PlayTempoRev(2.5F);
    S.Player->PlayAgain();
    S.Advance(100);
    EXPECT_EQ(S.TakeEngine(5), 2);
    EXPECT_EQ(S.Player->PlayRunningDx7State(), 0);
    S.Advance(5000);
    EXPECT_EQ(S.Heard(), Frames(1, 100));
    S.Player->PlayAgain();  // the new engine has no device buffer until the next hand-over
    EXPECT_THAT(S.Said(), ElementsAre("Playing", "Play Failed", "Play Failed"));
    S.HandOver(Short);
    EXPECT_EQ(S.State.PlayTempoRev, 2.5F);
    S.Said();
    S.Player->PlayAgain();
    S.TakeEngine(0);
    S.Player->PlayAgain();
    EXPECT_THAT(S.Said(), ElementsAre("Playing", "Driver is Off"));
}

TEST(PlayerObject, HandOverRefusesWhatItCannotPlayAndKeepsTheOldWave) {
    Studio S;
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
}

TEST(PlayerObject, AbsurdRatesAndLengthsFailAndLeaveTheServerUsable) {
    constexpr auto Max = std::numeric_limits<std::int32_t>::max();
    Studio S;
    S.Load(Short);
    for (const std::int32_t Rate : {0, 50, 500'000, Max, -Max - 1}) {
        S.HandOver({.Frames = 500, .Rate = Rate});
        EXPECT_EQ(S.Said().back(), "Sound Buffer Failed") << Rate;
        S.Player->PlayAgainRev();
        EXPECT_EQ(S.Said().back(), "Play Failed") << Rate;
        S.HandOver(Short);
        S.Player->PlayAgain();
        EXPECT_EQ(S.Said().back(), "Playing") << Rate;
    }
    S.Player->WriteWaveMemo(16, 1, 1000, -5, Studio::WaveList(Short, 0), {});
    S.Said();
    S.Player->PlayAtPos(1);
    EXPECT_THAT(S.Said(), ElementsAre("Play at.. failed", "Play at.. failed"));
}

}  // namespace
}  // namespace Tolvar::Testing
