#include <gmock/gmock.h>
#include <sndfile.h>

#include <algorithm>

#include "Program.h"

namespace Tolvar::Testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

struct Shape {
    int Bits;
    int Channels;
    int Rate;
    int Frames;
};

std::vector<std::int16_t> Scaled(std::vector<std::int16_t> Samples, int Bits) {
    if (Bits == 16) return Samples;
    for (std::int16_t& Sample : Samples)
        Sample = static_cast<std::int16_t>(Sample * 256);
    return Samples;
}

// A segment holds four seconds, so the lengths lie around one and two of them.
TEST(Render, GivesBackEverySampleInBothDirections) {
    constexpr int Segment = 4 * 8000;
    const Program Waveplay;
    for (const auto& [Bits, Channels, Rate, Frames] :
         std::initializer_list<Shape>{{16, 2, 8000, 1},
                                      {8, 1, 8000, 1},
                                      {16, 1, 8000, Segment - 1},
                                      {16, 2, 8000, Segment},
                                      {16, 2, 8000, Segment + 1},
                                      {8, 2, 8000, Segment},
                                      {8, 1, 8000, 2 * Segment},
                                      {16, 2, 8000, 2 * Segment},
                                      {16, 1, 11025, 3 * 4 * 11025 + 17},
                                      {16, 2, 96000, 100000}}) {
        const auto Samples = Numbered(Frames, Channels, Bits);
        Waveplay.PutWav("in.wav", Bits, Channels, Rate, Samples);
        for (const bool Reverse : {false, true}) {
            std::vector<std::string> Line{"render", "in.wav", "-o", "out.wav"};
            if (Reverse) Line.emplace_back("--reverse");
            const Outcome Ran = Waveplay.Run(Line);
            ASSERT_EQ(Ran.Code, 0) << Ran.Err;
            const Program::Wav Heard = Waveplay.GetWav("out.wav");
            EXPECT_EQ(Heard.Channels, Channels);
            EXPECT_EQ(Heard.Rate, Rate);
            EXPECT_EQ(Heard.Format, SF_FORMAT_WAV | SF_FORMAT_PCM_16);
            const auto Expected = Scaled(Samples, Bits);
            EXPECT_TRUE(Heard.Samples == (Reverse ? Mirrored(Expected, Channels) : Expected))
                << Bits << " bits, " << Channels << " channels, " << Frames << " frames, reverse "
                << Reverse;
        }
    }
}

TEST(Render, JoinsPiecesThatLieInPlace) {
    const Program Waveplay;
    std::vector<std::string> Line{"render"};
    std::vector<std::int16_t> Expected;
    for (int Piece = 0; Piece < 10; ++Piece) {
        // Two names differ in their letter case only and are two files all the same.
        const std::string Name =
            std::string(Piece % 2 == 0 ? "a" : "A") + std::to_string(Piece / 2) + ".wav";
        const auto Samples = Numbered(5000 + Piece * 37, 2);
        std::vector<std::int16_t> Own(Samples.begin() + Piece * 10, Samples.end());
        Waveplay.PutWav(Name, 16, 2, 8000, Own);
        Line.insert(Line.end(), {Name, "silence:0.25"});
        Expected.insert(Expected.end(), Own.begin(), Own.end());
        Expected.resize(Expected.size() + 2 * 2000);
    }
    Line.insert(Line.end(), {"silence:0", "a0.wav", "-o", "a0.wav"});
    Expected.insert(Expected.end(), Expected.begin(), Expected.begin() + 2 * 5000);
    const Outcome Ran = Waveplay.Run(Line);
    ASSERT_EQ(Ran.Code, 0) << Ran.Err;
    EXPECT_TRUE(Waveplay.GetWav("a0.wav").Samples == Expected) << "out is also in";
}

TEST(Render, BeginsWhereItIsTold) {
    const Program Waveplay;
    const auto Samples = Numbered(8000, 1);
    Waveplay.PutWav("in.wav", 16, 1, 8000, Samples);
    const auto Cut = Samples.begin() + 2000;

    EXPECT_EQ(Waveplay.Run({"render", "in.wav", "--at", "0.25", "-o", "behind.wav"}).Code, 0);
    EXPECT_EQ(Waveplay.GetWav("behind.wav").Samples, std::vector(Cut, Samples.end()));
    EXPECT_EQ(Waveplay.Run({"render", "in.wav", "--at", "0.25", "--reverse", "-o", "b.wav"}).Code,
              0);
    EXPECT_EQ(Waveplay.GetWav("b.wav").Samples, Mirrored({Samples.begin(), Cut}, 1));
    for (const std::string Way : {"--at=1", "--at=0"}) {
        std::vector<std::string> Line{"render", "in.wav", Way, "-o", "none.wav"};
        if (Way == "--at=0") Line.emplace_back("--reverse");
        EXPECT_EQ(Waveplay.Run(Line).Code, 1) << "nothing lies there";
    }
}

TEST(Render, WritesStandardOutputAndOtherRates) {
    const Program Waveplay;
    Waveplay.PutWav("in.wav", 16, 2, 8000, Numbered(8000, 2));
    ASSERT_EQ(Waveplay.Run({"render", "in.wav", "-o", "out.wav"}).Code, 0);
    const Outcome Piped = Waveplay.Run({"render", "in.wav", "-o", "-"});
    EXPECT_EQ(Piped.Code, 0) << Piped.Err;
    EXPECT_TRUE(Piped.Out == Waveplay.Get("out.wav"));

    ASSERT_EQ(Waveplay.Run({"render", "in.wav", "--rate", "48000", "-o", "up.wav"}).Code, 0);
    const Program::Wav Up = Waveplay.GetWav("up.wav");
    EXPECT_EQ(Up.Rate, 48000);
    EXPECT_EQ(Up.Samples.size(), 48000U * 2);
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

const std::string Mono16 = Chunk("fmt ", 16, {"\1\0\1\0\x40\x1F\0\0\x80\x3E\0\0\2\0\x10\0", 16});

TEST(Render, FindsTheSamplesInOddFiles) {
    const std::string Six("\1\0\2\0\3\0", 6);
    const std::string Odd = Chunk("LIST", 5, std::string("abcde\0", 6));
    const std::string Files[] = {
        Riff(Mono16 + Odd + Chunk("data", 6, Six)),
        Riff(Odd + Mono16 + Chunk("data", 6, Six) + Chunk("junk", 4, "data")),
        Riff(Mono16 + Chunk("data", 6000, Six)),         // says more than there is
        Riff(Mono16 + Chunk("data", 0xFFFFFFFFU, Six)),  // a stream whose length nobody knew
        Riff(Mono16 + Chunk("data", 7, Six + '\4')),     // half a frame at the end
    };
    const Program Waveplay;
    for (const std::string& Bytes : Files) {
        Waveplay.Put("in.wav", Bytes);
        const Outcome Ran = Waveplay.Run({"render", "in.wav", "-o", "out.wav"});
        ASSERT_EQ(Ran.Code, 0) << Ran.Err;
        EXPECT_THAT(Waveplay.GetWav("out.wav").Samples, ElementsAre(1, 2, 3));
    }
    const std::string Whole = Files[0];
    for (std::size_t Length = 0; Length < Whole.size() - 4; ++Length) {
        Waveplay.Put("in.wav", Whole.substr(0, Length));
        const Outcome Ran = Waveplay.Run({"render", "in.wav", "-o", "cut.wav"});
        EXPECT_EQ(Ran.Code, 1) << "cut at " << Length << ": " << Ran.Err;
    }
}

TEST(Render, RefusesWhatItCannotPlayAndLeavesNothing) {
    const Program Waveplay;
    Waveplay.PutWav("in.wav", 16, 2, 8000, Numbered(100, 2));
    Waveplay.PutWav("mono.wav", 16, 1, 8000, Numbered(100, 1));
    Waveplay.PutWav("eight.wav", 8, 2, 8000, Numbered(100, 2, 8));
    Waveplay.PutWav("fast.wav", 16, 2, 8001, Numbered(100, 2));
    Waveplay.PutWav("three.wav", 16, 3, 8000, Numbered(100, 3));
    Waveplay.PutWav("empty.wav", 16, 2, 8000, {});
    Waveplay.Put("text.wav", "no sound at all");
    Waveplay.Put("float.wav",
                 Riff(Chunk("fmt ", 16, {"\3\0\1\0\x40\x1F\0\0\0\x7D\0\0\4\0\x20\0", 16}) +
                      Chunk("data", 4, std::string(4, '\0'))));
    Waveplay.Put("back\\slash.wav", Waveplay.Get("in.wav"));
    const auto Before = Waveplay.FilesThere();

    const struct {
        std::vector<std::string> Pieces;
        const char* Complaint;
    } Cases[] = {
        {{"gone.wav"}, "gone.wav: No such file"},
        {{"in.wav", "."}, "not a regular file"},
        {{"in.wav", "text.wav"}, "text.wav"},
        {{"float.wav"}, "not a PCM WAV file"},
        {{"three.wav"}, "not a PCM WAV file"},
        {{"in.wav", "mono.wav"}, "cannot be joined"},
        {{"in.wav", "eight.wav"}, "cannot be joined"},
        {{"in.wav", "silence:1", "fast.wav"}, "cannot be joined"},
        {{"empty.wav"}, "no frame"},
        {{"back\\slash.wav"}, "backslash"},
        {{"in.wav", "silence:long"}, "not a length"},
        {{"in.wav", "silence:-1"}, "not a length"},
        {{"in.wav", "silence:1e6"}, "2147483647 frames"},
    };
    for (const auto& [Pieces, Complaint] : Cases) {
        std::vector<std::string> Line{"render", "-o", "out.wav"};
        Line.insert(Line.end(), Pieces.begin(), Pieces.end());
        const Outcome Ran = Waveplay.Run(Line);
        EXPECT_EQ(Ran.Code, 1) << Complaint;
        EXPECT_THAT(Ran.Err, HasSubstr(Complaint));
        EXPECT_EQ(Ran.Out, "");
    }
    EXPECT_EQ(Waveplay.Run({"render", "in.wav", "-o", "no/such/folder.wav"}).Code, 1);
    const Outcome Full = Waveplay.Run({"render", "in.wav", "-o", "/dev/full"});
    EXPECT_EQ(Full.Code, 1);
    EXPECT_THAT(Full.Err, HasSubstr("No space"));
    EXPECT_EQ(Waveplay.FilesThere(), Before);
}

}  // namespace
}  // namespace Tolvar::Testing
