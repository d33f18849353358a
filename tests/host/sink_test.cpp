#include <signal.h>

#include "tests/host/Rig.h"

namespace Tolvar::Testing {
namespace {

TEST(Sink, ThatNeverAnswersIsDroppedAfterTwoSecondsAndHeardAgainWhenItDoesOrRefuses) {
    SinkEditor Editor;
    Message Kept;
    Editor.Sink = [&](Message Report) { Kept = std::move(Report); };
    const std::int64_t BeganNs = BusLink::NowNs();
    EXPECT_EQ(Editor.Do("StopPlay"), "");
    EXPECT_GE(BusLink::NowNs() - BeganNs, 1'900'000'000);
    EXPECT_EQ(Editor.Do("PlayUTurn"), "");
    EXPECT_LT(BusLink::NowNs() - BeganNs, 4'000'000'000) << "it was waited for again";
    EXPECT_THAT(Editor.Said(), ElementsAre("Driver is Off"));

    Editor.Sink = &SinkEditor::Accept;
    SinkEditor::Accept(std::move(Kept));
    EXPECT_EQ(Editor.Do("PlayUTurn"), "");
    EXPECT_THAT(Editor.Said(), ElementsAre("Driver is Off", "U-Turn Failed"));

    Editor.Sink = [](const Message& Report) { Refuse(Report.get(), Wire::Failed, "no"); };
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
    // The innermost returns first.
    EXPECT_THAT(Results, ElementsAre(Wire::LimitsExceeded, "", "", "", "", "", "", ""));
    Editor.Sink = &SinkEditor::Accept;
    EXPECT_EQ(Editor.Do("StopPlay"), "");
}

TEST(Sink, CallsThatAreSentWithoutWaitingKeepTheirOrder) {
    SinkEditor Editor;
    std::vector<std::string> Expected;
    std::uint64_t Last = 0;
    kill(Editor.Process->Id(), SIGSTOP);  // all of them are there before the first report goes out
    for (int I = 0; I < 20; ++I) {
        for (const char* const Member : {"PlayUTurn", "PlayAgain"})
            Last = Editor.Link.Send(Editor.New(Wire::PlayerInterface, Member, "").get());
        Expected.insert(Expected.end(), {"Driver is Off", "U-Turn Failed", "Play Again - Failed",
                                         "Do \"Play New\" first"});
    }
    kill(Editor.Process->Id(), SIGCONT);
    EXPECT_EQ(Editor.Await(Last), "");
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
