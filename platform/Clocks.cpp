#include "platform/Clocks.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <stdexcept>

#include "platform/Posix.h"

namespace Tolvar {

std::int64_t MonotonicNs() {
    timespec Time{};
    clock_gettime(CLOCK_MONOTONIC, &Time);
    return Time.tv_sec * NsPerSecond + Time.tv_nsec;
}

RealClock::RealClock() : StartNs(MonotonicNs()) {}

std::int64_t RealClock::NowNs() const {
    return MonotonicNs() - StartNs;
}

double RealClock::SecondsSinceMidnight() const {
    timespec Time{};
    tm Local{};
    clock_gettime(CLOCK_REALTIME, &Time);
    localtime_r(&Time.tv_sec, &Local);
    // A leap second is shown as the last second of its day.
    const int Seconds = (Local.tm_hour * 60 + Local.tm_min) * 60 + (Local.tm_sec % 60);
    return Seconds + static_cast<double>(Time.tv_nsec) / 1e9;
}

void RealClock::WaitUntil(std::int64_t DueNs, std::span<pollfd> Fds) {
    while (true) {
        const std::int64_t LeftNs = std::max<std::int64_t>(DueNs - NowNs(), 0);
        const timespec Left{LeftNs / NsPerSecond, LeftNs % NsPerSecond};
        const int Events =
            ppoll(Fds.data(), Fds.size(), DueNs == Forever ? nullptr : &Left, nullptr);
        if (Events > 0 || NowNs() >= DueNs) return;
        if (Events < 0 && errno != EINTR) {
            throw ErrnoFailure("cannot wait for the next event", errno, FailureKind::Device);
        }
    }
}

double VirtualClock::SecondsSinceMidnight() const {
    constexpr std::int64_t DayNs = 24 * 3600 * NsPerSecond;
    return static_cast<double>((NowNs() + DayNs / 2) % DayNs) / 1e9;
}

void VirtualClock::WaitUntil(std::int64_t DueNs, std::span<pollfd> /*Fds*/) {
    if (DueNs == Forever) {
        throw std::logic_error("nothing is due: virtual time would stand still for ever");
    }
    if (DueNs > Now) Now = DueNs;
}

}  // namespace Tolvar
