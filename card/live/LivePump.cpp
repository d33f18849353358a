#include "card/live/LivePump.h"

#include <algorithm>
#include <utility>

namespace Tolvar {
namespace {

constexpr std::int64_t MostCallNs = NsPerSecond;

}  // namespace

LivePump::LivePump(std::unique_ptr<OutputDevice> Device, const Clock& Time, LiveOptions Options)
    : Device_(std::move(Device)),
      Time_(Time),
      Options_(Options),
      Listener_(Time, (TurnMs() + LateMs) * NsPerMs),
      Frames_(Options, [this](std::int64_t Frame, std::span<std::int16_t> Into) {
          return ReadSource(Frame, Into);
      }) {}

// The apartment's side.

std::int64_t LivePump::NowNs() {
    const auto Locked = Hold();
    FindStuck();
    return Listener_.NowNs();
}

std::int64_t LivePump::Begin(const LiveRun& Wanted) {
    std::int64_t Now = 0;
    {
        const auto Locked = Hold();
        FindStuck();
        Now = Listener_.Begin(Wanted.Format.RateHz, Wanted.Frame, Missing_);
        Run_ = Wanted;
        ++RunNumber_;
        Mode_ = Phase::Sounding;
    }
    Wake();
    return Now;
}

bool LivePump::AskCut(const FrameSource& Of) {
    {
        const auto Locked = Hold();
        if (Mode_ == Phase::Idle || Run_.Source != &Of) return false;
        FindStuck();
        CutWanted_ = Listener_.HasDevice();
        if (!CutWanted_) EndRun();
    }
    Wake();
    return true;
}

std::int64_t LivePump::FinishCut(int WaitMs) {
    auto Locked = Hold();
    ToApartment_.WaitFor(Locked, WaitMs * NsPerMs, [this] { return !CutWanted_; });
    if (CutWanted_) EndRun();
    return CutNs_;
}

void LivePump::Wake() {
    {
        const auto Locked = Hold();
        Woken_ = true;
    }
    ToThread_.NotifyOne();
}

bool LivePump::End(int WaitMs) {
    auto Locked = Hold();
    Ending_ = Woken_ = true;
    ToThread_.NotifyOne();
    while (!ToApartment_.WaitFor(Locked, WaitMs * NsPerMs, [this] { return HasEnded_; })) {
        Abandoned_ = CallClockNs_ >= 0;
        if (Abandoned_) return false;
    }
    return true;
}

std::vector<std::string> LivePump::TakeNotices() {
    const auto Locked = Hold();
    std::vector<std::string> Lines;
    for (const Notice& Each : std::span(Notices_).first(std::exchange(NoticeCount_, 0)))
        Lines.push_back(TextOf(Each));
    if (const int Lost = std::exchange(NoticesLost_, 0); Lost > 0) {
        Lines.push_back("more that the sound device did, not told: " + std::to_string(Lost));
    }
    return Lines;
}

std::string LivePump::TextOf(const Notice& Of) const {
    switch (Of.What) {
        case Happening::NotOpened:
            return "the sound device cannot be opened (" + Device_->TextOf(Of.Value) +
                   "): play goes on in silence";
        case Happening::Lost:
            return "the sound device is lost (" + Device_->TextOf(Of.Value) +
                   "): play goes on in silence";
        case Happening::StoodStill:
            return "the sound device stands still: play goes on in silence";
        case Happening::Back:
            return "the sound device is back";
        case Happening::RanDry:
            return "the sound device ran dry, times: " + std::to_string(Of.Value);
    }
    return {};
}

// Of both sides.

void LivePump::FindStuck() {
    if (Mode_ == Phase::Sounding && CallClockNs_ >= 0 &&
        Time_.NowNs() - CallClockNs_ > MostCallNs) {
        FallSilent(Happening::StoodStill, 0);
    }
}

void LivePump::FallSilent(Happening Why, int Error) {
    Listener_.End();
    Mode_ = Phase::Silent;
    if (!std::exchange(Missing_, true)) Note(Why, Error);
}

void LivePump::EndRun() {
    CutNs_ = Listener_.End();
    Mode_ = Phase::Idle;
    ++RunNumber_;
    Run_ = {};
    CutWanted_ = false;
}

void LivePump::Note(Happening What, int Value) {
    if (NoticeCount_ < Notices_.size()) {
        Notices_[NoticeCount_++] = {What, Value};
    } else {
        ++NoticesLost_;
    }
}

}  // namespace Tolvar
