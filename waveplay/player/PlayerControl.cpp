#include "waveplay/player/PlayerControl.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "platform/DirectX7.h"
#include "platform/RuntimeFailure.h"
#include "waveplay/player/PlayerPort.h"

namespace Tolvar {

bool TellsOfFailure(std::string_view Ttl) {
    return Ttl.ends_with("ailed") || Ttl.ends_with("error") || Ttl == "Driver is Off";
}

PlayerControl::PlayerControl(PlayerPort& Player, const Facts& Wave) : Port_(Player), Known_(Wave) {
    Attempt([&] { Adopt(Port_.PlayRunningDx7State()); });
    if (Now_ != Transport::Stopped) {
        Attempt([&] { ReadCursor(); });
    } else if (Known_.Direction < 0) {
        Cursor_ = Known_.WaveNos;
    }
}

void PlayerControl::Report(std::string_view Msg, std::string_view Ttl) {
    LastText_ =
        Msg == "S2" || Msg == Ttl ? std::string(Ttl) : std::string(Msg) + ": " + std::string(Ttl);
    if (TellsOfFailure(Ttl)) Say(LastText_, true);
    if (Ttl == "Play Done" && Now_ == Transport::Playing) {
        Cursor_ = Known_.Direction < 0 ? 0 : Known_.WaveNos;
        Moved_ = true;
        Become(Transport::Ended);
    }
    if (Ttl.starts_with("Playing Loop ")) Tell(Change::Jump);  // from the edge again
    Tell(Change::Note);
}

void PlayerControl::Say(std::string Text, bool IsFailure) {
    Said_ = {std::move(Text), IsFailure};
    Tell(Change::Note);
}

void PlayerControl::Tell(Change What) {
    for (const Listener& Each : Listeners_)
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
        Adopt(Port_.PlayRunningDx7State());
    } catch (const RuntimeFailure&) {
        Become(Transport::Stopped);
    }
    return false;
}

void PlayerControl::Become(Transport State) {
    if (std::exchange(Now_, State) != State) Tell(Change::Transport);
}

void PlayerControl::Adopt(std::int32_t RunningState) {
    if (RunningState == 1 || RunningState == 2) {
        Moved_ = false;
        Become(Transport::Playing);
    } else if (RunningState == 3) {
        if (Now_ != Transport::Paused) Moved_ = false;
        Become(Transport::Paused);
    } else {
        Moved_ = true;
        if (Now_ != Transport::Ended) Become(Transport::Stopped);
    }
}

// The player counts the frame heard last: forward the one before the cursor, in reverse the one
// behind it.
void PlayerControl::ReadCursor() {
    const std::int64_t Heard = Port_.PlayCurrentPosition();
    const std::int64_t Boundary = Known_.Direction < 0 ? Heard - 1 : Heard;
    Cursor_ = static_cast<std::int32_t>(std::clamp<std::int64_t>(Boundary, 0, Known_.WaveNos));
}

void PlayerControl::Refresh() {
    if (Now_ != Transport::Playing) return;
    const std::int32_t Running = Port_.PlayRunningDx7State();
    if (Running != 0) ReadCursor();
    Adopt(Running);
}

bool PlayerControl::NothingAhead() const {
    return Known_.Direction < 0 ? Cursor_ <= 0 : Cursor_ >= Known_.WaveNos;
}

void PlayerControl::RunFromCursor() {
    const bool Reverse = Known_.Direction < 0;
    const std::int32_t FirstEdge = Reverse ? Known_.WaveNos : 0;
    if (NothingAhead()) Cursor_ = FirstEdge;
    Said_ = {};
    Attempt([&] {
        if (Cursor_ == FirstEdge) {
            Reverse ? Port_.PlayAgainRev() : Port_.PlayAgain();
        } else {
            Reverse ? Port_.PlayAtPosRev(Cursor_) : Port_.PlayAtPos(Cursor_ + 1);
        }
        const std::int32_t Running = Port_.PlayRunningDx7State();
        if (Running == 0) Become(Transport::Stopped);
        Adopt(Running);
    });
}

void PlayerControl::Play() {
    if (Now_ == Transport::Playing) return;
    if (Now_ == Transport::Paused && !Moved_) {
        Attempt([&] {
            Port_.PlayContinue();
            Adopt(Port_.PlayRunningDx7State());
        });
    } else {
        RunFromCursor();
    }
}

void PlayerControl::Pause() {
    if (Now_ != Transport::Playing) return;
    Attempt([&] {
        Port_.PlayPause();
        const std::int32_t Running = Port_.PlayRunningDx7State();
        if (Running != 0) ReadCursor();
        Adopt(Running);
    });
}

void PlayerControl::PlayPause() {
    Now_ == Transport::Playing ? Pause() : Play();
}

void PlayerControl::Stop() {
    if (Now_ == Transport::Ended) Become(Transport::Stopped);
    if (Now_ == Transport::Stopped) return;
    Attempt([&] {
        if (Now_ == Transport::Playing) ReadCursor();
        Port_.StopPlay();
        Adopt(Port_.PlayRunningDx7State());
    });
}

void PlayerControl::PlayTowards(std::int32_t Direction) {
    if (Direction == Known_.Direction) {
        Play();
    } else if (Now_ == Transport::Playing) {
        UTurn();
    } else {
        Known_.Direction = Direction;
        Moved_ = true;
        Play();
        Tell(Change::Jump);
    }
}

void PlayerControl::UTurn() {
    if (Now_ == Transport::Playing) {
        const bool Taken = Attempt([&] { Port_.PlayUTurn(); });
        if (Taken) {
            Known_.Direction = -Known_.Direction;
            Attempt([&] { Adopt(Port_.PlayRunningDx7State()); });
        }
    } else {
        Known_.Direction = -Known_.Direction;
        Moved_ = true;
        if (Now_ != Transport::Paused) Play();
    }
    Tell(Change::Jump);
}

void PlayerControl::SeekToFrame(std::int64_t Boundary) {
    const bool Sounding = Now_ == Transport::Playing;
    const std::int32_t Before = Cursor_;
    Cursor_ = static_cast<std::int32_t>(std::clamp<std::int64_t>(Boundary, 0, Known_.WaveNos));
    if (Sounding && NothingAhead() && !Known_.Loop) {
        if (!Attempt([&] { Port_.StopPlay(); })) {
            Cursor_ = Before;
        } else {
            Moved_ = true;
            Become(Transport::Stopped);
        }
    } else if (Sounding) {
        RunFromCursor();
    } else {
        Moved_ = true;
        if (Now_ == Transport::Ended) Become(Transport::Stopped);
    }
    Tell(Change::Jump);
}

void PlayerControl::SeekTo(double Seconds) {
    if (std::isnan(Seconds)) return;
    const double Frame = Seconds * Known_.FmtFriq;
    SeekToFrame(std::llround(std::clamp(Frame, 0.0, static_cast<double>(Known_.WaveNos))));
}

void PlayerControl::SeekBy(double Seconds) {
    if (!Attempt([&] { Refresh(); })) return;
    SeekTo(static_cast<double>(Cursor_) / Known_.FmtFriq + Seconds);
}

void PlayerControl::SetRate(double Factor) {
    if (!Known_.HasTempo) {
        Say("the waveOut engine plays at the wave's own rate", true);
        return;
    }
    if (std::isnan(Factor)) return;
    const double Hz =
        std::clamp(Factor * Known_.FmtFriq, double{DSBFREQUENCY_MIN}, double{DSBFREQUENCY_MAX});
    const double Tempo = Hz / Known_.FmtFriq;
    const bool Reverse = Known_.Direction < 0;
    const bool Taken = Attempt([&] {
        Refresh();
        Reverse ? Port_.PlayTempoRev(static_cast<float>(Tempo))
                : Port_.PlayTempoFor(static_cast<float>(Tempo));
    });
    if (!Taken) return;
    (Reverse ? Known_.TempoRev : Known_.TempoFor) = Tempo;
    // A run keeps the rate it was started with, and one that is paused takes the new one over.
    if (Now_ == Transport::Playing && !NothingAhead()) RunFromCursor();
    Tell(Change::Rate);
}

void PlayerControl::SetLoop(bool On) {
    if (!Attempt([&] { Port_.LoopPlayON(On); })) return;
    Known_.Loop = On;
    Tell(Change::Loop);
}

}  // namespace Tolvar
