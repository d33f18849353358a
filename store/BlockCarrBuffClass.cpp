#include "store/BlockCarrBuffClass.h"

#include <algorithm>
#include <string>
#include <utility>

#include "platform/Checked.h"
#include "store/MadeBlocks.h"

namespace Tolvar {

namespace {

// For a budget too small to be shared out: 8 KB a block.
constexpr std::int32_t SmallBudgetBlkLen = 4096;

// A twentieth of the budget's bytes, in whole fours of samples.
std::int32_t BlkLenFor(std::int32_t MemorySizeToUse) {
    const std::int32_t Share = Round32(MemorySizeToUse / 20.0);
    return Share < 4 ? SmallBudgetBlkLen : Share / 4 * 4;
}

}  // namespace

BlockCarrBuffClass::BlockCarrBuffClass(WoroFileBlockMod& Store)
    : Store_(Store), Blks_(Store), NewBlkLen(BlkLenFor(Store.MemorySizeToUse())) {}

BlockCarrBuffClass::~BlockCarrBuffClass() {
    FreeBlocks();
    Store_.FilesForget();
}

void BlockCarrBuffClass::FreeBlocks() {
    for (const std::int32_t Blk : std::span(Blks_.Entries()).subspan(1))
        Store_.BlockFree(Blk);
}

void BlockCarrBuffClass::BuffBlocksGetCopy(std::vector<std::int32_t>& BlkSet) {
    MadeBlocks Copies(Store_, Blks_.Entries().size() - 1);
    for (const std::int32_t Blk : std::span(Blks_.Entries()).subspan(1)) {
        Copies.Add(Store_.BlockCopy(Blk));
    }
    BlkSet = Copies.Take();
}

void BlockCarrBuffClass::BuffBlocksPutFresh(const std::vector<std::int32_t>& NewBlkSet) {
    BlockSet Fresh(Store_, NewBlkSet);
    const auto Length = Checked<std::int32_t>(Fresh.Length());
    FreeBlocks();
    Blks_ = std::move(Fresh);
    Samples_ = Length;
    CurBlk = Blks_.First();
}

void BlockCarrBuffClass::QuickBuffGet(std::int32_t FromPos, std::span<std::int16_t> QBuff) {
    if (QBuff.empty()) return;
    const std::int64_t Last = std::int64_t{FromPos} + static_cast<std::int64_t>(QBuff.size()) - 1;
    Blks_.ForEachIn(FromPos, Last, [&](std::int32_t Blk) {
        const BlockRec& Block = Store_.Block(Blk);
        const std::int64_t Start = Block.BlkStartPos;
        const std::int64_t From = std::max<std::int64_t>(Start, FromPos);
        const std::int64_t To = std::min(Start + Block.BlkLen - 1, Last);
        Store_.BlockRead(Blk, From,
                         QBuff.subspan(static_cast<std::size_t>(From - FromPos),
                                       static_cast<std::size_t>(To - From + 1)));
    });
}

void BlockCarrBuffClass::QuickBuffRuns(std::int32_t FromPos, std::int32_t Count, SampleRuns& Runs,
                                       const SampleRuns* OtherChannel) {
    Runs.Clear();
    // Channels of one file are mostly cut alike, so that their runs are side by side.
    const auto Beside = [&]() -> const SampleRun* {
        const std::size_t Next = Runs.All().size();
        if (OtherChannel == nullptr || Next >= OtherChannel->All().size()) return nullptr;
        return &OtherChannel->All()[Next];
    };
    const std::int64_t End = std::int64_t{FromPos} + Count;
    std::int64_t Pos = FromPos;
    if (!Blks_.IsTiled()) {
        const auto Room = Runs.Room(2 * static_cast<std::size_t>(Count));
        const std::span Buff(reinterpret_cast<std::int16_t*>(Room.data()),
                             static_cast<std::size_t>(Count));
        std::ranges::fill(Buff, std::int16_t{0});
        QuickBuffGet(FromPos, Buff);
        Runs.Add({.Count = Count, .From = Room.data()});
        return;
    }
    const auto BeSilentTo = [&](std::int64_t NextPos) {
        if (Pos < NextPos) Runs.Add({.Count = NextPos - Pos});
        Pos = NextPos;
    };
    Blks_.ForEachIn(FromPos, End - 1, [&](std::int32_t Blk) {
        const BlockRec& Block = Store_.Block(Blk);
        const std::int64_t BlockEnd = std::int64_t{Block.BlkStartPos} + Block.BlkLen;
        BeSilentTo(std::max<std::int64_t>(Block.BlkStartPos, Pos));
        const std::int64_t Shared = std::min(BlockEnd, End) - Pos;
        Store_.BlockRun(Blk, Pos, Shared, Runs, Beside());
        Pos += Shared;
    });
    BeSilentTo(End);
}

bool BlockCarrBuffClass::CurBlkHolds(std::int32_t WavPos) const {
    if (CurBlk == 0) return false;
    const BlockRec& Block = Store_.Block(CurBlk);
    return Block.BlkStartPos <= WavPos && WavPos < std::int64_t{Block.BlkStartPos} + Block.BlkLen;
}

void BlockCarrBuffClass::FindBlock(std::int32_t WavPos) {
    CurBlk = Blks_.Entries()[static_cast<std::size_t>(Blks_.Find(WavPos, WavPos))];
    if (CurBlk != 0) Store_.BlockStamp(CurBlk);
}

std::int16_t BlockCarrBuffClass::WaveLR(std::int32_t WavPos) {
    if (!CurBlkHolds(WavPos)) FindBlock(WavPos);
    if (CurBlk == 0) return 0;
    const BlockRec& Block = Store_.Block(CurBlk);
    if (Block.BlkType == BlkFile || Block.BlkType == BlkOrgFile) Store_.BlockLoad(CurBlk);
    if (!InMemory(Block.BlkType)) return 0;
    return Block.BlkData[static_cast<std::size_t>(std::int64_t{WavPos} - Block.BlkStartPos)];
}

void BlockCarrBuffClass::WaveLR(std::int32_t WavPos, std::int16_t NewVal) {
    if (!CurBlkHolds(WavPos)) FindBlock(WavPos);
    if (CurBlk == 0) return;
    const BlockRec& Block = Store_.Block(CurBlk);
    if (Block.BlkType == BlkFree) return;
    if (Block.BlkType != BlkBuff) Store_.BlockToBuff(CurBlk);
    if (Block.BlkType != BlkBuff) return;
    Store_.BlockSampleLet(CurBlk, std::int64_t{WavPos} - Block.BlkStartPos, NewVal);
}

void BlockCarrBuffClass::ReDimSize(std::int32_t NewSz, bool) {
    if (NewSz == 0) {
        Store_.ShowError("Error:\r\nCan not create buffer with zero size");
        return;
    }
    if (NewSz < 0) {
        throw RuntimeFailure(FailureKind::Input,
                             "A channel cannot be " + std::to_string(NewSz) + " samples long");
    }
    Samples_ < NewSz ? Grow(NewSz) : Shrink(NewSz);
    Samples_ = NewSz;
    CurBlk = Blks_.First();
}

void BlockCarrBuffClass::Grow(std::int32_t NewSz) {
    const auto More =
        static_cast<std::size_t>((std::int64_t{NewSz} - Samples_ + NewBlkLen - 1) / NewBlkLen);
    MadeBlocks Made(Store_, More);
    for (std::int64_t End = Samples_; End < NewSz;) {
        const auto Len = static_cast<std::int32_t>(std::min<std::int64_t>(NewBlkLen, NewSz - End));
        const std::int32_t Blk = Made.Add(Store_.BlockNew(Len, BlkSilent));
        Store_.BlockStartLet(Blk, static_cast<std::int32_t>(End + 1));
        End += Len;
    }
    Blks_.Reserve(More);
    for (const std::int32_t Blk : Made.Take()) {
        if (Blk != 0) Blks_.Append(Blk);
    }
}

void BlockCarrBuffClass::Shrink(std::int32_t NewSz) {
    const std::int64_t Drop = std::int64_t{NewSz} + 1;
    if (const std::int32_t Entry = Blks_.Find(Drop, Drop - 1); Entry != 0) {
        const std::int32_t Whole = Blks_.Entries()[static_cast<std::size_t>(Entry)];
        const auto [Head, Tail] = Store_.BlockBreak(Whole, Checked<std::int32_t>(Drop));
        if (Head == 0) {
            throw RuntimeFailure(FailureKind::Input,
                                 "Block " + std::to_string(Whole) + " cannot be parted");
        }
        Blks_.Replace(Entry, Head);
        Store_.BlockFree(Whole);
        Store_.BlockFree(Tail);
    }
    Blks_.FreeBehind(NewSz);
}

}  // namespace Tolvar
