#include <poll.h>
#include <sys/eventfd.h>

#include <atomic>
#include <cerrno>
#include <ctime>
#include <vector>

#include "platform/Clock.h"
#include "platform/EventSet.h"
#include "platform/posix/Posix.h"

namespace Tolvar {
namespace {

/// Descriptors, waited for with ppoll(2); other threads end the wait through an eventfd(2).
class PollSet : public EventSet {
  public:
    PollSet() : WakeUp_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
        if (!WakeUp_) {
            throw ErrnoFailure("cannot make the message loop's wake-up", errno,
                               FailureKind::Device);
        }
    }

    void Wake() override {
        if (!IsWoken_.exchange(true)) eventfd_write(WakeUp_.Get(), 1);
    }

    std::span<const Ready> Wait(std::span<const EventSource> Sources,
                                std::int64_t BoundNs) override;

  private:
    void TakeWakeUp();

    Descriptor WakeUp_;
    std::atomic<bool> IsWoken_ = false;  // so that a wake-up nobody has waited for is written once
    std::vector<pollfd> Polled_;         // the wake-up, then one for each source
    std::vector<Ready> ReadyOnes_;
};

std::span<const EventSet::Ready> PollSet::Wait(std::span<const EventSource> Sources,
                                               std::int64_t BoundNs) {
    Polled_.assign(1, pollfd{WakeUp_.Get(), POLLIN, 0});
    for (const EventSource& Each : Sources)
        Polled_.push_back(pollfd{static_cast<int>(Each.Handle), POLLIN, 0});
    ReadyOnes_.clear();
    const timespec Bound{BoundNs / NsPerSecond, BoundNs % NsPerSecond};
    if (ppoll(Polled_.data(), Polled_.size(), BoundNs == Forever ? nullptr : &Bound, nullptr) < 0) {
        if (errno == EINTR) return {};
        throw ErrnoFailure("cannot wait for the next event", errno, FailureKind::Device);
    }
    if (Polled_.front().revents != 0) TakeWakeUp();
    for (std::size_t I = 0; I < Sources.size(); ++I) {
        const short Events = Polled_[I + 1].revents;
        if (Events != 0) ReadyOnes_.push_back({I, (Events & POLLNVAL) != 0});
    }
    return ReadyOnes_;
}

void PollSet::TakeWakeUp() {
    eventfd_t Ignored = 0;
    eventfd_read(WakeUp_.Get(), &Ignored);
    IsWoken_ = false;  // last: a wake-up that comes meanwhile ends this wait, not the next
}

}  // namespace

std::unique_ptr<EventSet> EventSet::Make() {
    return std::make_unique<PollSet>();
}

}  // namespace Tolvar
