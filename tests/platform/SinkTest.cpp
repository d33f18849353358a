#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <thread>

#include "platform/EdgeRamps.h"
#include "platform/OutputConverter.h"
#include "platform/WavSink.h"
#include "tests/platform/CardRig.h"
#include "tests/support/TempFolder.h"

namespace Tolvar::Testing {
namespace {

/// The samples of a WAV file whose header says that it holds exactly them.
Samples WavSamples(const std::string& File, std::uint32_t Channels, std::uint32_t Hz) {
    if (File.size() < 44) throw std::runtime_error("no WAV file");
    std::uint32_t Fields[11] = {};
    std::memcpy(Fields, File.data(), 44);
    const auto Bytes = static_cast<std::uint32_t>(File.size());
    EXPECT_THAT(Fields, ElementsAre(0x46464952, Bytes - 8, 0x45564157, 0x20746d66, 16,
                                    1 | Channels << 16, Hz, Hz * Channels * 2,
                                    Channels * 2 | 16 << 16, 0x61746164, Bytes - 44));
    Samples Found((File.size() - 44) / 2);
    std::copy_n(File.data() + 44, Found.size() * 2, reinterpret_cast<char*>(Found.data()));
    return Found;
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

TEST_F(WavSinkTest, FilesPipesAndStandardOutputHoldTheSamplesBitForBit) {
    Record(Folder / "some", Some, 2, 384000);
    EXPECT_EQ(WavSamples(Get(Folder / "some"), 2, 384000), Some);
    MakeSink("wav:" + (Folder / "empty"))->Finish();
    EXPECT_EQ(WavSamples(Get(Folder / "empty"), 2, 44100), Samples{});
    const Samples Long(200'001, 12345);
    ::mkfifo((Folder / "pipe").c_str(), 0600);
    std::string Got;
    std::thread Reader([&] { Got = Get(Folder / "pipe"); });
    Record(Folder / "pipe", Long);
    Reader.join();
    EXPECT_EQ(WavSamples(Got, 1, 8000), Long);
    ::testing::internal::CaptureStdout();
    const std::string Failed = FailureOf([&] { Record("-", Some); });
    EXPECT_EQ(WavSamples(::testing::internal::GetCapturedStdout(), 1, 8000), Some) << Failed;
}

TEST_F(WavSinkTest, TheTargetIsUntouchedUntilItIsReplacedWhole) {
    using std::filesystem::perms, std::filesystem::status;
    Put(Folder / "t.wav", "old");
    ::chmod((Folder / "t.wav").c_str(), 0640);
    ::symlink("t.wav", (Folder / "link").c_str());
    WavSink(Folder / "link").Open(1, 8000);
    EXPECT_THAT(Folder.Names(), ElementsAre("link", "t.wav")) << "no half file";
    EXPECT_EQ(Get(Folder / "t.wav"), "old");
    Record(Folder / "link", Some);
    EXPECT_TRUE(std::filesystem::is_symlink(Folder / "link"));
    EXPECT_EQ(WavSamples(Get(Folder / "t.wav"), 1, 8000), Some);
    EXPECT_EQ(status(Folder / "t.wav").permissions(), perms{0640});
}

TEST_F(WavSinkTest, NoFileGrowsBeyondWhatItsHeaderCanSay) {
    WavSink Small(Folder / "big.wav", 20);
    Small.Open(2, 8000);
    Small.Write(Some);
    EXPECT_THAT(FailureOf([&] { Small.Write(Some); }),
                AllOf(HasSubstr("big.wav"), HasSubstr("4 GiB")));
}

TEST(EdgeRamps, RiseAndFallInWhateverPiecesTheRunComes) {
    for (const int Frames : {1, 7, 60, 500}) {
        for (const std::size_t Piece : {1U, 13U, 1000U}) {
            EdgeRamps Ramps({2, 8000}, 5);
            Samples Got;
            const auto Out = [&](std::span<const std::int16_t> Some) {
                Got.insert(Got.end(), Some.begin(), Some.end());
            };
            const Samples Flat(static_cast<std::size_t>(Frames) * 2, 8200);
            for (std::span Left(Flat); !Left.empty();) {
                const auto Part = Left.first(std::min(Piece * 2, Left.size()));
                Ramps.Pass(Part, Out);
                Left = Left.subspan(Part.size());
            }
            Ramps.Finish(Out);
            ASSERT_EQ(Got.size(), Flat.size());
            for (int Frame = 0; Frame < Frames; ++Frame) {
                const double In = std::min(1.0, (Frame + 1) / 41.0);
                const double Down = std::min(1.0, (Frames - Frame) / 41.0);
                EXPECT_NEAR(Got[static_cast<std::size_t>(Frame) * 2 + 1], 8200 * In * Down, 1);
            }
        }
    }
}

Samples Converted(const Samples& From, StreamFormat Format, StreamFormat To, std::size_t Piece) {
    OutputConverter Run(Format, To);
    Samples Out;
    const auto Take = [&](auto Some) { Out.insert(Out.end(), Some.begin(), Some.end()); };
    for (std::size_t At = 0; At < From.size(); At += Piece)
        Run.Convert(std::span(From).subspan(At, std::min(Piece, From.size() - At)), Take);
    Run.Flush(Take);
    return Out;
}

TEST(OutputConverterTest, WhateverThePiecesTheOutputIsTheSameAndDoesNotDrift) {
    for (const auto& [From, To] : {std::pair(44100, 48000), {384000, 100}, {100, 384000}}) {
        Samples In(static_cast<std::size_t>(From) * 20, 1000);
        for (std::size_t I = 1; I < In.size(); I += 2)
            In[I] = -2000;
        const Samples Whole = Converted(In, {2, From}, {2, To}, In.size());
        EXPECT_NEAR(static_cast<double>(Whole.size()) / 2, To * 10.0, 1) << From << " to " << To;
        EXPECT_NEAR(Whole[Whole.size() / 4 * 2], 1000, 2) << From << " to " << To;
        EXPECT_NEAR(Whole[Whole.size() / 4 * 2 + 1], -2000, 2) << From << " to " << To;
        EXPECT_EQ(Converted(In, {2, From}, {2, To}, 4094), Whole);
    }
    const Samples Stereo{1, 2, 2, 3, -1, -2, -2, -3, 32767, 32767, -32768, -32768, 32767, -32768};
    EXPECT_EQ(Converted(Stereo, {2, 8000}, {1, 8000}, 4), Samples({2, 2, -2, -2, 32767, -32768, 0}))
        << "averaged and rounded once";
    EXPECT_EQ(Converted({5, -6}, {1, 8000}, {2, 8000}, 1), Samples({5, 5, -6, -6}));
}

struct StandInVoice : Voice {
    void CatchUp() override {}
    bool IsPlaying() override { return false; }
};

TEST(SoundCardTest, TheFirstFramesFixTheSinksFormatAndEachVoiceEndsItsOwnRuns) {
    using Rule = SinkRate::Rule;
    for (const auto& [By, Hz] :
         {std::pair(Rule::Wave, 8000), {Rule::Native, 12000}, {Rule::Fixed, 48000}}) {
        CardRig Rig({By, 48000});
        StandInVoice One, Other;
        const auto Second = static_cast<std::size_t>(Hz);
        const auto PlaySecond = [&](const Voice& Of, StreamFormat Format) {
            Rig.Card.Render(
                Of, Format, 8000,
                Samples(static_cast<std::size_t>(Format.RateHz * Format.Channels), 100));
            return Rig.Heard.Heard.size();
        };
        PlaySecond(One, {1, 12000});
        Rig.Card.EndRun(One);
        EXPECT_LT(PlaySecond(One, {2, 16000}), Second * 2) << "the next is still resampled";
        Rig.Card.EndRun(Other);  // that run was not the other voice's
        EXPECT_GE(PlaySecond(Other, {2, 16000}), Second * 2) << "no seamless joining of two voices";
        Rig.Card.Finish();
        EXPECT_EQ(Rig.Heard.RateHz, Hz);
        EXPECT_EQ(Rig.Heard.Heard.size(), Second * 3);
    }
}

}  // namespace
}  // namespace Tolvar::Testing
