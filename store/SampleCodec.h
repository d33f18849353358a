#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace Tolvar {

/// How the samples of one channel lie in a file: the value of the channel in every frame, 8 bits
/// unsigned around 128 or 16 bits signed, low byte first.
struct SampleLayout {
    std::int32_t Channels;
    std::int32_t Bits;

    /// Channels 1 or 2 and bits 8 or 16; nothing else can be read.
    bool IsKnown() const;
    bool operator==(const SampleLayout&) const = default;

    std::int64_t FrameBytes() const { return std::int64_t{Channels} * (Bits / 8); }

    /// Bytes from the first of Samples samples to the end of the last one, 1 or more. The other
    /// channel's value in the last frame is not among them: it may be missing in the file.
    std::int64_t SpanBytes(std::int64_t Samples) const {
        return (Samples - 1) * FrameBytes() + Bits / 8;
    }

    /// The bytes are the samples as they lie in memory.
    bool IsPlain() const { return Channels == 1 && Bits == 16; }
};

inline constexpr SampleLayout WorkFileLayout{1, 16};

/// Raw: SpanBytes(Into.size()) bytes of a known layout, aligned for the samples. 8-bit values are
/// not rescaled: -128..127.
void SamplesFromFile(SampleLayout Layout, const std::byte* Raw, std::span<std::int16_t> Into);

}  // namespace Tolvar
