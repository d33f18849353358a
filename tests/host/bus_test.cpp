#include <signal.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <sstream>

#include "host/client/PlayDllClient.h"
#include "tests/host/Rig.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/TempFolder.h"

namespace Tolvar::Testing {
namespace {

using testing::HasSubstr;

std::string OutputOf(const std::string& Command, int& Code) {
    std::string Output;
    std::array<char, 4096> Part{};
    FILE* const Pipe = popen(Command.c_str(), "r");
    while (const std::size_t Count = std::fread(Part.data(), 1, Part.size(), Pipe))
        Output.append(Part.data(), Count);
    Code = pclose(Pipe);
    return Output;
}

constexpr const char* OpenToAll =
    "<busconfig><type>session</type><listen>unix:tmpdir=/tmp</listen><auth>EXTERNAL</auth>"
    "<standard_session_servicedirs/><policy context='default'><allow user='*'/><allow own='*'/>"
    "<allow send_destination='*'/><allow receive_sender='*'/></policy></busconfig>";

/// A session bus of this test's own that can start the server.
class SessionBus {
  public:
    SessionBus() {
        std::filesystem::create_directories(Folder / "dbus-1/services");
        Put(Folder / "dbus-1/services/org.tolvar.WaveEditor.service",
            "[D-BUS Service]\nName=org.tolvar.WaveEditor\nExec=" HOST_PROGRAM " --bus --log " +
                (Folder / "log") + "\n");
        setenv("XDG_DATA_HOME", (Folder / "").c_str(), 1);
        Put(Folder / "config", OpenToAll);
        Bus.emplace("--config-file=" + (Folder / "config"));
    }
    ~SessionBus() { unsetenv("XDG_DATA_HOME"); }
    SessionBus(const SessionBus&) = delete;
    SessionBus& operator=(const SessionBus&) = delete;

    explicit operator bool() const { return bool{*Bus}; }
    static bool HasServer() {
        int Code = 0;
        return OutputOf("busctl --user list --acquired", Code).find(Wire::BusName) !=
               std::string::npos;
    }

  private:
    TempFolder Folder;
    std::optional<PrivateBus> Bus;
};

TEST(Bus, TheWalkThroughOfTheDocumentWorksAsItSays) {
    const SessionBus Bus;
    if (!Bus) GTEST_SKIP() << "there is no dbus-daemon here";
    // The lines behind "$ " in the console block are one script; the others are what it prints.
    std::string Document = Get(HOSTING_DOC);
    const std::string Begin = "```console\n";
    Document.erase(0, Document.find(Begin) + Begin.size());
    Document.erase(Document.find("```"));
    std::istringstream Lines(Document);
    std::string Script, Expected;
    for (std::string Line; std::getline(Lines, Line);) {
        const bool Command = Line.starts_with("$ ");
        (Command ? Script : Expected) += (Command ? Line.substr(2) : Line) + "\n";
    }
    const TempFolder Folder;
    Put(Folder / "script", Script);
    int Code = -1;
    EXPECT_EQ(OutputOf("timeout 30 bash -e " + (Folder / "script") + " 2>&1", Code), Expected);
    EXPECT_EQ(Code, 0);
    EXPECT_THAT(Script, HasSubstr("PlayAgain"));
    EXPECT_TRUE(Soon([] { return !SessionBus::HasServer(); }));
}

TEST(Bus, ServesOneEditorAtATimeAndEndsWithIt) {
    const SessionBus Bus;
    if (!Bus) GTEST_SKIP() << "there is no dbus-daemon here";
    std::vector<std::string> Order;
    std::string Why;
    {
        PlayDllClient Editor = PlayDllClient::OnSessionBus();
        Editor.OnMsgBoxOb(
            [&](const std::string&, const std::string& Ttl) { Order.push_back(Ttl); });
        EXPECT_THROW(PlayDllClient::OnSessionBus(), PlayDllError);
        try {
            PlayDllClient::OnSessionBus();
        } catch (const PlayDllError& Refused) {
            EXPECT_EQ(Refused.Name(), Wire::Busy);
            EXPECT_THAT(Refused.what(), HasSubstr("another editor"));
        }
        Editor.PlayUTurn();
        EXPECT_THAT(Order, testing::ElementsAre("Driver is Off", "U-Turn Failed"));
    }
    EXPECT_TRUE(Soon([] { return !SessionBus::HasServer(); }));

    PlayDllClient Next = PlayDllClient::OnSessionBus();
    Next.OnServerGone([&](const std::string& Text) { Why = Text; });
    Next.PlayUTurn();
    int Code = 0;
    const std::string Server =
        OutputOf("busctl --user status org.tolvar.WaveEditor | sed -n 's/^PID=//p'", Code);
    kill(std::atoi(Server.c_str()), SIGKILL);
    EXPECT_TRUE(Soon([&] {
        Next.Dispatch();
        return Next.Gone();
    }));
    EXPECT_THAT(Why, HasSubstr("gone"));
    EXPECT_THROW(Next.PlayUTurn(), PlayDllError);
    EXPECT_FALSE(SessionBus::HasServer());

    const pid_t Dying = fork();
    if (Dying == 0) {
        PlayDllClient Killed = PlayDllClient::OnSessionBus();
        Killed.StopPlay();
        raise(SIGKILL);
    }
    int Status = 0;
    EXPECT_EQ(waitpid(Dying, &Status, 0), Dying);
    EXPECT_TRUE(WIFSIGNALED(Status)) << "it had no server";
    EXPECT_TRUE(Soon([] { return !SessionBus::HasServer(); }, 1s));
}

TEST(Bus, ThatIsMissingIsSaidByProxyAndServer) {
    setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nowhere/bus", 1);
    int Code = 0;
    EXPECT_THAT(OutputOf(HOST_PROGRAM " --bus 2>&1", Code), HasSubstr("cannot reach the session"));
    EXPECT_EQ(WEXITSTATUS(Code), 1);
    EXPECT_THROW(PlayDllClient::OnSessionBus(), PlayDllError);
    unsetenv("DBUS_SESSION_BUS_ADDRESS");
}

TEST(Descriptor, ThatIsNoStreamSocketIsRefused) {
    std::array<int, 2> Pair{};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, Pair.data()), 0);
    const Descriptor Ours(Pair[0]), Theirs(Pair[1]);
    int Code = 0;
    for (const auto& [Fd, Why] : {std::pair{Theirs.Get(), "is not a stream socket"},
                                  std::pair{1, "is no socket"}, std::pair{999, "is no socket"}}) {
        const std::string Asked = HOST_PROGRAM " --fd " + std::to_string(Fd) + " 2>&1";
        EXPECT_THAT(OutputOf(Asked, Code), HasSubstr(Why));
        EXPECT_EQ(WEXITSTATUS(Code), 1);
    }
}

TEST(AnotherUser, IsTurnedAwayOnASocketAndOnTheBus) {
    if (geteuid() != 0) GTEST_SKIP() << "takes root to be another user";
    ASSERT_EQ(seteuid(65534), 0);
    const auto [Ours, Theirs] = SocketPair();
    ASSERT_EQ(seteuid(0), 0);
    const Descriptor Handed(dup(Theirs.Get()));
    int Code = 0;
    EXPECT_THAT(OutputOf(HOST_PROGRAM " --fd " + std::to_string(Handed.Get()) + " 2>&1", Code),
                HasSubstr("belongs to user 65534"));
    EXPECT_EQ(WEXITSTATUS(Code), 1);

    const SessionBus Bus;
    if (!Bus) GTEST_SKIP() << "there is no dbus-daemon here";
    PlayDllClient Editor = PlayDllClient::OnSessionBus();
    const std::string Asked =
        " busctl --user get-property org.tolvar.WaveEditor "
        "/org/tolvar/WaveEditor/PlayDllClass "
        "org.tolvar.WaveEditor._PlayDllClass PlayCurrentPosition 2>&1";
    EXPECT_EQ(OutputOf(Asked, Code), "i 0\n");
    EXPECT_THAT(OutputOf("setpriv --reuid=65534 --clear-groups" + Asked, Code),
                HasSubstr("Access denied"));
    EXPECT_EQ(Editor.PlayCurrentPosition(), 0);
}

}  // namespace
}  // namespace Tolvar::Testing
