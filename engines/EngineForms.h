#pragma once

#include "engines/Dx9CallbackFrm.h"
#include "engines/TimerFrm.h"

namespace Tolvar {

/// The hidden forms of one apartment, whose timers its engines share. Apartment's thread only.
struct EngineForms {
    explicit EngineForms(Apartment& Home) : Timers(Home), Dx9Callback(Home) {}

    TimerFrm Timers;
    Dx9CallbackFrm Dx9Callback;
};

}  // namespace Tolvar
