#include <algorithm>
#include <cerrno>
#include <chrono>
#include <exception>
#include <utility>

#include "platform/EdgeRamps.h"
#include "platform/LivePump.h"

// The render thread's side.

namespace Tolvar {
namespace {

constexpr std::int64_t LingerNs = 300 * NsPerMs;  // a turn round or a jump opens nothing anew
constexpr std::int64_t RetryEveryNs = NsPerSecond;
constexpr std::int64_t StandStillNs = 2 * NsPerSecond;  // wireless ones take a while to start
constexpr std::int64_t KeepMs = 2;     // what the device is about to play is not taken back
constexpr std::int64_t SlackMs = 200;  // for a device that fills buffers of its own first
constexpr int PieceMs = 20;            // read from the source at a time
constexpr std::size_t MostConverted = 1 << 15;  // samples that a resampler makes of one piece
constexpr int MostDryLooks = 10;  // a server that is gone may take all it is given and play nothing

std::size_t Index(std::int64_t Of) {
    return static_cast<std::size_t>(Of);
}

}  // namespace

void LivePump::WaitNs(std::int64_t Ns) {
    auto Locked = Hold();
    const auto IsWoken = [this] { return std::exchange(Woken, false); };
    if (Ns == Forever) {
        ToThread.wait(Locked, IsWoken);
    } else {
        ToThread.wait_for(Locked, std::chrono::nanoseconds(Ns), IsWoken);
    }
}

// What fails here, for want of memory or by a rate that cannot be converted, is a lost device.
std::int64_t LivePump::Turn(bool& Going) try {
    return Round(Going);
} catch (const std::exception&) {
    Lose(Happening::Lost, ENOMEM);
    return 0;
}

std::int64_t LivePump::Round(bool& Going) {
    auto Locked = Hold();
    const std::uint64_t Number = ServedRun = RunNumber;
    const Phase Wanted = Mode;
    const bool Cut = CutWanted;
    const bool End = Ending;
    Locked.unlock();

    const bool PlaysOn = Wanted == Phase::Sounding && PlaysRun == Number && !Cut && !End;
    if (Wanted == Phase::Silent && PlaysRun != 0) Close();
    if (PlaysRun != 0 && !PlaysOn) Quieten();
    if (Cut || End) {
        if (End) Close();
        Locked.lock();
        if (CutWanted) EndRun();
        HasEnded = End;
        Going = !End;
        Locked.unlock();
        ToApartment.notify_all();
        return Going ? Linger() : Forever;
    }
    switch (Wanted) {
        case Phase::Sounding:
            return Play(Number);
        case Phase::Silent:
            return Retry(Number);
        default:
            return Linger();
    }
}

template <typename Call>
auto LivePump::Calling(Call Do) {
    auto Locked = Hold();
    CallClockNs = Time.NowNs();
    Locked.unlock();
    const auto Result = Do(*Device);
    Locked.lock();
    CallClockNs = -1;
    if (Abandoned) throw LeftBehind();
    return Result;
}

std::int64_t LivePump::Linger() {
    if (Opened.Channels == 0) return Forever;
    const std::int64_t LeftNs = QuietClockNs + LingerNs - Time.NowNs();
    if (LeftNs > 0) return LeftNs;
    Close();
    return Forever;
}

std::int64_t LivePump::Retry(std::uint64_t Number) {
    const std::int64_t LeftNs = RetryDueNs - Time.NowNs();
    if (LeftNs > 0) return LeftNs;
    auto Locked = Hold();
    const LiveRun For = Run;
    if (RunNumber != Number) return 0;
    Locked.unlock();
    if (OpenDevice(For) < 0) return RetryEveryNs;
    Locked.lock();
    if (RunNumber != Number || Mode != Phase::Silent) return 0;
    Run.Frame = RunTime.FramesAt(ListenerNs());
    Mode = Phase::Sounding;
    AdoptedRun = 0;
    return 0;
}

std::int64_t LivePump::Play(std::uint64_t Number) {
    if (PlaysRun != Number && !Start(Number)) return 0;
    if (!Measure() || !Feed()) return 0;
    const bool AllHeard = Dry && !Converter && PendingFrom == Pending.size() && Heard == Written;
    if (!AllHeard) return TurnMs() * NsPerMs;
    // The frames that a resampler made may be a little shorter than those that it was given.
    const auto Locked = Hold();
    if (RunNumber == Number) ToldNs = std::max(ToldNs, RunTime.NsOf(NextFrame));
    return Forever;
}

bool LivePump::Start(std::uint64_t Number) {
    auto Locked = Hold();
    const LiveRun For = Run;
    if (RunNumber != Number) return false;
    Locked.unlock();
    if (const int Error = OpenDevice(For); Error < 0) return Lose(Happening::NotOpened, -Error);
    Adopt(Number, For);
    return true;
}

int LivePump::OpenDevice(const LiveRun& For) {
    const StreamFormat Wanted{For.Format.Channels, For.DeviceHz};
    if (Opened.Channels != 0 && Asked == Wanted) return 0;
    Close();
    StreamFormat Taken = Wanted;
    const int Result = Calling([&](OutputDevice& To) { return To.Open(Taken, Options.LatencyMs); });
    RetryDueNs = Time.NowNs() + RetryEveryNs;
    if (Result < 0) return Result;
    Opened = Taken;
    Asked = Wanted;
    return 0;
}

// All that is allocated for a run is allocated here.
void LivePump::Adopt(std::uint64_t Number, const LiveRun& Taken) {
    Source = Taken.Format;
    Converter = std::make_unique<OutputConverter>(Source, Opened);
    Ahead.resize(Index(std::max(1, Source.RateHz * PieceMs / 1000) * Source.Channels));
    Recent.assign(Index(FramesIn(Options.LatencyMs + SlackMs) * Opened.Channels), 0);
    Pending.clear();
    Pending.reserve(Recent.size() + MostConverted);
    PendingFrom = 0;
    NextFrame = Taken.Frame;
    Made = 0;
    Underruns = DryLooks = 0;
    Dry = false;
    StartClockNs = -1;
    ProgressClockNs = Time.NowNs();
    PlaysRun = Number;

    const auto Locked = Hold();
    HeardTime = FrameTimer(Opened.RateHz);
    HeardTime.Start(RunTime.NsOf(Taken.Frame), 0);
    Written = Heard = 0;
    Sounds = false;
    AdoptedRun = Number;
}

/// No device can have played more by then, nor one that takes everything at once.
std::int64_t LivePump::MostHeard(std::int64_t ClockNs) const {
    constexpr std::int64_t MostDriftPart = 1000;
    if (StartClockNs < 0) return 0;
    FrameTimer Played(Opened.RateHz);
    Played.Start(StartClockNs, 0);
    const std::int64_t Frames = Played.FramesAt(ClockNs);
    return Frames + Frames / MostDriftPart;
}

bool LivePump::Measure() {
    if (StartClockNs < 0) return true;
    const long HeldFrames = Calling([](OutputDevice& Of) { return Of.Held(); });
    if (HeldFrames == -EPIPE) {
        if (Written > 0 && !Dry) ++DryLooks;
        RunDry();
    } else if (HeldFrames < 0) {
        return Lose(Happening::Lost, static_cast<int>(-HeldFrames));
    } else {
        SawHeard(Written - HeldFrames);
        if (HeldFrames > 0) DryLooks = 0;
    }
    if (DryLooks > MostDryLooks) return Lose(Happening::Lost, EPIPE);
    if (Heard < Written && Time.NowNs() - ProgressClockNs > StandStillNs) {
        return Lose(Happening::StoodStill, 0);
    }
    return true;
}

void LivePump::RunDry() {
    SawHeard(Written);
    if (Written > 0 && !Dry) ++Underruns;
    const auto Locked = Hold();
    Sounds = false;
}

/// SlackFrames: by which it may be more than the clock allows.
void LivePump::SawHeard(std::int64_t Frames, std::int64_t SlackFrames) {
    const std::int64_t ClockNs = Time.NowNs();
    const std::int64_t Seen = std::min(Frames, MostHeard(ClockNs) + SlackFrames);
    const auto Locked = Hold();
    Sounds = Seen > Heard || (Sounds && Seen == Heard);
    if (Seen > Heard || Heard == Written) ProgressClockNs = ClockNs;
    Heard = std::max(Heard, Seen);
    SeenClockNs = ClockNs;
    if (Heard > 0 && std::exchange(Missing, false)) Note(Happening::Back, 0);
}

/// Until the device takes less than it is offered: it is full then, and not asked once more.
bool LivePump::Feed() {
    const std::int64_t Most = MostHeard(Time.NowNs()) + FramesIn(Options.LatencyMs + SlackMs);
    for (int Stumbles = 0; Written < Most && Stumbles < 3;) {
        if (PendingFrom == Pending.size() && !Produce()) return true;
        const auto Left = std::span<const std::int16_t>(Pending).subspan(PendingFrom);
        const long Taken = Calling([Left](OutputDevice& To) { return To.Write(Left); });
        if (Taken == -EPIPE) {
            RunDry();
            ++Stumbles;
        } else if (Taken < 0) {
            return Lose(Happening::Lost, static_cast<int>(-Taken));
        } else if (Taken == 0) {
            return true;
        } else {
            if (StartClockNs < 0) StartClockNs = Time.NowNs();
            const auto Samples = Left.first(Index(Taken * Opened.Channels));
            Remember(Samples);
            PendingFrom += Samples.size();
            const auto Locked = Hold();
            Written += Taken;
            if (PendingFrom < Pending.size()) return true;
        }
    }
    return true;
}

/// As much as the device holds: one that starts with little runs dry at once.
bool LivePump::Produce() {
    const std::int64_t Wanted = FramesIn(Options.LatencyMs);
    Pending.clear();
    PendingFrom = 0;
    while (std::ssize(Pending) < Wanted * Opened.Channels) {
        const std::size_t Frames = ReadAhead();
        Dry = Frames == 0;
        if (Dry) {
            FlushRun();
            return !Pending.empty();
        }
        if (!Converter) Converter = std::make_unique<OutputConverter>(Source, Opened);
        Converter->Convert(std::span(Ahead).first(Frames * Index(Source.Channels)), ToPending);
    }
    return true;
}

/// What a resampler holds back is brought out late: until it is due, more may come.
void LivePump::FlushRun() {
    if (Written - Heard > FramesIn(2 * TurnMs())) return;
    if (Converter) Converter->Flush(ToPending);
    Converter.reset();
}

std::size_t LivePump::ReadAhead() {
    const auto Locked = Hold();
    if (RunNumber != PlaysRun || Mode != Phase::Sounding || CutWanted) return 0;
    const std::size_t Frames = Run.Source->ReadAhead(NextFrame, Ahead);
    NextFrame += static_cast<std::int64_t>(Frames);
    return Frames;
}

/// What a run begins with rises from silence.
void LivePump::Append(std::span<const std::int16_t> Samples) {
    const std::int64_t Ramp = FramesIn(Options.FadeMs);
    const auto First = static_cast<std::ptrdiff_t>(Pending.size());
    Pending.insert(Pending.end(), Samples.begin(), Samples.end());
    for (auto At = Pending.begin() + First; At != Pending.end() && Made < Ramp; ++Made) {
        for (int Channel = 0; Channel < Opened.Channels; ++Channel, ++At)
            *At = Ramped(*At, Made, Ramp);
    }
}

void LivePump::Remember(std::span<const std::int16_t> Samples) {
    if (Options.FadeMs == 0) return;
    std::size_t To = Index(Written * Opened.Channels) % Recent.size();
    for (; !Samples.empty(); To = 0) {
        const std::size_t Count = std::min(Samples.size(), Recent.size() - To);
        std::copy_n(Samples.begin(), Count, Recent.begin() + static_cast<std::ptrdiff_t>(To));
        Samples = Samples.subspan(Count);
    }
}

bool LivePump::Lose(Happening Why, int Error) {
    {
        const auto Locked = Hold();
        // Not of a run that was cut or found to stand still meanwhile.
        if (Mode == Phase::Sounding && !CutWanted && RunNumber == ServedRun) {
            FallSilent(Why, Error);
        }
    }
    Close();
    RetryDueNs = Time.NowNs() + RetryEveryNs;
    return false;
}

void LivePump::Quieten() {
    if (StartClockNs >= 0) {
        const std::int64_t Ramp = FramesIn(Options.FadeMs);
        const std::int64_t TakenBack = Ramp > 0 ? TakeBack(Ramp) : 0;
        if (TakenBack >= std::max<std::int64_t>(Ramp, 1)) {
            FadeOut(Ramp, TakenBack);
        } else {
            DropAll(TakenBack);
        }
    }
    if (Underruns > 0) {
        const auto Locked = Hold();
        Note(Happening::RanDry, Underruns);
    }
    PlaysRun = 0;
    QuietClockNs = Time.NowNs();
}

/// What can be neither dropped nor taken back will be heard, and so counts as heard.
void LivePump::DropAll(std::int64_t TakenBack) {
    const long Dropped = Calling([](OutputDevice& Of) { return Of.Drop(); });
    if (Dropped < 0) return Close();
    SawHeard(Written - TakenBack - Dropped, FramesIn(SlackMs));
}

/// All but what is as good as heard, if there is enough of it for a ramp.
std::int64_t LivePump::TakeBack(std::int64_t Ramp) {
    const std::int64_t Most = std::ssize(Recent) / Opened.Channels;
    const std::int64_t Keep = FramesIn(KeepMs);
    return Calling([=](OutputDevice& Of) { return Of.TakeBack(Keep, Ramp, Most); });
}

/// The first frames that were taken back fall to silence; they are heard, but not counted.
void LivePump::FadeOut(std::int64_t Ramp, std::int64_t TakenBack) {
    const std::size_t Channels = Index(Opened.Channels);
    SawHeard(Written - TakenBack, FramesIn(SlackMs));
    Pending.clear();
    for (std::int64_t Frame = 0; Frame < Ramp; ++Frame) {
        const std::size_t From = Index(Written - TakenBack + Frame) * Channels % Recent.size();
        for (std::size_t Channel = 0; Channel < Channels; ++Channel)
            Pending.push_back(Ramped(Recent[From + Channel], Ramp - 1 - Frame, Ramp));
    }
    Calling([this](OutputDevice& To) { return To.Write(Pending); });
}

void LivePump::Close() {
    PlaysRun = 0;
    if (Opened.Channels == 0) return;
    Calling([](OutputDevice& Of) {
        Of.Close();
        return 0;
    });
    Opened = {};
}

}  // namespace Tolvar
