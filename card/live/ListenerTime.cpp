#include "card/live/ListenerTime.h"

#include <algorithm>

namespace Tolvar {
namespace {

constexpr std::int64_t SurelyNs = NsPerMs;  // a position must not be told before it is heard

}  // namespace

std::int64_t ListenerTime::NowNs() {
    std::int64_t Ns = ToldNs;
    if (Told == Teller::Device) Ns = DeviceNs();
    if (Told == Teller::Clock) Ns = BaseNs + Time.NowNs() - BaseClockNs;
    return ToldNs = std::max(ToldNs, Ns);
}

// Reckoned only while it is known to play: one that gets ready stands still.
std::int64_t ListenerTime::DeviceNs() const {
    const std::int64_t UntilNs = std::min(Time.NowNs() - SurelyNs, SeenClockNs + MostUnseen);
    if (!PlaysOn || UntilNs <= SeenClockNs) return DeviceTime.NsOf(HeardFrames);
    FrameTimer Since(DeviceTime.RateHz());
    Since.Start(SeenClockNs, HeardFrames);
    return DeviceTime.NsOf(std::min(Since.FramesAt(UntilNs), WrittenFrames));
}

void ListenerTime::GoOnFrom(std::int64_t Ns) {
    BaseNs = ToldNs = Ns;
    BaseClockNs = Time.NowNs();
}

std::int64_t ListenerTime::Begin(int RateHz, std::int64_t Frame, bool InSilence) {
    GoOnFrom(NowNs());
    RunTime = FrameTimer(RateHz);
    RunTime.Start(ToldNs, Frame);
    Told = InSilence ? Teller::Clock : Teller::Nobody;
    Adopted = false;
    return ToldNs;
}

void ListenerTime::HeardUpTo(std::int64_t Frame) {
    ToldNs = std::max(ToldNs, RunTime.NsOf(Frame));
}

std::int64_t ListenerTime::End() {
    const bool ByDevice = Told == Teller::Device;
    GoOnFrom(ByDevice ? std::max(ToldNs, DeviceTime.NsOf(HeardFrames)) : NowNs());
    Told = Teller::Clock;
    Adopted = false;
    return ToldNs;
}

void ListenerTime::Adopt(int DeviceHz, std::int64_t Frame) {
    DeviceTime = FrameTimer(DeviceHz);
    DeviceTime.Start(RunTime.NsOf(Frame), 0);
    WrittenFrames = HeardFrames = 0;
    PlaysOn = false;
    Adopted = true;
    if (Told == Teller::Nobody) Told = Teller::Device;
}

void ListenerTime::Saw(std::int64_t Frames) {
    PlaysOn = Frames > HeardFrames || (PlaysOn && Frames == HeardFrames);
    HeardFrames = std::max(HeardFrames, Frames);
    SeenClockNs = Time.NowNs();
    if (Adopted && HeardFrames > 0) Told = Teller::Device;
}

}  // namespace Tolvar
