#include "waveplay/terminal/Terminal.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace Tolvar {
namespace {

// Alternate screen, no cursor, no wrapping at the last column.
constexpr std::string_view TakeScreen = "\x1b[?1049h\x1b[?25l\x1b[?7l";
constexpr std::string_view GiveScreenBack = "\x1b[m\x1b[?7h\x1b[?25h\x1b[?1049l";

constexpr int LeaveTimeoutMs = 200;

}  // namespace

Terminal::Terminal(const std::string& Path) : Device_(OpenDescriptor(Path, O_RDWR | O_NONBLOCK)) {
    if (!Device_ || tcgetattr(Device_.Get(), &Before_) != 0) {
        throw ErrnoFailure("cannot use the terminal " + Path, errno, FailureKind::Device);
    }
}

Terminal::~Terminal() {
    Leave();
}

void Terminal::Enter() {
    if (!Entered_ && tcgetattr(Device_.Get(), &Before_) != 0) {
        throw ErrnoFailure("cannot read the terminal's settings", errno, FailureKind::Device);
    }
    termios Raw = Before_;
    Raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | IEXTEN);
    Raw.c_iflag &= ~static_cast<tcflag_t>(ICRNL | INLCR | IXON);
    Raw.c_cc[VMIN] = 0;
    Raw.c_cc[VTIME] = 0;
    if (tcsetattr(Device_.Get(), TCSANOW, &Raw) != 0) {
        throw ErrnoFailure("cannot change the terminal's settings", errno, FailureKind::Device);
    }
    Entered_ = true;
    Write(TakeScreen);
}

void Terminal::Leave() noexcept {
    if (!Entered_) return;
    Entered_ = false;
    if (Gone_ || !InForeground()) return;  // it is the shell's again
    try {
        Unsent_ += GiveScreenBack;
        pollfd Ready{Device_.Get(), POLLOUT, 0};
        while (!Flush() && poll(&Ready, 1, LeaveTimeoutMs) > 0) {
        }
    } catch (...) {
        // Without memory the screen stays as it is, but the settings still go back.
    }
    Unsent_.clear();
    tcsetattr(Device_.Get(), TCSANOW, &Before_);
}

// A program in the background would be stopped for changing the terminal's settings.
bool Terminal::InForeground() const {
    const pid_t Owner = tcgetpgrp(Device_.Get());
    return Owner < 0 || Owner == getpgrp();
}

TerminalSize Terminal::Size() const {
    winsize Now{};
    if (ioctl(Device_.Get(), TIOCGWINSZ, &Now) != 0 || Now.ws_col == 0 || Now.ws_row == 0)
        return {};
    return {Now.ws_col, Now.ws_row};
}

std::string Terminal::Read() {
    std::array<char, 256> Bytes{};
    std::string Typed;
    for (;;) {
        const ssize_t Count = ::read(Device_.Get(), Bytes.data(), Bytes.size());
        if (Count < 0 && errno == EINTR) continue;
        if (Count < 0 && errno != EAGAIN) Gone_ = true;
        if (Count <= 0) break;
        Typed.append(Bytes.data(), static_cast<std::size_t>(Count));
    }
    // With no least count of bytes a terminal without keys also reads as empty: ask it.
    pollfd State{Device_.Get(), POLLIN, 0};
    if (poll(&State, 1, 0) > 0 && (State.revents & (POLLHUP | POLLERR)) != 0) Gone_ = true;
    return Typed;
}

void Terminal::Write(std::string_view Bytes) {
    Unsent_ += Bytes;
    Flush();
}

bool Terminal::Flush() {
    while (!Unsent_.empty()) {
        const ssize_t Count = ::write(Device_.Get(), Unsent_.data(), Unsent_.size());
        if (Count < 0 && errno == EINTR) continue;
        if (Count < 0 && errno != EAGAIN) {
            Gone_ = true;
            Unsent_.clear();
        }
        if (Count <= 0) break;
        Unsent_.erase(0, static_cast<std::size_t>(Count));
    }
    return Unsent_.empty();
}

}  // namespace Tolvar
