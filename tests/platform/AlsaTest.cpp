#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

#include "platform/AlsaDevice.h"
#include "platform/QueueVoice.h"
#include "tests/platform/CardRig.h"
#include "tests/support/TempFolder.h"

namespace Tolvar::Testing {
namespace {

/// The library's own devices without hardware, in a configuration of their own, on the wall clock.
struct AlsaTest : ::testing::Test {
    TempFolder Folder;
    RealClock Time;
    ListLog Journal;
    Apartment Home{Time, Journal};

    AlsaTest() {
        std::ofstream(Folder / "asound.conf") << "pcm.silent { type null }\n"
                                                 "pcm.caught { type file slave.pcm silent file \""
                                              << Folder / "caught"
                                              << "\" }\n";
        setenv("ALSA_CONFIG_PATH", (Folder / "asound.conf").c_str(), 1);
    }
    ~AlsaTest() override { unsetenv("ALSA_CONFIG_PATH"); }

    std::unique_ptr<SoundCard> CardOn(const std::string& Pcm) {
        return std::make_unique<SoundCard>(
            Home, MakeOutput("alsa:" + Pcm, {.LatencyMs = 20, .FadeMs = 0}, Time), SinkRate{},
            Journal);
    }
    // Milliseconds that the wave took to be heard.
    std::int64_t PlayOut(QueueVoice& Voice, Samples& Wave) {
        WAVEHDR Header = HeaderOf(Wave);
        const std::int64_t FromNs = Time.NowNs();
        Voice.Queue(Header);
        Home.RunUntil(FromNs + 5 * NsPerSecond, [&] { return Voice.IsEmpty(); });
        return (Time.NowNs() - FromNs) / NsPerMs;
    }
};

TEST_F(AlsaTest, AFileGetsEveryFrameInTheTimeThatItTakes) {
    Samples Wave = Numbers(1, 8000);
    {
        const auto Card = CardOn("caught");
        Timer Look(Home, 5);
        Look.Enabled(true);
        QueueVoice Voice(*Card, {2, 16000});
        const std::int64_t Ms = PlayOut(Voice, Wave);
        EXPECT_GE(Ms, 245);
        EXPECT_EQ(Voice.FramesHeard(), 4000);
    }
    std::ifstream Caught(Folder / "caught", std::ios::binary);
    Samples Got(Wave.size() + 1);
    void* const To = Got.data();
    Caught.read(static_cast<char*>(To), static_cast<std::streamsize>(Got.size() * 2));
    ASSERT_EQ(Caught.gcount(), static_cast<std::streamsize>(Wave.size() * 2));
    Got.pop_back();
    EXPECT_EQ(Got, Wave);
    EXPECT_THAT(Journal.Lines, ::testing::IsEmpty());
}

TEST_F(AlsaTest, ADeviceThatIsNotThereIsSaidOnceAndKeepsTime) {
    const auto Card = CardOn("gone");
    Timer Look(Home, 5);
    Look.Enabled(true);
    Samples Wave = Numbers(1, 1600);
    QueueVoice Voice(*Card, {1, 8000});
    EXPECT_GE(PlayOut(Voice, Wave), 195);
    EXPECT_GE(PlayOut(Voice, Wave), 195);
    ASSERT_EQ(Journal.Lines.size(), 1U);
    EXPECT_THAT(Journal.Lines[0], AllOf(HasSubstr("alsa:gone"), HasSubstr("silence")));
}

}  // namespace
}  // namespace Tolvar::Testing
