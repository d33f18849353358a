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

/// What a terminal player plays and shows of it. All texts are UTF-8.
struct TerminalFacts {
    PlayerControl::Facts Wave;
    std::int32_t FmtChannal = 2;  ///< 1 or 2
    Peaks::FrameReader Read;      ///< for the overview, which is left out when this is empty
    std::string Name;             ///< of the wave
    std::string Engine;
    std::string Device;
    std::string Format;  ///< such as "44100 Hz 16 bit stereo"
    /// Asked after everything that the message loop has done: the program is to end.
    std::function<bool()> Interrupted = [] { return false; };
};

enum class TerminalEnd {
    PlayedOut,
    Quit,         ///< by the listener
    Interrupted,  ///< by a signal, by Facts.Interrupted, or the terminal is gone
};

/// The player's terminal interface: shows a wave that has been handed over and takes keys, in the
/// apartment's message loop. Nothing wakes up while nothing changes. Every call belongs on the
/// apartment's thread.
class TerminalPlayer {
  public:
    /// Whether standard output is a terminal that can show it: its cursor can be moved, and
    /// /dev/tty can be opened.
    static bool Usable();

    /// Player and Home outlive it; whatever Facts.Read uses is kept as long. From now on the
    /// player's reports come here, and the terminal's signals are blocked in this thread and those
    /// that it starts: make it before other threads where that can be. RuntimeFailure(Device) when
    /// /dev/tty cannot be opened or signals cannot be watched.
    TerminalPlayer(PlayerPort& Player, Apartment& Home, TerminalFacts Facts, TerminalLook Look);
    /// The player's reports go nowhere from then on.
    ~TerminalPlayer();
    TerminalPlayer(const TerminalPlayer&) = delete;
    TerminalPlayer& operator=(const TerminalPlayer&) = delete;

    /// What the keys drive; lives as long as this does.
    PlayerControl& Control() { return Player_; }

    /// Shows Text, one line, in the message line until the next key or note.
    void Say(std::string Text, bool IsFailure) { Player_.Say(std::move(Text), IsFailure); }

    /// As if the listener had: Run returns when what happens now is over.
    void Quit() { End_ = TerminalEnd::Quit; }

    /// Shows the interface and runs the message loop until the wave has been played out, the
    /// listener quits or the program is interrupted. The wave must have been handed over. Whatever
    /// plays then goes on; the terminal is as it was, also on a failure: RuntimeFailure(Device)
    /// when the player is gone or the terminal refuses its settings.
    TerminalEnd Run();

  private:
    void Show();
    void Hide() noexcept;
    bool HasEnded();
    void OnBytes();
    void OnKey(const Key& Pressed);
    void OnSignal(int Signal);
    void Suspend();
    void ScheduleFrame(std::int64_t AtNs);  // a frame that is due earlier stays
    void ScheduleFrameSoon();               // at most every 40 ms
    void DrawFrame();
    std::int64_t FrameInterval() const;
    View CurrentView() const;
    void RefineOverview();

    Apartment& Home_;
    PlayerPort& Port_;
    TerminalFacts Facts_;
    TerminalLook Look_;
    PlayerControl Player_;
    Peaks Overview_;
    Terminal Terminal_;
    TerminalSignals Signals_;
    KeyDecoder Decoder_;
    Grid OnScreen_;         // what the terminal shows; empty: unknown
    bool Showing_ = false;  // between Show and Hide
    bool HelpShown_ = false;
    std::optional<TerminalEnd> End_;
    std::string LostBecause_;  // empty while the player is there
    std::int64_t LastFrameNs_;
    Apartment::AlarmId Frame_;
    Apartment::AlarmId LoneEscape_;  // nothing has followed an escape character
    Apartment::AlarmId Refining_;    // the overview goes on
};

}  // namespace Tolvar
