#pragma once

#include <cstdint>
#include <string>
#include <variant>

#include "waveplay/sound/SoundFile.h"

namespace Tolvar {

/// A PCM WAV file whose samples can be played where they lie.
struct WavSource {
    std::string FullPath;
    std::int32_t Bits = 0;      ///< 8 (unsigned) or 16 (signed, low byte first)
    std::int32_t Channels = 0;  ///< 1 or 2, interleaved
    std::int32_t Rate = 0;      ///< Hz
    std::int32_t Frames = 0;    ///< that are really in the file; 0 or more
    std::int32_t DataPos = 0;   ///< bytes, 1-based: the first sample of the first frame
};

/// Where the samples lie, or why they cannot be played there. Reads the header only, and says so
/// on standard error when the file holds less than its header claims.
std::variant<WavSource, std::string> PlaceInFile(const SoundFile& Sound);

/// A file that must be playable in place. RuntimeFailure(File) when Path cannot be read,
/// RuntimeFailure(Input) when it is anything else than such a file.
WavSource OpenWav(const std::string& Path);

}  // namespace Tolvar
