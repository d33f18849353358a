#pragma once

#include <cstdint>
#include <optional>

#include "waveplay/sound/SoundBytes.h"

namespace Tolvar {

/// For an MPEG audio file in which nothing says how many frames it has: how many of its bytes are
/// sound, an ID3v1 tag at the end being none. Nothing when the file does say it. libsndfile guesses
/// the length from the file's size and its first frame, and reads no further.
/// RuntimeFailure(File) when the file cannot be read.
std::optional<std::int64_t> BytesOfUncountedMpeg(const SoundBytes& In);

}  // namespace Tolvar
