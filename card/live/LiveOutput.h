#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "card/live/LivePump.h"

namespace Tolvar {

/// Plays one source at a time on a real device, and keeps the listener's time: the clock's while
/// nothing plays, and during a run the time that the frames heard so far take. So a position that
/// is computed from it is what is heard, whatever the device holds, and it never runs backward.
///
/// A device that fails, or stands still, is said once; the listener's time then goes on with the
/// clock, in silence, until the device can be had again. It is open only while a source has
/// not been cut, and a moment longer.
///
/// A thread of its own, at real-time priority where the system grants it, talks to the device; it
/// never waits for the apartment but for as long as Hold is kept. All members are the apartment's.
class LiveOutput {
  public:
    /// ByHand: there is no thread, and whoever made it calls Turn.
    enum class Driving { OwnThread, ByHand };

    LiveOutput(std::unique_ptr<OutputDevice> Device, const Clock& Time, LiveOptions Options,
               Driving How = Driving::OwnThread);
    /// Waits a second at most for a device that does not come back, and leaves it behind then.
    ~LiveOutput();
    LiveOutput(const LiveOutput&) = delete;
    LiveOutput& operator=(const LiveOutput&) = delete;

    /// The listener's time.
    std::int64_t NowNs() { return Pump_->NowNs(); }

    /// Plays, instead of whatever played before. Its first frame is heard from the listener's time
    /// on that it returns.
    std::int64_t Begin(const LiveRun& Wanted) { return Pump_->Begin(Wanted); }

    /// Nothing more of Source is heard or read when it returns. The listener's time at that
    /// moment; NowNs when Source does not play. A fifth of a second at most.
    std::int64_t Cut(const FrameSource& Source);

    /// While it is kept, nothing is read from a source. Keep it as long as a copy takes.
    [[nodiscard]] std::unique_lock<InheritingMutex> Hold() { return Pump_->Hold(); }

    /// A source that had no more frames has more.
    void Wake() { Pump_->Wake(); }

    /// What has happened since the last call, a line each; mostly nothing.
    std::vector<std::string> TakeNotices() { return Pump_->TakeNotices(); }

    /// Driven by hand: a round of what the thread would do; nanoseconds until the next is due.
    std::int64_t Turn();

  private:
    std::shared_ptr<LivePump> Pump_;  // also of a thread that had to be left behind
    std::thread Thread_;              // none: driven by hand
};

}  // namespace Tolvar
