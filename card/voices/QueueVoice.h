#pragma once

#include <cstdint>
#include <deque>

#include "card/frames/FrameTimer.h"
#include "card/voices/SoundCard.h"
#include "platform/WaveOut.h"

namespace Tolvar {

/// Plays a queue of headers in place from the caller's memory. One header follows the other
/// without a gap; when the queue has run dry, the next header starts when it is queued. A header
/// is given back (WHDR_DONE) by the first call after its last frame was heard.
/// Apartment's thread only.
class QueueVoice : public Voice, private FrameSource {
  public:
    /// Format.RateHz is the rate at which it plays and the one that its format names.
    QueueVoice(SoundCard& Card, StreamFormat Format);
    /// Headers still queued are not touched: their memory may be gone.
    ~QueueVoice() override;

    /// Header is not queued, and its samples are aligned, whole frames, in place and unchanged
    /// until it is given back. One without frames is given back at once.
    void Queue(WAVEHDR& Header);
    void Pause();    ///< the fraction of a frame in progress is dropped
    void Restart();  ///< goes on with the first frame not heard; nothing when not paused
    void Reset();    ///< gives every header back, counts from 0, ends a pause

    bool IsQueued(const WAVEHDR* Header);
    bool IsEmpty();
    bool IsPlaying() override;
    /// Frames heard since it was made or reset; never more than were queued.
    std::int64_t FramesHeard();

    void CatchUp() override;

  private:
    struct Entry {
        WAVEHDR* Header;
        const std::int16_t* Samples;
        std::int64_t StartFrame;
        std::int64_t EndFrame;
    };

    void Advance() { AdvanceTo(Card_.NowNs()); }
    void AdvanceTo(std::int64_t NowNs);
    void Halt();
    void SetOff();
    std::size_t ReadAhead(std::int64_t Frame, std::span<std::int16_t> Into) noexcept override;
    void HandOver(std::int64_t UpToFrame);
    static void GiveBack(WAVEHDR& Header);

    SoundCard& Card_;
    StreamFormat Format_;
    FrameTimer Timer_;
    std::deque<Entry> Entries_;
    std::int64_t Queued_ = 0;      // frames, as the two below since the last reset
    std::int64_t Heard_ = 0;       // as of the last Advance
    std::int64_t HandedOver_ = 0;  // to the card; the rest of a header goes when it ends
    bool Paused_ = false;
};

}  // namespace Tolvar
