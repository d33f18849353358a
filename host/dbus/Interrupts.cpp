#include "host/dbus/Interrupts.h"

#include <signal.h>
#include <sys/signalfd.h>
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

Interrupts::Interrupts(Apartment& Waking) : Home_(Waking) {
    const sigset_t Set = Watched();
    Fd_ = signalfd(-1, &Set, SFD_NONBLOCK | SFD_CLOEXEC);
    if (Fd_ < 0) {
        throw ErrnoFailure("cannot watch for signals", errno, FailureKind::Device);
    }
    sigprocmask(SIG_BLOCK, &Set, nullptr);
    Home_.Watch({Fd_}, [this] { Seen(); });
}

Interrupts::~Interrupts() {
    Home_.Unwatch({Fd_});
    // One more of what has been asked for already must not end the program on its way out.
    if (HasSeen_) Seen();
    close(Fd_);
    const sigset_t Set = Watched();
    sigprocmask(SIG_UNBLOCK, &Set, nullptr);
}

bool Interrupts::Seen() {
    signalfd_siginfo Signal{};
    while (read(Fd_, &Signal, sizeof Signal) > 0)
        HasSeen_ = true;
    return HasSeen_;
}

}  // namespace Tolvar
