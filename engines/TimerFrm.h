#pragma once

#include "platform/Apartment.h"

namespace Tolvar {

/// The hidden form that hosts the engines' timers, one per apartment. An engine sets the interval
/// of Timer0 before it enables it; nobody changes that of Timer2.
struct TimerFrm {
    explicit TimerFrm(Apartment& Home) : Timer0(Home, 1), Timer1(Home, 1), Timer2(Home, 40) {}

    Timer Timer0;  ///< the end-of-play countdown of every engine
    Timer Timer1;  ///< no engine's
    Timer Timer2;  ///< the waveOut engine's 40 ms poll
};

}  // namespace Tolvar
