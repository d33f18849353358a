#include "waveplay/mpris/Mpris.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <future>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "platform/Clocks.h"
#include "tests/host/Shell.h"
#include "tests/support/Fakes.h"
#include "tests/support/PrivateBus.h"
#include "tests/terminal/FakePlayer.h"

namespace Tolvar::Testing {
namespace {

const std::string Track = "/org/tolvar/waveplay/wave";

// A remote control on a thread of its own, since it waits for answers: commands in the words of
// busctl, and what it is told as text.
class Remote {
  public:
    Remote() {
        EXPECT_GE(sd_bus_open_user(&Bus), 0);
        sd_bus_match_signal(Bus, nullptr, nullptr, MprisObject::Path, nullptr, nullptr, OnSignal,
                            this);
        // The name comes a while after the object.
        while (sd_bus_get_name_creds(Bus, Name.c_str(), 0, nullptr) < 0) {
        }
    }
    ~Remote() { sd_bus_flush_close_unref(Bus); }
    Remote(const Remote&) = delete;
    Remote& operator=(const Remote&) = delete;

    /// What it prints: a value, or why not.
    std::string Do(const std::string& Verb, const std::string& Words) const {
        const std::string Said =
            OutputOf("busctl --user " + Verb + " " + Name + " " + MprisObject::Path + " " +
                     MprisObject::PlayerInterface + " " + Words + " 2>&1");
        return Said.substr(0, Said.find('\n'));
    }
    std::string Call(const std::string& Words) const { return Do("call", Words); }
    std::string Set(const std::string& Words) const { return Do("set-property", Words); }
    std::string Get(const std::string& Property) const { return Do("get-property", Property); }

    /// The signals that have come until one says so, or the bus is gone.
    std::string ToldUntil(const std::string& Wanted) {
        while (Told.find(Wanted) == std::string::npos) {
            const int Processed = sd_bus_process(Bus, nullptr);
            if (Processed < 0 || (Processed == 0 && sd_bus_wait(Bus, UINT64_MAX) < 0)) break;
        }
        return std::exchange(Told, {});
    }

  private:
    static int OnSignal(sd_bus_message* Come, void* Self, sd_bus_error*) {
        std::string& Told = static_cast<Remote*>(Self)->Told;
        std::int64_t Position = 0;
        if (sd_bus_message_is_signal(Come, MprisObject::PlayerInterface, "Seeked") > 0) {
            sd_bus_message_read(Come, "x", &Position);
            Told += "Seeked " + std::to_string(Position) + "\n";
            return 0;
        }
        const char* Property = "";
        sd_bus_message_skip(Come, "s");
        sd_bus_message_enter_container(Come, 'a', "{sv}");
        sd_bus_message_enter_container(Come, 'e', "sv");
        sd_bus_message_read(Come, "s", &Property);  // one at a time changes here
        Told += Property + std::string("\n");
        return 0;
    }

    sd_bus* Bus = nullptr;
    std::string Name = "org.mpris.MediaPlayer2.waveplay.instance" + std::to_string(getpid());
    std::string Told;
};

struct RemoteControl : testing::Test {
    PrivateBus Bus;
    RealClock Time;
    ListLog Journal;
    Apartment Home{Time, Journal};
    FakePlayer Player;
    std::optional<PlayerControl> Control;
    std::optional<Mpris> Object;

    void SetUp() override {
        if (!Bus) GTEST_SKIP() << "there is no dbus-daemon";
        Player.Running = 1;
        Control.emplace(Player, PlayerControl::Facts{100'000, 1000, 1, false, 1.0, 1.0, true});
        Player.OnMsgBoxOb(
            [&](std::string_view Msg, std::string_view Ttl) { Control->Report(Msg, Ttl); });
        Object.emplace(Home, *Control, MprisFacts{"wave", "file:///wave"}, [] {});
    }
    /// From a script: in the apartment, and done when this returns.
    void Here(const Apartment::Handler& Do) {
        std::promise<void> Done;
        Home.Post([&] {
            Do();
            Done.set_value();
        });
        Done.get_future().wait();
    }
    /// Runs Script while the apartment does.
    void With(const std::function<void(Remote&)>& Script) {
        bool Over = false;
        std::thread Away([&] {
            {
                Remote Held;
                Script(Held);
            }
            Home.Post([&Over] { Over = true; });
        });
        Home.RunUntil(Forever, [&Over] { return Over; });
        Away.join();
    }
};

TEST_F(RemoteControl, CommandsReachThePlayerAndChangesAreTold) {
    With([&](Remote& Held) {
        EXPECT_EQ(Held.Get("PlaybackStatus"), "s \"Playing\"");
        EXPECT_EQ(Held.Call("SetPosition ox " + Track + " 30000000"), "");
        EXPECT_EQ(Held.ToldUntil("Seeked"), "Seeked 30000000\n");
        EXPECT_EQ(Held.Call("SetPosition ox /an/other 1"), "");
        EXPECT_EQ(Held.Call("SetPosition ox " + Track + " 100000001"), "");
        EXPECT_EQ(Held.Call("Seek x -- -10000000"), "");
        EXPECT_EQ(Held.ToldUntil("Seeked"), "Seeked 20000000\n");
        EXPECT_EQ(Held.Get("Position"), "x 20000000");
        EXPECT_EQ(Held.Call("PlayPause"), "");
        EXPECT_EQ(Held.ToldUntil("Status"), "PlaybackStatus\n");
        EXPECT_EQ(Held.Get("PlaybackStatus"), "s \"Paused\"");
        EXPECT_EQ(Held.Set("LoopStatus s Track"), "");
        EXPECT_EQ(Held.ToldUntil("Status"), "LoopStatus\n");
        EXPECT_EQ(Held.Set("Rate d 2"), "");
        EXPECT_EQ(Held.ToldUntil("Rate"), "Rate\n");
        EXPECT_EQ(Held.Get("Rate"), "d 2");
        EXPECT_EQ(Held.Call("Play"), "");
        EXPECT_EQ(Held.Set("Rate d 0"), "");  // a pause by another name
        EXPECT_EQ(Held.Call("Stop"), "");
        EXPECT_EQ(Held.Get("Position"), "x 0");
    });
    EXPECT_EQ(Player.Calls, "at 30001, at 20001, pause, loop, tempo 2.000, continue, pause, stop");
}

TEST_F(RemoteControl, WhatIsRefusedIsSaidToWhoAskedForIt) {
    With([&](Remote& Held) {
        EXPECT_NE(Held.Set("Rate d -- -1"), "");
        EXPECT_NE(Held.Set("LoopStatus s Twice"), "");
        EXPECT_NE(Held.Call("OpenUri s file:///b"), "");
        Here([&] { Player.Refusal = "the player will not"; });
        EXPECT_EQ(Held.Call("Pause"), "Call failed: the player will not");
        Here([&] { Player.Gone = true; });
        EXPECT_EQ(Held.Call("Pause"), "Call failed: the server is gone");
    });
    EXPECT_EQ(Player.Calls, "");
}

TEST_F(RemoteControl, TurnsAreJumpsAndAReverseRunIsToldEverySecond) {
    Player.Position = 50'000;
    With([&](Remote& Held) {
        Here([&] { Control->UTurn(); });
        EXPECT_EQ(Held.ToldUntil("Seeked"), "Seeked 49999000\n");
        Here([&] { Player.Advance(1'000); });
        EXPECT_EQ(Held.ToldUntil("Seeked"), "Seeked 48999000\n");
        Here([&] {
            Player.Position = 100'000;
            Player.Report("Playing Loop 1");
        });
        EXPECT_EQ(Held.ToldUntil("Seeked"), "Seeked 99999000\n");
        Here([&] { Control->Pause(); });
    });
}

TEST_F(RemoteControl, ABusThatGoesAwayIsNoEvent) {
    With([&](Remote& Held) {
        EXPECT_EQ(Held.Get("PlaybackStatus"), "s \"Playing\"");
        Bus.End();
        Held.ToldUntil("the end");
    });
    Control->Pause();
    Control->Play();
    Home.AdvanceBy(0);
    EXPECT_TRUE(Journal.Lines.empty());
    Object.reset();
    Object.emplace(Home, *Control, MprisFacts{}, [] {});
    EXPECT_EQ(Player.Calls, "pause, continue");
}

TEST(FileUrl, IsAbsoluteAndEscaped) {
    EXPECT_EQ(FileUrl("/a/../b c/\xc3\xa4#1.wav"), "file:///b%20c/%C3%A4%231.wav");
    EXPECT_TRUE(FileUrl("x").starts_with("file:///"));
}

}  // namespace
}  // namespace Tolvar::Testing
