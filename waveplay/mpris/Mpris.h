#pragma once

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <memory>
#include <string>

#include "platform/Apartment.h"
#include "waveplay/mpris/MprisObject.h"

namespace Tolvar {

/// "file://…" of a path, which need not exist.
std::string FileUrl(const std::string& Path);

/// The player as media keys, desktops and playerctl know players: an MPRIS 2 object on the user's
/// session bus, under a name with this process's id. Without a bus, or when the bus refuses or goes
/// away, it does nothing and says nothing: a remote control is never a reason not to play.
///
/// Calls are served in the apartment's message loop, on its thread. Remote controls know nothing of
/// a reverse run, so during one the position is told anew every second.
class Mpris {
  public:
    /// Home and Player outlive it, and Player does nothing more once it is gone. OnQuit: somebody
    /// wants the program to end.
    Mpris(Apartment& Home, PlayerControl& Player, MprisFacts Facts, std::function<void()> OnQuit);
    ~Mpris();
    Mpris(const Mpris&) = delete;
    Mpris& operator=(const Mpris&) = delete;

  private:
    struct Unref {
        void operator()(sd_event* Held) const { sd_event_unref(Held); }
        void operator()(sd_bus* Held) const { sd_bus_close_unref(Held); }
    };
    /// What is told when it changes.
    struct Told {
        std::string Status;
        bool Loop = false;
        double Rate = 1;
    };

    bool Connect();
    void Serve();
    void Changed(PlayerControl::Change What);
    void Tell();
    void TellChanges();
    void TellPosition();
    Told Now() const;

    Apartment& Home_;
    PlayerControl& Player_;
    MprisObject Object_;
    std::unique_ptr<sd_event, Unref> Events_;
    std::unique_ptr<sd_bus, Unref> Bus_;
    Apartment::AlarmId Telling_;
    Timer EachSecond_;
    bool Jumped_ = false;
    Told Last_;
};

}  // namespace Tolvar
