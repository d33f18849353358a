#pragma once

#include <functional>
#include <memory>
#include <string>

#include "waveplay/commands/Commands.h"
#include "waveplay/mpris/Mpris.h"

namespace Tolvar {

/// What people call the wave: its one file, or the first piece and how many more.
std::string TitleOf(const std::vector<std::string>& Pieces);

/// The play on the session bus, for media keys and desktops; null on the virtual clock, which
/// nobody could follow. Playing and Player outlive it. OnQuit: somebody wants the program to end.
std::unique_ptr<Mpris> OfferMediaControls(Session& Playing, PlayerControl& Player,
                                          const PlayOptions& Options, std::function<void()> OnQuit);

}  // namespace Tolvar
