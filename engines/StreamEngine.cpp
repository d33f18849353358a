#include "engines/StreamEngine.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <utility>

#include "engines/RunMath.h"
#include "platform/Checked.h"
#include "platform/Clock.h"
#include "stream/StreamBuffFill.h"

namespace Tolvar {
namespace {

constexpr std::int32_t MostLateMs = 4000;  // a device that tells nothing must not keep a play alive

}  // namespace

StreamEngine::StreamEngine(EngineSetup Setup)
    : PlayEngine(std::move(Setup)), StopPlayTimer(Forms().Timers.Timer0) {
    StopPlayTimer.Bind([this] { Guarded([this] { StopPlayTimer_Timer(); }); });
}

void StreamEngine::UnbindCountdown() {
    StopPlayTimer.Enabled(false);
    StopPlayTimer.Bind({});
}

// Commands.

bool StreamEngine::PlayMe() {
    try {
        HaltPlayback();
        StartAtEdge(State);
        State.LastSegMs = 0;
        return StartRun(RunKind::FromEdge);
    } catch (const std::exception& Cause) {
        LogCause("Play Failed", Cause.what());
        return FailRun();
    }
}

bool StreamEngine::UTurn() {
    State.FillEnded = false;
    // Asked again once it is stopped: what it plays in between would be heard twice. And a run
    // whose position cannot be had is over: with its device stopped it would never end.
    const std::optional<std::int32_t> Before = FramesPlayedOrNone();
    HaltPlayback();
    const std::optional<std::int32_t> After = Before ? FramesPlayedOrNone() : FramesPlayed();
    SetCurPos(State, After.value_or(Before.value_or(0)));
    TurnRound(State);
    StartAtCurPos(State);
    return StartRun(RunKind::FromCurPos);
}

bool StreamEngine::PlayAtCurrentPosition() {
    HaltPlayback();
    StartAtCurPos(State);
    return StartRun(RunKind::FromCurPos);
}

bool StreamEngine::StartRun(RunKind Kind) {
    StreamBuffFill(State, 1);
    if (!WriteSegment(1)) return FailRun();
    State.FillEnded = false;
    // A mark left by a countdown that a halt disarmed must not end this run early.
    State.StopTimerMark = 0;
    EndSignalled_ = false;
    StopRefused_ = false;
    LateMs_ = 0;
    if (Kind == RunKind::FromEdge) LoopCount = 0;
    SetPlayFriq();
    if (!StartDevice(true)) return FailRun();
    if (State.LastSegMs > 0) ArmCountdown();
    State.PlayRunningState = PlayingState(State);
    BufferLive = true;
    Report(StartText(Kind));
    return true;
}

bool StreamEngine::FailRun() {
    Report("Play Failed");
    return false;
}

std::string StreamEngine::StartText(RunKind Kind) const {
    if (!State.LoopPlayON) return "Playing";
    if (Kind == RunKind::FromEdge) return "Playing Loop";
    return "Playing Loop " + std::to_string(LoopCount);
}

bool StreamEngine::StopPlay() {
    const bool Halted = HaltPlayback();
    Report("Stopped");
    return Halted;
}

bool StreamEngine::HaltPlayback() noexcept {
    // Also when the device refuses to stop: a countdown or a state that stays would never end.
    StopPlayTimer.Enabled(false);
    StopPlayTimer.Interval(0);
    State.PlayRunningState = 0;
    try {
        if (BufferLive) StopDevice();
        BufferLive = false;
        return true;
    } catch (const std::exception& Cause) {
        LogCause("Halt failed", Cause.what());
        return false;
    }
}

void StreamEngine::StopAgain() noexcept {
    try {
        StopDevice();
    } catch (const std::exception& Cause) {
        if (!std::exchange(StopRefused_, true)) LogCause("Halt failed", Cause.what());
    }
}

void StreamEngine::Resumed() {
    if (State.StopTimerMark > 0) ArmCountdown();
    State.PlayRunningState = PlayingState(State);
    BufferLive = true;
}

void StreamEngine::UpdatePlayPosition() {
    SetCurPos(State, FramesPlayed().value_or(0));
}

std::optional<std::int32_t> StreamEngine::FramesPlayedOrNone() noexcept {
    try {
        return FramesPlayed();
    } catch (const std::exception& Cause) {
        LogCause("Position not known", Cause.what());
        return std::nullopt;
    }
}

// Tempo.

double StreamEngine::Tempo() const {
    return State.PlayDirection == -1 ? State.PlayTempoRev : State.PlayTempoFor;
}

void StreamEngine::SetPlayFriq() {
    if (!HasDirection()) return;
    RunTempo_ = Tempo();
    State.PlayFriq = Round32(RunTempo_ * State.FmtFriq);
}

// Refilling and the end of play.

void StreamEngine::Refill(std::int32_t Segment) {
    if (State.PlayRunningState == 0) return StopAgain();
    if (State.LastSegMs < 1 && !State.FillEnded) {
        if (StreamBuffFill(State, Segment)) {
            WriteSegment(Segment);
        } else {
            State.FillEnded = true;
        }
    } else if (!EndSignalled_) {
        EndSignalled_ = true;
        ArmCountdown();
        State.StopTimerMark = TimerMark();
    }
}

void StreamEngine::ArmCountdown() {
    if (HasDirection() && State.PlayFriq > 0) {
        // The device plays at a whole number of Hz, which may be less than the tempo asks for.
        const double SoundMs = 1000.0 * State.SegFilled / State.PlayFriq;
        StopPlayTimer.Interval(
            std::max(Round32(State.LastSegMs / RunTempo_ + 1.0), Round32(std::ceil(SoundMs))));
    }
    StopPlayTimer.Enabled(true);
}

std::int32_t StreamEngine::TimerMark(std::int32_t Since) const {
    const double Ms = Os.Home.Time().SecondsSinceMidnight() * 1000;
    return std::max(1, Round32(Ms - Since));
}

/// What a device that was late with its first frame, or ran dry, has still to play of the wave; 0
/// for one that does not tell.
std::int32_t StreamEngine::UnheardMs() noexcept {
    const std::optional<std::int32_t> Played = FramesPlayedOrNone();
    if (!Played || !HasDirection() || State.PlayFriq < 1) return 0;
    const std::int64_t Left = std::int64_t{State.WaveNos} - State.PlayStartOff - *Played;
    const double Ms = 1000.0 * static_cast<double>(Left) / State.PlayFriq;
    return Left > 0 ? static_cast<std::int32_t>(std::ceil(std::min<double>(Ms, MostLateMs))) : 0;
}

void StreamEngine::StopPlayTimer_Timer() {
    StopPlayTimer.Enabled(false);
    if (const std::int32_t LeftMs = UnheardMs(); LeftMs > 0 && LateMs_ < MostLateMs) {
        LateMs_ += LeftMs;
        StopPlayTimer.Interval(LeftMs);
        StopPlayTimer.Enabled(true);
        return;
    }
    EndSignalled_ = false;  // a continue after the end is ended by its next signal
    if (State.LoopPlayON) {
        const std::int32_t Before = LoopCount;
        PlayMe();
        LoopCount = Before + 1;
        State.StopTimerMark = 0;
        Report("Playing Loop " + std::to_string(LoopCount));
    } else {
        LoopCount = 0;
        HaltPlayback();
        State.StopTimerMark = 0;
        Report("Play Done");
    }
}

void StreamEngine::EndFailedRun(std::string_view Cause) noexcept {
    LogCause("Play Failed", Cause);
    LoopCount = 0;
    EndSignalled_ = false;
    const bool WasOver = State.PlayRunningState == 0;  // the poll of a loop goes on behind its stop
    HaltPlayback();
    if (!WasOver) Report("Play Failed");
}

}  // namespace Tolvar
