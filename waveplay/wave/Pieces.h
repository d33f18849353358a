#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "waveplay/sound/WavSource.h"
#include "waveplay/wave/BlockListBuilder.h"

namespace Tolvar {

class WorkFolder;

/// A wave as it is handed over: its format, its length and a block list for each channel.
struct Wave {
    std::int32_t FmtBits = 16;
    std::int32_t FmtChannal = 2;
    std::int32_t FmtFriq = 44100;
    std::int32_t WaveNos = 0;  ///< frames
    BlockListBuilder Left;
    BlockListBuilder Right;  ///< no entries for a mono wave
    /// The work files that the lists name, if any: they are there as long as a copy of this is.
    std::shared_ptr<WorkFolder> Decoded = {};

    double Seconds() const { return static_cast<double>(WaveNos) / FmtFriq; }
};

/// Joins the pieces (as ParsePiece takes them) in their order, in the rate and the channels of the
/// first file; silence alone is 44100 Hz, 16 bits, stereo. A file that can be played where it lies
/// is only read up to its header, any other is decoded into work files. RuntimeFailure for a piece
/// that is none, a file that cannot be read or decoded, a cut that ends behind its file, and more
/// than 2147483647 frames; no work file is left then.
Wave JoinPieces(const std::vector<std::string>& Pieces);

/// The one file, all of it. The wave has no frame when the file has none.
Wave WaveOf(const WavSource& Source);

}  // namespace Tolvar
