#pragma once

#include "waveplay/commands/Commands.h"
#include "waveplay/player/Session.h"
#include "waveplay/terminal/HeldErrors.h"
#include "waveplay/wave/Pieces.h"

namespace Tolvar {

/// Whether standard output is a terminal that can show the player.
bool CanPlayOnTerminal();

/// Plays the wave with the terminal interface: picture and keys, and the lines that Errors, if
/// any, holds back. False when the user interrupted. RuntimeFailure when the wave cannot be started
/// or the player is lost.
bool PlayOnTerminal(Session& Playing, const Wave& Whole, const PlayOptions& Options,
                    HeldErrors* Errors);

}  // namespace Tolvar
