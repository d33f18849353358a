#include "platform/VirtualClock.h"

#include <stdexcept>

namespace Tolvar {

double VirtualClock::SecondsSinceMidnight() const {
    constexpr std::int64_t DayNs = 24 * 3600 * NsPerSecond;
    return static_cast<double>((NowNs() + DayNs / 2) % DayNs) / 1e9;
}

void VirtualClock::WaitUntil(std::int64_t DueNs, const EventWait& /*Events*/) {
    if (DueNs == Forever) {
        throw std::logic_error("nothing is due: virtual time would stand still for ever");
    }
    if (DueNs > Now_) Now_ = DueNs;
}

}  // namespace Tolvar
