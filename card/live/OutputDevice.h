#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "card/frames/StreamFormat.h"

namespace Tolvar {

/// A real sound device: it is written to ahead of what is heard. Abstract because faulty ones
/// stand in for it in tests. Render thread only, but for TextOf. What fails answers the system's
/// error number, negated. No call should wait; LiveOutput outlives one that does.
class OutputDevice {
  public:
    virtual ~OutputDevice() = default;

    /// Wanted becomes the format that it takes, of 1 or 2 channels. It is to hold LatencyMs of
    /// sound at most. 0: open, and still.
    virtual int Open(StreamFormat& Wanted, int LatencyMs) = 0;

    /// Takes as many whole frames as there is room for, and plays them behind those that it holds.
    /// How many; -EPIPE: it had run dry, and plays again from the next Write on.
    virtual long Write(std::span<const std::int16_t> Samples) = 0;

    /// Frames taken and not yet heard; -EPIPE as Write.
    virtual long Held() = 0;

    /// Gives back, unheard, the frames that it took last: all but Keep of those that it could still
    /// give back, if they are Least or more and not more than Most. How many, or none.
    virtual long TakeBack(long Keep, long Least, long Most) = 0;

    /// What can still be kept from being heard is not heard any more, and the next Write plays at
    /// once. How many frames: fewer than Held where a part is on its way and will be heard.
    virtual long Drop() = 0;

    /// Harmless when it is not open.
    virtual void Close() = 0;

    /// What the system says of an error number. Any thread.
    virtual std::string TextOf(int Error) const = 0;
};

}  // namespace Tolvar
