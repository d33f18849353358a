#include "waveplay/terminal/Peaks.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace Tolvar {
namespace {

constexpr std::int64_t MostStretches = 2048;
constexpr std::int64_t MostPlaces = 16;
constexpr std::int64_t ProbeFrames = 512;

// 0 to Count - 1 so that early ones are far apart; of 16 the first are 8, 15, 6 and 13:
std::int64_t Spread(std::int64_t Index, std::int64_t Count) {
    constexpr std::int64_t Odd = 7;  // has no divisor in common with 1 to 16 but 7 and 14
    return (Index * (Count % Odd == 0 ? 5 : Odd) + Count / 2) % Count;
}

Peak Joined(const Peak& A, const Peak& B) {
    return {std::min(A.Least, B.Least), std::max(A.Greatest, B.Greatest)};
}

}  // namespace

Peaks::Peaks(std::int32_t WaveNos, std::int32_t FmtChannal, FrameReader Read)
    : Frames_(WaveNos),
      Channels_(FmtChannal),
      ReadFrames_(std::move(Read)),
      Stretches_(static_cast<std::size_t>(std::min<std::int64_t>(WaveNos, MostStretches))) {
    const auto Count = static_cast<std::int64_t>(Stretches_.size());
    const std::int64_t Longest = (Frames_ + Count - 1) / Count;
    Places_ = std::min(MostPlaces, (Longest + ProbeFrames - 1) / ProbeFrames);
}

std::int64_t Peaks::StretchStart(std::int64_t Stretch) const {
    return Frames_ * Stretch / static_cast<std::int64_t>(Stretches_.size());
}

bool Peaks::Work(int Probes) {
    if (!ReadFrames_) return false;
    try {
        for (; Probes > 0 && Pass_ < Places_; --Probes)
            Probe();
    } catch (const std::exception& Cause) {
        FailText_ = Cause.what();
        ReadFrames_ = {};
    }
    return ReadFrames_ && Pass_ < Places_;
}

void Peaks::Probe() {
    const auto Stretch = static_cast<std::int64_t>(Next_);
    const std::int64_t First = StretchStart(Stretch);
    const std::int64_t Length = StretchStart(Stretch + 1) - First;
    const std::int64_t Place = Spread(Pass_, Places_);
    const std::int64_t From = First + Length * Place / Places_;
    const std::int64_t Room = First + Length * (Place + 1) / Places_ - From;
    if (Room > 0) {
        Samples_.resize(static_cast<std::size_t>(std::min(Room, ProbeFrames) * Channels_));
        ReadFrames_(static_cast<std::int32_t>(From), Samples_);
        const auto [Least, Greatest] = std::ranges::minmax(Samples_);
        Stretches_[Next_] = Joined(Stretches_[Next_], {Least, Greatest});
    }
    if (++Next_ == Stretches_.size()) {
        Next_ = 0;
        ++Pass_;
    }
}

Peak Peaks::Column(int Column, int Columns) const {
    const auto Count = static_cast<std::int64_t>(Stretches_.size());
    const std::int64_t First = Count * Column / Columns;
    const std::int64_t Last = std::max(First + 1, Count * (Column + 1) / Columns);
    Peak Found;
    for (std::int64_t I = First; I < Last; ++I)
        Found = Joined(Found, Stretches_[static_cast<std::size_t>(I)]);
    return Found;
}

}  // namespace Tolvar
