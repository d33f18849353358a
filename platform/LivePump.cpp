#include "platform/LivePump.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <exception>
#include <utility>

namespace Tolvar {
namespace {

constexpr std::int64_t LingerNs = 300 * NsPerMs;  // a turn round or a jump opens nothing anew
constexpr std::int64_t RetryEveryNs = NsPerSecond;
constexpr std::int64_t MostCallNs = NsPerSecond;
constexpr std::int64_t StandStillNs = 2 * NsPerSecond;  // wireless ones take a while to start
constexpr std::int64_t MostUnseenNs = 20 * NsPerMs;
constexpr std::int64_t KeepMs = 2;     // what the device is about to play is not taken back
constexpr std::int64_t SlackMs = 200;  // for a device that fills buffers of its own first
constexpr int ReadsPerSecond = 200;

std::int16_t Scaled(std::int16_t Sample, std::int64_t Part, std::int64_t Of) {
    return static_cast<std::int16_t>(Sample * Part / Of);
}

std::size_t Index(std::int64_t Of) {
    return static_cast<std::size_t>(Of);
}

}  // namespace

LivePump::LivePump(std::unique_ptr<OutputDevice> TheDevice, const Clock& TheTime,
                   LiveOptions TheOptions)
    : Device(std::move(TheDevice)),
      Time(TheTime),
      Options(TheOptions),
      ToPending([this](std::span<const std::int16_t> Samples) { Append(Samples); }) {}

// The apartment's side.

std::int64_t LivePump::NowNs() {
    const auto Held = Hold();
    return ListenerNs();
}

void LivePump::Begin(const LiveRun& Wanted) {
    {
        const auto Held = Hold();
        const std::int64_t Now = ListenerNs();
        Run = Wanted;
        ++RunNumber;
        Mode = Phase::Sounding;
        RunTime = FrameTimer(Wanted.Format.RateHz);
        RunTime.Start(Now, Wanted.Frame);
        FreeNs = Now;
        FreeClock = Time.NowNs();
    }
    Wake();
}

bool LivePump::AskCut(const FrameSource& Of) {
    {
        const auto Held = Hold();
        if (Mode == Phase::Idle || Run.Source != &Of) return false;
        ListenerNs();  // which may find that the device stands still
        CutWanted = Adopted();
        if (!CutWanted) EndRun();
    }
    Wake();
    return true;
}

std::int64_t LivePump::FinishCut(int WaitMs) {
    auto Held = Hold();
    ToApartment.wait_for(Held, std::chrono::milliseconds(WaitMs), [this] { return !CutWanted; });
    if (CutWanted) EndRun();
    return CutNs;
}

void LivePump::Wake() {
    {
        const auto Held = Hold();
        Woken = true;
    }
    ToThread.notify_one();
}

void LivePump::End() {
    {
        const auto Held = Hold();
        Ending = true;
    }
    Wake();
}

bool LivePump::Ended(int WaitMs) {
    auto Held = Hold();
    return ToApartment.wait_for(Held, std::chrono::milliseconds(WaitMs),
                                [this] { return HasEnded; });
}

std::vector<std::string> LivePump::TakeNotices() {
    const auto Held = Hold();
    std::vector<std::string> Lines;
    for (const Notice& Each : std::span(Notices).first(std::exchange(NoticeCount, 0)))
        Lines.push_back(TextOf(Each));
    return Lines;
}

std::string LivePump::TextOf(const Notice& Of) const {
    switch (Of.What) {
        case Happening::NotOpened:
            return "the sound device cannot be opened (" + Device->TextOf(Of.Value) +
                   "): play goes on in silence";
        case Happening::Lost:
            return "the sound device is lost (" + Device->TextOf(Of.Value) +
                   "): play goes on in silence";
        case Happening::StoodStill:
            return "the sound device stands still: play goes on in silence";
        case Happening::Back:
            return "the sound device is back";
        case Happening::RanDry:
            return "the sound device ran dry, times: " + std::to_string(Of.Value);
    }
    return {};
}

// Of both sides.

std::int64_t LivePump::ListenerNs() {
    const std::int64_t Clock = Time.NowNs();
    if (Mode == Phase::Sounding && CallClock >= 0 && Clock - CallClock > MostCallNs) {
        FallSilent(Happening::StoodStill, 0);
    }
    std::int64_t Ns = ToldNs;
    if (Mode != Phase::Sounding) {
        Ns = FreeNs + Clock - FreeClock;
    } else if (Adopted()) {
        FrameTimer Since(HeardTime.RateHz());
        Since.Start(SeenClock, Heard);
        // Not before the first frame was heard: until then the device gets ready.
        const std::int64_t Seen = std::min(Clock, SeenClock + MostUnseenNs);
        const std::int64_t Frames = Heard > 0 ? std::min(Since.FramesAt(Seen), Written) : 0;
        Ns = HeardTime.NsOf(Frames);
    }
    return ToldNs = std::max(ToldNs, Ns);
}

void LivePump::FallSilent(Happening Why, int Error) {
    if (Adopted()) {
        FreeNs = ToldNs = std::max(ToldNs, HeardTime.NsOf(Heard));
        FreeClock = Time.NowNs();
    }  // else it has been silent since the run began
    Mode = Phase::Silent;
    Note(Why, Error);
}

void LivePump::EndRun() {
    if (Adopted()) ToldNs = std::max(ToldNs, HeardTime.NsOf(Heard));
    CutNs = FreeNs = ToldNs;
    FreeClock = Time.NowNs();
    Mode = Phase::Idle;
    ++RunNumber;
    Run = {};
    CutWanted = false;
}

void LivePump::Note(Happening What, int Value) {
    if (NoticeCount < Notices.size()) Notices[NoticeCount++] = {What, Value};
}

// The render thread's side.

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
    Note(Happening::Back, 0);
    return 0;
}

std::int64_t LivePump::Play(std::uint64_t Number) {
    if (PlaysRun != Number && !Start(Number)) return 0;
    if (!Measure() || !Feed()) return 0;
    const bool AllHeard = Dry && PendingFrom == Pending.size() && Heard == Written;
    return AllHeard ? Forever : std::clamp(Options.LatencyMs / 4, 2, 20) * NsPerMs;
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
    Ahead.resize(Index(std::max(1, Source.RateHz / ReadsPerSecond) * Source.Channels));
    Recent.assign(Index(FramesIn(Options.LatencyMs + SlackMs) * Opened.Channels), 0);
    Pending.clear();
    Pending.reserve(Recent.size());
    PendingFrom = 0;
    NextFrame = Taken.Frame;
    Made = 0;
    Underruns = 0;
    Dry = false;
    StartClock = -1;
    ProgressClock = Time.NowNs();
    PlaysRun = Number;

    const auto Held = Hold();
    HeardTime = FrameTimer(Opened.RateHz);
    HeardTime.Start(RunTime.NsOf(Taken.Frame), 0);
    Written = Heard = 0;
    AdoptedRun = Number;
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
    }
    if (Heard < Written && Time.NowNs() - ProgressClock > StandStillNs) {
        return Lose(Happening::StoodStill, 0);
    }
    return true;
}

void LivePump::RunDry() {
    if (Written > 0 && !Dry) ++Underruns;
    SawHeard(Written, Time.NowNs());
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
