#include "store/BlockSet.h"

#include <algorithm>
#include <bit>
#include <limits>

namespace Tolvar {

BlockSet::BlockSet(WoroFileBlockMod& Store, std::span<const std::int32_t> Set) : Owner(&Store) {
    if (Set.size() <= 1) return;
    Blks.assign(Set.begin(), Set.end());
    Blks[0] = 0;
    for (const std::int32_t Blk : std::span(Blks).subspan(1))
        TakeIn(Store.Block(Blk));
}

void BlockSet::TakeIn(const BlockRec& Block) {
    const bool IsFirst = NextStart == Nowhere;
    if (Block.BlkLen < 1 || (!IsFirst && Block.BlkStartPos != NextStart)) Tiles = false;
    NextStart = std::int64_t{Block.BlkStartPos} + Block.BlkLen;
    Sum += Block.BlkLen;
}

void BlockSet::Append(std::int32_t Blk) {
    Blks.push_back(Blk);
    TakeIn(Owner->Block(Blk));
    Indexed = false;
}

void BlockSet::Replace(std::int32_t Entry, std::int32_t Blk) {
    Blks[static_cast<std::size_t>(Entry)] = Blk;
    Indexed = false;
}

void BlockSet::FreeBehind(std::int32_t Last) {
    std::size_t Kept = Tiles ? FirstEndingAt(std::int64_t{Last} + 1) : 1;
    for (std::size_t I = Kept; I < Blks.size(); ++I) {
        if (StartOf(I) > Last) {
            Owner->BlockFree(Blks[I]);
        } else {
            Blks[Kept++] = Blks[I];
        }
    }
    Blks.resize(Kept);
    NextStart = Kept > 1 ? EndOf(Kept - 1) + 1 : Nowhere;
    Indexed = false;
}

std::int32_t BlockSet::Find(std::int64_t From, std::int64_t Last) const {
    if (!Tiles) {
        const auto Found = Meeting(From, Last);
        return Found.empty() ? 0 : static_cast<std::int32_t>(Found.front());
    }
    const std::size_t Entry = FirstEndingAt(From);
    return Entry == Blks.size() || StartOf(Entry) > Last ? 0 : static_cast<std::int32_t>(Entry);
}

std::size_t BlockSet::FirstEndingAt(std::int64_t Pos) const {
    std::size_t From = 1;
    std::size_t To = Blks.size();
    // Reads go through the channel in steps, so the answer is mostly near the last one.
    for (std::size_t Step = 1, Near = LastFound; Near >= From && Near < To; Step *= 2) {
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
    LastFound = From;
    return From;
}

std::span<const std::size_t> BlockSet::Meeting(std::int64_t From, std::int64_t Last) const {
    if (!Indexed) MakeIndex();
    const auto Limit =
        std::ranges::upper_bound(ByStart, Last, {}, [this](std::size_t I) { return StartOf(I); });
    Hits.clear();
    Collect(1, LatestEnd.size() / 2, 0, static_cast<std::size_t>(Limit - ByStart.begin()), From);
    std::ranges::sort(Hits);
    return Hits;
}

void BlockSet::MakeIndex() const {
    ByStart.clear();
    for (std::size_t I = 1; I < Blks.size(); ++I) {
        if (EndOf(I) >= StartOf(I)) ByStart.push_back(I);
    }
    std::ranges::sort(ByStart, {}, [this](std::size_t I) { return StartOf(I); });
    const std::size_t Leaves = std::bit_ceil(std::max<std::size_t>(ByStart.size(), 1));
    LatestEnd.assign(2 * Leaves, std::numeric_limits<std::int64_t>::min());
    for (std::size_t I = 0; I < ByStart.size(); ++I)
        LatestEnd[Leaves + I] = EndOf(ByStart[I]);
    for (std::size_t I = Leaves - 1; I > 0; --I) {
        LatestEnd[I] = std::max(LatestEnd[2 * I], LatestEnd[2 * I + 1]);
    }
    Indexed = true;
}

// Node covers the Width entries of ByStart from Base on; those before Limit that end at From or
// later are hits.
void BlockSet::Collect(std::size_t Node, std::size_t Width, std::size_t Base, std::size_t Limit,
                       std::int64_t From) const {
    if (Base >= Limit || LatestEnd[Node] < From) return;
    if (Width == 1) {
        Hits.push_back(ByStart[Base]);
        return;
    }
    Collect(2 * Node, Width / 2, Base, Limit, From);
    Collect(2 * Node + 1, Width / 2, Base + Width / 2, Limit, From);
}

}  // namespace Tolvar
