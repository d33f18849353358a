#include <signal.h>

#include <regex>

#include "Program.h"

namespace Tolvar::Testing {
namespace {

constexpr int Rate = 8000;

TEST(Script, HandsOverTheListsThatItBuilt) {
    const Program Waveplay;
    Samples Expected = Numbered(600, 2);
    Waveplay.PutWav("in \"x\".wav", 16, 2, Rate, Expected);
    const std::string Org = " 2 16 \"in \\\"x\\\".wav\"\n";
    const Outcome Ran = Waveplay.Run(
        {"script", "--device", "wav:out.wav", "--engine", "waveout"},
        "DxObj 1\nblock L org 500 1 45" + Org + "block L silent 100 +\nblock R org 600 + 47" + Org +
            "WriteWaveMemo 16 2 8000 600\nPlayAgain\nwait-stop\n" +
            "list L 1 1 0 5 5 1 1 1 16\nWriteWaveMemo 16 2 8000 5\n");  // R has been emptied
    EXPECT_EQ(Ran.Code, 0) << Ran.Err;
    EXPECT_THAT(Ran.Out, AllOf(HasSubstr("Play Done"), HasSubstr("Block list right, index 1")));
    for (std::size_t Frame = 500; Frame < 600; ++Frame)
        Expected[Frame * 2] = 0;
    EXPECT_EQ(Waveplay.GetSound("out.wav"), Expected);
}

TEST(Script, GoesOnAfterACallThatFailedUnlessStrict) {
    const Program Waveplay;
    const std::string Lines =
        "load gone.wav\nblock L silent 2147483647 2\nblock L silent 1 +\nPlayAgain\nDxObj 1\n"
        "list L 9 9\nWriteWaveMemo 16 1 8000 8\n\n"
        "block L 7 80 1 1 1 16 \"\"  # of no known kind\nWriteWaveMemo 16 1 8000 80\n"
        "block L silent 8000 1\nWriteWaveMemo 16 1 8000 8000\nPlayAgain\nwait-stop 100\n"
        "release\nPlayAgain\nwait-stop\nrelease\n";
    const Outcome Ran = Waveplay.Run({"script", "-"}, Lines);
    EXPECT_EQ(Ran.Code, 0) << Ran.Err;
    EXPECT_THAT(Ran.Out,
                MatchesRegex("@0 error \"[^\n]*gone.wav: No such file[^\n]*\"\n"
                             "@0 error \"Overflow[^\n]*\"\n"
                             "@0 event \"S2\" \"Play Again - Failed\"\n"
                             "@0 event \"Not ready\" \"Do \\\\\"Play New\\\\\" first\"\n"
                             "@0 = 1\n@0 event \"S2\" \"Writing to Play Buffer\"\n"
                             "@0 error \"[^\n]*left[^\n]*\"\n(@0 event [^\n]*\n)+"
                             "@0 box \"Error - Block type can not be converted to Block\"\n"
                             "(@0 event [^\n]*\n)+@0 event \"S2\" \"Playing\"\n"
                             "@100 error \"still not stopped after 100 ms\"\n"
                             "@100 event \"S2\" \"Driver is Off\"\n"
                             "(@400 error \"the player object has been released\"\n){3}"));

    const Outcome Strict = Waveplay.Run({"script", "--strict"}, Lines);
    EXPECT_EQ(Strict.Code, 1);
    EXPECT_THAT(Strict.Out, MatchesRegex("@0 error [^\n]*\n@0 event \"S2\" \"Driver is Off\"\n"));
}

TEST(Script, DumpsStateEngineAndStore) {
    const Program Waveplay;
    Waveplay.PutWav("in.wav", 8, 2, Rate, Numbered(Rate, 2, 8));
    const Outcome Ran =
        Waveplay.Run({"script", "--engine", "waveout"},
                     "dump\nAppTmpDir \"C:\\tmp\xFF\xC3\xA9\"\nPlayTempoFor 1.25\nLoopPlayON 1\n"
                     "DxObj 1\nload in.wav\nPlayAgain\nwait 999\nUpdatePlayPosition\ndump\n");
    EXPECT_THAT(Ran.Out, StartsWith("@0 = {\"FmtBits\": 0, "));
    EXPECT_THAT(Ran.Out, HasSubstr("\"BlkCarrL\": null"));
    for (const char* Member :
         {"\"PlayTempoFor\": 1.25", "\"LoopPlayON\": -1", "tmp\xEF\xBF\xBD\xC3\xA9\"",
          "\"BlkCarrR\": 8000", "\"PlayCurPos\": 7992", "\"EngineCode\": 2", "\"OrgFileCnt\": 1"}) {
        EXPECT_THAT(Ran.Out, HasSubstr(Member));
    }
}

TEST(Script, AWrongLineIsNamedAndNothingRuns) {
    const std::pair<const char*, const char*> Lines[] = {
        {"playagain", "unknown command"},
        {"DxObj", "HWND is missing"},
        {"DxObj 1 2", "one argument too many"},
        {"PlayAtPos 2147483648", "32-bit"},
        {"LoopPlayON 2", "0, 1 or -1"},
        {"PlayTempoRev nan", "decimal"},
        {"wait -1", "milliseconds"},
        {"block M silent 1 1", "L or R"},
        {"block L other 1 1 1 1 16 x", "type code"},
        {"block L work 1 1 1", "PATH is missing"},
        {"load \"a b", "quotation"}};
    const Program Waveplay;
    for (const auto& [Line, Complaint] : Lines) {
        const Outcome Ran = Waveplay.Run({"script", "-"}, std::string("DxObj 1\n\n") + Line);
        EXPECT_EQ(Ran.Code, 2) << Line;
        EXPECT_EQ(Ran.Out, "") << Line;
        EXPECT_THAT(Ran.Err, AllOf(HasSubstr("line 3: "), HasSubstr(Complaint))) << Line;
    }
}

TEST(Script, SaysTheSameOfAPlayerInAnotherProcess) {
    const Program Waveplay;
    // So long that no play reaches an edge by itself, however slow the machine is.
    Waveplay.PutWav("in.wav", 16, 2, Rate, Numbered(80 * Rate, 2));
    // Every member before a wave, with one that is looped, behind wrong ones and behind the last.
    const std::string First =
        "PlayAgain\nPlayRunningDx7State\nPlayPause\nPlayRunningDx7State\nPlayContinue\n"
        "PlayAgainRev\nUpdatePlayPosition\nPlayAtPos 300000\n";
    const std::string Last =
        "PlayAtPosRev 310000\nPlayRunningDx7State\nStopPlay\nPlayRunningDx7State\n";
    const std::string Each = First + "PlayUTurn\n" + Last;
    const std::string Lines =
        Each +
        "PlayCurrentPosition\nMemorySizeToUse 65536\nAppTmpDir .\nDxObj 0\nDxObj -3\n"
        "DxObj 1\nload gone.wav\nload in.wav\nLoopPlayON 1\n" +
        Each +
        "LoopPlayON 0\nPlayAtPos 639990\nwait-stop\nPlayAtPosRev 20\nwait-stop\n"
        "PlayTempoFor 2\nPlayTempoRev 4\nPlayAgain\nPlayUTurn\nwait-stop\n"
        "list L 9 9\nWriteWaveMemo 16 1 8000 8\n"
        "list L 9 9\nWriteWaveMemo 24 1 8000 8\nWriteWaveMemo 16 1 8000 0\n" +
        Each + "block L work 8000 1 1 gone.raw\nWriteWaveMemo 16 1 8000 8000\n" + Each +
        // Whatever can start without a wave ends at once, in whichever process that is seen.
        "ReleaseFiles\nPlayAgain\nPlayAgainRev\nPlayContinue\nStopPlay\n";
    const Outcome Near = Waveplay.Run({"script", "--clock", "real", "--in-process"}, Lines);
    const Outcome Far = Waveplay.Run({"script", "--clock", "real"}, Lines);
    EXPECT_EQ(Far.Code, 0) << Far.Err;
    const std::regex Time("@[0-9]+");
    EXPECT_EQ(std::regex_replace(Far.Out, Time, "@"), std::regex_replace(Near.Out, Time, "@"));
    EXPECT_THAT(Far.Out, HasSubstr("gone.wav: No such file"));
    EXPECT_THAT(Waveplay.Run({"script", "--clock", "real"}, "dump\n").Out,
                HasSubstr("error \"dump looks inside"));
}

TEST(Script, EndsWithItsServer) {
    const Program Waveplay;
    // The server's log on standard error is the cue: it names the file that cannot be played.
    const Outcome Ran =
        Waveplay.Run({"script", "--clock", "real"},
                     "DxObj 1\nblock L work 8 1 1 Playing\nWriteWaveMemo 16 1 8000 8\nPlayAgain\n"
                     "wait 3600000\nPlayAgain\n",
                     [](pid_t Process) { kill(ServerOf(Process), SIGKILL); });
    EXPECT_EQ(Ran.Code, 1);
    EXPECT_THAT(Ran.Out.substr(Ran.Out.rfind("error")), HasSubstr("the playback server is gone"));
}

}  // namespace
}  // namespace Tolvar::Testing
