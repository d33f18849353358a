#include <algorithm>
#include <cerrno>
#include <chrono>
#include <exception>
#include <utility>

#include "platform/LivePump.h"

// The render thread's side.

namespace Tolvar {
namespace {

constexpr std::int64_t LingerNs = 300 * NsPerMs;  // a turn round or a jump opens nothing anew
constexpr std::int64_t RetryEveryNs = NsPerSecond;
constexpr std::int64_t StandStillNs = 2 * NsPerSecond;  // wireless ones take a while to start
constexpr std::int64_t KeepMs = 2;     // what the device is about to play is not taken back
constexpr std::int64_t SlackMs = 200;  // for a device that fills buffers of its own first
constexpr int MostDryLooks = 10;  // a server that is gone may take all it is given and play nothing

std::int16_t Scaled(std::int16_t Sample, std::int64_t Part, std::int64_t Of) {
    return static_cast<std::int16_t>(Sample * Part / Of);
}

std::size_t Index(std::int64_t Of) {
    return static_cast<std::size_t>(Of);
}

}  // namespace

void LivePump::WaitNs(std::int64_t Ns) {
    auto Held = Hold();
    const auto IsWoken = [this] { return std::exchange(Woken, false); };
    if (Ns == Forever) {
        ToThread.wait(Held, IsWoken);
    } else {
        ToThread.wait_for(Held, std::chrono::nanoseconds(Ns), IsWoken);
    }
}

std::int64_t LivePump::Turn(bool& Going) {
    auto Held = Hold();
    const std::uint64_t Number = RunNumber;
    const Phase Wanted = Mode;
    const bool Cut = CutWanted;
    const bool End = Ending;
    Held.unlock();

    const bool PlaysOn = Wanted == Phase::Sounding && PlaysRun == Number && !Cut && !End;
    if (Wanted == Phase::Silent && PlaysRun != 0) Close();
    if (PlaysRun != 0 && !PlaysOn) Quieten();
    if (Cut || End) {
        if (End) Close();
        Held.lock();
        if (CutWanted) EndRun();
        HasEnded = End;
        Going = !End;
        Held.unlock();
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
    auto Held = Hold();
    CallClock = Time.NowNs();
    Held.unlock();
    const auto Result = Do(*Device);
    Held.lock();
    CallClock = -1;
    return Result;
}

std::int64_t LivePump::Linger() {
    if (Opened.Channels == 0) return Forever;
    const std::int64_t LeftNs = QuietClock + LingerNs - Time.NowNs();
    if (LeftNs > 0) return LeftNs;
    Close();
    return Forever;
}

std::int64_t LivePump::Retry(std::uint64_t Number) {
    const std::int64_t LeftNs = RetryClock - Time.NowNs();
    if (LeftNs > 0) return LeftNs;
    auto Held = Hold();
    const LiveRun For = Run;
    if (RunNumber != Number) return 0;
    Held.unlock();
    if (OpenDevice(For) < 0) return RetryEveryNs;
    Held.lock();
    if (RunNumber != Number || Mode != Phase::Silent) return 0;
    Run.Frame = RunTime.FramesAt(ListenerNs());
    Mode = Phase::Sounding;
    AdoptedRun = 0;
    return 0;
}

std::int64_t LivePump::Play(std::uint64_t Number) {
    if (PlaysRun != Number && !Start(Number)) return 0;
    if (!Measure() || !Feed()) return 0;
    const bool AllHeard = Dry && PendingFrom == Pending.size() && Heard == Written;
    return AllHeard ? Forever : TurnMs() * NsPerMs;
}

bool LivePump::Start(std::uint64_t Number) {
    auto Held = Hold();
    const LiveRun For = Run;
    if (RunNumber != Number) return false;
    Held.unlock();
    if (const int Error = OpenDevice(For); Error < 0) return Lose(Happening::NotOpened, -Error);
    try {
        Adopt(Number, For);
        return true;
    } catch (const std::exception&) {
        return Lose(Happening::Lost, ENOMEM);
    }
}

int LivePump::OpenDevice(const LiveRun& For) {
    const StreamFormat Wanted{For.Format.Channels, For.DeviceHz};
    if (Opened.Channels != 0 && Asked == Wanted) return 0;
    Close();
    StreamFormat Taken = Wanted;
    const int Result = Calling([&](OutputDevice& To) { return To.Open(Taken, Options.LatencyMs); });
    RetryClock = Time.NowNs() + RetryEveryNs;
    if (Result < 0) return Result;
    Opened = Taken;
    Asked = Wanted;
    return 0;
}

// All that is allocated for a run is allocated here.
void LivePump::Adopt(std::uint64_t Number, const LiveRun& Taken) {
    Source = Taken.Format;
    Converter = std::make_unique<OutputConverter>(Source, Opened);
    Ahead.resize(Index(std::max(1, Source.RateHz * TurnMs() / 1000) * Source.Channels));
    Recent.assign(Index(FramesIn(Options.LatencyMs + SlackMs) * Opened.Channels), 0);
    Pending.clear();
    Pending.reserve(Recent.size());
    PendingFrom = 0;
    NextFrame = Taken.Frame;
    Made = 0;
    Underruns = DryLooks = 0;
    Dry = false;
    StartClock = -1;
    ProgressClock = Time.NowNs();
    PlaysRun = Number;

    const auto Held = Hold();
    HeardTime = FrameTimer(Opened.RateHz);
    HeardTime.Start(RunTime.NsOf(Taken.Frame), 0);
    Written = Heard = 0;
    AdoptedRun = Number;
    if (std::exchange(Missing, false)) Note(Happening::Back, 0);
}

/// No device can have played more by then, nor one that takes everything at once.
std::int64_t LivePump::MostHeard(std::int64_t ClockNs) const {
    constexpr std::int64_t MostDriftPart = 1000;
    if (StartClock < 0) return 0;
    FrameTimer Played(Opened.RateHz);
    Played.Start(StartClock, 0);
    const std::int64_t Frames = Played.FramesAt(ClockNs);
    return Frames + Frames / MostDriftPart;
}

bool LivePump::Measure() {
    if (StartClock < 0) return true;
    const long HeldFrames = Calling([](OutputDevice& Of) { return Of.Held(); });
    if (HeldFrames == -EPIPE) {
        RunDry();
    } else if (HeldFrames < 0) {
        return Lose(Happening::Lost, static_cast<int>(-HeldFrames));
    } else {
        SawHeard(Written - HeldFrames, Time.NowNs());
        if (HeldFrames > 0) DryLooks = 0;
    }
    if (DryLooks > MostDryLooks) return Lose(Happening::Lost, EPIPE);
    if (Heard < Written && Time.NowNs() - ProgressClock > StandStillNs) {
        return Lose(Happening::StoodStill, 0);
    }
    return true;
}

void LivePump::RunDry() {
    SawHeard(Written, Time.NowNs());
    if (Written == 0 || Dry) return;
    ++Underruns;
    ++DryLooks;
}

void LivePump::SawHeard(std::int64_t Frames, std::int64_t ClockNs) {
    const std::int64_t Seen = std::min(Frames, MostHeard(ClockNs));
    const auto Held = Hold();
    if (Seen > Heard || Heard == Written) ProgressClock = ClockNs;
    Heard = std::max(Heard, Seen);
    SeenClock = ClockNs;
}

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
            if (StartClock < 0) StartClock = Time.NowNs();
            const auto Samples = Left.first(Index(Taken * Opened.Channels));
            Remember(Samples);
            PendingFrom += Samples.size();
            const auto Held = Hold();
            Written += Taken;
        }
    }
    return true;
}

/// A run begins with a full device: one that starts with little runs dry at once.
bool LivePump::Produce() {
    const std::int64_t Wanted = StartClock < 0 ? FramesIn(Options.LatencyMs) : 1;
    Pending.clear();
    PendingFrom = 0;
    while (std::ssize(Pending) < Wanted * Opened.Channels) {
        const std::size_t Frames = ReadAhead();
        if (Frames == 0) {
            if (Converter) Converter->Flush(ToPending);
            Converter.reset();
            Dry = true;
            return !Pending.empty();
        }
        Dry = false;
        if (!Converter) Converter = std::make_unique<OutputConverter>(Source, Opened);
        Converter->Convert(std::span(Ahead).first(Frames * Index(Source.Channels)), ToPending);
    }
    return true;
}

std::size_t LivePump::ReadAhead() {
    const auto Held = Hold();
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
            *At = Scaled(*At, Made + 1, Ramp + 1);
    }
}

void LivePump::Remember(std::span<const std::int16_t> Samples) {
    if (Options.FadeMs == 0) return;
    std::size_t To = Index(Written * Opened.Channels) % Recent.size();
    for (const std::int16_t Each : Samples) {
        Recent[To] = Each;
        To = To + 1 == Recent.size() ? 0 : To + 1;
    }
}

bool LivePump::Lose(Happening Why, int Error) {
    {
        const auto Held = Hold();
        // Not of a run that was cut or found to stand still meanwhile.
        if (Mode == Phase::Sounding && !CutWanted) FallSilent(Why, Error);
    }
    Close();
    RetryClock = Time.NowNs() + RetryEveryNs;
    return false;
}

void LivePump::Quieten() {
    if (StartClock >= 0 && !FadeOut()) DropAll();
    if (Underruns > 0) {
        const auto Held = Hold();
        Note(Happening::RanDry, Underruns);
    }
    PlaysRun = 0;
    QuietClock = Time.NowNs();
}

/// What cannot be dropped any more will be heard, and so counts as heard.
void LivePump::DropAll() {
    const long Dropped = Calling([](OutputDevice& Of) { return Of.Drop(); });
    if (Dropped < 0) return Close();
    SawHeard(Written - Dropped, Time.NowNs() + SlackMs * NsPerMs);
}

/// The frames that follow those that are as good as heard fall to silence; they are not counted.
bool LivePump::FadeOut() {
    const std::int64_t Ramp = FramesIn(Options.FadeMs);
    if (Ramp == 0) return false;
    const long HeldFrames = Calling([](OutputDevice& Of) { return Of.Held(); });
    const std::int64_t Back = HeldFrames - FramesIn(KeepMs);
    const std::size_t Channels = Index(Opened.Channels);
    if (Back < Ramp || Back > std::ssize(Recent) / Opened.Channels) return false;
    if (Calling([Back](OutputDevice& Of) { return Of.TakeBack(Back); }) != Back) return false;
    SawHeard(Written - HeldFrames, Time.NowNs());
    Pending.clear();
    for (std::int64_t Frame = 0; Frame < Ramp; ++Frame) {
        const std::size_t From = Index(Written - Back + Frame) * Channels % Recent.size();
        for (std::size_t Channel = 0; Channel < Channels; ++Channel)
            Pending.push_back(Scaled(Recent[From + Channel], Ramp - Frame, Ramp + 1));
    }
    return Calling([this](OutputDevice& To) { return To.Write(Pending); }) >= 0;
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
