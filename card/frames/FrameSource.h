#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace Tolvar {

/// What a live output reads ahead of the listener.
class FrameSource {
  public:
    virtual ~FrameSource() = default;

    /// Copies whole frames from Frame on, as the source counts them; how many: fewer than there is
    /// room for only when no more are there yet. Render thread, while LiveOutput::Hold keeps the
    /// apartment away: it waits for nothing and allocates nothing.
    virtual std::size_t ReadAhead(std::int64_t Frame, std::span<std::int16_t> Into) noexcept = 0;
};

}  // namespace Tolvar
