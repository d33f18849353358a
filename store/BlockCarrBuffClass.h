#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "store/BlockSet.h"
#include "store/WoroFileBlockMod.h"

namespace Tolvar {

/// One channel of the loaded wave: an ordered set of blocks, which it owns. Positions are samples,
/// 1-based. Apartment's thread only. An operation that fails leaves the channel as it was.
class BlockCarrBuffClass {
  public:
    /// Empty. Store must outlive the carrier; its MemorySizeToUse at this moment sets the length of
    /// the blocks that ReDimSize makes.
    explicit BlockCarrBuffClass(WoroFileBlockMod& Store);
    /// Frees the blocks and forgets the files that no block uses any more; never throws.
    ~BlockCarrBuffClass();
    BlockCarrBuffClass(const BlockCarrBuffClass&) = delete;
    BlockCarrBuffClass& operator=(const BlockCarrBuffClass&) = delete;

    /// Samples in the channel: the sum of BlkLen, unless it was set to something else.
    std::int32_t WaveINos() const { return Samples_; }
    void WaveINos(std::int32_t NewVal) { Samples_ = NewVal; }

    /// Entry 0 is 0, then the carrier's own blocks, which stay its own.
    void BuffBlocksGet(std::vector<std::int32_t>& BlkSet) const { BlkSet = Blks_.Entries(); }
    /// Entry 0 is 0, then new blocks, which are the caller's.
    void BuffBlocksGetCopy(std::vector<std::int32_t>& BlkSet);

    /// QBuff[0] receives the sample at FromPos; positions that no block covers are left alone.
    /// Neither loads nor stamps a block. A file that cannot be read is RuntimeFailure(File); QBuff
    /// then holds what was read before it.
    void QuickBuffGet(std::int32_t FromPos, std::span<std::int16_t> QBuff);

    /// The samples at FromPos and behind, Count of them, as runs: what QuickBuffGet puts into
    /// zeros. Samples that are in memory are not copied, nor are bytes of an original file read
    /// again that the runs of the other channel, read just before, have beside their own. On
    /// failure Runs is of no use.
    void QuickBuffRuns(std::int32_t FromPos, std::int32_t Count, SampleRuns& Runs,
                       const SampleRuns* OtherChannel = nullptr);

    /// Makes the channel NewSz samples long; what is added is silent. 0 is answered in the message
    /// box, a negative size with RuntimeFailure(Input). DoInitilize has no effect.
    void ReDimSize(std::int32_t NewSz, bool DoInitilize = false);

    /// The sample at WavPos, 0 where there is none; loads the block that it lies in.
    std::int16_t WaveLR(std::int32_t WavPos);
    /// Nothing where there is no sample.
    void WaveLR(std::int32_t WavPos, std::int16_t NewVal);

    /// Frees the carrier's blocks and takes over those of NewBlkSet, from entry 1 on; none of them
    /// may be the carrier's already. On failure they stay the caller's.
    void BuffBlocksPutFresh(const std::vector<std::int32_t>& NewBlkSet);

  private:
    void FindBlock(std::int32_t WavPos);
    bool CurBlkHolds(std::int32_t WavPos) const;
    void FreeBlocks();
    void Grow(std::int32_t NewSz);
    void Shrink(std::int32_t NewSz);

    WoroFileBlockMod& Store_;
    std::int32_t Samples_ = 0;
    BlockSet Blks_;
    std::int32_t CurBlk = 0;  // what the last sample access found; 0 = none
    std::int32_t NewBlkLen;   // samples
};

}  // namespace Tolvar
