#pragma once

#include <cstdint>

#include "state/PlayDllMod.h"

namespace Tolvar {

/// Puts the next frames of the wave, up to SegFrames of them in the current direction, into the
/// segment's half of StreamBuff (1: from element 1, 2: from element SegSamples + 1, any other
/// value as 1), moves FillNextPos past them and sets SegFilled, SegFilledBytes and LastSegMs. The
/// rest of that half is silence; the other half is not touched.
///
/// True when at least one frame was delivered; false at the wave's end (SegFilled 0, LastSegMs 1)
/// or when PlayDirection is neither +1 nor -1. RuntimeFailure of a read or of checked arithmetic
/// leaves FillNextPos where it was, and the half silent. Apartment's thread; not
/// entered twice at once.
bool StreamBuffFill(PlayerState& State, std::int32_t Segment);

}  // namespace Tolvar
