#include <cerrno>
#include <climits>
#include <deque>
#include <optional>
#include <random>

#include "card/voices/LoopingVoice.h"
#include "card/voices/QueueVoice.h"
#include "tests/card/CardRig.h"

namespace Tolvar::Testing {
namespace {

/// A device of 8000 Hz mono that plays what it holds as the clock goes, and can misbehave.
struct FakeDevice : OutputDevice {
    VirtualClock& Time;
    FrameTimer Pace{8000};
    std::deque<std::int16_t> Queue;
    Samples Heard;
    bool IsOpen = false, Sounding = false, RanDry = false;
    std::size_t Room = 480;
    int Calls = 0, GoneFrom = INT_MAX;  // the first of three calls that fail
    long Lie = -1;                      // what Held answers instead
    std::int64_t OpenTakesNs = 0;
    std::function<void()> InWrite;  // while Write is under way
    bool CanTakeBack = true;

    explicit FakeDevice(VirtualClock& Clock) : Time(Clock) {}

    bool Fails() { return ++Calls >= GoneFrom && Calls - GoneFrom < 3; }
    void Settle() {
        while (Sounding && std::ssize(Heard) < Pace.FramesAt(Time.NowNs())) {
            RanDry = Queue.empty();
            Sounding = !RanDry;
            if (RanDry) return;
            Heard.push_back(Queue.front());
            Queue.pop_front();
        }
    }
    int Open(StreamFormat& Wanted, int) override {
        if (IsOpen) throw std::logic_error("opened twice");
        Time.WaitUntil(Time.NowNs() + OpenTakesNs, {});
        if (Fails()) return -ENODEV;
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
            Pace.Start(Time.NowNs(), std::ssize(Heard));
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
        Drop();
        IsOpen = false;
    }
    std::string TextOf(int Error) const override { return "error " + std::to_string(Error); }
};

struct LiveTest : Test {
    VirtualClock Time;
    ListLog Journal;
    Apartment Home{Time, Journal};
    FakeDevice* Device = nullptr;  // the card's
    LiveOutput* Live = nullptr;
    std::unique_ptr<SoundCard> Card;
    std::optional<LoopingVoice> Voice;
    std::int64_t TurnNs = 0;

    LiveTest() { Use(0); }
    void Use(int FadeMs, int LatencyMs = 60) {
        Device = new FakeDevice(Time);
        auto Made = std::make_unique<LiveOutput>(
            std::unique_ptr<OutputDevice>(Device), Time,
            LiveOptions{.LatencyMs = LatencyMs, .FadeMs = FadeMs}, LiveOutput::Driving::ByHand);
        Live = Made.get();
        Card = std::make_unique<SoundCard>(Home, CardOutput{nullptr, std::move(Made)}, SinkRate{},
                                           Journal);
    }
    /// A voice on a new card, whose buffer holds these.
    void Loop(const Samples& Content, int FadeMs = 0, int LatencyMs = 60) {
        Voice.reset();
        Use(FadeMs, LatencyMs);
        const auto Bytes = static_cast<std::int32_t>(Content.size()) * 2;
        Voice.emplace(*Card, StreamFormat{1, 8000}, Bytes);
        Voice->Write(0, Bytes, Content.data());
    }
    /// What was asked for before wakes the thread up, and then what it asks for itself.
    void Pass(std::int64_t Ms) {
        std::int64_t DueNs = 0;
        for (; Ms > 0; --Ms) {
            for (int Round = 0; Round < 4 && Time.NowNs() >= DueNs; ++Round) {
                TurnNs = Live->Turn();
                DueNs = TurnNs == Forever ? Forever : Time.NowNs() + TurnNs;
            }
            Home.AdvanceBy(1);
        }
        Device->Settle();
    }
    std::int64_t HeardSoFar() const {
        Device->Settle();
        return std::ssize(Device->Heard);
    }
    /// That a buffer of the numbers from 1 to Size was heard again and again.
    void ExpectEachFrameOnce(std::int64_t Size) const {
        for (std::int64_t I = 0; I < HeardSoFar(); ++I)
            ASSERT_EQ(Device->Heard.begin()[I], I % Size + 1) << "frame " << I;
    }
};

TEST_F(LiveTest, WhatWasNotHeardBeforeAStopIsHeardNextAndThePositionIsTheListeners) {
    Loop(Numbers(1, 5000));
    std::mt19937 Random(7);
    std::int64_t LastSeen = 0;
    for (int Round = 0; Round < 40; ++Round) {
        Voice->Play();
        for (auto Left = Random() % 200; Left > 0; --Left) {
            Pass(1);
            if (Random() % 50 == 0) Voice->SetFrequency(8000);  // sets off anew, and loses nothing
            const std::int64_t Seen = Voice->FramesHeard();
            EXPECT_GE(Seen, LastSeen);
            EXPECT_LE(Seen, HeardSoFar() + 8);
            LastSeen = Seen;
        }
        Voice->Stop();
        Device->Settle();
        LastSeen = Voice->FramesHeard();
        ASSERT_EQ(LastSeen, HeardSoFar());
        EXPECT_TRUE(Device->Queue.empty());
        Pass(static_cast<std::int64_t>(Random() % 500));
    }
    EXPECT_GT(LastSeen, 10000);
    ExpectEachFrameOnce(5000);
    Pass(400);
    EXPECT_FALSE(Device->IsOpen);
    EXPECT_EQ(TurnNs, Forever);
    EXPECT_THAT(Journal.Lines, IsEmpty());
}

TEST_F(LiveTest, HeadersAreHeardWithoutAGapAndAResetDropsWhatIsHeld) {
    QueueVoice Player(*Card, {1, 8000});
    const Samples First = Numbers(1, 900), Second = Numbers(901, 500), Third = Numbers(5000, 300);
    WAVEHDR A = HeaderOf(First), B = HeaderOf(Second), C = HeaderOf(Third);
    Player.Queue(A);
    Pass(70);  // all of it has been read ahead, and is not heard yet
    Player.Queue(B);
    Pass(30);
    Player.Pause();
    Pass(100);
    EXPECT_EQ(Player.FramesHeard(), HeardSoFar());
    Player.Restart();
    Pass(200);
    EXPECT_EQ(Device->Heard, Numbers(1, 1400));
    EXPECT_EQ(Player.FramesHeard(), 1400);
    EXPECT_TRUE(Player.IsEmpty());
    EXPECT_EQ(TurnNs, Forever);  // dry, and nobody is woken for it

    Player.Queue(C);
    Pass(20);
    Player.Reset();
    Pass(50);
    EXPECT_NEAR(static_cast<double>(HeardSoFar()), 1550, 50);
    EXPECT_EQ(Player.FramesHeard(), 0);
}

TEST_F(LiveTest, AWaveOfAnotherRateIsHeardToItsLastFrame) {
    for (const int Hz : {11025, 22050, 44100, 48000, 96000, 441}) {
        for (int Frames = Hz / 50; Frames < Hz / 50 + 7; ++Frames) {
            Use(0);
            QueueVoice Player(*Card, {1, Hz});
            const Samples Wave(static_cast<std::size_t>(Frames), 1000);
            WAVEHDR Header = HeaderOf(Wave);
            Player.Queue(Header);
            Pass(400);
            EXPECT_EQ(Player.FramesHeard(), Frames) << Hz;
            EXPECT_EQ(TurnNs, Forever) << Hz;
            EXPECT_NEAR(static_cast<double>(HeardSoFar()), 8000.0 * Frames / Hz, 3);
        }
    }
}

TEST_F(LiveTest, SignalsComeWhenTheListenerIsThere) {
    Loop(Numbers(1, 800));
    std::vector<std::int64_t> Late;
    Voice->SetNotifications({{800, [&] { Late.push_back(HeardSoFar() % 800 - 400); }}});
    Voice->Play();
    Home.AdvanceBy(30);  // the thread has not come to it yet
    Pass(1000);
    ASSERT_EQ(Late.size(), 10U);
    EXPECT_LE(std::exchange(Late[0], 0), 8 * 30);
    EXPECT_THAT(Late, Each(AllOf(Ge(-8), Le(24))));
    Voice->Stop();
}

TEST_F(LiveTest, AThreadThatComesLateCostsTimeButNoFrame) {
    Loop(Numbers(1, 1000));
    Voice->Play();
    for (int Round = 0; Round < 5; ++Round) {
        Pass(100);
        Home.AdvanceBy(150);
    }
    Pass(100);
    Voice->Stop();
    EXPECT_EQ(Voice->FramesHeard(), HeardSoFar());
    EXPECT_LT(HeardSoFar(), 8000);
    ExpectEachFrameOnce(1000);
    Card->NowNs();
    EXPECT_THAT(Journal.Lines, ElementsAre("the sound device ran dry, times: 5"));
}

TEST_F(LiveTest, AnyCallMayFailAndThePlayGoesOnInTimeAndIsHeardAgain) {
    for (int Gone = 1; Gone < 40; ++Gone) {
        SCOPED_TRACE(Gone);
        Loop(Numbers(1, 20000));
        Journal.Lines.clear();
        Device->GoneFrom = Gone;
        Voice->Play();
        std::int64_t Last = 0;
        for (int Ms = 10; Ms <= 4500; Ms += 10) {
            Pass(10);
            const std::int64_t Seen = Voice->FramesHeard();
            ASSERT_GE(Seen, Last);
            ASSERT_NEAR(static_cast<double>(Seen), 8.0 * Ms, 8.0 * 90);
            Last = Seen;
        }
        Voice->Stop();
        EXPECT_THAT(Journal.Lines,
                    ElementsAre(HasSubstr("goes on in silence"), "the sound device is back"));
        EXPECT_EQ(Device->Heard.back(), Voice->FramesHeard() % 20000);
    }
}

TEST_F(LiveTest, WhatTheClockHasPassedWhileADeviceWasMissingIsNotHeardLate) {
    QueueVoice Player(*Card, {1, 8000});
    Samples Waves[] = {Numbers(1, 400), Numbers(401, 400), Numbers(801, 16000)};
    WAVEHDR Headers[] = {HeaderOf(Waves[0]), HeaderOf(Waves[1]), HeaderOf(Waves[2])};
    Device->GoneFrom = 1;
    Player.Queue(Headers[0]);
    Pass(200);
    EXPECT_TRUE(Player.IsEmpty());
    Device->GoneFrom = INT_MAX;
    Device->OpenTakesNs = 100 * NsPerMs;  // the next wave is over before
    Player.Queue(Headers[1]);
    Player.Queue(Headers[2]);
    Pass(5000);
    EXPECT_TRUE(Player.IsEmpty());
    EXPECT_EQ(Device->Heard, Numbers(1201, 15600));
}

TEST_F(LiveTest, ADeviceMayHoldLessThanWasAskedForAndBeFasterThanItsName) {
    for (const int Ms : {20, 60, 170}) {
        for (const auto& [LatencyMs, Hz] :
             {std::pair(60, 8000), {60, 8110}, {200, 8000}, {500, 8000}}) {
            Loop(Numbers(1, 8000), 0, LatencyMs);
            Device->Room = static_cast<std::size_t>(8 * Ms);
            Device->Pace = FrameTimer(Hz);
            Voice->Play();
            Pass(10'000);
            EXPECT_EQ(HeardSoFar(), 10 * Hz) << Ms << " of " << LatencyMs;
            EXPECT_NEAR(static_cast<double>(Voice->FramesHeard()), 10 * Hz, 30);
            ExpectEachFrameOnce(8000);
            Voice->Stop();
        }
    }
}

TEST_F(LiveTest, ADeviceThatLiesOrBlocksOrTakesNothingLeavesTimeAsItIs) {
    for (const int FromMs : {1, 500}) {
        Loop(Samples(8000));
        Journal.Lines.clear();
        Voice->Play();
        Pass(FromMs - 1);
        Device->Room = 0;
        Pass(8000);
        EXPECT_NEAR(static_cast<double>(Voice->FramesHeard()), 8.0 * (6000 + FromMs), 1000);
        EXPECT_THAT(Journal.Lines, Contains(HasSubstr("stands still")).Times(1));
        Voice->Stop();
    }
    for (const long Lie : {0L, 1'000'000L, 480L}) {
        Loop(Samples(8000));
        Device->Lie = Lie;
        Device->Room = 1'000'000;  // and takes everything at once
        Voice->Play();
        Pass(8000);
        // One that seems to stand still is found out after two seconds, which are lost.
        EXPECT_NEAR(static_cast<double>(Voice->FramesHeard()), 64000, Lie > 480 ? 16200 : 600)
            << Lie;
        EXPECT_LT(Device->Queue.size(), 4000U);
        Voice->Stop();
    }
    Loop(Samples(8000));
    Voice->Play();
    Pass(500);
    std::int64_t During = 0;
    Device->InWrite = [&] {
        Time.WaitUntil(Time.NowNs() + 5 * NsPerSecond, {});
        During = Voice->FramesHeard();
        Time.WaitUntil(Time.NowNs() + NsPerSecond, {});
        EXPECT_EQ(Voice->FramesHeard(), During + 8000);
    };
    Pass(2000);
    EXPECT_GE(During, 4000);
    EXPECT_GT(Voice->FramesHeard(), During + 8000 + 15000);
    Card->NowNs();
    EXPECT_EQ(Journal.Lines.back(), "the sound device is back");
    Voice->Stop();
}

TEST_F(LiveTest, EdgesAreRampsThatCostNoFrame) {
    Loop(Samples(8000, 10000), 5);
    Voice->Play();
    Pass(100);
    Voice->Stop();
    const std::int64_t Counted = Voice->FramesHeard();
    EXPECT_EQ(Counted, HeardSoFar() + 16);  // as good as heard
    Pass(100);
    Samples& Heard = Device->Heard;
    ASSERT_EQ(std::ssize(Heard), Counted + 40) << "the ramp down is not counted";
    // Up, level, then down.
    for (std::int64_t I = 1; I < 40; ++I) {
        EXPECT_GT(Heard.begin()[I], Heard.begin()[I - 1]);
        EXPECT_LT(Heard.end()[-I], Heard.end()[-I - 1]);
    }
    EXPECT_EQ(Heard[40], 10000);
    EXPECT_LT(Heard.back(), 500);

    Voice->Play();
    Pass(50);
    Device->InWrite = [&] { Device->RanDry = true; };  // the ramp comes too late
    Voice->Stop();
    EXPECT_EQ(Voice->FramesHeard(), std::ssize(Heard) - 40 + 16);
    Pass(100);
    Heard.clear();
    const std::int64_t Before = Voice->FramesHeard();

    Device->CanTakeBack = false;
    Voice->Play();
    Pass(35);
    Voice->Stop();
    EXPECT_TRUE(Device->Queue.empty());
    EXPECT_EQ(Voice->FramesHeard() - Before, std::ssize(Heard));

    Heard.clear();
    const std::int64_t Again = Voice->FramesHeard();
    Voice->Play();
    Pass(50);
    Home.AdvanceBy(25);  // nothing can be taken back, and little is held: it falls behind that
    Voice->Stop();
    const std::int64_t Kept = Voice->FramesHeard() - Again;
    Pass(100);
    ASSERT_EQ(std::ssize(Heard), Kept + 40);
    EXPECT_EQ(Heard.end()[-41], 10000);
    EXPECT_LT(Heard.back(), 500);
    EXPECT_THAT(Journal.Lines, IsEmpty());
}

}  // namespace
}  // namespace Tolvar::Testing
