#pragma once

#include <cstdint>
#include <string>

#include "waveplay/player/PlayerControl.h"
#include "waveplay/terminal/Peaks.h"

namespace Tolvar {

/// Everything that the screen shows.
struct View {
    int Width = 80;
    int Height = 24;
    bool Unicode = true;
    std::string Name;    ///< of the wave
    std::string Engine;  ///< of the player
    std::string Device;
    std::string Format;  ///< such as "44100 Hz stereo"
    PlayerControl::Facts Wave;
    Transport State = Transport::Stopped;
    std::int32_t Here = 0;  ///< frames before the cursor
    std::string LastReport;
    PlayerNote Note;
    bool Help = false;
    const Peaks* Overview = nullptr;  ///< none: no waveform; not owned
};

}  // namespace Tolvar
