#pragma once

#include <cstdint>
#include <string>

#include "waveplay/terminal/Grid.h"
#include "waveplay/terminal/View.h"

namespace Tolvar {

/// The screen that shows a view: the same view gives the same screen. Made for 20 x 3 and more; on
/// less, what does not fit is cut off.
Grid Screen(const View& Shown);

/// h:mm:ss.t, rounded down to tenths.
std::string TimeText(std::int64_t Frames, std::int32_t FmtFriq);

}  // namespace Tolvar
