#include "platform/Apartment.h"

namespace Tolvar {

Timer::Timer(Apartment& Home, std::int32_t Ms) : Home_(Home), IntervalMs_(Ms) {}

Timer::~Timer() {
    Home_.Disarm(Alarm_);
}

void Timer::Interval(std::int32_t Ms) {
    IntervalMs_ = Ms;
    Home_.Disarm(Alarm_);
    if (IsEnabled_) Arm(Home_.Time().NowNs() + Ms * NsPerMs);
}

void Timer::Enabled(bool On) {
    if (On == IsEnabled_) return;
    Home_.Disarm(Alarm_);
    if (On) Arm(Home_.Time().NowNs() + IntervalMs_ * NsPerMs);
    IsEnabled_ = On;
}

void Timer::Arm(std::int64_t DueNs) {
    if (IntervalMs_ > 0) Alarm_ = Home_.Arm(DueNs, [this] { Due(); });
}

void Timer::Due() {
    const std::int64_t StepNs = IntervalMs_ * NsPerMs;
    const std::int64_t LateNs = Home_.Time().NowNs() - Alarm_.DueNs;
    Arm(Alarm_.DueNs + (LateNs / StepNs + 1) * StepNs);
    // A copy, because the handler may bind another or destroy this timer.
    if (const Apartment::Handler Run = Tick_) Run();
}

}  // namespace Tolvar
