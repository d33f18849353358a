#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Apartment.h"
#include "waveplay/player/PlayerControl.h"
#include "waveplay/terminal/KeyDecoder.h"
#include "waveplay/terminal/Peaks.h"
#include "waveplay/terminal/Screen.h"
#include "waveplay/terminal/Terminal.h"
#include "waveplay/terminal/TerminalLook.h"
#include "waveplay/terminal/TerminalSignals.h"

namespace Tolvar {

/// What a terminal player plays and says of it.
struct TerminalFacts {
    PlayerControl::Facts Wave;
    std::int32_t FmtChannal = 2;
    Peaks::FrameReader Read;  ///< for the overview; may be empty
    std::string Name;
    std::string Engine;
    std::string Device;
    std::string Format;
    /// Asked after every turn of the message loop: the program is to end.
    std::function<bool()> Interrupted = [] { return false; };
};

enum class TerminalEnd { PlayedOut, Quit, Interrupted };

/// The player's terminal interface: shows a wave that has been handed over and takes keys, in the
/// apartment's message loop. Nothing wakes up while nothing changes. Apartment's thread only.
class TerminalPlayer {
  public:
    /// Whether standard output is a terminal that can show it.
    static bool Usable();

    /// Player and Home outlive it. From now on the player's reports come here. Signals of the
    /// terminal are held back from now on, so make it before other threads start, where that can
    /// be. RuntimeFailure(Device) when there is no terminal.
    TerminalPlayer(PlayerPort& Player, Apartment& Home, TerminalFacts Facts, TerminalLook Look);
    ~TerminalPlayer();
    TerminalPlayer(const TerminalPlayer&) = delete;
    TerminalPlayer& operator=(const TerminalPlayer&) = delete;

    PlayerControl& Control() { return Player_; }

    /// Shows Text in the message line: whatever would be written to standard error.
    void Say(std::string Text, bool IsFailure) { Player_.Say(std::move(Text), IsFailure); }

    /// As if the listener did.
    void Quit() { End_ = TerminalEnd::Quit; }

    /// Until the wave has been played out, the listener quits or the program is interrupted. The
    /// play is as the listener left it, the terminal as it was, also on a failure: RuntimeFailure
    /// when the player or the terminal's settings are lost.
    TerminalEnd Run();

  private:
    void Open();
    void Close() noexcept;
    bool Over();
    void OnKeys();
    void Take(const Key& Pressed);
    void OnSignal(int Signal);
    void Suspend();
    void WantFrame(std::int64_t AtNs);
    void WantFrameSoon();
    void DrawFrame();
    std::int64_t FrameInterval() const;
    View Shown() const;
    void RefineOverview();

    Apartment& Home_;
    PlayerPort& Port_;
    TerminalFacts Facts_;
    TerminalLook Look_;
    PlayerControl Player_;
    Peaks Overview_;
    Terminal Line_;
    TerminalSignals Signals_;
    KeyDecoder Decoder_;
    Grid OnScreen_;
    bool Showing_ = false;
    bool HelpShown_ = false;
    std::optional<TerminalEnd> End_;
    std::string Lost_;  // why the player is gone
    std::int64_t LastFrameNs_;
    Apartment::AlarmId Frame_;
    Apartment::AlarmId LoneEscape_;
    Apartment::AlarmId Refining_;
};

}  // namespace Tolvar
