#include "card/live/LiveOutput.h"

#include <pthread.h>
#include <sched.h>
#include <signal.h>

#include <system_error>
#include <utility>

#include "platform/RuntimeFailure.h"

namespace Tolvar {
namespace {

constexpr int MostCutMs = 200;
constexpr int MostEndMs = 1000;

// Without the right to it the thread runs as any other, and has the device's latency as its slack.
void TakeRealTimePriority() {
    sched_param Priority{};
    Priority.sched_priority = 10;
    pthread_setschedparam(pthread_self(), SCHED_RR, &Priority);
}

void Render(const std::shared_ptr<LivePump>& Pump) try {
    TakeRealTimePriority();
    while (const auto Ns = Pump->Turn())
        Pump->WaitNs(*Ns);
} catch (const LivePump::LeftBehind&) {
    return;
}

// Signals are the apartment's.
std::thread StartRendering(const std::shared_ptr<LivePump>& Pump) {
    sigset_t All;
    sigset_t Before;
    sigfillset(&All);
    pthread_sigmask(SIG_SETMASK, &All, &Before);
    std::thread Made;
    try {
        Made = std::thread(Render, Pump);
    } catch (const std::system_error&) {
        pthread_sigmask(SIG_SETMASK, &Before, nullptr);
        throw RuntimeFailure(FailureKind::Device, "cannot start a thread for the sound device");
    }
    pthread_sigmask(SIG_SETMASK, &Before, nullptr);
    return Made;
}

}  // namespace

LiveOutput::LiveOutput(std::unique_ptr<OutputDevice> Device, const Clock& Time, LiveOptions Options,
                       Driving How)
    : Pump_(std::make_shared<LivePump>(std::move(Device), Time, Options)) {
    if (How == Driving::OwnThread) Thread_ = StartRendering(Pump_);
}

LiveOutput::~LiveOutput() {
    if (!Thread_.joinable()) return;
    if (Pump_->End(MostEndMs)) {
        Thread_.join();
    } else {
        Thread_.detach();
    }
}

std::int64_t LiveOutput::Cut(const FrameSource& Source) {
    if (!Pump_->AskCut(Source)) return Pump_->NowNs();
    if (!Thread_.joinable()) Turn();
    return Pump_->FinishCut(MostCutMs);
}

std::int64_t LiveOutput::Turn() {
    return Pump_->Turn().value_or(Forever);
}

}  // namespace Tolvar
