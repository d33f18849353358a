#include "stream/StreamBuffFill.h"

#include <algorithm>
#include <span>
#include <string>

#include "platform/Checked.h"
#include "platform/OnFailure.h"
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

std::span<std::int16_t> HalfOf(PlayerState& State, std::int32_t Segment) {
    CheckGeometry(State);
    if (!State.StreamBuff.Exists() || State.StreamBuff.Count() != State.BuffSamples) {
        State.StreamBuff.Renew(State.BuffSamples);
    }
    return {State.StreamBuff.At(Segment == 2 ? State.SegSamples + 1 : 1),
            static_cast<std::size_t>(State.SegSamples)};
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

/// Takes room for the next Samples out of Stream: from its back when what comes first is last.
std::int16_t* TakePiece(std::span<std::int16_t>& Stream, std::int64_t Samples, SegmentOrder Order) {
    const auto Count = static_cast<std::size_t>(Samples);
    const auto Piece = Order.Reverse ? Stream.last(Count) : Stream.first(Count);
    Stream = Order.Reverse ? Stream.first(Stream.size() - Count) : Stream.subspan(Count);
    return Piece.data();
}

void WriteMono(const SampleRuns& Left, SegmentOrder Order, std::span<std::int16_t> Stream) {
    RunWalk L(Left);
    while (const std::int64_t Frames = L.Most())
        Interleave(L.Next(Frames), Order, TakePiece(Stream, Frames, Order));
}

void WriteStereo(const SampleRuns& Left, const SampleRuns& Right, SegmentOrder Order,
                 std::span<std::int16_t> Stream) {
    RunWalk L(Left);
    RunWalk R(Right);
    while (const std::int64_t Frames = std::min(L.Most(), R.Most()))
        Interleave(L.Next(Frames), R.Next(Frames), Order, TakePiece(Stream, 2 * Frames, Order));
}

void WriteFrames(PlayerState& State, std::int32_t Frames, std::span<std::int16_t> Stream) {
    const bool Reverse = State.PlayDirection == -1;
    const SegmentOrder Order{.Reverse = Reverse, .EightBits = State.FmtBits == 8};
    const std::int32_t FromPos =
        Reverse ? State.WaveNos - State.FillNextPos - Frames + 2 : State.FillNextPos;
    State.BlkCarrL->QuickBuffRuns(FromPos, Frames, State.QL);
    if (State.FmtChannal == 2) {
        State.BlkCarrR->QuickBuffRuns(FromPos, Frames, State.QR, &State.QL);
        WriteStereo(State.QL, State.QR, Order, Stream);
    } else {
        WriteMono(State.QL, Order, Stream);
    }
}

}  // namespace

bool StreamBuffFill(PlayerState& State, std::int32_t Segment) {
    const std::span<std::int16_t> Half = HalfOf(State, Segment);
    const auto BeSilent = [](std::span<std::int16_t> Rest) {
        std::ranges::fill(Rest, std::int16_t{0});
    };
    const OnFailure SilentAll([&] { BeSilent(Half); });
    if (State.PlayDirection != 1 && State.PlayDirection != -1) {
        BeSilent(Half);
        return false;
    }
    const std::int32_t Frames = FramesToFill(State);
    if (Frames <= 0) {
        BeSilent(Half);
        State.SegFilled = 0;
        State.SegFilledBytes = 0;
        State.LastSegMs = 1;
        return false;
    }
    State.SegFilled = Frames;
    const auto Samples = static_cast<std::size_t>(std::int64_t{Frames} * State.FmtChannal);
    WriteFrames(State, Frames, Half.first(Samples));
    BeSilent(Half.subspan(Samples));
    State.SegFilledBytes = Frames * State.FmtChannal * 2;
    State.FillNextPos = CheckedAdd(State.FillNextPos, Frames);
    return true;
}

}  // namespace Tolvar
