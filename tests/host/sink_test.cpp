#include <signal.h>

#include "tests/host/Rig.h"

namespace Tolvar::Testing {
namespace {

using testing::Each;
using testing::ElementsAre;

double SecondsOf(const std::function<void()>& Work) {
    const auto Began = std::chrono::steady_clock::now();
    Work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - Began).count();
}

TEST(Sink, ThatNeverAnswersIsDroppedAfterTwoSecondsAndHeardAgainWhenItDoes) {
    SinkEditor Editor;
    Message Kept;
    Editor.Sink = [&](Message Report) { Kept = std::move(Report); };
    const double First = SecondsOf([&] { EXPECT_EQ(Editor.Do("StopPlay"), ""); });
    EXPECT_GE(First, 1.9);
    EXPECT_LT(First, 4);
    EXPECT_LT(SecondsOf([&] { EXPECT_EQ(Editor.Do("PlayUTurn"), ""); }), 1);
    EXPECT_THAT(Editor.Said(), ElementsAre("Driver is Off"));

    Editor.Sink = &SinkEditor::Accept;
    SinkEditor::Accept(std::move(Kept));
    EXPECT_EQ(Editor.Do("PlayUTurn"), "");
    EXPECT_THAT(Editor.Said(), ElementsAre("Driver is Off", "U-Turn Failed"));
}

TEST(Sink, ThatCallsBackIsServedInsideTheReportUntilItIsTooDeep) {
    SinkEditor Editor;
    std::vector<std::string> Results;
    int Nested = 0;
    Editor.Sink = [&](Message Report) {
        if (++Nested <= 20) Results.push_back(Editor.Do("StopPlay"));
        SinkEditor::Accept(std::move(Report));
    };
    EXPECT_EQ(Editor.Do("StopPlay"), "");
    EXPECT_THAT(Editor.Said(), Each("Driver is Off"));
    ASSERT_EQ(Results.size(), 8U);
    EXPECT_EQ(Results.front(), Wire::LimitsExceeded);  // the innermost returns first
    Results.erase(Results.begin());
    EXPECT_THAT(Results, Each(""));
    Editor.Sink = &SinkEditor::Accept;
    EXPECT_EQ(Editor.Do("StopPlay"), "");
}

TEST(Sink, CallsThatAreSentWithoutWaitingKeepTheirOrder) {
    SinkEditor Editor;
    std::vector<std::uint64_t> Asked;
    kill(Editor.Process->Id(), SIGSTOP);  // all of them are there before the first report goes out
    for (int I = 0; I < 40; ++I) {
        const char* const Member = I % 2 == 0 ? "PlayUTurn" : "PlayAgain";
        Asked.push_back(Editor.Link.Send(Editor.New(Wire::PlayerInterface, Member, "").get()));
    }
    kill(Editor.Process->Id(), SIGCONT);
    for (const std::uint64_t Cookie : Asked)
        ASSERT_EQ(Editor.Await(Cookie), "");
    std::vector<std::string> Expected;
    for (int I = 0; I < 20; ++I) {
        for (const char* Text :
             {"Driver is Off", "U-Turn Failed", "Play Again - Failed", "Do \"Play New\" first"})
            Expected.emplace_back(Text);
    }
    EXPECT_EQ(Editor.Said(), Expected);
}

TEST(Sink, MayLetGoFromInsideAReport) {
    SinkEditor Editor;
    Editor.Sink = [&](Message Report) {
        if (Editor.Reports.size() == 1) {
            EXPECT_EQ(Editor.Ask(Wire::HostingInterface, "Release", ""), "");
            EXPECT_EQ(Editor.Do("PlayAgain"), Wire::Failed);
        }
        SinkEditor::Accept(std::move(Report));
    };
    EXPECT_EQ(Editor.Do("PlayUTurn"), "");
    EXPECT_EQ(Editor.Await(0), "closed");
    EXPECT_THAT(Editor.Said(), ElementsAre("Driver is Off", "U-Turn Failed", "Driver is Off"));
    EXPECT_EQ(Editor.Process->Await(), 0);
}

}  // namespace
}  // namespace Tolvar::Testing
