#include <cmath>
#include <optional>

#include "tests/host/Rig.h"
#include "tests/support/TempFolder.h"

namespace Tolvar::Testing {
namespace {

/// A host in this process, and an editor on one thread with it.
struct Wired {
    RawEditor& Begin() {
        auto [Ours, Theirs] = SocketPair();
        Hosting.emplace(Server, std::make_unique<BusLink>(std::move(Theirs), BusLink::Side::Server),
                        false);
        Editor.emplace(std::move(Ours));
        Editor->Meanwhile = [this] { Server.Home().AdvanceBy(0); };
        return *Editor;
    }

    PlayServer Server{{.Engine = EngineOrder::WaveOut, .LogPath = "/dev/null"}};
    std::optional<Host> Hosting;
    std::optional<RawEditor> Editor;
};

TEST(Wire, PropertiesAndArgumentsArriveWhereTheyAreNamed) {
    Wired W;
    RawEditor& Editor = W.Begin();
    const PlayerState& State = W.Server.State();
    const auto Set = [&](const char* Name, const char* Type, auto Value) {
        return Editor.Ask(Wire::Properties, "Set", "ssv", Wire::PlayerInterface, Name, Type, Value);
    };
    EXPECT_EQ(Set("MemorySizeToUse", "i", 12345), "");
    EXPECT_EQ(Set("LoopPlayON", "b", 1), "");
    EXPECT_EQ(Set("PlayTempoFor", "d", 1.1), "");
    EXPECT_EQ(Set("PlayTempoRev", "d", 0.25), "");
    EXPECT_EQ(Set("AppTmpDir", "s", "/tmp/\xC3\xA4"), "");
    EXPECT_EQ(State.MemorySizeToUse, 12345);
    EXPECT_TRUE(State.LoopPlayON);
    EXPECT_EQ(State.PlayTempoFor, 1.1F);
    EXPECT_EQ(State.PlayTempoRev, 0.25F);
    EXPECT_EQ(State.AppTmpDir, "/tmp/\xC3\xA4");

    EXPECT_EQ(Editor.Ask(Wire::PlayerInterface, "WriteWaveMemo", "iiiiaiai", 8, 2, 11025, 30, 9, 1,
                         1, 0, 30, 5, 1, 1, 1, 16, 9, 1, 1, 0, 30, 5, 1, 1, 1, 16),
              "");
    EXPECT_EQ(State.FmtBits, 8);
    EXPECT_EQ(State.FmtChannal, 2);
    EXPECT_EQ(State.FmtFriq, 11025);
    EXPECT_EQ(State.WaveNos, 30);
    EXPECT_EQ(Editor.Ask(Wire::PlayerInterface, "PlayAtPos", "i", 17), "");
    EXPECT_EQ(State.PlayCurPos, 17);
    EXPECT_EQ(State.PlayDirection, 1);
    EXPECT_EQ(Editor.Ask(Wire::PlayerInterface, "PlayAtPosRev", "i", 16), "");
    EXPECT_EQ(State.PlayDirection, -1);
    EXPECT_EQ(Editor.Ask(Wire::PlayerInterface, "DxObj", "i", -4), "");
    std::int32_t Back = 0;
    EXPECT_GT(sd_bus_message_read(Editor.Answer.get(), "i", &Back), 0);
    EXPECT_EQ(Back, -4);
}

TEST(Wire, WrongCallsAreRefusedByNameAndChangeNothing) {
    Wired W;
    RawEditor& Editor = W.Begin();
    const PlayerState& State = W.Server.State();
    const char* const Player = Wire::PlayerInterface;
    const auto Prop = [&](const char* Do, const char* Types, auto... Values) {
        return Editor.Ask(Wire::Properties, Do, Types, Values...);
    };
    EXPECT_EQ(Editor.Ask(Player, "DxObj", ""), Wire::InvalidArgs);
    EXPECT_EQ(Editor.Ask(Player, "DxObj", "s", "1"), Wire::InvalidArgs);
    EXPECT_THAT(Editor.Text, testing::HasSubstr("DxObj takes (i), not (s)"));
    EXPECT_EQ(Editor.Ask(Player, "PlayAgain", "i", 1), Wire::InvalidArgs);
    EXPECT_EQ(Editor.Ask(Player, "WriteWaveMemo", "iiiiai", 16, 1, 1000, 5, 0), Wire::InvalidArgs);
    EXPECT_EQ(Editor.Ask(Player, "PlayCurrentPosition", ""), Wire::UnknownMethod);
    EXPECT_EQ(Editor.Ask(Player, "EngineCode", ""), Wire::UnknownMethod);
    EXPECT_EQ(Editor.Ask("org.tolvar.Other", "PlayAgain", ""), Wire::UnknownInterface);
    EXPECT_EQ(Editor.Ask(Wire::HostingInterface, "Advise", "s", "/x"), Wire::InvalidArgs);
    EXPECT_EQ(Prop("Get", "ss", Player, "LoopPlayON"), Wire::AccessDenied);
    EXPECT_EQ(Prop("Get", "ss", Player, "PlayAgain"), Wire::UnknownProperty);
    EXPECT_EQ(Prop("Set", "ssv", Player, "PlayCurrentPosition", "i", 1), Wire::ReadOnly);
    EXPECT_EQ(Prop("Set", "ssv", Player, "LoopPlayON", "i", 1), Wire::InvalidArgs);
    EXPECT_EQ(Prop("Set", "ssv", Player, "PlayTempoFor", "d", 1e300), Wire::InvalidArgs);
    EXPECT_EQ(Prop("Set", "ssv", Player, "PlayTempoFor", "d", std::nan("")), Wire::Failed);
    EXPECT_EQ(Prop("Set", "sss", Player, "AppTmpDir", "/tmp"), Wire::InvalidArgs);
    EXPECT_EQ(Prop("Set", "ssv", Wire::EventInterface, "LoopPlayON", "b", 1),
              Wire::UnknownInterface);
    Editor.Path = "/org";
    EXPECT_EQ(Editor.Do("PlayAgain"), Wire::UnknownObject);
    EXPECT_FALSE(State.LoopPlayON);
    EXPECT_EQ(State.PlayTempoFor, 1.0F);
    EXPECT_EQ(State.AppTmpDir, "");
    EXPECT_EQ(State.WaveNos, 0);
}

// What an editor sends first, up to and with a hand-over, as bytes: sd-bus writes them, and this
// test speaks the server's part until it does.
std::string SpokenHandOver() {
    auto [Ours, Theirs] = SocketPair();
    RawEditor Editor(std::move(Ours));
    Editor.Link.Send(Editor
                         .New(Wire::PlayerInterface, "WriteWaveMemo", "iiiiaiai", 16, 1, 1000, 5, 9,
                              1, 1, 0, 5, 5, 1, 1, 1, 16, 0)
                         .get());
    const std::string Accepted = "DATA\r\nOK 0123456789abcdef0123456789abcdef\r\n";
    EXPECT_EQ(write(Theirs.Get(), Accepted.data(), Accepted.size()),
              static_cast<ssize_t>(Accepted.size()));
    Editor.Link.Flush(2000);
    std::string Bytes(4096, '\0');
    const ssize_t Count = read(Theirs.Get(), Bytes.data(), Bytes.size());
    Bytes.resize(Count > 0 ? static_cast<std::size_t>(Count) : 0);
    return Bytes;
}

// A server on the virtual clock, where letting go takes no time, that has heard just these bytes.
struct Listener {
    explicit Listener(const std::string& Bytes, bool HangUp = false) {
        auto [Ours, Theirs] = SocketPair();
        EXPECT_EQ(write(Ours.Get(), Bytes.data(), Bytes.size()),
                  static_cast<ssize_t>(Bytes.size()));
        if (!HangUp) Editor = std::move(Ours);
        Ours.Close();
        Host Hosting(Server, std::make_unique<BusLink>(std::move(Theirs), BusLink::Side::Server),
                     false);
        Server.Home().AdvanceBy(0);
        Ended = Hosting.Finished();
    }
    Descriptor Editor;
    PlayServer Server{
        {.VirtualClock = true, .LogPath = "/dev/null", .OnBox = [](std::string_view) {}}};
    bool Ended = false;
};

TEST(Wire, AConversationThatIsCutOrDamagedAnywhereEndsWithoutHarm) {
    const std::string Whole = SpokenHandOver();
    ASSERT_NE(Whole.find("WriteWaveMemo"), std::string::npos);
    for (std::size_t Length = 0; Length < Whole.size(); ++Length) {
        const std::string Cut = Whole.substr(0, Length);
        const Listener Waiting(Cut);
        ASSERT_FALSE(Waiting.Ended) << Length;
        ASSERT_EQ(Waiting.Server.State().WaveNos, 0) << Length;
        ASSERT_TRUE(Listener(Cut, true).Ended) << Length;
    }
    EXPECT_EQ(Listener(Whole).Server.State().WaveNos, 5);
    for (std::size_t At = 0; At < Whole.size(); ++At) {
        for (const unsigned Damage : {0x01U, 0x20U, 0x80U, 0xFFU}) {
            std::string Damaged = Whole;
            Damaged[At] = static_cast<char>(static_cast<unsigned char>(Damaged[At]) ^ Damage);
            // Taken, refused or given up: the format is one that a hand-over can have.
            const Listener Heard(Damaged);
            const PlayerState& State = Heard.Server.State();
            ASSERT_TRUE(State.WaveNos == 0 || State.FmtBits == 16 || State.FmtBits == 8) << At;
        }
    }
}

TEST(Wire, AFloodIsAnsweredCallByCallWhileThePlayGoesOn) {
    Wired W;
    RawEditor& Editor = W.Begin();
    const PlayerState& State = W.Server.State();
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
    EXPECT_EQ(Editor.Await(Last), "");
    EXPECT_TRUE(W.Server.Home().RunUntil(W.Server.Home().Time().NowNs() + 5 * NsPerSecond,
                                         [&] { return State.PlayRunningState == 0; }));
    EXPECT_GE(State.PlayCurPos, 60) << "not played to its end";
}

TEST(Wire, AnEndRightBehindAnAnswerWakesWhoeverWaits) {
    Wired W;
    RawEditor& Editor = W.Begin();
    const int Waits = Editor.Link.WaitFd();
    Editor.Meanwhile = [&W] {
        if (!W.Hosting) return;
        W.Server.Home().AdvanceBy(0);
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
