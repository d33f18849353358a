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

LoopingVoice::LoopingVoice(SoundCard& Card, StreamFormat Format, std::int32_t Bytes)
    : Card_(Card), Format_(Format), Timer_(Format.RateHz) {
    RequireOfDevice(Card_.Present(), "there is no sound device");
    RequireOfDevice(Format_.Channels == 1 || Format_.Channels == 2,
                    std::to_string(Format_.Channels) + " channels are not 1 or 2");
    CheckFrequency(Format_.RateHz);
    RequireOfDevice(Bytes > 0 && Bytes <= MostBytes, "a buffer of " + std::to_string(Bytes) +
                                                         " bytes is not within 1 to " +
                                                         std::to_string(MostBytes));
    CheckWholeFrames("size", Bytes);
    Samples_ = Silence(Bytes);
    Frames_ = Bytes / Format_.BytesPerFrame();
    Card_.Join(*this);
}

LoopingVoice::~LoopingVoice() {
    Stop();
    Card_.Leave(*this);
}

void LoopingVoice::SetNotifications(std::vector<Notification> Wanted) {
    RequireOfDevice(!Playing_, "the notifications cannot be changed while the buffer plays");
    const std::int64_t Size = Frames_ * BytesPerFrame();
    for (const Notification& Each : Wanted) {
        RequireOfDevice(Each.Offset >= 0 && Each.Offset < Size,
                        "the notification offset " + std::to_string(Each.Offset) +
                            " lies outside the buffer of " + std::to_string(Size) + " bytes");
    }
    Notifications_ = std::move(Wanted);
    std::ranges::stable_sort(Notifications_, {}, [this](const Notification& Each) {
        return Each.Offset / BytesPerFrame();
    });
    NextSignal_ = FirstSignalFrom(Heard_);
}

void LoopingVoice::Write(std::int32_t Offset, std::int32_t Bytes, const std::int16_t* FirstSample) {
    const std::int64_t Size = Frames_ * BytesPerFrame();
    RequireOfDevice(FirstSample != nullptr, "there are no samples");
    RequireOfDevice(Offset >= 0 && Bytes > 0 && std::int64_t{Offset} + Bytes <= Size,
                    std::to_string(Bytes) + " bytes at offset " + std::to_string(Offset) +
                        " do not lie inside the buffer of " + std::to_string(Size) + " bytes");
    CheckWholeFrames("offset", Offset);
    CheckWholeFrames("byte count", Bytes);
    CatchUp();
    const auto Held = Card_.HoldContent();
    std::memcpy(Samples_.data() + Offset / 2, FirstSample, static_cast<std::size_t>(Bytes));
}

void LoopingVoice::SetCursor(std::int32_t Offset) {
    const std::int64_t Size = Frames_ * BytesPerFrame();
    RequireOfDevice(Offset >= 0 && Offset < Size, "the offset " + std::to_string(Offset) +
                                                      " lies outside the buffer of " +
                                                      std::to_string(Size) + " bytes");
    CheckWholeFrames("offset", Offset);
    const std::int64_t NowNs = Halt();
    MoveTo(Offset / BytesPerFrame(), NowNs);
    SetOff(NowNs);
}

void LoopingVoice::SetFrequency(std::int32_t Hz) {
    CheckFrequency(Hz);
    const std::int64_t NowNs = Halt();
    Timer_.ChangeRate(NowNs, Hz);
    SetOff(NowNs);
}

void LoopingVoice::Play() {
    if (!Playing_) PlayAt(Timer_.RateHz(), StartAt::Cursor);
}

void LoopingVoice::PlayAt(std::int32_t Hz, StartAt Where) {
    CheckFrequency(Hz);
    CheckCardIsFree();
    const std::int64_t NowNs = Halt();
    Timer_.ChangeRate(NowNs, Hz);
    if (Where == StartAt::BufferStart) MoveTo(0, NowNs);
    if (!Playing_) Timer_.Start(NowNs, Heard_);
    Playing_ = true;
    SetOff(NowNs);  // a signal that a stop overtook is told now
}

void LoopingVoice::Stop() {
    if (!Playing_) return;
    Halt();
    Card_.EndRun(*this);
    Playing_ = false;
    ArmNext();
}

std::int64_t LoopingVoice::FramesHeard() {
    AdvanceTo(Card_.NowNs());
    return Heard_;
}

void LoopingVoice::CatchUp() {
    AdvanceTo(Card_.NowNs());
    HandOver();
}

/// Nothing of what it holds is heard from the moment on that it returns.
std::int64_t LoopingVoice::Halt() {
    if (!Playing_) return Card_.NowNs();
    const std::int64_t NowNs = Card_.CutRun(*this);
    AdvanceTo(NowNs);
    HandOver();
    return NowNs;
}

void LoopingVoice::MoveTo(std::int64_t Frame, std::int64_t NowNs) {
    Heard_ = HandedOver_ = Frame;
    NextSignal_ = FirstSignalFrom(Heard_);
    Timer_.Start(NowNs, Heard_);
}

/// What Halt has ended goes on, if it plays.
void LoopingVoice::SetOff(std::int64_t NowNs) {
    if (Playing_) {
        Timer_.PutOff(Card_.BeginRun(*this, {Format_.Channels, Timer_.RateHz()}, Format_.RateHz,
                                     Heard_, NowNs));
    }
    ArmNext();
}

std::size_t LoopingVoice::ReadAhead(std::int64_t Frame, std::span<std::int16_t> Into) noexcept {
    const std::size_t Wanted = Into.size();
    auto From = Samples_.begin() + Frame % Frames_ * Format_.Channels;
    while (!Into.empty()) {
        const auto Count = std::min(std::ssize(Into), Samples_.end() - From);
        std::copy_n(From, Count, Into.begin());
        Into = Into.subspan(static_cast<std::size_t>(Count));
        From = Samples_.begin();
    }
    return Wanted / static_cast<std::size_t>(Format_.Channels);
}

void LoopingVoice::HandOver() {
    while (HandedOver_ < Heard_ && Card_.Takes()) {
        const std::int64_t From = HandedOver_ % Frames_;
        const std::int64_t Count = std::min(Heard_ - HandedOver_, Frames_ - From);
        const std::span Piece =
            std::span(Samples_).subspan(static_cast<std::size_t>(From * Format_.Channels),
                                        static_cast<std::size_t>(Count * Format_.Channels));
        Card_.Render(*this, {Format_.Channels, Timer_.RateHz()}, Format_.RateHz, Piece);
        HandedOver_ += Count;
    }
    HandedOver_ = Heard_;
}

void LoopingVoice::AdvanceTo(std::int64_t NowNs) {
    if (Playing_) Heard_ = Timer_.FramesAt(NowNs);
}

void LoopingVoice::CheckCardIsFree() const {
    RequireOfDevice(!Card_.PlaysOther(*this), "the sound card plays another sound already");
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
        Notifications_, Frame % Frames_, {},
        [this](const Notification& Each) { return Each.Offset / BytesPerFrame(); });
    return Frame / Frames_ * std::ssize(Notifications_) + (First - Notifications_.begin());
}

std::int64_t LoopingVoice::FrameOf(std::int64_t Signal) const {
    const std::int64_t Count = std::ssize(Notifications_);
    const Notification& Which = Notifications_[static_cast<std::size_t>(Signal % Count)];
    return Signal / Count * Frames_ + Which.Offset / BytesPerFrame();
}

void LoopingVoice::ArmNext() {
    Card_.Home().Disarm(Alarm_);
    if (!Playing_ || Notifications_.empty()) return;
    const std::int64_t DueNs = Timer_.NsOf(FrameOf(NextSignal_));
    Alarm_ = Card_.Home().Arm(Card_.ClockNsOf(DueNs), [this, DueNs] {
        if (Card_.NowNs() < DueNs) {
            ArmNext();  // the listener is not there yet
        } else {
            TellNext();
        }
    });
}

void LoopingVoice::TellNext() {
    const auto Index = static_cast<std::size_t>(NextSignal_ % std::ssize(Notifications_));
    // A copy, and the last thing done: what is told may destroy this.
    const std::function<void()> Tell = Notifications_[Index].Reached;
    ++NextSignal_;
    ArmNext();
    Tell();
}

}  // namespace Tolvar
