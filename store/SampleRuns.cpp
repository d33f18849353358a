#include "store/SampleRuns.h"

#include <algorithm>

namespace Tolvar {

namespace {

constexpr std::size_t LeastChunk = 64 * 1024;  // words
constexpr std::int16_t Silence[RunWalk::PieceLen] = {};

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

std::span<const std::int16_t> RunWalk::Next(std::int64_t Count) {
    const SampleRun& Run = Of.front();
    const auto Samples = static_cast<std::size_t>(Count);
    std::span<const std::int16_t> Found(Silence, Samples);
    if (Run.From != nullptr) {
        const std::byte* const From = Run.From + Taken * Run.Layout.FrameBytes();
        if (Run.Layout.IsPlain()) {
            Found = {reinterpret_cast<const std::int16_t*>(From), Samples};
        } else {
            SamplesFromFile(Run.Layout, From, {Piece, Samples});
            Found = {Piece, Samples};
        }
    }
    Taken += Count;
    if (Taken == Run.Count) {
        Of = Of.subspan(1);
        Taken = 0;
    }
    return Found;
}

}  // namespace Tolvar
