#include <signal.h>

#include "host/client/PlayDllClient.h"
#include "tests/host/Rig.h"
#include "tests/support/Fakes.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/TempFolder.h"

namespace Tolvar::Testing {
namespace {

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

struct Bus : Test {
    TempFolder Folder;
    PrivateBus Daemon{ConfiguredIn(Folder)};

    void SetUp() override {
        if (!Daemon) GTEST_SKIP() << "there is no dbus-daemon here";
    }
    static bool ServerEnds() {
        return Soon([] {
            const std::string Names = OutputOf("busctl --user list --acquired");
            return Names.find(Wire::BusName) == std::string::npos;
        });
    }
};

TEST_F(Bus, TheWalkThroughOfTheDocumentWorksAsItSays) {
    // The lines behind "$ " in the console block are one script; the others are what it prints.
    const std::string Block = "sed -n '/^```console/,/^```$/{/```/!p}' " HOSTING_DOC;
    const std::string Expected = OutputOf(Block + " | grep -v '^\\$ '");
    EXPECT_THAT(Expected, HasSubstr("i 2"));
    int Code = -1;
    EXPECT_EQ(OutputOf(Block + " | sed -n 's/^\\$ //p' | timeout 30 bash -e 2>&1", &Code),
              Expected);
    EXPECT_EQ(Code, 0);
    EXPECT_TRUE(ServerEnds());
}

TEST_F(Bus, ServesOneEditorAtATimeAndEndsWithIt) {
    {
        std::vector<std::string> Order;
        PlayDllClient Editor = PlayDllClient::OnSessionBus();
        Editor.OnMsgBoxOb(
            [&](const std::string&, const std::string& Ttl) { Order.push_back(Ttl); });
        EXPECT_THAT([] { PlayDllClient::OnSessionBus(); },
                    Throws<PlayDllError>(
                        AllOf(Property(&PlayDllError::Name, Wire::Busy),
                              Property(&PlayDllError::what, HasSubstr("another editor")))));
        Editor.PlayUTurn();
        EXPECT_THAT(Order, ElementsAre("Driver is Off", "U-Turn Failed"));
    }
    EXPECT_TRUE(ServerEnds());

    std::string Why;
    PlayDllClient Next = PlayDllClient::OnSessionBus();
    Next.OnServerGone([&](const std::string& Text) { Why = Text; });
    Next.PlayUTurn();
    OutputOf("kill -9 $(busctl --user status org.tolvar.WaveEditor | sed -n 's/^PID=//p')");
    EXPECT_TRUE(Soon([&] { return Next.Dispatch(), Next.Gone(); }));
    EXPECT_THAT(Why, HasSubstr("gone"));
    EXPECT_THAT(FailureOf([&] { Next.PlayUTurn(); }), HasSubstr("gone"));

    const auto ReachItAndDie = [] {
        PlayDllClient Killed = PlayDllClient::OnSessionBus();
        Killed.StopPlay();
        raise(SIGKILL);
    };
    EXPECT_EXIT(ReachItAndDie(), KilledBySignal(SIGKILL), "");
    EXPECT_TRUE(ServerEnds());
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

TEST_F(Bus, AnotherUserIsTurnedAwayHereAndOnASocket) {
    if (geteuid() != 0) GTEST_SKIP() << "takes root to be another user";
    ASSERT_EQ(seteuid(65534), 0);
    const auto [Ours, Theirs] = SocketPair();
    ASSERT_EQ(seteuid(0), 0);
    const Descriptor Handed(dup(Theirs.Get()));
    int Code = 0;
    EXPECT_THAT(OutputOf(HOST_PROGRAM " --fd " + std::to_string(Handed.Get()) + " 2>&1", &Code),
                HasSubstr("belongs to user 65534"));
    EXPECT_EQ(WEXITSTATUS(Code), 1);

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
