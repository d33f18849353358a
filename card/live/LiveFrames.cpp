#include "card/live/LiveFrames.h"

#include <algorithm>
#include <utility>

#include "card/frames/EdgeRamps.h"

namespace Tolvar {
namespace {

constexpr int PieceMs = 20;                     // read from the source at a time
constexpr std::size_t MostConverted = 1 << 15;  // samples that a resampler makes of one piece

std::size_t Index(std::int64_t Of) {
    return static_cast<std::size_t>(Of);
}

}  // namespace

LiveFrames::LiveFrames(LiveOptions TheOptions, Reader FromSource)
    : Options(TheOptions),
      Read(std::move(FromSource)),
      ToPending([this](std::span<const std::int16_t> Samples) { Append(Samples); }) {}

void LiveFrames::Begin(StreamFormat Source, StreamFormat Device, std::int64_t Frame) {
    From = Source;
    To = Device;
    Converter = std::make_unique<OutputConverter>(From, To);
    Piece.resize(Index(std::max(1, From.RateHz * PieceMs / 1000) * From.Channels));
    Pending.clear();
    Pending.reserve(Index(FramesIn(Options.LatencyMs) * To.Channels) + MostConverted);
    PendingFrom = 0;
    Recent.assign(Index(FramesIn(Options.LatencyMs + Options.SlackMs) * To.Channels), 0);
    RecentTo = 0;
    SourceFrame = Frame;
    Made = 0;
    Dry = false;
}

std::span<const std::int16_t> LiveFrames::Next(bool MayFlush) {
    if (PendingFrom == Pending.size() && !Produce(MayFlush)) return {};
    return std::span<const std::int16_t>(Pending).subspan(PendingFrom);
}

/// As much as the device holds: one that starts with little runs dry at once.
bool LiveFrames::Produce(bool MayFlush) {
    const std::int64_t Wanted = FramesIn(Options.LatencyMs) * To.Channels;
    Pending.clear();
    PendingFrom = 0;
    while (std::ssize(Pending) < Wanted) {
        const std::size_t Frames = Read(SourceFrame, Piece);
        Dry = Frames == 0;
        if (Dry && Pending.empty() && MayFlush && Converter) {
            Converter->Flush(ToPending);
            Converter.reset();
        }
        if (Dry) return !Pending.empty();
        if (!Converter) Converter = std::make_unique<OutputConverter>(From, To);
        Converter->Convert(std::span(Piece).first(Frames * Index(From.Channels)), ToPending);
        SourceFrame += static_cast<std::int64_t>(Frames);
    }
    return true;
}

void LiveFrames::Append(std::span<const std::int16_t> Samples) {
    const std::size_t First = Pending.size();
    Pending.insert(Pending.end(), Samples.begin(), Samples.end());
    Rise(std::span(Pending).subspan(First), To.Channels, Made, FramesIn(Options.FadeMs));
}

void LiveFrames::Took(std::int64_t Frames) {
    const auto Samples =
        std::span<const std::int16_t>(Pending).subspan(PendingFrom, Index(Frames * To.Channels));
    PendingFrom += Samples.size();
    if (Options.FadeMs > 0) Keep(Samples);
}

void LiveFrames::Keep(std::span<const std::int16_t> Samples) {
    while (!Samples.empty()) {
        const std::size_t Count = std::min(Samples.size(), Recent.size() - RecentTo);
        std::ranges::copy(Samples.first(Count),
                          Recent.begin() + static_cast<std::ptrdiff_t>(RecentTo));
        RecentTo = (RecentTo + Count) % Recent.size();
        Samples = Samples.subspan(Count);
    }
}

std::span<const std::int16_t> LiveFrames::Fading(std::int64_t TakenBack, std::int64_t Ramp) {
    const std::size_t First = RecentTo + Recent.size() - Index(TakenBack * To.Channels);
    Pending.clear();
    for (std::size_t Sample = 0; Sample < Index(Ramp * To.Channels); ++Sample)
        Pending.push_back(Recent[(First + Sample) % Recent.size()]);
    PendingFrom = 0;
    return FadingNext(Ramp);
}

std::span<const std::int16_t> LiveFrames::FadingNext(std::int64_t Ramp) {
    const auto Next = std::span(Pending).subspan(PendingFrom);
    if (std::ssize(Next) < Ramp * To.Channels) return {};
    const auto Falling = Next.first(Index(Ramp * To.Channels));
    Fall(Falling, To.Channels, Ramp);
    return Falling;
}

}  // namespace Tolvar
