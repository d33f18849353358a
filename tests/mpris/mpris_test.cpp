#include "waveplay/mpris/Mpris.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <functional>
#include <future>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "platform/Clocks.h"
#include "tests/support/Fakes.h"
#include "tests/support/PrivateBus.h"
#include "tests/terminal/FakePlayer.h"

namespace Tolvar::Testing {
namespace {

// A remote control on a thread of its own, since it waits for answers; what it is told comes as
// text.
class Remote {
  public:
    Remote() {
        EXPECT_GE(sd_bus_open_user(&Bus), 0);
        EXPECT_GE(sd_bus_match_signal(Bus, nullptr, nullptr, MprisObject::Path, nullptr, nullptr,
                                      OnSignal, this),
                  0);
        // The name comes a while after the object.
        while (sd_bus_get_name_creds(Bus, Name.c_str(), 0, nullptr) < 0) {
        }
    }
    ~Remote() { sd_bus_flush_close_unref(Bus); }
    Remote(const Remote&) = delete;
    Remote& operator=(const Remote&) = delete;

    /// "" or the error's text.
    template <typename... Arguments>
    std::string Call(const char* Member, const char* Types = "", Arguments... Given) {
        sd_bus_error Error = SD_BUS_ERROR_NULL;
        const char* const Interface =
            std::string(Member) == "Quit" ? MprisObject::RootInterface : Player;
        sd_bus_call_method(Bus, Name.c_str(), MprisObject::Path, Interface, Member, &Error, nullptr,
                           Types, Given...);
        return Text(Error);
    }
    template <typename Value>
    std::string Set(const char* Property, const char* Type, Value To) {
        sd_bus_error Error = SD_BUS_ERROR_NULL;
        sd_bus_set_property(Bus, Name.c_str(), MprisObject::Path, Player, Property, &Error, Type,
                            To);
        return Text(Error);
    }
    template <typename Value>
    Value Get(const char* Property, char Type) {
        sd_bus_error Error = SD_BUS_ERROR_NULL;
        Value Found{};
        sd_bus_get_property_trivial(Bus, Name.c_str(), MprisObject::Path, Player, Property, &Error,
                                    Type, &Found);
        EXPECT_EQ(Text(Error), "");
        return Found;
    }
    std::string Status() {
        char* Found = nullptr;
        sd_bus_get_property_string(Bus, Name.c_str(), MprisObject::Path, Player, "PlaybackStatus",
                                   nullptr, &Found);
        const std::string Status = Found == nullptr ? "" : Found;
        free(Found);
        return Status;
    }
    /// The signals that have come until one says so, or the bus is gone.
    std::string ToldUntil(const std::string& Wanted) {
        while (Told.find(Wanted) == std::string::npos) {
            const int Processed = sd_bus_process(Bus, nullptr);
            if (Processed < 0 || (Processed == 0 && sd_bus_wait(Bus, UINT64_MAX) < 0)) break;
        }
        return std::exchange(Told, {});
    }

  private:
    static constexpr const char* Player = MprisObject::PlayerInterface;

    static std::string Text(sd_bus_error& Error) {
        std::string Said = Error.message == nullptr ? "" : Error.message;
        sd_bus_error_free(&Error);
        return Said;
    }
    static int OnSignal(sd_bus_message* Come, void* Self, sd_bus_error*) {
        std::string& Told = static_cast<Remote*>(Self)->Told;
        std::int64_t Position = 0;
        if (sd_bus_message_is_signal(Come, Player, "Seeked") > 0) {
            sd_bus_message_read(Come, "x", &Position);
            Told += "Seeked " + std::to_string(Position) + "\n";
            return 0;
        }
        const char* Property = nullptr;
        sd_bus_message_skip(Come, "s");
        sd_bus_message_enter_container(Come, 'a', "{sv}");
        while (sd_bus_message_enter_container(Come, 'e', "sv") > 0) {
            sd_bus_message_read(Come, "s", &Property);
            Told += Property + std::string("\n");
            sd_bus_message_skip(Come, "v");
            sd_bus_message_exit_container(Come);
        }
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
    bool Quit = false;
    std::optional<Mpris> Object;

    void SetUp() override {
        if (!Bus) GTEST_SKIP() << "there is no dbus-daemon";
        Player.Running = 1;
        Control.emplace(Player, PlayerControl::Facts{100'000, 1000, 1, false, 1.0, 1.0, true});
        Object.emplace(Home, *Control, MprisFacts{"wave", "file:///wave"}, [this] { Quit = true; });
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
        EXPECT_EQ(Held.Status(), "Playing");
        EXPECT_EQ(
            Held.Call("SetPosition", "ox", "/org/tolvar/waveplay/wave", std::int64_t{30'000'000}),
            "");
        EXPECT_EQ(Held.ToldUntil("Seeked"), "Seeked 30000000\n");
        EXPECT_EQ(Held.Call("SetPosition", "ox", "/an/other", std::int64_t{1}), "");
        EXPECT_EQ(
            Held.Call("SetPosition", "ox", "/org/tolvar/waveplay/wave", std::int64_t{100'000'001}),
            "");
        EXPECT_EQ(Held.Call("Seek", "x", std::int64_t{-10'000'000}), "");
        EXPECT_EQ(Held.ToldUntil("Seeked"), "Seeked 20000000\n");
        EXPECT_EQ(Held.Get<std::int64_t>("Position", 'x'), 20'000'000);
        EXPECT_EQ(Held.Call("PlayPause"), "");
        EXPECT_EQ(Held.ToldUntil("Status"), "PlaybackStatus\n");
        EXPECT_EQ(Held.Status(), "Paused");
        EXPECT_EQ(Held.Set("LoopStatus", "s", "Track"), "");
        EXPECT_EQ(Held.Set("Rate", "d", 2.0), "");
        EXPECT_EQ(Held.Get<double>("Rate", 'd'), 2.0);
        EXPECT_EQ(Held.Call("Play"), "");
        EXPECT_EQ(Held.Set("Rate", "d", 0.0), "");  // a pause by another name
        EXPECT_EQ(Held.Call("Stop"), "");
        EXPECT_EQ(Held.Get<std::int64_t>("Position", 'x'), 0);
        EXPECT_EQ(Held.Call("Quit"), "");
    });
    EXPECT_EQ(Player.Calls, "at 30001, at 20001, pause, loop, tempo 2.000, continue, pause, stop");
    EXPECT_TRUE(Quit);
}

TEST_F(RemoteControl, WhatIsRefusedIsSaidToWhoAskedForIt) {
    With([&](Remote& Held) {
        EXPECT_NE(Held.Set("Rate", "d", -1.0), "");
        EXPECT_NE(Held.Set("LoopStatus", "s", "Twice"), "");
        EXPECT_NE(Held.Call("OpenUri", "s", "file:///b"), "");
        Here([&] { Player.Refusal = "the player will not"; });
        EXPECT_EQ(Held.Call("Pause"), "the player will not");
        Here([&] { Player.Gone = true; });
        EXPECT_EQ(Held.Call("Pause"), "the server is gone");
    });
    EXPECT_EQ(Player.Calls, "");
}

TEST_F(RemoteControl, TurnsAreJumpsAndAReverseRunIsToldEverySecond) {
    Player.OnMsgBoxOb(
        [&](std::string_view Msg, std::string_view Ttl) { Control->Report(Msg, Ttl); });
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
        EXPECT_EQ(Held.Call("Pause"), "");
    });
}

TEST_F(RemoteControl, ABusThatGoesAwayIsNoEvent) {
    With([&](Remote& Held) {
        EXPECT_EQ(Held.Status(), "Playing");
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
