#include "waveplay/player/LocalPlayer.h"

namespace Tolvar {

PlayDllClass& LocalPlayer::It() {
    if (!Server_.HasPlayer()) {
        throw RuntimeFailure(FailureKind::Input, "the player object has been released");
    }
    return Server_.Player();
}

void LocalPlayer::Release() {
    It();
    Server_.Release();
}

}  // namespace Tolvar
