#include "store/SampleRuns.h"

#include <algorithm>

namespace Tolvar {

namespace {

constexpr std::size_t LeastChunk = 64 * 1024;  // words

}  // namespace

void SampleRuns::Clear() {
    Runs_.clear();
    Current_ = Used_ = 0;
}

std::span<std::byte> SampleRuns::Room(std::size_t Bytes) {
    const std::size_t Words = (Bytes + 1) / 2;
    while (Current_ < Chunks_.size() && Chunks_[Current_].Size - Used_ < Words) {
        ++Current_;
        Used_ = 0;
    }
    if (Current_ == Chunks_.size()) {
        const std::size_t Size = std::max(Words, LeastChunk);
        Chunks_.push_back({std::make_unique_for_overwrite<std::int16_t[]>(Size), Size});
    }
    const std::span Free(Chunks_[Current_].Words.get() + Used_, Words);
    Used_ += Words;
    return std::as_writable_bytes(Free).first(Bytes);
}

std::int64_t RunWalk::Most() const {
    return Of_.empty() ? 0 : std::min(Of_.front().Count - Taken_, PieceLen);
}

SampleRun RunWalk::Next(std::int64_t Count) {
    const SampleRun& Run = Of_.front();
    SampleRun Piece{.Count = Count, .Layout = Run.Layout};
    if (Run.From != nullptr) Piece.From = Run.From + Taken_ * Run.Layout.FrameBytes();
    Taken_ += Count;
    if (Taken_ == Run.Count) {
        Of_ = Of_.subspan(1);
        Taken_ = 0;
    }
    return Piece;
}

}  // namespace Tolvar
