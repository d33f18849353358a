#pragma once

#include "waveplay/terminal/Grid.h"

namespace Tolvar {

/// The keys in one row, as many as it has room for.
void DrawHints(Grid& On, int Row);

/// All keys in a box over the middle of the screen.
void DrawHelp(Grid& On);

}  // namespace Tolvar
