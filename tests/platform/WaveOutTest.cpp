#include <list>

#include "platform/LoopingVoice.h"
#include "platform/WaveOutDevice.h"
#include "tests/platform/CardRig.h"

namespace Tolvar::Testing {
namespace {

struct WaveOutTest : CardRig, ::testing::Test {
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
        AdvanceNs(Ns);
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
    EXPECT_EQ(PositionAfter(1), 10);
    EXPECT_TRUE(Done(First));
    std::ranges::fill(Pieces.front().first, std::int16_t{-1});
    EXPECT_EQ(PositionAfter(3'900'000), 13);
    Device.waveOutPause(Handle);
    Device.waveOutPause(Handle);
    EXPECT_EQ(PositionAfter(NsPerSecond), 13);
    Device.waveOutRestart(Handle);
    AdvanceNs(999'999);
    Device.waveOutRestart(Handle);
    EXPECT_EQ(PositionAfter(0), 13) << "the fraction of a frame was dropped";
    EXPECT_EQ(PositionAfter(1), 14);
    EXPECT_EQ(PositionAfter(NsPerSecond), 30);
    Write(0);
    WAVEHDR& Third = Write(20);
    EXPECT_EQ(PositionAfter(5 * NsPerMs), 35) << "an underrun is a pause";
    Device.waveOutPause(Handle);
    EXPECT_EQ(Device.waveOutClose(Handle), WAVERR_STILLPLAYING);
    EXPECT_EQ(Device.waveOutReset(Handle), 0U);
    EXPECT_TRUE(Done(Second) && Done(Third));
    EXPECT_EQ(PositionAfter(0), 0);
    Write(10);
    EXPECT_EQ(PositionAfter(4 * NsPerMs), 4) << "the reset ended the pause";
    Card.Finish();
    Samples Expected = Numbers(0, 78);
    std::iota(Expected.begin() + 70, Expected.end(), std::int16_t{100});
    EXPECT_EQ(Heard.Heard, Expected);
    EXPECT_EQ(PositionAfter(NsPerSecond, TIME_BYTES), 40)
        << "time goes on after the end of recording";
}

TEST_F(WaveOutTest, AFailedSinkIsSaidOnceAndPlayGoesOnInSilence) {
    Open(1, 1000);
    Write(20);
    Home.AdvanceBy(10);
    Device.waveOutReset(Handle);
    for (const char* Text : {"disk full", ""}) {
        Fault = Text;
        Write(30);
        EXPECT_EQ(PositionAfter(NsPerSecond), Fault.empty() ? 60 : 30);
    }
    EXPECT_EQ(Heard.Heard, Numbers(0, 10));
    EXPECT_THAT(Journal.Lines, ElementsAre(HasSubstr("disk full")));
    EXPECT_EQ(Card.Failure(), "disk full");
    EXPECT_THROW(Card.Finish(), RuntimeFailure);
}

TEST_F(WaveOutTest, OneVoicePlaysAtATime) {
    LoopingVoice Voice(Card, {1, 1000}, 40);
    const auto VoiceFails = [&] { return FailureOf([&] { Voice.PlayFromStart(); }); };
    Open(1, 1000);
    WAVEHDR& Queued = Write(10);
    EXPECT_THAT(VoiceFails(), HasSubstr("plays another sound"));
    Home.AdvanceBy(5);
    Device.waveOutPause(Handle);
    EXPECT_EQ(VoiceFails(), "");
    EXPECT_EQ(Device.waveOutRestart(Handle), MMSYSERR_ALLOCATED);
    Home.AdvanceBy(5);
    Voice.Stop();
    EXPECT_EQ(Device.waveOutRestart(Handle), MMSYSERR_NOERROR);
    Home.AdvanceBy(5);
    Voice.Play();
    EXPECT_EQ(Device.waveOutWrite(Handle, &Queued, WaveHdrBytes), MMSYSERR_ALLOCATED);
    EXPECT_THAT(Heard.Heard, ElementsAre(0, 1, 2, 3, 4, 0, 0, 0, 0, 0, 5, 6, 7, 8, 9));
}

TEST_F(WaveOutTest, EveryWrongArgumentIsAnswered) {
    for (const auto& [ChannelCount, Hz] : {std::pair(0, 8000), {3, 8000}, {1, 99}, {1, 384001}})
        EXPECT_EQ(Open(ChannelCount, Hz), WAVERR_BADFORMAT);
    EXPECT_EQ(Open(1, 8000), MMSYSERR_NOERROR);
    EXPECT_EQ(Open(2, 8000), MMSYSERR_ALLOCATED);
    const HWAVEOUT Closed = Handle;
    EXPECT_EQ(Device.waveOutClose(Closed), MMSYSERR_NOERROR);
    EXPECT_EQ(Open(2, 8000), MMSYSERR_NOERROR);
    EXPECT_EQ(Device.waveOutReset(Closed), MMSYSERR_INVALHANDLE);
    const Samples Some(8);
    WAVEHDR Header{reinterpret_cast<const char*>(Some.data()), 6};
    const auto WriteIt = [&] { return Device.waveOutWrite(Handle, &Header, WaveHdrBytes); };
    const auto Unprepare = [&] {
        return Device.waveOutUnprepareHeader(Handle, &Header, WaveHdrBytes);
    };
    EXPECT_EQ(WriteIt(), WAVERR_UNPREPARED);
    Device.waveOutPrepareHeader(Handle, &Header, WaveHdrBytes);
    EXPECT_EQ(WriteIt(), MMSYSERR_INVALPARAM) << "a frame and a half";
    Header.dwBufferLength = 16;
    EXPECT_EQ(WriteIt(), MMSYSERR_NOERROR);
    EXPECT_EQ(WriteIt(), WAVERR_STILLPLAYING);
    EXPECT_EQ(Unprepare(), WAVERR_STILLPLAYING);
    EXPECT_EQ(PositionAfter(NsPerMs), 4);
    EXPECT_EQ(Unprepare(), MMSYSERR_NOERROR);
}

}  // namespace
}  // namespace Tolvar::Testing
