#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace Tolvar {

/// Something of the operating system that a message loop can wait for: a file descriptor on POSIX,
/// an event's handle on Windows. Only the system below reads the number. It stays the caller's.
struct EventSource {
    std::intptr_t Handle = -1;

    bool operator==(const EventSource&) const = default;
};

/// What one message loop waits for beside the time. Abstract because each system waits in its own
/// way; Make is defined by the one that the program is built for. Only Wake may be called by any
/// thread, the rest belongs to the loop's.
class EventSet {
  public:
    /// A source that ended a wait.
    struct Ready {
        std::size_t Index;    ///< of it in what was waited for, from 0
        bool IsGone = false;  ///< it was closed while it was waited for
    };

    /// RuntimeFailure(Device) when the system gives no means to wait.
    static std::unique_ptr<EventSet> Make();

    virtual ~EventSet() = default;

    /// Ends the wait that is going on, or the next one if there is none.
    virtual void Wake() = 0;

    /// Waits for a Wake or until one of Sources can be read without waiting (or has hung up),
    /// BoundNs at the most (0: only looks; Forever: no bound). It may also return for no reason.
    /// Which sources were ready, until the next call. RuntimeFailure(Device) when it cannot wait.
    virtual std::span<const Ready> Wait(std::span<const EventSource> Sources,
                                        std::int64_t BoundNs) = 0;
};

}  // namespace Tolvar
