#pragma once

#include <optional>

#include "platform/WaveFormat.h"

namespace Tolvar {

/// A stream of interleaved signed 16-bit frames.
struct StreamFormat {
    int Channels = 0;  ///< 1 or 2
    int RateHz = 0;    ///< 100..384000

    int BytesPerFrame() const { return Channels * 2; }
    bool operator==(const StreamFormat&) const = default;
};

/// What a device interface was given, if the card can play it: consistent 16-bit PCM of one or two
/// channels, 100 to MostHz.
std::optional<StreamFormat> PlayableFormat(const WAVEFORMATEX& Format, DWORD MostHz);

}  // namespace Tolvar
