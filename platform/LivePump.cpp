#include "platform/LivePump.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <exception>
#include <utility>

namespace Tolvar {
namespace {

constexpr std::int64_t MostCallNs = NsPerSecond;
constexpr std::int64_t MostUnseenNs = 60 * NsPerMs;
constexpr std::int64_t SurelyNs = NsPerMs;  // a position must not be told before it is heard

}  // namespace

LivePump::LivePump(std::unique_ptr<OutputDevice> TheDevice, const Clock& TheTime,
                   LiveOptions TheOptions)
    : Device(std::move(TheDevice)),
      Time(TheTime),
      Options(TheOptions),
      ToPending([this](std::span<const std::int16_t> Samples) { Append(Samples); }) {}

// The apartment's side.

std::int64_t LivePump::NowNs() {
    const auto Held = Hold();
    return ListenerNs();
}

void LivePump::Begin(const LiveRun& Wanted) {
    {
        const auto Held = Hold();
        const std::int64_t Now = ListenerNs();
        Run = Wanted;
        ++RunNumber;
        Mode = Phase::Sounding;
        RunTime = FrameTimer(Wanted.Format.RateHz);
        RunTime.Start(Now, Wanted.Frame);
        FreeNs = Now;
        FreeClock = Time.NowNs();
    }
    Wake();
}

bool LivePump::AskCut(const FrameSource& Of) {
    {
        const auto Held = Hold();
        if (Mode == Phase::Idle || Run.Source != &Of) return false;
        FindStuck();
        CutWanted = Adopted();
        if (!CutWanted) EndRun();
    }
    Wake();
    return true;
}

std::int64_t LivePump::FinishCut(int WaitMs) {
    auto Held = Hold();
    ToApartment.wait_for(Held, std::chrono::milliseconds(WaitMs), [this] { return !CutWanted; });
    if (CutWanted) EndRun();
    return CutNs;
}

void LivePump::Wake() {
    {
        const auto Held = Hold();
        Woken = true;
    }
    ToThread.notify_one();
}

void LivePump::End() {
    {
        const auto Held = Hold();
        Ending = true;
    }
    Wake();
}

bool LivePump::Ended(int WaitMs) {
    auto Held = Hold();
    return ToApartment.wait_for(Held, std::chrono::milliseconds(WaitMs),
                                [this] { return HasEnded; });
}

std::vector<std::string> LivePump::TakeNotices() {
    const auto Held = Hold();
    std::vector<std::string> Lines;
    for (const Notice& Each : std::span(Notices).first(std::exchange(NoticeCount, 0)))
        Lines.push_back(TextOf(Each));
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
    if (Mode == Phase::Sounding && CallClock >= 0 && Time.NowNs() - CallClock > MostCallNs) {
        FallSilent(Happening::StoodStill, 0);
    }
}

std::int64_t LivePump::ListenerNs() {
    FindStuck();
    const std::int64_t Clock = Time.NowNs();
    std::int64_t Ns = ToldNs;
    if (Mode != Phase::Sounding) {
        Ns = FreeNs + Clock - FreeClock;
    } else if (Adopted()) {
        FrameTimer Since(HeardTime.RateHz());
        Since.Start(SeenClock, Heard);
        // Not before the first frame was heard: until then the device gets ready.
        const std::int64_t Seen =
            std::max(std::min(Clock - SurelyNs, SeenClock + MostUnseenNs), SeenClock);
        const std::int64_t Frames = Heard > 0 ? std::min(Since.FramesAt(Seen), Written) : 0;
        Ns = HeardTime.NsOf(Frames);
    }
    return ToldNs = std::max(ToldNs, Ns);
}

void LivePump::FallSilent(Happening Why, int Error) {
    if (Adopted()) {
        FreeNs = ToldNs = std::max(ToldNs, HeardTime.NsOf(Heard));
        FreeClock = Time.NowNs();
    }  // else it has been silent since the run began
    Mode = Phase::Silent;
    if (!std::exchange(Missing, true)) Note(Why, Error);
}

void LivePump::EndRun() {
    if (Adopted()) ToldNs = std::max(ToldNs, HeardTime.NsOf(Heard));
    CutNs = FreeNs = ToldNs;
    FreeClock = Time.NowNs();
    Mode = Phase::Idle;
    ++RunNumber;
    Run = {};
    CutWanted = false;
}

void LivePump::Note(Happening What, int Value) {
    if (NoticeCount < Notices.size()) Notices[NoticeCount++] = {What, Value};
}

}  // namespace Tolvar
