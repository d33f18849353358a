#include <gmock/gmock.h>
#include <sndfile.h>

#include "Program.h"

namespace Tolvar::Testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

// A segment holds four seconds, so the lengths lie around one and two of them.
TEST(Render, GivesBackEverySampleInBothDirections) {
    constexpr int Segment = 4 * 8000;
    struct Shape {
        int Bits, Channels, Rate, Frames;
    };
    const Program Waveplay;
    for (const auto& [Bits, Channels, Rate, Frames] : {Shape{16, 2, 8000, 1},
                                                       {8, 1, 8000, 1},
                                                       {16, 1, 8000, Segment - 1},
                                                       {16, 2, 8000, Segment},
                                                       {16, 2, 8000, Segment + 1},
                                                       {8, 2, 8000, Segment},
                                                       {8, 1, 8000, 2 * Segment},
                                                       {16, 1, 11025, 3 * 4 * 11025 + 17},
                                                       {16, 2, 96000, 100000}}) {
        const Samples In = Numbered(Frames, Channels, Bits);
        Waveplay.PutWav("in.wav", Bits, Channels, Rate, In);
        const Wav Heard = Waveplay.Render({"in.wav"});
        EXPECT_EQ(Heard.Channels, Channels);
        EXPECT_EQ(Heard.Rate, Rate);
        EXPECT_EQ(Heard.Format, SF_FORMAT_WAV | SF_FORMAT_PCM_16);
        EXPECT_TRUE(Heard.Frames == In) << Bits << "x" << Channels << ", " << Frames;
        EXPECT_TRUE(Waveplay.Render({"in.wav", "--reverse"}).Frames == Mirrored(In, Channels))
            << Bits << "x" << Channels << ", " << Frames << " in reverse";
    }
}

TEST(Render, JoinsPiecesThatLieInPlace) {
    const Program Waveplay;
    std::vector<std::string> Pieces;
    Samples Expected;
    for (int Piece = 0; Piece < 10; ++Piece) {
        // Two names differ in their letter case only and are two files all the same.
        const std::string Name = (Piece % 2 == 0 ? "a" : "A") + std::to_string(Piece / 2) + ".wav";
        const Samples Own = Numbered(5000 + Piece * 37, 2);
        Waveplay.PutWav(Name, 16, 2, 8000, Own);
        Pieces.insert(Pieces.end(), {Name, "silence:0.25"});
        Expected.insert(Expected.end(), Own.begin(), Own.end());
        Expected.resize(Expected.size() + 2 * 2000);
    }
    Pieces.insert(Pieces.end(), {"silence:0", "a0.wav"});
    Expected.insert(Expected.end(), Expected.begin(), Expected.begin() + 2 * 5000);
    EXPECT_TRUE(Waveplay.Render(Pieces).Frames == Expected);
}

TEST(Render, BeginsWhereItIsToldAndMayReplaceItsInput) {
    const Program Waveplay;
    const Samples In = Numbered(8000, 1);
    Waveplay.PutWav("out.wav", 16, 1, 8000, In);
    const auto Cut = In.begin() + 2000;
    for (const std::string Edge : {"--at=1", "--at=0"}) {
        std::vector<std::string> Line{"render", "out.wav", "-o", "none.wav", Edge};
        if (Edge == "--at=0") Line.emplace_back("--reverse");
        EXPECT_EQ(Waveplay.Run(Line).Code, 1) << "nothing lies there";
    }
    EXPECT_EQ(Waveplay.Render({"out.wav", "--at", "0.25", "--reverse"}).Frames,
              Mirrored({In.begin(), Cut}, 1));
    EXPECT_EQ(Waveplay.Render({"out.wav", "--at", "0.125"}).Frames,
              Mirrored({In.begin(), In.begin() + 1000}, 1));
}

TEST(Render, WritesStandardOutputAndOtherRates) {
    const Program Waveplay;
    Waveplay.PutWav("in.wav", 16, 2, 8000, Numbered(8000, 2));
    const Wav Up = Waveplay.Render({"in.wav", "--rate", "48000"});
    EXPECT_EQ(Up.Rate, 48000);
    EXPECT_EQ(Up.Frames.size(), 48000U * 2);
    Waveplay.Render({"in.wav"});
    EXPECT_TRUE(Waveplay.Run({"render", "in.wav", "-o", "-"}).Out == Get(Waveplay.Path("out.wav")));
}

// The chunk headers that a reader of positions can stumble over.
std::string Chunk(const std::string& Id, std::uint32_t Bytes, const std::string& Body) {
    std::string Text = Id;
    for (int Byte = 0; Byte < 4; ++Byte)
        Text += static_cast<char>(Bytes >> (8 * Byte));
    return Text + Body;
}

std::string Riff(const std::string& Chunks) {
    return Chunk("RIFF", static_cast<std::uint32_t>(Chunks.size() + 4), "WAVE" + Chunks);
}

TEST(Render, FindsTheSamplesInOddFiles) {
    const std::string Mono16 =
        Chunk("fmt ", 16, {"\1\0\1\0\x40\x1F\0\0\x80\x3E\0\0\2\0\x10\0", 16});
    const std::string Six("\1\0\2\0\3\0", 6);
    const std::string Odd = Chunk("LIST", 5, std::string("abcde\0", 6));
    const std::string Whole = Riff(Mono16 + Odd + Chunk("data", 6, Six));
    const Program Waveplay;
    for (const std::string& Bytes :
         {Whole, Riff(Odd + Mono16 + Chunk("data", 6, Six) + Chunk("junk", 4, "data")),
          Riff(Mono16 + Chunk("data", 6000, Six)),         // says more than there is
          Riff(Mono16 + Chunk("data", 0xFFFFFFFFU, Six)),  // a stream whose length nobody knew
          Riff(Mono16 + Chunk("data", 7, Six + '\4'))}) {  // half a frame at the end
        Put(Waveplay.Path("in.wav"), Bytes);
        EXPECT_THAT(Waveplay.Render({"in.wav"}).Frames, ElementsAre(1, 2, 3));
    }
}

TEST(Render, RefusesWhatItCannotPlayAndLeavesNothing) {
    const Program Waveplay;
    Waveplay.PutWav("in.wav", 16, 2, 8000, Numbered(100, 2));
    Waveplay.PutWav("empty.wav", 16, 2, 8000, {});
    Put(Waveplay.Path("text.wav"), "no sound at all");
    Waveplay.PutSound("torn.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 1, 8000,
                      std::vector<double>(50000, 0.5));
    const std::string Torn = Get(Waveplay.Path("torn.flac"));
    Put(Waveplay.Path("torn.flac"), Torn.substr(0, Torn.size() / 2) + std::string(500, '~'));
    const auto Before = Waveplay.FilesThere();

    const struct {
        std::vector<std::string> Line;
        const char* Complaint;
    } Cases[] = {{{"gone.wav"}, "gone.wav: No such file"},
                 {{"in.wav", "."}, "not a regular file"},
                 {{"in.wav", "text.wav"}, "text.wav"},
                 {{"empty.wav"}, "no frame"},
                 {{"in.wav[0.01:0.005]"}, "ends before it begins"},
                 {{"in.wav[0.01:0.02]"}, "in.wav[0.01:0.02]: the cut reaches behind the file's"},
                 {{"in.wav[soon:]"}, "\"soon\" is not a time"},
                 {{"in.wav[-1:]"}, "\"-1\" is not a time"},
                 {{"in.wav[1]"}, "in.wav[1]: No such file"},
                 {{"gone.flac[0:1]"}, "gone.flac: No such file"},
                 {{"torn.flac"}, "torn.flac behind frame"},
                 {{"in.wav", "silence:long"}, "not a length"},
                 {{"in.wav", "silence:1e6"}, "2147483647 frames"},
                 {{"-o", "no/such/folder.wav", "in.wav"}, "No such file"},
                 {{"-o", "/dev/full", "in.wav"}, "No space"}};
    for (const auto& [Line, Complaint] : Cases) {
        std::vector<std::string> Words{"render", "-o", "out.wav"};
        if (Line[0] == "-o") Words.resize(1);
        Words.insert(Words.end(), Line.begin(), Line.end());
        const Outcome Ran = Waveplay.Run(Words);
        EXPECT_EQ(Ran.Code, 1) << Complaint;
        EXPECT_THAT(Ran.Err, HasSubstr(Complaint));
    }
    EXPECT_EQ(Waveplay.FilesThere(), Before);
}

}  // namespace
}  // namespace Tolvar::Testing
