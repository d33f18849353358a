#include "store/SampleRuns.h"

#include <algorithm>

namespace Tolvar {

namespace {

constexpr std::size_t LeastChunk = 64 * 1024;  // words

}  // namespace

void SampleRuns::Clear() {
    Runs.clear();
    Current = Used = 0;
}

std::span<std::byte> SampleRuns::Room(std::size_t Bytes) {
    const std::size_t Words = (Bytes + 1) / 2;
    while (Current < Chunks.size() && Chunks[Current].Size - Used < Words) {
        ++Current;
        Used = 0;
    }
    if (Current == Chunks.size()) {
        const std::size_t Size = std::max(Words, LeastChunk);
        Chunks.push_back({std::make_unique_for_overwrite<std::int16_t[]>(Size), Size});
    }
    const std::span Free(Chunks[Current].Words.get() + Used, Words);
    Used += Words;
    return std::as_writable_bytes(Free).first(Bytes);
}

std::int64_t RunWalk::Most() const {
    return Of.empty() ? 0 : std::min(Of.front().Count - Taken, PieceLen);
}

SampleRun RunWalk::Next(std::int64_t Count) {
    const SampleRun& Run = Of.front();
    SampleRun Piece{.Count = Count, .Layout = Run.Layout};
    if (Run.From != nullptr) Piece.From = Run.From + Taken * Run.Layout.FrameBytes();
    Taken += Count;
    if (Taken == Run.Count) {
        Of = Of.subspan(1);
        Taken = 0;
    }
    return Piece;
}

}  // namespace Tolvar
