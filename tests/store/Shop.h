#pragma once

#include <gtest/gtest.h>

#include <array>
#include <map>
#include <string>
#include <vector>

#include "store/BlockCarrBuffClass.h"
#include "store/BlocksFromBlkInLst.h"
#include "tests/support/BlockLists.h"
#include "tests/support/Fakes.h"

namespace Tolvar::Testing {

using Blocks = std::vector<std::int32_t>;
using Wave = std::vector<std::int16_t>;

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

    Wave Read(std::int32_t Blk, std::int32_t From, std::int32_t To) {
        Wave Buf(static_cast<std::size_t>(To - From + 1), 99);
        Store.BlockRead(Blk, From, To, Buf);
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
        std::map<std::int32_t, std::int32_t> Work;
        std::map<std::int32_t, std::int32_t> Org;
        std::int64_t Bytes = 0;
        for (std::int32_t Blk = 1; Blk <= Store.BlockCnt(); ++Blk) {
            const BlockRec& Block = Store.Block(Blk);
            const bool Held = InMemory(Block.BlkType);
            ASSERT_EQ(Held, Block.BlkData != nullptr) << Blk;
            if (Held) Bytes += 2 * Block.BlkLen;
            if (Block.BlkType == BlkFile || Block.BlkType == BlkBoth) ++Work[Block.BlkFileNo];
            if (Block.BlkType == BlkOrgFile) ++Org[Block.BlkFileNo];
            if (Block.BlkType == BlkBuff || Block.BlkType == BlkSilent) {
                ASSERT_EQ(Block.BlkFileNo, 0) << Blk;
            }
        }
        ASSERT_EQ(Bytes, Store.BuffMemUsed());
        for (std::int32_t Slot = 1; Slot <= Store.WorkFileCnt(); ++Slot) {
            ASSERT_EQ(Store.WorkFile(Slot).WorkUseCnt, Work[Slot]) << "work file " << Slot;
        }
        for (std::int32_t Slot = 1; Slot <= Store.OrgFileCnt(); ++Slot) {
            ASSERT_EQ(Store.OrgFile(Slot).OrgUseCnt, Org[Slot]) << "original file " << Slot;
        }
        ASSERT_EQ(Disk.OpenNow, (Store.OrgFileOpen() != 0) + (Store.WorkFileOpen() != 0));
    }

    std::int32_t BlocksInUse() const {
        std::int32_t InUse = 0;
        for (std::int32_t Blk = 1; Blk <= Store.BlockCnt(); ++Blk) {
            if (Store.Block(Blk).BlkType != BlkFree) ++InUse;
        }
        return InUse;
    }
};

/// A small generator whose runs are the same everywhere.
struct Dice {
    std::uint32_t State;
    std::int32_t Below(std::int32_t Bound) {
        State = State * 1664525U + 1013904223U;
        return static_cast<std::int32_t>((State >> 8) % static_cast<std::uint32_t>(Bound));
    }
};

}  // namespace Tolvar::Testing
