#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <filesystem>
#include <limits>

#include "host/client/PlayDllClient.h"
#include "tests/host/Rig.h"
#include "tests/support/TempFolder.h"

namespace Tolvar::Testing {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

PlayDllClient StartQuiet(std::vector<std::string> More = {}, int LimitMs = 30000) {
    std::vector<std::string> Words{"--engine", "waveout", "--log", "/dev/null"};
    Words.insert(Words.end(), More.begin(), More.end());
    return PlayDllClient::Start({HOST_PROGRAM, Words, LimitMs});
}

bool DispatchUntil(PlayDllClient& Client, const std::function<bool()>& Holds) {
    return Soon([&] {
        Client.Dispatch();
        return Holds();
    });
}

/// A wave of that many frames, playing.
void Play(PlayDllClient& Client, std::int32_t Frames, const std::vector<std::int32_t>& List = {}) {
    std::int32_t Window = 1;
    Client.DxObj(Window);
    Client.WriteWaveMemo(16, 1, 1000, Frames, List.empty() ? SilentList(Frames) : List, {});
    Client.PlayAgain();
}

std::ptrdiff_t OpenDescriptors() {
    using Entries = std::filesystem::directory_iterator;
    return std::distance(Entries("/proc/self/fd"), Entries());
}

std::string FailureOf(const std::function<void()>& Work) {
    try {
        Work();
    } catch (const std::exception& Failure) {
        return Failure.what();
    }
    return "";
}

// Every member, with what it says; what does not depend on the moment.
template <typename Player>
std::vector<std::string> Drive(Player& Object) {
    std::vector<std::string> Lines;
    Object.OnMsgBoxOb([&](std::string_view Msg, std::string_view Ttl) {
        Lines.push_back(std::string(Msg) + "|" + std::string(Ttl));
    });
    const auto Note = [&](auto Value) { Lines.push_back(std::to_string(Value)); };
    const auto Command = [&](auto Member, auto... Values) {
        Lines.push_back(FailureOf([&] { (Object.*Member)(Values...); }));
        Note(Object.PlayRunningDx7State());
    };
    const std::vector<std::int32_t> Broken{2, 1, 0};
    const auto All = [&] {
        Command(&Player::PlayAgain);
        Command(&Player::PlayPause);
        Command(&Player::PlayContinue);
        Command(&Player::PlayAgainRev);
        Command(&Player::UpdatePlayPosition);
        Command(&Player::PlayUTurn);
        Command(&Player::PlayAtPos, 5000);
        Command(&Player::PlayAtPosRev, 9000);
        Command(&Player::StopPlay);
    };
    All();
    Note(Object.PlayCurrentPosition());
    for (std::int32_t Window : {0, -3, 77}) {
        Object.DxObj(Window);
        Note(Window);
    }
    Object.MemorySizeToUse(1 << 20);
    Object.AppTmpDir("/tmp");
    Object.LoopPlayON(true);
    Object.WriteWaveMemo(16, 2, 1000, 20000, SilentList(20000), SilentList(20000));
    All();
    Object.PlayTempoFor(2.0F);
    Object.PlayTempoRev(0.5F);
    Lines.push_back(
        FailureOf([&] { Object.PlayTempoFor(std::numeric_limits<float>::quiet_NaN()); }));
    Lines.push_back(FailureOf([&] { Object.WriteWaveMemo(8, 1, 1000, 10, Broken, {}); }));
    Object.WriteWaveMemo(24, 1, 1000, 10, Broken, Broken);
    Object.WriteWaveMemo(16, 1, 1000, 0, Broken, Broken);
    All();
    Object.WriteWaveMemo(16, 1, 1000, 10,
                         ListOf({{.Type = 3, .Len = 10, .Name = "/nowhere/work.tmp"}}), {});
    All();
    Command(&Player::ReleaseFiles);
    All();
    Object.Release();
    return Lines;
}

TEST(Client, HearsWhyAServerDoesNotStart) {
    EXPECT_THAT(FailureOf([] {
                    StartQuiet({"--device", "wav:/nowhere/x.wav"});
                }),
                HasSubstr("the playback server did not start (exit code 1)"));
    EXPECT_THAT(FailureOf([] { StartQuiet({"--rate", "x"}); }), HasSubstr("(exit code 2)"));
}

TEST(Client, EveryMemberDoesOverTheWireWhatItDoesInProcess) {
    PlayServer Near({.Engine = EngineOrder::WaveOut, .LogPath = "/dev/null"});
    PlayDllClient Far = StartQuiet();
    const std::vector<std::string> Expected = Drive(Near.Player());
    EXPECT_GT(Expected.size(), 100U);
    EXPECT_THAT(Expected, Contains("S2|Play Failed"));
    EXPECT_EQ(Drive(Far), Expected);
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
    PlayDllClient Client = StartQuiet({}, 300);
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

TEST(Client, ThatIsKilledInMidPlayTakesItsServerWithIt) {
    const TempFolder Folder;
    const std::string Record = Folder / "heard.wav";
    Put(Folder / "editor.tmp", std::string(120'000, 'e'));
    std::array<int, 2> Pipe{};
    ASSERT_EQ(pipe(Pipe.data()), 0);
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    const pid_t Editor = fork();
    if (Editor == 0) {
        PlayDllClient Client = StartQuiet({"--device", "wav:" + Record});
        Client.AppTmpDir(Folder / "");
        Client.MemorySizeToUse(1000);
        const std::string Work = Folder / "editor.tmp";
        Play(Client, 60000, ListOf({{.Type = 3, .Len = 60000, .Name = Work}}));
        const int Server = Client.ProcessId();
        if (write(Pipe[1], &Server, sizeof Server) == sizeof Server) pause();
        _exit(1);
    }
    int Server = 0;
    ASSERT_EQ(read(Pipe[0], &Server, sizeof Server), static_cast<ssize_t>(sizeof Server));
    kill(Editor, SIGKILL);
    waitpid(Editor, nullptr, 0);
    int Status = -1;
    EXPECT_TRUE(Soon([&] { return waitpid(Server, &Status, WNOHANG) == Server; }, 1s));
    EXPECT_TRUE(WIFEXITED(Status));
    EXPECT_EQ(WEXITSTATUS(Status), 0);
    EXPECT_EQ(Get(Record).substr(0, 4), "RIFF");
    EXPECT_LT(Get(Record).size(), 20'000U) << "played on";
    EXPECT_THAT(Folder.Names(), ElementsAre("editor.tmp", "heard.wav"));
    EXPECT_EQ(Get(Folder / "editor.tmp"), std::string(120'000, 'e'));
    close(Pipe[0]);
    close(Pipe[1]);
}

TEST(Client, HasAServerOfItsOwnBesideOthers) {
    PlayDllClient First = StartQuiet();
    PlayDllClient Second = StartQuiet();
    Play(First, 60000);
    Play(Second, 60000);
    First.StopPlay();
    EXPECT_EQ(First.PlayRunningDx7State(), 0);
    EXPECT_EQ(Second.PlayRunningDx7State(), 1);
    EXPECT_EQ(First.Release(), 0);
    EXPECT_EQ(Second.PlayRunningDx7State(), 1);
    EXPECT_TRUE(Soon([&] { return Second.PlayCurrentPosition() > 20; }));
    EXPECT_THAT(FailureOf([] {
                    PlayDllClient::Start({"/nowhere/server", {}});
                }),
                HasSubstr("/nowhere/server"));
}

}  // namespace
}  // namespace Tolvar::Testing
