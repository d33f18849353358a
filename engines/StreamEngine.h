#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "engines/PlayEngine.h"
#include "platform/Apartment.h"

namespace Tolvar {

/// What the two DirectSound engines have in common: a looping buffer of two segments, of which the
/// one that the play cursor has left is refilled, tempo through the playback frequency, and the
/// end-of-play countdown. The device itself is the derived engine's.
class StreamEngine : public PlayEngine {
  public:
    explicit StreamEngine(EngineSetup Setup);

    bool PlayMe() override;
    void UpdatePlayPosition() override;
    bool StopPlay() override;
    bool UTurn() override;
    bool PlayAtCurrentPosition() override;

  protected:
    // The device. A refusal is False; a run-time failure is thrown.

    /// Copies the segment (1 or 2) whole from StreamBuff to its place in the buffer.
    virtual bool WriteSegment(std::int32_t Segment) = 0;
    /// Plays at PlayFriq, from the buffer's start or from where it was stopped.
    virtual bool StartDevice(bool Restart) = 0;
    virtual void StopDevice() = 0;
    /// Frames played since the run started; none while the device tells no position.
    virtual std::optional<std::int32_t> FramesPlayed() = 0;

    bool HaltPlayback() noexcept;
    /// A device that plays on though it was to stop is told once more. Its refusal is logged once.
    void StopAgain() noexcept;
    /// A segment has been left by the play cursor: fills and writes it, or, once the end of the
    /// wave has been filled, arms the countdown. Later signals of the run do not put it off: one
    /// that is longer than a segment plays (a last segment that lacks a frame) would never fire.
    void Refill(std::int32_t Segment);
    void ArmCountdown();
    bool CountdownArmed() const { return StopPlayTimer.Enabled(); }
    void DisarmCountdown() { StopPlayTimer.Enabled(false); }
    /// PlayFriq from the tempo of the direction; unchanged when there is none.
    void SetPlayFriq();
    /// The end of PlayContinue, once the device plays again.
    void Resumed();
    /// Time of day in milliseconds, less Since; at least 1, because 0 means that none is kept.
    std::int32_t TimerMark(std::int32_t Since = 0) const;
    /// Runs a tick or a notification. A failure in it has no caller: it ends the run.
    template <typename Handler>
    void Guarded(Handler Do) {
        const auto Self = shared_from_this();  // a report may make the player drop this engine
        try {
            Do();
        } catch (const std::exception& Cause) {
            EndFailedRun(Cause.what());
        }
    }
    bool Live() const { return BufferLive; }
    void Live(bool On) { BufferLive = On; }
    double Tempo() const;
    bool HasDirection() const { return State.PlayDirection == 1 || State.PlayDirection == -1; }
    void UnbindCountdown();

  private:
    enum class RunKind { FromEdge, FromCurPos };

    bool StartRun(RunKind Kind);
    bool FailRun();
    std::string StartText(RunKind Kind) const;
    std::int32_t UnheardMs() noexcept;
    std::optional<std::int32_t> FramesPlayedOrNone() noexcept;
    void StopPlayTimer_Timer();
    void EndFailedRun(std::string_view Cause) noexcept;

    Timer& StopPlayTimer;
    bool BufferLive = false;     // a buffer has been created or started
    double RunTempo_ = 1.0;      // PlayFriq's, which the settings may have left since
    bool StopRefused_ = false;   // and logged
    bool EndSignalled_ = false;  // a signal of this run has armed the countdown
    std::int32_t LateMs_ = 0;    // by which the countdown of this run was put off
    std::int32_t LoopCount = 0;  // loop restarts since the last PlayMe
};

}  // namespace Tolvar
