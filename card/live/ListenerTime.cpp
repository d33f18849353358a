#include "card/live/ListenerTime.h"

#include <algorithm>

namespace Tolvar {
namespace {

constexpr std::int64_t SurelyNs = NsPerMs;  // a position must not be told before it is heard

}  // namespace

std::int64_t ListenerTime::NowNs() {
    std::int64_t Ns = ToldNs_;
    if (Told_ == Teller::Device) Ns = DeviceNs();
    if (Told_ == Teller::Clock) Ns = BaseNs_ + Time_.NowNs() - BaseClockNs_;
    return ToldNs_ = std::max(ToldNs_, Ns);
}

// Reckoned only while it is known to play: one that gets ready stands still.
std::int64_t ListenerTime::DeviceNs() const {
    const std::int64_t UntilNs = std::min(Time_.NowNs() - SurelyNs, SeenClockNs_ + MostUnseen_);
    if (!PlaysOn_ || UntilNs <= SeenClockNs_) return DeviceTime_.NsOf(HeardFrames_);
    FrameTimer Since(DeviceTime_.RateHz());
    Since.Start(SeenClockNs_, HeardFrames_);
    return DeviceTime_.NsOf(std::min(Since.FramesAt(UntilNs), WrittenFrames_));
}

void ListenerTime::GoOnFrom(std::int64_t Ns) {
    BaseNs_ = ToldNs_ = Ns;
    BaseClockNs_ = Time_.NowNs();
}

std::int64_t ListenerTime::Begin(int RateHz, std::int64_t Frame, bool InSilence) {
    GoOnFrom(NowNs());
    RunTime_ = FrameTimer(RateHz);
    RunTime_.Start(ToldNs_, Frame);
    Told_ = InSilence ? Teller::Clock : Teller::Nobody;
    Adopted_ = false;
    return ToldNs_;
}

void ListenerTime::HeardUpTo(std::int64_t Frame) {
    ToldNs_ = std::max(ToldNs_, RunTime_.NsOf(Frame));
}

std::int64_t ListenerTime::End() {
    const bool ByDevice = Told_ == Teller::Device;
    GoOnFrom(ByDevice ? std::max(ToldNs_, DeviceTime_.NsOf(HeardFrames_)) : NowNs());
    Told_ = Teller::Clock;
    Adopted_ = false;
    return ToldNs_;
}

void ListenerTime::Adopt(int DeviceHz, std::int64_t Frame) {
    DeviceTime_ = FrameTimer(DeviceHz);
    DeviceTime_.Start(RunTime_.NsOf(Frame), 0);
    WrittenFrames_ = HeardFrames_ = 0;
    PlaysOn_ = false;
    Adopted_ = true;
    if (Told_ == Teller::Nobody) Told_ = Teller::Device;
}

void ListenerTime::Saw(std::int64_t Frames) {
    PlaysOn_ = Frames > HeardFrames_ || (PlaysOn_ && Frames == HeardFrames_);
    HeardFrames_ = std::max(HeardFrames_, Frames);
    SeenClockNs_ = Time_.NowNs();
    if (Adopted_ && HeardFrames_ > 0) Told_ = Teller::Device;
}

}  // namespace Tolvar
