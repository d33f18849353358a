#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "host/PlayServer.h"
#include "host/dbus/Interrupts.h"
#include "waveplay/player/PlayerHost.h"

namespace Tolvar {

/// Where a command finds its player.
enum class Connection {
    Private,    ///< a server process of its own
    Bus,        ///< the server on the user's session bus
    InProcess,  ///< none: the player object itself
};

/// What one session is set up with, whatever the command.
struct SessionOptions {
    Connection To = Connection::Private;
    bool VirtualClock = false;  ///< then it is in process whatever To says
    // A server on the bus has settings of its own instead of these.
    std::string Device = "null";  ///< as MakeOutput takes it
    OutputOptions Output = {};
    std::string Rate = "wave";    ///< as SinkRateOf takes it
    std::string Engine = "auto";  ///< as EngineOrderOf takes it
    std::string LogPath = {};     ///< "" = standard error

    bool IsInProcess() const { return VirtualClock || To == Connection::InProcess; }
};

/// What the options mean for a player in this process.
PlayServerOptions LocalSetup(const SessionOptions& Options);

/// The player that the options ask for. RuntimeFailure when there is no server or no device. In
/// process OnBox answers the message boxes; a server shows them on its own standard error, which
/// is this program's for one of its own.
std::unique_ptr<PlayerHost> MakePlayer(const SessionOptions& Options,
                                       std::function<void(std::string_view Text)> OnBox = {});

/// The editor's side of one session: a player, the time since the beginning and the user's
/// interrupts. Apartment's thread only, which is the one that made it.
class Session {
  public:
    explicit Session(std::unique_ptr<PlayerHost> Found);

    /// RuntimeFailure from every member once the player has been let go or is gone.
    PlayerPort& Player() { return Host_->Port(); }
    bool HasPlayer() const { return !Released_ && !Lost(); }
    /// The player is gone although nobody let go of it.
    bool Lost() const { return !Host_->WhyGone().empty(); }
    const PlayServer* Inside() const { return Host_->Inside(); }
    Apartment& Home() { return Host_->Home(); }

    /// The editor lets go: its reports still come, then the player is gone. Once.
    void Release();

    /// Nanoseconds since the session began.
    std::int64_t NowNs() const { return Host_->Home().Time().NowNs() - BeganNs_; }

    /// As Apartment::RunUntil with a moment that lies Ms ahead (none: no bound), but returns true
    /// at once when Until already holds, and returns early when the user interrupts.
    /// RuntimeFailure as soon as the player is Lost.
    bool RunFor(std::optional<std::int64_t> Ms, const std::function<bool()>& Until = {});

    /// The user wants an end. True for good, after Finish as well.
    bool Interrupted() { return WasInterrupted_ || (Watching_ && Watching_->Seen()); }

    /// Everything heard is on its medium when it returns, also when a signal comes meanwhile;
    /// RuntimeFailure when some of it was lost. Signals end the program again from then on, and
    /// already while a recording is copied to a stream, whose reader may never come. At most once.
    void Finish();

  private:
    void RequirePlayer() const;

    std::unique_ptr<PlayerHost> Host_;
    std::int64_t BeganNs_;
    std::unique_ptr<Interrupts> Watching_;  // after the device: a pipe may wait for its reader
    bool Released_ = false;
    bool WasInterrupted_ = false;
};

}  // namespace Tolvar
