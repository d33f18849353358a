#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "card/frames/EdgeRamps.h"
#include "card/frames/OutputConverter.h"
#include "card/frames/StreamFormat.h"
#include "card/voices/CardOutput.h"
#include "platform/Apartment.h"
#include "platform/RuntimeFailure.h"

namespace Tolvar {

/// What a device interface plays on a card. Voices have no thread and wake nobody up: each call
/// first brings its voice to the clock's present.
class Voice {
  public:
    virtual ~Voice() = default;

    /// Hands every frame heard so far to the card.
    virtual void CatchUp() = 0;

    /// Whether a frame of it is heard now.
    virtual bool IsPlaying() = 0;
};

/// The software sound card: it gives the voices their clock and passes what they play to a sink,
/// once it has been heard, or to a live output, ahead of what is heard. One voice plays at a time;
/// frames reach the sink in the order in which they are handed over. A sink that fails is said once
/// in the log; from then on the card keeps time in silence. Apartment's thread only.
class SoundCard {
  public:
    /// Home and Journal stay the caller's.
    SoundCard(Apartment& Home, CardOutput To, SinkRate Rate, Log& Journal);
    ~SoundCard();
    SoundCard(const SoundCard&) = delete;
    SoundCard& operator=(const SoundCard&) = delete;

    bool Present() const { return Output_ != nullptr || Live_ != nullptr; }

    /// Everything heard until now is on the sink's medium when it returns; what voices play later
    /// is not taken any more. RuntimeFailure says what was lost, also what an earlier failure of
    /// the sink lost. A second call does nothing.
    void Finish();

    /// Why the sink takes nothing any more; empty while all is well.
    std::string Failure() const { return Failed_ ? Failed_->what() : ""; }

    // For voices.
    Apartment& Home() const { return Home_; }
    /// The listener's time: the clock's, but for a run of a live output, which goes on as its
    /// frames are heard.
    std::int64_t NowNs() const;
    /// When to look whether the listener's time is DueNs, by the clock.
    std::int64_t ClockNsOf(std::int64_t DueNs) const;
    /// The voice stays the caller's, until Leave.
    void Join(Voice& Playing) { Voices_.push_back(&Playing); }
    void Leave(Voice& Playing) { std::erase(Voices_, &Playing); }
    /// Whether the card is taken: a voice other than this one plays.
    bool PlaysOther(const Voice& Than) const;

    // For a live output, and nothing without one. Ahead is the voice's.
    /// A run sets off, and Frame is its first. Rates as in Render. The listener's time from which
    /// it is heard: without a live output that is AtNs.
    std::int64_t BeginRun(FrameSource& Ahead, StreamFormat Format, int NominalHz,
                          std::int64_t Frame, std::int64_t AtNs);
    /// Nothing of the voice is heard or read any more when it returns; NowNs of that moment.
    std::int64_t CutRun(const FrameSource& Ahead);
    /// Nothing is read from a voice while it is kept.
    [[nodiscard]] std::unique_lock<InheritingMutex> HoldContent() const;
    /// A voice that had nothing more to read ahead has more.
    void HasMore() const;

    // For a sink.
    /// False: frames are lost on it, so none need to be handed over.
    bool Takes() const { return Output_ && Output_->WantsFrames() && !Failed_ && !Finished_; }
    /// Takes whole frames of a voice, at its rate of the moment, that were heard; Samples is read
    /// before it returns. NominalHz is the rate that the voice's format names. Never throws.
    void Render(const Voice& From, StreamFormat Format, int NominalHz,
                std::span<const std::int16_t> Samples) noexcept;
    /// What this voice plays next does not join seamlessly. Nothing while another voice's frames
    /// were the last.
    void EndRun(const Voice& Of) noexcept;

  private:
    int OutputHz(StreamFormat Format, int NominalHz) const;
    void TellNotices() const;
    void OpenSink(StreamFormat Format, int NominalHz);
    void EndRun() noexcept;
    void FlushRun();
    void Fail(const RuntimeFailure& Cause);
    template <typename Work>
    void Guarded(Work Step) noexcept;

    Apartment& Home_;
    std::unique_ptr<Sink> Output_;  // at most one of the two is there
    std::unique_ptr<LiveOutput> Live_;
    SinkRate Rate_;
    Log& Journal_;
    std::vector<Voice*> Voices_;
    StreamFormat SinkFormat_;               // no channels before the first frames
    std::unique_ptr<OutputConverter> Run_;  // null between runs
    const Voice* LastVoice_ = nullptr;      // whose frames were the last; never followed
    int FadeMs_;
    std::optional<EdgeRamps> Ramps_;  // none before the first frames, and where FadeMs is 0
    OutputConverter::Output ToSink_;
    EdgeRamps::Output ToOutput_;
    std::optional<RuntimeFailure> Failed_;
    bool Finished_ = false;
};

}  // namespace Tolvar
