#pragma once

namespace Tolvar {

struct LiveOptions {
    int LatencyMs = 60;                  ///< of sound that the device is given ahead
    int FadeMs = 5;                      ///< of the ramps at the edges of what is played; 0: none
    static constexpr int SlackMs = 200;  ///< that a device with buffers of its own may hold beyond
};

}  // namespace Tolvar
