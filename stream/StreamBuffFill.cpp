#include "stream/StreamBuffFill.h"

#include <algorithm>
#include <string>
#include <vector>

#include "platform/Checked.h"
#include "store/BlockCarrBuffClass.h"
#include "stream/Interleave.h"

namespace Tolvar {
namespace {

/// The geometry is the last buffer's. It is not this wave's when the buffer could not be made, or
/// when the wave was handed over while there was no engine.
void CheckGeometry(const PlayerState& State) {
    const std::int64_t Samples = std::int64_t{2} * State.SegFrames * State.FmtChannal;
    if (Samples > 0 && Samples == State.BuffSamples) return;
    throw RuntimeFailure(FailureKind::Device, "The engine has no buffer for this wave (" +
                                                  std::to_string(State.FmtChannal) + " channels, " +
                                                  std::to_string(State.FmtFriq) +
                                                  " Hz): the last one made holds " +
                                                  std::to_string(State.BuffSamples) + " samples");
}

/// The first element of the segment's half, silent from there to the half's end.
std::int16_t* SilentSegment(PlayerState& State, std::int32_t Segment) {
    CheckGeometry(State);
    const std::int32_t Base = Segment == 2 ? State.SegSamples : 0;
    if (!State.StreamBuff.Exists() || State.StreamBuff.Count() != State.BuffSamples) {
        State.StreamBuff.Renew(State.BuffSamples);
        return State.StreamBuff.At(Base + 1);
    }
    std::int16_t* const First = State.StreamBuff.At(Base + 1);
    std::fill_n(First, State.SegSamples, std::int16_t{0});
    return First;
}

/// Frames that this fill delivers; 0 or less when the cursor has passed the end.
std::int32_t FramesToFill(PlayerState& State) {
    const std::int64_t LastOfSegment = std::int64_t{State.FillNextPos} + State.SegFrames - 1;
    if (State.WaveNos >= LastOfSegment) {
        State.LastSegMs = 0;
        return State.SegFrames;
    }
    const std::int32_t Frames = CheckedSub(State.WaveNos, State.FillNextPos) + 1;
    if (Frames > 0) {
        State.LastSegMs =
            Round32(static_cast<double>(CheckedMul(Frames, 1000)) / State.FmtFriq + 1.0);
    }
    return Frames;
}

/// The channel's samples FromPos.. into Working, which is made Frames long.
std::span<const std::int16_t> ReadChannel(BlockCarrBuffClass& Carrier, std::int32_t FromPos,
                                          std::int32_t Frames, std::vector<std::int16_t>& Working) {
    Working.assign(static_cast<std::size_t>(Frames), 0);
    Carrier.QuickBuffGet(FromPos, Working);
    return Working;
}

void WriteFrames(PlayerState& State, std::int32_t Frames, std::int16_t* Stream) {
    const bool Reverse = State.PlayDirection == -1;
    const SegmentOrder Order{.Reverse = Reverse, .EightBits = State.FmtBits == 8};
    const std::int32_t FromPos =
        Reverse ? State.WaveNos - State.FillNextPos - Frames + 2 : State.FillNextPos;
    const auto Left = ReadChannel(*State.BlkCarrL, FromPos, Frames, State.QL);
    if (State.FmtChannal == 2) {
        Interleave(Left, ReadChannel(*State.BlkCarrR, FromPos, Frames, State.QR), Order, Stream);
    } else {
        Interleave(Left, Order, Stream);
    }
}

}  // namespace

bool StreamBuffFill(PlayerState& State, std::int32_t Segment) {
    std::int16_t* const Stream = SilentSegment(State, Segment);
    if (State.PlayDirection != 1 && State.PlayDirection != -1) return false;

    const std::int32_t Frames = FramesToFill(State);
    if (Frames <= 0) {
        State.SegFilled = 0;
        State.SegFilledBytes = 0;
        State.LastSegMs = 1;
        return false;
    }
    State.SegFilled = Frames;
    WriteFrames(State, Frames, Stream);
    State.SegFilledBytes = Frames * State.FmtChannal * 2;
    State.FillNextPos = CheckedAdd(State.FillNextPos, Frames);
    return true;
}

}  // namespace Tolvar
