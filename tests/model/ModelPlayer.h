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
    explicit ModelPlayer(EngineOrder Engine) : Engine_(Engine) {}

    std::int32_t State = 0;           ///< PlayRunningState
    std::vector<std::string> Said;    ///< reports and results as the console prints them
    std::vector<std::int32_t> Heard;  ///< samples; before a new format its FormatMark

    static std::int32_t FormatMark(int Channels, int Hz) { return 1'000'000 + 2 * Hz + Channels; }
    void Say(const std::string& What) {
        Said.push_back("@" + std::to_string(NowNs_ / NsPerMs) + " " + What);
    }

    // Where it stands, for one who wants to meet it at an interesting moment.
    std::int64_t Played = 0;  ///< frames of the run
    std::int32_t Length() const { return static_cast<std::int32_t>(Wave_->Frames.size()); }
    std::int64_t FramesOfRun() const { return Length() - StartOff_; }
    std::int32_t SegFrames() const { return 4 * Wave_->Rate; }
    std::int32_t Hz() const { return IsWaveOut() ? Wave_->Rate : DeviceHz_; }

    // Commands.

    void HandOver(std::shared_ptr<const MadeWave> Given) {
        Report("Writing to Play Buffer");
        StopPlay();
        if (IsWaveOut() && Length() > 0) FillEnded_ = true;  // the device was open, and is closed
        Direction_ = Next_ = 1;
        Wave_ = std::move(Given);
        Played = 0;
        HasRun_ = false;
        HalvesTold_ = Engine_ == EngineOrder::Dx9 ? 1 : 0;
        if (!IsWaveOut()) Buffer_.assign(static_cast<std::size_t>(2 * SegFrames()), {});
        if (Engine_ == EngineOrder::Dx9) {
            Poll_.Ms = std::max(1LL, std::llrint(4.0 / TempoFor_ * 25.0));
            if (Poll_.IsOn()) Restart(Poll_, Poll_.Ms);
        }
        Report("Done");
    }
    void PlayAgain() { PlayFromEdge(1); }
    void PlayAgainRev() { PlayFromEdge(-1); }
    void PlayAtPos(std::int32_t Pos) { PlayFrom(1, Pos); }
    void PlayAtPosRev(std::int32_t Pos) { PlayFrom(-1, Pos); }
    void PlayUTurn() {
        UpdatePlayPosition();
        PlayFrom(-Direction_, CurPos_);
    }
    void StopPlay() {
        Halt();
        Report("Stopped");
    }
    void PlayPause() {
        if (Engine_ == EngineOrder::Dx7 && Countdown_.IsOn()) Marked_ = true;
        Running_ = false;
        Signal_.Stop();
        (IsWaveOut() ? Poll_ : Countdown_).Stop();
        State = 3;
    }
    void PlayContinue() {
        const std::int64_t From = Running_ ? NanoFrames() : Played * NsPerSecond;
        if (IsWaveOut()) {
            if (!Running_) SetOff(From);
        } else {
            TakeTempo();
            SetOff(From);
            if (Marked_) ArmCountdown();
        }
        if (Engine_ != EngineOrder::Dx7) Start(Poll_);
        State = Looping_ ? 2 : 1;
    }
    void LoopPlayON(bool On) { Looping_ = On; }
    void PlayTempoFor(float Factor) { TempoFor_ = Clamped(Factor); }
    void PlayTempoRev(float Factor) { TempoRev_ = Clamped(Factor); }
    void UpdatePlayPosition() {
        const auto Behind = static_cast<std::int32_t>(StartOff_ + Played);
        CurPos_ = Direction_ == 1 ? Behind : Length() - Behind + 1;
    }
    std::int32_t PlayCurrentPosition() {
        if (!IsWaveOut()) UpdatePlayPosition();
        return CurPos_;
    }
    void Wait(std::int64_t Ms) {
        const std::int64_t EndNs = NowNs_ + Ms * NsPerMs;
        const auto NextDue = [this] {
            return std::ranges::min({&Poll_, &Countdown_, &Signal_}, {}, [](const Timer* Each) {
                return std::pair(Each->DueNs, Each->Order);
            });
        };
        for (Timer* Due = NextDue(); Due->DueNs <= EndNs; Due = NextDue()) {
            MoveTo(Due->DueNs);
            Arm(*Due, NowNs_ + Due->Ms * NsPerMs);
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
        Which.Order = ++Orders_;
    }
    void Start(Timer& Which) {
        if (!Which.IsOn()) Restart(Which, Which.Ms);
    }
    void Restart(Timer& Which, std::int64_t Ms) {
        Which.Ms = Ms;
        Arm(Which, NowNs_ + Ms * NsPerMs);
    }

    void Report(const std::string& Text) { Say("event \"S2\" \"" + Text + "\""); }
    bool IsWaveOut() const { return Engine_ == EngineOrder::WaveOut; }
    double Tempo() const { return Direction_ == 1 ? TempoFor_ : TempoRev_; }
    float Clamped(float Factor) const {
        const double Wanted = static_cast<double>(Factor) * Wave_->Rate;
        return static_cast<float>(std::clamp(Wanted, 100.0, 100'000.0) / Wave_->Rate);
    }
    static std::int64_t RoundUp(std::int64_t Value, std::int64_t By) {
        return Value <= 0 ? 0 : (Value + By - 1) / By;
    }

    // The device: frame f of it is heard when NanoFrames has come to f + 1 thousand million.

    std::int64_t NanoFrames() const { return FromNanoFrames_ + (NowNs_ - SinceNs_) * Hz(); }

    void SetOff(std::int64_t From) {
        Running_ = true;
        SinceNs_ = NowNs_;
        FromNanoFrames_ = From;
        if (Engine_ == EngineOrder::Dx7) ArmSignal();
    }
    /// DirectSound 7's next: the cursor enters a half.
    void ArmSignal() {
        const std::int64_t Frame = HalvesTold_ * SegFrames();
        Arm(Signal_, SinceNs_ + RoundUp(Frame * NsPerSecond - FromNanoFrames_, Hz()));
    }
    void MoveTo(std::int64_t Ns) {
        NowNs_ = Ns;
        if (!Running_) return;
        std::int64_t Until = NanoFrames() / NsPerSecond;
        if (IsWaveOut()) Until = std::min<std::int64_t>(Until, std::ssize(Buffer_));
        for (; Played < Until; ++Played)
            Hear();
    }
    /// A run sounds as the wave does, frame by frame in its direction. What a DirectSound buffer
    /// holds is heard behind the wave's end, without a run, and at a speed that leaves the poll
    /// behind.
    void Hear() {
        const std::int32_t Mark = FormatMark(Wave_->Channels, Hz());
        if (std::exchange(HeardFormat_, Mark) != Mark) Heard.push_back(Mark);
        const bool IsWave = HasRun_ && !TooFast_ && Played < FramesOfRun();
        const auto Place = static_cast<std::size_t>(Played % std::ssize(Buffer_));
        const WaveFrame& Frame = IsWave ? FrameOfRun(StartOff_ + Played + 1) : Buffer_[Place];
        Heard.insert(Heard.end(), Frame.begin(), Frame.begin() + Wave_->Channels);
    }
    void Halt() {
        State = 0;
        Countdown_.Stop();
        Signal_.Stop();
        Running_ = IsWaveOut();  // it waits for frames
        if (!IsWaveOut()) return;
        Poll_.Stop();
        HasRun_ = false;
        Stopping = true;
        Buffer_.clear();
        Played = LastQueuedStart = 0;
    }

    // Runs.

    /// Counted from the edge that a run in this direction begins at.
    const WaveFrame& FrameOfRun(std::int64_t Number) const {
        const std::int64_t At = Direction_ == 1 ? Number - 1 : Length() - Number;
        return Wave_->Frames[static_cast<std::size_t>(At)];
    }
    /// At most a segment's.
    void NextFrames(auto Into) {
        Filled_ = std::min(SegFrames(), Length() - Next_ + 1);
        for (std::int32_t I = 0; I < Filled_; ++I)
            *Into++ = FrameOfRun(Next_++);
        LastSegMs_ = static_cast<std::int32_t>(std::nearbyint(Filled_ * 1000.0 / Wave_->Rate + 1));
        if (Filled_ == SegFrames()) LastSegMs_ = 0;
    }
    void PlayFromEdge(int Towards) {
        LoopCount = 0;
        StartRun(Towards, 1, "Playing Loop");
    }
    void PlayFrom(int Towards, std::int32_t Pos) {
        CurPos_ = Pos;
        const std::int64_t From = Towards == 1 ? Pos : std::int64_t{Length()} - Pos + 1;
        StartRun(Towards, static_cast<std::int32_t>(std::clamp<std::int64_t>(From, 1, Length())),
                 "Playing Loop " + std::to_string(LoopCount));
    }
    void StartRun(int Towards, std::int32_t From, const std::string& LoopReport) {
        Direction_ = Towards;
        Halt();
        Next_ = From;
        StartOff_ = From - 1;
        FillEnded_ = Stopping = Marked_ = EndSignalled_ = false;
        LateMs_ = 0;
        HasRun_ = true;
        if (IsWaveOut()) {
            Queue();
            Start(Poll_);
        } else {
            WriteHalf(1);
            TooFast_ = false;
            TakeTempo();
            Played = HalvesTold_ = 0;
            SetOff(0);
            if (Engine_ == EngineOrder::Dx9) Start(Poll_);
            if (LastSegMs_ > 0) ArmCountdown();
        }
        State = Looping_ ? 2 : 1;
        Report(Looping_ ? LoopReport : "Playing");
    }
    /// A segment that plays in less time than the DirectSound 9 poll takes is missed.
    void TakeTempo() {
        RunTempo_ = Tempo();
        DeviceHz_ = static_cast<std::int32_t>(std::nearbyint(Tempo() * Wave_->Rate));
        if (Engine_ == EngineOrder::Dx9 && Poll_.Ms * DeviceHz_ >= 1000 * SegFrames())
            TooFast_ = true;
    }
    void ArmCountdown() {
        const std::int64_t Counted = std::llrint(LastSegMs_ / RunTempo_ + 1);
        Restart(Countdown_, std::max(Counted, RoundUp(1000LL * Filled_, DeviceHz_)));
    }
    void EndOfPlay() {
        constexpr std::int64_t MostLateMs = 4000;
        Countdown_.Stop();
        // It does not come before the wave's last frame was heard, unless that takes far too long.
        const std::int64_t Left = IsWaveOut() ? 0 : FramesOfRun() - Played;
        if (Left > 0 && LateMs_ < MostLateMs) {
            const std::int64_t LeftMs = std::min(RoundUp(1000 * Left, DeviceHz_), MostLateMs);
            LateMs_ += LeftMs;
            return Restart(Countdown_, LeftMs);
        }
        EndSignalled_ = false;
        const int Before = std::exchange(LoopCount, 0);
        if (Looping_) {
            PlayFromEdge(Direction_);
            LoopCount = Before + 1;
            Report("Playing Loop " + std::to_string(LoopCount));
        } else {
            Halt();
            Report("Play Done");
        }
        Marked_ = false;
    }

    // DirectSound.

    void WriteHalf(int Half) {
        const auto First = Buffer_.begin() + (Half - 1) * SegFrames();
        std::fill_n(First, SegFrames(), WaveFrame{});
        NextFrames(First);
    }
    /// The cursor has left that half.
    void Refill(int Half) {
        if (LastSegMs_ > 0 || FillEnded_) {
            if (std::exchange(EndSignalled_, true)) return;
            ArmCountdown();
            Marked_ = true;
        } else if (Next_ <= Length()) {
            WriteHalf(Half);
        } else {
            NextFrames(Buffer_.begin());  // none
            FillEnded_ = true;
        }
    }
    void SignalDx7() {
        const bool First = HalvesTold_++ % 2 == 0;
        ArmSignal();
        Refill(First ? 2 : 1);
    }
    void PollDx9() {
        Poll_.Stop();
        if (!Running_ && !Looping_) return;
        if (Running_) {
            const std::int64_t Halves = Played / SegFrames() + 1;
            const std::int64_t Before = std::exchange(HalvesTold_, Halves);
            if (Halves > Before + Before % 2) Refill(2);
            if (Halves > Before + 1 - Before % 2) Refill(1);
        }
        Start(Poll_);
    }

    // waveOut.

    void Queue() {
        if (Running_ && Played == std::ssize(Buffer_)) SetOff(Played * NsPerSecond);
        LastQueuedStart = std::ssize(Buffer_);
        NextFrames(std::back_inserter(Buffer_));
        TotalQueued = std::ssize(Buffer_);
        FillEnded_ = Filled_ < SegFrames();
    }
    void QueueOrEnd() {
        if (Stopping) return;
        if (!FillEnded_ && Next_ <= Length()) return Queue();
        if (FillEnded_) Start(Countdown_);
        FillEnded_ = true;
    }
    void PollWaveOut() {
        UpdatePlayPosition();
        if (Played > LastQueuedStart && !FillEnded_) QueueOrEnd();
        const bool IsDry = Played == TotalQueued;
        if (StallSeen && IsDry) QueueOrEnd();
        StallSeen = IsDry;
    }

    EngineOrder Engine_;
    std::shared_ptr<const MadeWave> Wave_ = std::make_shared<MadeWave>();
    bool Looping_ = false;
    float TempoFor_ = 1;
    float TempoRev_ = 1;

    int Direction_ = 1;
    std::int32_t CurPos_ = 0;
    std::int32_t StartOff_ = 0;
    std::int32_t Next_ = 1;  // frame to be read next, from the edge that the run began at
    std::int32_t Filled_ = 0;
    std::int32_t LastSegMs_ = 0;
    bool FillEnded_ = false;
    int LoopCount = 0;
    bool HasRun_ = false;   // what the device holds is a run's
    bool TooFast_ = false;  // for the DirectSound 9 poll

    std::int64_t NowNs_ = 0;
    std::int64_t Orders_ = 0;
    Timer Poll_{IsWaveOut() ? &ModelPlayer::PollWaveOut : &ModelPlayer::PollDx9};
    Timer Countdown_{&ModelPlayer::EndOfPlay};
    Timer Signal_{&ModelPlayer::SignalDx7};

    // waveOut: all that was queued since the reset. DirectSound: the two segments.
    std::vector<WaveFrame> Buffer_;
    bool Running_ = false;
    std::int64_t SinceNs_ = 0;
    std::int64_t FromNanoFrames_ = 0;
    std::int32_t DeviceHz_ = 100;
    double RunTempo_ = 1;
    std::int32_t HeardFormat_ = 0;

    // waveOut.
    bool Stopping = true;
    std::int64_t TotalQueued = 0;  // of the last run
    bool StallSeen = false;
    std::int64_t LastQueuedStart = 0;

    // DirectSound.
    bool Marked_ = false;          // the countdown was armed and has not fired
    bool EndSignalled_ = false;    // by the first crossing behind the last segment
    std::int64_t LateMs_ = 0;      // by which the countdown was put off
    std::int64_t HalvesTold_ = 1;  // that the cursor has entered
};

}  // namespace Tolvar::Testing
