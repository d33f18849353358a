#include <algorithm>
#include <cerrno>
#include <exception>
#include <utility>

#include "card/live/LivePump.h"

// The render thread's side.

namespace Tolvar {
namespace {

constexpr std::int64_t LingerNs = 300 * NsPerMs;  // a turn round or a jump opens nothing anew
constexpr std::int64_t RetryEveryNs = NsPerSecond;
constexpr std::int64_t StandStillNs = 2 * NsPerSecond;  // wireless ones take a while to start
constexpr std::int64_t KeepMs = 2;        // what the device is about to play is not taken back
constexpr std::int64_t OwnPacePart = 20;  // a twentieth beyond the clock, or a thousandth
constexpr std::int64_t ClocksPacePart = 1000;
constexpr int MostDryLooks = 10;  // a server that is gone may take all it is given and play nothing

}  // namespace

void LivePump::WaitNs(std::int64_t Ns) {
    auto Locked = Hold();
    ToThread_.WaitFor(Locked, Ns, [this] { return std::exchange(Woken_, false); });
}

// What fails here, for want of memory or by a rate that cannot be converted, is a lost device.
std::optional<std::int64_t> LivePump::Turn() try { return Round(); } catch (const std::exception&) {
    Lose(Happening::Lost, ENOMEM);
    return 0;
}

std::optional<std::int64_t> LivePump::Round() {
    auto Locked = Hold();
    ServedRun_ = RunNumber_;
    const Phase Wanted = Mode_;
    const bool Cut = CutWanted_;
    const bool End = Ending_;
    Locked.unlock();

    const bool PlaysOn = Wanted == Phase::Sounding && PlaysRun_ == ServedRun_ && !Cut && !End;
    if (Wanted == Phase::Silent && PlaysRun_ != 0) Close();
    if (PlaysRun_ != 0 && !PlaysOn) Quieten();
    if (Cut || End) {
        if (End) Close();
        Locked.lock();
        if (CutWanted_) EndRun();
        HasEnded_ = End;
        Locked.unlock();
        ToApartment_.NotifyAll();
        if (End) return {};
        return Linger();
    }
    switch (Wanted) {
        case Phase::Sounding:
            return Play();
        case Phase::Silent:
            return Retry();
        default:
            return Linger();
    }
}

template <typename Call>
auto LivePump::Calling(Call Do) {
    auto Locked = Hold();
    CallClockNs_ = Time_.NowNs();
    Locked.unlock();
    const auto Result = Do(*Device_);
    Locked.lock();
    CallClockNs_ = -1;
    if (Abandoned_) throw LeftBehind();
    return Result;
}

std::int64_t LivePump::Linger() {
    if (Opened_.Channels == 0) return Forever;
    const std::int64_t LeftNs = QuietClockNs_ + LingerNs - Time_.NowNs();
    if (LeftNs > 0) return LeftNs;
    Close();
    return Forever;
}

std::int64_t LivePump::Retry() {
    const std::int64_t LeftNs = RetryDueNs_ - Time_.NowNs();
    if (LeftNs > 0) return LeftNs;
    auto Locked = Hold();
    const LiveRun For = Run_;
    if (RunNumber_ != ServedRun_) return 0;
    Locked.unlock();
    if (OpenDevice(For) < 0) return RetryEveryNs;
    Locked.lock();
    if (RunNumber_ == ServedRun_ && Mode_ == Phase::Silent) Mode_ = Phase::Sounding;
    return 0;
}

std::int64_t LivePump::Play() {
    if (PlaysRun_ != ServedRun_ && !Start()) return 0;
    if (!Measure() || !Feed()) return 0;
    if (!Frames_.AllTaken() || Listener_.Heard() < Listener_.Written()) return NextLookNs();
    // The frames that a resampler made may be a little shorter than those that it was given.
    const auto Locked = Hold();
    if (!IsServed()) return 0;
    Listener_.HeardUpTo(Frames_.NextFrame());
    return Forever;
}

bool LivePump::Start() {
    auto Locked = Hold();
    const LiveRun For = Run_;
    if (RunNumber_ != ServedRun_) return false;
    Locked.unlock();
    if (const int Error = OpenDevice(For); Error < 0) return Lose(Happening::NotOpened, -Error);
    return Adopt();
}

int LivePump::OpenDevice(const LiveRun& For) {
    const StreamFormat Wanted{For.Format.Channels, For.DeviceHz};
    if (Opened_.Channels != 0 && Asked_ == Wanted) return 0;
    Close();
    StreamFormat Taken = Wanted;
    const int Result =
        Calling([&](OutputDevice& To) { return To.Open(Taken, Options_.LatencyMs); });
    RetryDueNs_ = Time_.NowNs() + RetryEveryNs;
    if (Result < 0) return Result;
    Opened_ = Taken;
    Asked_ = Wanted;
    return 0;
}

bool LivePump::Adopt() {
    auto Locked = Hold();
    if (!IsServed()) return false;
    // What the clock has passed while the device was opened is not played late.
    Run_.Frame = Listener_.FrameNow();
    const LiveRun Taken = Run_;
    Locked.unlock();
    Frames_.Begin(Taken.Format, Opened_, Taken.Frame);
    DryLooks_ = 0;
    WasFull_ = false;
    StartClockNs_ = -1;
    ProgressClockNs_ = Time_.NowNs();
    Locked.lock();
    if (!IsServed()) return false;
    Listener_.Adopt(Opened_.RateHz, Taken.Frame);
    PlaysRun_ = ServedRun_;
    return true;
}

/// No device can have played more by then. One that holds what it is given plays at a pace of its
/// own, which may be some percent faster than its name: it has been full. One that takes everything
/// at once has not.
std::int64_t LivePump::MostHeard(std::int64_t ClockNs) const {
    const std::int64_t MostDriftPart = WasFull_ ? OwnPacePart : ClocksPacePart;
    if (StartClockNs_ < 0) return 0;
    FrameTimer Played(Opened_.RateHz);
    Played.Start(StartClockNs_, 0);
    const std::int64_t Nominal = Played.FramesAt(ClockNs);
    return Nominal + Nominal / MostDriftPart;
}

bool LivePump::Measure() {
    if (StartClockNs_ >= 0 && !Look()) return false;
    if (!IsWaitedFor()) ProgressClockNs_ = Time_.NowNs();
    const bool StandsStill = Time_.NowNs() - ProgressClockNs_ > StandStillNs;
    return !StandsStill || Lose(Happening::StoodStill, 0);
}

/// False: it is lost.
bool LivePump::Look() {
    const long HeldFrames = Calling([](OutputDevice& Of) { return Of.Held(); });
    if (HeldFrames == -EPIPE) {
        if (Listener_.Written() > 0 && !Frames_.IsDry()) ++DryLooks_;
        RunDry();
    } else if (HeldFrames < 0) {
        return Lose(Happening::Lost, static_cast<int>(-HeldFrames));
    } else {
        SawHeard(Listener_.Written() - HeldFrames);
        if (HeldFrames > 0) DryLooks_ = 0;
    }
    return DryLooks_ <= MostDryLooks || Lose(Happening::Lost, EPIPE);
}

/// More is to be heard.
bool LivePump::IsWaitedFor() const {
    return Listener_.Heard() < Listener_.Written() || !Frames_.IsDry();
}

/// A third of what it holds is left by then, also where that is less than it was to hold.
std::int64_t LivePump::NextLookNs() const {
    const std::int64_t HeldMs = (Listener_.Written() - Listener_.Heard()) * 1000 / Opened_.RateHz;
    const std::int64_t Most = TurnMs();
    return (Frames_.IsDry() ? Most : std::clamp<std::int64_t>(HeldMs * 2 / 3, 2, Most)) * NsPerMs;
}

/// Once told of: a server that is gone is found dry again and again.
void LivePump::RunDry() {
    SawHeard(Listener_.Written());
    if (Listener_.Written() > 0 && !Frames_.IsDry() && DryLooks_ <= 1) ++Underruns_;
    const auto Locked = Hold();
    Listener_.RanDry();
}

/// SlackFrames: by which it may be more than the clock allows.
void LivePump::SawHeard(std::int64_t Told, std::int64_t SlackFrames) {
    const std::int64_t ClockNs = Time_.NowNs();
    const std::int64_t Seen = std::min(Told, MostHeard(ClockNs) + SlackFrames);
    const auto Locked = Hold();
    if (Seen > Listener_.Heard()) ProgressClockNs_ = ClockNs;
    Listener_.Saw(Seen);
    const bool IsHeard = Listener_.HasDevice() && Listener_.Heard() > 0;
    if (IsHeard && std::exchange(Missing_, false)) Note(Happening::Back, 0);
}

/// Until the device takes less than it is offered: then it is full, and not asked once more. What
/// a resampler holds back is brought out late: until it is due, more may come.
bool LivePump::Feed() {
    const std::int64_t Most =
        MostHeard(Time_.NowNs()) + FramesIn(Options_.LatencyMs + Options_.SlackMs);
    for (int Stumbles = 0; Listener_.Written() < Most && Stumbles < 3;) {
        const std::int64_t Unheard = Listener_.Written() - Listener_.Heard();
        const auto Left = Frames_.Next(Unheard <= FramesIn(TurnMs() + LateMs));
        if (Left.empty()) return true;
        const long Taken = Calling([Left](OutputDevice& To) { return To.Write(Left); });
        if (Taken == -EPIPE) {
            RunDry();
            ++Stumbles;
        } else if (Taken < 0) {
            return Lose(Happening::Lost, static_cast<int>(-Taken));
        } else if (Taken > 0) {
            if (StartClockNs_ < 0) StartClockNs_ = Time_.NowNs();
            Frames_.Took(Taken);
            const auto Locked = Hold();
            Listener_.WasGiven(Taken);
        }
        if (Taken >= 0 && Taken * Opened_.Channels < std::ssize(Left)) {
            WasFull_ = true;
            return true;
        }
    }
    return true;
}

std::size_t LivePump::ReadSource(std::int64_t Frame, std::span<std::int16_t> Into) {
    const auto Locked = Hold();
    if (RunNumber_ != PlaysRun_ || Mode_ != Phase::Sounding || CutWanted_) return 0;
    return Run_.Source->ReadAhead(Frame, Into);
}

bool LivePump::Lose(Happening Why, int Error) {
    {
        const auto Locked = Hold();
        // Not of a run that was cut or found to stand still meanwhile.
        if (IsServed() && !CutWanted_) FallSilent(Why, Error);
    }
    Close();
    RetryDueNs_ = Time_.NowNs() + RetryEveryNs;
    return false;
}

void LivePump::Quieten() {
    if (StartClockNs_ >= 0) {
        const std::int64_t Ramp = FramesIn(Options_.FadeMs);
        const std::int64_t TakenBack = Ramp > 0 ? TakeBack(Ramp) : 0;
        if (TakenBack >= std::max<std::int64_t>(Ramp, 1)) {
            FadeOut(Ramp, TakenBack);
        } else if (Ramp == 0 || TakenBack > 0 || !FadeOn(Ramp)) {
            DropAll(TakenBack);
        }
    }
    LeaveRun();
    QuietClockNs_ = Time_.NowNs();
}

void LivePump::LeaveRun() {
    PlaysRun_ = 0;
    if (const int Times = std::exchange(Underruns_, 0); Times > 0) {
        const auto Locked = Hold();
        Note(Happening::RanDry, Times);
    }
}

/// What can be neither dropped nor taken back will be heard, and so counts as heard.
void LivePump::DropAll(std::int64_t TakenBack) {
    const long Dropped = Calling([](OutputDevice& Of) { return Of.Drop(); });
    if (Dropped < 0) return Close();
    SawHeard(Listener_.Written() - TakenBack - Dropped, FramesIn(Options_.SlackMs));
}

/// All but what is as good as heard, if there is enough of it for a ramp.
std::int64_t LivePump::TakeBack(std::int64_t Ramp) {
    const std::int64_t Most = Frames_.MostKept();
    const std::int64_t Keep = FramesIn(KeepMs);
    return Calling([=](OutputDevice& Of) { return Of.TakeBack(Keep, Ramp, Most); });
}

/// The first frames that were taken back fall to silence; they are heard, but not counted.
void LivePump::FadeOut(std::int64_t Ramp, std::int64_t TakenBack) {
    SawHeard(Listener_.Written() - TakenBack, FramesIn(Options_.SlackMs));
    const auto Fading = Frames_.Fading(TakenBack, Ramp);
    Calling([Fading](OutputDevice& To) { return To.Write(Fading); });
}

/// Where too little is held to take a ramp of it back: it is heard, and what would have followed
/// falls to silence behind it, not counted. Where much is held a stop at once is worth more.
bool LivePump::FadeOn(std::int64_t Ramp) {
    const long HeldFrames = Calling([](OutputDevice& Of) { return Of.Held(); });
    if (HeldFrames < 0 || HeldFrames > FramesIn(Options_.LatencyMs * 2 / 3)) return false;
    const auto Fading = Frames_.FadingNext(Ramp);
    if (Fading.empty()) return false;
    SawHeard(Listener_.Written(), FramesIn(Options_.SlackMs));
    Calling([Fading](OutputDevice& To) { return To.Write(Fading); });
    return true;
}

void LivePump::Close() {
    LeaveRun();
    if (Opened_.Channels == 0) return;
    Calling([](OutputDevice& Of) {
        Of.Close();
        return 0;
    });
    Opened_ = {};
}

}  // namespace Tolvar
