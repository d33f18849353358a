#include <cstdlib>

#include "card/live/AlsaDevice.h"
#include "card/voices/QueueVoice.h"
#include "platform/posix/RealClock.h"
#include "tests/card/CardRig.h"
#include "tests/support/TempFolder.h"

namespace Tolvar::Testing {
namespace {

/// The library's own devices without hardware, in a configuration of their own, on the wall clock.
struct AlsaTest : Test {
    TempFolder Folder;
    RealClock Time;
    ListLog Journal;
    Apartment Home{Time, Journal};
    Timer Look{Home, 5};

    AlsaTest() {
        Put(Folder / "asound.conf",
            "pcm.silent { type null }\npcm.caught { type file slave.pcm silent file \"" +
                (Folder / "caught") + "\" }\n");
        setenv("ALSA_CONFIG_PATH", (Folder / "asound.conf").c_str(), 1);
        Look.Enabled(true);
    }
    ~AlsaTest() override { unsetenv("ALSA_CONFIG_PATH"); }

    /// Milliseconds that the wave takes to be heard on that device, each time.
    std::vector<std::int64_t> PlayOn(const std::string& Pcm, const Samples& Wave,
                                     StreamFormat Format, int Times) {
        SoundCard Card(Home, MakeOutput("alsa:" + Pcm, {.LatencyMs = 20, .FadeMs = 0}, Time), {},
                       Journal);
        QueueVoice Voice(Card, Format);
        std::vector<std::int64_t> Taken;
        while (std::ssize(Taken) < Times) {
            WAVEHDR Header = HeaderOf(Wave);
            const std::int64_t FromNs = Time.NowNs();
            Voice.Queue(Header);
            Home.RunUntil(FromNs + 5 * NsPerSecond, [&] { return Voice.IsEmpty(); });
            Taken.push_back((Time.NowNs() - FromNs) / NsPerMs);
        }
        return Taken;
    }
};

TEST_F(AlsaTest, AFileGetsEveryFrameInTheTimeThatItTakes) {
    const Samples Wave = Numbers(1, 8000);
    EXPECT_THAT(PlayOn("caught", Wave, {2, 16000}, 1), ElementsAre(Ge(245)));
    EXPECT_TRUE(Get(Folder / "caught") == BytesOf(Wave));
    EXPECT_THAT(Journal.Lines, IsEmpty());
}

TEST_F(AlsaTest, ADeviceThatIsNotThereIsSaidOnceAndKeepsTime) {
    EXPECT_THAT(PlayOn("gone", Numbers(1, 1600), {1, 8000}, 2), ElementsAre(Ge(195), Ge(195)));
    EXPECT_THAT(Journal.Lines, ElementsAre(AllOf(HasSubstr("alsa:gone"), HasSubstr("silence"))));
}

}  // namespace
}  // namespace Tolvar::Testing
