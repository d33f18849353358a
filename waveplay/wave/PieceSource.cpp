#include "waveplay/wave/PieceSource.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <variant>

#include "platform/RuntimeFailure.h"
#include "store/BlockRec.h"

namespace Tolvar {
namespace {

constexpr std::int64_t LastInt32 = std::numeric_limits<std::int32_t>::max();
constexpr std::int64_t SampleBytes = 2;  // of a work file

std::int64_t FrameBytes(const WavSource& File) {
    return std::int64_t{File.Channels} * File.Bits / 8;
}

// Ranges that overlap or touch become one.
std::vector<FrameRange> United(std::vector<FrameRange> Ranges) {
    std::sort(Ranges.begin(), Ranges.end(),
              [](const FrameRange& A, const FrameRange& B) { return A.From < B.From; });
    std::vector<FrameRange> Whole;
    for (const FrameRange& Each : Ranges) {
        if (Whole.empty() || Whole.back().To < Each.From) {
            Whole.push_back(Each);
        } else {
            Whole.back().To = std::max(Whole.back().To, Each.To);
        }
    }
    return Whole;
}

}  // namespace

EntryPair EntriesInPlace(const WavSource& File, FrameRange Frames, const std::string& Name) {
    const std::int64_t At = File.DataPos + Frames.From * FrameBytes(File);
    BlockEntry Left{.Code = BlkOrgFile,
                    .Len = static_cast<std::int32_t>(Frames.To - Frames.From),
                    .FilePos = static_cast<std::int32_t>(At),
                    .Channels = File.Channels,
                    .Bits = File.Bits,
                    .Name = Name};
    BlockEntry Right = Left;
    if (File.Channels == 2) Right.FilePos += File.Bits / 8;
    return {std::move(Left), std::move(Right)};
}

PieceSource::PieceSource(const std::string& Path) : Path_(Path) {
    const SoundFile Sound(Path_);
    Rate_ = Sound.RateHz();
    Width_ = Sound.Channels();
    FrameCount_ = Sound.Frames();
    const auto Placed = PlaceInFile(Sound);
    if (const auto* File = std::get_if<WavSource>(&Placed)) {
        InFile_ = *File;
        FrameCount_ = File->Frames;
    }
}

FrameRange PieceSource::FramesOf(const PieceName& Piece) const {
    const double From = std::nearbyint(Piece.From * Rate_);
    const double To =
        Piece.To ? std::nearbyint(*Piece.To * Rate_) : static_cast<double>(FrameCount_);
    if (std::max(From, To) > static_cast<double>(FrameCount_)) {
        const double Seconds = static_cast<double>(FrameCount_) / Rate_;
        throw RuntimeFailure(
            FailureKind::Input,
            Piece.Text + ": the cut reaches behind the file's " + std::to_string(Seconds) + " s");
    }
    return {static_cast<std::int64_t>(From), static_cast<std::int64_t>(To)};
}

bool PieceSource::PlaysInPlace(FrameRange Frames, StreamFormat Wave, std::int32_t WaveBits) const {
    if (!InFile_ || Rate_ != Wave.RateHz || InFile_->Bits != WaveBits) return false;
    if (Width_ != 1 && Width_ != Wave.Channels) return false;
    const std::int64_t LastPos = InFile_->DataPos + Frames.From * FrameBytes(*InFile_) + 1;
    return LastPos <= LastInt32;
}

void PieceSource::DecodeWanted(StreamFormat Wave, WorkFolder& Folder) {
    if (Wanted_.empty()) return;
    SoundFile Sound(Path_);
    for (const FrameRange& Each : United(std::move(Wanted_)))
        Stretches_.push_back({Each, Decode(Sound, Each, Wave, Folder)});
    Wanted_.clear();
}

EntryPair PieceSource::DecodedEntries(FrameRange Frames, StreamFormat Wave) const {
    const auto Holds = [&](const Decoded& Each) {
        return Each.Range.From <= Frames.From && Frames.To <= Each.Range.To;
    };
    const Decoded& Stretch = *std::find_if(Stretches_.begin(), Stretches_.end(), Holds);
    const DecodedRange& Files = Stretch.Files;
    const auto Offset = [&, Origin =
                                FramesAtRate(Stretch.Range.From, Rate_, Wave.RateHz)](auto Frame) {
        return std::min(FramesAtRate(Frame, Rate_, Wave.RateHz) - Origin, Files.Frames);
    };
    const std::int64_t From = Offset(Frames.From);
    const std::int64_t FilePos = 1 + From * SampleBytes;
    if (FilePos > LastInt32) {
        throw RuntimeFailure(FailureKind::Input,
                             Path_ +
                                 ": a cut begins too far behind the one that it overlaps: "
                                 "beyond byte 2147483647 of what was decoded");
    }
    BlockEntry Left{.Code = BlkFile,
                    .Len = static_cast<std::int32_t>(Offset(Frames.To) - From),
                    .FilePos = static_cast<std::int32_t>(FilePos),
                    .Name = Files.Left};
    BlockEntry Right = Left;
    Right.Name = Files.Right;
    return {std::move(Left), std::move(Right)};
}

}  // namespace Tolvar
