#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <utility>

#include "platform/Clock.h"
#include "platform/EventSet.h"
#include "platform/Log.h"

namespace Tolvar {

/// The server thread's message loop: alarms, callbacks posted from other threads and readable
/// event sources, each run to completion on the apartment's thread, which is the one that calls
/// Run…. What a handler throws is written to the log and the loop goes on.
class Apartment {
  public:
    using Handler = std::function<void()>;

    /// An armed alarm; a default one names none.
    struct AlarmId {
        std::int64_t DueNs = 0;
        std::uint64_t Order = 0;
    };

    Apartment(Clock& Time, Log& Journal);
    ~Apartment();
    Apartment(const Apartment&) = delete;
    Apartment& operator=(const Apartment&) = delete;

    Clock& Time() const { return Time_; }

    /// Runs OnDue once, at DueNs or as soon after it as the loop runs. Alarms of one moment run in
    /// the order in which they were armed. Needs no memory when an alarm has run or was disarmed
    /// since the last Arm; std::bad_alloc otherwise arms nothing. Apartment's thread.
    AlarmId Arm(std::int64_t DueNs, Handler OnDue);

    /// Harmless when the alarm has run or names none. Apartment's thread.
    void Disarm(AlarmId& Alarm);

    /// Runs Call soon, after what was posted before it. Any thread; wakes the loop.
    void Post(Handler Call);

    /// Runs OnReadable whenever Source can be read without waiting (or has hung up), until Unwatch;
    /// instead of what an earlier Watch of it ran. The source stays the caller's. Apartment's
    /// thread.
    void Watch(EventSource Source, Handler OnReadable);
    void Unwatch(EventSource Source);

    /// Delivers everything up to and including DueNs (Forever: no bound), each at its own time,
    /// and returns once the clock has reached DueNs or Until (if given, asked after every
    /// delivery) holds. Returns what Until said last, false without it. Not entered twice.
    bool RunUntil(std::int64_t DueNs, const std::function<bool()>& Until = {});

    /// RunUntil a moment that lies Ms milliseconds ahead.
    void AdvanceBy(std::int64_t Ms);

    /// Lets Ms milliseconds pass without delivering anything: the thread sleeps.
    void Sleep(std::int64_t Ms);

  private:
    struct Impl;
    Clock& Time_;
    std::unique_ptr<Impl> Inner_;
};

/// A timer of a hidden form: ticks every Interval milliseconds while it is enabled. Ticks that
/// fall due while the thread is busy coalesce into one, and the phase stays. A one-shot is a timer
/// whose tick disables it. Apartment's thread only.
class Timer {
  public:
    Timer(Apartment& Home, std::int32_t IntervalMs);
    ~Timer();
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

    std::int32_t Interval() const { return IntervalMs_; }
    /// Milliseconds; 0 or less does not tick. Setting it on an enabled timer starts the count anew.
    void Interval(std::int32_t Ms);

    bool Enabled() const { return IsEnabled_; }
    /// Enabling starts a full interval; enabling an enabled timer changes nothing. std::bad_alloc
    /// leaves the timer disabled; one that ticks goes on ticking without memory.
    void Enabled(bool On);

    /// What a tick runs from now on; an empty handler lets ticks be lost.
    void Bind(Apartment::Handler OnTick) { Tick_ = std::move(OnTick); }

  private:
    void Arm(std::int64_t DueNs);
    void Due();

    Apartment& Home_;
    std::int32_t IntervalMs_;
    bool IsEnabled_ = false;
    Apartment::AlarmId Alarm_;
    Apartment::Handler Tick_;
};

}  // namespace Tolvar
