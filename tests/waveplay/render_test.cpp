#include "Program.h"

namespace Tolvar::Testing {
namespace {

TEST(Render, BeginsWhereItIsToldAndMayReplaceItsInput) {
    const Program Waveplay;
    const Samples In = Numbered(8000, 1);
    Waveplay.PutWav("out.wav", 16, 1, 8000, In);
    EXPECT_EQ(Waveplay.Run({"render", "out.wav", "-o", "out.wav", "--at=1"}).Code, 1);
    EXPECT_EQ(Waveplay.Run({"render", "out.wav", "-o", "out.wav", "--at=0", "--reverse"}).Code, 1);
    EXPECT_EQ(Waveplay.Render({"out.wav", "--at", "0.25", "--reverse"}),
              Mirrored({In.begin(), In.begin() + 2000}, 1));
    EXPECT_EQ(Waveplay.Render({"out.wav", "--at", "0.125"}),
              Mirrored({In.begin(), In.begin() + 1000}, 1));
}

TEST(Render, WritesStandardOutputAndOtherRates) {
    const Program Waveplay;
    Waveplay.PutWav("in.wav", 16, 2, 8000, Numbered(8000, 2));
    const std::string In = Get(Waveplay.Path("in.wav"));
    EXPECT_TRUE(Waveplay.Run({"render", "in.wav", "-o", "-"}).Out == In);
    EXPECT_EQ(Waveplay.Render({"in.wav", "--rate", "48000"}).size(), 48000U * 2);
    EXPECT_EQ(SndfileHandle(Waveplay.Path("out.wav")).samplerate(), 48000);
}

TEST(Render, RefusesWhatItCannotPlayAndLeavesNothing) {
    const Program Waveplay;
    Waveplay.PutWav("in.wav", 16, 2, 8000, Numbered(100, 2));
    Waveplay.PutWav("empty.wav", 16, 2, 8000, {});
    Put(Waveplay.Path("text.wav"), "no sound at all");
    Waveplay.PutSound("torn.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 1, 8000, Numbered(50000, 1));
    const std::string Torn = Get(Waveplay.Path("torn.flac"));
    Put(Waveplay.Path("torn.flac"), Torn.substr(0, Torn.size() / 2) + std::string(500, '~'));
    const auto Before = Waveplay.FilesThere();

    for (const auto& [Words, Complaint] :
         {std::pair("out.wav gone.wav[0:1]", "gone.wav: No such file"),
          {"out.wav in.wav .", "not a regular file"},
          {"out.wav in.wav text.wav", "text.wav"},
          {"out.wav empty.wav", "no frame"},
          {"out.wav in.wav[0.01:0.005]", "ends before it begins"},
          {"out.wav in.wav[0.01:0.02]", "in.wav[0.01:0.02]: the cut reaches behind the file's"},
          {"out.wav in.wav[soon:]", "\"soon\" is not a time"},
          {"out.wav torn.flac", "torn.flac behind frame"},
          {"out.wav in.wav silence:long", "not a length"},
          {"out.wav in.wav silence:1e6", "2147483647 frames"},
          {"no/such/folder.wav in.wav", "No such file"},
          {"/dev/full in.wav", "No space"}}) {
        const Outcome Ran = Waveplay.RunShell(std::string("\"$0\" render -o ") + Words);
        EXPECT_EQ(Ran.Code, 1) << Complaint;
        EXPECT_THAT(Ran.Err, HasSubstr(Complaint));
    }
    EXPECT_EQ(Waveplay.FilesThere(), Before);
}

TEST(Render, IsNotHarmedByHowItWasStarted) {
    const Program Waveplay;
    Waveplay.PutWav("in.wav", 16, 2, 8000, Numbered(40000, 2));
    // Nothing that is said may land in the file that gets the number of a closed stream.
    EXPECT_EQ(Waveplay.RunShell("\"$0\" render in.wav -o out.wav 0<&- 1>&- 2>&-").Code, 0);
    EXPECT_EQ(Get(Waveplay.Path("out.wav")), Get(Waveplay.Path("in.wav")));
    for (const auto& [Words, Complaint] :
         {std::pair("render in.wav -o - 1>&-", "Bad file descriptor"),
          {"script - 0<&-", "cannot read standard input: Bad file descriptor"},
          {"render in.wav -o - | true", "cannot write standard output"},
          {"render in.wav -o big.wav", "File too large"}}) {
        const Outcome Ran = Waveplay.RunShell("ulimit -f 100; \"$0\" " + std::string(Words));
        EXPECT_THAT(Ran.Err, HasSubstr(Complaint));
    }
    EXPECT_THAT(Waveplay.FilesThere(), ElementsAre("in.wav", "out.wav"));
}

}  // namespace
}  // namespace Tolvar::Testing
