#include "card/frames/StreamFormat.h"

namespace Tolvar {

std::optional<StreamFormat> PlayableFormat(const WAVEFORMATEX& Format, DWORD MostHz) {
    const bool Is16BitPcm = Format.wFormatTag == WAVE_FORMAT_PCM && Format.wBitsPerSample == 16 &&
                            (Format.nChannels == 1 || Format.nChannels == 2);
    const bool InRange = Format.nSamplesPerSec >= 100 && Format.nSamplesPerSec <= MostHz;
    const bool Consistent = Format.nBlockAlign == Format.nChannels * 2 &&
                            Format.nAvgBytesPerSec == Format.nSamplesPerSec * Format.nBlockAlign;
    if (!Is16BitPcm || !InRange || !Consistent) return std::nullopt;
    return StreamFormat{Format.nChannels, static_cast<int>(Format.nSamplesPerSec)};
}

}  // namespace Tolvar
