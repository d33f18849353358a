#pragma once

#include "host/PlayServer.h"
#include "waveplay/player/PlayerHost.h"
#include "waveplay/player/PortOver.h"

namespace Tolvar {

/// A player in this process, with everything that it lives on.
class LocalPlayer : public PlayerHost, private PortOver<PlayDllClass> {
  public:
    /// RuntimeFailure when the device cannot be had.
    explicit LocalPlayer(const PlayServerOptions& Options) : Server_(Options) {}

    Apartment& Home() override { return Server_.Home(); }
    PlayerPort& Port() override { return *this; }
    const PlayServer* Inside() const override { return &Server_; }
    std::string WhyGone() const override { return {}; }
    void Finish() override { Server_.Finish(); }

  private:
    PlayDllClass& It() override;
    void Release() override;

    PlayServer Server_;
};

}  // namespace Tolvar
