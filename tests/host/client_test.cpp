#include <signal.h>

#include <filesystem>

#include "host/client/PlayDllClient.h"
#include "tests/host/Rig.h"
#include "tests/support/Fakes.h"

namespace Tolvar::Testing {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

PlayDllClient StartQuiet(int LimitMs = 30000) {
    return PlayDllClient::Start(
        {HOST_PROGRAM, {"--engine", "waveout", "--log", "/dev/null"}, LimitMs});
}

bool DispatchUntil(PlayDllClient& Client, const std::function<bool()>& Holds) {
    return Soon([&] {
        Client.Dispatch();
        return Holds();
    });
}

/// A wave of that many frames, playing.
void Play(PlayDllClient& Client, std::int32_t Frames) {
    std::int32_t Window = 1;
    Client.DxObj(Window);
    Client.WriteWaveMemo(16, 1, 1000, Frames, SilentList(Frames), {});
    Client.PlayAgain();
}

std::ptrdiff_t OpenDescriptors() {
    using Entries = std::filesystem::directory_iterator;
    return std::distance(Entries("/proc/self/fd"), Entries());
}

TEST(Client, ReportsComeWhileTheCallRunsAndBetweenCallsFromDispatch) {
    std::vector<std::string> Order;
    PlayDllClient Client = StartQuiet();
    Client.OnMsgBoxOb([&](const std::string&, const std::string& Ttl) { Order.push_back(Ttl); });
    Play(Client, 30);
    Order.emplace_back("returned");
    EXPECT_TRUE(DispatchUntil(Client, [&] { return Order.back() == "Play Done"; }));
    EXPECT_THAT(Order, ElementsAre("Writing to Play Buffer", "Stopped", "Done", "Playing",
                                   "returned", "Play Done"));
    EXPECT_EQ(Client.PlayRunningDx7State(), 0);
}

TEST(Client, ASinkMayCallBackAndThrowAndMayNotLetGo) {
    std::vector<std::string> Order;
    PlayDllClient Client = StartQuiet();
    Client.OnMsgBoxOb([&](const std::string&, const std::string& Ttl) {
        Order.push_back(Ttl);
        if (Ttl != "Playing") return;
        EXPECT_EQ(Client.PlayRunningDx7State(), 1);
        Client.StopPlay();
        EXPECT_THAT(FailureOf([&] { Client.Release(); }), HasSubstr("not a moment to let go"));
        throw std::runtime_error("the editor's own trouble");
    });
    Play(Client, 5000);
    EXPECT_THAT(Order,
                ElementsAre("Writing to Play Buffer", "Stopped", "Done", "Playing", "Stopped"));
    Order.clear();
    const auto Began = std::chrono::steady_clock::now();
    EXPECT_EQ(Client.Release(), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - Began, 300ms);
    EXPECT_EQ(Client.Release(), 0);
    EXPECT_THAT(Order, ElementsAre("Driver is Off"));
}

TEST(Client, RefusesAListThatNoMessageTakesBeforeItIsSent) {
    PlayDllClient Client = StartQuiet();
    const std::vector<std::int32_t> Huge((std::size_t{16} << 20U) + 1);
    const std::string Text = FailureOf([&] { Client.WriteWaveMemo(16, 1, 1000, 5, Huge, {}); });
    EXPECT_THAT(Text, HasSubstr("16777217"));
    EXPECT_THAT(FailureOf([&] { Client.AppTmpDir("a\xFF"); }), HasSubstr("AppTmpDir"));
    EXPECT_FALSE(Client.Gone());
    // The largest that is sent arrives, and it is the server that finds it to be wrong.
    const std::span<const std::int32_t> Most(Huge.data(), Huge.size() - 1);
    std::vector<std::int32_t> List(Most.begin(), Most.end());
    List[0] = 1;
    EXPECT_THAT(FailureOf([&] { Client.WriteWaveMemo(16, 1, 1000, 5, List, {}); }),
                HasSubstr("Block list left"));
}

TEST(Client, OfAServerThatDiesFailsAtOnceAndANewOneTakesTheWave) {
    std::string Why;
    PlayDllClient Client = StartQuiet();
    Client.OnServerGone([&](const std::string& Text) { Why = Text; });
    Play(Client, 60000);
    kill(Client.ProcessId(), SIGKILL);
    EXPECT_TRUE(DispatchUntil(Client, [&] { return Client.Gone(); }));
    EXPECT_THAT(Why, HasSubstr("the playback server is gone"));
    EXPECT_THAT(FailureOf([&] { Client.StopPlay(); }), HasSubstr("the playback server is gone"));
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

TEST(Client, LeavesNothingBehindWhetherOrNotTheEditorReapsItsChildren) {
    StartQuiet();
    const std::ptrdiff_t Before = OpenDescriptors();
    for (const auto Handling : {SIG_DFL, SIG_IGN, SIG_DFL}) {
        signal(SIGCHLD, Handling);
        PlayDllClient Client = StartQuiet();
        Play(Client, 60000);
        const int Server = Client.ProcessId();
        EXPECT_EQ(Client.Release(), 0);
        EXPECT_EQ(kill(Server, 0), -1);
    }
    EXPECT_EQ(OpenDescriptors(), Before);
}

}  // namespace
}  // namespace Tolvar::Testing
