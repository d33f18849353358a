#include <gmock/gmock.h>
#include <signal.h>

#include <numeric>
#include <sstream>

#include "Program.h"

namespace Tolvar::Testing {
namespace {

using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

constexpr int Rate = 8000;
const std::string HandedOver =
    "@0 event \"S2\" \"Writing to Play Buffer\"\n"
    "@0 event \"S2\" \"Stopped\"\n@0 event \"S2\" \"Done\"\n";

std::string Released(int Ms) {
    return "@" + std::to_string(Ms) + " event \"S2\" \"Driver is Off\"\n";
}

struct Golden {
    const char* Name;
    const char* Engine;
    std::string Script;
    std::string Out;
};

const Golden Goldens[] = {
    {"played through", "waveout",
     "# a comment only\n\nDxObj 1\nload \"one second.wav\"\nPlayAgain\nPlayRunningDx7State\n"
     "wait 500 # ms\nPlayCurrentPosition\nUpdatePlayPosition\nPlayCurrentPosition\nwait-stop\n"
     "PlayRunningDx7State\n",
     "@0 = 2\n" + HandedOver +
         "@0 event \"S2\" \"Playing\"\n@0 = 1\n@500 = 3840\n@500 = 4000\n"
         "@1080 event \"S2\" \"Play Done\"\n@1080 = 0\n" +
         Released(1080)},
    {"looped by the count", "waveout",
     "DxObj 7\nload \"one second.wav\"\nLoopPlayON -1\nPlayAgainRev\nPlayRunningDx7State\n"
     "wait 1080\nLoopPlayON 0\nwait-stop\n",
     "@0 = 2\n" + HandedOver +
         "@0 event \"S2\" \"Playing Loop\"\n@0 = 2\n"
         "@1080 event \"S2\" \"Playing Loop\"\n@1080 event \"S2\" \"Playing Loop 1\"\n"
         "@2160 event \"S2\" \"Play Done\"\n" +
         Released(2160)},
    {"no engine, and an unknown type code", "auto",
     "DxObj -3\nPlayAgain\nPlayCurrentPosition\nblock L 7 80 1 1 1 16 \"\"\n"
     "WriteWaveMemo 16 1 8000 80\n",
     "@0 = -3\n@0 event \"S2\" \"Play Again - Failed\"\n"
     "@0 event \"Not ready\" \"Do \\\"Play New\\\" first\"\n@0 = 0\n"
     "@0 event \"S2\" \"Writing to Play Buffer\"\n@0 event \"S2\" \"Driver is Off\"\n"
     "@0 box \"Error - Block type can not be converted to Block\"\n" +
         Released(0) + "@0 event \"S2\" \"Done\"\n" + Released(0)},
};

TEST(Script, PrintsExactlyThisEachTime) {
    const Program Waveplay;
    Waveplay.PutWav("one second.wav", 16, 2, Rate, Numbered(Rate, 2));
    for (const auto& [Name, Engine, Script, Out] : Goldens) {
        for (int Round = 0; Round < 2; ++Round) {
            const Outcome Ran = Waveplay.Run({"script", "--engine", Engine}, Script);
            EXPECT_EQ(Ran.Out, Out) << Name;
            EXPECT_EQ(Ran.Code, 0) << Name << Ran.Err;
        }
    }
}

TEST(Script, HandsOverTheListsThatItBuilt) {
    const Program Waveplay;
    Samples Expected = Numbered(600, 2);
    Waveplay.PutWav("in \"x\".wav", 16, 2, Rate, Expected);
    std::string Raw(200, '\0');
    std::iota(Raw.begin(), Raw.end(), '\0');
    Put(Waveplay.Path("work.raw"), Raw);

    const std::string Org = " 2 16 \"in \\\"x\\\".wav\"\n";
    const Outcome Ran = Waveplay.Run(
        {"script", "--device", "wav:out.wav", "--engine", "waveout"},
        "DxObj 1\nblock L org 500 1 45" + Org + "block L work 90 + 21 work.raw\n" +
            "block L silent 10 +\nblock R org 600 + 47" + Org +
            "WriteWaveMemo 16 2 8000 600\nPlayAgain\nwait-stop\n" +
            "list L 1 1 0 5 5 1 1 1 16\nWriteWaveMemo 16 2 8000 5\nWriteWaveMemo 16 1 8000 5\n");
    EXPECT_EQ(Ran.Code, 0) << Ran.Err;
    EXPECT_THAT(Ran.Out, HasSubstr("Play Done"));
    for (const char* Emptied : {"Block list right, index 1", "Block list left, index 1"}) {
        EXPECT_THAT(Ran.Out, HasSubstr(Emptied)) << "by the hand-over before";
    }

    for (std::size_t Frame = 500; Frame < 600; ++Frame) {
        const std::size_t Byte = 20 + (Frame - 500) * 2;
        const bool Work = Frame < 590;
        Expected[Frame * 2] = static_cast<std::int16_t>(Work ? Byte | (Byte + 1) << 8U : 0U);
    }
    EXPECT_EQ(Waveplay.GetWav("out.wav").Frames, Expected);
}

TEST(Script, GoesOnAfterACallThatFailedUnlessStrict) {
    const Program Waveplay;
    const std::string Lines =
        "load gone.wav\nblock L silent 2147483647 2\nblock L silent 1 +\n"
        "DxObj 1\nlist L 9 9\nWriteWaveMemo 16 1 8000 8\n"
        "block L silent 8000 1\nWriteWaveMemo 16 1 8000 8000\nPlayAgain\nwait-stop 100\n"
        "release\nPlayAgain\nwait-stop\nrelease\n";

    const Outcome Ran = Waveplay.Run({"script"}, Lines);
    EXPECT_EQ(Ran.Code, 0) << Ran.Err;
    EXPECT_THAT(Ran.Out, MatchesRegex("@0 error \"[^\n]*gone.wav: No such file[^\n]*\"\n"
                                      "@0 error \"Overflow[^\n]*\"\n"
                                      "@0 = 1\n@0 event \"S2\" \"Writing to Play Buffer\"\n"
                                      "@0 error \"[^\n]*left[^\n]*\"\n"
                                      "@0 event \"S2\" \"Writing to Play Buffer\"\n"
                                      "@0 event \"S2\" \"Stopped\"\n@0 event \"S2\" \"Done\"\n"
                                      "@0 event \"S2\" \"Playing\"\n"
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
        {"dance", "unknown command \"dance\""},
        {"playagain", "unknown command"},
        {"DxObj", "HWND is missing"},
        {"DxObj 1 2", "one argument too many"},
        {"DxObj 2147483648", "32-bit"},
        {"PlayAtPos 1.5", "32-bit"},
        {"LoopPlayON 2", "0, 1 or -1"},
        {"PlayTempoFor fast", "decimal"},
        {"PlayTempoRev nan", "decimal"},
        {"wait -1", "milliseconds"},
        {"wait", "MS is missing"},
        {"block M silent 1 1", "L or R"},
        {"block L other 1 1 1 1 16 x", "type code"},
        {"block L silent 1 1 1", "too many"},
        {"block L work 1 1 1", "PATH is missing"},
        {"list R 1 x", "32-bit"},
        {"load \"a b", "quotation"},
        {"load # x", "PATH is missing"}};
    const Program Waveplay;
    for (const auto& [Line, Complaint] : Lines) {
        const Outcome Ran = Waveplay.Run({"script", "-"}, std::string("DxObj 1\n\n") + Line);
        EXPECT_EQ(Ran.Code, 2) << Line;
        EXPECT_EQ(Ran.Out, "") << Line;
        EXPECT_THAT(Ran.Err, HasSubstr("line 3: ")) << Line;
        EXPECT_THAT(Ran.Err, HasSubstr(Complaint)) << Line;
    }
}

std::string WithoutTimes(const std::string& Lines) {
    std::istringstream In(Lines);
    std::string Kept;
    for (std::string Line; std::getline(In, Line);)
        Kept += Line.substr(Line.find(' ')) + "\n";
    return Kept;
}

TEST(Script, SaysTheSameOfAPlayerInAnotherProcess) {
    const Program Waveplay;
    Waveplay.PutWav("in.wav", 16, 2, Rate, Numbered(Rate, 2));
    const std::string Lines =
        "MemorySizeToUse 65536\nAppTmpDir .\nDxObj 1\nPlayAgain\nload gone.wav\nload in.wav\n"
        "PlayTempoFor 2\nPlayTempoRev 4\nLoopPlayON 0\nPlayAgain\nPlayRunningDx7State\n"
        "PlayPause\nPlayRunningDx7State\nPlayContinue\nUpdatePlayPosition\nPlayUTurn\nwait-stop\n"
        "PlayAtPosRev 20\nwait-stop\nPlayAtPos 7900\nStopPlay\nPlayAgainRev\nStopPlay\n"
        "list L 9 9\nWriteWaveMemo 16 1 8000 8\nblock L work 8 1 1 gone.raw\n"
        "WriteWaveMemo 16 1 8000 8\nPlayAgain\nReleaseFiles\nPlayAgain\nPlayCurrentPosition\n";
    const Outcome Near = Waveplay.Run({"script", "--clock", "real", "--in-process"}, Lines);
    const Outcome Far = Waveplay.Run({"script", "--clock", "real"}, Lines);
    EXPECT_EQ(Far.Code, 0) << Far.Err;
    EXPECT_EQ(WithoutTimes(Far.Out), WithoutTimes(Near.Out));
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
    const std::string Last = Ran.Out.substr(Ran.Out.rfind("error"));
    EXPECT_THAT(Last, HasSubstr("the playback server is gone")) << "and nothing behind it";
}

TEST(Script, KeepsTheWallClock) {
    const Program Waveplay;
    const Outcome Ran = Waveplay.Run({"script", "--clock", "real"}, "wait 30\nDxObj 0\n");
    EXPECT_THAT(Ran.Out, MatchesRegex("@(3[0-9]|[4-9][0-9]|[0-9]{3,}) = 0\n[^\n]*\n"));
}

}  // namespace
}  // namespace Tolvar::Testing
