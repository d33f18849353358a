#include <sys/stat.h>
#include <unistd.h>

#include <future>

#include "card/frames/EdgeRamps.h"
#include "card/frames/OutputConverter.h"
#include "card/sinks/WavSink.h"
#include "tests/card/CardRig.h"
#include "tests/support/TempFolder.h"

namespace Tolvar::Testing {
namespace {

/// A WAV file that holds exactly these.
std::string WavOf(const Samples& Some, std::uint32_t Channels, std::uint32_t Hz) {
    const auto Word = [](std::uint32_t Value) {
        return std::string(reinterpret_cast<const char*>(&Value), 4);
    };
    const auto Bytes = static_cast<std::uint32_t>(Some.size() * 2);
    return "RIFF" + Word(Bytes + 36) + "WAVEfmt " + Word(16) + Word(1 | Channels << 16) + Word(Hz) +
           Word(Hz * Channels * 2) + Word(Channels * 2 | 16 << 16) + "data" + Word(Bytes) +
           BytesOf(Some);
}

void Record(const std::string& Path, const Samples& From, int Channels = 1, int Hz = 8000) {
    const auto Out = MakeSink("wav:" + Path);
    Out->Open(Channels, Hz);
    Out->Write(From);
    Out->Finish();
}

struct WavSinkTest : Test {
    TempFolder Folder;
    const Samples Some{1, -2, 32767, -32768, 0, 256};
};

TEST_F(WavSinkTest, FilesAndPipesHoldTheSamplesBitForBitAsFarAsTheHeaderReaches) {
    Record(Folder / "some", Some, 2, 384000);
    EXPECT_EQ(Get(Folder / "some"), WavOf(Some, 2, 384000));
    MakeSink("wav:" + (Folder / "empty"))->Finish();
    EXPECT_EQ(Get(Folder / "empty"), WavOf({}, 2, 44100));
    const Samples Long(200'001, 12345);
    ::mkfifo((Folder / "pipe").c_str(), 0600);
    auto Piped = std::async(std::launch::async, [&] { return Get(Folder / "pipe"); });
    Record(Folder / "pipe", Long);
    EXPECT_TRUE(Piped.get() == WavOf(Long, 1, 8000));
    WavSink Small(Folder / "big.wav", 20);
    Small.Open(2, 8000);
    Small.Write(Some);
    EXPECT_THAT(FailureOf([&] { Small.Write(Some); }),
                AllOf(HasSubstr("big.wav"), HasSubstr("4 GiB")));
}

TEST_F(WavSinkTest, TheTargetIsUntouchedUntilItIsReplacedWhole) {
    using std::filesystem::perms, std::filesystem::status;
    Put(Folder / "t.wav", "old");
    ::chmod((Folder / "t.wav").c_str(), 0640);
    ASSERT_EQ(::symlink("t.wav", (Folder / "link").c_str()), 0);
    WavSink(Folder / "link").Open(1, 8000);
    EXPECT_THAT(Folder.Names(), ElementsAre("link", "t.wav")) << "no half file";
    EXPECT_EQ(Get(Folder / "t.wav"), "old");
    Record(Folder / "link", Some);
    EXPECT_TRUE(std::filesystem::is_symlink(Folder / "link"));
    EXPECT_EQ(Get(Folder / "t.wav"), WavOf(Some, 1, 8000));
    EXPECT_EQ(status(Folder / "t.wav").permissions(), perms{0640});
}

auto AppendTo(Samples& All) {
    return [&All](std::span<const std::int16_t> Some) {
        All.insert(All.end(), Some.begin(), Some.end());
    };
}

TEST(EdgeRamps, RiseAndFallInWhateverPiecesTheRunComes) {
    for (const int Frames : {1, 7, 60, 500}) {
        for (const int Piece : {1, 13, 1000}) {
            EdgeRamps Ramps({2, 8000}, 5);
            Samples Got;
            for (int Left = Frames; Left > 0; Left -= Piece)
                Ramps.Pass(Samples(static_cast<std::size_t>(std::min(Left, Piece)) * 2, 8200),
                           AppendTo(Got));
            Ramps.Finish(AppendTo(Got));
            ASSERT_EQ(std::ssize(Got), Frames * 2);
            for (int I = 0; I < Frames * 2; ++I) {
                const double In = std::min(1.0, (I / 2 + 1) / 41.0);
                const double Down = std::min(1.0, (Frames - I / 2) / 41.0);
                EXPECT_NEAR(Got.begin()[I], 8200 * In * Down, 1);
            }
        }
    }
}

TEST(OutputConverterTest, ChannelsAreAveragedAndRoundedOnce) {
    const auto Converted = [](const Samples& From, int Channels) {
        Samples Out;
        OutputConverter({3 - Channels, 8000}, {Channels, 8000}).Convert(From, AppendTo(Out));
        return Out;
    };
    EXPECT_EQ(
        Converted({1, 2, 2, 3, -1, -2, -2, -3, 32767, 32767, -32768, -32768, 32767, -32768}, 1),
        Samples({2, 2, -2, -2, 32767, -32768, 0}));
    EXPECT_EQ(Converted({5, -6}, 2), Samples({5, 5, -6, -6}));
}

}  // namespace
}  // namespace Tolvar::Testing
