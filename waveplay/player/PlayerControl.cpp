#include "waveplay/player/PlayerControl.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "platform/RuntimeFailure.h"

namespace Tolvar {
namespace {

constexpr double LeastPlayFriq = 100;
constexpr double MostPlayFriq = 100000;

bool TellsOfFailure(std::string_view Ttl) {
    return Ttl.ends_with("ailed") || Ttl.ends_with("error") || Ttl == "Driver is Off";
}

}  // namespace

PlayerControl::PlayerControl(PlayerPort& Player, const Facts& Wave) : Port(Player), Known(Wave) {
    Attempt([&] { Adopt(Port.PlayRunningDx7State()); });
    if (Now != Transport::Stopped) {
        Attempt([&] { ReadCursor(); });
    } else if (Known.Direction < 0) {
        Cursor = Known.WaveNos;
    }
}

void PlayerControl::Report(std::string_view Msg, std::string_view Ttl) {
    LastText =
        Msg == "S2" || Msg == Ttl ? std::string(Ttl) : std::string(Msg) + ": " + std::string(Ttl);
    if (TellsOfFailure(Ttl)) Say(LastText, true);
    if (Ttl == "Play Done" && Now == Transport::Playing) {
        Cursor = Known.Direction < 0 ? 0 : Known.WaveNos;
        Moved = true;
        Become(Transport::Ended);
    }
    if (Ttl.starts_with("Playing Loop ")) Tell(Change::Jump);  // from the edge again
    Tell(Change::Note);
}

void PlayerControl::Say(std::string Text, bool IsFailure) {
    Said = {std::move(Text), IsFailure};
    Tell(Change::Note);
}

void PlayerControl::Tell(Change What) {
    for (const Listener& Each : Listeners)
        Each(What);
}

// True when the player took the command. One that it refused may have stopped a run.
template <typename Operation>
bool PlayerControl::Attempt(Operation Do) {
    try {
        Do();
        return true;
    } catch (const RuntimeFailure& Refused) {
        Say(Refused.what(), true);
    }
    try {
        Adopt(Port.PlayRunningDx7State());
    } catch (const RuntimeFailure&) {
        Become(Transport::Stopped);
    }
    return false;
}

void PlayerControl::Become(Transport State) {
    if (std::exchange(Now, State) != State) Tell(Change::Transport);
}

void PlayerControl::Adopt(std::int32_t RunningState) {
    if (RunningState == 1 || RunningState == 2) {
        Moved = false;
        Become(Transport::Playing);
    } else if (RunningState == 3) {
        if (Now != Transport::Paused) Moved = false;
        Become(Transport::Paused);
    } else {
        Moved = true;
        if (Now != Transport::Ended) Become(Transport::Stopped);
    }
}

// The player counts the frame heard last: forward the one before the cursor, in reverse the one
// behind it.
void PlayerControl::ReadCursor() {
    const std::int64_t Heard = Port.PlayCurrentPosition();
    const std::int64_t Boundary = Known.Direction < 0 ? Heard - 1 : Heard;
    Cursor = static_cast<std::int32_t>(std::clamp<std::int64_t>(Boundary, 0, Known.WaveNos));
}

void PlayerControl::Refresh() {
    if (Now != Transport::Playing) return;
    const std::int32_t Running = Port.PlayRunningDx7State();
    if (Running != 0) ReadCursor();
    Adopt(Running);
}

bool PlayerControl::NothingAhead() const {
    return Known.Direction < 0 ? Cursor <= 0 : Cursor >= Known.WaveNos;
}

void PlayerControl::RunFromCursor() {
    const bool Reverse = Known.Direction < 0;
    const std::int32_t FirstEdge = Reverse ? Known.WaveNos : 0;
    if (NothingAhead()) Cursor = FirstEdge;
    Said = {};
    Attempt([&] {
        if (Cursor == FirstEdge) {
            Reverse ? Port.PlayAgainRev() : Port.PlayAgain();
        } else {
            Reverse ? Port.PlayAtPosRev(Cursor) : Port.PlayAtPos(Cursor + 1);
        }
        const std::int32_t Running = Port.PlayRunningDx7State();
        if (Running == 0) Become(Transport::Stopped);
        Adopt(Running);
    });
}

void PlayerControl::Play() {
    if (Now == Transport::Playing) return;
    if (Now == Transport::Paused && !Moved) {
        Attempt([&] {
            Port.PlayContinue();
            Adopt(Port.PlayRunningDx7State());
        });
    } else {
        RunFromCursor();
    }
}

void PlayerControl::Pause() {
    if (Now != Transport::Playing) return;
    Attempt([&] {
        Port.PlayPause();
        const std::int32_t Running = Port.PlayRunningDx7State();
        if (Running != 0) ReadCursor();
        Adopt(Running);
    });
}

void PlayerControl::PlayPause() {
    Now == Transport::Playing ? Pause() : Play();
}

void PlayerControl::Stop() {
    if (Now == Transport::Ended) Become(Transport::Stopped);
    if (Now == Transport::Stopped) return;
    Attempt([&] {
        if (Now == Transport::Playing) ReadCursor();
        Port.StopPlay();
        Adopt(Port.PlayRunningDx7State());
    });
}

void PlayerControl::PlayTowards(std::int32_t Direction) {
    if (Direction == Known.Direction) {
        Play();
    } else if (Now == Transport::Playing) {
        UTurn();
    } else {
        Known.Direction = Direction;
        Moved = true;
        Play();
        Tell(Change::Jump);
    }
}

void PlayerControl::UTurn() {
    if (Now == Transport::Playing) {
        const bool Taken = Attempt([&] { Port.PlayUTurn(); });
        if (Taken) {
            Known.Direction = -Known.Direction;
            Attempt([&] { Adopt(Port.PlayRunningDx7State()); });
        }
    } else {
        Known.Direction = -Known.Direction;
        Moved = true;
        if (Now != Transport::Paused) Play();
    }
    Tell(Change::Jump);
}

void PlayerControl::SeekToFrame(std::int64_t Boundary) {
    const bool Sounding = Now == Transport::Playing;
    const std::int32_t Before = Cursor;
    Cursor = static_cast<std::int32_t>(std::clamp<std::int64_t>(Boundary, 0, Known.WaveNos));
    if (Sounding && NothingAhead() && !Known.Loop) {
        if (!Attempt([&] { Port.StopPlay(); })) {
            Cursor = Before;
        } else {
            Moved = true;
            Become(Transport::Stopped);
        }
    } else if (Sounding) {
        RunFromCursor();
    } else {
        Moved = true;
        if (Now == Transport::Ended) Become(Transport::Stopped);
    }
    Tell(Change::Jump);
}

void PlayerControl::SeekTo(double Seconds) {
    if (std::isnan(Seconds)) return;
    const double Frame = Seconds * Known.FmtFriq;
    SeekToFrame(std::llround(std::clamp(Frame, 0.0, static_cast<double>(Known.WaveNos))));
}

void PlayerControl::SeekBy(double Seconds) {
    if (!Attempt([&] { Refresh(); })) return;
    SeekTo(static_cast<double>(Cursor) / Known.FmtFriq + Seconds);
}

void PlayerControl::SetRate(double Factor) {
    if (!Known.HasTempo) {
        Say("the waveOut engine plays at the wave's own rate", true);
        return;
    }
    if (std::isnan(Factor)) return;
    const double Hz = std::clamp(Factor * Known.FmtFriq, LeastPlayFriq, MostPlayFriq);
    const double Tempo = Hz / Known.FmtFriq;
    const bool Reverse = Known.Direction < 0;
    const bool Taken = Attempt([&] {
        Refresh();
        Reverse ? Port.PlayTempoRev(static_cast<float>(Tempo))
                : Port.PlayTempoFor(static_cast<float>(Tempo));
    });
    if (!Taken) return;
    (Reverse ? Known.TempoRev : Known.TempoFor) = Tempo;
    // A run keeps the rate it was started with, and one that is paused takes the new one over.
    if (Now == Transport::Playing && !NothingAhead()) RunFromCursor();
    Tell(Change::Rate);
}

void PlayerControl::SetLoop(bool On) {
    if (!Attempt([&] { Port.LoopPlayON(On); })) return;
    Known.Loop = On;
    Tell(Change::Loop);
}

}  // namespace Tolvar
