#include "card/voices/QueueVoice.h"

#include <algorithm>
#include <span>

namespace Tolvar {

QueueVoice::QueueVoice(SoundCard& TheCard, StreamFormat TheFormat)
    : Card(TheCard), Format(TheFormat), Timer(TheFormat.RateHz) {
    Card.Join(*this);
}

QueueVoice::~QueueVoice() {
    Card.CutRun(*this);
    Card.EndRun(*this);
    Card.Leave(*this);
}

void QueueVoice::Queue(WAVEHDR& Header) {
    Advance();
    const auto BytesPerFrame = static_cast<DWORD>(Format.Channels) * 2U;
    const std::int64_t Frames = Header.dwBufferLength / BytesPerFrame;
    if (Frames == 0) return GiveBack(Header);
    const bool WasDry = Heard == Queued;
    Header.dwFlags = (Header.dwFlags & ~WHDR_DONE) | WHDR_INQUEUE;
    const void* Samples = Header.lpData;
    {
        const auto Held = Card.HoldContent();
        Entries.push_back(
            {&Header, static_cast<const std::int16_t*>(Samples), Queued, Queued + Frames});
    }
    Queued += Frames;
    if (Paused) return;
    if (WasDry) {
        SetOff();
    } else {
        Card.HasMore();
    }
}

void QueueVoice::Pause() {
    Halt();  // another voice may play now, and must not be heard before it
    Paused = true;
}

void QueueVoice::Restart() {
    if (!Paused) return;
    Paused = false;
    SetOff();
}

void QueueVoice::Reset() {
    Halt();
    Card.EndRun(*this);
    for (const Entry& Each : Entries)
        GiveBack(*Each.Header);
    Entries.clear();  // nothing is read from it after the halt
    Queued = Heard = HandedOver = 0;
    Paused = false;
}

bool QueueVoice::IsQueued(const WAVEHDR* Header) {
    Advance();
    return std::ranges::find(Entries, Header, &Entry::Header) != Entries.end();
}

bool QueueVoice::IsEmpty() {
    Advance();
    return Entries.empty();
}

bool QueueVoice::IsPlaying() {
    Advance();
    return !Paused && Heard < Queued;
}

std::int64_t QueueVoice::FramesHeard() {
    Advance();
    return Heard;
}

void QueueVoice::CatchUp() {
    Advance();
    HandOver(Heard);
}

/// Nothing of what is queued is heard from here on.
void QueueVoice::Halt() {
    AdvanceTo(Card.CutRun(*this));
    HandOver(Heard);
}

void QueueVoice::SetOff() {
    std::int64_t NowNs = Card.NowNs();
    if (Heard < Queued) NowNs = Card.BeginRun(*this, Format, Format.RateHz, Heard, NowNs);
    Timer.Start(NowNs, Heard);
}

std::size_t QueueVoice::ReadAhead(std::int64_t Frame, std::span<std::int16_t> Into) noexcept {
    const std::int64_t Channels = Format.Channels;
    const std::int64_t Room = std::ssize(Into) / Channels;
    // What the clock has told to be over before a device played it has been given back.
    const std::int64_t Gone = Entries.empty() ? 0 : Entries.front().StartFrame - Frame;
    std::int64_t Copied = std::clamp<std::int64_t>(Gone, 0, Room);
    std::fill_n(Into.begin(), Copied * Channels, std::int16_t{0});
    for (const Entry& Each : Entries) {
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
    if (Paused || Heard == Queued) return;
    Heard = std::min(Timer.FramesAt(NowNs), Queued);
    while (!Entries.empty() && Entries.front().EndFrame <= Heard) {
        HandOver(Entries.front().EndFrame);
        WAVEHDR& Ended = *Entries.front().Header;
        const auto Held = Card.HoldContent();
        Entries.pop_front();
        GiveBack(Ended);
    }
}

/// Up to a frame of the first header, or its end.
void QueueVoice::HandOver(std::int64_t UpToFrame) {
    if (UpToFrame == HandedOver) return;
    const Entry& First = Entries.front();
    const std::int64_t Channels = Format.Channels;
    const std::span Samples(First.Samples + (HandedOver - First.StartFrame) * Channels,
                            static_cast<std::size_t>((UpToFrame - HandedOver) * Channels));
    Card.Render(*this, Format, Format.RateHz, Samples);
    HandedOver = UpToFrame;
}

void QueueVoice::GiveBack(WAVEHDR& Header) {
    Header.dwFlags = (Header.dwFlags & ~WHDR_INQUEUE) | WHDR_DONE;
}

}  // namespace Tolvar
