#include <gtest/gtest.h>

#include <list>
#include <numeric>

#include "platform/Clocks.h"
#include "platform/NullSink.h"
#include "platform/SoundCard.h"
#include "platform/WaveOutDevice.h"
#include "tests/support/Fakes.h"

namespace Tolvar::Testing {
namespace {

/// A sink whose listener stays with the test, and which can fail.
struct TestSink : Sink {
    ListeningSink& To;
    std::string& Fault;
    TestSink(ListeningSink& Listener, std::string& FaultText) : To(Listener), Fault(FaultText) {}
    bool WantsFrames() const override { return true; }
    void Open(int Channels, int RateHz) override { To.Open(Channels, RateHz); }
    void Write(std::span<const std::int16_t> Samples) override {
        if (!Fault.empty()) throw RuntimeFailure(FailureKind::Device, Fault);
        To.Write(Samples);
    }
    void Finish() override { To.Finish(); }
};

WAVEFORMATEX Pcm(int Channels, int Hz) {
    const auto Align = static_cast<WORD>(Channels * 2);
    const auto Rate = static_cast<DWORD>(Hz);
    return {WAVE_FORMAT_PCM, static_cast<WORD>(Channels), Rate, Rate * Align, Align, 16, 0};
}

/// One header with its samples: the frame numbers of the whole test, one after the other.
struct Piece {
    std::vector<std::int16_t> Samples;
    WAVEHDR Header;
    bool Done() const { return (Header.dwFlags & WHDR_DONE) != 0; }
};

struct WaveOutTest : ::testing::Test {
    VirtualClock Time;
    ListLog Journal;
    Apartment Home{Time, Journal};
    ListeningSink Heard;
    std::string Fault;
    SoundCard Card{Home, std::make_unique<TestSink>(Heard, Fault), {}, Journal};
    WaveOutDevice Device{Card};
    HWAVEOUT Handle = 0;
    int Channels = 1;
    std::list<Piece> Pieces;
    int NextFrame = 0;

    void Open(int ChannelCount, int Hz) {
        const WAVEFORMATEX Format = Pcm(ChannelCount, Hz);
        Channels = ChannelCount;
        ASSERT_EQ(Device.waveOutOpen(&Handle, WAVE_MAPPER, &Format, 0, 0, 0), 0U);
    }
    Piece& Write(int Frames) {
        Piece& Made = Pieces.emplace_back();
        for (int I = 0; I < Frames; ++I, ++NextFrame) {
            Made.Samples.push_back(static_cast<std::int16_t>(NextFrame));
            if (Channels == 2) Made.Samples.push_back(static_cast<std::int16_t>(-NextFrame));
        }
        Made.Header.lpData = reinterpret_cast<const char*>(Made.Samples.data());
        Made.Header.dwBufferLength = static_cast<DWORD>(Made.Samples.size() * 2);
        EXPECT_EQ(Device.waveOutPrepareHeader(Handle, &Made.Header, WaveHdrBytes), 0U);
        EXPECT_EQ(Device.waveOutWrite(Handle, &Made.Header, WaveHdrBytes), 0U);
        return Made;
    }
    void AdvanceNs(std::int64_t Ns) { Home.RunUntil(Time.NowNs() + Ns); }
    DWORD Position(UINT Type = TIME_SAMPLES) {
        MMTIME At{Type, {0}};
        EXPECT_EQ(Device.waveOutGetPosition(Handle, &At, MmTimeBytes), 0U);
        return At.sample;
    }
    /// The sink has heard exactly the frames From..To-1 (as numbered by Write) after those before.
    void ExpectNextHeard(int From, int To) {
        for (int I = From; I < To; ++I) {
            ASSERT_LT(HeardSoFar, Heard.Heard.size()) << "lost from frame " << I;
            ASSERT_EQ(Heard.Heard[HeardSoFar++], static_cast<std::int16_t>(I));
            if (Channels == 2) {
                ASSERT_EQ(Heard.Heard[HeardSoFar++], static_cast<std::int16_t>(-I));
            }
        }
        ASSERT_EQ(HeardSoFar, Heard.Heard.size());
    }
    std::size_t HeardSoFar = 0;
};

TEST_F(WaveOutTest, PositionsAreExactAtEveryRateAndStopAtTheEnd) {
    int TwoSecondRuns = 0;
    for (const int Hz : {100, 8000, 11025, 22050, 44100, 48000, 96000, 384000}) {
        Open(2, Hz);
        const int Frames = Hz * 2 + 1;
        Write(Frames);
        EXPECT_EQ(Position(), 0U);
        std::int64_t Passed = 0;
        for (const std::int64_t Ns : {1, 999'999'998, 1, 333'333'333, 166'666'667, 499'999'999}) {
            AdvanceNs(Ns);
            Passed += Ns;
            EXPECT_EQ(Position(), Passed * Hz / NsPerSecond) << Hz << " Hz at " << Passed;
        }
        AdvanceNs(NsPerSecond / Hz);
        EXPECT_EQ(Position(), static_cast<DWORD>(Frames - 1)) << "one ns before the last frame";
        AdvanceNs(NsPerSecond);
        EXPECT_EQ(Position(), static_cast<DWORD>(Frames));
        EXPECT_EQ(Position(TIME_BYTES), static_cast<DWORD>(Frames * 4));
        Device.waveOutReset(Handle);
        TwoSecondRuns += 1;  // all in the sink, whose rate is the first run's 100 Hz
        EXPECT_NEAR(static_cast<double>(Heard.Heard.size()), TwoSecondRuns * 400, 20) << Hz;
        EXPECT_EQ(Device.waveOutClose(Handle), 0U);
    }
}

TEST_F(WaveOutTest, LongRunsDoNotDrift) {
    FrameTimer Timer(384'000);
    Timer.Start(7);
    EXPECT_EQ(Timer.FramesAt(7 + 86'400 * NsPerSecond), 86'400LL * 384'000);
    EXPECT_EQ(Timer.FramesAt(6 + 86'400 * NsPerSecond), 86'400LL * 384'000 - 1);
}

TEST_F(WaveOutTest, HeadersFollowEachOtherWithoutAGapAndAreDoneWhenHeard) {
    Open(2, 44100);
    Piece& First = Write(441);
    Home.AdvanceBy(3);
    Piece& Second = Write(882);
    AdvanceNs(7 * NsPerMs - 1);
    EXPECT_EQ(Position(), 440U);
    EXPECT_FALSE(First.Done());
    AdvanceNs(1);
    EXPECT_EQ(Position(), 441U);
    EXPECT_TRUE(First.Done());
    EXPECT_EQ(First.Header.dwFlags & WHDR_INQUEUE, 0U);
    std::fill(First.Samples.begin(), First.Samples.end(), std::int16_t{-1});
    Home.AdvanceBy(10);
    EXPECT_EQ(Position(), 882U);
    EXPECT_FALSE(Second.Done());
    EXPECT_NE(Second.Header.dwFlags & WHDR_INQUEUE, 0U);
    Home.AdvanceBy(10);
    EXPECT_EQ(Position(), 1323U);
    EXPECT_TRUE(Second.Done());
    ExpectNextHeard(0, 1323);
}

TEST_F(WaveOutTest, AnUnderrunIsAPauseAndLosesNothing) {
    Open(1, 8000);
    Write(80);
    Home.AdvanceBy(500);
    EXPECT_EQ(Position(), 80U);
    Write(80);
    EXPECT_EQ(Position(), 80U);
    Home.AdvanceBy(5);
    EXPECT_EQ(Position(), 120U);
    Home.AdvanceBy(5);
    Write(0);
    Write(8);
    Home.AdvanceBy(1);
    EXPECT_EQ(Position(), 168U);
    ExpectNextHeard(0, 168);
}

TEST_F(WaveOutTest, APauseDropsTheFractionOfAFrameAndContinuesWithTheNextOne) {
    Open(1, 1000);
    Write(10);
    AdvanceNs(3'900'000);
    Device.waveOutPause(Handle);
    Home.AdvanceBy(1000);
    Device.waveOutPause(Handle);
    EXPECT_EQ(Position(), 3U);
    Device.waveOutRestart(Handle);
    AdvanceNs(999'999);
    Device.waveOutRestart(Handle);
    EXPECT_EQ(Position(), 3U);
    AdvanceNs(1);
    EXPECT_EQ(Position(), 4U);
    Home.AdvanceBy(100);
    Device.waveOutPause(Handle);
    Piece& Waiting = Write(5);
    Home.AdvanceBy(100);
    EXPECT_EQ(Position(), 10U) << "a header queued in a pause waits";
    Device.waveOutRestart(Handle);
    Home.AdvanceBy(5);
    EXPECT_EQ(Position(), 15U);
    EXPECT_TRUE(Waiting.Done());
    ExpectNextHeard(0, 15);
}

TEST_F(WaveOutTest, AResetKeepsWhatWasHeardAndStartsFromZero) {
    Open(2, 44100);
    Piece& First = Write(1000);
    Piece& Second = Write(1000);
    AdvanceNs(NsPerSecond * 1234 / 44100 + 5000);
    Device.waveOutPause(Handle);
    EXPECT_EQ(Device.waveOutClose(Handle), WAVERR_STILLPLAYING);
    EXPECT_EQ(Device.waveOutReset(Handle), 0U);
    ExpectNextHeard(0, 1234);
    EXPECT_TRUE(First.Done() && Second.Done());
    EXPECT_EQ(Position(), 0U);
    Write(441);
    Home.AdvanceBy(20);
    EXPECT_EQ(Position(), 441U) << "the reset ended the pause";
    ExpectNextHeard(2000, 2441);
    EXPECT_EQ(Device.waveOutClose(Handle), 0U);
}

TEST_F(WaveOutTest, FinishRecordsExactlyWhatWasHeard) {
    Open(1, 1000);
    Write(100);
    Home.AdvanceBy(42);
    Card.Finish();
    EXPECT_TRUE(Heard.Finished);
    ExpectNextHeard(0, 42);
    Home.AdvanceBy(100);
    EXPECT_EQ(Position(), 100U) << "time goes on";
    Card.Finish();
    ExpectNextHeard(0, 0);
    EXPECT_EQ(Card.Failure(), "");
}

TEST_F(WaveOutTest, AFailedSinkIsSaidOnceAndPlayGoesOnInSilence) {
    Open(1, 1000);
    Write(10);
    Write(10);
    Home.AdvanceBy(10);
    EXPECT_EQ(Position(), 10U);
    Fault = "disk full";
    for (int I = 0; I < 3; ++I)
        Write(10);
    Home.AdvanceBy(100);
    EXPECT_EQ(Position(), 50U);
    Fault.clear();
    Write(10);
    Home.AdvanceBy(100);
    EXPECT_EQ(Position(), 60U);
    ExpectNextHeard(0, 10);
    ASSERT_EQ(Journal.Lines.size(), 1U);
    EXPECT_NE(Journal.Lines[0].find("disk full"), std::string::npos);
    EXPECT_EQ(Card.Failure(), "disk full");
    EXPECT_THROW(Card.Finish(), RuntimeFailure);
    EXPECT_FALSE(Heard.Finished);
}

TEST_F(WaveOutTest, OpeningAnswersEveryWrongArgument) {
    HWAVEOUT Any = 0;
    const WAVEFORMATEX Good = Pcm(2, 44100);
    const auto OpenWith = [&](const WAVEFORMATEX& Format) {
        return Device.waveOutOpen(&Any, 0, &Format, 0, 0, 0);
    };
    const auto Changed = [&](auto Member, auto Value) {
        WAVEFORMATEX Bad = Good;
        Bad.*Member = static_cast<std::remove_reference_t<decltype(Bad.*Member)>>(Value);
        return OpenWith(Bad);
    };
    EXPECT_EQ(Device.waveOutGetNumDevs(), 1U);
    EXPECT_EQ(Device.waveOutOpen(&Any, 1, &Good, 0, 0, 0), MMSYSERR_BADDEVICEID);
    EXPECT_EQ(Device.waveOutOpen(&Any, 0, &Good, 0, 0, 1), MMSYSERR_INVALFLAG);
    EXPECT_EQ(Device.waveOutOpen(&Any, 0, &Good, 1, 0, 0), MMSYSERR_INVALPARAM);
    EXPECT_EQ(Device.waveOutOpen(&Any, 0, &Good, 0, 1, 0), MMSYSERR_INVALPARAM);
    EXPECT_EQ(Device.waveOutOpen(nullptr, 0, &Good, 0, 0, 0), MMSYSERR_INVALPARAM);
    EXPECT_EQ(Device.waveOutOpen(&Any, 0, nullptr, 0, 0, 0), MMSYSERR_INVALPARAM);
    EXPECT_EQ(Changed(&WAVEFORMATEX::wFormatTag, 3), WAVERR_BADFORMAT);
    EXPECT_EQ(Changed(&WAVEFORMATEX::wBitsPerSample, 8), WAVERR_BADFORMAT);
    EXPECT_EQ(Changed(&WAVEFORMATEX::nBlockAlign, 2), WAVERR_BADFORMAT);
    EXPECT_EQ(Changed(&WAVEFORMATEX::nAvgBytesPerSec, 1), WAVERR_BADFORMAT);
    for (const auto& [Count, Hz] :
         {std::pair(0, 44100), {3, 44100}, {1, 99}, {1, 384001}, {2, 0}}) {
        EXPECT_EQ(OpenWith(Pcm(Count, Hz)), WAVERR_BADFORMAT) << Count << " at " << Hz;
    }
    EXPECT_EQ(Any, 0U);
    EXPECT_EQ(OpenWith(Good), MMSYSERR_NOERROR);
    EXPECT_EQ(OpenWith(Good), MMSYSERR_ALLOCATED);
    const HWAVEOUT Old = Any;
    EXPECT_EQ(Device.waveOutClose(Old), MMSYSERR_NOERROR);
    EXPECT_EQ(OpenWith(Good), MMSYSERR_NOERROR);
    EXPECT_EQ(Device.waveOutClose(Old), MMSYSERR_INVALHANDLE) << "a closed handle stays closed";
}

TEST_F(WaveOutTest, AllFunctionsAnswerBadHandlesAndSizes) {
    WAVEHDR Header;
    MMTIME At{77, {0}};
    Open(1, 8000);
    for (const HWAVEOUT Bad : {HWAVEOUT{0}, Handle + 1, HWAVEOUT{0xFFFFFFFF}}) {
        EXPECT_EQ(Device.waveOutPrepareHeader(Bad, &Header, WaveHdrBytes), MMSYSERR_INVALHANDLE);
        EXPECT_EQ(Device.waveOutUnprepareHeader(Bad, &Header, WaveHdrBytes), MMSYSERR_INVALHANDLE);
        EXPECT_EQ(Device.waveOutWrite(Bad, &Header, WaveHdrBytes), MMSYSERR_INVALHANDLE);
        EXPECT_EQ(Device.waveOutGetPosition(Bad, &At, MmTimeBytes), MMSYSERR_INVALHANDLE);
        EXPECT_EQ(Device.waveOutPause(Bad), MMSYSERR_INVALHANDLE);
        EXPECT_EQ(Device.waveOutRestart(Bad), MMSYSERR_INVALHANDLE);
        EXPECT_EQ(Device.waveOutReset(Bad), MMSYSERR_INVALHANDLE);
        EXPECT_EQ(Device.waveOutClose(Bad), MMSYSERR_INVALHANDLE);
    }
    EXPECT_EQ(Device.waveOutPrepareHeader(Handle, nullptr, WaveHdrBytes), MMSYSERR_INVALPARAM);
    EXPECT_EQ(Device.waveOutPrepareHeader(Handle, &Header, 31), MMSYSERR_INVALPARAM);
    EXPECT_EQ(Device.waveOutUnprepareHeader(Handle, &Header, 0), MMSYSERR_INVALPARAM);
    EXPECT_EQ(Device.waveOutWrite(Handle, &Header, sizeof(WAVEHDR)), MMSYSERR_INVALPARAM);
    EXPECT_EQ(Device.waveOutGetPosition(Handle, nullptr, MmTimeBytes), MMSYSERR_INVALPARAM);
    EXPECT_EQ(Device.waveOutGetPosition(Handle, &At, 8), MMSYSERR_INVALPARAM);
    EXPECT_EQ(At.wType, 77U);
    EXPECT_EQ(Device.waveOutGetPosition(Handle, &At, MmTimeBytes), MMSYSERR_NOERROR);
    EXPECT_EQ(At.wType, TIME_SAMPLES);
}

TEST_F(WaveOutTest, HeadersAreCheckedBeforeAnythingIsQueued) {
    Open(2, 8000);
    const std::array<std::int16_t, 8> Samples{};
    WAVEHDR Header;
    const auto Write = [&] { return Device.waveOutWrite(Handle, &Header, WaveHdrBytes); };
    const auto Unprepare = [&] {
        return Device.waveOutUnprepareHeader(Handle, &Header, WaveHdrBytes);
    };
    EXPECT_EQ(Write(), WAVERR_UNPREPARED);
    EXPECT_EQ(Unprepare(), MMSYSERR_NOERROR);
    EXPECT_EQ(Device.waveOutPrepareHeader(Handle, &Header, WaveHdrBytes), MMSYSERR_NOERROR);
    EXPECT_EQ(Write(), MMSYSERR_NOERROR) << "no frames";
    EXPECT_EQ(Header.dwFlags, WHDR_PREPARED | WHDR_DONE);
    Header.dwBufferLength = 8;
    EXPECT_EQ(Write(), MMSYSERR_INVALPARAM) << "no samples";
    const char* Start = reinterpret_cast<const char*>(Samples.data());
    Header.lpData = Start + 1;
    EXPECT_EQ(Write(), MMSYSERR_INVALPARAM) << "an odd address";
    Header.lpData = Start;
    Header.dwBufferLength = 6;
    EXPECT_EQ(Write(), MMSYSERR_INVALPARAM) << "a frame and a half";
    Home.AdvanceBy(100);
    EXPECT_EQ(Position(), 0U);
    Header.dwBufferLength = 16;
    EXPECT_EQ(Write(), MMSYSERR_NOERROR);
    EXPECT_EQ(Write(), WAVERR_STILLPLAYING);
    EXPECT_EQ(Unprepare(), WAVERR_STILLPLAYING);
    Header.dwFlags = 0;
    EXPECT_EQ(Device.waveOutPrepareHeader(Handle, &Header, WaveHdrBytes), WAVERR_STILLPLAYING);
    Home.AdvanceBy(1);
    EXPECT_EQ(Unprepare(), MMSYSERR_NOERROR);
    EXPECT_EQ(Position(), 4U);
    EXPECT_EQ(Write(), WAVERR_UNPREPARED);
}

TEST(SoundCardTest, AMachineWithoutADeviceRefusesAndANullSinkOnlyKeepsTime) {
    VirtualClock Time;
    ListLog Journal;
    Apartment Home{Time, Journal};
    const WAVEFORMATEX Format = Pcm(1, 8000);
    HWAVEOUT Handle = 0;
    SoundCard Nothing(Home, MakeSink("none"), {}, Journal);
    WaveOutDevice Missing(Nothing);
    EXPECT_EQ(Missing.waveOutGetNumDevs(), 0U);
    EXPECT_EQ(Missing.waveOutOpen(&Handle, WAVE_MAPPER, &Format, 0, 0, 0), MMSYSERR_BADDEVICEID);
    Nothing.Finish();

    SoundCard Quiet(Home, MakeSink("null"), {}, Journal);
    WaveOutDevice Device(Quiet);
    ASSERT_EQ(Device.waveOutOpen(&Handle, WAVE_MAPPER, &Format, 0, 0, 0), MMSYSERR_NOERROR);
    const std::vector<std::int16_t> Samples(8000);
    WAVEHDR Header{reinterpret_cast<const char*>(Samples.data()), 16000};
    Device.waveOutPrepareHeader(Handle, &Header, WaveHdrBytes);
    Device.waveOutWrite(Handle, &Header, WaveHdrBytes);
    Home.AdvanceBy(500);
    MMTIME At{TIME_SAMPLES, {0}};
    Device.waveOutGetPosition(Handle, &At, MmTimeBytes);
    EXPECT_EQ(At.sample, 4000U);
    Quiet.Finish();
}

}  // namespace
}  // namespace Tolvar::Testing
