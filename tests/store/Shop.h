#pragma once

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "platform/VirtualClock.h"
#include "store/BlockCarrBuffClass.h"
#include "store/BlocksFromBlkInLst.h"
#include "store/filecarrier/FileCarrBuffClass.h"
#include "tests/support/BlockLists.h"
#include "tests/support/Dice.h"
#include "tests/support/Fakes.h"

namespace Tolvar::Testing {

using namespace testing;

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
    StoreSettings Settings;
    WoroFileBlockMod Store{Disk, Box, Settings};

    Shop() {
        Settings.MemorySizeToUse = 1'000'000;
        Settings.AppTmpDir = "tmp";
    }

    Blocks HandOver(const std::vector<ListEntry>& Entries) {
        return BlocksFromBlkInLst(Store, CheckedBlockList(ListOf(Entries)));
    }

    /// All of a block.
    Wave Read(std::int32_t Blk) {
        const BlockRec& Block = Store.Block(Blk);
        Wave Buf(static_cast<std::size_t>(Block.BlkLen), 99);
        Store.BlockRead(Blk, Block.BlkStartPos, Buf);
        return Buf;
    }

    std::vector<std::int32_t> Types(Blocks Blks) const {
        std::ranges::transform(Blks, Blks.begin(),
                               [&](std::int32_t Blk) { return Store.Block(Blk).BlkType; });
        return Blks;
    }

    /// What every operation must leave behind, failed or not.
    void ExpectConsistent() const {
        std::map<std::int32_t, std::int32_t> Org, Work,
            None{{0, 0}};  // blocks by their file's slot
        std::int64_t Bytes = 0;
        for (std::int32_t Blk = 1; Blk <= Store.BlockCnt(); ++Blk) {
            const BlockRec& Block = Store.Block(Blk);
            const std::int32_t Type = Block.BlkType;
            ASSERT_EQ(InMemory(Type), Block.BlkData != nullptr) << Blk;
            if (InMemory(Type)) Bytes += 2 * Block.BlkLen;
            const bool InWork = Type == BlkFile || Type == BlkBoth;
            if (Type != BlkFree)
                ++(InWork ? Work : Type == BlkOrgFile ? Org : None)[Block.BlkFileNo];
        }
        ASSERT_EQ(None.size(), 1U);
        ASSERT_EQ(Bytes, Store.BuffMemUsed());
        for (std::int32_t Slot = 1; Slot <= Store.WorkFileCnt(); ++Slot)
            ASSERT_EQ(Store.WorkFile(Slot).WorkUseCnt, Work[Slot]) << "work file " << Slot;
        for (std::int32_t Slot = 1; Slot <= Store.OrgFileCnt(); ++Slot)
            ASSERT_EQ(Store.OrgFile(Slot).OrgUseCnt, Org[Slot]) << "original file " << Slot;
        ASSERT_EQ(Disk.OpenNow, (Store.OrgFileOpen() != 0) + (Store.WorkFileOpen() != 0));
    }

    std::int32_t BlocksInUse() const {
        std::int32_t InUse = 0;
        for (std::int32_t Blk = 1; Blk <= Store.BlockCnt(); ++Blk)
            InUse += Store.Block(Blk).BlkType != BlkFree ? 1 : 0;
        return InUse;
    }
};

/// What a read of Count samples leaves of an array of nines.
inline Wave Heard(BlockCarrBuffClass& Carrier, std::int32_t From, std::size_t Count) {
    Wave Buf(Count, 9);
    Carrier.QuickBuffGet(From, Buf);
    return Buf;
}

/// A carrier that may take over "f", and the store around it.
struct FileShop : Shop {
    VirtualClock Clock;  // noon
    FileCarrBuffClass Carrier{Store, Clock};

    void Take(const std::string& Name, bool AsItIs) {
        Carrier.UseOrgFile(AsItIs);
        Carrier.FileName1(Name);
    }
    void Adopt(const Wave& Samples) {
        Disk.Put16("f", Samples);
        Take("f", true);
    }
    Wave All() {
        Wave Buf(static_cast<std::size_t>(Carrier.WaveSize()), 9);
        const auto Piece = static_cast<std::size_t>(Carrier.BuffLength());
        for (std::size_t At = 0; At < Buf.size(); At += Piece) {
            Carrier.BuffGet(static_cast<std::int32_t>(At) + 1,
                            std::span(Buf).subspan(At, std::min(Piece, Buf.size() - At)));
        }
        return Buf;
    }
    /// The whole samples in a file; none when there is no such file.
    Wave In(const std::string& Name) const {
        const auto Place = Disk.Content.find(Name);
        Wave Found(Place != Disk.Content.end() ? Place->second.size() / 2 : 0);
        if (!Found.empty()) std::memcpy(Found.data(), Place->second.data(), 2 * Found.size());
        return Found;
    }
    std::map<std::string, std::size_t> FileSizes() const {
        std::map<std::string, std::size_t> Sizes;
        for (const auto& [Name, Raw] : Disk.Content)
            Sizes[Name] = Raw.size();
        return Sizes;
    }
};

}  // namespace Tolvar::Testing
