#pragma once

#include <cstdint>

#include "state/PlayDllMod.h"

namespace Tolvar {

/// Frame arithmetic that every engine shares.

/// Sets the double-buffer geometry from FmtFriq and FmtChannal: two segments of four seconds.
/// RuntimeFailure(Overflow), and all of it 0, when a product leaves 32 bits.
void SetGeometry(PlayerState& State);

/// There is no buffer that fits the wave: makes all of it 0, so that no fill and no run goes ahead.
void ForgetGeometry(PlayerState& State);

/// Makes a run begin at frame PlayCurPos, clamped into the wave, in PlayDirection: sets
/// FillNextPos (kept, but clamped, when there is no direction) and PlayStartOff.
void StartAtCurPos(PlayerState& State);

/// Makes a run begin at frame 1 of PlayDirection.
void StartAtEdge(PlayerState& State);

/// Reverses PlayDirection; one that is neither +1 nor -1 stays.
void TurnRound(PlayerState& State);

/// Sets PlayCurPos to the frame heard last, Played frames after the run's start; left unchanged
/// when there is no direction.
void SetCurPos(PlayerState& State, std::int32_t Played);

/// What PlayRunningState is while a run plays.
inline std::int32_t PlayingState(const PlayerState& State) {
    return State.LoopPlayON ? 2 : 1;
}

}  // namespace Tolvar
