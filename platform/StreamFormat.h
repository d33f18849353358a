#pragma once

namespace Tolvar {

/// A stream of interleaved signed 16-bit frames.
struct StreamFormat {
    int Channels = 0;  ///< 1 or 2
    int RateHz = 0;    ///< 100..384000

    bool operator==(const StreamFormat&) const = default;
};

}  // namespace Tolvar
