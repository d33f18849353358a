#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/Clock.h"
#include "server/PlayDllClass.h"
#include "tests/model/WaveMaker.h"

namespace Tolvar::Testing {

/// What a player must do, told frame by frame: a wave as an array, a position, a direction, and
/// the timers that an engine is told to have. One engine, no files, no blocks, no device.
class ModelPlayer {
  public:
    explicit ModelPlayer(EngineOrder TheEngine) : Engine(TheEngine) {}

    std::int32_t State = 0;           ///< PlayRunningState
    std::vector<std::string> Said;    ///< reports and results as the console prints them
    std::vector<std::int32_t> Heard;  ///< samples; before a new format its FormatMark

    static std::int32_t FormatMark(int Channels, int Hz) { return 1'000'000 + 2 * Hz + Channels; }
    void Say(const std::string& What) {
        Said.push_back("@" + std::to_string(NowNs / NsPerMs) + " " + What);
    }

    // Where it stands, for one who wants to meet it at an interesting moment.
    std::int64_t Played = 0;  ///< frames of the run
    std::int32_t Length() const { return static_cast<std::int32_t>(Wave->Frames.size()); }
    std::int64_t FramesOfRun() const { return Length() - StartOff; }
    std::int32_t SegFrames() const { return 4 * Wave->Rate; }
    std::int32_t Hz() const { return IsWaveOut() ? Wave->Rate : DeviceHz; }

    // Commands.

    void HandOver(std::shared_ptr<const MadeWave> Given) {
        Report("Writing to Play Buffer");
        StopPlay();
        if (IsWaveOut() && Length() > 0) FillEnded = true;  // the device was open, and is closed
        Direction = Next = 1;
        Wave = std::move(Given);
        Played = 0;
        HasRun = false;
        HalvesTold = Engine == EngineOrder::Dx9 ? 1 : 0;
        if (!IsWaveOut()) Buffer.assign(static_cast<std::size_t>(2 * SegFrames()), {});
        if (Engine == EngineOrder::Dx9) {
            Poll.Ms = std::max(1LL, std::llrint(4.0 / TempoFor * 25.0));
            if (Poll.IsOn()) Restart(Poll, Poll.Ms);
        }
        Report("Done");
    }
    void PlayAgain() { PlayFromEdge(1); }
    void PlayAgainRev() { PlayFromEdge(-1); }
    void PlayAtPos(std::int32_t Pos) { PlayFrom(1, Pos); }
    void PlayAtPosRev(std::int32_t Pos) { PlayFrom(-1, Pos); }
    void PlayUTurn() {
        UpdatePlayPosition();
        PlayFrom(-Direction, CurPos);
    }
    void StopPlay() {
        Halt();
        Report("Stopped");
    }
    void PlayPause() {
        if (Engine == EngineOrder::Dx7 && Countdown.IsOn()) Marked = true;
        Running = false;
        Signal.Stop();
        (IsWaveOut() ? Poll : Countdown).Stop();
        State = 3;
    }
    void PlayContinue() {
        const std::int64_t From = Running ? NanoFrames() : Played * NsPerSecond;
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
    void LoopPlayON(bool On) { Looping = On; }
    void PlayTempoFor(float Factor) { TempoFor = Clamped(Factor); }
    void PlayTempoRev(float Factor) { TempoRev = Clamped(Factor); }
    void UpdatePlayPosition() {
        const auto Behind = static_cast<std::int32_t>(StartOff + Played);
        CurPos = Direction == 1 ? Behind : Length() - Behind + 1;
    }
    std::int32_t PlayCurrentPosition() {
        if (!IsWaveOut()) UpdatePlayPosition();
        return CurPos;
    }
    void Wait(std::int64_t Ms) {
        const std::int64_t EndNs = NowNs + Ms * NsPerMs;
        const auto NextDue = [this] {
            return std::ranges::min({&Poll, &Countdown, &Signal}, {}, [](const Timer* Each) {
                return std::pair(Each->DueNs, Each->Order);
            });
        };
        for (Timer* Due = NextDue(); Due->DueNs <= EndNs; Due = NextDue()) {
            MoveTo(Due->DueNs);
            Arm(*Due, NowNs + Due->Ms * NsPerMs);
            (this->*Due->Fire)();
        }
        MoveTo(EndNs);
    }

  private:
    /// One that fires goes on; one that is on is not started again.
    struct Timer {
        void (ModelPlayer::*Fire)();
        std::int64_t Ms = 40;
        std::int64_t DueNs = Forever;
        std::int64_t Order = 0;  // of timers that are due together, the first armed comes first

        bool IsOn() const { return DueNs != Forever; }
        void Stop() { DueNs = Forever; }
    };
    void Arm(Timer& Which, std::int64_t DueNs) {
        Which.DueNs = DueNs;
        Which.Order = ++Orders;
    }
    void Start(Timer& Which) {
        if (!Which.IsOn()) Restart(Which, Which.Ms);
    }
    void Restart(Timer& Which, std::int64_t Ms) {
        Which.Ms = Ms;
        Arm(Which, NowNs + Ms * NsPerMs);
    }

    void Report(const std::string& Text) { Say("event \"S2\" \"" + Text + "\""); }
    bool IsWaveOut() const { return Engine == EngineOrder::WaveOut; }
    double Tempo() const { return Direction == 1 ? TempoFor : TempoRev; }
    float Clamped(float Factor) const {
        const double Wanted = static_cast<double>(Factor) * Wave->Rate;
        return static_cast<float>(std::clamp(Wanted, 100.0, 100'000.0) / Wave->Rate);
    }
    static std::int64_t RoundUp(std::int64_t Value, std::int64_t By) {
        return Value <= 0 ? 0 : (Value + By - 1) / By;
    }

    // The device: frame f of it is heard when NanoFrames has come to f + 1 thousand million.

    std::int64_t NanoFrames() const { return FromNanoFrames + (NowNs - SinceNs) * Hz(); }

    void SetOff(std::int64_t From) {
        Running = true;
        SinceNs = NowNs;
        FromNanoFrames = From;
        if (Engine == EngineOrder::Dx7) ArmSignal();
    }
    /// DirectSound 7's next: the cursor enters a half.
    void ArmSignal() {
        const std::int64_t Frame = HalvesTold * SegFrames();
        Arm(Signal, SinceNs + RoundUp(Frame * NsPerSecond - FromNanoFrames, Hz()));
    }
    void MoveTo(std::int64_t Ns) {
        NowNs = Ns;
        if (!Running) return;
        std::int64_t Until = NanoFrames() / NsPerSecond;
        if (IsWaveOut()) Until = std::min<std::int64_t>(Until, std::ssize(Buffer));
        for (; Played < Until; ++Played)
            Hear();
    }
    /// A run sounds as the wave does, frame by frame in its direction. What a DirectSound buffer
    /// holds is heard behind the wave's end, without a run, and at a speed that leaves the poll
    /// behind.
    void Hear() {
        const std::int32_t Mark = FormatMark(Wave->Channels, Hz());
        if (std::exchange(HeardFormat, Mark) != Mark) Heard.push_back(Mark);
        const bool IsWave = HasRun && !TooFast && Played < FramesOfRun();
        const auto Place = static_cast<std::size_t>(Played % std::ssize(Buffer));
        const WaveFrame& Frame = IsWave ? FrameOfRun(StartOff + Played + 1) : Buffer[Place];
        Heard.insert(Heard.end(), Frame.begin(), Frame.begin() + Wave->Channels);
    }
    void Halt() {
        State = 0;
        Countdown.Stop();
        Signal.Stop();
        Running = IsWaveOut();  // it waits for frames
        if (!IsWaveOut()) return;
        Poll.Stop();
        HasRun = false;
        Stopping = true;
        Buffer.clear();
        Played = LastQueuedStart = 0;
    }

    // Runs.

    /// Counted from the edge that a run in this direction begins at.
    const WaveFrame& FrameOfRun(std::int64_t Number) const {
        const std::int64_t At = Direction == 1 ? Number - 1 : Length() - Number;
        return Wave->Frames[static_cast<std::size_t>(At)];
    }
    /// At most a segment's.
    void NextFrames(auto Into) {
        Filled = std::min(SegFrames(), Length() - Next + 1);
        for (std::int32_t I = 0; I < Filled; ++I)
            *Into++ = FrameOfRun(Next++);
        LastSegMs = static_cast<std::int32_t>(std::nearbyint(Filled * 1000.0 / Wave->Rate + 1));
        if (Filled == SegFrames()) LastSegMs = 0;
    }
    void PlayFromEdge(int Towards) {
        LoopCount = 0;
        StartRun(Towards, 1, "Playing Loop");
    }
    void PlayFrom(int Towards, std::int32_t Pos) {
        CurPos = Pos;
        const std::int64_t From = Towards == 1 ? Pos : std::int64_t{Length()} - Pos + 1;
        StartRun(Towards, static_cast<std::int32_t>(std::clamp<std::int64_t>(From, 1, Length())),
                 "Playing Loop " + std::to_string(LoopCount));
    }
    void StartRun(int Towards, std::int32_t From, const std::string& LoopReport) {
        Direction = Towards;
        Halt();
        Next = From;
        StartOff = From - 1;
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
            Played = HalvesTold = 0;
            SetOff(0);
            if (Engine == EngineOrder::Dx9) Start(Poll);
            if (LastSegMs > 0) ArmCountdown();
        }
        State = Looping ? 2 : 1;
        Report(Looping ? LoopReport : "Playing");
    }
    /// A segment that plays in less time than the DirectSound 9 poll takes is missed.
    void TakeTempo() {
        DeviceHz = static_cast<std::int32_t>(std::nearbyint(Tempo() * Wave->Rate));
        if (Engine == EngineOrder::Dx9 && Poll.Ms * DeviceHz >= 1000 * SegFrames()) TooFast = true;
    }
    void ArmCountdown() {
        const std::int64_t Counted = std::llrint(LastSegMs / Tempo() + 1);
        Restart(Countdown, std::max(Counted, RoundUp(1000LL * Filled, DeviceHz)));
    }
    void EndOfPlay() {
        constexpr std::int64_t MostLateMs = 4000;
        Countdown.Stop();
        // It does not come before the wave's last frame was heard, unless that takes far too long.
        const std::int64_t Left = IsWaveOut() ? 0 : FramesOfRun() - Played;
        if (Left > 0 && LateMs < MostLateMs) {
            const std::int64_t LeftMs = std::min(RoundUp(1000 * Left, DeviceHz), MostLateMs);
            LateMs += LeftMs;
            return Restart(Countdown, LeftMs);
        }
        EndSignalled = false;
        const int Before = std::exchange(LoopCount, 0);
        if (Looping) {
            PlayFromEdge(Direction);
            LoopCount = Before + 1;
            Report("Playing Loop " + std::to_string(LoopCount));
        } else {
            Halt();
            Report("Play Done");
        }
        Marked = false;
    }

    // DirectSound.

    void WriteHalf(int Half) {
        const auto First = Buffer.begin() + (Half - 1) * SegFrames();
        std::fill_n(First, SegFrames(), WaveFrame{});
        NextFrames(First);
    }
    /// The cursor has left that half.
    void Refill(int Half) {
        if (LastSegMs > 0 || FillEnded) {
            if (std::exchange(EndSignalled, true)) return;
            ArmCountdown();
            Marked = true;
        } else if (Next <= Length()) {
            WriteHalf(Half);
        } else {
            NextFrames(Buffer.begin());  // none
            FillEnded = true;
        }
    }
    void SignalDx7() {
        const bool First = HalvesTold++ % 2 == 0;
        ArmSignal();
        Refill(First ? 2 : 1);
    }
    void PollDx9() {
        Poll.Stop();
        if (!Running && !Looping) return;
        if (Running) {
            const std::int64_t Halves = Played / SegFrames() + 1;
            const std::int64_t Before = std::exchange(HalvesTold, Halves);
            if (Halves > Before + Before % 2) Refill(2);
            if (Halves > Before + 1 - Before % 2) Refill(1);
        }
        Start(Poll);
    }

    // waveOut.

    void Queue() {
        if (Running && Played == std::ssize(Buffer)) SetOff(Played * NsPerSecond);
        LastQueuedStart = std::ssize(Buffer);
        NextFrames(std::back_inserter(Buffer));
        FillEnded = Filled < SegFrames();
    }
    void QueueOrEnd() {
        if (!FillEnded && Next <= Length()) return Queue();
        if (FillEnded && !Stopping) Start(Countdown);
        FillEnded = true;
    }
    void PollWaveOut() {
        UpdatePlayPosition();
        if (Played > LastQueuedStart && !FillEnded) QueueOrEnd();
        const bool IsDry = Played == std::ssize(Buffer);
        if (StallSeen && IsDry && !FillEnded && !HasRun) {  // there was nothing to continue
            FillEnded = true;
            LoopCount = 0;
            Halt();
            Report("Play Failed");
        } else if (StallSeen && IsDry) {
            QueueOrEnd();
        }
        StallSeen = IsDry;
    }

    EngineOrder Engine;
    std::shared_ptr<const MadeWave> Wave = std::make_shared<MadeWave>();
    bool Looping = false;
    float TempoFor = 1;
    float TempoRev = 1;

    int Direction = 1;
    std::int32_t CurPos = 0;
    std::int32_t StartOff = 0;
    std::int32_t Next = 1;  // frame to be read next, from the edge that the run began at
    std::int32_t Filled = 0;
    std::int32_t LastSegMs = 0;
    bool FillEnded = false;
    int LoopCount = 0;
    bool HasRun = false;   // what the device holds is a run's
    bool TooFast = false;  // for the DirectSound 9 poll

    std::int64_t NowNs = 0;
    std::int64_t Orders = 0;
    Timer Poll{IsWaveOut() ? &ModelPlayer::PollWaveOut : &ModelPlayer::PollDx9};
    Timer Countdown{&ModelPlayer::EndOfPlay};
    Timer Signal{&ModelPlayer::SignalDx7};

    // waveOut: all that was queued since the reset. DirectSound: the two segments.
    std::vector<WaveFrame> Buffer;
    bool Running = false;
    std::int64_t SinceNs = 0;
    std::int64_t FromNanoFrames = 0;
    std::int32_t DeviceHz = 100;
    std::int32_t HeardFormat = 0;

    // waveOut.
    bool Stopping = false;
    bool StallSeen = false;
    std::int64_t LastQueuedStart = 0;

    // DirectSound.
    bool Marked = false;          // the countdown was armed and has not fired
    bool EndSignalled = false;    // by the first crossing behind the last segment
    std::int64_t LateMs = 0;      // by which the countdown was put off
    std::int64_t HalvesTold = 1;  // that the cursor has entered
};

}  // namespace Tolvar::Testing
