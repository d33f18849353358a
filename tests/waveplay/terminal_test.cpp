#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "Program.h"
#include "platform/posix/Posix.h"
#include "tests/waveplay/terminal/TinyTerminal.h"
#include "waveplay/terminal/HeldErrors.h"

namespace Tolvar::Testing {
namespace {

/// The program on a terminal with somebody in front of it, who reads it when asked to.
class Desk {
  public:
    explicit Desk(const std::string& Words, const std::string& Variables = "") {
        const std::string Script = "export TERM=xterm LC_ALL=C " + Variables +
                                   "\nBefore=$(stty -g); " WAVEPLAY_PROGRAM " --device null " +
                                   Words +
                                   "; Code=$?; [ $Before = $(stty -g) ] && echo restored $Code";
        const winsize Size{12, 60, 0, 0};
        Shell_ = forkpty(&Front, nullptr, nullptr, &Size);
        if (Shell_ == 0) execl("/bin/sh", "sh", "-c", Script.c_str(), nullptr);
    }
    ~Desk() {
        close(Front);  // hangs up
        waitpid(Shell_, nullptr, 0);
    }
    Desk(const Desk&) = delete;
    Desk& operator=(const Desk&) = delete;

    bool Shows(const std::string& Wanted) {
        while (Text(Picture.Cells).find(Wanted) == std::string::npos) {
            if (!Read()) return false;
        }
        return true;
    }
    void Type(std::string_view Keys) const {
        EXPECT_EQ(write(Front, Keys.data(), Keys.size()), std::ssize(Keys));
    }
    pid_t Player() const { return ServerOf(Shell_); }
    /// What stands behind the picture when all is over.
    std::string Left() {
        while (Read()) {
        }
        const std::string GivenBack = "\x1b[?25h\x1b[?1049l";
        return Seen.substr(std::min(Seen.size(), Seen.rfind(GivenBack) + GivenBack.size()));
    }

    int Front = -1;
    std::string Seen;
    TinyTerminal Picture{60, 12};

  private:
    bool Read() {
        char Bytes[4096];
        pollfd Ready{Front, POLLIN, 0};
        const ssize_t Count = poll(&Ready, 1, 20'000) == 1 ? read(Front, Bytes, sizeof Bytes) : 0;
        if (Count <= 0) return false;
        Seen.append(Bytes, static_cast<std::size_t>(Count));
        Picture.Take({Bytes, static_cast<std::size_t>(Count)});
        return true;
    }

    pid_t Shell_ = -1;
};

TEST(Terminal, TakesKeysAndFollowsItsSize) {
    Desk At("silence:100");
    EXPECT_TRUE(At.Shows("forward"));
    At.Type(" \x1b[H\x1b[C");
    EXPECT_TRUE(At.Shows("= 0:00:05.0"));
    At.Type("?");
    EXPECT_TRUE(At.Shows("pause and go on"));
    At.Type("\x1b");
    EXPECT_TRUE(At.Shows("= 0:00:05.0"));
    At.Picture = {20, 3};
    const winsize Small{3, 20, 0, 0};
    ioctl(At.Front, TIOCSWINSZ, &Small);
    EXPECT_TRUE(At.Shows("\n= 0:00:05.0\n"));
    At.Type("q");
    EXPECT_EQ(At.Left(), "restored 0\r\n");
}

TEST(Terminal, IsRestoredHoweverItEnds) {
    EXPECT_EQ(Desk("silence:0.1").Left(), "restored 0\r\n");
    Desk Quiet("silence:0.1 -q");
    Quiet.Left();
    EXPECT_EQ(Quiet.Seen, "restored 0\r\n");
    for (const int Signal : {SIGINT, SIGTERM, SIGHUP}) {
        Desk At("silence:100");
        EXPECT_TRUE(At.Shows("forward"));
        kill(At.Player(), Signal);
        EXPECT_EQ(At.Left(), "interrupted\r\nrestored 130\r\n");
    }
    Desk At("silence:100");
    EXPECT_TRUE(At.Shows("forward"));
    kill(ServerOf(At.Player()), SIGKILL);
    EXPECT_THAT(At.Left(), AllOf(HasSubstr("server is gone"), EndsWith("restored 1\r\n")));
}

TEST(Terminal, ThatTakesNothingHoldsNothingUp) {
    Desk At("silence:100");
    EXPECT_TRUE(At.Shows("forward"));
    const pid_t Player = At.Player();
    Descriptor Line = OpenDescriptor(ptsname(At.Front), O_WRONLY | O_NOCTTY | O_NONBLOCK);
    while (write(Line.Get(), "x", 1) == 1) {
    }
    Line.Close();
    At.Type("q");
    for (int WaitedMs = 0; WaitedMs < 20'000 && kill(Player, 0) == 0; ++WaitedMs)
        poll(nullptr, 0, 1);
    EXPECT_EQ(kill(Player, 0), -1);
    At.Left();
    EXPECT_THAT(At.Seen, EndsWith("restored 0\r\n"));
}

TEST(HeldErrors, LinesOfAllProcessesWaitForTheEndTheLastOfVeryMany) {
    const TempFolder Folder;
    const Descriptor Before(dup(STDERR_FILENO));
    const Descriptor File = OpenDescriptor(Folder / "err", O_RDWR | O_CREAT);
    dup2(File.Get(), STDERR_FILENO);
    {
        HeldErrors Errors;
        EXPECT_EQ(std::system("echo from another >&2"), 0);
        std::fputs("one\x1b\nha", stderr);
        EXPECT_EQ(Errors.Take(), (std::vector<std::string>{"from another", "one\\x1b"}));
        std::fputs("lf\n", stderr);
        EXPECT_EQ(Errors.Take(), std::vector<std::string>{"half"});
        for (int Line = 4; Line <= 300; ++Line) {
            std::fprintf(stderr, "%d\n", Line);
            if (Line % 100 == 0) Errors.Take();
        }
        for (int Line = 0; Line < 100'000; ++Line)  // more than the pipe takes, and nobody waits
            std::fputs("x", stderr);
        EXPECT_EQ(Get(Folder / "err"), "");
    }
    dup2(Before.Get(), STDERR_FILENO);
    EXPECT_TRUE(Get(Folder / "err").starts_with("(101 lines dropped here)\n102\n"));
    EXPECT_TRUE(Get(Folder / "err").ends_with("xxx\n"));
}

}  // namespace
}  // namespace Tolvar::Testing
