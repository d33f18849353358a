#include "store/BlockSet.h"

#include <algorithm>
#include <bit>
#include <limits>

namespace Tolvar {

BlockSet::BlockSet(WoroFileBlockMod& Store, std::span<const std::int32_t> Set) : Owner_(&Store) {
    if (Set.size() <= 1) return;
    Blks_.assign(Set.begin(), Set.end());
    Blks_[0] = 0;
    for (const std::int32_t Blk : std::span(Blks_).subspan(1))
        TakeIn(Store.Block(Blk));
}

void BlockSet::TakeIn(const BlockRec& Block) {
    const bool IsFirst = NextStart_ == Nowhere;
    if (Block.BlkLen < 1 || (!IsFirst && Block.BlkStartPos != NextStart_)) Tiles_ = false;
    NextStart_ = std::int64_t{Block.BlkStartPos} + Block.BlkLen;
    Sum_ += Block.BlkLen;
}

void BlockSet::Append(std::int32_t Blk) {
    Blks_.push_back(Blk);
    TakeIn(Owner_->Block(Blk));
    Indexed_ = false;
}

void BlockSet::Replace(std::int32_t Entry, std::int32_t Blk) {
    Blks_[static_cast<std::size_t>(Entry)] = Blk;
    Indexed_ = false;
}

void BlockSet::FreeBehind(std::int32_t Last) {
    std::size_t Kept = Tiles_ ? FirstEndingAt(std::int64_t{Last} + 1) : 1;
    for (std::size_t I = Kept; I < Blks_.size(); ++I) {
        if (StartOf(I) > Last) {
            Owner_->BlockFree(Blks_[I]);
        } else {
            Blks_[Kept++] = Blks_[I];
        }
    }
    Blks_.resize(Kept);
    NextStart_ = Kept > 1 ? EndOf(Kept - 1) + 1 : Nowhere;
    Indexed_ = false;
}

std::int32_t BlockSet::Find(std::int64_t From, std::int64_t Last) const {
    if (!Tiles_) {
        const auto Found = Meeting(From, Last);
        return Found.empty() ? 0 : static_cast<std::int32_t>(Found.front());
    }
    const std::size_t Entry = FirstEndingAt(From);
    return Entry == Blks_.size() || StartOf(Entry) > Last ? 0 : static_cast<std::int32_t>(Entry);
}

std::size_t BlockSet::FirstEndingAt(std::int64_t Pos) const {
    std::size_t From = 1;
    std::size_t To = Blks_.size();
    // Reads go through the channel in steps, so the answer is mostly near the last one.
    for (std::size_t Step = 1, Near = LastFound_; Near >= From && Near < To; Step *= 2) {
        if (EndOf(Near) < Pos) {
            From = Near + 1;
            Near += Step;
        } else {
            To = Near;
            Near -= std::min(Step, Near);
        }
    }
    while (From < To) {
        const std::size_t Middle = From + (To - From) / 2;
        if (EndOf(Middle) < Pos) {
            From = Middle + 1;
        } else {
            To = Middle;
        }
    }
    LastFound_ = From;
    return From;
}

std::span<const std::size_t> BlockSet::Meeting(std::int64_t From, std::int64_t Last) const {
    if (!Indexed_) MakeIndex();
    const auto Limit =
        std::ranges::upper_bound(ByStart_, Last, {}, [this](std::size_t I) { return StartOf(I); });
    Hits_.clear();
    Collect(1, LatestEnd_.size() / 2, 0, static_cast<std::size_t>(Limit - ByStart_.begin()), From);
    std::ranges::sort(Hits_);
    return Hits_;
}

void BlockSet::MakeIndex() const {
    ByStart_.clear();
    for (std::size_t I = 1; I < Blks_.size(); ++I) {
        if (EndOf(I) >= StartOf(I)) ByStart_.push_back(I);
    }
    std::ranges::sort(ByStart_, {}, [this](std::size_t I) { return StartOf(I); });
    const std::size_t Leaves = std::bit_ceil(std::max<std::size_t>(ByStart_.size(), 1));
    LatestEnd_.assign(2 * Leaves, std::numeric_limits<std::int64_t>::min());
    for (std::size_t I = 0; I < ByStart_.size(); ++I)
        LatestEnd_[Leaves + I] = EndOf(ByStart_[I]);
    for (std::size_t I = Leaves - 1; I > 0; --I) {
        LatestEnd_[I] = std::max(LatestEnd_[2 * I], LatestEnd_[2 * I + 1]);
    }
    Indexed_ = true;
}

// Node covers the Width entries of ByStart from Base on; those before Limit that end at From or
// later are hits.
void BlockSet::Collect(std::size_t Node, std::size_t Width, std::size_t Base, std::size_t Limit,
                       std::int64_t From) const {
    if (Base >= Limit || LatestEnd_[Node] < From) return;
    if (Width == 1) {
        Hits_.push_back(ByStart_[Base]);
        return;
    }
    Collect(2 * Node, Width / 2, Base, Limit, From);
    Collect(2 * Node + 1, Width / 2, Base + Width / 2, Limit, From);
}

}  // namespace Tolvar
