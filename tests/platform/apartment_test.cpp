#include <unistd.h>

#include <array>
#include <thread>

#include "platform/posix/RealClock.h"
#include "tests/card/CardRig.h"
#include "tests/support/Memory.h"

namespace Tolvar::Testing {
namespace {

template <typename ClockType>
struct HomeOn : Test {
    ClockType Time;
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
using ApartmentTest = HomeOn<VirtualClock>;
using RealApartmentTest = HomeOn<RealClock>;

TEST_F(ApartmentTest, AlarmsAndPostsRunInOrderEachAtItsOwnTime) {
    ArmAt(30, Says("c"));
    ArmAt(10, Says("a"));
    auto Never = ArmAt(20, Says("never"));
    ArmAt(30, [&] { Home.Post(Says("posted")); });
    ArmAt(10, [&] {
        ArmAt(10, Says("now"));
        ArmAt(5, Says("late"));
        Home.Disarm(Never);
    });
    ArmAt(31, Says("beyond"));
    Home.Post([&] { Home.Post(Says("again")); });
    Home.Post(Says("second"));
    EXPECT_TRUE(Home.RunUntil(Forever, [&] { return Seen.size() == 4; })) << "between alarms";
    Home.AdvanceBy(20);
    EXPECT_THAT(Seen,
                ElementsAre("second0", "again0", "a10", "late10", "now10", "c30", "posted30"));
    EXPECT_THROW(Home.RunUntil(Forever), std::logic_error) << "nothing is left to wait for";
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

TEST_F(ApartmentTest, TimersThatTickNeedNoMemory) {
    int Ticks = 0;
    Timer Poll(Home, 10);
    Poll.Bind([&Ticks] { ++Ticks; });
    Poll.Enabled(true);
    MemoryFails = true;
    Home.AdvanceBy(50);
    Poll.Interval(5);
    Home.AdvanceBy(50);
    Timer Other(Home, 10);
    EXPECT_THROW(Other.Enabled(true), std::bad_alloc);
    MemoryFails = false;
    EXPECT_EQ(Ticks, 15);
    EXPECT_FALSE(Other.Enabled());
    EXPECT_THAT(Journal.Lines, IsEmpty());
}

TEST_F(ApartmentTest, TimersKeepTheirPhaseAndOweNoSecondTick) {
    Timer Poll(Home, 40);
    Poll.Bind(Says("t"));
    Poll.Enabled(true);
    Home.AdvanceBy(50);
    Home.Sleep(120);  // the ticks of 80 to 160 make one
    Home.AdvanceBy(40);
    EXPECT_THAT(Seen, ElementsAre("t40", "t170", "t200"));
}

TEST_F(RealApartmentTest, APostFromAnotherThreadWakesTheLoopAndKeepsItsOrder) {
    std::vector<int> Order;
    std::thread Poster([&] {
        for (int I = 0; I < 1000; ++I)
            Home.Post([&Order, I] { Order.push_back(I); });
    });
    EXPECT_TRUE(Home.RunUntil(Forever, [&] { return Order.size() == 1000; }));
    Poster.join();
    EXPECT_TRUE(std::ranges::is_sorted(Order));
}

TEST_F(RealApartmentTest, DescriptorsAreWatchedUntilUnwatchedOrClosed) {
    std::array<int, 2> Ends{};
    ASSERT_EQ(pipe(Ends.data()), 0);
    std::string Got;
    Home.Watch({Ends[0]}, [&] {
        char Byte = 0;
        if (read(Ends[0], &Byte, 1) == 1) Got += Byte;
        if (Got.size() == 2) Home.Unwatch({Ends[0]});
    });
    ASSERT_EQ(write(Ends[1], "abc", 3), 3);
    Home.AdvanceBy(1);
    EXPECT_EQ(Got, "ab");
    Home.Watch({Ends[0]}, [&] { Got += '!'; });
    close(Ends[1]);
    EXPECT_TRUE(Home.RunUntil(Forever, [&] { return Got.size() > 2; })) << "a hang-up is told";
    close(Ends[0]);
    Home.AdvanceBy(1);
    EXPECT_THAT(Journal.Lines, ElementsAre(HasSubstr("was closed while it was watched")));
}

}  // namespace
}  // namespace Tolvar::Testing
