#include "engines/StreamDx9Class.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "engines/RunMath.h"
#include "platform/Checked.h"
#include "platform/Clock.h"
#include "platform/RuntimeFailure.h"

namespace Tolvar {

namespace {
constexpr std::int32_t DeviceBits = 16;
constexpr std::int32_t PollsPerSegment = 40;
constexpr double SegmentMs = 4000;
}  // namespace

StreamDx9Class::StreamDx9Class(EngineSetup Setup)
    : StreamEngine(std::move(Setup)),
      Service_(Os.AudioService),
      Dx9CallBackTimer(Forms().Dx9Callback.Dx9Timer) {
    Dx9CallBackTimer.Bind([this] { Guarded([this] { Dx9CallBackTimer_Timer(); }); });
    Dx9CallBackTimer.Enabled(false);
}

StreamDx9Class::~StreamDx9Class() {
    StreamDx9Class::Close();
}

void StreamDx9Class::Close() noexcept {
    if (std::exchange(IsClosed_, true)) return;
    CloseSoundService();
    try {
        Service_.Service07();
    } catch (const std::exception& Cause) {
        LogCause("Shutting the audio service down failed", Cause.what());
    }
    Dx9CallBackTimer.Enabled(false);
    Dx9CallBackTimer.Bind({});
    UnbindCountdown();
}

void StreamDx9Class::CloseSoundService() noexcept {
    try {
        StopPlay();
        Service_.Service03();
    } catch (const std::exception& Cause) {
        LogCause("Closing the audio service failed", Cause.what());
    }
}

bool StreamDx9Class::PutONDx9Ds(std::int32_t MFrmHwnd) {
    DsHwnd = MFrmHwnd;
    return true;
}

bool StreamDx9Class::CreateSoundBuffer() {
    try {
        if (State.PlayRunningState != 0) HaltPlayback();
        SetPollInterval();
        SetGeometry(State);
        Service_.Service03();
        Service_.Service02(DsHwnd, State.FmtChannal, State.FmtFriq, DeviceBits, State.BuffBytes);
        Live(true);
        return true;
    } catch (const std::exception& Cause) {
        ForgetGeometry(State);  // the library may still hold the buffer of the wave before
        LogCause("Play Buffer - Failed", Cause.what());
        Report("Play Buffer - Failed");
        return false;
    }
}

void StreamDx9Class::SetPollInterval() {
    if (HasDirection()) {
        // At least 1 ms: a timer of 0 does not tick, and the buffer would never be refilled.
        Dx9CallBackTimer.Interval(std::max(1, Round32(SegmentMs / PollsPerSegment / Tempo())));
    }
}

bool StreamDx9Class::WriteSegment(std::int32_t Segment) {
    const bool First = Segment == 1;
    return Service_.Service06(State.StreamBuff.At(First ? 1 : State.SegSamples + 1), State.SegBytes,
                              First ? 0 : State.SegBytes) == 1;
}

bool StreamDx9Class::StartDevice(bool Restart) {
    if (Service_.Service04(Restart ? 1 : 0, State.PlayFriq) != 1) return false;
    UntoldNs_ = 0;
    LastPollNs_ = Os.Home.Time().NowNs();
    Dx9CallBackTimer.Enabled(true);
    return true;
}

void StreamDx9Class::StopDevice() {
    Service_.Service05();
}

void StreamDx9Class::PlayPause() {
    HaltPlayback();
    State.PlayRunningState = 3;
}

void StreamDx9Class::PlayContinue() {
    SetPlayFriq();
    if (StartDevice(false)) Resumed();
}

std::optional<std::int32_t> StreamDx9Class::FramesPlayed() {
    std::int32_t Wraps = 0;
    std::int32_t Cursor = 0;
    const double BlockSize = CheckedMul(State.FmtChannal, 2);
    if (Service_.Service01(Wraps, Cursor) == 0) return std::nullopt;
    return Round32(CheckedMul(State.BuffFrames, Wraps) + Cursor / BlockSize);
}

/// A library that plays when it is not to, or that tells of no segment any more, in which case what
/// it holds would be heard round and round. A poll that comes late counts for two at the most: this
/// process may have been frozen meanwhile, and its device with it.
void StreamDx9Class::Watch(bool Tells) {
    if (State.PlayRunningState == 0 || State.PlayRunningState == 3) return StopAgain();
    const std::int64_t NowNs = Os.Home.Time().NowNs();
    const std::int64_t MostNs = 2 * NsPerMs * Dx9CallBackTimer.Interval();
    UntoldNs_ += std::min(NowNs - std::exchange(LastPollNs_, NowNs), MostNs);
    if (Tells) UntoldNs_ = 0;
    if (State.PlayFriq < 1) return;  // how long a round takes cannot be told
    const std::int64_t RoundNs = NsPerSecond * State.BuffFrames / State.PlayFriq;
    RequireOfDevice(UntoldNs_ <= RoundNs, "the audio service tells of no segment any more");
}

void StreamDx9Class::Dx9CallBackTimer_Timer() {
    Dx9CallBackTimer.Enabled(false);
    std::int32_t Stopped = 0;
    std::int32_t RefillSecond = 0;
    std::int32_t RefillFirst = 0;
    std::int32_t Spare = 0;
    Service_.Service08(Stopped, RefillSecond, RefillFirst, Spare);
    if (Stopped != 0 && !State.LoopPlayON) return;
    if (Stopped == 0) Watch(RefillSecond != 0 || RefillFirst != 0);
    if (RefillSecond != 0) Refill(2);
    if (RefillFirst != 0) Refill(1);
    Dx9CallBackTimer.Enabled(true);
}

}  // namespace Tolvar
