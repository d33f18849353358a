#include <cmath>
#include <optional>

#include "tests/host/Rig.h"

namespace Tolvar::Testing {
namespace {

/// A server in this process, on the virtual clock, and its editor on the same thread.
struct Wired {
    Wired() {
        Editor.Meanwhile = [this] { Turn(); };
    }
    /// On this clock nothing wakes the server up.
    void Turn(int Ms = 0) {
        if (!Hosting->Finished()) Hosting->TurnLater();
        Server.Home().AdvanceBy(Ms);
    }

    std::pair<Descriptor, Descriptor> Pair = SocketPair();
    PlayServer Server{{.VirtualClock = true,
                       .Engine = EngineOrder::WaveOut,
                       .LogPath = "/dev/null",
                       .OnBox = [](std::string_view) {}}};
    const PlayerState& State = Server.State();
    std::optional<Host> Hosting{
        std::in_place, Server,
        std::make_unique<BusLink>(std::move(Pair.second), BusLink::Side::Server), false};
    RawEditor Editor{std::move(Pair.first)};
};

TEST(Wire, PropertiesArriveWhereTheyAreNamedAndWrongCallsAreRefusedByNameAndChangeNothing) {
    Wired W;
    RawEditor& Editor = W.Editor;
    const char* const Player = Wire::PlayerInterface;
    const auto Prop = [&](const char* Do, const char* Types, auto... Values) {
        return Editor.Ask(Wire::Properties, Do, Types, Values...);
    };
    EXPECT_EQ(Prop("Set", "ssv", Player, "MemorySizeToUse", "i", 12345), "");
    EXPECT_EQ(Prop("Set", "ssv", Player, "LoopPlayON", "b", 1), "");
    EXPECT_EQ(Prop("Set", "ssv", Player, "PlayTempoFor", "d", 1.1), "");
    EXPECT_EQ(Prop("Set", "ssv", Player, "PlayTempoRev", "d", 0.25), "");
    EXPECT_EQ(Prop("Set", "ssv", Player, "AppTmpDir", "s", "/tmp/\xC3\xA4"), "");
    EXPECT_EQ(Editor.Ask(Player, "DxObj", "s", "1"), Wire::InvalidArgs);
    EXPECT_THAT(Editor.Text, testing::HasSubstr("DxObj takes (i), not (s)"));
    EXPECT_EQ(Editor.Ask(Player, "WriteWaveMemo", "iiiiai", 16, 1, 1000, 5, 0), Wire::InvalidArgs);
    EXPECT_EQ(Editor.Ask(Player, "PlayCurrentPosition", ""), Wire::UnknownMethod);
    EXPECT_EQ(Editor.Ask("org.tolvar.Other", "PlayAgain", ""), Wire::UnknownInterface);
    EXPECT_EQ(Editor.Ask(Wire::HostingInterface, "Advise", "s", "/x"), Wire::InvalidArgs);
    EXPECT_EQ(Prop("Get", "ss", Player, "LoopPlayON"), Wire::AccessDenied);
    EXPECT_EQ(Prop("Get", "ss", Player, "PlayAgain"), Wire::UnknownProperty);
    EXPECT_EQ(Prop("Get", "ss", "org.tolvar.Other", "PlayAgain"), Wire::UnknownInterface);
    EXPECT_EQ(Prop("Set", "ssv", Player, "PlayCurrentPosition", "i", 1), Wire::ReadOnly);
    EXPECT_EQ(Prop("Set", "ssv", Player, "LoopPlayON", "i", 0), Wire::InvalidArgs);
    EXPECT_EQ(Prop("Set", "ssv", Player, "PlayTempoFor", "d", 1e300), Wire::InvalidArgs);
    EXPECT_EQ(Prop("Set", "ssv", Player, "PlayTempoFor", "d", std::nan("")), Wire::Failed);
    EXPECT_EQ(Prop("Set", "sss", Player, "AppTmpDir", "/tmp"), Wire::InvalidArgs);
    Editor.Path = "/org";
    EXPECT_EQ(Editor.Do("PlayAgain"), Wire::UnknownObject);
    EXPECT_EQ(W.State.WaveNos, 0);
    EXPECT_EQ(W.State.MemorySizeToUse, 12345);
    EXPECT_TRUE(W.State.LoopPlayON);
    EXPECT_EQ(W.State.PlayTempoFor, 1.1F);
    EXPECT_EQ(W.State.PlayTempoRev, 0.25F);
    EXPECT_EQ(W.State.AppTmpDir, "/tmp/\xC3\xA4");
}

TEST(Wire, AFloodIsAnsweredCallByCallWhileThePlayGoesOn) {
    Wired W;
    RawEditor& Editor = W.Editor;
    EXPECT_EQ(Editor.Ask(Wire::PlayerInterface, "DxObj", "i", 1), "");
    EXPECT_EQ(Editor.Ask(Wire::PlayerInterface, "WriteWaveMemo", "iiiiaiai", 16, 1, 1000, 60, 9, 1,
                         1, 0, 60, 5, 1, 1, 1, 16, 0),
              "");
    EXPECT_EQ(Editor.Do("PlayAgain"), "");
    std::uint64_t Last = 0;
    for (int I = 0; I < 3000; ++I) {
        const char* Wrong = I % 3 == 0 ? "Nonsense" : "PlayCurrentPosition";
        Last = Editor.Link.Send(
            Editor.New(Wire::Properties, "Get", "ss", Wire::PlayerInterface, Wrong).get());
    }
    Editor.Meanwhile = [&W] { W.Turn(1); };
    EXPECT_EQ(Editor.Await(Last), "");
    W.Turn(5000);
    EXPECT_EQ(W.State.PlayRunningState, 0);
    EXPECT_GE(W.State.PlayCurPos, 60) << "not played to its end";
}

TEST(Wire, AnEndRightBehindAnAnswerWakesWhoeverWaits) {
    Wired W;
    RawEditor& Editor = W.Editor;
    const int Waits = Editor.Link.WaitFd();
    Editor.Meanwhile = [&W] {
        if (!W.Hosting) return;
        W.Turn();
        if (W.Hosting->Finished()) W.Hosting.reset();  // answer and end are read in one go
    };
    EXPECT_EQ(Editor.Ask(Wire::HostingInterface, "Release", ""), "");
    pollfd Ready{Waits, POLLIN, 0};
    EXPECT_EQ(poll(&Ready, 1, 0), 1);
    Editor.Link.Receive();
    EXPECT_FALSE(Editor.Link.Open());
    EXPECT_EQ(poll(&Ready, 1, 0), 1);
}

}  // namespace
}  // namespace Tolvar::Testing
