#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "waveplay/BlockListBuilder.h"
#include "waveplay/WavSource.h"

namespace Tolvar {

class PlayerPort;

/// A wave as it is handed over: its format, its length and a block list for each channel.
struct Wave {
    std::int32_t FmtBits = 16;
    std::int32_t FmtChannal = 2;
    std::int32_t FmtFriq = 44100;
    std::int32_t WaveNos = 0;  ///< frames
    BlockListBuilder Left;
    BlockListBuilder Right;  ///< no entries for a mono wave

    double Seconds() const { return static_cast<double>(WaveNos) / FmtFriq; }
};

/// Joins the pieces, each a file or "silence:SECONDS", in their order; silence alone is 44100 Hz,
/// 16 bits, stereo. Only the files' headers are read. RuntimeFailure as OpenWav throws it, and
/// RuntimeFailure(Input) for pieces whose formats differ, a silence that is no length or more
/// than 2147483647 frames.
Wave JoinPieces(const std::vector<std::string>& Pieces);

/// The one file, all of it. The wave has no frame when the file has none.
Wave WaveOf(const WavSource& Source);

void HandOver(PlayerPort& Player, const Wave& Whole);

}  // namespace Tolvar
