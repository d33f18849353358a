#include "tests/store/Shop.h"

namespace Tolvar::Testing {
namespace {

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
    for (const std::int32_t Blk : {3, 1, 2})
        S.Store.BlockFree(Blk);
    for (const std::int32_t FirstFree : {1, 2, 3, 4, 5})
        EXPECT_EQ(S.Store.BlockNew(1, BlkSilent), FirstFree);
    S.ExpectConsistent();
}

TEST(BuffMemCheck, EvictsTheLeastRecentlyUsedDownToTheBudgetAndKeepsFour) {
    const Blocks ByUse{3, 8, 1, 6, 2, 7, 4, 5};  // of 10 bytes each
    for (const auto& [Budget, Stay] : {std::pair(0, 4), {80, 8}, {79, 7}, {70, 6}, {45, 4}}) {
        Shop S;
        for (std::size_t I = 0; I < ByUse.size(); ++I)
            S.Store.BlockNew(5, BlkBuff);
        for (const std::int32_t Blk : ByUse)
            S.Store.BlockStamp(Blk);
        S.Settings.MemorySizeToUse = Budget;
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
        S.Disk.Put16("f", Wave{1, 2, 3, 4, 5});
        const std::int32_t Blk = S.HandOver({{std::max(Type, 3), 5, 11, "f"}})[1];
        if (Type == BlkBoth) S.Store.BlockLoad(Blk);
        if (Type == BlkBuff) S.Store.BlockToBuff(Blk);
        const Wave Whole = S.Read(Blk);
        const std::int32_t Copy = S.Store.BlockCopy(Blk);
        EXPECT_THAT(S.Types({Blk, Copy}), Each(Type));
        EXPECT_EQ(S.Read(Copy), Whole);
        S.Store.BlockToBuff(Copy);
        S.Store.BlockSampleLet(Copy, 0, -1);
        for (const std::int32_t D : {11, 16, -Max - 1, Max})
            EXPECT_EQ(S.Store.BlockBreak(Blk, D), std::pair(0, 0)) << D;
        EXPECT_EQ(S.Box.Texts, std::vector<std::string>(4, "Error - Could not brake a block"));
        S.Settings.MemorySizeToUse = 0;
        const auto [A, B] = S.Store.BlockBreak(Blk, 13);
        EXPECT_THAT(S.Types({Blk, A, B}), Each(Type > 3 ? BlkBuff : Type));
        for (int Time = 0; Time < 2; ++Time) {
            EXPECT_EQ(S.Read(A), Wave(Whole.begin(), Whole.begin() + 2));
            EXPECT_EQ(S.Read(B), Wave(Whole.begin() + 2, Whole.end()));
            EXPECT_EQ(S.Read(Blk), Whole);
            S.ExpectConsistent();
            for (const std::int32_t Part : {A, B, Blk})
                S.Store.BlockToFile(Part);
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
    Wave Two(2);
    S.Store.BlockRead(Blk, 1, Two);
    EXPECT_THAT(S.Box.Texts, ElementsAre("Error - free block can not be copied",
                                         "Error - Could not brake a block",
                                         "Error - Free block can not be copied to buffer",
                                         "Error - Block type has a problem in moving to buff",
                                         "Error - Free block can not be written to file",
                                         "Error - A block can not be read for quick buffer"));
    EXPECT_THROW(S.Store.BlockFree(2), RuntimeFailure);
    const std::int32_t Long = S.HandOver({{5, Max, 5}})[1];
    for (const std::int64_t Outside : {4LL, -1LL, 2147483651LL})
        EXPECT_THROW(S.Store.BlockRead(Long, Outside, Two), RuntimeFailure) << Outside;
    EXPECT_THROW(S.Store.BlockLoad(Long), RuntimeFailure);  // counted before anything is made
    EXPECT_THROW(S.Store.BlockNew(1 << 30, BlkBuff), RuntimeFailure);
    S.ExpectConsistent();
}

TEST(Misuse, OfALayoutThatCannotBeReadLeavesTheBlockSilent) {
    Shop S;
    S.Disk.Content["six"] = S.Disk.Content["odd"] = MemoryFiles::Bytes(100, 1);
    BlockCarrBuffClass Carrier(S.Store);
    Carrier.BuffBlocksPutFresh(S.HandOver({{4, 5, 1, "six", 1, 6}, {4, 5, 6, "odd", 1, 1, 24}}));
    Carrier.WaveLR(2, 5);
    EXPECT_THAT(S.Box.Texts, ElementsAre("Error - Block type has a problem in moving to buff"));
    EXPECT_EQ(S.Store.BlockBreak(1, 3), std::pair(0, 0));
    EXPECT_EQ(Carrier.WaveLR(2) + Carrier.WaveLR(7), 0);
    EXPECT_EQ(Heard(Carrier, 1, 10), Wave(10));
    S.ExpectConsistent();
}

}  // namespace
}  // namespace Tolvar::Testing
