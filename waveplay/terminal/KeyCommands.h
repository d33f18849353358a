#pragma once

#include "waveplay/player/PlayerControl.h"
#include "waveplay/terminal/KeyDecoder.h"

namespace Tolvar {

/// What a key asks of the interface itself.
enum class KeyOutcome { Done, Quit, Help, Redraw };

/// Does to the player what the key stands for; a key that stands for nothing does nothing.
KeyOutcome Press(const Key& Pressed, PlayerControl& Player);

}  // namespace Tolvar
