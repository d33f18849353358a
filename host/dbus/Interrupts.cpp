#include "host/dbus/Interrupts.h"

#include <signal.h>
#include <sys/signalfd.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

#include "platform/posix/Posix.h"

namespace Tolvar {
namespace {

sigset_t Watched() {
    sigset_t Set;
    sigemptyset(&Set);
    sigaddset(&Set, SIGINT);
    sigaddset(&Set, SIGTERM);
    sigaddset(&Set, SIGHUP);
    return Set;
}

}  // namespace

Interrupts::Interrupts(Apartment& Waking) : Home(Waking) {
    const sigset_t Set = Watched();
    Fd = signalfd(-1, &Set, SFD_NONBLOCK | SFD_CLOEXEC);
    if (Fd < 0) {
        throw ErrnoFailure("cannot watch for signals", errno, FailureKind::Device);
    }
    sigprocmask(SIG_BLOCK, &Set, nullptr);
    Home.Watch({Fd}, [this] { Seen(); });
}

Interrupts::~Interrupts() {
    Home.Unwatch({Fd});
    close(Fd);
    const sigset_t Set = Watched();
    // One more of what has been asked for already must not end the program on its way out.
    const timespec AtOnce{};
    while (HasSeen && sigtimedwait(&Set, nullptr, &AtOnce) > 0) {
    }
    sigprocmask(SIG_UNBLOCK, &Set, nullptr);
}

bool Interrupts::Seen() {
    signalfd_siginfo Signal{};
    if (read(Fd, &Signal, sizeof Signal) > 0) HasSeen = true;
    return HasSeen;
}

}  // namespace Tolvar
