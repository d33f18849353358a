#include <gmock/gmock.h>
#include <signal.h>
#include <sndfile.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <numbers>

#include "Program.h"
#include "waveplay/ChannelMix.h"
#include "waveplay/WorkFolder.h"

namespace Tolvar::Testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Pointwise;

constexpr int Flac = SF_FORMAT_FLAC | SF_FORMAT_PCM_16;
constexpr int FloatWav = SF_FORMAT_WAV | SF_FORMAT_FLOAT;

std::vector<double> Sine(int Frames, int Channels, int Rate, double Hertz = 440) {
    std::vector<double> Wave;
    for (int Frame = 0; Frame < Frames; ++Frame)
        Wave.insert(Wave.end(), static_cast<std::size_t>(Channels),
                    0.5 * std::sin(2 * std::numbers::pi * Hertz * Frame / Rate));
    return Wave;
}

// How far what was heard is from Wanted at most, in units of the last bit.
double Farthest(const Samples& Heard, const std::vector<double>& Wanted) {
    double Most = Heard.size() == Wanted.size() ? 0 : 1e9;
    for (std::size_t Index = 0; Most < 1e9 && Index < Heard.size(); ++Index)
        Most = std::max(Most, std::abs(Heard[Index] - Wanted[Index] * 32768));
    return Most;
}

Samples Part(const Samples& All, int From, int To, int Channels) {
    if (std::ssize(All) < To * Channels) throw std::out_of_range("there is less");
    return {All.begin() + From * Channels, All.begin() + To * Channels};
}

/// A temporary folder of the test's own for the program's work files.
class Pieces : public ::testing::Test {
  protected:
    Pieces() {
        std::filesystem::create_directory(Temporary());
        setenv("TMPDIR", Temporary().c_str(), 1);
    }
    ~Pieces() override {
        EXPECT_TRUE(std::filesystem::is_empty(Temporary())) << "work files are left";
        unsetenv("TMPDIR");
    }

    std::string Temporary() const { return Waveplay.Path("tmp"); }

    const Program Waveplay;
    const std::vector<std::string> Decoding{"render", "in.flac", "-o", "out.wav"};
};

TEST_F(Pieces, OfSixteenBitsComeThroughWhateverHoldsThem) {
    const Samples In = Numbered(20000, 2);
    for (const int Kind :
         {Flac, SF_FORMAT_AIFF | SF_FORMAT_PCM_16, SF_FORMAT_CAF | SF_FORMAT_PCM_16,
          SF_FORMAT_AU | SF_FORMAT_PCM_16, int{SF_FORMAT_WAV | SF_FORMAT_PCM_16 | SF_ENDIAN_BIG}}) {
        Waveplay.PutSound("in\\any", Kind, 2, 44100, In);
        EXPECT_TRUE(Waveplay.Render({"in\\any"}).Frames == In) << std::hex << Kind;
        EXPECT_TRUE(Waveplay.Render({"in\\any", "--reverse"}).Frames == Mirrored(In, 2));
    }
}

// Noise of at most a bit and half a bit of rounding, the same in every run; peaks saturate.
TEST_F(Pieces, OfMoreThanSixteenBitsAreDithered) {
    auto Wave = Sine(30000, 2, 48000, 997);
    for (const auto& [Kind, Bound] : {std::pair(SF_FORMAT_WAV | SF_FORMAT_PCM_24, 1.51),
                                      {FloatWav, 1.51},
                                      {SF_FORMAT_FLAC | SF_FORMAT_PCM_24, 1.51},
                                      {SF_FORMAT_AIFF | SF_FORMAT_PCM_32, 1.51},
                                      {SF_FORMAT_OGG | SF_FORMAT_VORBIS, 3000.0}}) {
        Waveplay.PutSound("in.any", Kind, 2, 48000, Wave);
        const Samples Heard = Waveplay.Render({"in.any"}).Frames;
        EXPECT_LT(Farthest(Heard, Wave), Bound) << std::hex << Kind;
        EXPECT_GT(Farthest(Heard, Wave), 0.6) << "no noise: " << std::hex << Kind;
        EXPECT_TRUE(Waveplay.Render({"in.any"}).Frames == Heard);
    }
    Waveplay.PutSound("loud.wav", FloatWav, 1, 8000, std::vector<double>{1.5, -1.5, NAN, 0.25});
    EXPECT_THAT(Waveplay.Render({"loud.wav"}).Frames,
                ElementsAre(32767, -32768, 0, ::testing::Gt(8000)));
}

TEST_F(Pieces, AreCutToTheFrame) {
    const Samples In = Numbered(20000, 2);
    Waveplay.PutWav("in.wav", 16, 2, 8000, In);
    Waveplay.PutSound("in.flac", Flac, 2, 8000, In);
    for (const std::string File : {"in.wav", "in.flac"}) {
        EXPECT_TRUE(Waveplay.Render({File + "[0.5:1.25]"}).Frames == Part(In, 4000, 10000, 2));
        EXPECT_TRUE(Waveplay.Render({File + "[:1]", File + "[1:]"}).Frames == In);
        EXPECT_TRUE(Waveplay.Render({File + "[0.3:0.3]", File + "[:0.0004]"}).Frames ==
                    Part(In, 0, 3, 2));
    }
    const Samples Head10 = Part(In, 0, 10, 2);
    Waveplay.PutWav("in.wav[0:1]", 16, 2, 8000, Head10);
    EXPECT_TRUE(Waveplay.Render({"in.wav[0:1]"}).Frames == Head10) << "a name that exists";
}

// Dither and resampling know nothing of where a cut lies.
TEST_F(Pieces, JoinWithoutASeamWhereTheyWereCut) {
    Waveplay.PutSound("fine.wav", FloatWav, 2, 44100, Sine(60000, 2, 44100));
    Waveplay.PutSound("in.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS, 2, 44100, Sine(60000, 2, 44100));
    Waveplay.PutWav("slow.wav", 16, 2, 8000, {0, 0});
    for (const std::string File : {"fine.wav", "in.ogg"}) {
        for (const std::string First : {"slow.wav[0:0]", "silence:0"}) {
            const auto Whole = Waveplay.Render({First, File + "[0.1:1.1003]"}).Frames;
            EXPECT_TRUE(
                Waveplay.Render({First, File + "[0.1:0.777]", File + "[0.777:1.1003]"}).Frames ==
                Whole)
                << First << " " << File;
        }
        const auto Heard = Waveplay.Render({File}).Frames;
        EXPECT_TRUE(Waveplay.Render({File + "[0.5:1]"}).Frames == Part(Heard, 22050, 44100, 2));
    }
}

// A guess from the size and the frames at the beginning, which are small, would fall far short.
TEST_F(Pieces, OfMpegAudioPlayToTheEndAlsoWhenNothingCountsTheFrames) {
    Samples Loud(30000);
    for (const std::int16_t Sample : Numbered(60000, 1))
        Loud.push_back(static_cast<std::int16_t>(Sample / 2));
    Waveplay.PutSound("in.mp3", SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III, 1, 44100, Loud);
    EXPECT_EQ(Waveplay.Render({"in.mp3"}).Frames.size(), Loud.size());

    std::string Bytes = Get(Waveplay.Path("in.mp3"));
    for (const std::string Mark : {"Xing", "Info"}) {
        const std::size_t At = Bytes.find(Mark);
        if (At < 100) Bytes.replace(At, 4, 4, '\0');
    }
    Put(Waveplay.Path("in.mp3"), Bytes + "TAG" + std::string(125, ' '));
    const Samples Heard = Waveplay.Render({"in.mp3"}).Frames;
    EXPECT_GE(Heard.size(), Loud.size());
    EXPECT_LT(Heard.size(), Loud.size() + 5 * 1152);
    EXPECT_GT(*std::max_element(Heard.end() - 4000, Heard.end()), 8000);
    EXPECT_TRUE(Waveplay.Render({"in.mp3[1:1.5]"}).Frames == Part(Heard, 44100, 66150, 1));

    Put(Waveplay.Path("in.mp3"), Bytes.substr(0, Bytes.size() - 700));  // in the middle of a frame
    EXPECT_GT(Waveplay.Render({"in.mp3"}).Frames.size(), Heard.size() - 3 * 4096);
}

TEST_F(Pieces, TakeTheFirstFilesChannelsAndBits) {
    const Samples Mono = Numbered(5000, 1), Eight = Numbered(5000, 1, 8);
    Samples Both;
    for (const std::int16_t Sample : Mono)
        Both.insert(Both.end(), 2, Sample);
    Waveplay.PutWav("mono.wav", 16, 1, 8000, Mono);
    Waveplay.PutSound("mono.flac", Flac, 1, 8000, Mono);
    Waveplay.PutWav("both.wav", 16, 2, 8000, Both);
    Waveplay.PutWav("eight.wav", 8, 1, 8000, Eight);
    const auto AreHeardAs = [&](const char* First, const char* Second, Samples Wanted,
                                const Samples& Then) {
        Wanted.insert(Wanted.end(), Then.begin(), Then.end());
        return Waveplay.Render({First, Second}).Frames == Wanted;
    };
    EXPECT_TRUE(AreHeardAs("both.wav", "mono.flac", Both, Both));
    EXPECT_TRUE(AreHeardAs("mono.wav", "both.wav", Mono, Mono));
    EXPECT_TRUE(AreHeardAs("eight.wav", "mono.wav", Eight, Mono));
    EXPECT_TRUE(AreHeardAs("mono.flac", "eight.wav", Mono, Eight));
    EXPECT_TRUE(AreHeardAs("eight.wav", "eight.wav", Eight, Eight));
}

// A tone keeps its pitch, its level and its length at every rate, up to the edges' ringing.
TEST_F(Pieces, TakeTheFirstFilesRate) {
    for (const int Rate : {8000, 44100, 192000}) {
        for (const int Other : {8000, 11025, 48000, 192000}) {
            Waveplay.PutWav("first.wav", 16, 1, Rate, Samples(1));
            Waveplay.PutSound("tone.wav", FloatWav, 1, Other, Sine(Other * 4 / 5, 1, Other));
            const Samples Heard = Waveplay.Render({"first.wav[0:0]", "tone.wav"}).Frames;
            const auto Wanted = Sine(Rate * 4 / 5, 1, Rate);
            ASSERT_EQ(Heard.size(), Wanted.size()) << Rate << " from " << Other;
            const int Edge = Rate * 4 / 50;
            EXPECT_LT(Farthest(Part(Heard, Edge, 9 * Edge, 1),
                               {Wanted.begin() + Edge, Wanted.begin() + 9 * Edge}),
                      3)
                << Rate << " from " << Other;
        }
    }
}

TEST(ChannelMix, KeepsSurroundSoundInBoundsAndOnItsSide) {
    for (int From = 1; From <= 9; ++From) {
        const std::vector<double> Full(static_cast<std::size_t>(From), 1.0);
        EXPECT_THAT(ChannelMix(From, 2).Mix(Full),
                    Pointwise(::testing::DoubleNear(1e-12), {1.0, 1.0}));
        EXPECT_NEAR(ChannelMix(From, 1).Mix(Full)[0], 1.0, 1e-12);
    }
    const double Sixth[] = {0.4, 0, 0, 1, 0, 0};  // front left and bass
    EXPECT_THAT(ChannelMix(6, 2).Mix(Sixth),
                Pointwise(::testing::DoubleNear(1e-12), {0.4 / (1 + std::numbers::sqrt2), 0.0}));
}

TEST_F(Pieces, NoneIsThePhraseOfTheProgramsOwnWhichTurnsRound) {
    const Outcome Ran = Waveplay.Run({"play", "--clock", "virtual", "--device", "wav:out.wav"});
    EXPECT_THAT(Ran.Err, HasSubstr("reverse"));
    const Samples Heard = Waveplay.GetWav("out.wav").Frames;
    const int Turn = 4 * 44100 - 44100 / 2;
    const Samples Forward = Part(Heard, 0, Turn, 2);
    EXPECT_TRUE(Part(Heard, Turn, 2 * Turn, 2) == Mirrored(Forward, 2));
    EXPECT_GT(*std::max_element(Forward.begin(), Forward.end()), 4000);
}

TEST_F(Pieces, ThatFindNoRoomLeaveNothing) {
    Waveplay.PutSound("in.flac", Flac, 2, 8000, Numbered(100000, 2));
    rlimit Before{};
    getrlimit(RLIMIT_FSIZE, &Before);
    signal(SIGXFSZ, SIG_IGN);
    const rlimit Small{100000, Before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &Small);
    const Outcome Full = Waveplay.Run(Decoding);
    setrlimit(RLIMIT_FSIZE, &Before);
    signal(SIGXFSZ, SIG_DFL);
    EXPECT_EQ(Full.Code, 1);
    EXPECT_THAT(Full.Err, HasSubstr("in.flac: File too large"));

    for (const std::string Bad : {"gone", "in.flac", "tmp\\"}) {
        setenv("TMPDIR", Waveplay.Path(Bad).c_str(), 1);
        const Outcome Ran = Waveplay.Run(Decoding);
        EXPECT_EQ(Ran.Code, 1);
        EXPECT_THAT(Ran.Err, HasSubstr(Bad));
    }
    EXPECT_THAT(Waveplay.FilesThere(), ElementsAre("in.flac", "tmp"));
}

// What a killed program left is swept by the next; what a living one uses stays.
TEST_F(Pieces, SweepUpAfterTheDeadOnly) {
    Waveplay.PutSound("in.flac", Flac, 1, 8000, Numbered(100, 1));
    const std::string Dead = Temporary() + "/waveplay-work-dead00";
    std::filesystem::create_directory(Dead);
    Put(Dead + "/1", "left behind");
    const std::string Other = Temporary() + "/waveplay-other";
    std::filesystem::create_directory(Other);
    {
        WorkFolder Living;
        Put(Living.NextFile(), "in use");
        EXPECT_FALSE(std::filesystem::exists(Dead));
        EXPECT_EQ(Waveplay.Run(Decoding).Code, 0);
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(Temporary()), {}), 2);
    }
    EXPECT_TRUE(std::filesystem::remove(Other));
}

TEST_F(Pieces, LeaveNothingWhenASignalComes) {
    for (const int Signal : {SIGINT, SIGTERM, SIGHUP}) {
        const pid_t Child = fork();
        if (Child == 0) {
            WorkFolder Folder;
            WorkFileWriter Out(Folder.NextFile(), 100, "in.flac");
            Out.Append(Samples(50));
            raise(Signal);
            _exit(0);
        }
        int Status = 0;
        waitpid(Child, &Status, 0);
        EXPECT_TRUE(std::filesystem::is_empty(Temporary())) << Signal;
        EXPECT_EQ(WIFSIGNALED(Status), Signal == SIGHUP);
        EXPECT_EQ(WEXITSTATUS(Status), Signal == SIGHUP ? 0 : 130);
    }
    Waveplay.PutSound("in.flac", Flac, 1, 8000, Numbered(8000, 1));
    const auto End = [this](pid_t Player) {
        EXPECT_FALSE(std::filesystem::is_empty(Temporary()));
        kill(Player, SIGTERM);
    };
    EXPECT_EQ(Waveplay.Run({"in.flac", "--loop"}, "", End).Code, 130);
}

}  // namespace
}  // namespace Tolvar::Testing
