#include <cstdlib>
#include <tuple>

#include "card/devices/ServiceLoader.h"
#include "platform/SondervalService2.h"
#include "tests/card/CardRig.h"

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
    std::int32_t Start(std::int32_t Restart, std::int32_t Hz = 1000) {
        return Call<decltype(Service04)>("Service04", Restart, Hz);
    }
    /// Result, wraps, cursor.
    std::tuple<int, int, int> PositionAfter(std::int64_t Ms) {
        Home.AdvanceBy(Ms);
        std::int32_t Wraps = -1, Cursor = -1;
        const std::int32_t Result = Call<decltype(Service01)>("Service01", &Wraps, &Cursor);
        return {Result, Wraps, Cursor};
    }
};

struct ServiceTest : Server, Test {};

TEST_F(ServiceTest, ARefusalChangesNothingAndLeavesItsCauseInTheLog) {
    EXPECT_EQ(PositionAfter(0), std::tuple(0, -1, -1));
    EXPECT_EQ(Start(1), 0) << "no buffer yet";
    Make();
    EXPECT_EQ(Call<decltype(Service07)>("Service07"), 1);
    EXPECT_EQ(Make(), 1) << "a shut-down library starts again";
    EXPECT_EQ(Start(1), 1);
    Journal.Lines.clear();
    const Samples Some(20);
    EXPECT_EQ(Make(8) + Start(2) + Call<decltype(Service06)>("Service06", Some.data(), 40, 2), 0);
    EXPECT_THAT(Journal.Lines, ElementsAre(HasSubstr("Service02: 8 bits"),
                                           HasSubstr("Service04: the restart flag 2"),
                                           HasSubstr("Service06: 40 bytes at offset 2")));
    EXPECT_EQ(PositionAfter(30), std::tuple(1, 1, 20));
}

TEST_F(ServiceTest, TwoServersOfOneProcessDoNotMeet) {
    Server Other;
    EXPECT_EQ(Other.Make() + Make() + Other.Start(1, 500) + Start(1), 4);
    EXPECT_EQ(PositionAfter(30), std::tuple(1, 1, 20));
    EXPECT_EQ(Other.PositionAfter(30), std::tuple(1, 0, 30));
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
