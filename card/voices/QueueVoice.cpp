#include "card/voices/QueueVoice.h"

#include <algorithm>
#include <span>

namespace Tolvar {

QueueVoice::QueueVoice(SoundCard& Card, StreamFormat Format)
    : Card_(Card), Format_(Format), Timer_(Format.RateHz) {
    Card_.Join(*this);
}

QueueVoice::~QueueVoice() {
    Card_.CutRun(*this);
    Card_.EndRun(*this);
    Card_.Leave(*this);
}

void QueueVoice::Queue(WAVEHDR& Header) {
    Advance();
    const auto BytesPerFrame = static_cast<DWORD>(Format_.Channels) * 2U;
    const std::int64_t Frames = Header.dwBufferLength / BytesPerFrame;
    if (Frames == 0) return GiveBack(Header);
    const bool WasDry = Heard_ == Queued_;
    Header.dwFlags = (Header.dwFlags & ~WHDR_DONE) | WHDR_INQUEUE;
    const void* Samples = Header.lpData;
    {
        const auto Held = Card_.HoldContent();
        Entries_.push_back(
            {&Header, static_cast<const std::int16_t*>(Samples), Queued_, Queued_ + Frames});
    }
    Queued_ += Frames;
    if (Paused_) return;
    if (WasDry) {
        SetOff();
    } else {
        Card_.HasMore();
    }
}

void QueueVoice::Pause() {
    Halt();  // another voice may play now, and must not be heard before it
    Paused_ = true;
}

void QueueVoice::Restart() {
    if (!Paused_) return;
    Paused_ = false;
    SetOff();
}

void QueueVoice::Reset() {
    Halt();
    Card_.EndRun(*this);
    for (const Entry& Each : Entries_)
        GiveBack(*Each.Header);
    Entries_.clear();  // nothing is read from it after the halt
    Queued_ = Heard_ = HandedOver_ = 0;
    Paused_ = false;
}

bool QueueVoice::IsQueued(const WAVEHDR* Header) {
    Advance();
    return std::ranges::find(Entries_, Header, &Entry::Header) != Entries_.end();
}

bool QueueVoice::IsEmpty() {
    Advance();
    return Entries_.empty();
}

bool QueueVoice::IsPlaying() {
    Advance();
    return !Paused_ && Heard_ < Queued_;
}

std::int64_t QueueVoice::FramesHeard() {
    Advance();
    return Heard_;
}

void QueueVoice::CatchUp() {
    Advance();
    HandOver(Heard_);
}

/// Nothing of what is queued is heard from here on.
void QueueVoice::Halt() {
    AdvanceTo(Card_.CutRun(*this));
    HandOver(Heard_);
}

void QueueVoice::SetOff() {
    std::int64_t NowNs = Card_.NowNs();
    if (Heard_ < Queued_) NowNs = Card_.BeginRun(*this, Format_, Format_.RateHz, Heard_, NowNs);
    Timer_.Start(NowNs, Heard_);
}

std::size_t QueueVoice::ReadAhead(std::int64_t Frame, std::span<std::int16_t> Into) noexcept {
    const std::int64_t Channels = Format_.Channels;
    const std::int64_t Room = std::ssize(Into) / Channels;
    // What the clock has told to be over before a device played it has been given back.
    const std::int64_t Gone = Entries_.empty() ? 0 : Entries_.front().StartFrame - Frame;
    std::int64_t Copied = std::clamp<std::int64_t>(Gone, 0, Room);
    std::fill_n(Into.begin(), Copied * Channels, std::int16_t{0});
    for (const Entry& Each : Entries_) {
        const std::int64_t From = Frame + Copied;
        if (Copied == Room) break;
        if (From < Each.StartFrame || From >= Each.EndFrame) continue;
        const std::int64_t Count = std::min(Each.EndFrame - From, Room - Copied);
        std::copy_n(Each.Samples + (From - Each.StartFrame) * Channels, Count * Channels,
                    Into.begin() + Copied * Channels);
        Copied += Count;
    }
    return static_cast<std::size_t>(Copied);
}

void QueueVoice::AdvanceTo(std::int64_t NowNs) {
    if (Paused_ || Heard_ == Queued_) return;
    Heard_ = std::min(Timer_.FramesAt(NowNs), Queued_);
    while (!Entries_.empty() && Entries_.front().EndFrame <= Heard_) {
        HandOver(Entries_.front().EndFrame);
        WAVEHDR& Ended = *Entries_.front().Header;
        const auto Held = Card_.HoldContent();
        Entries_.pop_front();
        GiveBack(Ended);
    }
}

/// Up to a frame of the first header, or its end.
void QueueVoice::HandOver(std::int64_t UpToFrame) {
    if (UpToFrame == HandedOver_) return;
    const Entry& First = Entries_.front();
    const std::int64_t Channels = Format_.Channels;
    const std::span Samples(First.Samples + (HandedOver_ - First.StartFrame) * Channels,
                            static_cast<std::size_t>((UpToFrame - HandedOver_) * Channels));
    Card_.Render(*this, Format_, Format_.RateHz, Samples);
    HandedOver_ = UpToFrame;
}

void QueueVoice::GiveBack(WAVEHDR& Header) {
    Header.dwFlags = (Header.dwFlags & ~WHDR_INQUEUE) | WHDR_DONE;
}

}  // namespace Tolvar
