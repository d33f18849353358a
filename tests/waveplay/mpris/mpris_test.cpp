#include "waveplay/mpris/Mpris.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "platform/posix/RealClock.h"
#include "tests/support/Fakes.h"
#include "tests/support/PrivateBus.h"
#include "tests/waveplay/terminal/FakePlayer.h"

namespace Tolvar::Testing {
namespace {

const std::string Track = "/org/tolvar/waveplay/wave";

/// A player on a bus, and a remote control that speaks in the words of busctl and listens.
struct RemoteControl : testing::Test {
    PrivateBus Bus;
    RealClock Time;
    ListLog Journal;
    Apartment Home{Time, Journal};
    FakePlayer Player;
    PlayerControl Control{Player, {100'000, 1000, 1, false, 1.0, 1.0, true}};
    std::optional<Mpris> Object;
    sd_bus* Ears = nullptr;
    std::string Told;
    const std::string Name = "org.mpris.MediaPlayer2.waveplay.instance" + std::to_string(getpid());

    void SetUp() override {
        if (!Bus) GTEST_SKIP() << "there is no dbus-daemon";
        Control.Play();
        Object.emplace(Home, Control, MprisFacts{"wave", "file:///wave"}, [] {});
        ASSERT_GE(sd_bus_open_user(&Ears), 0);
        sd_bus_match_signal(Ears, nullptr, nullptr, MprisObject::Path, nullptr, nullptr, OnSignal,
                            &Told);
        // The name comes a while after the object.
        for (int Ms = 0; Ms < 5000 && sd_bus_get_name_creds(Ears, Name.c_str(), 0, nullptr) < 0;
             ++Ms)
            Home.AdvanceBy(1);
        Home.Watch({sd_bus_get_fd(Ears)}, [this] {
            while (sd_bus_process(Ears, nullptr) > 0) {
            }
        });
    }
    void TearDown() override { sd_bus_flush_close_unref(Ears); }

    static int OnSignal(sd_bus_message* Come, void* Told, sd_bus_error*) {
        std::int64_t Position = 0;
        const char* Property = "";
        std::string Says;
        if (sd_bus_message_has_signature(Come, "x") > 0) {
            sd_bus_message_read(Come, "x", &Position);
            Says = "Seeked " + std::to_string(Position);
        } else {
            sd_bus_message_skip(Come, "s");
            sd_bus_message_enter_container(Come, 'a', "{sv}");
            sd_bus_message_enter_container(Come, 'e', "sv");
            sd_bus_message_read(Come, "s", &Property);  // one at a time changes here
            Says = Property;
        }
        *static_cast<std::string*>(Told) += Says + "\n";
        return 0;
    }

    /// What it prints: a value, or why not.
    std::string Do(const std::string& Verb, const std::string& Words) {
        std::optional<std::string> Said;
        std::thread Away([&] {
            const std::string Output =
                OutputOf("busctl --user " + Verb + " " + Name + " " + MprisObject::Path + " " +
                         MprisObject::PlayerInterface + " " + Words + " 2>&1");
            Home.Post([&Said, Output] { Said = Output.substr(0, Output.find('\n')); });
        });
        Home.RunUntil(Forever, [&Said] { return Said.has_value(); });
        Away.join();
        return *Said;
    }
    std::string Call(const std::string& Words) { return Do("call", Words); }
    std::string Set(const std::string& Words) { return Do("set-property", Words); }
    std::string Get(const std::string& Property) { return Do("get-property", Property); }

    /// The signals that have come until one says so.
    std::string ToldUntil(const std::string& Wanted) {
        const auto Come = [&] { return Told.find(Wanted) != std::string::npos; };
        EXPECT_TRUE(Home.RunUntil(Time.NowNs() + 5'000'000'000, Come)) << Wanted << " is not told";
        return std::exchange(Told, {});
    }
};

TEST_F(RemoteControl, CommandsReachThePlayerAndChangesAreTold) {
    EXPECT_EQ(Get("PlaybackStatus"), "s \"Playing\"");
    EXPECT_EQ(Call("SetPosition ox " + Track + " 30000000"), "");
    EXPECT_EQ(ToldUntil("Seeked"), "Seeked 30000000\n");
    EXPECT_EQ(Call("SetPosition ox /an/other 1"), "");
    EXPECT_EQ(Call("SetPosition ox " + Track + " 100000001"), "");
    EXPECT_EQ(Call("Seek x -- -10000000"), "");
    EXPECT_EQ(ToldUntil("Seeked"), "Seeked 20000000\n");
    EXPECT_EQ(Get("Position"), "x 20000000");
    EXPECT_EQ(Call("PlayPause"), "");
    EXPECT_EQ(ToldUntil("Status"), "PlaybackStatus\n");
    EXPECT_EQ(Get("PlaybackStatus"), "s \"Paused\"");
    EXPECT_EQ(Set("LoopStatus s Track"), "");
    EXPECT_EQ(ToldUntil("Status"), "LoopStatus\n");
    EXPECT_EQ(Set("Rate d 2"), "");
    EXPECT_EQ(ToldUntil("Rate"), "Rate\n");
    EXPECT_EQ(Get("Rate"), "d 2");
    EXPECT_EQ(Call("Play"), "");
    EXPECT_EQ(Set("Rate d 0"), "");  // a pause by another name
    EXPECT_EQ(Call("Stop"), "");
    EXPECT_EQ(Call("Pause"), "");
    EXPECT_EQ(Get("Position"), "x 0");
    EXPECT_EQ(Player.Calls,
              "again, at 30001, at 20001, pause, loop, tempo 2.000, continue, pause, stop");
}

TEST_F(RemoteControl, WhatIsRefusedIsSaidToWhoAskedForIt) {
    EXPECT_NE(Set("Rate d -- -1"), "");
    EXPECT_NE(Set("LoopStatus s Twice"), "");
    EXPECT_NE(Call("OpenUri s file:///b"), "");
    Player.Refusal = "the player will not";
    EXPECT_EQ(Call("Pause"), "Call failed: the player will not");
    Player.Gone = true;
    EXPECT_EQ(Call("Pause"), "Call failed: the server is gone");
    EXPECT_EQ(Player.Calls, "again");
}

TEST_F(RemoteControl, TurnsAreJumpsAndAReverseRunIsToldEverySecond) {
    Player.Position = 50'000;
    Control.UTurn();
    EXPECT_EQ(ToldUntil("Seeked"), "Seeked 49999000\n");
    Player.Advance(1'000);
    EXPECT_EQ(ToldUntil("Seeked"), "Seeked 48999000\n");
    Player.Position = 100'000;
    Control.Report("S2", "Playing Loop 1");
    EXPECT_EQ(ToldUntil("Seeked"), "Seeked 99999000\n");
}

TEST(FileUrl, IsAbsoluteAndEscaped) {
    EXPECT_EQ(FileUrl("/a/../b c/\xc3\xa4#1.wav"), "file:///b%20c/%C3%A4%231.wav");
    EXPECT_TRUE(FileUrl("x").starts_with("file:///"));
}

}  // namespace
}  // namespace Tolvar::Testing
