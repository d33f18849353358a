#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "host/PlayServer.h"
#include "host/dbus/EventSink.h"
#include "host/dbus/wire/BusLink.h"
#include "host/dbus/wire/NameWatch.h"

namespace Tolvar {

/// A player object on the wire: serves one editor from its first call to its end. Calls are
/// served one by one in the order in which they came, between the apartment's timers; those that
/// come while a report is out inside the call that reports. Apartment's thread only.
class Host {
  public:
    /// Server stays the caller's and lives longer. A link to the session bus: anybody who is the
    /// same user may look, one at a time may command. SinkLimitMs: how long a report waits.
    Host(PlayServer& Server, std::unique_ptr<BusLink> Link, bool OnBus,
         std::int64_t SinkLimitMs = Wire::SinkLimitMs);
    ~Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    /// Takes the server's name on the session bus. RuntimeFailure when another has it.
    void TakeName();

    /// The editor has let go or is gone and so is the player object: the process is to end.
    bool Finished() const { return IsFinished_; }

    /// Lets go in the editor's place.
    void End();

    /// Has the apartment look at the connection soon; for a clock that watches no descriptor.
    void TurnLater();

  private:
    void Turn();
    void Report(std::string_view Msg, std::string_view Ttl);
    void WatchTime();
    void ServeSince(std::uint64_t Before, std::uint64_t Report);
    void Serve(sd_bus_message* Call);
    void RefuseOrEnd(sd_bus_message* Call, const char* Name, std::string_view Text) noexcept;
    void Carry(sd_bus_message* Call);
    void CarryHosting(sd_bus_message* Call);
    void Answer(sd_bus_message* Call);
    void Advise(sd_bus_message* Call);
    void Release(sd_bus_message* Call);
    void Admit(sd_bus_message* Call);
    void RequireOwnUser(const std::string& Sender);
    void Disown();
    void OnOwnerGone();
    void LeaveName();
    void AnswerTheRest();

    PlayServer& Server_;
    std::unique_ptr<BusLink> Link_;
    const bool OnBus_;
    EventSink Sink_;
    std::unique_ptr<NameWatch> OwnerWatch_;  // null: nobody commands
    std::string Owner_;                      // on the bus: who commands; "": nobody
    std::string OwnUser_;                    // on the bus: who was found to be the same user last
    Apartment::AlarmId Due_;
    bool TurnIsDue_ = false;
    int Depth_ = 0;            // calls on the stack
    bool ReleaseDue_ = false;  // no member may be called any more
    bool IsFinished_ = false;
    std::shared_ptr<Host*> Self_;  // for posts that outlive this: null then
};

}  // namespace Tolvar
