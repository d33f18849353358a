#pragma once

#include <cstdint>
#include <span>

struct pollfd;

namespace Tolvar {

inline constexpr std::int64_t NsPerMs = 1'000'000;
inline constexpr std::int64_t NsPerSecond = 1'000'000'000;
inline constexpr std::int64_t Forever = INT64_MAX;

/// The time that one apartment lives in. It owns waiting, so that the same loop runs in real
/// time and in virtual time. Abstract because tests, benchmarks and rendering jump.
class Clock {
  public:
    virtual ~Clock() = default;

    /// Nanoseconds since the clock was made; never runs backward. Any thread.
    virtual std::int64_t NowNs() const = 0;

    /// Time of day in seconds since midnight, 0 <= s < 86400. Any thread.
    virtual double SecondsSinceMidnight() const = 0;

    /// Returns once NowNs() >= DueNs (Forever: no bound) or, sooner, when one of Fds has an event
    /// (its revents are then set). The virtual clock sets its time to DueNs and looks at no
    /// descriptor; it must not be given Forever. Apartment's thread only.
    virtual void WaitUntil(std::int64_t DueNs, std::span<pollfd> Fds) = 0;
};

}  // namespace Tolvar
