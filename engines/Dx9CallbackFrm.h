#pragma once

#include <memory>

#include "platform/Apartment.h"
#include "server/PlayDllMod.h"

namespace Tolvar {

/// The hidden form "Dx9 Callback": hosts the DirectSound 9 engine's refill poll, one per
/// apartment.
struct Dx9CallbackFrm {
    explicit Dx9CallbackFrm(Apartment& Home) : Dx9Timer(Home, 100) {}

    Timer Dx9Timer;

    /// The apartment's instance, made by the first engine that asks.
    static Dx9CallbackFrm& Shared(PlayerState& State, Apartment& Home) {
        if (!State.Dx9Callback) State.Dx9Callback = std::make_shared<Dx9CallbackFrm>(Home);
        return *State.Dx9Callback;
    }
};

}  // namespace Tolvar
