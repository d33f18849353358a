#include <signal.h>
#include <sys/wait.h>

#include <cstdlib>

#include "host/client/PlayDllClient.h"
#include "tests/host/Rig.h"
#include "tests/host/Shell.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/TempFolder.h"

namespace Tolvar::Testing {
namespace {

using testing::HasSubstr;

/// The option of a bus that is open to all users and can start the server.
std::string ConfiguredIn(const TempFolder& Folder) {
    Put(Folder / "org.tolvar.WaveEditor.service",
        "[D-BUS Service]\nName=org.tolvar.WaveEditor\nExec=" HOST_PROGRAM " --bus --log " +
            (Folder / "log") + "\n");
    Put(Folder / "config",
        "<busconfig><type>session</type><listen>unix:tmpdir=/tmp</listen><auth>EXTERNAL</auth>"
        "<servicedir>" +
            (Folder / "") +
            "</servicedir>"
            "<policy context='default'><allow user='*'/><allow own='*'/>"
            "<allow send_destination='*'/><allow receive_sender='*'/></policy></busconfig>");
    return "--config-file=" + (Folder / "config");
}

struct SessionBus : private TempFolder, public PrivateBus {
    SessionBus() : PrivateBus(ConfiguredIn(*this)) {}
    static bool HasServer() {
        return OutputOf("busctl --user list --acquired").find(Wire::BusName) != std::string::npos;
    }
};

TEST(Bus, TheWalkThroughOfTheDocumentWorksAsItSays) {
    const SessionBus Bus;
    if (!Bus) GTEST_SKIP() << "there is no dbus-daemon here";
    // The lines behind "$ " in the console block are one script; the others are what it prints.
    const std::string Block = "sed -n '/^```console/,/^```$/{/```/!p}' " HOSTING_DOC;
    const std::string Expected = OutputOf(Block + " | grep -v '^\\$ '");
    EXPECT_THAT(Expected, HasSubstr("i 2"));
    int Code = -1;
    EXPECT_EQ(OutputOf(Block + " | sed -n 's/^\\$ //p' | timeout 30 bash -e 2>&1", &Code),
              Expected);
    EXPECT_EQ(Code, 0);
    EXPECT_TRUE(Soon([] { return !SessionBus::HasServer(); }));
}

TEST(Bus, ServesOneEditorAtATimeAndEndsWithIt) {
    const SessionBus Bus;
    if (!Bus) GTEST_SKIP() << "there is no dbus-daemon here";
    {
        std::vector<std::string> Order;
        PlayDllClient Editor = PlayDllClient::OnSessionBus();
        Editor.OnMsgBoxOb(
            [&](const std::string&, const std::string& Ttl) { Order.push_back(Ttl); });
        try {
            PlayDllClient::OnSessionBus();
            ADD_FAILURE() << "there are two";
        } catch (const PlayDllError& Refused) {
            EXPECT_EQ(Refused.Name(), Wire::Busy);
            EXPECT_THAT(Refused.what(), HasSubstr("another editor"));
        }
        Editor.PlayUTurn();
        EXPECT_THAT(Order, testing::ElementsAre("Driver is Off", "U-Turn Failed"));
    }
    EXPECT_TRUE(Soon([] { return !SessionBus::HasServer(); }));

    std::string Why;
    PlayDllClient Next = PlayDllClient::OnSessionBus();
    Next.OnServerGone([&](const std::string& Text) { Why = Text; });
    Next.PlayUTurn();
    OutputOf("kill -9 $(busctl --user status org.tolvar.WaveEditor | sed -n 's/^PID=//p')");
    EXPECT_TRUE(Soon([&] {
        Next.Dispatch();
        return Next.Gone();
    }));
    EXPECT_THAT(Why, HasSubstr("gone"));
    EXPECT_THROW(Next.PlayUTurn(), PlayDllError);

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

TEST(Server, SaysWhyItDoesNotStart) {
    std::array<int, 2> Pair{};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, Pair.data()), 0);
    const Descriptor Ours(Pair[0]), Theirs(Pair[1]);
    setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nowhere/bus", 1);
    const struct {
        std::string Arguments;
        const char* Why;
        int Code;
    } Cases[] = {{"--bus", "cannot reach the session", 1},
                 {"--fd " + std::to_string(Theirs.Get()), "is not a stream socket", 1},
                 {"--fd 1", "is no socket", 1},
                 {"--fd 999", "is no socket", 1},
                 {"--bus --rate x", "rate", 2}};
    for (const auto& [Arguments, Why, Code] : Cases) {
        int Ended = 0;
        EXPECT_THAT(OutputOf(HOST_PROGRAM " " + Arguments + " 2>&1", &Ended), HasSubstr(Why));
        EXPECT_EQ(WEXITSTATUS(Ended), Code) << Arguments;
    }
    EXPECT_THROW(PlayDllClient::OnSessionBus(), PlayDllError);
    unsetenv("DBUS_SESSION_BUS_ADDRESS");
}

TEST(AnotherUser, IsTurnedAwayOnASocketAndOnTheBus) {
    if (geteuid() != 0) GTEST_SKIP() << "takes root to be another user";
    ASSERT_EQ(seteuid(65534), 0);
    const auto [Ours, Theirs] = SocketPair();
    ASSERT_EQ(seteuid(0), 0);
    const Descriptor Handed(dup(Theirs.Get()));
    int Code = 0;
    EXPECT_THAT(OutputOf(HOST_PROGRAM " --fd " + std::to_string(Handed.Get()) + " 2>&1", &Code),
                HasSubstr("belongs to user 65534"));
    EXPECT_EQ(WEXITSTATUS(Code), 1);

    const SessionBus Bus;
    if (!Bus) GTEST_SKIP() << "there is no dbus-daemon here";
    PlayDllClient Editor = PlayDllClient::OnSessionBus();
    const std::string Asked = std::string(" busctl --user get-property ") + Wire::BusName + " " +
                              Wire::PlayerPath + " " + Wire::PlayerInterface +
                              " PlayCurrentPosition 2>&1";
    EXPECT_EQ(OutputOf(Asked), "i 0\n");
    EXPECT_THAT(OutputOf("setpriv --reuid=65534 --clear-groups" + Asked),
                HasSubstr("Access denied"));
}

}  // namespace
}  // namespace Tolvar::Testing
