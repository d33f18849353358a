#include <signal.h>

#include "Program.h"

namespace Tolvar::Testing {
namespace {

TEST(Play, OnASessionBusReachesItsServerAndObeysARemoteControl) {
    const Program Waveplay;
    if (Waveplay.RunOnBus("busctl --version").Code != 0) GTEST_SKIP() << "there is no session bus";
    const Samples In = Numbered(800, 2);
    Waveplay.PutWav("in.wav", 16, 2, 8000, In);
    const Outcome Far = Waveplay.RunOnBus("\"$0\" in.wav --connect bus");
    EXPECT_EQ(Far.Code, 0) << Far.Err;
    EXPECT_THAT(Far.Err, HasSubstr("Playing\nPlay Done\n"));
    const Samples Heard = Waveplay.GetSound("out.wav");
    ASSERT_GE(Heard.size(), In.size());
    EXPECT_TRUE(std::equal(In.begin(), In.end(), Heard.begin()));

    for (const std::string Member : {".Player Stop", " Quit"}) {
        const Outcome Ran = Waveplay.RunOnBus(
            "\"$0\" in.wav --loop --device null & Mpris=org.mpris.MediaPlayer2\n"
            "until busctl --user call $Mpris.waveplay.instance$! /org/mpris/MediaPlayer2 $Mpris" +
            Member + " 2>/dev/null; do kill -0 $! || exit 9; done; wait $!");
        EXPECT_EQ(Ran.Code, 0) << Ran.Err;
        EXPECT_THAT(Ran.Err, EndsWith("\nStopped\n"));
    }
}

TEST(Play, SaysWhyThereIsNoServerAndWhatWasLost) {
    const Program Waveplay;
    Waveplay.PutWav("in.wav", 16, 1, 8000, {1});
    const struct {
        std::string Server, Device, Complaint;
    } Cases[] = {{"/no/such/server", "null", "/no/such/server: No such file"},
                 {"/bin/false", "null", "did not start (exit code 1)"},
                 {"", "none", "there is no sound device"},
                 {"", "wav:no/such/out.wav", "no/such"},
                 {"", "wav:/dev/full", "No space"}};
    for (const auto& [Server, Device, Complaint] : Cases) {
        const Outcome Ran =
            Waveplay.RunShell("TOLVAR_SERVER=" + Server + " \"$0\" in.wav --device " + Device);
        EXPECT_EQ(Ran.Code, 1) << Complaint;
        EXPECT_THAT(Ran.Err, HasSubstr(Complaint));
    }
}

TEST(Play, WaitsForThePipeThatIsToTakeTheRecording) {
    const Program Waveplay;
    const Samples In = Numbered(800, 1);
    Waveplay.PutWav("in.wav", 16, 1, 8000, In);
    const std::string Begin =
        "mkfifo pipe err; \"$0\" in.wav --device wav:pipe 2>err & "
        "exec 3<err; read Line <&3; echo $Line; ";
    const Outcome Late = Waveplay.RunShell(Begin + "cat pipe >out.wav; wait $!");
    EXPECT_EQ(Late.Code, 0);
    EXPECT_THAT(Late.Out, StartsWith("pipe is a pipe that nobody reads yet"));
    const Samples Heard = Waveplay.GetSound("out.wav");
    EXPECT_TRUE(Heard.size() >= In.size() && std::equal(In.begin(), In.end(), Heard.begin()));
    // The server's end of standard error is closed when it is gone as well.
    Waveplay.RunShell("rm pipe err; " + Begin + "kill -KILL $!; cat <&3");
}

TEST(CommandLine, MistakesAreUsageFailuresAreNotAndHelpIsDone) {
    const Program Waveplay;
    Waveplay.PutWav("in.wav", 16, 1, 8000, {1});
    EXPECT_EQ(Waveplay.Run({"gone.wav"}).Code, 1);
    for (const std::string Words :
         {"render in.wav", "render -o out.wav", "play in.wav --loud", "in.wav --at -1",
          "in.wav --rate cd", "in.wav --device radio", "in.wav --engine dx8", "in.wav --clock sun",
          "in.wav --memory -1", "in.wav --tempo 0", "script --device auto", "script --device wav:-",
          "script a b", "in.wav --connect home", "--connect bus --in-process",
          "script --connect bus", "in.wav --connect=bus --device=null",
          "in.wav --connect=bus --engine=dx7"})
        EXPECT_EQ(Waveplay.RunShell("\"$0\" " + Words).Code, 2) << Words;
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
