#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Apartment.h"
#include "platform/Clock.h"
#include "platform/ConsoleMessageBox.h"
#include "platform/PosixFiles.h"
#include "platform/ServiceLoader.h"
#include "platform/Sink.h"
#include "platform/SoundCard.h"
#include "platform/System.h"
#include "platform/TextLog.h"
#include "platform/WaveOutDevice.h"
#include "server/PlayDllClass.h"
#include "server/PlayDllMod.h"
#include "store/WoroFileBlockMod.h"
#include "waveplay/Interrupts.h"

namespace Tolvar {

/// What one session is set up with, whatever the command.
struct SessionOptions {
    bool VirtualClock = false;
    std::string Device = "null";  ///< as MakeSink takes it
    SinkRate Rate = {};
    EngineOrder Engine = EngineOrder::Auto;
    std::string LogPath = {};  ///< "" = standard error
    /// Takes the device's sink and gives the one that the card plays to; none: the sink itself.
    std::function<std::unique_ptr<Sink>(std::unique_ptr<Sink>)> Through = {};
};

/// A player object with everything that it lives on, in this process: the editor's side of one
/// session. Apartment's thread only, which is the one that made it.
class Session {
  public:
    using BoxHandler = std::function<void(std::string_view Text)>;

    /// RuntimeFailure when the log or the device cannot be had. An empty OnBox shows message
    /// boxes on standard error and in the log.
    explicit Session(const SessionOptions& Options, BoxHandler OnBox = {});
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// RuntimeFailure(Input) once the player has been let go.
    PlayDllClass& Player();
    bool HasPlayer() const { return Object != nullptr; }

    /// The editor lets go: its reports still come, then the player is gone. Once.
    void Release();

    const PlayerState& State() const { return Shared; }
    const WoroFileBlockMod& Store() const { return Blocks; }
    Apartment& Home() { return Loop; }

    /// Frames of the wave that pass in a second of the current run, before it is resampled.
    std::int32_t PlayedHz() const;

    /// Nanoseconds since the session began.
    std::int64_t NowNs() const { return Time->NowNs() - BeganNs; }

    /// As Apartment::RunUntil with a moment that lies Ms ahead (none: no bound), but returns true
    /// at once when Until already holds, and returns early when the user interrupts.
    bool RunFor(std::optional<std::int64_t> Ms, const std::function<bool()>& Until = {});

    bool Interrupted() { return Watching && Watching->Seen(); }

    /// Everything heard is on its medium when it returns; RuntimeFailure when some of it was lost.
    /// Signals end the program again from here on. At most once.
    void Finish();

  private:
    std::unique_ptr<Clock> Time;
    std::int64_t BeganNs;
    TextLog Journal;
    Apartment Loop;
    PosixFiles FileLayer;
    std::unique_ptr<MessageBox> Box;
    SoundCard Card;
    std::unique_ptr<Interrupts> Watching;  // after the card: a pipe may wait for its reader
    WaveOutDevice Device;
    DlServiceLibrary Service;
    PlayerState Shared;
    WoroFileBlockMod Blocks;
    System Parts;
    std::unique_ptr<PlayDllClass> Object;
};

}  // namespace Tolvar
