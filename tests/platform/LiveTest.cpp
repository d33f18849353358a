#include <gtest/gtest.h>

#include <cerrno>
#include <deque>
#include <functional>
#include <random>

#include "platform/LoopingVoice.h"
#include "platform/QueueVoice.h"
#include "tests/platform/CardRig.h"

namespace Tolvar::Testing {
namespace {

using ::testing::IsEmpty;

/// A device of 8000 Hz mono that plays what it holds as the clock goes, and can misbehave.
struct FakeDevice : OutputDevice {
    VirtualClock& Time;
    FrameTimer Pace{8000};
    std::deque<std::int16_t> Queue;
    Samples Heard;
    std::int64_t Began = 0;  // frames heard when it last began
    bool IsOpen = false, Sounding = false, RanDry = false;
    int Opens = 0, Calls = 0;
    std::size_t Room = 480;
    int GoneFrom = 0, GoneTo = 0;   // calls that fail
    long Lie = -1;                  // what Held answers instead
    std::function<void()> InWrite;  // while Write is under way
    bool CanTakeBack = true;

    explicit FakeDevice(VirtualClock& Clock) : Time(Clock) {}

    bool Fails() {
        ++Calls;
        return Calls >= GoneFrom && Calls < GoneTo;
    }
    void Settle() {
        while (Sounding && Began + std::ssize(Heard) < Pace.FramesAt(Time.NowNs())) {
            if (Queue.empty()) {
                Sounding = false;
                RanDry = true;
                return;
            }
            Heard.push_back(Queue.front());
            Queue.pop_front();
        }
    }
    int Open(StreamFormat& Wanted, int) override {
        if (IsOpen) throw std::logic_error("opened twice");
        if (Fails()) return -ENODEV;
        ++Opens;
        Wanted = {1, 8000};
        IsOpen = true;
        Sounding = RanDry = false;
        Queue.clear();
        return 0;
    }
    long Write(std::span<const std::int16_t> Some) override {
        if (!IsOpen) throw std::logic_error("written while closed");
        if (InWrite) std::exchange(InWrite, nullptr)();
        Settle();
        if (Fails()) return -EIO;
        if (std::exchange(RanDry, false)) return -EPIPE;
        const std::size_t Count = std::min(Some.size(), Room - std::min(Room, Queue.size()));
        Queue.insert(Queue.end(), Some.begin(), Some.begin() + static_cast<long>(Count));
        if (!Sounding && Count > 0) {
            Sounding = true;
            Began = -std::ssize(Heard);
            Pace.Start(Time.NowNs(), 0);
        }
        return static_cast<long>(Count);
    }
    long Held() override {
        Settle();
        if (Fails()) return -EIO;
        if (std::exchange(RanDry, false)) return -EPIPE;
        return Lie >= 0 ? Lie : std::ssize(Queue);
    }
    long TakeBack(long Keep, long Least, long Most) override {
        Settle();
        const long Frames = std::ssize(Queue) - Keep;
        if (!CanTakeBack || Frames < Least || Frames > Most) return 0;
        Queue.erase(Queue.end() - Frames, Queue.end());
        return Frames;
    }
    long Drop() override {
        Settle();
        const long Dropped = std::ssize(Queue);
        Queue.clear();
        Sounding = RanDry = false;
        return Dropped;
    }
    void Close() override {
        Settle();
        IsOpen = Sounding = false;
        Queue.clear();
    }
    std::string TextOf(int Error) const override { return "error " + std::to_string(Error); }
};

struct LiveTest : ::testing::Test {
    VirtualClock Time;
    ListLog Journal;
    Apartment Home{Time, Journal};
    FakeDevice* Device = nullptr;
    std::unique_ptr<OutputDevice> Unused;  // Device, until it is used
    LiveOutput* Live = nullptr;
    std::unique_ptr<SoundCard> Card;
    std::int64_t TurnNs = 0;

    LiveTest() { NewDevice(); }
    void NewDevice() { Unused.reset(Device = new FakeDevice(Time)); }
    void Use(LiveOptions Options) {
        auto Made = std::make_unique<LiveOutput>(std::move(Unused), Time, Options,
                                                 LiveOutput::Driving::ByHand);
        Live = Made.get();
        Card = std::make_unique<SoundCard>(Home, CardOutput{nullptr, std::move(Made)}, SinkRate{},
                                           Journal);
    }
    void Turn() {
        for (int Round = 0; Round < 4 && (TurnNs = Live->Turn()) == 0; ++Round) {
        }
    }
    void Pass(std::int64_t Ms) {
        for (; Ms > 0; --Ms) {
            Turn();
            Home.AdvanceBy(1);
        }
        Device->Settle();
    }
};

Samples Cycle(int Frames) {
    return Numbers(1, Frames);
}

// The numbers that a buffer of Size frames plays from its frame From on.
Samples Following(std::int64_t From, std::size_t Count, int Size) {
    Samples Made;
    for (std::size_t I = 0; I < Count; ++I)
        Made.push_back(static_cast<std::int16_t>((From + static_cast<std::int64_t>(I)) % Size + 1));
    return Made;
}

TEST_F(LiveTest, WhatWasNotHeardBeforeAStopIsHeardNextAndThePositionIsTheListeners) {
    Use({.LatencyMs = 60, .FadeMs = 0});
    constexpr int Size = 5000;
    LoopingVoice Voice(*Card, {1, 8000}, Size * 2);
    Voice.Write(0, Size * 2, Cycle(Size).data());
    std::mt19937 Seeded(7);
    const auto Random = [&](int Below) {
        return std::uniform_int_distribution(0, Below - 1)(Seeded);
    };
    std::int64_t LastSeen = 0;
    for (int Round = 0; Round < 40; ++Round) {
        Voice.Play();
        for (int Left = Random(200); Left > 0; --Left) {
            Pass(1);
            const std::int64_t Seen = Voice.FramesHeard();
            EXPECT_GE(Seen, LastSeen);
            EXPECT_LE(Seen, std::ssize(Device->Heard) + 8);
            LastSeen = Seen;
        }
        Voice.Stop();
        Device->Settle();
        LastSeen = Voice.FramesHeard();
        ASSERT_EQ(LastSeen, std::ssize(Device->Heard));
        EXPECT_TRUE(Device->Queue.empty());
        Pass(Random(500));
    }
    EXPECT_GT(LastSeen, Size * 2);
    EXPECT_EQ(Device->Heard, Following(0, Device->Heard.size(), Size));
    Pass(400);
    EXPECT_FALSE(Device->IsOpen);
    EXPECT_EQ(TurnNs, Forever);
    EXPECT_THAT(Journal.Lines, IsEmpty());
}

TEST_F(LiveTest, HeadersAreHeardWithoutAGapAndAResetDropsWhatIsHeld) {
    Use({.LatencyMs = 60, .FadeMs = 0});
    QueueVoice Voice(*Card, {1, 8000});
    Samples First = Numbers(1, 900), Second = Numbers(901, 500), Third = Numbers(5000, 300);
    WAVEHDR A = HeaderOf(First), B = HeaderOf(Second), C = HeaderOf(Third);
    Voice.Queue(A);
    Pass(70);  // all of it has been read ahead, and is not heard yet
    Voice.Queue(B);
    Pass(30);
    Voice.Pause();
    const std::int64_t At = Voice.FramesHeard();
    EXPECT_EQ(At, std::ssize(Device->Heard));
    Pass(100);
    EXPECT_EQ(Voice.FramesHeard(), At);
    Voice.Restart();
    Pass(200);
    EXPECT_EQ(Device->Heard, Numbers(1, 1400));
    EXPECT_EQ(Voice.FramesHeard(), 1400);
    EXPECT_TRUE(Voice.IsEmpty());
    EXPECT_EQ(TurnNs, Forever);  // dry, and nobody is woken for it

    Voice.Queue(C);
    Pass(20);
    Voice.Reset();
    const auto Played = std::ssize(Device->Heard) - 1400;
    EXPECT_GT(Played, 100);
    EXPECT_LT(Played, 200);
    Pass(50);
    EXPECT_EQ(std::ssize(Device->Heard) - 1400, Played);
    EXPECT_EQ(Voice.FramesHeard(), 0);
}

TEST_F(LiveTest, AWaveOfAnotherRateIsHeardToItsLastFrame) {
    for (const int Hz : {11025, 22050, 44100, 48000, 96000, 441}) {
        for (int Frames = Hz / 50; Frames < Hz / 50 + 7; ++Frames) {
            NewDevice();
            Use({.LatencyMs = 60, .FadeMs = 0});
            QueueVoice Voice(*Card, {1, Hz});
            Samples Wave(static_cast<std::size_t>(Frames), 1000);
            WAVEHDR Header = HeaderOf(Wave);
            Voice.Queue(Header);
            Pass(400);
            EXPECT_EQ(Voice.FramesHeard(), Frames) << Hz;
            EXPECT_EQ(TurnNs, Forever) << Hz;
            EXPECT_NEAR(static_cast<double>(Device->Heard.size()), 8000.0 * Frames / Hz, 3);
        }
    }
}

TEST_F(LiveTest, SignalsComeWhenTheListenerIsThere) {
    Use({.LatencyMs = 60, .FadeMs = 0});
    LoopingVoice Voice(*Card, {1, 8000}, 1600);
    Voice.Write(0, 1600, Cycle(800).data());
    std::vector<std::int64_t> Late;
    Voice.SetNotifications({{800, [&] { Late.push_back(std::ssize(Device->Heard) % 800 - 400); }}});
    Voice.Play();
    Home.AdvanceBy(30);  // the thread has not come to it yet
    Pass(1000);
    ASSERT_EQ(Late.size(), 10U);
    for (const std::int64_t Each : Late) {
        EXPECT_GE(Each, -8);
        EXPECT_LE(Each, 24);
    }
    Voice.Stop();
}

TEST_F(LiveTest, AThreadThatComesLateCostsTimeButNoFrame) {
    Use({.LatencyMs = 60, .FadeMs = 0});
    LoopingVoice Voice(*Card, {1, 8000}, 2000);
    Voice.Write(0, 2000, Cycle(1000).data());
    Voice.Play();
    for (int Round = 0; Round < 5; ++Round) {
        Pass(100);
        Home.AdvanceBy(150);
    }
    Pass(100);
    Voice.Stop();
    EXPECT_EQ(Voice.FramesHeard(), std::ssize(Device->Heard));
    EXPECT_LT(Device->Heard.size(), 8000U);
    for (int Change = 0; Change < 20; ++Change) {
        Voice.Play();
        Pass(20);
        Voice.SetFrequency(8000);  // sets off anew, and loses nothing
        Pass(70);
        Voice.Stop();
    }
    EXPECT_EQ(Device->Heard, Following(0, Device->Heard.size(), 1000));
    Card->NowNs();
    EXPECT_THAT(Journal.Lines, ElementsAre("the sound device ran dry, times: 5"));
}

TEST_F(LiveTest, AnyCallMayFailAndThePlayGoesOnInTimeAndIsHeardAgain) {
    for (int Gone = 1; Gone < 40; ++Gone) {
        NewDevice();
        Use({.LatencyMs = 60, .FadeMs = 0});
        Journal.Lines.clear();
        Device->GoneFrom = Gone;
        Device->GoneTo = Gone + 3;
        LoopingVoice Voice(*Card, {1, 8000}, 40000);
        Voice.Write(0, 40000, Cycle(20000).data());
        Voice.Play();
        const std::int64_t StartNs = Time.NowNs();
        std::int64_t Last = 0;
        for (int Step = 0; Step < 450; ++Step) {
            Pass(10);
            const std::int64_t Seen = Voice.FramesHeard();
            ASSERT_GE(Seen, Last) << Gone;
            const std::int64_t ByClock = (Time.NowNs() - StartNs) * 8 / NsPerMs;
            ASSERT_NEAR(static_cast<double>(Seen), static_cast<double>(ByClock), 8.0 * 90) << Gone;
            Last = Seen;
        }
        Voice.Stop();
        ASSERT_EQ(Journal.Lines.size(), 2U) << Gone;
        EXPECT_THAT(Journal.Lines[0], HasSubstr("goes on in silence"));
        EXPECT_EQ(Journal.Lines[1], "the sound device is back");
        const std::int64_t Heard = Device->Heard.back();
        EXPECT_EQ(Heard, Voice.FramesHeard() % 20000) << Gone;
    }
}

TEST_F(LiveTest, ADeviceThatLiesOrBlocksLeavesTimeAsItIs) {
    for (const long Lie : {0L, 1'000'000L, 480L}) {
        NewDevice();
        Device->Lie = Lie;
        Device->Room = 1'000'000;  // and takes everything at once
        Use({.LatencyMs = 60, .FadeMs = 0});
        LoopingVoice Voice(*Card, {1, 8000}, 16000);
        Voice.Play();
        Pass(8000);
        // One that seems to stand still is found out after two seconds, which are lost.
        EXPECT_NEAR(static_cast<double>(Voice.FramesHeard()), 64000, Lie == 1'000'000 ? 16200 : 600)
            << Lie;
        EXPECT_LT(Device->Queue.size(), 4000U);
        Voice.Stop();
    }
    NewDevice();
    Use({.LatencyMs = 60, .FadeMs = 0});
    LoopingVoice Voice(*Card, {1, 8000}, 16000);
    Voice.Play();
    Pass(500);
    std::int64_t During = 0;
    Device->InWrite = [&] {
        Time.WaitUntil(Time.NowNs() + 5 * NsPerSecond, {});
        During = Voice.FramesHeard();
        Time.WaitUntil(Time.NowNs() + NsPerSecond, {});
        EXPECT_EQ(Voice.FramesHeard(), During + 8000);
    };
    Pass(2000);
    EXPECT_GE(During, 4000);
    EXPECT_GT(Voice.FramesHeard(), During + 8000 + 15000);
    Card->NowNs();
    EXPECT_EQ(Journal.Lines.back(), "the sound device is back");
    Voice.Stop();
}

TEST_F(LiveTest, EdgesAreRampsThatCostNoFrame) {
    Use({.LatencyMs = 60, .FadeMs = 5});
    LoopingVoice Voice(*Card, {1, 8000}, 16000);
    Voice.Write(0, 16000, Samples(8000, 10000).data());
    Voice.Play();
    Pass(100);
    Voice.Stop();
    const std::int64_t Counted = Voice.FramesHeard();
    EXPECT_EQ(Counted, std::ssize(Device->Heard) + 16);  // as good as heard
    Pass(100);
    Samples& Heard = Device->Heard;
    // Up, level, then the ramp down, which is not counted.
    for (std::size_t I = 1; I < 40; ++I)
        EXPECT_GT(Heard[I], Heard[I - 1]);
    EXPECT_EQ(Heard[40], 10000);
    ASSERT_EQ(std::ssize(Heard), Counted + 40);
    for (std::size_t I = Heard.size() - 40; I < Heard.size(); ++I)
        EXPECT_LT(Heard[I], Heard[I - 1]);
    EXPECT_LT(Heard.back(), 500);

    Voice.Play();
    Pass(50);
    Device->InWrite = [&] { Device->RanDry = true; };  // the ramp comes too late
    Voice.Stop();
    EXPECT_EQ(Voice.FramesHeard(), std::ssize(Heard) - 40 + 16);
    Pass(100);
    Heard.resize(static_cast<std::size_t>(Counted) + 40);
    const std::int64_t Before = Voice.FramesHeard();

    Device->CanTakeBack = false;
    Voice.Play();
    Pass(50);
    Voice.Stop();
    EXPECT_TRUE(Device->Queue.empty());
    EXPECT_EQ(Voice.FramesHeard() - Before, std::ssize(Heard) - Counted - 40);
    EXPECT_THAT(Journal.Lines, IsEmpty());
}

}  // namespace
}  // namespace Tolvar::Testing
