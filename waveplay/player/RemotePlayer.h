#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/client/PlayDllClient.h"
#include "platform/Apartment.h"
#include "platform/posix/RealClock.h"
#include "platform/posix/TextLog.h"
#include "waveplay/player/PlayerHost.h"
#include "waveplay/player/PortOver.h"

namespace Tolvar {

/// A player in a server process, and a message loop on the wall clock that takes in its reports.
class RemotePlayer : public PlayerHost, private PortOver<PlayDllClient> {
  public:
    /// Arguments: what a server of this program's own is started with; none: the server on the
    /// session bus. LogPath: where this side's failures go, "" is standard error. RuntimeFailure
    /// when there is no server.
    RemotePlayer(const std::optional<std::vector<std::string>>& Arguments,
                 const std::string& LogPath);
    ~RemotePlayer() override;
    RemotePlayer(const RemotePlayer&) = delete;
    RemotePlayer& operator=(const RemotePlayer&) = delete;

    Apartment& Home() override { return Loop_; }
    PlayerPort& Port() override { return *this; }
    const PlayServer* Inside() const override { return nullptr; }
    std::string WhyGone() const override { return Why_; }
    void Finish() override;

  private:
    PlayDllClient& It() override { return Client_; }
    void Release() override;
    void Unwatch();

    RealClock Time_;
    TextLog Journal_;
    Apartment Loop_;
    PlayDllClient Client_;
    int WatchedFd_ = -1;
    int ServerExit_ = 0;
    std::string Why_;
};

}  // namespace Tolvar
