#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "fuzz/Targets.h"
#include "platform/RuntimeFailure.h"
#include "platform/posix/Posix.h"
#include "waveplay/sound/WavSource.h"

namespace Tolvar::Fuzz {
namespace {

/// Sample Index of the file's bytes from First on, full scale being 1.
double SampleAt(Bytes First, int Bits, std::size_t Index) {
    if (Bits == 8) return (First[Index] - 128) / 128.0;
    const unsigned Both = First[2 * Index] | static_cast<unsigned>(First[2 * Index + 1]) << 8U;
    return static_cast<std::int16_t>(Both) / 32768.0;
}

/// What is played in place is what a decoder reads.
void Compare(Bytes Input, const WavSource& Place, SoundFile& Sound) {
    constexpr std::int32_t MostFrames = 500;
    const auto Frames = static_cast<std::size_t>(std::min(Place.Frames, MostFrames));
    std::vector<double> Decoded(Frames * static_cast<std::size_t>(Place.Channels));
    const Bytes Samples = Input.subspan(static_cast<std::size_t>(Place.DataPos) - 1);
    Demand(Sound.Read(Decoded) == Frames, "there are as many frames as it says");
    for (std::size_t Index = 0; Index < Decoded.size(); ++Index) {
        Demand(Decoded[Index] == SampleAt(Samples, Place.Bits, Index),
               "the samples lie where they are played from");
    }
}

}  // namespace

void PlaceSound(Bytes Input) {
    const Descriptor File(memfd_create("sound", MFD_CLOEXEC));
    const auto Size = static_cast<std::int64_t>(Input.size());
    Demand(File.Get() >= 0 && write(File.Get(), Input.data(), Input.size()) == Size,
           "there is memory for the file");
    try {
        SoundFile Sound("/proc/self/fd/" + std::to_string(File.Get()));
        const auto Found = PlaceInFile(Sound);
        const auto* const Place = std::get_if<WavSource>(&Found);
        if (Place == nullptr) {
            Demand(!std::get<std::string>(Found).empty(), "it says why not");
            return;
        }
        Demand(Place->Bits == 8 || Place->Bits == 16, "8 or 16 bits");
        Demand(Place->Channels == 1 || Place->Channels == 2, "one or two channels");
        Demand(Place->Frames >= 0 && Place->DataPos >= 1, "there is no place before the file");
        const std::int64_t SampleBytes =
            std::int64_t{Place->Frames} * Place->Channels * Place->Bits / 8;
        Demand(Place->DataPos - 1 + SampleBytes <= std::max<std::int64_t>(Size, Place->DataPos - 1),
               "the samples lie within the file");
        if (Place->Frames > 0) Compare(Input, *Place, Sound);
    } catch (const RuntimeFailure& Cause) {
        Demand(*Cause.what() != '\0', "a refusal says why");
    }
}

}  // namespace Tolvar::Fuzz
