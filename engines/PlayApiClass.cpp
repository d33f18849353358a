#include "engines/PlayApiClass.h"

#include <exception>
#include <utility>

#include "engines/RunMath.h"
#include "platform/Checked.h"
#include "stream/StreamBuffFill.h"

namespace Tolvar {

namespace {
constexpr std::int32_t CountdownMs = 40;
constexpr int MostStillPolls = 100;  // four seconds
}  // namespace

PlayApiClass::PlayApiClass(EngineSetup Setup)
    : PlayEngine(std::move(Setup)),
      Mm_(Os.Wave),
      StopPlayTimer(Forms().Timers.Timer0),
      CallBackTimer(Forms().Timers.Timer2) {
    PosTime.wType = TIME_SAMPLES;
    PosTime.sample = 0;
    StopPlayTimer.Bind([this] { StopPlayTimer_Timer(); });
    CallBackTimer.Bind([this] { CallBackTimer_Timer(); });
}

PlayApiClass::~PlayApiClass() {
    Close();
}

void PlayApiClass::Close() noexcept {
    if (IsClosed_) return;
    IsClosed_ = true;
    State.FillEnded = true;
    try {
        CloseWaveDevice();
    } catch (const std::exception& Cause) {
        LogCause("Closing the device failed", Cause.what());
    }
    CallBackTimer.Enabled(false);
    StopPlayTimer.Enabled(false);
    StopPlayTimer.Bind({});
    CallBackTimer.Bind({});
}

template <typename Operation>
bool PlayApiClass::Trapped(std::string_view FailText, Operation Do) {
    try {
        return Do();
    } catch (const std::exception& Cause) {
        LogCause(FailText, Cause.what());
        Report(FailText);
        return false;
    }
}

// The device.

bool PlayApiClass::CreateSoundBuffer() {
    return Trapped("Play Buffer - Failed", [this] {
        if (State.PlayRunningState != 0) StopPlay();
        if (IsClosed_) return false;  // the editor dropped this engine inside "Stopped"
        // Closed first, so that no device reads a buffer whose geometry is about to change.
        CloseWaveDevice();
        ForgetGeometry(State);
        RequireOfDevice(!DeviceOpen, "the device of the wave before cannot be closed");
        SetGeometry(State);
        OpenWaveDevice();
        State.PlayRunningState = 0;
        return DeviceOpen;
    });
}

void PlayApiClass::OpenWaveDevice() {
    if (Mm_.waveOutGetNumDevs() < 1) {
        LogCause("Sound Buffer Failed", "there is no sound device");
        return;
    }
    const std::int32_t BlockAlign = CheckedMul(2, State.FmtChannal);
    WaveFmt.wFormatTag = WAVE_FORMAT_PCM;
    WaveFmt.nChannels = static_cast<WORD>(State.FmtChannal);
    WaveFmt.nSamplesPerSec = static_cast<DWORD>(State.FmtFriq);
    WaveFmt.nBlockAlign = static_cast<WORD>(BlockAlign);
    WaveFmt.nAvgBytesPerSec = static_cast<DWORD>(CheckedMul(BlockAlign, State.FmtFriq));
    WaveFmt.wBitsPerSample = 16;
    WaveFmt.cbSize = 0;
    const MMRESULT Result = Mm_.waveOutOpen(&hWaveOut, WAVE_MAPPER, &WaveFmt, 0, 0, 0);
    DeviceOpen = Result == MMSYSERR_NOERROR;
    if (!DeviceOpen) {
        LogCause("Sound Buffer Failed", "waveOutOpen answered " + std::to_string(Result) + " for " +
                                            std::to_string(State.FmtFriq) + " Hz, " +
                                            std::to_string(State.FmtChannal) + " channels");
    }
}

void PlayApiClass::CloseWaveDevice() {
    if (!DeviceOpen) return;
    CallBackTimer.Enabled(false);
    State.FillEnded = true;
    Stopping = true;
    ResetDevice();
    for (const std::size_t Segment : {1U, 2U}) {
        if (!HdrPrepared[Segment]) continue;
        Note("waveOutUnprepareHeader",
             Mm_.waveOutUnprepareHeader(hWaveOut, &WaveHdr[Segment], WaveHdrBytes));
        HdrPrepared[Segment] = false;
    }
    // One that refuses stays to be closed: nobody could open it again, and it reads the headers.
    const MMRESULT Result = Mm_.waveOutClose(hWaveOut);
    Note("waveOutClose", Result);
    DeviceOpen = Result != MMSYSERR_NOERROR;
    PosTime.sample = 0;
}

// Filling and queueing.

void PlayApiClass::ResetDevice() {
    const MMRESULT Result = Mm_.waveOutReset(hWaveOut);
    Note("waveOutReset", Result);
    ResetOwed_ = DeviceOpen && Result != MMSYSERR_NOERROR;
}

/// A refusal that nobody is told of, because the play goes on as well as it can.
void PlayApiClass::Note(std::string_view Call, MMRESULT Result) {
    if (DeviceOpen && Result != MMSYSERR_NOERROR) {
        LogCause(Call, "answered " + std::to_string(Result));
    }
}

void PlayApiClass::PrepareHeader(std::int32_t Segment) {
    const auto Index = static_cast<std::size_t>(Segment);
    WAVEHDR& Header = WaveHdr[Index];
    Header = WAVEHDR{};
    Header.lpData =
        reinterpret_cast<const char*>(State.StreamBuff.At(Segment == 1 ? 1 : State.SegSamples + 1));
    Header.dwBufferLength = static_cast<DWORD>(State.SegFilledBytes);
    const MMRESULT Result = Mm_.waveOutPrepareHeader(hWaveOut, &Header, WaveHdrBytes);
    Note("waveOutPrepareHeader", Result);
    HdrPrepared[Index] = Result == MMSYSERR_NOERROR;
}

// Nothing to do while no run is on: a continue behind a stop starts none.
void PlayApiClass::FillAndQueue() {
    if (FillBusy || Stopping) return;
    FillBusy = true;
    LastQueueOk = false;
    try {
        if (!State.FillEnded) {
            QueueSegment(NextSeg);
        } else if (!StopPlayTimer.Enabled()) {
            // An armed countdown is left alone: the poll that keeps ticking must not put it off.
            StopPlayTimer.Interval(CountdownMs);
            StopPlayTimer.Enabled(true);
        }
    } catch (const std::exception& Cause) {
        // What is queued is played out, and then the play ends.
        State.FillEnded = true;
        NextSeg = 0;
        LogCause("Segment not filled", Cause.what());
    }
    FillBusy = false;
}

void PlayApiClass::QueueSegment(std::int32_t Segment) {
    if (!DeviceOpen) throw RuntimeFailure(FailureKind::Device, "the device is not open");
    if (!StreamBuffFill(State, Segment)) {
        NextSeg = 0;
        State.FillEnded = true;
        return;
    }
    PrepareHeader(Segment);
    WAVEHDR& Header = WaveHdr[static_cast<std::size_t>(Segment)];
    const MMRESULT Result = Mm_.waveOutWrite(hWaveOut, &Header, WaveHdrBytes);
    if (Result == MMSYSERR_NOERROR) {
        LastQueueOk = true;
        LastQueuedStart = TotalQueued;
        TotalQueued = CheckedAdd(TotalQueued, State.SegFilled);
        if (State.SegFilled < State.SegFrames) State.FillEnded = true;
    } else {
        LogCause("Segment not queued", "waveOutWrite answered " + std::to_string(Result));
    }
    NextSeg = Segment == 1 ? 2 : 1;
}

// Commands.

bool PlayApiClass::PlayMe() {
    return Trapped("Play Failed", [this] {
        if (State.PlayRunningState != 0) HaltPlayback();
        StartAtEdge(State);
        LoopCount = 0;
        return StartRun(State.LoopPlayON ? "Playing Loop" : "Playing", "Play Failed");
    });
}

bool PlayApiClass::UTurn() {
    return Trapped("UTurn failed", [this] {
        // Paused before it is asked: what it played in between would be heard twice.
        if (State.PlayRunningState != 0) Note("waveOutPause", Mm_.waveOutPause(hWaveOut));
        UpdatePlayPosition();
        if (State.PlayRunningState != 0) HaltPlayback();
        TurnRound(State);
        StartAtCurPos(State);
        return StartRun(RunText(), "UTurn failed");
    });
}

bool PlayApiClass::PlayAtCurrentPosition() {
    return Trapped("Play at.. failed", [this] {
        if (State.PlayRunningState != 0) HaltPlayback();
        StartAtCurPos(State);
        return StartRun(RunText(), "Play at.. failed");
    });
}

std::string PlayApiClass::RunText() const {
    return State.LoopPlayON ? "Playing Loop " + std::to_string(LoopCount) : "Playing";
}

bool PlayApiClass::StartRun(std::string_view StartText, std::string_view FailText) {
    if (ResetOwed_) ResetDevice();
    State.FillEnded = false;
    Stopping = false;
    NextSeg = 1;
    TotalQueued = 0;
    StillPolls_ = 0;
    FillAndQueue();
    if (!LastQueueOk) {
        CallBackTimer.Enabled(false);
        LogCause(FailText, "no segment could be queued");
        Report(FailText);
        return false;
    }
    CallBackTimer.Enabled(true);
    State.PlayRunningState = PlayingState(State);
    Report(StartText);
    return true;
}

void PlayApiClass::HaltPlayback() noexcept {
    try {
        Stopping = true;
        CallBackTimer.Enabled(false);
        // A countdown armed shortly before the halt would end or restart a run that is no more.
        StopPlayTimer.Enabled(false);
        ResetDevice();
        State.PlayRunningState = 0;
    } catch (const std::exception& Cause) {
        CallBackTimer.Enabled(false);
        LogCause("Halt failed", Cause.what());
    }
}

bool PlayApiClass::StopPlay() {
    HaltPlayback();
    Report("Stopped");
    return true;
}

void PlayApiClass::PlayPause() {
    CallBackTimer.Enabled(false);
    Note("waveOutPause", Mm_.waveOutPause(hWaveOut));
    State.PlayRunningState = 3;
}

void PlayApiClass::PlayContinue() {
    Note("waveOutRestart", Mm_.waveOutRestart(hWaveOut));
    StillPolls_ = 0;
    CallBackTimer.Enabled(true);
    State.PlayRunningState = PlayingState(State);
}

void PlayApiClass::UpdatePlayPosition() {
    const MMRESULT Result = Mm_.waveOutGetPosition(hWaveOut, &PosTime, MmTimeBytes);
    if (!PositionLost_) Note("waveOutGetPosition", Result);
    PositionLost_ = Result != MMSYSERR_NOERROR;
    PlayedFrames = static_cast<std::int32_t>(PosTime.sample);
    SetCurPos(State, PlayedFrames);
}

// Ticks.

void PlayApiClass::CallBackTimer_Timer() {
    const auto Self = shared_from_this();  // a report below may make the player drop this engine
    try {
        const std::int32_t Before = PlayedFrames;
        UpdatePlayPosition();
        CheckProgress(Before);
        if (PlayedFrames > LastQueuedStart && !State.FillEnded) FillAndQueue();
        if (StallSeen && PlayedFrames == TotalQueued) FillAndQueue();
        StallSeen = PlayedFrames == TotalQueued;
    } catch (const std::exception& Cause) {
        EndFailedRun(Cause.what());
    }
}

/// A device that stands still, or does not say where it is, must not keep a play alive.
void PlayApiClass::CheckProgress(std::int32_t PlayedBefore) {
    const bool Still = !Stopping && PlayedFrames == PlayedBefore && PlayedFrames != TotalQueued;
    StillPolls_ = Still ? StillPolls_ + 1 : 0;
    RequireOfDevice(StillPolls_ <= MostStillPolls, "the device stands still");
}

void PlayApiClass::StopPlayTimer_Timer() {
    const auto Self = shared_from_this();
    StopPlayTimer.Enabled(false);
    if (State.LoopPlayON) {
        LoopAgain();
    } else {
        LoopCount = 0;
        HaltPlayback();
        Report("Play Done");
    }
}

void PlayApiClass::LoopAgain() {
    const std::int32_t Before = LoopCount;
    HaltPlayback();
    PlayMe();
    LoopCount = Before + 1;
    Report("Playing Loop " + std::to_string(LoopCount));
}

void PlayApiClass::EndFailedRun(std::string_view Cause) {
    LogCause("Play Failed", Cause);
    LoopCount = 0;
    HaltPlayback();
    Report("Play Failed");
}

}  // namespace Tolvar
