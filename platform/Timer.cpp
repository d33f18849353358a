#include "platform/Apartment.h"

namespace Tolvar {

Timer::Timer(Apartment& TheHome, std::int32_t Ms) : Home(TheHome), IntervalMs(Ms) {}

Timer::~Timer() {
    Home.Disarm(Alarm);
}

void Timer::Interval(std::int32_t Ms) {
    IntervalMs = Ms;
    if (IsEnabled) Rearm(Home.Time().NowNs() + Ms * NsPerMs);
}

void Timer::Enabled(bool On) {
    if (On == IsEnabled) return;
    IsEnabled = On;
    Rearm(Home.Time().NowNs() + IntervalMs * NsPerMs);
}

void Timer::Rearm(std::int64_t DueNs) {
    Home.Disarm(Alarm);
    if (IsEnabled && IntervalMs > 0) Alarm = Home.Arm(DueNs, [this] { Due(); });
}

void Timer::Due() {
    const std::int64_t StepNs = IntervalMs * NsPerMs;
    const std::int64_t LateNs = Home.Time().NowNs() - Alarm.DueNs;
    Rearm(Alarm.DueNs + (LateNs / StepNs + 1) * StepNs);
    // A copy, because the handler may bind another or destroy this timer.
    if (const Apartment::Handler Run = Tick) Run();
}

}  // namespace Tolvar
