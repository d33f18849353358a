#pragma once

#include "host/PlayServer.h"
#include "waveplay/player/PlayerHost.h"
#include "waveplay/player/PortOver.h"

namespace Tolvar {

/// A player in this process, with everything that it lives on.
class LocalPlayer : public PlayerHost, private PortOver<PlayDllClass> {
  public:
    /// RuntimeFailure when the device cannot be had.
    explicit LocalPlayer(const PlayServerOptions& Options) : Server(Options) {}

    Apartment& Home() override { return Server.Home(); }
    PlayerPort& Port() override { return *this; }
    const PlayServer* Inside() const override { return &Server; }
    std::string WhyGone() const override { return {}; }
    void Finish() override { Server.Finish(); }

  private:
    PlayDllClass& It() override;
    void Release() override;

    PlayServer Server;
};

}  // namespace Tolvar
