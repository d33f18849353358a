#include <gmock/gmock.h>
#include <unistd.h>

#include <array>
#include <memory>
#include <optional>
#include <stdexcept>
#include <thread>

#include "platform/Apartment.h"
#include "platform/Clocks.h"
#include "tests/support/Fakes.h"

namespace Tolvar::Testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

struct ApartmentTest : ::testing::Test {
    VirtualClock Time;
    ListLog Journal;
    Apartment Home{Time, Journal};
    std::vector<std::string> Seen;

    Apartment::Handler Says(const std::string& Name) {
        return [this, Name] { Seen.push_back(Name + std::to_string(Time.NowNs() / NsPerMs)); };
    }
    Apartment::AlarmId ArmAt(std::int64_t Ms, Apartment::Handler Call) {
        return Home.Arm(Ms * NsPerMs, std::move(Call));
    }
};

TEST_F(ApartmentTest, AlarmsRunInOrderEachAtItsOwnTime) {
    ArmAt(30, Says("c"));
    ArmAt(10, Says("a"));
    auto Never = ArmAt(20, Says("never"));
    ArmAt(30, Says("d"));
    ArmAt(10, [&] {
        Says("b")();
        ArmAt(10, Says("now"));
        ArmAt(5, Says("late"));
        Home.Disarm(Never);
        Home.Disarm(Never);
    });
    ArmAt(31, Says("beyond"));
    Home.AdvanceBy(30);
    EXPECT_THAT(Seen, ElementsAre("a10", "b10", "late10", "now10", "c30", "d30"));
    EXPECT_EQ(Time.NowNs(), 30 * NsPerMs);
}

TEST_F(ApartmentTest, PostsAreDeliveredBeforeTimeMoves) {
    ArmAt(5, [&] { Home.Post(Says("posted")); });
    ArmAt(6, Says("alarm"));
    Home.Post([&] {
        Says("first")();
        Home.Post(Says("again"));
    });
    Home.Post(Says("second"));
    Home.AdvanceBy(10);
    EXPECT_THAT(Seen, ElementsAre("first0", "second0", "again0", "posted5", "alarm6"));
}

TEST_F(ApartmentTest, UntilStopsBetweenDeliveriesAndLosesNothing) {
    for (const auto* Name : {"a", "b", "c"})
        Home.Post(Says(Name));
    for (int I = 0; I < 2; ++I)
        ArmAt(7, Says("t"));
    const auto After = [&](std::size_t Count) {
        return [&, Count] { return Seen.size() >= Count; };
    };
    EXPECT_TRUE(Home.RunUntil(Forever, After(0)));
    EXPECT_TRUE(Home.RunUntil(Forever, After(2)));
    EXPECT_THAT(Seen, ElementsAre("a0", "b0"));
    EXPECT_TRUE(Home.RunUntil(Forever, After(4)));
    EXPECT_FALSE(Home.RunUntil(20 * NsPerMs, After(9)));
    EXPECT_THAT(Seen, ElementsAre("a0", "b0", "c0", "t7", "t7"));
    EXPECT_EQ(Time.NowNs(), 20 * NsPerMs);
    EXPECT_THROW(Home.RunUntil(Forever, After(9)), std::logic_error) << "nothing can end it";
}

TEST_F(ApartmentTest, WhatHandlersThrowIsLoggedAndTheLoopGoesOn) {
    ArmAt(1, [] { throw RuntimeFailure(FailureKind::Device, "no card"); });
    ArmAt(1, [] { throw 7; });
    ArmAt(1, Says("on"));
    ArmAt(2, [&] { Home.AdvanceBy(1); });
    Home.AdvanceBy(5);
    EXPECT_THAT(Seen, ElementsAre("on1"));
    EXPECT_THAT(Journal.Lines, ElementsAre(HasSubstr("no card"), HasSubstr("did not say"),
                                           HasSubstr("entered twice")));
}

TEST_F(ApartmentTest, SleepDeliversNothing) {
    ArmAt(10, Says("a"));
    Home.Sleep(300);
    EXPECT_TRUE(Seen.empty());
    EXPECT_EQ(Time.NowNs(), 300 * NsPerMs);
    Home.AdvanceBy(0);
    EXPECT_THAT(Seen, ElementsAre("a300"));
}

TEST_F(ApartmentTest, TimersKeepTheirPhaseAndOweNoSecondTick) {
    Timer Poll(Home, 40);
    Poll.Bind(Says("t"));
    Home.AdvanceBy(100);
    Poll.Enabled(true);
    Home.AdvanceBy(90);
    Poll.Enabled(true);
    Home.Sleep(210);  // 190 -> 400: the ticks of 220 to 380 make one
    Home.AdvanceBy(100);
    Poll.Enabled(false);
    Home.AdvanceBy(100);
    EXPECT_THAT(Seen, ElementsAre("t140", "t180", "t400", "t420", "t460", "t500"));
}

TEST_F(ApartmentTest, SettingAnIntervalStartsTheCountAnew) {
    Timer Poll(Home, 0);
    Poll.Bind(Says("t"));
    Poll.Enabled(true);
    Home.AdvanceBy(50);
    Poll.Interval(40);
    Home.AdvanceBy(30);
    Poll.Interval(20);  // at 80
    Home.AdvanceBy(20);
    Poll.Interval(-1);
    Home.AdvanceBy(1000);
    EXPECT_THAT(Seen, ElementsAre("t100"));
    EXPECT_TRUE(Poll.Enabled());
}

TEST_F(ApartmentTest, ATimerMayChangeOrDestroyItselfInItsTick) {
    Timer OneShot(Home, 10);
    OneShot.Bind([&] {
        Says("once")();
        OneShot.Enabled(false);
    });
    Timer Slower(Home, 10);
    Slower.Bind([&] {
        Slower.Interval(Slower.Interval() * 2);
        Slower.Bind(Says("slow"));
    });
    std::optional<Timer> Gone(std::in_place, Home, 15);
    Gone->Bind([&, Kept = std::string(64, 'k')] {
        Gone.reset();
        Says(Kept.substr(0, 1))();
    });
    for (Timer* Each : {&OneShot, &Slower, &*Gone})
        Each->Enabled(true);
    Home.AdvanceBy(60);
    EXPECT_THAT(Seen, ElementsAre("once10", "k15", "slow30", "slow50"));
}

TEST(VirtualClockTest, StartsAtNoonAndPassesMidnight) {
    VirtualClock Time;
    EXPECT_EQ(Time.SecondsSinceMidnight(), 43200.0);
    Time.WaitUntil(12 * 3600 * NsPerSecond - NsPerMs, {});
    EXPECT_NEAR(Time.SecondsSinceMidnight(), 86399.999, 1e-9);
    Time.WaitUntil(12 * 3600 * NsPerSecond, {});
    EXPECT_EQ(Time.SecondsSinceMidnight(), 0.0);
    Time.WaitUntil(5, {});
    EXPECT_EQ(Time.NowNs(), 12 * 3600 * NsPerSecond) << "never backward";
}

struct RealApartmentTest : ::testing::Test {
    RealClock Time;
    ListLog Journal;
    Apartment Home{Time, Journal};
};

TEST_F(RealApartmentTest, APostFromAnotherThreadWakesTheLoopAndKeepsItsOrder) {
    std::vector<int> Seen;
    std::thread Poster([&] {
        for (int I = 0; I < 1000; ++I)
            Home.Post([&Seen, I] { Seen.push_back(I); });
    });
    EXPECT_TRUE(Home.RunUntil(Forever, [&] { return Seen.size() == 1000; }));
    Poster.join();
    for (int I = 0; I < 1000; ++I)
        ASSERT_EQ(Seen[static_cast<std::size_t>(I)], I);
}

TEST_F(RealApartmentTest, WaitsAsLongAsAskedAndNamesALocalTimeOfDay) {
    const auto Before = Time.NowNs();
    Home.AdvanceBy(5);
    EXPECT_GE(Time.NowNs(), Before + 5 * NsPerMs);
    EXPECT_GE(Time.SecondsSinceMidnight(), 0.0);
    EXPECT_LT(Time.SecondsSinceMidnight(), 86400.0);
}

TEST_F(RealApartmentTest, DescriptorsAreWatchedUntilUnwatchedOrClosed) {
    std::array<int, 2> Ends{};
    ASSERT_EQ(pipe(Ends.data()), 0);
    std::string Got;
    Home.Watch(Ends[0], [&] {
        char Byte = 0;
        if (read(Ends[0], &Byte, 1) == 1) Got += Byte;
        if (Got.size() == 2) Home.Unwatch(Ends[0]);
    });
    ASSERT_EQ(write(Ends[1], "abc", 3), 3);
    Home.AdvanceBy(1);
    EXPECT_EQ(Got, "ab");
    bool HungUp = false;
    char Rest = 0;
    EXPECT_EQ(read(Ends[0], &Rest, 1), 1);
    close(Ends[1]);
    Home.Watch(Ends[0], [&] { HungUp = true; });
    EXPECT_TRUE(Home.RunUntil(Forever, [&] { return HungUp; }));
    close(Ends[0]);
    Home.AdvanceBy(1);
    ASSERT_EQ(Journal.Lines.size(), 1U) << "a closed descriptor is given up, not spun upon";
    EXPECT_THAT(Journal.Lines[0], HasSubstr("was closed while it was watched"));
}

}  // namespace
}  // namespace Tolvar::Testing
