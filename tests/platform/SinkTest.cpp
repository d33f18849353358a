#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <numbers>
#include <thread>

#include "platform/Clocks.h"
#include "platform/OutputConverter.h"
#include "platform/SoundCard.h"
#include "platform/WavSink.h"
#include "tests/support/Fakes.h"
#include "tests/support/TempFolder.h"

namespace Tolvar::Testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using Samples = std::vector<std::int16_t>;

/// The samples of a canonical WAV file; fails the test when its header says anything else.
Samples WavSamples(const std::string& File, int Channels, int Hz) {
    const auto Field = [&](std::size_t At, std::size_t Bytes) {
        std::uint32_t Value = 0;
        std::memcpy(&Value, File.data() + At, Bytes);
        return Value;
    };
    if (File.size() < 44) {
        ADD_FAILURE() << "only " << File.size() << " bytes";
        return {};
    }
    EXPECT_EQ(File.substr(0, 4) + File.substr(8, 8) + File.substr(36, 4), "RIFFWAVEfmt data");
    EXPECT_EQ(Field(4, 4), File.size() - 8);
    EXPECT_EQ(Field(20, 2), 1U);
    EXPECT_EQ(Field(22, 2), static_cast<unsigned>(Channels));
    EXPECT_EQ(Field(24, 4), static_cast<unsigned>(Hz));
    EXPECT_EQ(Field(34, 2), 16U);
    EXPECT_EQ(Field(40, 4), File.size() - 44);
    Samples Found((File.size() - 44) / 2);
    if (!Found.empty()) std::memcpy(Found.data(), File.data() + 44, Found.size() * 2);
    return Found;
}

std::string FailureOf(const std::function<void()>& Run) {
    try {
        Run();
    } catch (const RuntimeFailure& Failed) {
        return Failed.what();
    }
    return "nothing failed";
}

void Record(const std::string& Path, const Samples& From, int Channels = 1, int Hz = 8000) {
    const auto Out = MakeSink("wav:" + Path);
    Out->Open(Channels, Hz);
    Out->Write(From);
    Out->Finish();
}

struct WavSinkTest : ::testing::Test {
    TempFolder Folder;
    const Samples Some{1, -2, 32767, -32768, 0, 256};
};

TEST_F(WavSinkTest, HoldsTheSamplesBitForBit) {
    Samples Long(200'001);
    for (std::size_t I = 0; I < Long.size(); ++I)
        Long[I] = static_cast<std::int16_t>(I * 7919);
    Record(Folder / "long", Long, 1, 384000);
    EXPECT_EQ(WavSamples(Get(Folder / "long"), 1, 384000), Long);
    Record(Folder / "some", Some, 2, 11025);
    EXPECT_EQ(WavSamples(Get(Folder / "some"), 2, 11025), Some);
    MakeSink("wav:" + (Folder / "empty"))->Finish();
    EXPECT_THAT(WavSamples(Get(Folder / "empty"), 2, 44100), IsEmpty());
}

TEST_F(WavSinkTest, TheTargetIsUntouchedUntilItIsReplacedWhole) {
    Put(Folder / "t.wav", "old");
    ::chmod((Folder / "t.wav").c_str(), 0640);
    ::symlink("t.wav", (Folder / "link").c_str());
    {
        WavSink Dropped(Folder / "link");
        Dropped.Open(1, 8000);
        Dropped.Write(Some);
    }
    EXPECT_THAT(Folder.Names(), ElementsAre("link", "t.wav")) << "no half file";
    EXPECT_EQ(Get(Folder / "t.wav"), "old");
    Record(Folder / "link", Some);
    EXPECT_EQ(WavSamples(Get(Folder / "t.wav"), 1, 8000), Some);
    EXPECT_THAT(Folder.Names(), ElementsAre("link", "t.wav"));
    EXPECT_TRUE(std::filesystem::is_symlink(Folder / "link"));
    EXPECT_EQ(std::filesystem::status(Folder / "t.wav").permissions(),
              std::filesystem::perms{0640});
}

TEST_F(WavSinkTest, APipeGetsACompleteFile) {
    ::mkfifo((Folder / "pipe").c_str(), 0600);
    std::string Got;
    std::thread Reader([&] { Got = Get(Folder / "pipe"); });
    const Samples Long(100'000, 1234);
    Record(Folder / "pipe", Long);
    Reader.join();
    EXPECT_EQ(WavSamples(Got, 1, 8000), Long);
}

TEST_F(WavSinkTest, StandardOutputIsAFileOrAPipe) {
    Put(Folder / "appended", "before");
    for (const bool Append : {false, true}) {
        const std::string Path = Folder / (Append ? "appended" : "made");
        std::fflush(stdout);
        const int Saved = ::dup(1);
        FILE* const To = std::fopen(Path.c_str(), Append ? "ab" : "wb");
        ASSERT_NE(To, nullptr);
        ::dup2(::fileno(To), 1);
        const std::string Failed = FailureOf([&] { Record("-", Some); });
        ::dup2(Saved, 1);
        ::close(Saved);
        std::fclose(To);
        EXPECT_EQ(Failed, "nothing failed");
        EXPECT_EQ(WavSamples(Get(Path).substr(Append ? 6 : 0), 1, 8000), Some);
    }
}

TEST_F(WavSinkTest, WhatCannotBeWrittenFailsAtOnceAndClearly) {
    std::filesystem::create_directory(Folder / "dir");
    const auto Make = [](const std::string& Name) { return FailureOf([&] { MakeSink(Name); }); };
    EXPECT_THAT(Make("wav:" + (Folder / "no/x.wav")), HasSubstr("No such file"));
    EXPECT_THAT(Make("wav:" + (Folder / "dir")), HasSubstr("Is a directory"));
    EXPECT_THAT(Make("wav:/proc/version"), HasSubstr("/proc/version"));
    for (const auto* Name : {"", "wav:", "wave:x", "alsa", "NULL"}) {
        EXPECT_THAT(Make(Name), HasSubstr("unknown sound device \"" + std::string(Name) + "\""));
    }
    EXPECT_THAT(FailureOf([&] { Record("/dev/full", Some); }),
                AllOf(HasSubstr("/dev/full"), HasSubstr("No space left")));
    EXPECT_EQ(FailureOf([&] { Record("/dev/null", Some); }), "nothing failed");
    EXPECT_THAT(Folder.Names(), ElementsAre("dir"));
}

TEST_F(WavSinkTest, MoreThanAWavFileCanSayIsAFailureAndLeavesNoFile) {
    const std::string Failed = FailureOf([&] {
        WavSink Small(Folder / "big.wav", 20);
        Small.Open(2, 8000);
        Small.Write(std::span(Some).first(4));
        Small.Write(Some);
        Small.Write(std::span(Some).first(2));
    });
    EXPECT_THAT(Failed, AllOf(HasSubstr("big.wav"), HasSubstr("4 GiB")));
    EXPECT_THAT(Folder.Names(), IsEmpty());
}

// ---- conversion

Samples Converted(const Samples& From, StreamFormat Format, StreamFormat To, std::size_t Piece) {
    OutputConverter Run(Format, To);
    Samples Out;
    const auto Take = [&](std::span<const std::int16_t> Some) {
        Out.insert(Out.end(), Some.begin(), Some.end());
    };
    for (std::size_t At = 0; At < From.size(); At += Piece) {
        Run.Convert(std::span(From).subspan(At, std::min(Piece, From.size() - At)), Take);
    }
    Run.Flush(Take);
    return Out;
}

Samples Sine(double Hz, int RateHz, int Frames, int Channels = 1) {
    Samples Made;
    for (int I = 0; I < Frames; ++I) {
        const double Value = 16000 * std::sin(2 * std::numbers::pi * Hz * I / RateHz);
        Made.insert(Made.end(), static_cast<std::size_t>(Channels),
                    static_cast<std::int16_t>(std::lround(Value)));
    }
    return Made;
}

/// The largest difference from the sine, away from the two ends, of every channel.
double ErrorAgainst(const Samples& Ideal, const Samples& Found) {
    double Worst = 0;
    const std::size_t Edge = Ideal.size() / 20;
    for (std::size_t I = Edge; I + Edge < std::min(Ideal.size(), Found.size()); ++I) {
        Worst = std::max(Worst, std::abs(static_cast<double>(Ideal[I] - Found[I])));
    }
    return Worst;
}

TEST(OutputConverterTest, ASineKeepsItsPitchLevelAndPhaseInWhateverPiecesItComes) {
    for (const auto& [From, To] : {std::pair(44100, 48000), {8000, 44100}, {96000, 44100}}) {
        for (const int Channels : {1, 2}) {
            const Samples In = Sine(1000, From, From, Channels);
            const Samples Ideal = Sine(1000, To, To, Channels);
            const Samples Whole = Converted(In, {Channels, From}, {Channels, To}, In.size());
            EXPECT_EQ(Whole.size(), Ideal.size()) << From << " to " << To;
            EXPECT_LE(ErrorAgainst(Ideal, Whole), 4) << From << " to " << To;
            EXPECT_EQ(Converted(In, {Channels, From}, {Channels, To}, 998), Whole);
        }
    }
}

TEST(OutputConverterTest, FrameCountsDoNotDrift) {
    for (const auto& [From, To] :
         {std::pair(44100, 48000), {11025, 44100}, {100, 48000}, {384000, 100}, {100, 384000}}) {
        const Samples In(static_cast<std::size_t>(From) * 10, 1000);
        const Samples Out = Converted(In, {1, From}, {1, To}, 4093);
        EXPECT_NEAR(static_cast<double>(Out.size()), To * 10.0, 1) << From << " to " << To;
        EXPECT_NEAR(Out[Out.size() / 2], 1000, 2) << From << " to " << To;
    }
    EXPECT_EQ(Converted({500}, {1, 44100}, {1, 44100}, 1), Samples{500});
    EXPECT_EQ(Converted({500}, {1, 44100}, {1, 48000}, 1).size(), 1U);
}

TEST(OutputConverterTest, ChannelsAreDoubledOrAveragedAndRoundedOnce) {
    const Samples Stereo{1, 2, 2, 3, -1, -2, -2, -3, 32767, 32767, -32768, -32768, 32767, -32768};
    EXPECT_THAT(Converted(Stereo, {2, 8000}, {1, 8000}, 4),
                ElementsAre(2, 2, -2, -2, 32767, -32768, 0));
    EXPECT_THAT(Converted({5, -6}, {1, 8000}, {2, 8000}, 1), ElementsAre(5, 5, -6, -6));
    const Samples In = Sine(1000, 8000, 8000, 2);
    const Samples Mono = Converted(In, {2, 8000}, {1, 16000}, In.size());
    EXPECT_LE(ErrorAgainst(Sine(1000, 16000, 16000), Mono), 4);
}

struct ForwardingSink : ListeningSink {
    explicit ForwardingSink(ListeningSink& TheListener) : Listener(TheListener) {}
    void Open(int Count, int Rate) override { Listener.Open(Count, Rate); }
    void Write(std::span<const std::int16_t> Some) override { Listener.Write(Some); }
    ListeningSink& Listener;
};

TEST(SoundCardTest, TheFirstFramesFixTheSinksFormatAndLaterRunsAreConverted) {
    using Rule = SinkRate::Rule;
    VirtualClock Time;
    ListLog Journal;
    Apartment Home{Time, Journal};
    for (const auto& [By, Hz] :
         {std::pair(Rule::Wave, 8000), {Rule::Native, 12000}, {Rule::Fixed, 48000}}) {
        ListeningSink Heard;
        SoundCard Card(Home, std::make_unique<ForwardingSink>(Heard), {By, 48000}, Journal);
        const Samples OneSecond(12000, 100);
        Card.Render({1, 12000}, 8000, OneSecond);
        Card.EndRun();
        EXPECT_EQ(Heard.RateHz, Hz);
        EXPECT_EQ(Heard.Channels, 1);
        EXPECT_EQ(Heard.Heard.size(), static_cast<std::size_t>(Hz))
            << "all of it, at the run's end";
        const Samples TwoSecondsStereo(64000, 100);
        Card.Render({2, 16000}, 16000, TwoSecondsStereo);
        Card.Render({1, 12000}, 8000, OneSecond);
        Card.Finish();
        EXPECT_EQ(Heard.Heard.size(), static_cast<std::size_t>(Hz) * 4);
        EXPECT_EQ(Card.Failure(), "");
    }
}

}  // namespace
}  // namespace Tolvar::Testing
