#pragma once

#include <algorithm>
#include <cstdint>

#include "platform/Checked.h"

namespace Tolvar {

/// Noise for dithering, triangular over -1..1, a function of the place alone: any run and any cut
/// of a wave gets the same noise at the same frame.
inline double DitherNoise(std::int64_t Frame, std::size_t Channel) {
    auto Bits = (static_cast<std::uint64_t>(Frame) * 2 + Channel + 1) * 0x9E3779B97F4A7C15U;
    Bits = (Bits ^ (Bits >> 30U)) * 0xBF58476D1CE4E5B9U;
    Bits = (Bits ^ (Bits >> 27U)) * 0x94D049BB133111EBU;
    Bits ^= Bits >> 31U;
    constexpr double Span = 4294967296.0;
    return (static_cast<double>(Bits >> 32U) - static_cast<double>(Bits & 0xFFFFFFFFU)) / Span;
}

/// A sample of full scale 1, with Noise in units of the last bit, as 16 bits; peaks beyond full
/// scale saturate, and what is no number is silence.
inline std::int16_t Quantise(double Sample, double Noise) {
    const double Scaled = Sample * 32768 + Noise;
    if (Scaled != Scaled) return 0;
    return static_cast<std::int16_t>(Round32(std::clamp(Scaled, -32768.0, 32767.0)));
}

}  // namespace Tolvar
