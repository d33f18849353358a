#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "platform/WaveFormat.h"

namespace Tolvar {

inline constexpr std::int32_t DSSCL_PRIORITY = 2;
inline constexpr std::int32_t DSBCAPS_LOCSOFTWARE = 0x8;
inline constexpr std::int32_t DSBCAPS_CTRLFREQUENCY = 0x20;
inline constexpr std::int32_t DSBCAPS_CTRLPOSITIONNOTIFY = 0x100;
inline constexpr std::int32_t DSBCAPS_GLOBALFOCUS = 0x8000;
inline constexpr std::int32_t DSBCAPS_GETCURRENTPOSITION2 = 0x10000;
inline constexpr std::int32_t DSBPLAY_LOOPING = 1;
inline constexpr std::int32_t DSBFREQUENCY_MIN = 100;      ///< Hz
inline constexpr std::int32_t DSBFREQUENCY_MAX = 100'000;  ///< Hz

struct DSBUFFERDESC {
    std::int32_t lFlags = 0;
    std::int32_t lBufferBytes = 0;
};

/// A place in a buffer, and the event that is signalled when the play cursor reaches it.
struct DSBPOSITIONNOTIFY {
    std::int32_t lOffset = 0;       ///< bytes from the buffer's start
    std::int32_t hEventNotify = 0;  ///< from DirectX7::CreateEvent
};

struct DSCURSORS {
    std::int32_t lPlay = 0;   ///< bytes from the buffer's start: the next frame to be heard
    std::int32_t lWrite = 0;  ///< bytes: from here on it is safe to write
};

/// Implemented by whoever wants to hear of a signalled event.
class DirectXEvent {
  public:
    virtual ~DirectXEvent() = default;
    /// EventId is the handle that CreateEvent returned. Apartment's thread, between commands.
    virtual void DXCallback(std::int32_t EventId) = 0;
};

/// A sound buffer that is played round and round. A call that fails is a RuntimeFailure(Device)
/// that names the call. Apartment's thread only, like the two classes below, which are abstract so
/// that tests can let the n-th call fail.
class DirectSoundBuffer {
  public:
    virtual ~DirectSoundBuffer() = default;

    /// Replaces the positions; not while the buffer plays. An offset may be any byte of a frame,
    /// and a handle is one that CreateEvent returned and DestroyEvent has not had. Each is
    /// signalled every time the cursor reaches it, and at once when a play sets off from it.
    virtual void SetNotificationPositions(std::span<const DSBPOSITIONNOTIFY> Positions) = 0;
    /// Copies Bytes bytes from FirstSample to Start; also while the buffer plays. Flags must be 0.
    virtual void WriteBuffer(std::int32_t Start, std::int32_t Bytes,
                             const std::int16_t* FirstSample, std::int32_t Flags) = 0;
    virtual void SetCurrentPosition(std::int32_t Bytes) = 0;
    /// 100 to 100000 Hz; takes effect at once, also while the buffer plays.
    virtual void SetFrequency(std::int32_t Hz) = 0;
    /// From the play cursor on. Flags must be DSBPLAY_LOOPING.
    virtual void Play(std::int32_t Flags) = 0;
    /// At once; the play cursor stays where it is. A signal that is due but not yet delivered waits
    /// for the next Play, unless SetCurrentPosition comes first.
    virtual void Stop() = 0;
    virtual void GetCurrentPosition(DSCURSORS& Cursors) = 0;
};

class DirectSound {
  public:
    virtual ~DirectSound() = default;
    /// Level must be DSSCL_PRIORITY, Window not 0.
    virtual void SetCooperativeLevel(std::int32_t Window, std::int32_t Level) = 0;
    /// 16-bit PCM, one or two channels, 100 to 100000 Hz; after SetCooperativeLevel. Never null.
    /// Several buffers may exist; the card plays one at a time.
    virtual std::unique_ptr<DirectSoundBuffer> CreateSoundBuffer(const DSBUFFERDESC& Desc,
                                                                 const WAVEFORMATEX& Format) = 0;
};

class DirectX7 {
  public:
    virtual ~DirectX7() = default;
    /// The default device is named by the empty identifier.
    virtual std::unique_ptr<DirectSound> DirectSoundCreate(const std::string& Device) = 0;
    /// A handle above 0; Event stays the caller's and outlives the handle.
    virtual std::int32_t CreateEvent(DirectXEvent& Event) = 0;
    virtual void DestroyEvent(std::int32_t Handle) = 0;
};

}  // namespace Tolvar
