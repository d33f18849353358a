#include "tests/model/ModelPlayer.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace Tolvar::Testing {
namespace {

constexpr std::int64_t NsPerMs = 1'000'000;
constexpr std::int64_t Giga = 1'000'000'000;
constexpr std::int64_t MostLateMs = 4000;

std::int64_t RoundUp(std::int64_t Value, std::int64_t By) {
    return Value <= 0 ? 0 : (Value + By - 1) / By;
}

std::string Report(const std::string& Text) {
    return "event \"S2\" \"" + Text + "\"";
}

}  // namespace

void ModelPlayer::Say(const std::string& What) {
    Said.push_back("@" + std::to_string(NowNs / NsPerMs) + " " + What);
}

// Time.

void ModelPlayer::Arm(Timer& Which, std::int64_t DueNs) {
    Which.On = true;
    Which.DueNs = DueNs;
    Which.Order = ++Orders;
}

void ModelPlayer::Start(Timer& Which) {
    if (!Which.On) Arm(Which, NowNs + Which.Ms * NsPerMs);
}

void ModelPlayer::Interval(Timer& Which, std::int64_t Ms) {
    Which.Ms = Ms;
    if (std::exchange(Which.On, false)) Start(Which);
}

void ModelPlayer::Wait(std::int64_t Ms) {
    const std::int64_t EndNs = NowNs + Ms * NsPerMs;
    while (true) {
        Timer* Due = nullptr;
        for (Timer* Each : {&Poll, &Countdown, &Signal}) {
            if (!Each->On || Each->DueNs > EndNs) continue;
            if (Due == nullptr ||
                std::pair(Each->DueNs, Each->Order) < std::pair(Due->DueNs, Due->Order)) {
                Due = Each;
            }
        }
        if (Due == nullptr) break;
        MoveTo(Due->DueNs);
        Arm(*Due, NowNs + Due->Ms * NsPerMs);
        if (Due == &Signal) {
            SignalDx7();
        } else if (Due == &Countdown) {
            EndOfPlay();
        } else if (IsWaveOut()) {
            PollWaveOut();
        } else {
            PollDx9();
        }
    }
    MoveTo(EndNs);
}

void ModelPlayer::MoveTo(std::int64_t Ns) {
    NowNs = Ns;
    if (!Running) return;
    std::int64_t Until = NanoFrames() / Giga;
    if (IsWaveOut()) Until = std::min<std::int64_t>(Until, std::ssize(Buffer));
    for (; Played < Until; ++Played)
        Hear();
}

// The device.

std::int64_t ModelPlayer::NanoFrames() const {
    return FromNanoFrames + (NowNs - SinceNs) * Hz();
}

void ModelPlayer::SetOff(std::int64_t From) {
    Running = true;
    SinceNs = NowNs;
    FromNanoFrames = From;
    if (Engine == EngineOrder::Dx7) ArmSignal();
}

/// A run sounds as the wave does, frame by frame in its direction. What a DirectSound buffer holds
/// is heard behind the wave's end, without a run, and at a speed that leaves the poll behind.
void ModelPlayer::Hear() {
    if (const auto Mark = FormatMark(Wave.Channels, Hz()); HeardFormat != Mark) {
        Heard.push_back(HeardFormat = Mark);
    }
    const bool IsWave = HasRun && !TooFast && Played < FramesOfRun();
    const ModelFrame& Frame = IsWave
                                  ? FrameOfRun(StartOff + Played + 1)
                                  : Buffer[static_cast<std::size_t>(Played % std::ssize(Buffer))];
    Heard.insert(Heard.end(), Frame.begin(), Frame.begin() + Wave.Channels);
}

/// The signals of a pass: at its first frame, in its middle and at its last frame.
void ModelPlayer::ArmSignal() {
    const std::int64_t Pass = std::ssize(Buffer);
    const std::int64_t Which = SignalNo % 3;
    const std::int64_t Frame = SignalNo / 3 * Pass + (Which == 0   ? 0
                                                      : Which == 1 ? Pass / 2
                                                                   : Pass - 1);
    Arm(Signal, SinceNs + RoundUp(Frame * Giga - FromNanoFrames, Hz()));
}

void ModelPlayer::Halt() {
    State = 0;
    Countdown.On = Signal.On = false;
    Running = IsWaveOut();  // it waits for frames
    if (!IsWaveOut()) return;
    Poll.On = HasRun = false;
    Stopping = true;
    Buffer.clear();
    Played = LastQueuedStart = 0;
}

// The wave in the current direction.

/// Counted from the edge that a run in this direction begins at.
const ModelFrame& ModelPlayer::FrameOfRun(std::int64_t Number) const {
    return Wave.Frames[static_cast<std::size_t>(Direction == 1 ? Number - 1 : Length() - Number)];
}

std::vector<ModelFrame> ModelPlayer::NextFrames() {
    std::vector<ModelFrame> Segment;
    for (; Next <= Length() && std::ssize(Segment) < SegFrames(); ++Next)
        Segment.push_back(FrameOfRun(Next));
    Filled = static_cast<std::int32_t>(Segment.size());
    LastSegMs = static_cast<std::int32_t>(std::nearbyint(Filled * 1000.0 / Wave.Rate + 1));
    if (Filled == SegFrames()) LastSegMs = 0;
    return Segment;
}

void ModelPlayer::UpdatePlayPosition() {
    const auto Behind = static_cast<std::int32_t>(StartOff + Played);
    CurPos = Direction == 1 ? Behind : Length() - Behind + 1;
}

std::int32_t ModelPlayer::PlayCurrentPosition() {
    if (!IsWaveOut()) UpdatePlayPosition();
    return CurPos;
}

// Commands.

void ModelPlayer::HandOver(const ModelWave& Given) {
    Say(Report("Writing to Play Buffer"));
    StopPlay();
    if (IsWaveOut() && Length() > 0) FillEnded = true;  // the device was open, and is closed
    Direction = Next = 1;
    Wave = Given;
    Played = 0;
    HasRun = false;
    if (!IsWaveOut()) {
        Buffer.assign(static_cast<std::size_t>(2 * SegFrames()), {});
        SignalNo = SecondsTold = 0;
        FirstsTold = 1;
    }
    if (Engine == EngineOrder::Dx9) {
        Interval(Poll, std::max(1LL, std::llrint(4.0 / TempoFor * 25.0)));
    }
    Say(Report("Done"));
}

float ModelPlayer::Clamped(float Factor) const {
    const double Wanted = static_cast<double>(Factor) * Wave.Rate;
    if (Wanted < 100) return static_cast<float>(100.0 / Wave.Rate);
    return Wanted > 100'000 ? static_cast<float>(100'000.0 / Wave.Rate) : Factor;
}

void ModelPlayer::PlayFromEdge(int Towards) {
    Direction = Towards;
    Halt();
    StartOff = 0;
    Next = 1;
    StartRun(true);
}

void ModelPlayer::PlayFrom(int Towards, std::int32_t Pos) {
    Direction = Towards;
    CurPos = Pos;
    Halt();
    const std::int64_t From = Direction == 1 ? Pos : std::int64_t{Length()} - Pos + 1;
    Next = static_cast<std::int32_t>(std::clamp<std::int64_t>(From, 1, Length()));
    StartOff = Next - 1;
    StartRun(false);
}

void ModelPlayer::PlayUTurn() {
    UpdatePlayPosition();
    PlayFrom(-Direction, CurPos);
}

void ModelPlayer::StartRun(bool FromEdge) {
    if (FromEdge) LoopCount = 0;
    FillEnded = Stopping = Marked = EndSignalled = false;
    LateMs = 0;
    HasRun = true;
    if (IsWaveOut()) {
        Queue();
        Start(Poll);
    } else {
        WriteHalf(1);
        TooFast = false;
        TakeTempo();
        Played = SignalNo = FirstsTold = SecondsTold = 0;
        SetOff(0);
        if (Engine == EngineOrder::Dx9) Start(Poll);
        if (LastSegMs > 0) ArmCountdown();
    }
    State = Looping ? 2 : 1;
    Say(Report(!Looping   ? "Playing"
               : FromEdge ? "Playing Loop"
                          : "Playing Loop " + std::to_string(LoopCount)));
}

/// A segment that plays in less time than the DirectSound 9 poll takes is missed.
void ModelPlayer::TakeTempo() {
    DeviceHz = static_cast<std::int32_t>(std::nearbyint(Tempo() * Wave.Rate));
    if (Engine == EngineOrder::Dx9 && Poll.Ms * DeviceHz >= 1000 * SegFrames()) TooFast = true;
}

void ModelPlayer::StopPlay() {
    Halt();
    Say(Report("Stopped"));
}

void ModelPlayer::PlayPause() {
    if (Engine == EngineOrder::Dx7 && Countdown.On) Marked = true;
    Running = Signal.On = false;
    (IsWaveOut() ? Poll : Countdown).On = false;
    State = 3;
}

void ModelPlayer::PlayContinue() {
    const std::int64_t From = Running ? NanoFrames() : Played * Giga;
    if (IsWaveOut()) {
        if (!Running) SetOff(From);
        Stopping = false;
    } else {
        TakeTempo();
        SetOff(From);
        if (Marked) ArmCountdown();
    }
    if (Engine != EngineOrder::Dx7) Start(Poll);
    State = Looping ? 2 : 1;
}

// The end of play.

void ModelPlayer::ArmCountdown() {
    const std::int64_t Counted = std::llrint(LastSegMs / Tempo() + 1);
    Interval(Countdown, std::max(Counted, RoundUp(1000LL * Filled, DeviceHz)));
    Start(Countdown);
}

void ModelPlayer::EndOfPlay() {
    Countdown.On = false;
    // It does not come before the wave's last frame was heard, unless that takes far too long.
    const std::int64_t Left = IsWaveOut() ? 0 : FramesOfRun() - Played;
    if (Left > 0 && LateMs < MostLateMs) {
        const std::int64_t LeftMs = std::min(RoundUp(1000 * Left, DeviceHz), MostLateMs);
        LateMs += LeftMs;
        Interval(Countdown, LeftMs);
        return Start(Countdown);
    }
    EndSignalled = false;
    const int Before = LoopCount;
    if (Looping) {
        PlayFromEdge(Direction);
        LoopCount = Before + 1;
        Say(Report("Playing Loop " + std::to_string(LoopCount)));
    } else {
        Halt();
        LoopCount = 0;
        Say(Report("Play Done"));
    }
    Marked = false;
}

// DirectSound.

void ModelPlayer::WriteHalf(int Half) {
    auto Segment = NextFrames();
    Segment.resize(static_cast<std::size_t>(SegFrames()));
    std::ranges::copy(Segment, Buffer.begin() + (Half - 1) * SegFrames());
}

/// The cursor has left that half.
void ModelPlayer::Refill(int Half) {
    if (LastSegMs > 0 || FillEnded) {
        if (std::exchange(EndSignalled, true)) return;
        ArmCountdown();
        Marked = true;
    } else if (Next <= Length()) {
        WriteHalf(Half);
    } else {
        NextFrames();
        FillEnded = true;
    }
}

void ModelPlayer::SignalDx7() {
    const auto Which = SignalNo++ % 3;
    ArmSignal();
    if (Which < 2) Refill(Which == 0 ? 2 : 1);
}

void ModelPlayer::PollDx9() {
    Poll.On = false;
    if (!Running && !Looping) return;
    if (Running) {
        const std::int64_t Firsts = Played / std::ssize(Buffer) + 1;
        const std::int64_t Seconds = (Played + SegFrames()) / std::ssize(Buffer);
        const bool First = Firsts > std::exchange(FirstsTold, Firsts);
        const bool Second = Seconds > std::exchange(SecondsTold, Seconds);
        if (First) Refill(2);
        if (Second) Refill(1);
    }
    Start(Poll);
}

// waveOut.

void ModelPlayer::Queue() {
    const auto Segment = NextFrames();
    if (Running && Played == std::ssize(Buffer)) SetOff(Played * Giga);
    LastQueuedStart = std::ssize(Buffer);
    Buffer.insert(Buffer.end(), Segment.begin(), Segment.end());
    FillEnded = Filled < SegFrames();
}

void ModelPlayer::QueueOrEnd() {
    if (!FillEnded && Next <= Length()) return Queue();
    if (FillEnded && !Stopping) Start(Countdown);
    FillEnded = true;
}

void ModelPlayer::PollWaveOut() {
    UpdatePlayPosition();
    if (Played > LastQueuedStart && !FillEnded) QueueOrEnd();
    const bool IsDry = Played == std::ssize(Buffer);
    if (StallSeen && IsDry && !FillEnded && !HasRun) {  // there was nothing to continue
        FillEnded = true;
        LoopCount = 0;
        Halt();
        Say(Report("Play Failed"));
    } else if (StallSeen && IsDry) {
        QueueOrEnd();
    }
    StallSeen = IsDry;
}

}  // namespace Tolvar::Testing
