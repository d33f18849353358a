#include "store/SampleCodec.h"

#include <bit>
#include <cstddef>

namespace Tolvar {

static_assert(std::endian::native == std::endian::little, "files are read as they lie in memory");

namespace {

// The stride is a constant in each loop so that the compiler can turn them into vector code.
template <std::size_t Stride>
void FromWords(const std::int16_t* Raw, std::span<std::int16_t> Into) {
    for (std::size_t I = 0; I < Into.size(); ++I)
        Into[I] = Raw[I * Stride];
}

template <std::size_t Stride>
void FromBytes(const std::byte* Raw, std::span<std::int16_t> Into) {
    for (std::size_t I = 0; I < Into.size(); ++I) {
        Into[I] = static_cast<std::int16_t>(std::to_integer<int>(Raw[I * Stride]) - 128);
    }
}

}  // namespace

bool SampleLayout::IsKnown() const {
    return (Channels == 1 || Channels == 2) && (Bits == 8 || Bits == 16);
}

void SamplesFromFile(SampleLayout Layout, const std::byte* Raw, std::span<std::int16_t> Into) {
    if (Layout.Bits == 16) {
        const auto* const Words = reinterpret_cast<const std::int16_t*>(Raw);
        Layout.Channels == 1 ? FromWords<1>(Words, Into) : FromWords<2>(Words, Into);
    } else {
        Layout.Channels == 1 ? FromBytes<1>(Raw, Into) : FromBytes<2>(Raw, Into);
    }
}

}  // namespace Tolvar
