#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "server/PlayDllClass.h"

namespace Tolvar::Testing {

using ModelFrame = std::array<std::int16_t, 2>;  ///< left, right; a mono wave's right is 0

struct ModelWave {
    std::int32_t Rate = 0;
    std::int32_t Channels = 0;
    std::vector<ModelFrame> Frames;  ///< as they are heard: 8-bit samples are scaled
};

/// What a player must do, told frame by frame: a wave as an array, a position, a direction, and
/// the timers that an engine is told to have. One engine, no files, no blocks, no device.
class ModelPlayer {
  public:
    explicit ModelPlayer(EngineOrder TheEngine) : Engine(TheEngine) {}

    void HandOver(const ModelWave& Given);
    void PlayAgain() { PlayFromEdge(1); }
    void PlayAgainRev() { PlayFromEdge(-1); }
    void PlayAtPos(std::int32_t Pos) { PlayFrom(1, Pos); }
    void PlayAtPosRev(std::int32_t Pos) { PlayFrom(-1, Pos); }
    void PlayUTurn();
    void StopPlay();
    void PlayPause();
    void PlayContinue();
    void LoopPlayON(bool On) { Looping = On; }
    void PlayTempoFor(float Factor) { TempoFor = Clamped(Factor); }
    void PlayTempoRev(float Factor) { TempoRev = Clamped(Factor); }
    void UpdatePlayPosition();
    std::int32_t PlayCurrentPosition();
    void Wait(std::int64_t Ms);

    void Say(const std::string& What);

    std::int32_t State = 0;           ///< PlayRunningState
    std::vector<std::string> Said;    ///< reports and results as the console prints them
    std::vector<std::int32_t> Heard;  ///< samples; before a new format its FormatMark

    static std::int32_t FormatMark(int Channels, int Hz) { return 1'000'000 + 2 * Hz + Channels; }

    // Where it stands, for one who wants to meet it at an interesting moment.
    std::int32_t Length() const { return static_cast<std::int32_t>(Wave.Frames.size()); }
    std::int64_t FramesPlayed() const { return Played; }
    std::int64_t FramesOfRun() const { return Length() - StartOff; }
    std::int32_t SegFrames() const { return 4 * Wave.Rate; }
    std::int32_t Hz() const { return Engine == EngineOrder::WaveOut ? Wave.Rate : DeviceHz; }

  private:
    struct Timer {
        std::int64_t Ms = 1;
        bool On = false;
        std::int64_t DueNs = 0;
        std::int64_t Order = 0;  // of timers that are due together, the first armed comes first
    };

    bool IsWaveOut() const { return Engine == EngineOrder::WaveOut; }
    double Tempo() const { return Direction == 1 ? TempoFor : TempoRev; }
    float Clamped(float Factor) const;

    // Time. A timer that fires goes on; one that is on is not started again.
    void Arm(Timer& Which, std::int64_t DueNs);
    void Start(Timer& Which);
    void Interval(Timer& Which, std::int64_t Ms);
    void MoveTo(std::int64_t Ns);

    // The device: frame f of it is heard when NanoFrames has come to f + 1 thousand million.
    std::int64_t NanoFrames() const;
    void SetOff(std::int64_t FromNanoFrames);
    void Halt();
    void Hear();
    void ArmSignal();

    // Runs.
    const ModelFrame& FrameOfRun(std::int64_t Number) const;
    void TakeTempo();
    std::vector<ModelFrame> NextFrames();
    void PlayFromEdge(int Towards);
    void PlayFrom(int Towards, std::int32_t Pos);
    void StartRun(bool FromEdge);
    void EndOfPlay();
    void ArmCountdown();
    void Refill(int Half);
    void WriteHalf(int Half);
    void Queue();
    void QueueOrEnd();
    void PollWaveOut();
    void PollDx9();
    void SignalDx7();

    EngineOrder Engine;
    ModelWave Wave;
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
    Timer Poll{40};
    Timer Countdown{40};
    Timer Signal;  // DirectSound 7: the cursor enters a segment, or the buffer's last frame

    // waveOut: all that was queued since the reset. DirectSound: the two segments.
    std::vector<ModelFrame> Buffer;
    bool Running = false;
    std::int64_t Played = 0;
    std::int64_t SinceNs = 0;
    std::int64_t FromNanoFrames = 0;
    std::int32_t DeviceHz = 100;
    std::int32_t HeardFormat = 0;

    // waveOut.
    bool Stopping = false;
    bool StallSeen = false;
    std::int64_t LastQueuedStart = 0;

    // DirectSound.
    bool Marked = false;        // the countdown was armed and has not fired
    bool EndSignalled = false;  // by the first crossing behind the last segment
    std::int64_t LateMs = 0;    // by which the countdown was put off
    std::int64_t SignalNo = 0;
    std::int64_t FirstsTold = 1;
    std::int64_t SecondsTold = 0;
};

}  // namespace Tolvar::Testing
