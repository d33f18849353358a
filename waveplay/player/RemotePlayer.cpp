#include "waveplay/player/RemotePlayer.h"

#include <utility>

namespace Tolvar {

RemotePlayer::RemotePlayer(const std::optional<std::vector<std::string>>& Arguments,
                           const std::string& LogPath)
    : Journal_(LogPath), Loop_(Time_, Journal_), Client_(Translated([&] {
          return Arguments ? PlayDllClient::Start({.Arguments = *Arguments})
                           : PlayDllClient::OnSessionBus();
      })) {
    Client_.OnServerGone([this](const std::string& Text) {
        Why_ = Text;
        Unwatch();
    });
    WatchedFd_ = Client_.Descriptor();
    Loop_.Watch({WatchedFd_}, [this] { Client_.Dispatch(); });
}

RemotePlayer::~RemotePlayer() {
    Unwatch();
}

// A connection that has ended is readable for good.
void RemotePlayer::Unwatch() {
    Loop_.Unwatch({std::exchange(WatchedFd_, -1)});
}

void RemotePlayer::Release() {
    Unwatch();
    ServerExit_ = Translated([this] { return Client_.Release(); });
}

void RemotePlayer::Finish() {
    if (ServerExit_ == 0) return;
    throw RuntimeFailure(FailureKind::Device, "the playback server failed at its end (exit code " +
                                                  std::to_string(ServerExit_) + ")");
}

}  // namespace Tolvar
