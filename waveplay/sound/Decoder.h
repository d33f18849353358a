#pragma once

#include <cstdint>
#include <string>

#include "card/frames/StreamFormat.h"
#include "waveplay/files/WorkFolder.h"
#include "waveplay/sound/SoundFile.h"

namespace Tolvar {

/// Frames of a sound file, 0-based; To is the first that is not meant.
struct FrameRange {
    std::int64_t From = 0;
    std::int64_t To = 0;
};

/// A stretch of a sound file as work files, one for each channel of the wave.
struct DecodedRange {
    std::int64_t Frames = 0;  ///< that came out; fewer than expected when the file was cut off
    std::string Left;
    std::string Right;  ///< the same file as Left when both channels are alike
};

/// How many frames at the rate ToHz pass in that many at FromHz, halves to even.
std::int64_t FramesAtRate(std::int64_t Frames, int FromHz, int ToHz);

/// Decodes the range into new files in Folder: mixed to the wave's channels, resampled to its
/// rate, and dithered when it comes out finer than 16 bits. Shows its progress, and says on
/// standard error when the file ends early. Memory does not depend on the length.
/// RuntimeFailure, which names the sound file, when it cannot be read or the files not written.
DecodedRange Decode(SoundFile& Sound, FrameRange Range, StreamFormat Wave, WorkFolder& Folder);

}  // namespace Tolvar
