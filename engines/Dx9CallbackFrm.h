#pragma once

#include "platform/Apartment.h"

namespace Tolvar {

/// The hidden form "Dx9 Callback": hosts the DirectSound 9 engine's refill poll, one per
/// apartment.
struct Dx9CallbackFrm {
    explicit Dx9CallbackFrm(Apartment& Home) : Dx9Timer(Home, 100) {}

    Timer Dx9Timer;
};

}  // namespace Tolvar
