#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>

#include "engines/EngineForms.h"
#include "platform/System.h"
#include "state/PlayDllMod.h"

namespace Tolvar {

/// What an engine lives on. Os and State stay the player object's and outlive the engine; the forms
/// are shared, because a timer may still be ticking into an engine that the player has dropped.
struct EngineSetup {
    using MsgBoxObEvent = std::function<void(std::string_view Msg, std::string_view Ttl)>;

    System& Os;
    PlayerState& State;
    std::shared_ptr<EngineForms> Forms;
    MsgBoxObEvent Event;  ///< takes the engine's reports
};

/// An output engine: plays the loaded wave's double buffer on one kind of device. The player
/// object holds at most one and routes its commands here. Apartment's thread only.
///
/// Commands report through the event given at creation, always as ("S2", text), before they
/// return; a Boolean False follows a reported failure. Where no failure text is named, a
/// RuntimeFailure goes to the caller.
class PlayEngine : public std::enable_shared_from_this<PlayEngine> {
  public:
    explicit PlayEngine(EngineSetup Setup);
    virtual ~PlayEngine() = default;
    PlayEngine(const PlayEngine&) = delete;
    PlayEngine& operator=(const PlayEngine&) = delete;

    /// Starts a run at frame 1 of PlayDirection; "Play Failed".
    virtual bool PlayMe() = 0;
    /// Sets the geometry and makes the device buffer for the loaded wave; "Play Buffer - Failed".
    virtual bool CreateSoundBuffer() = 0;
    virtual void PlayContinue() = 0;
    /// PlayCurPos is current when it returns.
    virtual void UpdatePlayPosition() = 0;
    virtual void PlayPause() = 0;
    virtual bool StopPlay() = 0;
    /// Goes on in the other direction from the frame heard last.
    virtual bool UTurn() = 0;
    /// Starts a run in PlayDirection at frame PlayCurPos, clamped into the wave.
    virtual bool PlayAtCurrentPosition() = 0;
    /// End of life: stops, gives up the device and the timers. The engine may still be on the
    /// stack then (an editor that lets go inside a report).
    virtual void Close() noexcept = 0;

    /// The player drops the engine: it no longer hears its reports, and the engine's life ends.
    void Drop() noexcept {
        MsgBoxOb = nullptr;
        Close();
    }

  protected:
    /// Raises MsgBoxOb("S2", Ttl).
    void Report(std::string_view Ttl);
    /// A failure that the editor hears of as Ttl goes to the log with its cause.
    void LogCause(std::string_view Ttl, std::string_view Cause) noexcept;

    System& Os;
    PlayerState& State;
    EngineForms& Forms() { return *SharedForms_; }

  private:
    std::shared_ptr<EngineForms> SharedForms_;
    EngineSetup::MsgBoxObEvent MsgBoxOb;
};

}  // namespace Tolvar
