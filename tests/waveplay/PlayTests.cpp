#include <gmock/gmock.h>
#include <signal.h>

#include <filesystem>
#include <iterator>
#include <sstream>

#include "Program.h"

namespace Tolvar::Testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

TEST(Play, TellsItsProgressAndEnds) {
    const Program Waveplay;
    Waveplay.PutWav("in.wav", 16, 1, 8000, Numbered(20000, 1));
    const Outcome Ran = Waveplay.Run({"in.wav", "--clock", "virtual"});
    EXPECT_EQ(Ran.Code, 0);
    EXPECT_EQ(Ran.Out, "");
    EXPECT_EQ(Waveplay.Run({"in.wav", "--clock", "virtual", "-q"}).Err, "");
    EXPECT_EQ(Ran.Err,
              "Writing to Play Buffer\nStopped\nDone\n"
              "Playing\nplaying forward 1.0 / 2.5 s\nplaying forward 2.0 / 2.5 s\nPlay Done\n");
}

TEST(Play, TurnsItsOwnPhraseRoundAndCleansUp) {
    const Program Waveplay;
    std::filesystem::create_directory(Waveplay.Path("tmp"));
    setenv("TMPDIR", Waveplay.Path("tmp").c_str(), 1);
    const Outcome Ran = Waveplay.Run({"play", "--clock", "virtual", "--device", "wav:out.wav"});
    unsetenv("TMPDIR");
    ASSERT_EQ(Ran.Code, 0) << Ran.Err;
    EXPECT_THAT(Ran.Err, HasSubstr("reverse"));
    EXPECT_TRUE(std::filesystem::is_empty(Waveplay.Path("tmp")));

    const Wav Heard = Waveplay.GetWav("out.wav");
    ASSERT_EQ(Heard.Channels, 2);
    const auto Turn = Heard.Frames.begin() + 2 * (4 * 44100 - 44100 / 2);
    const Samples Forward(Heard.Frames.begin(), Turn);
    const auto End = Turn + (Turn - Heard.Frames.begin());
    ASSERT_LE(End, Heard.Frames.end());
    EXPECT_TRUE(Samples(Turn, End) == Mirrored(Forward, 2));
    EXPECT_GT(*std::max_element(Forward.begin(), Forward.end()), 4000);
}

// A run that nobody ended would go on for ever, and so would one whose server outlives it.
TEST(Play, StopsWhenAnyoneEnds) {
    const struct {
        int Signal;
        bool ToServer;
        const char* Road;
        int Code;
        const char* Said;
    } Cases[] = {{SIGINT, false, "--in-process", 130, "\nStopped\ninterrupted\n"},
                 {SIGINT, false, "--connect=private", 130, "\nStopped\ninterrupted\n"},
                 {SIGTERM, false, "--connect=private", 130, "\nStopped\ninterrupted\n"},
                 {SIGKILL, false, "--connect=private", 128 + SIGKILL, ""},
                 {SIGKILL, true, "--connect=private", 1, "the playback server is gone"}};
    for (const auto& [Signal, ToServer, Road, Code, Said] : Cases) {
        const Program Waveplay;
        const Samples In = Numbered(8000, 2);
        Waveplay.PutWav("in.wav", 16, 2, 8000, In);
        const Outcome Ran = Waveplay.Run(
            {"in.wav", "--loop", "--device", "wav:out.wav", Road}, "",
            [&](pid_t Process) { kill(ToServer ? ServerOf(Process) : Process, Signal); });
        EXPECT_EQ(Ran.Code, Code) << Ran.Err;
        EXPECT_THAT(Ran.Err, HasSubstr(Said));
        if (ToServer) continue;
        const Samples Heard = Waveplay.GetWav("out.wav").Frames;
        EXPECT_TRUE(std::equal(Heard.begin(), Heard.end(), In.begin()));
    }
}

TEST(Play, ReachesTheServerOnTheSessionBus) {
    const Program Waveplay;
    const Samples In = Numbered(800, 2);
    Waveplay.PutWav("in.wav", 16, 2, 8000, In);
    if (Waveplay.RunOnBus({"--version"}).Code != 0) GTEST_SKIP() << "there is no dbus-run-session";
    const Outcome Ran = Waveplay.RunOnBus({"in.wav", "--connect", "bus"});
    EXPECT_EQ(Ran.Code, 0) << Ran.Err;
    EXPECT_THAT(Ran.Err, HasSubstr("Playing\nPlay Done\n"));
    const Samples Heard = Waveplay.GetWav("out.wav").Frames;
    ASSERT_GE(Heard.size(), In.size());
    EXPECT_TRUE(std::equal(In.begin(), In.end(), Heard.begin()));
}

TEST(Play, IsARemoteControlsToStopAndToEnd) {
    const Program Waveplay;
    Waveplay.PutWav("in.wav", 16, 2, 8000, Numbered(800, 2));
    if (Waveplay.RunScriptOnBus("busctl --version").Code != 0) GTEST_SKIP() << "no busctl";
    for (const std::string Member : {".Player Stop", " Quit"}) {
        const Outcome Ran = Waveplay.RunScriptOnBus(
            "\"$0\" in.wav --loop --device null & Mpris=org.mpris.MediaPlayer2\n"
            "until busctl --user call $Mpris.waveplay.instance$! /org/mpris/MediaPlayer2 $Mpris" +
            Member + " 2>/dev/null; do kill -0 $! || exit 9; done; wait $!");
        EXPECT_EQ(Ran.Code, 0) << Ran.Err;
        EXPECT_THAT(Ran.Err, ::testing::EndsWith("\nStopped\n"));
    }
}

TEST(Play, SaysWhyThereIsNoServerAndWhatWasLost) {
    const Program Waveplay;
    Waveplay.PutWav("in.wav", 16, 1, 8000, {1});
    const struct {
        const char *Server, *Device, *Complaint;
    } Cases[] = {{"/no/such/server", "null", "/no/such/server: No such file"},
                 {"/bin/false", "null", "did not start (exit code 1)"},
                 {"", "wav:no/such/out.wav", "no/such"},
                 {"", "wav:/dev/full", "No space"}};
    for (const auto& [Server, Device, Complaint] : Cases) {
        setenv("TOLVAR_SERVER", Server, 1);
        const Outcome Ran = Waveplay.Run({"in.wav", "--device", Device});
        EXPECT_EQ(Ran.Code, 1) << Complaint;
        EXPECT_THAT(Ran.Err, HasSubstr(Complaint));
    }
    unsetenv("TOLVAR_SERVER");
}

TEST(CommandLine, MistakesAreUsageFailuresAreNotAndHelpIsDone) {
    const Program Waveplay;
    Waveplay.PutWav("in.wav", 16, 1, 8000, {1});
    const Outcome Deaf = Waveplay.Run({"in.wav", "--device", "none", "--clock", "virtual"});
    EXPECT_EQ(Deaf.Code, 1);
    EXPECT_THAT(Deaf.Err, HasSubstr("there is no sound device"));
    EXPECT_EQ(Waveplay.Run({"gone.wav"}).Code, 1);
    std::istringstream Mistakes(
        "render in.wav\nrender -o out.wav\nplay in.wav --loud\nin.wav --at -1\nin.wav --at soon\n"
        "in.wav --rate 99\nin.wav --rate cd\nin.wav --device radio\nin.wav --engine dx8\n"
        "in.wav --clock sun\nin.wav --memory -1\nin.wav --tempo 0\nscript --device auto\nscript a "
        "b\n"
        "in.wav --connect home\n--connect bus --in-process\nscript --connect bus\n"
        "in.wav --connect=bus --device=null\nin.wav --connect=bus --rate=wave\n"
        "in.wav --connect=bus --engine=dx7\nin.wav --connect=bus --log=x\n");
    for (std::string Line; std::getline(Mistakes, Line);) {
        std::istringstream Words(Line);
        const std::istream_iterator<std::string> First(Words), End;
        EXPECT_EQ(Waveplay.Run({First, End}).Code, 2) << Line;
    }
    for (const std::string Command : {"play", "render", "script"}) {
        const Outcome Ran = Waveplay.Run({Command, "--help"});
        EXPECT_EQ(Ran.Code, 0);
        EXPECT_THAT(Ran.Out, HasSubstr("Example"));
    }
    EXPECT_THAT(Waveplay.Run({"--version"}).Out, HasSubstr("waveplay"));
    EXPECT_EQ(Waveplay.Run({"script", "gone.txt"}).Code, 1);
    EXPECT_THAT(Waveplay.FilesThere(), ElementsAre("in.wav"));
}

}  // namespace
}  // namespace Tolvar::Testing
