#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "card/frames/FrameTimer.h"
#include "card/voices/SoundCard.h"
#include "platform/DirectX7.h"

namespace Tolvar {

/// A buffer of 16-bit frames that is played round and round. Silent when it is made. Offsets and
/// sizes are bytes, and whole frames unless said otherwise. A call that breaks its rules is a
/// RuntimeFailure(Device) that names the value, and changes nothing. Apartment's thread only.
class LoopingVoice : public Voice, private FrameSource {
  public:
    static constexpr std::int32_t LeastHz = DSBFREQUENCY_MIN;
    static constexpr std::int32_t MostHz = DSBFREQUENCY_MAX;
    static constexpr std::int32_t MostBytes = 0x0FFF'FFFF;

    /// A place in the buffer and what is told when the cursor reaches it.
    struct Notification {
        std::int32_t Offset = 0;  ///< any byte of a frame
        std::function<void()> Reached;
    };

    /// Format.RateHz is the nominal rate, LeastHz..MostHz, at which it first plays; Bytes up to
    /// MostBytes. RuntimeFailure(Device) without a sound device, (Memory) without memory.
    LoopingVoice(SoundCard& Card, StreamFormat Format, std::int32_t Bytes);
    ~LoopingVoice() override;

    /// Replaces the notifications; not while it plays. Each is told at the time at which the
    /// cursor reaches its frame, and when a play sets off from exactly there, in order, by the
    /// message loop, never from inside a call. What is told may destroy this.
    void SetNotifications(std::vector<Notification> Wanted);

    /// While it plays too: what was heard before the call was the old content.
    void Write(std::int32_t Offset, std::int32_t Bytes, const std::int16_t* FirstSample);

    /// Where the next frame is heard; the frames are counted anew from the buffer's start.
    void SetCursor(std::int32_t Offset);
    /// LeastHz..MostHz; at once, without a jump of the cursor.
    void SetFrequency(std::int32_t Hz);

    /// From the cursor on; nothing when it plays already. RuntimeFailure(Device) when another
    /// voice of the card plays.
    void Play();
    enum class StartAt { Cursor, BufferStart };
    /// SetFrequency, with StartAt::BufferStart also SetCursor(0), and Play, as one: what plays is
    /// halted and set off once. Fails as these, and changes nothing then.
    void PlayAt(std::int32_t Hz, StartAt Where);
    /// The cursor stays; the fraction of a frame in progress, and what was not yet told, is
    /// dropped. A notification told at the cursor is not told again by the next Play.
    void Stop();

    bool IsPlaying() override { return Playing_; }
    /// Since the start of the pass on which SetCursor (at first: the buffer's start) set it.
    std::int64_t FramesHeard();
    std::int64_t BufferFrames() const { return Frames_; }
    std::int32_t BytesPerFrame() const { return Format_.BytesPerFrame(); }

    void CatchUp() override;

  private:
    void AdvanceTo(std::int64_t NowNs);
    void HandOver();
    std::int64_t Halt();
    void MoveTo(std::int64_t Frame, std::int64_t NowNs);
    void SetOff(std::int64_t NowNs);
    std::size_t ReadAhead(std::int64_t Frame, std::span<std::int16_t> Into) noexcept override;
    void CheckCardIsFree() const;
    void CheckWholeFrames(const char* What, std::int32_t Bytes) const;
    std::int64_t FirstSignalFrom(std::int64_t Frame) const;
    std::int64_t FrameOf(std::int64_t Signal) const;
    void ArmNext();
    void TellNext();

    SoundCard& Card_;
    StreamFormat Format_;
    FrameTimer Timer_;
    std::vector<std::int16_t> Samples_;
    std::int64_t Frames_ = 0;      // of the buffer
    std::int64_t Heard_ = 0;       // as of the last Advance
    std::int64_t HandedOver_ = 0;  // to the card
    bool Playing_ = false;

    // The signals of all passes are numbered through: signal S is notification S % count of pass
    // S / count.
    std::vector<Notification> Notifications_;  // in the order of their frames
    std::int64_t NextSignal_ = 0;
    Apartment::AlarmId Alarm_;  // armed for the next signal while it plays
};

}  // namespace Tolvar
