#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <span>
#include <utility>
#include <vector>

#include "store/BlockRec.h"
#include "store/SlotSet.h"

namespace Tolvar {

/// Where the editor says that a block lies.
struct Extent {
    std::int32_t BlkLen;
    std::int32_t BlkStartPos;
    std::int32_t BlkFilePos;
};

/// The block records 1..Count() with what is derived from them: the first free record, the bytes
/// in memory and the order in which memory blocks were last used. Records never move. A block
/// number outside the table is RuntimeFailure(Input).
class BlockTable {
  public:
    using Samples = std::unique_ptr<std::int16_t[]>;

    std::int32_t Count() const noexcept { return Records_; }
    const BlockRec& At(std::int32_t Blk) const { return Rec(Blk); }

    /// The first free record, appended when none is; it stays free until it gets a type.
    /// RuntimeFailure(Overflow) or std::bad_alloc leave the table as it was.
    std::int32_t FirstFree();

    /// Bytes that the blocks in memory hold.
    std::int32_t BuffMemUsed() const noexcept { return MemUsed_; }

    /// RuntimeFailure(Overflow) when Len more samples in memory could not be counted.
    void CheckRoom(std::int32_t Len) const;

    /// A free record becomes a block that is not in memory.
    void Fill(std::int32_t Blk, const Extent& Where, BlkTypes Type, std::int32_t FileNo);

    void SetPlace(std::int32_t Blk, std::int32_t FileNo, std::int32_t FilePos);
    void SetStart(std::int32_t Blk, std::int32_t StartPos);
    void SetLen(std::int32_t Blk, std::int32_t Len);  ///< not of a block in memory
    void SetStamp(std::int32_t Blk, std::int32_t Stamp);

    /// A change that neither brings samples into memory nor drops them.
    void SetType(std::int32_t Blk, BlkTypes Type);

    /// Len samples of a block that is not in memory come in, as BlkBoth or BlkBuff; they are its
    /// BlkLen. On RuntimeFailure(Overflow) or std::bad_alloc nothing has changed.
    void EnterMemory(std::int32_t Blk, Samples Data, std::int32_t Len, BlkTypes Type,
                     std::int32_t Stamp);

    /// Drops the samples of a block in memory.
    void LeaveMemory(std::int32_t Blk, BlkTypes Type);

    /// Frees the record, with its samples if it has any; BlkStartPos is left.
    void Clear(std::int32_t Blk);

    /// The samples of a block in memory, to be changed.
    std::span<std::int16_t> Data(std::int32_t Blk);

    std::size_t MemoryBlocks() const noexcept { return ByUse_.size(); }

    /// The memory block with the least stamp, of equal ones the one with the highest number.
    /// There must be one.
    std::int32_t LeastRecentlyUsed() const noexcept { return -ByUse_.begin()->second; }

  private:
    static constexpr std::int32_t ChunkBits = 11;
    static constexpr std::int32_t ChunkRecords = 1 << ChunkBits;

    BlockRec& Rec(std::int32_t Blk) const {
        if (Blk < 1 || Blk > Records_) RefuseNumber(Blk);
        const auto Index = static_cast<std::size_t>(Blk - 1);
        return Chunks_[Index >> ChunkBits][Index % ChunkRecords];
    }
    [[noreturn]] void RefuseNumber(std::int32_t Blk) const;
    void Append();

    std::int32_t Records_ = 0;
    std::int32_t MemUsed_ = 0;
    std::vector<std::unique_ptr<BlockRec[]>> Chunks_;
    SlotSet Free_;
    std::set<std::pair<std::int32_t, std::int32_t>> ByUse_;  // (BlkUseStamp, -number)
};

constexpr bool InMemory(std::int32_t Type) {
    return Type == BlkBoth || Type == BlkBuff;
}

}  // namespace Tolvar
