#include <string>

#include "store/WoroFileBlockMod.h"

namespace Tolvar {

namespace {

constexpr std::size_t AlwaysInMemory = 4;

}  // namespace

void WoroFileBlockMod::BlockStamp(std::int32_t Blk) {
    Blocks_.At(Blk);
    Blocks_.SetStamp(Blk, NextUseStamp());
}

void WoroFileBlockMod::BlockLoad(std::int32_t Blk) {
    const BlockRec& Block = Blocks_.At(Blk);
    switch (Block.BlkType) {
        case BlkFree:
            Box_.Show("Error - Free block can not be copied to buffer");
            return;
        case BlkBoth:
        case BlkBuff:
            BlockStamp(Blk);
            return;
        case BlkOrgFile: {
            const std::int32_t Channels = OrgFiles_.At(Block.BlkFileNo).OrgChannels;
            Channels == 1 || Channels == 2 ? LoadFresh(Blk) : BlockStamp(Blk);
            return;
        }
        default:
            LoadFresh(Blk);
    }
}

void WoroFileBlockMod::LoadFresh(std::int32_t Blk) {
    const BlockRec& Block = Blocks_.At(Blk);
    Blocks_.CheckRoom(Block.BlkLen);
    const auto Count = static_cast<std::size_t>(Block.BlkLen);
    auto Data = std::make_unique_for_overwrite<std::int16_t[]>(Count);
    BlockRead(Blk, Block.BlkStartPos, {Data.get(), Count});
    const bool FromOrgFile = Block.BlkType == BlkOrgFile;
    const BlkTypes Loaded = Block.BlkType == BlkFile ? BlkBoth : BlkBuff;
    Blocks_.EnterMemory(Blk, std::move(Data), Block.BlkLen, Loaded, NextUseStamp());
    if (FromOrgFile) {
        OrgFiles_.Unuse(Block.BlkFileNo);
        Blocks_.SetPlace(Blk, 0, Block.BlkFilePos);
    }
    BuffMemCheck();
}

void WoroFileBlockMod::BlockToBuff(std::int32_t Blk) {
    BlockLoad(Blk);
    const BlockRec& Block = Blocks_.At(Blk);
    if (Block.BlkType == BlkBoth) {
        UnuseWorkFile(Block.BlkFileNo);
        Blocks_.SetPlace(Blk, 0, Block.BlkFilePos);
        Blocks_.SetType(Blk, BlkBuff);
    } else if (Block.BlkType != BlkBuff) {
        Box_.Show("Error - Block type has a problem in moving to buff");
    }
}

void WoroFileBlockMod::BlockSampleLet(std::int32_t Blk, std::int64_t Offset, std::int16_t NewVal) {
    const BlockRec& Block = Blocks_.At(Blk);
    if (Block.BlkType != BlkBuff || Offset < 0 || Offset >= Block.BlkLen) {
        throw RuntimeFailure(FailureKind::Input, "Sample " + std::to_string(Offset) + " of block " +
                                                     std::to_string(Blk) +
                                                     " cannot be changed in memory");
    }
    Blocks_.Data(Blk)[static_cast<std::size_t>(Offset)] = NewVal;
}

void WoroFileBlockMod::BlockToFile(std::int32_t Blk) {
    const std::int32_t Type = Blocks_.At(Blk).BlkType;
    if (Type == BlkFree) Box_.Show("Error - Free block can not be written to file");
    if (!InMemory(Type)) return;
    if (Type == BlkBuff) Blocks_.SetPlace(Blk, WriteToWorkFile(Blocks_.Data(Blk)), 1);
    Blocks_.LeaveMemory(Blk, BlkFile);
}

void WoroFileBlockMod::BuffMemCheck() {
    if (BuffMemUsed() <= MemorySizeToUse()) return;
    while (Blocks_.MemoryBlocks() > AlwaysInMemory) {
        BlockToFile(Blocks_.LeastRecentlyUsed());
        if (BuffMemUsed() < MemorySizeToUse()) return;
    }
}

}  // namespace Tolvar
