#include "platform/posix/RealClock.h"

#include <algorithm>
#include <ctime>

namespace Tolvar {

std::int64_t MonotonicNs() {
    timespec Time{};
    clock_gettime(CLOCK_MONOTONIC, &Time);
    return Time.tv_sec * NsPerSecond + Time.tv_nsec;
}

RealClock::RealClock() : StartNs_(MonotonicNs()) {}

std::int64_t RealClock::NowNs() const {
    return MonotonicNs() - StartNs_;
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

void RealClock::WaitUntil(std::int64_t DueNs, const EventWait& Events) {
    while (true) {
        const std::int64_t LeftNs = std::max<std::int64_t>(DueNs - NowNs(), 0);
        if (Events) {
            if (Events(DueNs == Forever ? Forever : LeftNs)) return;
        } else {
            const timespec Left{LeftNs / NsPerSecond, LeftNs % NsPerSecond};
            clock_nanosleep(CLOCK_MONOTONIC, 0, &Left, nullptr);
        }
        if (NowNs() >= DueNs) return;
    }
}

}  // namespace Tolvar
