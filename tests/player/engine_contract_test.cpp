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
