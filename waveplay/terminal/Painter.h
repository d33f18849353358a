#pragma once

#include <string>

#include "waveplay/terminal/Grid.h"

namespace Tolvar {

enum class Palette {
    None,     ///< weight and inversion alone
    Sixteen,  ///< the terminal's own colours
    Many,     ///< 256 of them
};

/// The bytes that turn a terminal showing From into one showing To: only the cells that differ. A
/// value, where curses would write them itself, so that Terminal can keep what is not taken yet.
/// Empty when none does. From of another size counts as unknown, and everything is painted anew.
std::string Painted(const Grid& From, const Grid& To, Palette Colours);

}  // namespace Tolvar
