#include "card/live/LivePump.h"

#include <algorithm>
#include <utility>

namespace Tolvar {
namespace {

constexpr std::int64_t MostCallNs = NsPerSecond;

}  // namespace

LivePump::LivePump(std::unique_ptr<OutputDevice> TheDevice, const Clock& TheTime,
                   LiveOptions TheOptions)
    : Device(std::move(TheDevice)),
      Time(TheTime),
      Options(TheOptions),
      Listener(TheTime, (TurnMs() + LateMs) * NsPerMs),
      Frames(TheOptions, [this](std::int64_t Frame, std::span<std::int16_t> Into) {
          return ReadSource(Frame, Into);
      }) {}

// The apartment's side.

std::int64_t LivePump::NowNs() {
    const auto Locked = Hold();
    FindStuck();
    return Listener.NowNs();
}

std::int64_t LivePump::Begin(const LiveRun& Wanted) {
    std::int64_t Now = 0;
    {
        const auto Locked = Hold();
        FindStuck();
        Now = Listener.Begin(Wanted.Format.RateHz, Wanted.Frame, Missing);
        Run = Wanted;
        ++RunNumber;
        Mode = Phase::Sounding;
    }
    Wake();
    return Now;
}

bool LivePump::AskCut(const FrameSource& Of) {
    {
        const auto Locked = Hold();
        if (Mode == Phase::Idle || Run.Source != &Of) return false;
        FindStuck();
        CutWanted = Listener.HasDevice();
        if (!CutWanted) EndRun();
    }
    Wake();
    return true;
}

std::int64_t LivePump::FinishCut(int WaitMs) {
    auto Locked = Hold();
    ToApartment.WaitFor(Locked, WaitMs * NsPerMs, [this] { return !CutWanted; });
    if (CutWanted) EndRun();
    return CutNs;
}

void LivePump::Wake() {
    {
        const auto Locked = Hold();
        Woken = true;
    }
    ToThread.NotifyOne();
}

bool LivePump::End(int WaitMs) {
    auto Locked = Hold();
    Ending = Woken = true;
    ToThread.NotifyOne();
    while (!ToApartment.WaitFor(Locked, WaitMs * NsPerMs, [this] { return HasEnded; })) {
        Abandoned = CallClockNs >= 0;
        if (Abandoned) return false;
    }
    return true;
}

std::vector<std::string> LivePump::TakeNotices() {
    const auto Locked = Hold();
    std::vector<std::string> Lines;
    for (const Notice& Each : std::span(Notices).first(std::exchange(NoticeCount, 0)))
        Lines.push_back(TextOf(Each));
    if (const int Lost = std::exchange(NoticesLost, 0); Lost > 0) {
        Lines.push_back("more that the sound device did, not told: " + std::to_string(Lost));
    }
    return Lines;
}

std::string LivePump::TextOf(const Notice& Of) const {
    switch (Of.What) {
        case Happening::NotOpened:
            return "the sound device cannot be opened (" + Device->TextOf(Of.Value) +
                   "): play goes on in silence";
        case Happening::Lost:
            return "the sound device is lost (" + Device->TextOf(Of.Value) +
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
    if (Mode == Phase::Sounding && CallClockNs >= 0 && Time.NowNs() - CallClockNs > MostCallNs) {
        FallSilent(Happening::StoodStill, 0);
    }
}

void LivePump::FallSilent(Happening Why, int Error) {
    Listener.End();
    Mode = Phase::Silent;
    if (!std::exchange(Missing, true)) Note(Why, Error);
}

void LivePump::EndRun() {
    CutNs = Listener.End();
    Mode = Phase::Idle;
    ++RunNumber;
    Run = {};
    CutWanted = false;
}

void LivePump::Note(Happening What, int Value) {
    if (NoticeCount < Notices.size()) {
        Notices[NoticeCount++] = {What, Value};
    } else {
        ++NoticesLost;
    }
}

}  // namespace Tolvar
