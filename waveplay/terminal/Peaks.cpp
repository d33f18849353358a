#include "waveplay/terminal/Peaks.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace Tolvar {
namespace {

constexpr std::int64_t MostStretches = 2048;
constexpr std::int64_t MostPlaces = 16;
constexpr std::int64_t ProbeFrames = 512;

// The places 0 to Count - 1 each once, neighbours in the order far apart: from the middle on in
// steps of 7, round and round, so of 16 places 8, 15, 6, 13 and so on. A step that has a divisor in
// common with Count would leave places out: 7 has none with 1 to 16 but 7 and 14, which take steps
// of 5.
std::int64_t PlaceOfPass(std::int64_t Pass, std::int64_t Count) {
    const std::int64_t Step = Count % 7 == 0 ? 5 : 7;
    return (Pass * Step + Count / 2) % Count;
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
        Failure_ = Cause.what();
        ReadFrames_ = {};
    }
    return ReadFrames_ && Pass_ < Places_;
}

void Peaks::Probe() {
    const auto Stretch = static_cast<std::int64_t>(Next_);
    const std::int64_t First = StretchStart(Stretch);
    const std::int64_t Length = StretchStart(Stretch + 1) - First;
    const std::int64_t Place = PlaceOfPass(Pass_, Places_);
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
