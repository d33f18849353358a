#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "store/WoroFileBlockMod.h"

namespace Tolvar {

/// The blocks of a channel in order, searched by position. A set whose blocks follow each other
/// without gap or overlap is searched through the records themselves; any other one through an
/// index that the next search makes. The records' BlkStartPos and BlkLen must not change while a
/// block is in the set.
class BlockSet {
  public:
    /// Store stays the caller's and must outlive the set. The set does not own its blocks.
    explicit BlockSet(WoroFileBlockMod& Store) : Owner_(&Store) {}
    /// Blks from entry 1 on; entry 0 is not used.
    BlockSet(WoroFileBlockMod& Store, std::span<const std::int32_t> Blks);

    std::int32_t Count() const { return static_cast<std::int32_t>(Blks_.size()) - 1; }
    /// Entries 1..Count(); entry 0 is 0.
    const std::vector<std::int32_t>& Entries() const { return Blks_; }
    /// Samples in the blocks that were taken in.
    std::int64_t Length() const { return Sum_; }
    /// Every block starts where the one before it ends.
    bool IsTiled() const { return Tiles_; }
    std::int32_t First() const { return Count() > 0 ? Blks_[1] : 0; }

    /// The entry of the first block, in the order of the set, that starts at Last or before and
    /// ends at From or behind: Find(P, P) is the block that holds P, and Find(P, P - 1) the block
    /// that a cut at P splits. 0 when there is none.
    std::int32_t Find(std::int64_t From, std::int64_t Last) const;

    /// Calls Visit with every block that holds one of the positions From..Last, in the order of
    /// the set.
    template <class Visitor>
    void ForEachIn(std::int64_t From, std::int64_t Last, Visitor&& Visit) const {
        if (Tiles_) {
            for (std::size_t I = FirstEndingAt(From); I < Blks_.size(); ++I) {
                if (Owner_->Block(Blks_[I]).BlkStartPos > Last) return;
                Visit(Blks_[I]);
            }
        } else {
            for (const std::size_t I : Meeting(From, Last))
                Visit(Blks_[I]);
        }
    }

    /// std::bad_alloc leaves the set as it was.
    void Reserve(std::size_t More) { Blks_.reserve(Blks_.size() + More); }
    /// Allocates nothing within the room reserved.
    void Append(std::int32_t Blk);
    void Replace(std::int32_t Entry, std::int32_t Blk);
    /// Takes the blocks that start behind Last out of the set and frees them.
    void FreeBehind(std::int32_t Last);

  private:
    std::int64_t StartOf(std::size_t Entry) const {
        return Owner_->Block(Blks_[Entry]).BlkStartPos;
    }
    std::int64_t EndOf(std::size_t Entry) const {
        return StartOf(Entry) + Owner_->Block(Blks_[Entry]).BlkLen - 1;
    }
    void TakeIn(const BlockRec& Block);
    std::size_t FirstEndingAt(std::int64_t Pos) const;
    std::span<const std::size_t> Meeting(std::int64_t From, std::int64_t Last) const;
    void MakeIndex() const;
    void Collect(std::size_t Node, std::size_t Width, std::size_t Base, std::size_t Limit,
                 std::int64_t From) const;

    static constexpr std::int64_t Nowhere = INT64_MIN;

    WoroFileBlockMod* Owner_;
    std::vector<std::int32_t> Blks_{0};
    bool Tiles_ = true;
    std::int64_t NextStart_ = Nowhere;  // behind the last block
    std::int64_t Sum_ = 0;
    mutable std::size_t LastFound_ = 1;

    // Only where the set does not tile: the entries by start, above them a tree of the latest end
    // in each half, and the result of the last search.
    mutable bool Indexed_ = false;
    mutable std::vector<std::size_t> ByStart_;
    mutable std::vector<std::int64_t> LatestEnd_;
    mutable std::vector<std::size_t> Hits_;
};

}  // namespace Tolvar
