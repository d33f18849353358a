#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "store/SampleCodec.h"

namespace Tolvar {

/// Consecutive samples of a channel, 1 or more, that lie in one place.
struct SampleRun {
    std::int64_t Count = 0;
    const std::byte* From = nullptr;  ///< SpanBytes(Count) bytes of the layout; null: silence
    SampleLayout Layout = WorkFileLayout;
    // Of a run of an original file, so that the other channel finds its own bytes beside it.
    std::int32_t OrgSlot = 0;  ///< 0: it is none
    std::int64_t BytePos = 0;
    std::byte* Behind = nullptr;  ///< room for one sample more, right behind the run's bytes
};

/// A stretch of a channel as runs, in order and without a gap. Samples in memory stay where their
/// blocks have them; bytes of files are kept here, as they are, in room that is used again for the
/// next stretch. Valid until it is cleared or a block of the stretch leaves memory; runs may point
/// into those of another channel, and are then valid as long as they.
class SampleRuns {
  public:
    const std::vector<SampleRun>& All() const { return Runs_; }

    void Clear();
    void Add(const SampleRun& Run) { Runs_.push_back(Run); }
    /// Room for the bytes of a run, aligned for samples of 16 bits. It stays where it is.
    std::span<std::byte> Room(std::size_t Bytes);

  private:
    struct Chunk {
        std::unique_ptr<std::int16_t[]> Words;
        std::size_t Size;
    };
    std::vector<SampleRun> Runs_;
    std::vector<Chunk> Chunks_;
    std::size_t Current_ = 0;  // the chunk that gives room
    std::size_t Used_ = 0;     // words of it
};

/// Goes through runs piece by piece; they must stay valid.
class RunWalk {
  public:
    static constexpr std::int64_t PieceLen = 2048;  // what the processor's first cache holds

    explicit RunWalk(const SampleRuns& Runs) : Of_(Runs.All()) {}

    /// Samples that the next piece may have at most; 0 at the end.
    std::int64_t Most() const;

    /// The next Count samples, 1 to Most(), as they lie.
    SampleRun Next(std::int64_t Count);

  private:
    std::span<const SampleRun> Of_;
    std::int64_t Taken_ = 0;  // samples of the first run in Of
};

}  // namespace Tolvar
