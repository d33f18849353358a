#include <algorithm>
#include <string>

#include "platform/Checked.h"
#include "store/MadeBlocks.h"
#include "store/WoroFileBlockMod.h"

namespace Tolvar {

namespace {

void CheckLen(std::int32_t Len) {
    if (Len >= 0) return;
    throw RuntimeFailure(FailureKind::Input,
                         "A block cannot hold " + std::to_string(Len) + " samples");
}

BlockTable::Samples Zeros(std::int32_t Len) {
    return std::make_unique<std::int16_t[]>(static_cast<std::size_t>(Len));
}

std::int32_t FilePosAfter(const BlockRec& Block, std::int32_t Samples) {
    return Checked<std::int32_t>(Block.BlkFilePos + 2 * std::int64_t{Samples});
}

}  // namespace

std::int32_t WoroFileBlockMod::BlockNew(std::int32_t Len, std::int32_t Type) {
    CheckLen(Len);
    switch (Type) {
        case BlkBuff:
            return BlockNewBuff(Len);
        case BlkFile:
            return BlockNewFile(Len);
        case BlkSilent:
            return BlockHandOver({Len, 0, 0}, BlkSilent, 0);
        default:
            return BlockNewUnmade(Len, Type);
    }
}

std::int32_t WoroFileBlockMod::BlockNewBuff(std::int32_t Len) {
    Blocks_.CheckRoom(Len);
    auto Data = Zeros(Len);
    MadeBlocks Made(*this, 1);
    const std::int32_t Blk = Blocks_.FirstFree();
    Blocks_.EnterMemory(Blk, std::move(Data), Len, BlkBuff, NextUseStamp());
    Made.Add(Blk);
    Blocks_.SetStart(Blk, 0);
    Blocks_.SetPlace(Blk, 0, 0);
    BuffMemCheck();
    Made.Take();
    return Blk;
}

std::int32_t WoroFileBlockMod::BlockNewFile(std::int32_t Len) {
    const std::vector<std::int16_t> Silence(static_cast<std::size_t>(Len));
    const std::int32_t Blk = Blocks_.FirstFree();
    Blocks_.Fill(Blk, {Len, 0, 1}, BlkFile, WriteToWorkFile(Silence));
    return Blk;
}

std::int32_t WoroFileBlockMod::BlockNewUnmade(std::int32_t Len, std::int32_t Type) {
    const std::int32_t Blk = Blocks_.FirstFree();
    Blocks_.SetLen(Blk, Len);
    Blocks_.SetStart(Blk, 0);
    if (Type == BlkFree) Box_.Show("Error - can not make free block");
    if (Type == BlkBoth || Type == BlkOrgFile) {
        Box_.Show("Error - Can not create buffer block in both (memory and file) or in Orgfile");
    }
    return Blk;
}

std::int32_t WoroFileBlockMod::BlockHandOver(const Extent& Where, BlkTypes Type,
                                             std::int32_t Slot) {
    const std::int32_t Blk = Blocks_.FirstFree();
    UseFileOf(Type, Slot);
    Blocks_.Fill(Blk, Where, Type, Slot);
    return Blk;
}

void WoroFileBlockMod::BlockFree(std::int32_t Blk) {
    const BlockRec& Block = Blocks_.At(Blk);
    const std::int32_t Type = Block.BlkType;
    const std::int32_t Slot = Block.BlkFileNo;
    Blocks_.Clear(Blk);
    if (Type == BlkBoth || Type == BlkFile) UnuseWorkFile(Slot);
    if (Type == BlkOrgFile && OrgFiles_.Unuse(Slot)) ForgetOrgFile(Slot);
}

std::int32_t WoroFileBlockMod::BlockCopy(std::int32_t Blk) {
    switch (Blocks_.At(Blk).BlkType) {
        case BlkBoth:
        case BlkBuff:
            return BlockCopyInMemory(Blk);
        case BlkFile:
        case BlkOrgFile:
        case BlkSilent:
            return BlockCopyPlain(Blk);
        default: {
            const std::int32_t Copy = Blocks_.FirstFree();
            Box_.Show("Error - free block can not be copied");
            return Copy;
        }
    }
}

std::int32_t WoroFileBlockMod::BlockCopyInMemory(std::int32_t Blk) {
    const BlockRec& From = Blocks_.At(Blk);
    Blocks_.CheckRoom(From.BlkLen);
    auto Data = Zeros(From.BlkLen);
    std::ranges::copy(Blocks_.Data(Blk), Data.get());
    MadeBlocks Made(*this, 1);
    const std::int32_t Copy = Blocks_.FirstFree();
    Blocks_.EnterMemory(Copy, std::move(Data), From.BlkLen, BlkBuff, NextUseStamp());
    Made.Add(Copy);
    const auto Type = static_cast<BlkTypes>(From.BlkType);
    UseFileOf(Type, From.BlkFileNo);
    Blocks_.SetType(Copy, Type);
    Blocks_.SetPlace(Copy, From.BlkFileNo, From.BlkFilePos);
    Blocks_.SetStart(Copy, From.BlkStartPos);
    BuffMemCheck();
    Made.Take();
    return Copy;
}

std::int32_t WoroFileBlockMod::BlockCopyPlain(std::int32_t Blk) {
    const BlockRec& From = Blocks_.At(Blk);
    const bool Stamped = From.BlkType != BlkSilent;
    const std::int32_t Stamp = Stamped ? NextUseStamp() : From.BlkUseStamp;
    const auto Type = static_cast<BlkTypes>(From.BlkType);
    const std::int32_t Copy =
        BlockHandOver({From.BlkLen, From.BlkStartPos, From.BlkFilePos}, Type, From.BlkFileNo);
    Blocks_.SetStamp(Copy, Stamp);
    return Copy;
}

std::pair<std::int32_t, std::int32_t> WoroFileBlockMod::BlockBreak(std::int32_t Blk,
                                                                   std::int32_t D) {
    const BlockRec& Block = Blocks_.At(Blk);
    const std::int64_t Head = std::int64_t{D} - Block.BlkStartPos;
    if (Head < 1 || Head >= Block.BlkLen) {
        Box_.Show("Error - Could not brake a block");
        return {0, 0};
    }
    switch (Block.BlkType) {
        case BlkOrgFile:
        case BlkSilent:
            BlockLoad(Blk);
            [[fallthrough]];
        case BlkBoth:
        case BlkBuff:
            return BreakInMemory(Blk, D);
        case BlkFile:
            return BreakInFile(Blk, D);
        default:
            return {0, 0};
    }
}

std::pair<std::int32_t, std::int32_t> WoroFileBlockMod::BreakInMemory(std::int32_t Blk,
                                                                      std::int32_t D) {
    const BlockRec& Block = Blocks_.At(Blk);
    if (!InMemory(Block.BlkType)) return {0, 0};  // its file has a layout that cannot be loaded
    const std::int32_t Head = D - Block.BlkStartPos;
    const bool InFile = Block.BlkType == BlkBoth;
    const std::int32_t TailPos = InFile ? FilePosAfter(Block, Head) : 0;
    BlockStamp(Blk);
    // Blk, A and B now have the latest three stamps, and four blocks always stay in memory: none
    // of the three is evicted on the way.
    MadeBlocks Parts(*this, 2);
    const std::int32_t A = Parts.Add(BlockNew(Head, BlkBuff));
    const std::int32_t B = Parts.Add(BlockNew(Block.BlkLen - Head, BlkBuff));
    const auto Samples = Blocks_.Data(Blk);
    const auto HeadCount = static_cast<std::size_t>(Head);
    std::ranges::copy(Samples.first(HeadCount), Blocks_.Data(A).begin());
    std::ranges::copy(Samples.subspan(HeadCount), Blocks_.Data(B).begin());
    Blocks_.SetStart(A, Block.BlkStartPos);
    Blocks_.SetStart(B, D);
    if (InFile) {
        ShareWorkFile(A, Block.BlkFileNo, Block.BlkFilePos);
        ShareWorkFile(B, Block.BlkFileNo, TailPos);
    }
    Parts.Take();
    return {A, B};
}

void WoroFileBlockMod::ShareWorkFile(std::int32_t Blk, std::int32_t Slot, std::int32_t FilePos) {
    UseFileOf(BlkBoth, Slot);
    Blocks_.SetPlace(Blk, Slot, FilePos);
    Blocks_.SetType(Blk, BlkBoth);
}

std::pair<std::int32_t, std::int32_t> WoroFileBlockMod::BreakInFile(std::int32_t Blk,
                                                                    std::int32_t D) {
    const BlockRec& Block = Blocks_.At(Blk);
    const std::int32_t Head = D - Block.BlkStartPos;
    const std::int32_t Slot = Block.BlkFileNo;
    const Extent HeadPart{Head, Block.BlkStartPos, Block.BlkFilePos};
    const Extent TailPart{Block.BlkLen - Head, D, FilePosAfter(Block, Head)};
    MadeBlocks Parts(*this, 2);
    const std::int32_t A = Parts.Add(BlockHandOver(HeadPart, BlkFile, Slot));
    const std::int32_t B = Parts.Add(BlockHandOver(TailPart, BlkFile, Slot));
    Parts.Take();
    return {A, B};
}

}  // namespace Tolvar
