#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "waveplay/sound/SoundBytes.h"

namespace Tolvar {

struct RiffChunk {
    std::string Name;         ///< four letters
    std::int64_t At = 0;      ///< byte of the first that follows its head, 0-based
    std::uint32_t Bytes = 0;  ///< as the head says it
};

/// The chunks of a RIFF file, or of one of its relatives, in the order in which they lie.
/// RuntimeFailure(File) when the file cannot be read.
class RiffChunks {
  public:
    /// All of the file's; none for a file of another kind.
    explicit RiffChunks(const SoundBytes& In);
    /// Those of the list that Of's chunk List is.
    RiffChunks(const RiffChunks& Of, const RiffChunk& List);

    /// None behind the last whole head.
    std::optional<RiffChunk> Next();

  private:
    std::int64_t Behind(const RiffChunk& Chunk) const;

    const SoundBytes& In_;
    bool IsBigEnd_ = false;
    std::int64_t Next_ = 0;
    std::int64_t End_ = 0;
};

/// RuntimeFailure(Input) when an entry in a list of a RIFF file (title, program and the like) has a
/// length that, counted with a sign, leads backward: libsndfile would go round in it for ever.
void RequireForwardLists(const SoundBytes& In);

}  // namespace Tolvar
