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

LiveFrames::LiveFrames(LiveOptions Options, Reader FromSource)
    : Options_(Options),
      Read_(std::move(FromSource)),
      ToPending_([this](std::span<const std::int16_t> Samples) { Append(Samples); }) {}

void LiveFrames::Begin(StreamFormat Source, StreamFormat Device, std::int64_t Frame) {
    From_ = Source;
    To_ = Device;
    Converter_ = std::make_unique<OutputConverter>(From_, To_);
    Piece_.resize(Index(std::max(1, From_.RateHz * PieceMs / 1000) * From_.Channels));
    Pending_.clear();
    Pending_.reserve(Index(FramesIn(Options_.LatencyMs) * To_.Channels) + MostConverted);
    PendingFrom_ = 0;
    Recent_.assign(Index(FramesIn(Options_.LatencyMs + Options_.SlackMs) * To_.Channels), 0);
    RecentTo_ = 0;
    SourceFrame_ = Frame;
    Made_ = 0;
    Dry_ = false;
}

std::span<const std::int16_t> LiveFrames::Next(bool MayFlush) {
    if (PendingFrom_ == Pending_.size() && !Produce(MayFlush)) return {};
    return std::span<const std::int16_t>(Pending_).subspan(PendingFrom_);
}

/// As much as the device holds: one that starts with little runs dry at once.
bool LiveFrames::Produce(bool MayFlush) {
    const std::int64_t Wanted = FramesIn(Options_.LatencyMs) * To_.Channels;
    Pending_.clear();
    PendingFrom_ = 0;
    while (std::ssize(Pending_) < Wanted) {
        const std::size_t Frames = Read_(SourceFrame_, Piece_);
        Dry_ = Frames == 0;
        if (Dry_ && Pending_.empty() && MayFlush && Converter_) {
            Converter_->Flush(ToPending_);
            Converter_.reset();
        }
        if (Dry_) return !Pending_.empty();
        if (!Converter_) Converter_ = std::make_unique<OutputConverter>(From_, To_);
        Converter_->Convert(std::span(Piece_).first(Frames * Index(From_.Channels)), ToPending_);
        SourceFrame_ += static_cast<std::int64_t>(Frames);
    }
    return true;
}

void LiveFrames::Append(std::span<const std::int16_t> Samples) {
    const std::size_t First = Pending_.size();
    Pending_.insert(Pending_.end(), Samples.begin(), Samples.end());
    Rise(std::span(Pending_).subspan(First), To_.Channels, Made_, FramesIn(Options_.FadeMs));
}

void LiveFrames::Took(std::int64_t Frames) {
    const auto Samples =
        std::span<const std::int16_t>(Pending_).subspan(PendingFrom_, Index(Frames * To_.Channels));
    PendingFrom_ += Samples.size();
    if (Options_.FadeMs > 0) Keep(Samples);
}

void LiveFrames::Keep(std::span<const std::int16_t> Samples) {
    while (!Samples.empty()) {
        const std::size_t Count = std::min(Samples.size(), Recent_.size() - RecentTo_);
        std::ranges::copy(Samples.first(Count),
                          Recent_.begin() + static_cast<std::ptrdiff_t>(RecentTo_));
        RecentTo_ = (RecentTo_ + Count) % Recent_.size();
        Samples = Samples.subspan(Count);
    }
}

std::span<const std::int16_t> LiveFrames::Fading(std::int64_t TakenBack, std::int64_t Ramp) {
    const std::size_t First = RecentTo_ + Recent_.size() - Index(TakenBack * To_.Channels);
    Pending_.clear();
    for (std::size_t Sample = 0; Sample < Index(Ramp * To_.Channels); ++Sample)
        Pending_.push_back(Recent_[(First + Sample) % Recent_.size()]);
    PendingFrom_ = 0;
    return FadingNext(Ramp);
}

std::span<const std::int16_t> LiveFrames::FadingNext(std::int64_t Ramp) {
    const auto Next = std::span(Pending_).subspan(PendingFrom_);
    if (std::ssize(Next) < Ramp * To_.Channels) return {};
    const auto Falling = Next.first(Index(Ramp * To_.Channels));
    Fall(Falling, To_.Channels, Ramp);
    return Falling;
}

}  // namespace Tolvar
