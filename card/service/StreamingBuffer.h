#pragma once

#include <cstdint>

#include "card/devices/ServiceHost.h"
#include "card/voices/LoopingVoice.h"

namespace Tolvar {

/// The one buffer of a server, and which entries of its halves were told. Failures are
/// LoopingVoice's.
class StreamingBuffer : public ServiceHost::State {
  public:
    StreamingBuffer(SoundCard& Card, StreamFormat Format, std::int32_t Bytes)
        : Sound_(Card, Format, Bytes) {}

    LoopingVoice& Voice() { return Sound_; }

    /// Plays, with Restart from the start and with every entry to be told anew.
    void Play(bool Restart, std::int32_t FrequencyHz);

    struct Entered {
        bool First = false;
        bool Second = false;
    };
    /// The halves that the cursor has entered since the last call; a start enters the first. A
    /// stopped buffer tells nothing: what is due then is told once it plays on.
    Entered TakeEntered();

  private:
    LoopingVoice Sound_;
    // Entries told since the start. No start, no entry: the first half counts as told.
    std::int64_t FirstTold_ = 1;
    std::int64_t SecondTold_ = 0;
};

}  // namespace Tolvar
