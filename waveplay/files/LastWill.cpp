#include "waveplay/files/LastWill.h"

#include <unistd.h>

#include <atomic>

#include "waveplay/files/ExitCodes.h"

namespace Tolvar {
namespace {

constexpr std::array Ending{SIGINT, SIGTERM, SIGHUP};

// A handler is given nothing but the signal, so what it does has to be found from there.
std::atomic<void (*)() noexcept> TaskOf = nullptr;

void OnSignal(int Signal) {
    if (const auto Task = TaskOf.load()) Task();
    if (Signal != SIGHUP) _exit(ExitInterrupted);
    signal(Signal, SIG_DFL);
    raise(Signal);
}

}  // namespace

LastWill::LastWill(void (*Task)() noexcept) {
    TaskOf = Task;
    struct sigaction Action {};
    Action.sa_handler = OnSignal;
    for (const int Signal : Ending)
        sigaddset(&Action.sa_mask, Signal);
    for (std::size_t Index = 0; Index < Ending.size(); ++Index) {
        sigaction(Ending[Index], nullptr, &Before_[Index]);
        if (Before_[Index].sa_handler != SIG_IGN) sigaction(Ending[Index], &Action, nullptr);
    }
}

LastWill::~LastWill() {
    for (std::size_t Index = 0; Index < Ending.size(); ++Index)
        sigaction(Ending[Index], &Before_[Index], nullptr);
    TaskOf = nullptr;
}

}  // namespace Tolvar
