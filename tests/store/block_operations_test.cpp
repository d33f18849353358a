#include <gmock/gmock.h>

#include <algorithm>

#include "tests/store/Shop.h"

namespace Tolvar::Testing {
namespace {

using testing::ElementsAre;

TEST(BlockNew, GivesEachTypeItsPlaceAndRefusesTheOthersInTheBox) {
    Shop S;
    const std::int32_t Buff = S.Store.BlockNew(3, BlkBuff);
    const std::int32_t File = S.Store.BlockNew(3, BlkFile);
    const std::int32_t Silent = S.Store.BlockNew(3, BlkSilent);
    EXPECT_THAT(S.Types({Buff, File, Silent}), ElementsAre(BlkBuff, BlkFile, BlkSilent));
    EXPECT_EQ(S.Store.BuffMemUsed(), 6);
    EXPECT_EQ(S.Disk.Content.at("tmp\\wb1.tmp"), MemoryFiles::Bytes(6));
    for (const std::int32_t Blk : {Buff, File, Silent}) {
        EXPECT_THAT(S.Read(Blk, 0, 2), ElementsAre(0, 0, 0));
    }
    for (const std::int32_t Type : {BlkFree + 0, BlkBoth + 0, BlkOrgFile + 0, 9}) {
        EXPECT_EQ(S.Store.BlockNew(1, Type), 4);
        EXPECT_EQ(S.Store.Block(4).BlkType, BlkFree);
    }
    EXPECT_THAT(
        S.Box.Texts,
        ElementsAre("Error - can not make free block",
                    "Error - Can not create buffer block in both (memory and file) or in Orgfile",
                    "Error - Can not create buffer block in both (memory and file) or in Orgfile"));
    EXPECT_THROW(S.Store.BlockNew(-1, BlkBuff), RuntimeFailure);
    S.ExpectConsistent();
}

TEST(BlockNew, TakesTheFirstFreeRecordWhateverWasFreedLast) {
    Shop S;
    Dice D{5};
    std::vector<bool> Used(1, true);
    for (int Step = 0; Step < 20000; ++Step) {
        if (D.Below(5) < 3) {
            const auto Free = std::ranges::find(Used, false);
            const auto Expected = static_cast<std::int32_t>(Free - Used.begin());
            ASSERT_EQ(S.Store.BlockNew(1, BlkSilent), Expected);
            if (Free == Used.end()) Used.push_back(true);
            Used[static_cast<std::size_t>(Expected)] = true;
        } else {
            const std::int32_t Blk = D.Below(static_cast<std::int32_t>(Used.size()));
            if (Blk == 0) continue;
            S.Store.BlockFree(Blk);
            Used[static_cast<std::size_t>(Blk)] = false;
        }
        ASSERT_EQ(S.Store.BlockCnt(), static_cast<std::int32_t>(Used.size()) - 1);
    }
}

TEST(BuffMemCheck, EvictsTheLeastRecentlyUsedDownToTheBudgetAndKeepsFour) {
    struct Case {
        std::int32_t Budget;
        std::int32_t Blocks;
        std::int32_t StayInMemory;
    };
    // Blocks of 5 samples: 10 bytes each.
    for (const Case& C : {Case{0, 4, 4},
                          {0, 5, 4},
                          {0, 8, 4},
                          {80, 8, 8},
                          {79, 8, 7},
                          {70, 8, 6},
                          {71, 8, 7},
                          {45, 8, 4}}) {
        Shop S;
        Blocks Made;
        for (int I = 0; I < C.Blocks; ++I)
            Made.push_back(S.Store.BlockNew(5, BlkBuff));
        S.Store.BlockStamp(Made[0]);  // the second one is now the least recently used
        S.State.MemorySizeToUse = C.Budget;
        S.Store.BuffMemCheck();
        auto Expected = std::vector<std::int32_t>(static_cast<std::size_t>(C.Blocks), BlkBuff);
        for (int I = 0; I < C.Blocks - C.StayInMemory; ++I) {
            Expected[static_cast<std::size_t>(I + 1)] = BlkFile;
        }
        EXPECT_EQ(S.Types(Made), Expected) << C.Budget;
        S.ExpectConsistent();
    }
}

TEST(BlockTableOrder, IsLeastStampThenHighestNumber) {
    BlockTable Table;
    Dice D{3};
    for (int I = 0; I < 200; ++I) {
        const std::int32_t Blk = Table.FirstFree();
        Table.EnterMemory(Blk, std::make_unique<std::int16_t[]>(1), 1, BlkBuff, D.Below(9));
        if (I % 3 == 0) Table.SetStamp(D.Below(Blk) + 1, D.Below(9));
    }
    while (Table.MemoryBlocks() > 0) {
        std::int32_t Expected = 0;
        for (std::int32_t Blk = 1; Blk <= Table.Count(); ++Blk) {
            const BlockRec& Block = Table.At(Blk);
            if (Block.BlkType != BlkBuff) continue;
            if (Expected == 0 || Block.BlkUseStamp <= Table.At(Expected).BlkUseStamp) {
                Expected = Blk;
            }
        }
        ASSERT_EQ(Table.LeastRecentlyUsed(), Expected);
        Table.LeaveMemory(Expected, BlkSilent);
    }
}

TEST(BlockBreak, PartsEveryTypeAndLeavesTheBlockWhole) {
    const Wave Ten{1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    for (const std::int32_t Type : {1, 2, 3, 4, 5}) {
        Shop S;
        S.Disk.Put16("f", Ten);
        std::int32_t Blk = S.HandOverOne({Type == 4 || Type == 5 ? Type : 3, 10, 11, "f"});
        if (Type == BlkBoth) S.Store.BlockLoad(Blk);
        if (Type == BlkBuff) S.Store.BlockToBuff(Blk);
        for (const std::int32_t D : {10, 11, 21, 22, -2147483647 - 1, 2147483647}) {
            EXPECT_EQ(S.Store.BlockBreak(Blk, D), std::pair(0, 0)) << D;
        }
        EXPECT_EQ(S.Box.Texts, std::vector<std::string>(6, "Error - Could not brake a block"));
        S.State.MemorySizeToUse = 0;
        const auto [A, B] = S.Store.BlockBreak(Blk, 15);
        const std::int32_t Parts = Type > 3 ? BlkBuff : Type;
        EXPECT_THAT(S.Types({Blk, A, B}), ElementsAre(Parts, Parts, Parts));
        EXPECT_THAT((std::array{S.Store.Block(A).BlkStartPos, S.Store.Block(B).BlkStartPos,
                                S.Store.Block(A).BlkLen, S.Store.Block(B).BlkLen}),
                    ElementsAre(11, 15, 4, 6));
        const bool Silent = Type == BlkSilent;
        EXPECT_EQ(S.Read(A, 11, 14), Silent ? Wave(4) : Wave(Ten.begin(), Ten.begin() + 4));
        EXPECT_EQ(S.Read(B, 15, 20), Silent ? Wave(6) : Wave(Ten.begin() + 4, Ten.end()));
        EXPECT_EQ(S.Read(Blk, 11, 20), Silent ? Wave(10) : Ten);
        if (Type == BlkBoth || Type == BlkFile) {
            EXPECT_EQ(S.Store.Block(B).BlkFilePos, S.Store.Block(Blk).BlkFilePos + 8);
            EXPECT_EQ(S.Store.WorkFile(1).WorkUseCnt, 3);
        }
        S.ExpectConsistent();
    }
}

TEST(BlockCopy, IsAFurtherUserOfTheSameFileWithSamplesOfItsOwn) {
    for (const std::int32_t Type : {1, 2, 3, 4, 5}) {
        Shop S;
        S.Disk.Put16("f", Wave{7, 8, 9});
        const std::int32_t Blk = S.HandOverOne({Type < 4 ? 3 : Type, 3, 5, "f"});
        if (Type == BlkBoth) S.Store.BlockLoad(Blk);
        if (Type == BlkBuff) S.Store.BlockToBuff(Blk);
        const std::int32_t Copy = S.Store.BlockCopy(Blk);
        EXPECT_EQ(S.Store.Block(Copy).BlkType, Type);
        EXPECT_EQ(S.Store.Block(Copy).BlkStartPos, 5);
        EXPECT_EQ(S.Store.Block(Copy).BlkUseStamp, Type == 5 ? 0 : S.Store.UseClock());
        S.ExpectConsistent();
        S.Store.BlockToBuff(Copy);
        S.Store.BlockSampleLet(Copy, 0, -1);
        EXPECT_EQ(S.Read(Blk, 5, 5)[0], Type == 5 ? 0 : 7);
        S.ExpectConsistent();
    }
}

TEST(FreeBlocks, AreAnsweredInTheBox) {
    Shop S;
    const std::int32_t Blk = S.Store.BlockNew(0, BlkSilent);
    S.Store.BlockFree(Blk);
    S.Store.BlockCopy(Blk);
    S.Store.BlockBreak(Blk, 1);
    S.Store.BlockToBuff(Blk);
    S.Store.BlockToFile(Blk);
    EXPECT_THAT(S.Read(Blk, 1, 2), ElementsAre(0, 0));
    EXPECT_THAT(S.Box.Texts, ElementsAre("Error - free block can not be copied",
                                         "Error - Could not brake a block",
                                         "Error - Free block can not be copied to buffer",
                                         "Error - Block type has a problem in moving to buff",
                                         "Error - Free block can not be written to file",
                                         "Error - A block can not be read for quick buffer"));
    for (const std::int32_t None : {0, -1, 2}) {
        EXPECT_THROW(S.Store.BlockFree(None), RuntimeFailure);
    }
}

TEST(Memory, IsCountedBeforeAnythingIsMade) {
    Shop S;
    const std::int32_t Blk = S.HandOverOne({5, 2147483647});
    for (int Way = 0; Way < 3; ++Way) {
        EXPECT_THROW(Way == 0   ? S.Store.BlockLoad(Blk)
                     : Way == 1 ? S.Store.BlockToBuff(Blk)
                                : static_cast<void>(S.Store.BlockNew(1 << 30, BlkBuff)),
                     RuntimeFailure);
    }
    EXPECT_EQ(S.BlocksInUse(), 1);
    EXPECT_EQ(S.Store.Block(Blk).BlkType, BlkSilent);
    S.ExpectConsistent();
}

TEST(BlockLoad, OfAnUnreadableLayoutOnlyStamps) {
    Shop S;
    S.Disk.Content["six"] = MemoryFiles::Bytes(100);
    const std::int32_t Blk = S.HandOverOne({4, 5, 1, "six", 1, 6, 16});
    BlockCarrBuffClass Carrier(S.Store);
    Carrier.BuffBlocksPutFresh({0, Blk});
    EXPECT_EQ(Carrier.WaveLR(2), 0);
    Carrier.WaveLR(2, 5);
    EXPECT_THAT(S.Box.Texts, ElementsAre("Error - Block type has a problem in moving to buff"));
    EXPECT_EQ(S.Store.Block(Blk).BlkType, BlkOrgFile);
    EXPECT_THAT(S.Read(Blk, 1, 2), ElementsAre(0, 0));
    EXPECT_EQ(S.Store.BlockBreak(Blk, 3), std::pair(0, 0));
    const std::int32_t Odd = S.HandOverOne({4, 2, 1, "odd bits", 1, 1, 24});
    S.Disk.Content["odd bits"] = {1, 2, 3, 4, 5, 6};
    S.Store.BlockLoad(Odd);
    EXPECT_THAT(S.Read(Odd, 1, 2), ElementsAre(0, 0));
    S.ExpectConsistent();
}

}  // namespace
}  // namespace Tolvar::Testing
