#include <signal.h>

#include <cmath>
#include <filesystem>
#include <numbers>

#include "Program.h"
#include "waveplay/files/WorkFolder.h"
#include "waveplay/sound/ChannelMix.h"

namespace Tolvar::Testing {
namespace {

constexpr int Flac = SF_FORMAT_FLAC | SF_FORMAT_PCM_16;
constexpr int FloatWav = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
constexpr int Vorbis = SF_FORMAT_OGG | SF_FORMAT_VORBIS;

std::vector<double> Sine(int Frames, int Channels, int Rate, double Hertz = 440) {
    std::vector<double> Wave;
    for (int Frame = 0; Frame < Frames; ++Frame)
        Wave.insert(Wave.end(), static_cast<std::size_t>(Channels),
                    0.5 * std::sin(2 * std::numbers::pi * Hertz * Frame / Rate));
    return Wave;
}

// How far what was heard is from Wanted at most, in units of the last bit.
double Farthest(const Samples& Heard, const std::vector<double>& Wanted) {
    if (Heard.size() != Wanted.size()) return 1e9;
    double Most = 0;
    for (std::size_t Index = 0; Index < Heard.size(); ++Index)
        Most = std::max(Most, std::abs(Heard[Index] - Wanted[Index] * 32768));
    return Most;
}

template <typename Wave>
Wave Part(const Wave& All, int From, int To, int Channels) {
    if (std::ssize(All) < To * Channels) throw std::out_of_range("there is less");
    return {All.begin() + From * Channels, All.begin() + To * Channels};
}

/// A temporary folder of the test's own for the program's work files.
class Pieces : public Test {
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
};

// Noise of at most a bit and half a bit of rounding, the same in every run; peaks saturate.
TEST_F(Pieces, OfMoreThanSixteenBitsAreDithered) {
    auto Wave = Sine(30000, 2, 48000, 997);
    for (const auto& [Kind, Bound] : {std::pair(SF_FORMAT_WAV | SF_FORMAT_PCM_24, 1.51),
                                      {FloatWav, 1.51},
                                      {SF_FORMAT_FLAC | SF_FORMAT_PCM_24, 1.51},
                                      {SF_FORMAT_AIFF | SF_FORMAT_PCM_32, 1.51},
                                      {Vorbis, 3000.0}}) {
        Waveplay.PutSound("in.any", Kind, 2, 48000, Wave);
        const Samples Heard = Waveplay.Render({"in.any"});
        EXPECT_LT(Farthest(Heard, Wave), Bound) << std::hex << Kind;
        EXPECT_GT(Farthest(Heard, Wave), 0.6) << "no noise: " << std::hex << Kind;
        EXPECT_TRUE(Waveplay.Render({"in.any"}) == Heard);
    }
    Waveplay.PutSound("loud.wav", FloatWav, 1, 8000, std::vector<double>{1.5, -1.5, NAN, 0.25});
    EXPECT_THAT(Waveplay.Render({"loud.wav"}), ElementsAre(32767, -32768, 0, Gt(8000)));
}

TEST_F(Pieces, OfSixteenBitsAreCutToTheFrameWhateverHoldsThem) {
    const Samples In = Numbered(20000, 2);
    for (const int Holder :
         std::initializer_list<int>{SF_FORMAT_WAV, SF_FORMAT_WAV | SF_ENDIAN_BIG, SF_FORMAT_FLAC,
                                    SF_FORMAT_AIFF, SF_FORMAT_CAF, SF_FORMAT_AU}) {
        Waveplay.PutSound("i\\n", Holder | SF_FORMAT_PCM_16, 2, 8000, In);
        EXPECT_TRUE(Waveplay.Render({"i\\n[0.5:1.25]"}) == Part(In, 4000, 10000, 2))
            << std::hex << Holder;
        EXPECT_TRUE(Waveplay.Render({"i\\n[:1]", "i\\n[1:]"}) == In) << std::hex << Holder;
        EXPECT_TRUE(Waveplay.Render({"i\\n[0.3:0.3]", "i\\n[:0.0004]"}) == Part(In, 0, 3, 2));
    }
    const Samples Head10 = Part(In, 0, 10, 2);
    Waveplay.PutWav("in.wav[0:1]", 16, 2, 8000, Head10);
    EXPECT_TRUE(Waveplay.Render({"in.wav[0:1]"}) == Head10) << "a name that exists";
}

// Dither and resampling know nothing of where a cut lies.
TEST_F(Pieces, JoinWithoutASeamWhereTheyWereCut) {
    Waveplay.PutWav("slow.wav", 16, 2, 8000, {0, 0});
    for (const int Kind : {FloatWav, Vorbis}) {
        Waveplay.PutSound("in", Kind, 2, 44100, Sine(60000, 2, 44100));
        for (const std::string First : {"slow.wav[0:0]", "silence:0"}) {
            const auto Whole = Waveplay.Render({First, "in[0.1:1.1003]"});
            EXPECT_TRUE(Waveplay.Render({First, "in[0.1:0.777]", "in[0.777:1.1003]"}) == Whole)
                << First << " " << Kind;
        }
        const auto Heard = Waveplay.Render({"in"});
        EXPECT_TRUE(Waveplay.Render({"in[0.5:1]"}) == Part(Heard, 22050, 44100, 2));
    }
}

// A guess from the size and the frames at the beginning, which are small, would fall far short.
TEST_F(Pieces, OfMpegAudioPlayToTheEndAlsoWhenNothingCountsTheFrames) {
    Samples Loud(30000);
    for (const std::int16_t Sample : Numbered(60000, 1))
        Loud.push_back(static_cast<std::int16_t>(Sample / 2));
    Waveplay.PutSound("in.mp3", SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III, 1, 44100, Loud);
    EXPECT_EQ(Waveplay.Render({"in.mp3"}).size(), Loud.size());

    std::string Bytes = Get(Waveplay.Path("in.mp3"));
    for (const std::string Mark : {"Xing", "Info"}) {
        const std::size_t At = Bytes.find(Mark);
        if (At < 100) Bytes.replace(At, 4, 4, '\0');
    }
    Put(Waveplay.Path("in.mp3"), Bytes + "TAG" + std::string(125, ' '));
    const Samples Heard = Waveplay.Render({"in.mp3"});
    EXPECT_GE(Heard.size(), Loud.size());
    EXPECT_LT(Heard.size(), Loud.size() + 5 * 1152);
    EXPECT_GT(*std::max_element(Heard.end() - 4000, Heard.end()), 8000);
    EXPECT_TRUE(Waveplay.Render({"in.mp3[1:1.5]"}) == Part(Heard, 44100, 66150, 1));

    Put(Waveplay.Path("in.mp3"), Bytes.substr(0, Bytes.size() - 700));  // in the middle of a frame
    EXPECT_GT(Waveplay.Render({"in.mp3"}).size(), Heard.size() - 3 * 4096);
}

// Two names that differ in their letter case only are two files all the same.
TEST_F(Pieces, TakeTheFirstOnesChannelsAndKeepTheirBits) {
    const Samples Mono = Numbered(5000, 1), Eight = Numbered(5037, 1, 8);
    const Samples Capital = Mirrored(Mono, 1);
    Samples Both;
    for (const std::int16_t Sample : Mono)
        Both.insert(Both.end(), 2, Sample);
    Waveplay.PutWav("a.wav", 16, 1, 8000, Mono);
    Waveplay.PutWav("A.wav", 16, 1, 8000, Capital);
    Waveplay.PutWav("eight.wav", 8, 1, 8000, Eight);
    Waveplay.PutSound("a.flac", Flac, 1, 8000, Mono);
    Waveplay.PutWav("both.wav", 16, 2, 8000, Both);
    EXPECT_TRUE(Waveplay.Render({"both.wav", "a.flac"}) == Joined({Both, Both}));
    EXPECT_TRUE(Waveplay.Render({"a.wav", "both.wav"}) == Joined({Mono, Mono}));
    EXPECT_TRUE(Waveplay.Render({"a.wav", "silence:0.25", "A.wav", "silence:0", "a.wav"}) ==
                Joined({Mono, Samples(2000), Capital, Mono}));
    EXPECT_TRUE(Waveplay.Render({"eight.wav", "a.wav"}) == Joined({Eight, Mono}));
    EXPECT_TRUE(Waveplay.Render({"a.flac", "eight.wav"}) == Joined({Mono, Eight}));
}

// A tone keeps its pitch, its level and its length at every rate, up to the edges' ringing.
TEST_F(Pieces, TakeTheFirstFilesRate) {
    for (const int Rate : {8000, 44100, 192000}) {
        for (const int Other : {8000, 11025, 48000, 192000}) {
            Waveplay.PutWav("first.wav", 16, 1, Rate, Samples(1));
            Waveplay.PutSound("tone.wav", FloatWav, 1, Other, Sine(Other * 4 / 5, 1, Other));
            const Samples Heard = Waveplay.Render({"first.wav[0:0]", "tone.wav"});
            const auto Wanted = Sine(Rate * 4 / 5, 1, Rate);
            ASSERT_EQ(Heard.size(), Wanted.size()) << Rate << " from " << Other;
            const int Edge = Rate * 4 / 50;
            EXPECT_LT(Farthest(Part(Heard, Edge, 9 * Edge, 1), Part(Wanted, Edge, 9 * Edge, 1)), 3)
                << Rate << " from " << Other;
        }
    }
}

TEST(ChannelMix, KeepsSurroundSoundInBoundsAndOnItsSide) {
    for (int From = 1; From <= 9; ++From) {
        const std::vector<double> Full(static_cast<std::size_t>(From), 1.0);
        EXPECT_THAT(ChannelMix(From, 2).Mix(Full), Pointwise(DoubleNear(1e-12), {1.0, 1.0}));
        EXPECT_NEAR(ChannelMix(From, 1).Mix(Full)[0], 1.0, 1e-12);
    }
    const double Sixth[] = {0.4, 0, 0, 1, 0, 0};  // front left and bass
    EXPECT_THAT(ChannelMix(6, 2).Mix(Sixth),
                Pointwise(DoubleNear(1e-12), {0.4 / (1 + std::numbers::sqrt2), 0.0}));
}

TEST_F(Pieces, NoneIsThePhraseOfTheProgramsOwnWhichTurnsRound) {
    const Outcome Ran = Waveplay.Run({"play", "--clock", "virtual", "--device", "wav:out.wav"});
    EXPECT_EQ(Ran.Code, 0);
    EXPECT_EQ(Ran.Out, "");
    EXPECT_EQ(Ran.Err,
              "Writing to Play Buffer\nStopped\nDone\nPlaying\nplaying forward 1.0 / 4.0 s\n"
              "playing forward 2.0 / 4.0 s\nplaying forward 3.0 / 4.0 s\nPlaying\n"
              "playing reverse 3.0 / 4.0 s\nplaying reverse 2.0 / 4.0 s\n"
              "playing reverse 1.0 / 4.0 s\nplaying reverse 0.0 / 4.0 s\nPlay Done\n");
    const Samples Heard = Waveplay.GetSound("out.wav");
    const int Turn = 4 * 44100 - 44100 / 2;
    const Samples Forward = Part(Heard, 0, Turn, 2);
    EXPECT_TRUE(Part(Heard, Turn, 2 * Turn, 2) == Mirrored(Forward, 2));
    EXPECT_GT(*std::max_element(Forward.begin(), Forward.end()), 4000);
}

TEST_F(Pieces, ThatFindNoRoomLeaveNothing) {
    Waveplay.PutSound("in.flac", Flac, 2, 8000, Numbered(100000, 2));
    for (const auto& [With, Complaint] :
         {std::pair("trap '' XFSZ; ulimit -f 200;", "in.flac: File too large"),
          {"TMPDIR=$PWD/gone", "gone"},
          {"TMPDIR=$PWD/in.flac", "in.flac"},
          {"TMPDIR=$PWD/'tmp\\'", "tmp\\"}}) {
        const Outcome Ran =
            Waveplay.RunShell(std::string(With) + " \"$0\" render in.flac -o out.wav");
        EXPECT_EQ(Ran.Code, 1) << With;
        EXPECT_THAT(Ran.Err, HasSubstr(Complaint));
    }
    EXPECT_THAT(Waveplay.FilesThere(), ElementsAre("in.flac", "tmp"));
}

// A decoder takes a read that fails for the end of the file, and would leave a shorter wave.
TEST_F(Pieces, OfAFileThatCannotBeReadFailAndNeverComeOutShort) {
    constexpr int Mpeg = SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III;
    constexpr int Gsm = SF_FORMAT_RAW | SF_FORMAT_GSM610;  // known by its name alone
    const auto Loud = Sine(4000, 1, 8000);
    const auto Render = [this](const std::string& Name, int FailsAt, int Error) {
        return Waveplay.RunShell(
            "rm -f out.wav; ASAN_OPTIONS=verify_asan_link_order=0 READ_FAILS=" +
            std::to_string(FailsAt) + " READ_ERROR=" + std::to_string(Error) +
            " LD_PRELOAD=" FAILING_READ " \"$0\" render " + Name + " -o out.wav");
    };
    for (const auto& [Name, Format] : {std::pair("in.wav", FloatWav),
                                       {"in.flac", Flac},
                                       {"in.ogg", Vorbis},
                                       {"in.mp3", Mpeg},
                                       {"in.gsm", Gsm}}) {
        Waveplay.PutSound(Name, Format, 1, 8000, Loud);
        const Samples Whole = Waveplay.Render({Name});
        int FailsAt = 1;
        for (Outcome Ran{1, "", ""}; Ran.Code == 1 && FailsAt < 100; FailsAt += 3) {
            Ran = Render(Name, FailsAt, EIO);
            EXPECT_THAT(Ran.Err, HasSubstr(Ran.Code == 0 ? "" : "Input/output error"));
        }
        EXPECT_GT(FailsAt, 6) << Name;
        EXPECT_EQ(Waveplay.GetSound("out.wav"), Whole) << Name;
        EXPECT_EQ(Render(Name, 2, EINTR).Code, 0);
        EXPECT_EQ(Waveplay.GetSound("out.wav"), Whole) << Name;
    }
}

TEST_F(Pieces, SweepUpNothingThatIsAnothers) {
    Waveplay.PutSound("in.flac", Flac, 1, 8000, Numbered(100, 1));
    const std::string Other = Temporary() + "/waveplay-other";
    std::filesystem::create_directory(Other);
    const WorkFolder Living;
    Waveplay.Render({"in.flac"});
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(Temporary()), {}), 2);
    EXPECT_TRUE(std::filesystem::remove(Other));
}

// A run that nobody ended would go on for ever, and so would one whose server outlives it.
TEST_F(Pieces, OfAPlayThatASignalEndsAreSweptUpAndWhatWasHeardIsKept) {
    const struct {
        int Signal, Code;
        const char *Road, *Said;
    } Cases[] = {{SIGKILL, 128 + SIGKILL, "--connect=private", "Playing"},  // the next one sweeps
                 {SIGINT, 130, "--in-process", "\nStopped\ninterrupted\n"},
                 {SIGTERM, 130, "--connect=private", "\nStopped\ninterrupted\n"}};
    const Samples In = Numbered(8000, 2);
    Waveplay.PutSound("in.flac", Flac, 2, 8000, In);
    for (const auto& [Signal, Code, Road, Said] : Cases) {
        const std::string Record = std::to_string(Signal) + ".wav";
        const Outcome Ran = Waveplay.Run({"in.flac", "--loop", "--device", "wav:" + Record, Road},
                                         "", [this, Signal = Signal](pid_t Player) {
                                             EXPECT_FALSE(std::filesystem::is_empty(Temporary()));
                                             kill(Player, Signal);
                                         });
        EXPECT_EQ(Ran.Code, Code) << Ran.Err;
        EXPECT_THAT(Ran.Err, HasSubstr(Said));
        const Samples Heard = Waveplay.GetSound(Record);
        EXPECT_TRUE(std::equal(Heard.begin(), Heard.end(), In.begin()));
    }
}

TEST_F(Pieces, OfAPlayThatASignalMeetsOnItsWayOutAreKeptWhole) {
    const Samples In = Numbered(800, 1);
    Waveplay.PutWav("in.wav", 16, 1, 8000, In);
    for (const char* Road : {"--in-process", "--connect=private"}) {
        const Outcome Ran = Waveplay.RunShell(
            "mkfifo err; \"$0\" in.wav --device wav:out.wav " + std::string(Road) +
            " 2>err & "
            "while read Line; do case $Line in 'Play Done'*) kill -TERM $!; esac; done <err; "
            "rm err; wait $!");
        EXPECT_EQ(Ran.Code, 130) << Road;
        const Samples Heard = Waveplay.GetSound("out.wav");
        EXPECT_TRUE(Heard.size() >= In.size() && std::equal(In.begin(), In.end(), Heard.begin()));
        EXPECT_THAT(Waveplay.FilesThere(), ElementsAre("in.wav", "out.wav", "tmp"));
    }
}

TEST_F(Pieces, LeaveNothingWhenASignalComesWhileTheyAreDecoded) {
    const auto Decode = [](int Interrupted) {
        WorkFolder Folder;
        Put(Folder.NextFile(), "half a wave");
        raise(Interrupted);
    };
    EXPECT_EXIT(Decode(SIGINT), ExitedWithCode(130), "");
    EXPECT_EXIT(Decode(SIGTERM), ExitedWithCode(130), "");
    EXPECT_EXIT(Decode(SIGHUP), KilledBySignal(SIGHUP), "");
}

}  // namespace
}  // namespace Tolvar::Testing
