#include "waveplay/player/LocalPlayer.h"

namespace Tolvar {

PlayDllClass& LocalPlayer::It() {
    if (!Server.HasPlayer()) {
        throw RuntimeFailure(FailureKind::Input, "the player object has been released");
    }
    return Server.Player();
}

void LocalPlayer::Release() {
    It();
    Server.Release();
}

}  // namespace Tolvar
