#include "waveplay/player/RemotePlayer.h"

#include <utility>

namespace Tolvar {
namespace {

// Less than an editor would grant: somebody sits before the terminal and has pressed Ctrl-C.
constexpr int LimitMs = 10'000;

}  // namespace

RemotePlayer::RemotePlayer(const std::optional<std::vector<std::string>>& Arguments,
                           const std::string& LogPath)
    : Journal(LogPath), Loop(Time, Journal), Client(Translated([&] {
          return Arguments ? PlayDllClient::Start({.Arguments = *Arguments, .LimitMs = LimitMs})
                           : PlayDllClient::OnSessionBus(LimitMs);
      })) {
    Client.OnServerGone([this](const std::string& Text) {
        Why = Text;
        Unwatch();
    });
    WatchedFd = Client.Descriptor();
    Loop.Watch({WatchedFd}, [this] { Client.Dispatch(); });
}

RemotePlayer::~RemotePlayer() {
    Unwatch();
}

// A connection that has ended is readable for good.
void RemotePlayer::Unwatch() {
    Loop.Unwatch({std::exchange(WatchedFd, -1)});
}

void RemotePlayer::Release() {
    Unwatch();
    ServerExit = Translated([this] { return Client.Release(); });
}

void RemotePlayer::Finish() {
    if (ServerExit == 0) return;
    throw RuntimeFailure(FailureKind::Device, "the playback server failed at its end (exit code " +
                                                  std::to_string(ServerExit) + ")");
}

}  // namespace Tolvar
