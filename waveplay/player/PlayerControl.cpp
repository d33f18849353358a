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

PlayerControl::PlayerControl(PlayerPort& Player, const Facts& Wave) : Port_(Player), Wave_(Wave) {
    const bool Asked = Trapped([&] {
        ReadCursor();  // first, so that a play that ends between the two calls is seen to be over
        TakeRunningState(Port_.PlayRunningDx7State());
    });
    if (State_ != Transport::Stopped) return;
    const bool IsOver = Wave_.WasStarted && Asked;
    Cursor_ = (Wave_.Direction < 0) == IsOver ? 0 : Wave_.WaveNos;
    if (IsOver) State_ = Transport::Ended;
}

void PlayerControl::Report(std::string_view Msg, std::string_view Ttl) {
    LastReport_ =
        Msg == "S2" || Msg == Ttl ? std::string(Ttl) : std::string(Msg) + ": " + std::string(Ttl);
    if (TellsOfFailure(Ttl)) Say(LastReport_, true);
    if (Ttl == "Play Done" && (State_ == Transport::Playing || EndUntold_)) {
        EndUntold_ = false;
        Cursor_ = Wave_.Direction < 0 ? 0 : Wave_.WaveNos;
        Moved_ = true;
        SetState(Transport::Ended);
    }
    if (Ttl.starts_with("Playing Loop ")) Tell(Change::Jump);  // from the edge again
    Tell(Change::Note);
}

void PlayerControl::Say(std::string Text, bool IsFailure) {
    Note_ = {std::move(Text), IsFailure};
    Tell(Change::Note);
}

void PlayerControl::Tell(Change What) {
    for (const Listener& Each : Listeners_)
        Each(What);
}

// True when the player took the command. A refused one becomes the note; it may have stopped a run.
template <typename Operation>
bool PlayerControl::Trapped(Operation Do) {
    try {
        Do();
        return true;
    } catch (const RuntimeFailure& Refused) {
        Say(Refused.what(), true);
    }
    try {
        TakeRunningState(Port_.PlayRunningDx7State());
    } catch (const RuntimeFailure&) {
        SetState(Transport::Stopped);
    }
    return false;
}

void PlayerControl::SetState(Transport State) {
    if (std::exchange(State_, State) != State) Tell(Change::Transport);
}

void PlayerControl::TakeRunningState(std::int32_t RunningState) {
    if (RunningState == 1 || RunningState == 2) {
        Moved_ = false;
        SetState(Transport::Playing);
    } else if (RunningState == 3) {
        if (State_ != Transport::Paused) Moved_ = false;
        SetState(Transport::Paused);
    } else {
        Moved_ = true;
        if (State_ != Transport::Ended) SetState(Transport::Stopped);
    }
}

// The player counts the frame heard last: forward the one before the cursor, in reverse the one
// behind it.
void PlayerControl::ReadCursor() {
    const std::int64_t Heard = Port_.PlayCurrentPosition();
    if (State_ == Transport::Ended) return;
    const std::int64_t Boundary = Wave_.Direction < 0 ? Heard - 1 : Heard;
    Cursor_ = static_cast<std::int32_t>(std::clamp<std::int64_t>(Boundary, 0, Wave_.WaveNos));
}

void PlayerControl::Refresh() {
    if (State_ != Transport::Playing) return;
    const std::int32_t Running = Port_.PlayRunningDx7State();
    if (Running != 0) ReadCursor();
    if (State_ != Transport::Playing) return;  // the report of its end came with the position
    TakeRunningState(Running);
    EndUntold_ = Running == 0;
}

bool PlayerControl::NothingAhead() const {
    return Wave_.Direction < 0 ? Cursor_ <= 0 : Cursor_ >= Wave_.WaveNos;
}

void PlayerControl::RunFromCursor() {
    const bool Reverse = Wave_.Direction < 0;
    const std::int32_t FirstEdge = Reverse ? Wave_.WaveNos : 0;
    if (NothingAhead()) Cursor_ = FirstEdge;
    Note_ = {};
    EndUntold_ = false;
    Trapped([&] {
        if (Cursor_ == FirstEdge) {
            Reverse ? Port_.PlayAgainRev() : Port_.PlayAgain();
        } else {
            Reverse ? Port_.PlayAtPosRev(Cursor_) : Port_.PlayAtPos(Cursor_ + 1);
        }
        const std::int32_t Running = Port_.PlayRunningDx7State();
        if (Running == 0) SetState(Transport::Stopped);
        TakeRunningState(Running);
    });
}

void PlayerControl::Play() {
    if (State_ == Transport::Playing) return;
    if (State_ == Transport::Paused && !Moved_) {
        Trapped([&] {
            Port_.PlayContinue();
            TakeRunningState(Port_.PlayRunningDx7State());
        });
    } else {
        RunFromCursor();
    }
}

void PlayerControl::Pause() {
    if (State_ != Transport::Playing) return;
    Trapped([&] {
        Port_.PlayPause();
        const std::int32_t Running = Port_.PlayRunningDx7State();
        if (Running != 0) ReadCursor();
        TakeRunningState(Running);
    });
}

void PlayerControl::PlayPause() {
    State_ == Transport::Playing ? Pause() : Play();
}

void PlayerControl::Stop() {
    EndUntold_ = false;
    if (State_ == Transport::Ended) SetState(Transport::Stopped);
    if (State_ == Transport::Stopped) return;
    Trapped([&] {
        if (State_ == Transport::Playing) ReadCursor();
        Port_.StopPlay();
        TakeRunningState(Port_.PlayRunningDx7State());
    });
}

void PlayerControl::PlayTowards(std::int32_t Direction) {
    if (Direction == Wave_.Direction) {
        Play();
    } else if (State_ == Transport::Playing) {
        UTurn();
    } else {
        Wave_.Direction = Direction;
        Moved_ = true;
        Play();
        Tell(Change::Jump);
    }
}

void PlayerControl::UTurn() {
    if (State_ == Transport::Playing) {
        const bool Taken = Trapped([&] { Port_.PlayUTurn(); });
        if (Taken) {
            Wave_.Direction = -Wave_.Direction;
            Trapped([&] { TakeRunningState(Port_.PlayRunningDx7State()); });
        }
    } else {
        Wave_.Direction = -Wave_.Direction;
        Moved_ = true;
        if (State_ != Transport::Paused) Play();
    }
    Tell(Change::Jump);
}

void PlayerControl::SeekToFrame(std::int64_t Boundary) {
    const bool Sounding = State_ == Transport::Playing;
    const std::int32_t Before = Cursor_;
    EndUntold_ = false;
    Cursor_ = static_cast<std::int32_t>(std::clamp<std::int64_t>(Boundary, 0, Wave_.WaveNos));
    if (Sounding && NothingAhead() && !Wave_.Loop) {
        if (!Trapped([&] { Port_.StopPlay(); })) {
            Cursor_ = Before;
        } else {
            Moved_ = true;
            SetState(Transport::Stopped);
        }
    } else if (Sounding) {
        RunFromCursor();
    } else {
        Moved_ = true;
        if (State_ == Transport::Ended) SetState(Transport::Stopped);
    }
    Tell(Change::Jump);
}

void PlayerControl::SeekTo(double Seconds) {
    if (std::isnan(Seconds)) return;
    const double Frame = Seconds * Wave_.FmtFriq;
    SeekToFrame(std::llround(std::clamp(Frame, 0.0, static_cast<double>(Wave_.WaveNos))));
}

void PlayerControl::SeekBy(double Seconds) {
    if (!Trapped([&] { Refresh(); })) return;
    SeekTo(static_cast<double>(Cursor_) / Wave_.FmtFriq + Seconds);
}

void PlayerControl::SetRate(double Factor) {
    if (!Wave_.HasTempo) {
        Say("the waveOut engine plays at the wave's own rate", true);
        return;
    }
    if (std::isnan(Factor)) return;
    const double Hz =
        std::clamp(Factor * Wave_.FmtFriq, double{DSBFREQUENCY_MIN}, double{DSBFREQUENCY_MAX});
    const double Tempo = Hz / Wave_.FmtFriq;
    const bool Reverse = Wave_.Direction < 0;
    const bool Taken = Trapped([&] {
        Refresh();
        Reverse ? Port_.PlayTempoRev(static_cast<float>(Tempo))
                : Port_.PlayTempoFor(static_cast<float>(Tempo));
    });
    if (!Taken) return;
    (Reverse ? Wave_.TempoRev : Wave_.TempoFor) = Tempo;
    // A run keeps the rate it was started with, and one that is paused takes the new one over.
    if (State_ == Transport::Playing && !NothingAhead()) RunFromCursor();
    Tell(Change::Rate);
}

void PlayerControl::SetLoop(bool On) {
    if (!Trapped([&] { Port_.LoopPlayON(On); })) return;
    Wave_.Loop = On;
    Tell(Change::Loop);
}

}  // namespace Tolvar
