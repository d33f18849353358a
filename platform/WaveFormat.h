#pragma once

#include <cstdint>

namespace Tolvar {

using DWORD = std::uint32_t;
using WORD = std::uint16_t;

inline constexpr WORD WAVE_FORMAT_PCM = 1;

/// The format of a device buffer, as every device interface takes it.
struct WAVEFORMATEX {
    WORD wFormatTag = 0;
    WORD nChannels = 0;
    DWORD nSamplesPerSec = 0;
    DWORD nAvgBytesPerSec = 0;
    WORD nBlockAlign = 0;
    WORD wBitsPerSample = 0;
    WORD cbSize = 0;
};

}  // namespace Tolvar
