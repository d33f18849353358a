#include "store/BlockTable.h"

#include <string>

#include "platform/Checked.h"

namespace Tolvar {

namespace {

std::int32_t BytesWith(std::int32_t MemUsed, std::int32_t Len) {
    return Checked<std::int32_t>(MemUsed + 2 * std::int64_t{Len});
}

}  // namespace

void BlockTable::RefuseNumber(std::int32_t Blk) const {
    throw RuntimeFailure(FailureKind::Input, "There is no block " + std::to_string(Blk) +
                                                 " among " + std::to_string(Records_) + " blocks");
}

std::int32_t BlockTable::FirstFree() {
    if (Free_.First() == 0) Append();
    return Free_.First();
}

void BlockTable::Append() {
    const std::int32_t Grown = CheckedAdd(Records_, 1);
    Free_.Reserve(Grown);
    const auto Chunk = static_cast<std::size_t>(Records_) >> ChunkBits;
    if (Chunk == Chunks_.size()) Chunks_.push_back(std::make_unique<BlockRec[]>(ChunkRecords));
    Records_ = Grown;
    Free_.Insert(Grown);
}

void BlockTable::CheckRoom(std::int32_t Len) const {
    BytesWith(MemUsed_, Len);
}

void BlockTable::Fill(std::int32_t Blk, const Extent& Where, BlkTypes Type, std::int32_t FileNo) {
    BlockRec& Block = Rec(Blk);
    Block.BlkFileNo = FileNo;
    Block.BlkFilePos = Where.BlkFilePos;
    Block.BlkStartPos = Where.BlkStartPos;
    Block.BlkType = Type;
    Block.BlkLen = Where.BlkLen;
    Block.BlkUseStamp = 0;
    Free_.Erase(Blk);
}

void BlockTable::SetPlace(std::int32_t Blk, std::int32_t FileNo, std::int32_t FilePos) {
    BlockRec& Block = Rec(Blk);
    Block.BlkFileNo = FileNo;
    Block.BlkFilePos = FilePos;
}

void BlockTable::SetStart(std::int32_t Blk, std::int32_t StartPos) {
    Rec(Blk).BlkStartPos = StartPos;
}

void BlockTable::SetLen(std::int32_t Blk, std::int32_t Len) {
    Rec(Blk).BlkLen = Len;
}

void BlockTable::SetStamp(std::int32_t Blk, std::int32_t Stamp) {
    BlockRec& Block = Rec(Blk);
    if (InMemory(Block.BlkType)) {
        auto Entry = ByUse_.extract({Block.BlkUseStamp, -Blk});
        Entry.value().first = Stamp;
        ByUse_.insert(std::move(Entry));
    }
    Block.BlkUseStamp = Stamp;
}

void BlockTable::SetType(std::int32_t Blk, BlkTypes Type) {
    BlockRec& Block = Rec(Blk);
    if (Block.BlkType == BlkFree && Type != BlkFree) Free_.Erase(Blk);
    if (Block.BlkType != BlkFree && Type == BlkFree) Free_.Insert(Blk);
    Block.BlkType = Type;
}

void BlockTable::EnterMemory(std::int32_t Blk, Samples Data, std::int32_t Len, BlkTypes Type,
                             std::int32_t Stamp) {
    BlockRec& Block = Rec(Blk);
    const std::int32_t Used = BytesWith(MemUsed_, Len);
    ByUse_.emplace(Stamp, -Blk);
    Block.BlkLen = Len;
    MemUsed_ = Used;
    Block.BlkData = std::move(Data);
    Block.BlkUseStamp = Stamp;
    SetType(Blk, Type);
}

void BlockTable::LeaveMemory(std::int32_t Blk, BlkTypes Type) {
    BlockRec& Block = Rec(Blk);
    ByUse_.erase({Block.BlkUseStamp, -Blk});
    MemUsed_ -= 2 * Block.BlkLen;
    Block.BlkData.reset();
    SetType(Blk, Type);
}

void BlockTable::Clear(std::int32_t Blk) {
    BlockRec& Block = Rec(Blk);
    if (InMemory(Block.BlkType)) LeaveMemory(Blk, BlkFree);
    if (Block.BlkType != BlkFree) Free_.Insert(Blk);
    Block.BlkType = BlkFree;
    Block.BlkFileNo = 0;
    Block.BlkFilePos = 0;
    Block.BlkLen = 0;
    Block.BlkUseStamp = 0;
}

std::span<std::int16_t> BlockTable::Data(std::int32_t Blk) {
    BlockRec& Block = Rec(Blk);
    return {Block.BlkData.get(), static_cast<std::size_t>(Block.BlkLen)};
}

}  // namespace Tolvar
