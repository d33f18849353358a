#include "platform/QueueVoice.h"

#include <algorithm>
#include <span>

namespace Tolvar {

QueueVoice::QueueVoice(SoundCard& TheCard, StreamFormat TheFormat)
    : Card(TheCard), Format(TheFormat), Timer(TheFormat.RateHz) {
    Card.Join(*this);
}

QueueVoice::~QueueVoice() {
    Card.EndRun(*this);
    Card.Leave(*this);
}

void QueueVoice::Queue(WAVEHDR& Header) {
    Advance();
    const auto BytesPerFrame = static_cast<DWORD>(Format.Channels) * 2U;
    const std::int64_t Frames = Header.dwBufferLength / BytesPerFrame;
    if (Frames == 0) return GiveBack(Header);
    if (!Paused && Heard == Queued) Timer.Start(Card.NowNs(), Heard);
    Header.dwFlags = (Header.dwFlags & ~WHDR_DONE) | WHDR_INQUEUE;
    const void* Samples = Header.lpData;
    Entries.push_back(
        {&Header, static_cast<const std::int16_t*>(Samples), Queued, Queued + Frames});
    Queued += Frames;
}

void QueueVoice::Pause() {
    CatchUp();  // another voice may play now, and must not be heard before it
    Paused = true;
}

void QueueVoice::Restart() {
    if (!Paused) return;
    Paused = false;
    Timer.Start(Card.NowNs(), Heard);
}

void QueueVoice::Reset() {
    CatchUp();
    Card.EndRun(*this);
    for (const Entry& Each : Entries)
        GiveBack(*Each.Header);
    Entries.clear();
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

void QueueVoice::Advance() {
    if (Paused || Heard == Queued) return;
    Heard = std::min(Timer.FramesAt(Card.NowNs()), Queued);
    while (!Entries.empty() && Entries.front().EndFrame <= Heard) {
        HandOver(Entries.front().EndFrame);
        WAVEHDR& Ended = *Entries.front().Header;
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
