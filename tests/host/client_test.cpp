#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <filesystem>

#include "host/client/PlayDllClient.h"
#include "tests/host/Rig.h"
#include "tests/support/BlockLists.h"
#include "tests/support/Fakes.h"
#include "tests/support/TempFolder.h"

namespace Tolvar::Testing {
namespace {

PlayDllClient StartQuiet(int LimitMs = 30000, const std::string& Device = "null") {
    return PlayDllClient::Start(
        {HOST_PROGRAM, {"--engine", "waveout", "--log", "/dev/null", "--device", Device}, LimitMs});
}

bool DispatchUntil(PlayDllClient& Client, const std::function<bool()>& Holds) {
    return Soon([&] { return Client.Dispatch(), Holds(); });
}

/// A wave of 1000 Hz, a millisecond to a frame, playing; silence if there is no name.
void Play(PlayDllClient& Client, std::int32_t Frames, const std::string& Work = "") {
    std::int32_t Window = 1;
    Client.DxObj(Window);
    Client.WriteWaveMemo(16, 1, 1000, Frames, ListOf({{Work.empty() ? 5 : 3, Frames, 1, Work}}),
                         {});
    Client.PlayAgain();
}

TEST(Client, HearsReportsDuringCallsAndBetweenAndItsSinkMayCallBackAndThrowButNotLetGo) {
    std::vector<std::string> Order;
    PlayDllClient Client = StartQuiet();
    Client.OnMsgBoxOb([&](const std::string&, const std::string& Ttl) {
        Order.push_back(Ttl);
        if (Ttl == "Done") Client.StopPlay();  // which reports, too
        if (Ttl != "Playing") return;
        EXPECT_EQ(Client.PlayRunningDx7State(), 1);
        EXPECT_THAT(FailureOf([&] { Client.Release(); }), HasSubstr("not a moment to let go"));
        throw std::runtime_error("the editor's own trouble");
    });
    Play(Client, 30);
    Order.emplace_back("returned");
    EXPECT_TRUE(DispatchUntil(Client, [&] { return Order.back() == "Play Done"; }));
    EXPECT_THAT(Order, ElementsAre("Writing to Play Buffer", "Stopped", "Done", "Stopped",
                                   "Playing", "returned", "Play Done"));
    const auto BeganNs = BusLink::NowNs();
    EXPECT_EQ(Client.Release(), 0);
    EXPECT_GE(BusLink::NowNs() - BeganNs, 300'000'000);
    EXPECT_EQ(Client.Release(), 0);
    EXPECT_EQ(Order.back(), "Driver is Off");
}

TEST(Client, RefusesWhatNoMessageTakesBeforeItIsSent) {
    PlayDllClient Client = StartQuiet();
    std::vector<std::int32_t> List((std::size_t{16} << 20U) + 1);
    List[0] = 1;
    const auto HandOver = [&] { Client.WriteWaveMemo(16, 1, 1000, 5, List, {}); };
    EXPECT_THAT(FailureOf(HandOver), HasSubstr("16777217"));
    EXPECT_THAT(FailureOf([&] { Client.AppTmpDir("a\xFF"); }), HasSubstr("AppTmpDir"));
    EXPECT_FALSE(Client.Gone());
    List.pop_back();  // the largest arrives, and it is the server that finds it to be wrong
    EXPECT_THAT(FailureOf(HandOver), HasSubstr("Block list left"));
}

TEST(Client, OfAServerThatDiesFailsAtOnceAndANewOneTakesTheWave) {
    std::string Why;
    PlayDllClient Client = StartQuiet();
    Client.OnServerGone([&](const std::string& Text) { Why = Text; });
    Play(Client, 60000);
    kill(Client.ProcessId(), SIGKILL);
    EXPECT_TRUE(DispatchUntil(Client, [&] { return Client.Gone(); }));
    EXPECT_THAT(Why, HasSubstr("the playback server is gone"));
    EXPECT_THAT(FailureOf([&] { Client.StopPlay(); }), HasSubstr(Why));
    EXPECT_EQ(Client.Descriptor(), -1);
    EXPECT_EQ(Client.Release(), 128 + SIGKILL);

    Client = StartQuiet();
    Client.OnMsgBoxOb([&](const std::string&, const std::string& Ttl) {
        if (Ttl == "Playing") kill(Client.ProcessId(), SIGKILL);  // while the call is pending
    });
    EXPECT_THAT(FailureOf([&] { Play(Client, 60000); }),
                HasSubstr("PlayAgain: the playback server is gone"));
}

TEST(Client, GivesUpAServerThatStandsStillButNotOneThatWaitsForTheEditor) {
    std::string Why;
    PlayDllClient Client = StartQuiet(300);
    Client.OnServerGone([&](const std::string& Text) { Why = Text; });
    Client.OnMsgBoxOb([](const std::string&, const std::string&) { poll(nullptr, 0, 400); });
    Client.StopPlay();
    EXPECT_FALSE(Client.Gone());

    const int Server = Client.ProcessId();
    kill(Server, SIGSTOP);
    EXPECT_THAT(FailureOf([&] { Client.PlayCurrentPosition(); }),
                HasSubstr("PlayCurrentPosition: the playback server has not answered for 300 ms"));
    EXPECT_THAT(Why, HasSubstr("has not answered"));
    EXPECT_EQ(kill(Server, 0), -1) << "it would keep the device";
    EXPECT_THAT(FailureOf([&] { Client.StopPlay(); }), HasSubstr("has not answered"));
    EXPECT_EQ(Client.Release(), 128 + SIGKILL);
}

TEST(Client, LeavesNothingBehindAndOtherEditorsAloneWhetherOrNotTheSystemReapsItsChildren) {
    PlayDllClient Other = StartQuiet();
    Play(Other, 60000);
    using Entries = std::filesystem::directory_iterator;
    const auto Open = [] { return std::distance(Entries("/proc/self/fd"), Entries()); };
    const auto Before = Open();
    for (const auto Handling : {SIG_IGN, SIG_DFL}) {
        signal(SIGCHLD, Handling);
        PlayDllClient Client = StartQuiet();
        Play(Client, 60000);
        const int Server = Client.ProcessId();
        EXPECT_EQ(Client.Release(), 0);
        EXPECT_EQ(kill(Server, 0), -1);
        EXPECT_EQ(Other.PlayRunningDx7State(), 1);
    }
    EXPECT_EQ(Open(), Before);
    EXPECT_GT(Other.PlayCurrentPosition(), 20);
}

TEST(Client, ThatIsKilledInMidPlayTakesItsServerWithIt) {
    const TempFolder Folder;
    const std::string Record = Folder / "heard.wav", Work = Folder / "editor.tmp";
    const std::string Samples(120'000, 'e');
    Put(Work, Samples);
    const auto PlayAndDie = [&] {
        PlayDllClient Client = StartQuiet(30000, "wav:" + Record);
        Client.AppTmpDir(Folder / "");
        Client.MemorySizeToUse(1000);
        Play(Client, 60000, Work);
        raise(SIGKILL);
    };
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    EXPECT_EXIT(PlayAndDie(), KilledBySignal(SIGKILL), "");
    int Status = -1;
    EXPECT_TRUE(Soon([&] { return waitpid(-1, &Status, WNOHANG) > 0; }, 1s)) << "its server";
    EXPECT_EQ(Status, 0);
    EXPECT_EQ(Get(Record).substr(0, 4), "RIFF");
    EXPECT_LT(Get(Record).size(), 20'000U) << "played on";
    EXPECT_THAT(Folder.Names(), ElementsAre("editor.tmp", "heard.wav"));
    EXPECT_EQ(Get(Work), Samples);
}

}  // namespace
}  // namespace Tolvar::Testing
