#include "card/devices/DirectX7Layer.h"

#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "card/voices/LoopingVoice.h"
#include "platform/Checked.h"

namespace Tolvar {
namespace {

constexpr std::int32_t KnownFlags = DSBCAPS_LOCSOFTWARE | DSBCAPS_CTRLFREQUENCY |
                                    DSBCAPS_CTRLPOSITIONNOTIFY | DSBCAPS_GLOBALFOCUS |
                                    DSBCAPS_GETCURRENTPOSITION2;

/// Runs Work, and puts the name of the call before what it fails with.
template <typename Work>
auto Calling(const char* Name, Work Run) {
    try {
        return Run();
    } catch (const RuntimeFailure& Cause) {
        throw RuntimeFailure(Cause.Kind(), std::string(Name) + ": " + Cause.what());
    }
}

}  // namespace

/// The events that exist, by their handles.
class DirectXEvents {
  public:
    std::int32_t Add(DirectXEvent& Event) {
        LastHandle_ = CheckedAdd(LastHandle_, 1);
        ByHandle_.emplace(LastHandle_, &Event);
        return LastHandle_;
    }
    void Require(std::int32_t Handle) const {
        RequireOfDevice(ByHandle_.contains(Handle), "there is no event " + std::to_string(Handle));
    }
    void Remove(std::int32_t Handle) {
        Require(Handle);
        ByHandle_.erase(Handle);
    }
    void Clear() { ByHandle_.clear(); }

    /// Lost when the event is gone. Its callback may destroy this.
    void Signal(std::int32_t Handle) const {
        const auto Found = ByHandle_.find(Handle);
        if (Found != ByHandle_.end()) Found->second->DXCallback(Handle);
    }

  private:
    std::map<std::int32_t, DirectXEvent*> ByHandle_;
    std::int32_t LastHandle_ = 0;
};

namespace {

class LayerBuffer : public DirectSoundBuffer {
  public:
    LayerBuffer(SoundCard& Card, std::shared_ptr<DirectXEvents> Events, StreamFormat Format,
                const DSBUFFERDESC& Desc)
        : Voice_(Card, Format, Desc.lBufferBytes),
          Events_(std::move(Events)),
          Flags_(Desc.lFlags) {}

    void SetNotificationPositions(std::span<const DSBPOSITIONNOTIFY> Positions) override {
        Calling("DirectSoundBuffer.SetNotificationPositions", [&] {
            RequireFlag(DSBCAPS_CTRLPOSITIONNOTIFY, "DSBCAPS_CTRLPOSITIONNOTIFY");
            std::vector<LoopingVoice::Notification> Wanted;
            for (const DSBPOSITIONNOTIFY& Each : Positions) {
                Events_->Require(Each.hEventNotify);
                Wanted.push_back({Each.lOffset, [Known = Events_, Handle = Each.hEventNotify] {
                                      Known->Signal(Handle);
                                  }});
            }
            Voice_.SetNotifications(std::move(Wanted));
        });
    }

    void WriteBuffer(std::int32_t Start, std::int32_t Bytes, const std::int16_t* FirstSample,
                     std::int32_t WriteFlags) override {
        Calling("DirectSoundBuffer.WriteBuffer", [&] {
            RequireOfDevice(WriteFlags == 0,
                            "the flags " + std::to_string(WriteFlags) + " are not 0");
            Voice_.Write(Start, Bytes, FirstSample);
        });
    }

    void SetCurrentPosition(std::int32_t Bytes) override {
        Calling("DirectSoundBuffer.SetCurrentPosition", [&] { Voice_.SetCursor(Bytes); });
    }

    void SetFrequency(std::int32_t Hz) override {
        Calling("DirectSoundBuffer.SetFrequency", [&] {
            RequireFlag(DSBCAPS_CTRLFREQUENCY, "DSBCAPS_CTRLFREQUENCY");
            Voice_.SetFrequency(Hz);
        });
    }

    void Play(std::int32_t PlayFlags) override {
        Calling("DirectSoundBuffer.Play", [&] {
            RequireOfDevice(PlayFlags == DSBPLAY_LOOPING,
                            "the flags " + std::to_string(PlayFlags) + " are not DSBPLAY_LOOPING");
            Voice_.Play();
        });
    }

    void Stop() override { Voice_.Stop(); }

    void GetCurrentPosition(DSCURSORS& Cursors) override {
        const std::int64_t Frame = Voice_.FramesHeard();
        const std::int64_t Next = Voice_.IsPlaying() ? Frame + 1 : Frame;
        Cursors = {OffsetOf(Frame), OffsetOf(Next)};
    }

  private:
    std::int32_t OffsetOf(std::int64_t Frame) const {
        return Checked<std::int32_t>(Frame % Voice_.BufferFrames() * Voice_.BytesPerFrame());
    }
    void RequireFlag(std::int32_t Flag, const char* Name) const {
        RequireOfDevice((Flags_ & Flag) != 0, std::string("the buffer was made without ") + Name);
    }

    LoopingVoice Voice_;
    std::shared_ptr<DirectXEvents> Events_;
    std::int32_t Flags_;
};

class LayerSound : public DirectSound {
  public:
    LayerSound(SoundCard& Card, std::shared_ptr<DirectXEvents> Events)
        : Card_(Card), Events_(std::move(Events)) {}

    void SetCooperativeLevel(std::int32_t Window, std::int32_t Level) override {
        Calling("DirectSound.SetCooperativeLevel", [&] {
            RequireOfDevice(Window != 0, "there is no window");
            RequireOfDevice(Level == DSSCL_PRIORITY,
                            "the level " + std::to_string(Level) + " is not DSSCL_PRIORITY");
            HasLevel_ = true;
        });
    }

    std::unique_ptr<DirectSoundBuffer> CreateSoundBuffer(const DSBUFFERDESC& Desc,
                                                         const WAVEFORMATEX& Format) override {
        return Calling("DirectSound.CreateSoundBuffer", [&] {
            RequireOfDevice(HasLevel_, "SetCooperativeLevel was not called");
            RequireOfDevice((Desc.lFlags & ~KnownFlags) == 0,
                            "the flags " + std::to_string(Desc.lFlags) + " are not all known");
            const auto Playable = PlayableFormat(Format, LoopingVoice::MostHz);
            RequireOfDevice(Playable.has_value(),
                            "the format (tag " + std::to_string(Format.wFormatTag) + ", " +
                                std::to_string(Format.nChannels) + " channels, " +
                                std::to_string(Format.nSamplesPerSec) + " Hz, " +
                                std::to_string(Format.wBitsPerSample) + " bits) cannot be played");
            return std::make_unique<LayerBuffer>(Card_, Events_, *Playable, Desc);
        });
    }

  private:
    SoundCard& Card_;
    std::shared_ptr<DirectXEvents> Events_;
    bool HasLevel_ = false;
};

}  // namespace

DirectX7Root::DirectX7Root(SoundCard& Card)
    : Card_(Card), Events_(std::make_shared<DirectXEvents>()) {}

DirectX7Root::~DirectX7Root() {
    Events_->Clear();
}

std::unique_ptr<DirectSound> DirectX7Root::DirectSoundCreate(const std::string& Device) {
    return Calling("DirectX7.DirectSoundCreate", [&] {
        RequireOfDevice(Device.empty(), "there is no device \"" + Device + "\"");
        RequireOfDevice(Card_.Present(), "there is no sound device");
        return std::make_unique<LayerSound>(Card_, Events_);
    });
}

std::int32_t DirectX7Root::CreateEvent(DirectXEvent& Event) {
    return Calling("DirectX7.CreateEvent", [&] { return Events_->Add(Event); });
}

void DirectX7Root::DestroyEvent(std::int32_t Handle) {
    Calling("DirectX7.DestroyEvent", [&] { Events_->Remove(Handle); });
}

}  // namespace Tolvar
