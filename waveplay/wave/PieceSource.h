#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "card/frames/StreamFormat.h"
#include "waveplay/sound/Decoder.h"
#include "waveplay/sound/WavSource.h"
#include "waveplay/wave/BlockListBuilder.h"
#include "waveplay/wave/PieceName.h"

namespace Tolvar {

/// A left and a right list's entry for one stretch of a wave.
using EntryPair = std::pair<BlockEntry, BlockEntry>;

/// The entries of a stretch of a file that is played where it lies; Frames lie in the file, and
/// Name is what the lists call it.
EntryPair EntriesInPlace(const WavSource& File, FrameRange Frames, const std::string& Name);

/// One sound file of a wave, whatever number of pieces name it.
class PieceSource {
  public:
    /// Reads the header. RuntimeFailure as SoundFile throws it.
    explicit PieceSource(const std::string& Path);

    int RateHz() const { return Rate_; }
    int Channels() const { return Width_; }
    /// None: it has to be decoded.
    const std::optional<WavSource>& Place() const { return InFile_; }

    /// The frames of the file that the piece means. RuntimeFailure(Input) when it ends behind it.
    FrameRange FramesOf(const PieceName& Piece) const;

    /// Whether a wave of this format can play those frames where they lie.
    bool PlaysInPlace(FrameRange Frames, StreamFormat Wave, std::int32_t WaveBits) const;

    /// These frames are to be decoded with the next DecodeWanted.
    void Want(FrameRange Frames) { Wanted_.push_back(Frames); }

    /// Ranges that overlap or touch are decoded as one, so that neighbours join without a seam.
    void DecodeWanted(StreamFormat Wave, WorkFolder& Folder);

    /// The entries of frames that have been decoded; shorter when the file was cut off.
    /// RuntimeFailure(Input) when they begin beyond what a block list can say.
    EntryPair DecodedEntries(FrameRange Frames, StreamFormat Wave) const;

  private:
    struct Decoded {
        FrameRange Range;
        DecodedRange Files;
    };

    std::string Path_;
    int Rate_ = 0;
    int Width_ = 0;
    std::int64_t FrameCount_ = 0;
    std::optional<WavSource> InFile_;
    std::vector<FrameRange> Wanted_;
    std::vector<Decoded> Stretches_;
};

}  // namespace Tolvar
