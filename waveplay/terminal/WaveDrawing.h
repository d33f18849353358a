#pragma once

#include "waveplay/terminal/Grid.h"
#include "waveplay/terminal/View.h"

namespace Tolvar {

/// The overview over the grid's whole width: above the middle what is greater than 0, below it
/// what is less, with what has been played and the cursor marked. One row alone shows how loud it
/// is. Rows of 0 draws nothing.
void DrawWave(Grid& On, const View& Shown, int Top, int Rows);

/// Times along the wave.
void DrawRuler(Grid& On, const View& Shown, int Row);

/// The column of the cursor.
int CursorColumn(const View& Shown, int Width);

}  // namespace Tolvar
