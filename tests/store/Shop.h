#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <limits>
#include <string>
#include <vector>

#include "store/BlockCarrBuffClass.h"
#include "store/BlocksFromBlkInLst.h"
#include "tests/support/BlockLists.h"
#include "tests/support/Fakes.h"

namespace Tolvar::Testing {

using Blocks = std::vector<std::int32_t>;
using Wave = std::vector<std::int16_t>;

inline constexpr std::int32_t Max = std::numeric_limits<std::int32_t>::max();

inline std::int32_t Size(const auto& Many) {
    return static_cast<std::int32_t>(Many.size());
}

/// A store over files in memory, with a budget that evicts nothing unless a test lowers it.
struct Shop {
    MemoryFiles Disk;
    ListBox Box;
    PlayerState State;
    WoroFileBlockMod Store{Disk, Box, State};

    Shop() {
        State.MemorySizeToUse = 1'000'000;
        State.AppTmpDir = "tmp";
    }

    Blocks HandOver(const std::vector<ListEntry>& Entries) {
        return BlocksFromBlkInLst(Store, ListOf(Entries));
    }
    std::int32_t HandOverOne(const ListEntry& Entry) { return HandOver({Entry})[1]; }

    /// A block at position 11 with these samples, or as many silent ones, where Type says.
    std::int32_t BlockOf(std::int32_t Type, const Wave& Samples) {
        Disk.Put16("f", Samples);
        const std::int32_t Blk =
            HandOverOne({std::max<std::int32_t>(Type, BlkFile), Size(Samples), 11, "f"});
        if (Type == BlkBoth) Store.BlockLoad(Blk);
        if (Type == BlkBuff) Store.BlockToBuff(Blk);
        return Blk;
    }

    /// All of a block.
    Wave Read(std::int32_t Blk) {
        const BlockRec& Block = Store.Block(Blk);
        Wave Buf(static_cast<std::size_t>(Block.BlkLen), 99);
        Store.BlockRead(Blk, Block.BlkStartPos, Buf);
        return Buf;
    }

    std::vector<std::int32_t> Types(const Blocks& Blks) const {
        std::vector<std::int32_t> Found;
        for (const std::int32_t Blk : Blks)
            Found.push_back(Store.Block(Blk).BlkType);
        return Found;
    }

    /// What every operation must leave behind, failed or not.
    void ExpectConsistent() const {
        Blocks Work(static_cast<std::size_t>(Store.WorkFileCnt()) + 1);
        Blocks Org(static_cast<std::size_t>(Store.OrgFileCnt()) + 1);
        std::int64_t Bytes = 0;
        for (std::int32_t Blk = 1; Blk <= Store.BlockCnt(); ++Blk) {
            const BlockRec& Block = Store.Block(Blk);
            const auto Slot = static_cast<std::size_t>(Block.BlkFileNo);
            const bool Held = InMemory(Block.BlkType);
            ASSERT_EQ(Held, Block.BlkData != nullptr) << Blk;
            if (Held) Bytes += 2 * Block.BlkLen;
            if (Block.BlkType == BlkFile || Block.BlkType == BlkBoth) ++Work.at(Slot);
            if (Block.BlkType == BlkOrgFile) ++Org.at(Slot);
            const bool NoFile = Block.BlkType == BlkBuff || Block.BlkType == BlkSilent;
            ASSERT_TRUE(!NoFile || Slot == 0) << Blk;
        }
        ASSERT_EQ(Bytes, Store.BuffMemUsed());
        for (std::int32_t Slot = 1; Slot < Size(Work); ++Slot)
            ASSERT_EQ(Store.WorkFile(Slot).WorkUseCnt, Work.begin()[Slot]) << "work file " << Slot;
        for (std::int32_t Slot = 1; Slot < Size(Org); ++Slot)
            ASSERT_EQ(Store.OrgFile(Slot).OrgUseCnt, Org.begin()[Slot]) << "original file " << Slot;
        ASSERT_EQ(Disk.OpenNow, (Store.OrgFileOpen() != 0) + (Store.WorkFileOpen() != 0));
    }

    std::int32_t BlocksInUse() const {
        std::int32_t InUse = 0;
        for (std::int32_t Blk = 1; Blk <= Store.BlockCnt(); ++Blk)
            InUse += Store.Block(Blk).BlkType != BlkFree ? 1 : 0;
        return InUse;
    }
};

inline Blocks SetOf(const BlockCarrBuffClass& Carrier) {
    Blocks Set;
    Carrier.BuffBlocksGet(Set);
    return Set;
}

/// What a read of Count samples leaves of an array of nines.
inline Wave Heard(BlockCarrBuffClass& Carrier, std::int32_t From, std::size_t Count) {
    Wave Buf(Count, 9);
    Carrier.QuickBuffGet(From, Buf);
    return Buf;
}

/// A small generator whose runs are the same everywhere.
struct Dice {
    std::uint32_t State;
    std::int32_t Below(std::int32_t Bound) {
        State = State * 1664525U + 1013904223U;
        return static_cast<std::int32_t>((State >> 8) % static_cast<std::uint32_t>(Bound));
    }
};

}  // namespace Tolvar::Testing
