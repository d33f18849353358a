#pragma once

#include <memory>

#include "card/voices/SoundCard.h"
#include "platform/Log.h"

namespace Tolvar {

/// What the audio service library works on: one server's card, and the library's own state for
/// it, so that servers of one process do not meet. Apartment's thread only.
struct ServiceHost {
    struct State {
        virtual ~State() = default;
    };

    SoundCard& Card;
    Log& Journal;
    /// Made and read by the library alone; null until it has one. Its code is the library's, so
    /// it goes before the library does.
    std::unique_ptr<State> Held;

    /// The host that calls of this thread mean; null: none.
    static ServiceHost* Current();
    static void MakeCurrent(ServiceHost* Host);
};

}  // namespace Tolvar
