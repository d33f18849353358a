#pragma once

#include <cstdint>

#include "store/SampleRuns.h"

namespace Tolvar {

/// How the samples of a segment go from the channels into the stream.
struct SegmentOrder {
    bool Reverse = false;    ///< the channels' last sample comes first
    bool EightBits = false;  ///< samples are -128..127 and are scaled by 256
};

/// Writes Left, or Left and Right alternately (both of one length), to Stream as 16-bit samples.
/// The runs have at most RunWalk::PieceLen samples, and Stream has room for all of them.
/// RuntimeFailure(Overflow) when EightBits and a sample lies outside -128..127.
void Interleave(const SampleRun& Left, SegmentOrder Order, std::int16_t* Stream);
void Interleave(const SampleRun& Left, const SampleRun& Right, SegmentOrder Order,
                std::int16_t* Stream);

}  // namespace Tolvar
