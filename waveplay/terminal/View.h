#pragma once

#include <cstdint>
#include <string>

#include "waveplay/player/PlayerControl.h"
#include "waveplay/terminal/Peaks.h"

namespace Tolvar {

/// Everything that the screen shows, as values: Screen draws it and asks nobody.
struct View {
    int Width = 80;       ///< columns, 0 or more
    int Height = 24;      ///< rows, 0 or more
    bool Unicode = true;  ///< false: ASCII alone
    std::string Name;     ///< of the wave; UTF-8, as all texts here, and cut where it is too long
    std::string Engine;   ///< of the player
    std::string Device;
    std::string Format;  ///< such as "44100 Hz 16 bit stereo"
    PlayerControl::Facts Wave;
    Transport State = Transport::Stopped;
    std::int32_t Here = 0;  ///< frames before the cursor
    std::string LastReport;
    PlayerNote Note;
    bool Help = false;                ///< the keys in a box over everything else
    const Peaks* Overview = nullptr;  ///< null: no waveform; outlives the view
};

}  // namespace Tolvar
