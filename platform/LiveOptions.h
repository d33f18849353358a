#pragma once

namespace Tolvar {

struct LiveOptions {
    int LatencyMs = 60;  ///< of sound that the device is given ahead
    int FadeMs = 5;      ///< of the ramps at the edges of what is played; 0: none
};

}  // namespace Tolvar
