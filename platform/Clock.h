#pragma once

#include <cstdint>
#include <functional>

namespace Tolvar {

inline constexpr std::int64_t NsPerMs = 1'000'000;
inline constexpr std::int64_t NsPerSecond = 1'000'000'000;
inline constexpr std::int64_t Forever = INT64_MAX;

/// The time that one apartment lives in. It owns waiting, so that the same loop runs in real
/// time and in virtual time. Abstract because tests, benchmarks and rendering jump.
class Clock {
  public:
    /// Waits for something to happen, BoundNs at the most (Forever: no bound); true: it has.
    using EventWait = std::function<bool(std::int64_t BoundNs)>;

    virtual ~Clock() = default;

    /// Nanoseconds since the clock was made; never runs backward. Any thread.
    virtual std::int64_t NowNs() const = 0;

    /// Time of day in seconds since midnight, 0 <= s < 86400. Any thread.
    virtual double SecondsSinceMidnight() const = 0;

    /// Returns once NowNs() >= DueNs (Forever: no bound) or, sooner, when Events says that
    /// something has happened. The virtual clock sets its time to DueNs and does not ask Events;
    /// it must not be given Forever. Apartment's thread only.
    virtual void WaitUntil(std::int64_t DueNs, const EventWait& Events) = 0;
};

}  // namespace Tolvar
