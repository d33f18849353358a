#include "waveplay/terminal/TerminalSignals.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace Tolvar {
namespace {

sigset_t SetOf(std::initializer_list<int> Signals) {
    sigset_t Set;
    sigemptyset(&Set);
    for (const int Each : Signals)
        sigaddset(&Set, Each);
    return Set;
}

}  // namespace

TerminalSignals::TerminalSignals(Apartment& Waking, std::function<void(int Signal)> OnSignal)
    : Home_(Waking), Handler_(std::move(OnSignal)) {
    const sigset_t Set = SetOf({SIGWINCH, SIGTSTP, SIGCONT, SIGHUP, SIGQUIT});
    Queue_ = Descriptor(signalfd(-1, &Set, SFD_NONBLOCK | SFD_CLOEXEC));
    if (!Queue_) throw ErrnoFailure("cannot watch for signals", errno, FailureKind::Device);
    pthread_sigmask(SIG_BLOCK, &Set, &Before_);
    Home_.Watch({Queue_.Get()}, [this] { Deliver(); });
}

TerminalSignals::~TerminalSignals() {
    Home_.Unwatch({Queue_.Get()});
    pthread_sigmask(SIG_SETMASK, &Before_, nullptr);
}

void TerminalSignals::Deliver() {
    signalfd_siginfo Signal{};
    while (::read(Queue_.Get(), &Signal, sizeof Signal) == static_cast<ssize_t>(sizeof Signal))
        Handler_(static_cast<int>(Signal.ssi_signo));
}

void TerminalSignals::StopHere() {
    const sigset_t Stop = SetOf({SIGTSTP});
    sigset_t Blocked{};
    raise(SIGTSTP);
    pthread_sigmask(SIG_UNBLOCK, &Stop, &Blocked);
    pthread_sigmask(SIG_SETMASK, &Blocked, nullptr);
}

}  // namespace Tolvar
