#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "card/devices/ServiceLoader.h"
#include "card/devices/WaveOutDevice.h"
#include "card/voices/CardOutput.h"
#include "card/voices/SoundCard.h"
#include "platform/Apartment.h"
#include "platform/Clock.h"
#include "platform/MessageBox.h"
#include "platform/System.h"
#include "platform/posix/PosixFiles.h"
#include "platform/posix/TextLog.h"
#include "server/PlayDllClass.h"
#include "state/PlayDllMod.h"
#include "store/WoroFileBlockMod.h"

namespace Tolvar {

/// What a player object is set up with.
struct PlayServerOptions {
    bool VirtualClock = false;    ///< time jumps, and descriptors are not watched
    std::string Device = "null";  ///< as MakeOutput takes it
    OutputOptions Output = {};
    SinkRate Rate = {};
    EngineOrder Engine = EngineOrder::Auto;
    std::string LogPath = {};  ///< "": standard error
    /// Answers the message boxes; none: they are shown on standard error and in the log.
    std::function<void(std::string_view Text)> OnBox = {};
    /// Takes the device's sink and gives the one that the card plays to; none: the sink itself.
    std::function<std::unique_ptr<Sink>(std::unique_ptr<Sink>)> Through = {};
};

/// SinkRate of "wave", "native" or a rate of 100 to 384000 Hz; RuntimeFailure(Input) otherwise.
SinkRate SinkRateOf(const std::string& Word);

/// EngineOrder of "auto", "dx9", "dx7" or "waveout"; RuntimeFailure(Input) otherwise.
EngineOrder EngineOrderOf(const std::string& Word);

/// A player object with everything that it lives on. One thread: the one that made
/// it is its apartment's.
class PlayServer {
  public:
    /// RuntimeFailure when the device cannot be had.
    explicit PlayServer(const PlayServerOptions& Options);
    ~PlayServer();
    PlayServer(const PlayServer&) = delete;
    PlayServer& operator=(const PlayServer&) = delete;

    /// Until Release.
    PlayDllClass& Player() { return *Object_; }
    const PlayDllClass& Player() const { return *Object_; }
    bool HasPlayer() const { return Object_ != nullptr; }
    const PlayerState& State() const { return Shared_; }
    const WoroFileBlockMod& Store() const { return Blocks_; }
    Apartment& Home() { return Loop_; }
    Log& Journal() { return Lines_; }

    /// The editor lets go: the player object's last reports come, then it is gone. Once.
    void Release();

    /// Everything heard is on its medium when it returns; RuntimeFailure when some of it was lost.
    void Finish() { Card_.Finish(); }

  private:
    std::unique_ptr<Clock> Time_;
    TextLog Lines_;
    Apartment Loop_;
    PosixFiles FileLayer_;
    std::unique_ptr<MessageBox> Box_;
    SoundCard Card_;
    WaveOutDevice Wave_;
    DlServiceLibrary Service_;
    System Parts_;
    PlayerState Shared_;
    WoroFileBlockMod Blocks_;
    std::unique_ptr<PlayDllClass> Object_;
};

}  // namespace Tolvar
