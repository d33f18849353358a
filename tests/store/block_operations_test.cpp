#include <gmock/gmock.h>

#include <numeric>

#include "tests/store/Shop.h"

namespace Tolvar::Testing {
namespace {

using testing::Each;
using testing::ElementsAre;

TEST(BlockNew, GivesEachTypeItsPlaceAndRefusesTheOthersInTheBox) {
    Shop S;
    for (const std::int32_t Type : {2, 3, 5}) {
        const std::int32_t Blk = S.Store.BlockNew(3, Type);
        EXPECT_EQ(S.Store.Block(Blk).BlkType, Type);
        EXPECT_THAT(S.Read(Blk), ElementsAre(0, 0, 0));
    }
    EXPECT_EQ(S.Disk.Content.at("tmp\\wb1.tmp"), MemoryFiles::Bytes(6));
    for (const std::int32_t Type : {0, 1, 4, 9}) {
        EXPECT_EQ(S.Store.BlockNew(1, Type), 4);
        EXPECT_EQ(S.Store.Block(4).BlkType, BlkFree);
    }
    const std::string Both =
        "Error - Can not create buffer block in both (memory and file) or in Orgfile";
    EXPECT_THAT(S.Box.Texts, ElementsAre("Error - can not make free block", Both, Both));
    EXPECT_THROW(S.Store.BlockNew(-1, BlkBuff), RuntimeFailure);
    S.ExpectConsistent();
}

TEST(BlockNew, TakesTheFirstFreeRecordWhateverWasFreedLast) {
    Shop S;
    Dice D{5};
    std::vector<bool> Used(1, true);
    for (int Step = 0; Step < 20000; ++Step) {
        const std::int32_t Blk = D.Below(Size(Used));
        if (D.Below(5) < 3) {
            const auto Free = std::ranges::find(Used, false);
            ASSERT_EQ(S.Store.BlockNew(1, BlkSilent), Free - Used.begin());
            Free == Used.end() ? Used.push_back(true) : void(*Free = true);
        } else if (Blk > 0) {
            S.Store.BlockFree(Blk);
            Used[static_cast<std::size_t>(Blk)] = false;
        }
        ASSERT_EQ(S.Store.BlockCnt(), Size(Used) - 1);
    }
}

TEST(BuffMemCheck, EvictsTheLeastRecentlyUsedDownToTheBudgetAndKeepsFour) {
    struct Case {
        std::int32_t Budget, Blocks, StayInMemory;
    };
    // Blocks of 5 samples: 10 bytes each.
    for (const auto& [Budget, Count, Stay] : {Case{0, 4, 4},
                                              {0, 5, 4},
                                              {0, 8, 4},
                                              {80, 8, 8},
                                              {79, 8, 7},
                                              {70, 8, 6},
                                              {71, 8, 7},
                                              {45, 8, 4}}) {
        Shop S;
        for (std::int32_t I = 0; I < Count; ++I)
            S.Store.BlockNew(5, BlkBuff);
        Blocks ByUse(static_cast<std::size_t>(Count));
        std::iota(ByUse.begin(), ByUse.end(), 1);
        std::ranges::sort(ByUse, {}, [&](std::int32_t Blk) { return Blk * 5 % 9; });
        for (const std::int32_t Blk : ByUse)
            S.Store.BlockStamp(Blk);
        S.State.MemorySizeToUse = Budget;
        S.Store.BuffMemCheck();
        const auto FirstKept = ByUse.end() - Stay;
        EXPECT_THAT(S.Types({ByUse.begin(), FirstKept}), Each(BlkFile)) << Budget;
        EXPECT_THAT(S.Types({FirstKept, ByUse.end()}), Each(BlkBuff)) << Budget;
        S.ExpectConsistent();
    }
}

TEST(BlockBreak, AndBlockCopyLeaveEveryTypeOfBlockWhole) {
    for (const std::int32_t Type : {1, 2, 3, 4, 5}) {
        Shop S;
        const std::int32_t Blk = S.BlockOf(Type, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10});
        const Wave Ten = S.Read(Blk);
        const std::int32_t Copy = S.Store.BlockCopy(Blk);
        EXPECT_THAT(S.Types({Blk, Copy}), Each(Type));
        EXPECT_EQ(S.Read(Copy), Ten);
        EXPECT_EQ(S.Store.Block(Copy).BlkStartPos, 11);
        S.Store.BlockToBuff(Copy);
        S.Store.BlockSampleLet(Copy, 0, -1);
        EXPECT_EQ(S.Read(Blk), Ten);
        S.Store.BlockFree(Copy);
        for (const std::int32_t D : {10, 11, 21, 22, -2147483647 - 1, 2147483647}) {
            EXPECT_EQ(S.Store.BlockBreak(Blk, D), std::pair(0, 0)) << D;
        }
        EXPECT_EQ(S.Box.Texts, std::vector<std::string>(6, "Error - Could not brake a block"));
        S.State.MemorySizeToUse = 0;
        const auto [A, B] = S.Store.BlockBreak(Blk, 15);
        EXPECT_THAT(S.Types({Blk, A, B}), Each(Type > 3 ? BlkBuff : Type));
        EXPECT_EQ(S.Store.Block(A).BlkStartPos, 11);
        EXPECT_EQ(S.Store.Block(B).BlkStartPos, 15);
        for (const bool FromFile : {false, true}) {
            EXPECT_EQ(S.Read(A), Wave(Ten.begin(), Ten.begin() + 4));
            EXPECT_EQ(S.Read(B), Wave(Ten.begin() + 4, Ten.end()));
            EXPECT_EQ(S.Read(Blk), Ten);
            S.ExpectConsistent();
            if (!FromFile) {
                for (const std::int32_t Part : {A, B, Blk})
                    S.Store.BlockToFile(Part);
            }
        }
    }
}

TEST(Misuse, OfFreeBlocksIsShownAndWhatCannotBeIsRefused) {
    Shop S;
    const std::int32_t Blk = S.Store.BlockNew(0, BlkSilent);
    S.Store.BlockFree(Blk);
    S.Store.BlockCopy(Blk);
    S.Store.BlockBreak(Blk, 1);
    S.Store.BlockToBuff(Blk);
    S.Store.BlockToFile(Blk);
    Wave Two(2, 9);
    S.Store.BlockRead(Blk, 1, Two);
    EXPECT_EQ(Two, Wave(2));
    EXPECT_THAT(S.Box.Texts, ElementsAre("Error - free block can not be copied",
                                         "Error - Could not brake a block",
                                         "Error - Free block can not be copied to buffer",
                                         "Error - Block type has a problem in moving to buff",
                                         "Error - Free block can not be written to file",
                                         "Error - A block can not be read for quick buffer"));
    for (const std::int32_t None : {0, -1, 2}) {
        EXPECT_THROW(S.Store.BlockFree(None), RuntimeFailure);
    }
    const std::int32_t Long = S.HandOverOne({5, 2147483647, 5});
    for (const std::int64_t Outside : {4LL, -1LL, 2147483651LL}) {
        EXPECT_THROW(S.Store.BlockRead(Long, Outside, Two), RuntimeFailure) << Outside;
    }
    EXPECT_THROW(S.Store.BlockLoad(Long), RuntimeFailure);  // counted before anything is made
    EXPECT_THROW(S.Store.BlockNew(1 << 30, BlkBuff), RuntimeFailure);
    EXPECT_EQ(S.BlocksInUse(), 1);
    EXPECT_EQ(S.Store.Block(Long).BlkType, BlkSilent);
    S.ExpectConsistent();
}

TEST(BlockLoad, OfAnUnreadableLayoutOnlyStamps) {
    for (const auto& [Channels, Bits] : {std::pair{6, 16}, {1, 24}, {2, 0}}) {
        Shop S;
        S.Disk.Content["odd"] = MemoryFiles::Bytes(100, 1);
        const std::int32_t Blk = S.HandOverOne({4, 5, 1, "odd", 1, Channels, Bits});
        S.Store.BlockLoad(Blk);
        EXPECT_THAT(S.Read(Blk), Each(0));
        if (Channels != 6) continue;
        BlockCarrBuffClass Carrier(S.Store);
        Carrier.BuffBlocksPutFresh({0, Blk});
        Carrier.WaveLR(2, 5);
        EXPECT_EQ(Carrier.WaveLR(2), 0);
        EXPECT_THAT(S.Box.Texts, ElementsAre("Error - Block type has a problem in moving to buff"));
        EXPECT_EQ(S.Store.BlockBreak(Blk, 3), std::pair(0, 0));
        EXPECT_EQ(S.Store.Block(Blk).BlkType, BlkOrgFile);
        S.ExpectConsistent();
    }
}

}  // namespace
}  // namespace Tolvar::Testing
