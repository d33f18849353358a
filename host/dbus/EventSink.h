#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "host/dbus/wire/BusLink.h"
#include "platform/Log.h"

namespace Tolvar {

/// The editor's sink for MsgBoxOb at the other end of the link. Apartment's thread only.
class EventSink {
  public:
    /// Serves the calls that came after the first Before ones, until the answer to Report is there.
    using CallServer = std::function<void(std::uint64_t Before, std::uint64_t Report)>;

    /// Link and Journal stay the caller's.
    EventSink(BusLink& Link, Log& Journal, std::int64_t LimitMs, CallServer ServeSince);
    ~EventSink();
    EventSink(const EventSink&) = delete;
    EventSink& operator=(const EventSink&) = delete;

    /// Reports go to the object at Path of the peer called Destination ("": the only one).
    void Advise(const std::string& Destination, const std::string& Path);
    /// Nobody is told any more.
    void Forget() { Path_.clear(); }
    bool Advised() const { return !Path_.empty(); }
    /// Whether a report is out now.
    bool Raising() const { return Out_ > 0; }

    /// Tells the sink and waits until it has answered. Calls that have come by now wait behind
    /// the one that reports; calls that come meanwhile are taken for the sink's own and served at
    /// once, but not those that are still there when its answer is. An answer that is an error is
    /// logged. A sink that does not answer within LimitMs (its own calls not counted, but 10
    /// seconds at the most) is dropped: it is told nothing more until it answers after all or is
    /// advised anew. Without a sink, or with a dropped one, the report is a signal for whoever
    /// listens. Returns at once when the peer is gone.
    void Raise(std::string_view Msg, std::string_view Ttl);

  private:
    bool Listening() const { return Advised() && !Dropped_; }
    void Tell(std::string_view Msg, std::string_view Ttl);
    void Signal(std::string_view Msg, std::string_view Ttl);
    BusLink::Wakening AwaitAnswer(std::uint64_t Cookie, Message& Answer);
    void OnLateAnswer(std::uint64_t Cookie);

    BusLink& Link_;
    Log& Journal_;
    std::int64_t LimitNs_;
    CallServer ServeSince_;
    std::string Destination_;
    std::string Path_;  // "": no sink
    bool Dropped_ = false;
    int Out_ = 0;  // reports that are not answered yet, each inside the one before
    std::uint64_t UnansweredCookie_ = 0;  // of the report for which it was dropped
};

}  // namespace Tolvar
