#include <array>
#include <cstdlib>
#include <functional>
#include <tuple>

#include "platform/DirectX7Layer.h"
#include "platform/ServiceLoader.h"
#include "platform/SondervalService2.h"
#include "tests/platform/CardRig.h"

namespace Tolvar::Testing {
namespace {

struct Listener : DirectXEvent {
    std::vector<std::int32_t> Ids;
    void DXCallback(std::int32_t EventId) override { Ids.push_back(EventId); }
};

TEST(DirectSoundTest, EveryWrongArgumentIsRefusedByItsCallAndItsValueAndEventsEndWithTheirHandle) {
    CardRig Rig;
    DirectX7Root Root(Rig.Card);
    const auto Sound = Root.DirectSoundCreate("");
    Sound->SetCooperativeLevel(77, DSSCL_PRIORITY);
    const auto Make = [&](std::int32_t Flags) {
        return Sound->CreateSoundBuffer({Flags, 40}, Pcm(1, 1000));
    };
    const auto Buffer = Make(0x18128), Plain = Make(DSBCAPS_GLOBALFOCUS);
    Listener Ears;
    const std::int32_t First = Root.CreateEvent(Ears), Last = Root.CreateEvent(Ears);
    const auto Notify = [&](auto& To, std::int32_t Offset, std::int32_t Handle) {
        To->SetNotificationPositions(
            std::array{DSBPOSITIONNOTIFY{Offset, Handle}, DSBPOSITIONNOTIFY{39, Last}});
    };
    const Samples Some(20, 7);
    const std::vector<std::pair<std::function<void()>, const char*>> Cases{
        {[&] { Make(0x18129); }, "CreateSoundBuffer: the flags 98601"},
        {[&] { Notify(Buffer, 40, First); }, "Positions: the notification offset 40"},
        {[&] { Notify(Plain, 0, First); }, "made without DSBCAPS_CTRLPOSITIONNOTIFY"},
        {[&] { Buffer->WriteBuffer(2, INT32_MAX, Some.data(), 0); },
         "2147483647 bytes at offset 2"},
    };
    for (const auto& [Call, Cause] : Cases)
        EXPECT_THAT(FailureOf(Call), HasSubstr(Cause));
    Notify(Buffer, 0, First);
    Buffer->Play(DSBPLAY_LOOPING);
    Rig.Home.AdvanceBy(10);
    EXPECT_THAT(FailureOf([&] { Notify(Buffer, 0, Last); }), HasSubstr("while the buffer plays"));
    Root.DestroyEvent(First);
    EXPECT_GT(Root.CreateEvent(Ears), Last) << "a handle is never used again";
    Rig.Home.AdvanceBy(30);
    Buffer->Stop();
    EXPECT_EQ(Rig.Heard.Heard, Samples(40)) << "nothing was written";
    EXPECT_THAT(Ears.Ids, ElementsAre(First, Last, Last));
}

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

struct ServiceTest : Server, ::testing::Test {};

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
