#pragma once

#include <memory>
#include <string>

#include "card/voices/SoundCard.h"
#include "platform/DirectX7.h"

namespace Tolvar {

class DirectXEvents;

/// The DirectX 7 root object over a sound card. What it makes may outlive it; its events are gone
/// with it, and with an event every signal that is still due for it. An event's callback may
/// destroy the buffer and this.
class DirectX7Root : public DirectX7 {
  public:
    /// Card stays the caller's, and outlives everything that is made here.
    explicit DirectX7Root(SoundCard& Card);
    ~DirectX7Root() override;
    DirectX7Root(const DirectX7Root&) = delete;
    DirectX7Root& operator=(const DirectX7Root&) = delete;

    std::unique_ptr<DirectSound> DirectSoundCreate(const std::string& Device) override;
    std::int32_t CreateEvent(DirectXEvent& Event) override;
    void DestroyEvent(std::int32_t Handle) override;

  private:
    SoundCard& Card_;
    std::shared_ptr<DirectXEvents> Events_;
};

}  // namespace Tolvar
