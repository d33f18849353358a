#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "store/WoroFileBlockMod.h"

namespace Tolvar {

/// Blocks that are being made: entry 0 is 0, then one entry a block. Those that nobody took are
/// freed again, so that a failure half-way leaves nothing behind.
class MadeBlocks {
  public:
    MadeBlocks(WoroFileBlockMod& Store, std::size_t AtMost) : Owner_(Store) {
        Blks_.reserve(AtMost + 1);
        Blks_.push_back(0);
    }
    ~MadeBlocks() {
        for (std::size_t I = 1; I < Blks_.size(); ++I)
            Owner_.BlockFree(Blks_[I]);
    }
    MadeBlocks(const MadeBlocks&) = delete;
    MadeBlocks& operator=(const MadeBlocks&) = delete;

    /// At most AtMost times; allocates nothing.
    std::int32_t Add(std::int32_t Blk) {
        Blks_.push_back(Blk);
        return Blk;
    }
    std::vector<std::int32_t> Take() { return std::exchange(Blks_, {}); }

  private:
    WoroFileBlockMod& Owner_;
    std::vector<std::int32_t> Blks_;
};

}  // namespace Tolvar
