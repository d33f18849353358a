#include <cstdlib>
#include <tuple>

#include "platform/ServiceLoader.h"
#include "platform/SondervalService2.h"
#include "tests/platform/CardRig.h"

namespace Tolvar::Testing {
namespace {

/// One server's card and library: a mono buffer of 20 frames, 1 ms each.
struct Server : CardRig {
    DlServiceLibrary Library{Card, Journal};

    template <typename Function, typename... Values>
    std::int32_t Call(const char* Name, Values... With) {
        return reinterpret_cast<Function*>(Library.Entry(Name))(With...);
    }
    std::int32_t Make(int Bits = 16) {
        return Call<decltype(Service02)>("Service02", 77, 1, 1000, Bits, 40);
    }
    std::int32_t Write(const Samples& Some, std::int32_t Offset = 0) {
        const auto Bytes = static_cast<std::int32_t>(Some.size()) * 2;
        return Call<decltype(Service06)>("Service06", Some.data(), Bytes, Offset);
    }
    std::int32_t Start(std::int32_t Restart, std::int32_t Hz = 1000) {
        return Call<decltype(Service04)>("Service04", Restart, Hz);
    }
    std::int32_t Stop() { return Call<decltype(Service05)>("Service05"); }
    /// Result, wraps, cursor.
    std::tuple<int, int, int> Position() {
        std::int32_t Wraps = -1, Cursor = -1;
        const std::int32_t Result = Call<decltype(Service01)>("Service01", &Wraps, &Cursor);
        return {Result, Wraps, Cursor};
    }
    /// What a poll tells after Ms: "stopped", "second" and "first" to be refilled.
    std::string PollAfter(std::int64_t Ms) {
        Home.AdvanceBy(Ms);
        std::int32_t Stopped = -1, Second = -1, First = -1, Spare = -1;
        Call<decltype(Service08)>("Service08", &Stopped, &Second, &First, &Spare);
        return std::string(Stopped != 0 ? "stopped" : "plays") + (Second != 0 ? " second" : "") +
               (First != 0 ? " first" : "");
    }
};

struct ServiceTest : Server, ::testing::Test {};

TEST_F(ServiceTest, ARefusalChangesNothingAndLeavesItsCauseInTheLog) {
    EXPECT_EQ(Position(), std::tuple(0, -1, -1));
    EXPECT_EQ(Start(1), 0) << "no buffer yet";
    Make();
    EXPECT_EQ(Call<decltype(Service07)>("Service07"), 1);
    EXPECT_EQ(std::get<0>(Position()), 0);
    EXPECT_EQ(Make(), 1) << "a shut-down library starts again";
    EXPECT_EQ(PollAfter(0), "stopped");
    EXPECT_EQ(Start(0), 1);
    EXPECT_EQ(PollAfter(0), "plays") << "no start, no entry";
    EXPECT_THROW(Home.RunUntil(Forever), std::logic_error) << "it is polled and wakes nobody";
    Stop();
    Heard.Heard.clear();
    Journal.Lines.clear();
    Write(Samples(20, 5));
    EXPECT_EQ(Make(8) + Start(2) + Write(Samples(20), 2), 0);
    EXPECT_THAT(Journal.Lines, ElementsAre(HasSubstr("Service02: 8 bits"),
                                           HasSubstr("Service04: the restart flag 2"),
                                           HasSubstr("Service06: 40 bytes at offset 2")));
    Start(1);
    Home.AdvanceBy(20);
    Stop();
    EXPECT_EQ(Heard.Heard, Samples(20, 5));
}

TEST_F(ServiceTest, TwoServersOfOneProcessDoNotMeet) {
    Server Other;
    for (Server* Each : {&Other, static_cast<Server*>(this)})
        EXPECT_EQ(Each->Make() + Each->Start(1, Each == this ? 1000 : 500), 2);
    Write(Samples(20, 1));
    Other.Write(Samples(20, 2));
    Home.AdvanceBy(30);
    Other.Home.AdvanceBy(30);
    EXPECT_EQ(Position(), std::tuple(1, 1, 20));
    EXPECT_EQ(Other.Position(), std::tuple(1, 0, 30));
    Stop();
    EXPECT_EQ(Other.PollAfter(0), "plays second first");
    EXPECT_EQ(Heard.Heard, Samples(30, 1));
}

TEST_F(ServiceTest, AMissingOrIncompleteLibraryFailsTheCallAndIsTriedAgain) {
    ::setenv("TOLVAR_SERVICE_LIBRARY", "/nowhere/none.so", 1);
    EXPECT_THAT(FailureOf([&] { Make(); }),
                AllOf(HasSubstr("/nowhere/none.so"), HasSubstr("No such file")));
    ::unsetenv("TOLVAR_SERVICE_LIBRARY");
    EXPECT_EQ(Make(), 1);
    EXPECT_THAT(FailureOf([&] { Library.Entry("Service09"); }), HasSubstr("has no Service09"));
    EXPECT_EQ(Start(1), 1) << "the buffer outlived it";
}

}  // namespace
}  // namespace Tolvar::Testing
