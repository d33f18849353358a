#include "engines/RunMath.h"

#include <algorithm>
#include <limits>

#include "platform/Checked.h"

namespace Tolvar {

namespace {

constexpr double SegmentSeconds = 4.0;

/// Before its first frame a reverse run stands one frame behind the wave's end, which the longest
/// wave cannot count.
std::int32_t Clamped(std::int64_t Position) {
    return static_cast<std::int32_t>(
        std::clamp<std::int64_t>(Position, std::numeric_limits<std::int32_t>::min(),
                                 std::numeric_limits<std::int32_t>::max()));
}

}  // namespace

void SetGeometry(PlayerState& State) {
    ForgetGeometry(State);  // until the products are known to fit
    const std::int32_t SegFrames = Round32(State.FmtFriq * SegmentSeconds);
    const std::int32_t BuffFrames = CheckedMul(SegFrames, 2);
    const std::int32_t SegSamples = CheckedMul(SegFrames, State.FmtChannal);
    const std::int32_t BuffSamples = CheckedMul(SegSamples, 2);
    const std::int32_t SegBytes = CheckedMul(SegSamples, 2);
    const std::int32_t BuffBytes = CheckedMul(SegSamples, 4);
    State.SegFrames = SegFrames;
    State.BuffFrames = BuffFrames;
    State.SegSamples = SegSamples;
    State.BuffSamples = BuffSamples;
    State.SegBytes = SegBytes;
    State.BuffBytes = BuffBytes;
}

void ForgetGeometry(PlayerState& State) {
    State.SegFrames = State.BuffFrames = State.SegSamples = State.BuffSamples = 0;
    State.SegBytes = State.BuffBytes = 0;
}

void StartAtCurPos(PlayerState& State) {
    std::int64_t NextPos = State.FillNextPos;
    if (State.PlayDirection == 1) NextPos = State.PlayCurPos;
    if (State.PlayDirection == -1) NextPos = std::int64_t{State.WaveNos} - State.PlayCurPos + 1;
    NextPos = std::max<std::int64_t>(std::min<std::int64_t>(NextPos, State.WaveNos), 1);
    State.FillNextPos = static_cast<std::int32_t>(NextPos);
    State.PlayStartOff = State.FillNextPos - 1;
}

void StartAtEdge(PlayerState& State) {
    State.FillNextPos = 1;
    State.PlayStartOff = 0;
}

void TurnRound(PlayerState& State) {
    if (State.PlayDirection == 1 || State.PlayDirection == -1) {
        State.PlayDirection = -State.PlayDirection;
    }
}

void SetCurPos(PlayerState& State, std::int32_t Played) {
    const std::int64_t Behind = std::int64_t{State.PlayStartOff} + Played;
    if (State.PlayDirection == 1) State.PlayCurPos = Clamped(Behind);
    if (State.PlayDirection == -1) State.PlayCurPos = Clamped(State.WaveNos - Behind + 1);
}

}  // namespace Tolvar
