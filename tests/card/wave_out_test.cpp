#include <list>

#include "card/devices/WaveOutDevice.h"
#include "card/voices/LoopingVoice.h"
#include "tests/card/CardRig.h"

namespace Tolvar::Testing {
namespace {

struct WaveOutTest : CardRig, Test {
    WaveOutDevice Device{Card};
    HWAVEOUT Handle = 0;
    int Channels = 1;
    std::list<std::pair<Samples, WAVEHDR>> Pieces;
    int NextSample = 0;

    MMRESULT Open(int ChannelCount, int Hz) {
        const WAVEFORMATEX Format = Pcm(Channels = ChannelCount, Hz);
        return Device.waveOutOpen(&Handle, WAVE_MAPPER, &Format, 0, 0, 0);
    }
    /// Queues frames whose samples are numbered through the whole test.
    WAVEHDR& Write(int Frames) {
        auto& [Made, Header] = Pieces.emplace_back();
        Made = Numbers(NextSample, Frames * Channels);
        NextSample += Frames * Channels;
        Header = HeaderOf(Made);
        EXPECT_EQ(Device.waveOutPrepareHeader(Handle, &Header, WaveHdrBytes), 0U);
        EXPECT_EQ(Device.waveOutWrite(Handle, &Header, WaveHdrBytes), 0U);
        return Header;
    }
    static bool Done(const WAVEHDR& Header) {
        return (Header.dwFlags & (WHDR_DONE | WHDR_INQUEUE)) == WHDR_DONE;
    }
    int PositionAfter(std::int64_t Ns, UINT Type = TIME_SAMPLES) {
        Home.RunUntil(Time.NowNs() + Ns);
        MMTIME At{Type, {0}};
        EXPECT_EQ(Device.waveOutGetPosition(Handle, &At, MmTimeBytes), 0U);
        return static_cast<int>(At.sample);
    }
};

TEST_F(WaveOutTest, HeadersFollowEachOtherThroughPausesAndUnderrunsAndAResetStartsFromZero) {
    Open(2, 1000);
    WAVEHDR& First = Write(10);
    Home.AdvanceBy(3);
    WAVEHDR& Second = Write(20);
    EXPECT_EQ(PositionAfter(7 * NsPerMs - 1), 9);
    EXPECT_FALSE(Done(First));
    EXPECT_EQ(PositionAfter(3'900'001), 13);
    EXPECT_TRUE(Done(First));
    std::ranges::fill(Pieces.front().first, std::int16_t{-1});
    Device.waveOutPause(Handle);
    EXPECT_EQ(PositionAfter(NsPerSecond), 13);
    Device.waveOutRestart(Handle);
    EXPECT_EQ(PositionAfter(999'999), 13) << "the fraction of a frame was dropped";
    EXPECT_EQ(PositionAfter(NsPerSecond), 30);
    Write(0);
    WAVEHDR& Third = Write(20);
    EXPECT_EQ(PositionAfter(5 * NsPerMs), 35) << "an underrun is a pause";
    Device.waveOutPause(Handle);
    EXPECT_EQ(Device.waveOutClose(Handle), WAVERR_STILLPLAYING);
    EXPECT_EQ(Device.waveOutReset(Handle), 0U);
    EXPECT_TRUE(Done(Second) && Done(Third));
    Write(10);
    EXPECT_EQ(PositionAfter(4 * NsPerMs), 4) << "the reset ended the pause";
    Samples Expected = Numbers(0, 70);
    Card.Finish();
    Expected.insert(Expected.end(), {100, 101, 102, 103, 104, 105, 106, 107});
    EXPECT_EQ(Heard.Heard, Expected);
    EXPECT_EQ(PositionAfter(NsPerSecond, TIME_BYTES), 40) << "time goes on after the recording";
}

TEST_F(WaveOutTest, AFailedSinkIsSaidOnceAndPlayGoesOnInSilence) {
    Open(1, 1000);
    for (const bool Fails : {true, false}) {
        Heard.Finished = Fails;  // and takes nothing
        Write(30);
        EXPECT_EQ(PositionAfter(NsPerSecond), Fails ? 30 : 60);
    }
    EXPECT_THAT(Heard.Heard, IsEmpty());
    EXPECT_THAT(Journal.Lines, ElementsAre(HasSubstr("out of turn")));
    EXPECT_EQ(FailureOf([&] { Card.Finish(); }), Card.Failure());
}

TEST_F(WaveOutTest, OneVoicePlaysAtATime) {
    LoopingVoice Voice(Card, {1, 1000}, 40);
    Open(1, 1000);
    Write(10);
    EXPECT_THAT(FailureOf([&] { Voice.Play(); }), HasSubstr("plays another sound"));
    Device.waveOutPause(Handle);
    Voice.Play();
    EXPECT_EQ(Device.waveOutRestart(Handle), MMSYSERR_ALLOCATED);
    Voice.Stop();
    EXPECT_EQ(Device.waveOutRestart(Handle), MMSYSERR_NOERROR);
}

}  // namespace
}  // namespace Tolvar::Testing
