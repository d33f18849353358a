#include <array>
#include <functional>
#include <utility>

#include "platform/DirectX7Layer.h"
#include "tests/platform/CardRig.h"

namespace Tolvar::Testing {
namespace {

struct Listener : DirectXEvent {
    std::vector<std::int32_t> Ids;
    std::function<void()> Then = [] {};
    void DXCallback(std::int32_t EventId) override {
        Ids.push_back(EventId);
        std::exchange(Then, [] {})();
    }
};

struct DirectSoundTest : CardRig, ::testing::Test {
    std::unique_ptr<DirectX7> Root = std::make_unique<DirectX7Root>(Card);
    std::unique_ptr<DirectSound> Sound = Root->DirectSoundCreate("");
    std::unique_ptr<DirectSoundBuffer> Buffer;
    Listener Ears;

    std::unique_ptr<DirectSoundBuffer> Make(std::int32_t Flags = 0x18128, int Hz = 1000) {
        return Sound->CreateSoundBuffer({Flags, 40}, Pcm(1, Hz));
    }
    void SetUp() override {
        Sound->SetCooperativeLevel(77, DSSCL_PRIORITY);
        Buffer = Make();
    }
};

TEST_F(DirectSoundTest, AnEventIsSilentOnceItIsDestroyedAndItsCallbackMayLetEverythingGo) {
    const std::int32_t First = Root->CreateEvent(Ears);
    const std::int32_t Last = Root->CreateEvent(Ears);
    Buffer->SetNotificationPositions(
        std::array{DSBPOSITIONNOTIFY{0, First}, DSBPOSITIONNOTIFY{39, Last}});
    Buffer->Play(DSBPLAY_LOOPING);
    Home.AdvanceBy(10);
    DSCURSORS At;
    Buffer->GetCurrentPosition(At);
    EXPECT_EQ(std::pair(At.lPlay, At.lWrite), std::pair(20, 22));
    Root->DestroyEvent(First);
    EXPECT_GT(Root->CreateEvent(Ears), Last) << "a handle is never used again";
    Home.AdvanceBy(20);
    Ears.Then = [&] {
        Buffer.reset();
        Sound.reset();
        Root.reset();
    };
    Home.AdvanceBy(100);
    EXPECT_THAT(Ears.Ids, ElementsAre(First, Last, Last));
}

TEST_F(DirectSoundTest, EveryWrongArgumentIsRefusedByItsCallAndItsValue) {
    const Samples Some(20, 7);
    const auto Plain = Make(DSBCAPS_GLOBALFOCUS);
    const auto Notify = [](auto& To, std::int32_t Offset, std::int32_t Handle) {
        To->SetNotificationPositions(std::array{DSBPOSITIONNOTIFY{Offset, Handle}});
    };
    Root->CreateEvent(Ears);
    const std::vector<std::pair<std::function<void()>, const char*>> Cases{
        {[&] { Root->DirectSoundCreate("front"); }, "there is no device \"front"},
        {[&] { Make(0x18129); }, "CreateSoundBuffer: the flags 98601"},
        {[&] { Make(0, 100001); }, "1 channels, 100001 Hz, 16 bits"},
        {[&] { Notify(Buffer, 40, 1); }, "SetNotificationPositions: the notification offset 40"},
        {[&] { Notify(Buffer, 0, 2); }, "SetNotificationPositions: there is no event 2"},
        {[&] { Notify(Plain, 0, 1); }, "made without DSBCAPS_CTRLPOSITIONNOTIFY"},
        {[&] { Buffer->WriteBuffer(2, INT32_MAX, Some.data(), 0); },
         "2147483647 bytes at offset 2"},
        {[&] { Buffer->SetFrequency(99); }, "SetFrequency: the frequency 99 Hz"},
    };
    for (const auto& [Call, Cause] : Cases)
        EXPECT_THAT(FailureOf(Call), HasSubstr(Cause));
    Buffer->Play(DSBPLAY_LOOPING);
    EXPECT_THAT(FailureOf([&] { Notify(Buffer, 0, 1); }), HasSubstr("while the buffer plays"));
    Home.AdvanceBy(20);
    Buffer->Stop();
    EXPECT_EQ(Heard.Heard, Samples(20)) << "nothing was written";
    EXPECT_THAT(Ears.Ids, ElementsAre());
}

}  // namespace
}  // namespace Tolvar::Testing
