#include "engines/StreamDx7Class.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "engines/RunMath.h"
#include "platform/Checked.h"

namespace Tolvar {

namespace {

constexpr std::int32_t BufferFlags = DSBCAPS_GETCURRENTPOSITION2 | DSBCAPS_GLOBALFOCUS |
                                     DSBCAPS_CTRLPOSITIONNOTIFY | DSBCAPS_CTRLFREQUENCY |
                                     DSBCAPS_LOCSOFTWARE;

std::int32_t BlockAlign(const PlayerState& State) {
    return CheckedMul(2, State.FmtChannal);
}

WAVEFORMATEX FormatOf(const PlayerState& State) {
    WAVEFORMATEX Format;
    Format.wFormatTag = WAVE_FORMAT_PCM;
    Format.nChannels = static_cast<WORD>(State.FmtChannal);
    Format.nSamplesPerSec = static_cast<DWORD>(State.FmtFriq);
    Format.wBitsPerSample = 16;
    Format.nBlockAlign = static_cast<WORD>(BlockAlign(State));
    Format.nAvgBytesPerSec = static_cast<DWORD>(CheckedMul(BlockAlign(State), State.FmtFriq));
    Format.cbSize = 24;
    return Format;
}

}  // namespace

StreamDx7Class::StreamDx7Class(EngineSetup Setup) : StreamEngine(std::move(Setup)) {}

StreamDx7Class::~StreamDx7Class() {
    StreamDx7Class::Close();
}

void StreamDx7Class::Close() noexcept {
    if (std::exchange(IsClosed_, true)) return;
    try {
        CloseDirectSound();
    } catch (const std::exception& Cause) {
        LogCause("Closing DirectSound failed", Cause.what());
    }
    UnbindCountdown();
}

bool StreamDx7Class::PutONDx7Ds(std::int32_t MFrmHwnd) {
    try {
        DxRoot = Os.MakeDirectX7();
        DSound = DxRoot->DirectSoundCreate("");
        DSound->SetCooperativeLevel(MFrmHwnd, DSSCL_PRIORITY);
        // The cursor enters segment 1, and segment 2 may be refilled; it enters segment 2, and
        // segment 1 may be; it reaches the buffer's end.
        EventFrms_[0].Bind([this](std::int32_t) { RefillNotified(2); });
        EventFrms_[1].Bind([this](std::int32_t) {
            SeenInSegment2();
            RefillNotified(1);
        });
        EventFrms_[2].Bind([this](std::int32_t) { DxEventFrm2_DxEventForward(); });
        for (std::size_t N = 0; N < EventFrms_.size(); ++N) {
            EventIds_[N] = DxRoot->CreateEvent(EventFrms_[N]);
        }
        return true;
    } catch (const std::exception& Cause) {
        LogCause("DirectSound 7 not taken", Cause.what());
        Close();
        return false;
    }
}

void StreamDx7Class::CloseDirectSound() {
    StopPlay();
    DsBuffer.reset();
    State.PlayRunningState = 0;
    Live(false);
    for (std::size_t N = 0; N < EventFrms_.size(); ++N) {
        if (EventIds_[N] != 0) DxRoot->DestroyEvent(std::exchange(EventIds_[N], 0));
        EventFrms_[N].Bind({});
    }
    DSound.reset();
    DxRoot.reset();
}

bool StreamDx7Class::CreateSoundBuffer() {
    try {
        if (State.PlayRunningState != 0) StopPlay();
        if (!DSound) return false;  // the editor dropped this engine inside "Stopped"
        SetGeometry(State);
        DsBuffer = DSound->CreateSoundBuffer({BufferFlags, State.BuffBytes}, FormatOf(State));
        State.PlayRunningState = 0;
        ForgetWraps();
        const std::array<DSBPOSITIONNOTIFY, 3> NotifyPos{{{0, EventIds_[0]},
                                                          {State.SegBytes, EventIds_[1]},
                                                          {State.BuffBytes - 1, EventIds_[2]}}};
        DsBuffer->SetNotificationPositions(NotifyPos);
        Live(true);
        return true;
    } catch (const std::exception& Cause) {
        // Neither the wave before nor a buffer that tells nothing may be played as this wave.
        DsBuffer.reset();
        Live(false);
        ForgetGeometry(State);
        LogCause("Play Buffer - Failed", Cause.what());
        Report("Play Buffer - Failed");
        return false;
    }
}

DirectSoundBuffer& StreamDx7Class::Buffer() {
    if (!DsBuffer) throw RuntimeFailure(FailureKind::Device, "There is no DirectSound buffer");
    return *DsBuffer;
}

bool StreamDx7Class::WriteSegment(std::int32_t Segment) {
    const bool First = Segment == 1;
    Buffer().WriteBuffer(First ? 0 : State.SegBytes, State.SegBytes,
                         State.StreamBuff.At(First ? 1 : State.SegSamples + 1), 0);
    return true;
}

bool StreamDx7Class::StartDevice(bool Restart) {
    if (Restart) {
        ForgetWraps();
        Buffer().SetCurrentPosition(0);
    }
    Buffer().SetFrequency(State.PlayFriq);
    Buffer().Play(DSBPLAY_LOOPING);
    return true;
}

void StreamDx7Class::ForgetWraps() {
    WrapCount = 0;
    PendingWraps = 0;
    LastPlayCursor = 0;
}

void StreamDx7Class::StopDevice() {
    Buffer().Stop();
}

void StreamDx7Class::PlayPause() {
    if (Live()) StopDevice();
    State.PlayRunningState = 3;
    if (!CountdownArmed()) return;
    DisarmCountdown();
    State.StopTimerMark = TimerMark(State.StopTimerMark);
}

void StreamDx7Class::PlayContinue() {
    SetPlayFriq();
    StartDevice(false);
    Resumed();
}

void StreamDx7Class::RefillNotified(std::int32_t Segment) {
    const auto Self = shared_from_this();  // a failed run's report may drop this engine
    if (FillBusy) return;
    FillBusy = true;
    Guarded([&] { Refill(Segment); });
    FillBusy = false;
}

std::optional<std::int32_t> StreamDx7Class::FramesPlayed() {
    DSCURSORS DsCursors;
    Buffer().GetCurrentPosition(DsCursors);
    WrapCount += WrapsSeen(DsCursors.lPlay);
    LastPlayCursor = DsCursors.lPlay;
    return Round32(static_cast<double>(DsCursors.lPlay) / BlockAlign(State) +
                   CheckedMul(State.BuffFrames, WrapCount));
}

// The cursor has passed the middle, so a smaller cursor at the next poll means a wrap, however long
// ago the last poll was. While the signal of a wrap that was already counted is still to come
// (PendingWraps -1), this signal is a late one of the pass before, and says nothing new.
void StreamDx7Class::SeenInSegment2() {
    if (PendingWraps < 0) return;
    if (PendingWraps > 0) LastPlayCursor = 0;
    WrapCount += std::exchange(PendingWraps, 0);
    LastPlayCursor = std::max(LastPlayCursor, State.SegBytes);
}

// The signal of a pass may be handled before the cursor wraps (it comes at the last frame), or
// after the wrap was seen here. Either way the pass counts once: a signal counts when its pass is
// over, a wrap that was seen counts at once and its signal is then owed.
std::int32_t StreamDx7Class::WrapsSeen(std::int32_t Cursor) {
    const bool InLastFrame = Cursor >= State.BuffBytes - BlockAlign(State);
    const std::int32_t Signalled = PendingWraps - (InLastFrame ? 1 : 0);
    const std::int32_t Passes = std::max(Signalled, Cursor < LastPlayCursor ? 1 : 0);
    PendingWraps -= std::max(Passes, 0);
    return std::max(Passes, 0);
}

}  // namespace Tolvar
