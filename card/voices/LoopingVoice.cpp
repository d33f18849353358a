#include "card/voices/LoopingVoice.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <string>
#include <utility>

namespace Tolvar {
namespace {

void CheckFrequency(std::int32_t Hz) {
    RequireOfDevice(Hz >= LoopingVoice::LeastHz && Hz <= LoopingVoice::MostHz,
                    "the frequency " + std::to_string(Hz) + " Hz is not within " +
                        std::to_string(LoopingVoice::LeastHz) + " to " +
                        std::to_string(LoopingVoice::MostHz) + " Hz");
}

std::vector<std::int16_t> Silence(std::int32_t Bytes) {
    try {
        return std::vector<std::int16_t>(static_cast<std::size_t>(Bytes) / 2);
    } catch (const std::bad_alloc&) {
        throw RuntimeFailure(FailureKind::Memory, "not enough memory for a sound buffer of " +
                                                      std::to_string(Bytes) + " bytes");
    }
}

}  // namespace

LoopingVoice::LoopingVoice(SoundCard& TheCard, StreamFormat TheFormat, std::int32_t Bytes)
    : Card(TheCard), Format(TheFormat), Timer(TheFormat.RateHz) {
    RequireOfDevice(Card.Present(), "there is no sound device");
    RequireOfDevice(Format.Channels == 1 || Format.Channels == 2,
                    std::to_string(Format.Channels) + " channels are not 1 or 2");
    CheckFrequency(Format.RateHz);
    RequireOfDevice(Bytes > 0 && Bytes <= MostBytes, "a buffer of " + std::to_string(Bytes) +
                                                         " bytes is not within 1 to " +
                                                         std::to_string(MostBytes));
    CheckWholeFrames("size", Bytes);
    Samples = Silence(Bytes);
    Frames = Bytes / Format.BytesPerFrame();
    Card.Join(*this);
}

LoopingVoice::~LoopingVoice() {
    Stop();
    Card.Leave(*this);
}

void LoopingVoice::SetNotifications(std::vector<Notification> Wanted) {
    RequireOfDevice(!Playing, "the notifications cannot be changed while the buffer plays");
    const std::int64_t Size = Frames * BytesPerFrame();
    for (const Notification& Each : Wanted) {
        RequireOfDevice(Each.Offset >= 0 && Each.Offset < Size,
                        "the notification offset " + std::to_string(Each.Offset) +
                            " lies outside the buffer of " + std::to_string(Size) + " bytes");
    }
    Notifications = std::move(Wanted);
    std::ranges::stable_sort(Notifications, {}, [this](const Notification& Each) {
        return Each.Offset / BytesPerFrame();
    });
    NextSignal = FirstSignalFrom(Heard);
}

void LoopingVoice::Write(std::int32_t Offset, std::int32_t Bytes, const std::int16_t* FirstSample) {
    const std::int64_t Size = Frames * BytesPerFrame();
    RequireOfDevice(FirstSample != nullptr, "there are no samples");
    RequireOfDevice(Offset >= 0 && Bytes > 0 && std::int64_t{Offset} + Bytes <= Size,
                    std::to_string(Bytes) + " bytes at offset " + std::to_string(Offset) +
                        " do not lie inside the buffer of " + std::to_string(Size) + " bytes");
    CheckWholeFrames("offset", Offset);
    CheckWholeFrames("byte count", Bytes);
    CatchUp();
    const auto Held = Card.HoldContent();
    std::memcpy(Samples.data() + Offset / 2, FirstSample, static_cast<std::size_t>(Bytes));
}

void LoopingVoice::SetCursor(std::int32_t Offset) {
    const std::int64_t Size = Frames * BytesPerFrame();
    RequireOfDevice(Offset >= 0 && Offset < Size, "the offset " + std::to_string(Offset) +
                                                      " lies outside the buffer of " +
                                                      std::to_string(Size) + " bytes");
    CheckWholeFrames("offset", Offset);
    Halt();
    Heard = HandedOver = Offset / BytesPerFrame();
    NextSignal = FirstSignalFrom(Heard);
    const std::int64_t NowNs = Card.NowNs();
    Timer.Start(NowNs, Heard);
    SetOff(NowNs);
}

void LoopingVoice::SetFrequency(std::int32_t Hz) {
    CheckFrequency(Hz);
    const std::int64_t NowNs = Halt();
    Timer.ChangeRate(NowNs, Hz);
    SetOff(NowNs);
}

void LoopingVoice::Play() {
    if (Playing) return;
    CheckCardIsFree();
    Playing = true;
    const std::int64_t NowNs = Card.NowNs();
    Timer.Start(NowNs, Heard);
    SetOff(NowNs);  // a signal that a stop overtook is told now
}

void LoopingVoice::PlayFromStart() {
    CheckCardIsFree();
    SetCursor(0);
    Play();
}

void LoopingVoice::Stop() {
    if (!Playing) return;
    Halt();
    Card.EndRun(*this);
    Playing = false;
    ArmNext();
}

std::int64_t LoopingVoice::FramesHeard() {
    AdvanceTo(Card.NowNs());
    return Heard;
}

void LoopingVoice::CatchUp() {
    AdvanceTo(Card.NowNs());
    HandOver();
}

/// Nothing of what it holds is heard from the moment on that it returns.
std::int64_t LoopingVoice::Halt() {
    const std::int64_t NowNs = Card.CutRun(*this);
    AdvanceTo(NowNs);
    HandOver();
    return NowNs;
}

/// What Halt has ended goes on, if it plays.
void LoopingVoice::SetOff(std::int64_t NowNs) {
    if (Playing) {
        Timer.PutOff(
            Card.BeginRun(*this, {Format.Channels, Timer.RateHz()}, Format.RateHz, Heard, NowNs));
    }
    ArmNext();
}

std::size_t LoopingVoice::ReadAhead(std::int64_t Frame, std::span<std::int16_t> Into) noexcept {
    const std::size_t Wanted = Into.size();
    auto From = Samples.begin() + Frame % Frames * Format.Channels;
    while (!Into.empty()) {
        const auto Count = std::min(std::ssize(Into), Samples.end() - From);
        std::copy_n(From, Count, Into.begin());
        Into = Into.subspan(static_cast<std::size_t>(Count));
        From = Samples.begin();
    }
    return Wanted / static_cast<std::size_t>(Format.Channels);
}

void LoopingVoice::HandOver() {
    while (HandedOver < Heard && Card.Takes()) {
        const std::int64_t From = HandedOver % Frames;
        const std::int64_t Count = std::min(Heard - HandedOver, Frames - From);
        const std::span Piece =
            std::span(Samples).subspan(static_cast<std::size_t>(From * Format.Channels),
                                       static_cast<std::size_t>(Count * Format.Channels));
        Card.Render(*this, {Format.Channels, Timer.RateHz()}, Format.RateHz, Piece);
        HandedOver += Count;
    }
    HandedOver = Heard;
}

void LoopingVoice::AdvanceTo(std::int64_t NowNs) {
    if (Playing) Heard = Timer.FramesAt(NowNs);
}

void LoopingVoice::CheckCardIsFree() const {
    RequireOfDevice(!Card.PlaysOther(*this), "the sound card plays another sound already");
}

void LoopingVoice::CheckWholeFrames(const char* What, std::int32_t Bytes) const {
    RequireOfDevice(Bytes % BytesPerFrame() == 0, std::string("the ") + What + " of " +
                                                      std::to_string(Bytes) +
                                                      " bytes is not whole frames of " +
                                                      std::to_string(BytesPerFrame()) + " bytes");
}

/// The first signal that is due when the cursor is at Frame, or later.
std::int64_t LoopingVoice::FirstSignalFrom(std::int64_t Frame) const {
    const auto First = std::ranges::lower_bound(
        Notifications, Frame % Frames, {},
        [this](const Notification& Each) { return Each.Offset / BytesPerFrame(); });
    return Frame / Frames * std::ssize(Notifications) + (First - Notifications.begin());
}

std::int64_t LoopingVoice::FrameOf(std::int64_t Signal) const {
    const std::int64_t Count = std::ssize(Notifications);
    const Notification& Which = Notifications[static_cast<std::size_t>(Signal % Count)];
    return Signal / Count * Frames + Which.Offset / BytesPerFrame();
}

void LoopingVoice::ArmNext() {
    Card.Home().Disarm(Alarm);
    if (!Playing || Notifications.empty()) return;
    const std::int64_t DueNs = Timer.NsOf(FrameOf(NextSignal));
    Alarm = Card.Home().Arm(Card.ClockNsOf(DueNs), [this, DueNs] {
        if (Card.NowNs() < DueNs) {
            ArmNext();  // the listener is not there yet
        } else {
            TellNext();
        }
    });
}

void LoopingVoice::TellNext() {
    const auto Index = static_cast<std::size_t>(NextSignal % std::ssize(Notifications));
    // A copy, and the last thing done: what is told may destroy this.
    const std::function<void()> Tell = Notifications[Index].Reached;
    ++NextSignal;
    ArmNext();
    Tell();
}

}  // namespace Tolvar
