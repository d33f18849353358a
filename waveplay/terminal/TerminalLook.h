#pragma once

#include <functional>

#include "waveplay/terminal/Painter.h"

namespace Tolvar {

/// What may be sent to the terminal, by the environment's word.
struct TerminalLook {
    Palette Colours = Palette::Sixteen;
    bool Unicode = true;
    bool CanMove = true;  ///< false: it can only write lines
};

/// Variable gives the value of an environment variable, null when it is not set.
TerminalLook LookFrom(const std::function<const char*(const char* Name)>& Variable);

}  // namespace Tolvar
