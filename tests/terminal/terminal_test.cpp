#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <optional>

#include "FakePlayer.h"
#include "TinyTerminal.h"
#include "platform/Clocks.h"
#include "tests/support/Fakes.h"
#include "waveplay/terminal/TerminalPlayer.h"

namespace Tolvar::Testing {
namespace {

// A terminal with somebody in front of it, and the interface on it, in real time.
struct Desk : testing::Test {
    RealClock Time;
    ListLog Journal;
    Apartment Home{Time, Journal};
    FakePlayer Player;
    Descriptor Front{posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)};
    Descriptor Back;
    std::string Seen;
    TinyTerminal Picture{60, 12};
    bool Interrupt = false;
    std::optional<TerminalPlayer> Interface;

    Desk() {
        grantpt(Front.Get());
        unlockpt(Front.Get());
        Back = OpenDescriptor(Path(), O_RDWR);
        Resize(60, 12);
        Player.Running = 1;
        TerminalFacts Facts;
        Facts.Wave = {100'000, 1000, 1, false, 1.0, 1.0, true};
        Facts.Name = "song.wav";
        Facts.TtyPath = Path();
        Facts.Interrupted = [this] { return Interrupt; };
        Interface.emplace(Player, Home, Facts, TerminalLook{Palette::None, false, true});
        // What is shown is read as it comes, unless the listener looks away.
        Home.Watch(Front.Get(), [this] { Look(); });
    }
    ~Desk() override { Home.Unwatch(Front.Get()); }

    std::string Path() const { return ptsname(Front.Get()); }
    void Resize(unsigned short Columns, unsigned short Rows) {
        const winsize Size{Rows, Columns, 0, 0};
        ioctl(Front.Get(), TIOCSWINSZ, &Size);
    }
    void Look() {
        std::array<char, 4096> Bytes{};
        const std::size_t Before = Seen.size();
        for (ssize_t Count; (Count = read(Front.Get(), Bytes.data(), Bytes.size())) > 0;)
            Seen.append(Bytes.data(), static_cast<std::size_t>(Count));
        Picture.Take(std::string_view(Seen).substr(Before));
    }
    void Type(std::string_view Keys) {
        EXPECT_EQ(write(Front.Get(), Keys.data(), Keys.size()), static_cast<ssize_t>(Keys.size()));
    }
    // As soon as Text has been shown, Do.
    void When(const std::string& Text, Apartment::Handler Do) {
        Home.Arm(Time.NowNs(), [this, Text, Do] {
            Testing::Text(Picture.Cells).find(Text) == std::string::npos ? When(Text, Do) : Do();
        });
    }
    bool Cooked() const {
        termios Now{};
        tcgetattr(Back.Get(), &Now);
        return (Now.c_lflag & (ICANON | ECHO)) == (ICANON | ECHO);
    }
    void ExpectRestored() {
        Look();
        EXPECT_TRUE(Cooked());
        EXPECT_TRUE(Seen.ends_with("\x1b[?25h\x1b[?1049l"));
        EXPECT_TRUE(Journal.Lines.empty());
    }
};

TEST_F(Desk, ShowsTakesKeysAndRestoresTheTerminal) {
    When("song.wav", [this] {
        EXPECT_FALSE(Cooked());
        Type(" \x1b[C");
    });
    When("paused", [this] { Type("?"); });
    When("any key closes", [this] { Type("\x1b"); });
    When("0:00:05.0", [this] { Type("q"); });
    EXPECT_EQ(Interface->Run(), TerminalEnd::Quit);
    EXPECT_EQ(Player.Calls, "pause");
    EXPECT_EQ(Interface->Control().Here(), 5000);
    ExpectRestored();
}

TEST_F(Desk, EndsWithTheWaveAnInterruptAHangUpOrTheLossOfThePlayer) {
    When("song.wav", [this] { Player.Advance(100'000); });
    EXPECT_EQ(Interface->Run(), TerminalEnd::PlayedOut);
    ExpectRestored();

    Interface->Control().Play();
    Interrupt = true;
    EXPECT_EQ(Interface->Run(), TerminalEnd::Interrupted);
    Interrupt = false;
    When("song.wav", [] { raise(SIGHUP); });
    EXPECT_EQ(Interface->Run(), TerminalEnd::Interrupted);
    ExpectRestored();

    Player.Gone = true;
    EXPECT_THROW(Interface->Run(), RuntimeFailure);
    ExpectRestored();
}

TEST_F(Desk, FollowsTheSizeOfTheTerminal) {
    When("space pause", [this] {
        Resize(20, 3);
        Picture = {20, 3};
        raise(SIGWINCH);  // the terminal of a test is not the one that the signals come from
        When("> 0:00:00.0\n", [this] { Type("q"); });
    });
    Interface->Run();
    EXPECT_EQ(Picture.Cells.RowText(1), "> 0:00:00.0");
    ExpectRestored();
}

TEST_F(Desk, ATerminalThatTakesNothingHoldsNothingUp) {
    Home.Unwatch(Front.Get());
    Player.Running = 0;
    int Turns = 0;
    std::function<void()> Shake = [&] {  // a new picture each time
        Resize(static_cast<unsigned short>(100 + Turns % 50), 50);
        raise(SIGWINCH);
        if (++Turns == 8) {
            Interrupt = true;
        } else {
            Home.Arm(Time.NowNs() + 45 * NsPerMs, Shake);
        }
    };
    Shake();
    const std::int64_t BeganNs = Time.NowNs();
    EXPECT_EQ(Interface->Run(), TerminalEnd::Interrupted);
    EXPECT_EQ(Turns, 8);
    EXPECT_LT(Time.NowNs() - BeganNs, 3 * NsPerSecond);
    EXPECT_TRUE(Cooked());
}

}  // namespace
}  // namespace Tolvar::Testing
