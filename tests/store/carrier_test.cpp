#include <gmock/gmock.h>

#include "tests/store/Shop.h"

namespace Tolvar::Testing {
namespace {

using testing::ElementsAre;

TEST(Carrier, StampsAndLoadsOnlyTheBlockThatASampleIsReadFrom) {
    Shop S;
    S.Disk.Put16("w", Wave{1, 2, 3});
    BlockCarrBuffClass Carrier(S.Store);
    Carrier.BuffBlocksPutFresh(S.HandOver({{5, 2, 1}, {3, 3, 3, "w"}}));
    EXPECT_THAT(Heard(Carrier, -1, 9), ElementsAre(9, 9, 0, 0, 1, 2, 3, 9, 9));
    for (const std::int32_t Beside : {6, Max, -Max - 1, -8}) {
        EXPECT_EQ(Heard(Carrier, Beside, 9), Wave(9, 9)) << Beside;
    }
    EXPECT_EQ(Heard(Carrier, 1, 0), Wave());
    EXPECT_EQ(Carrier.WaveLR(1), 0);  // within the current block
    EXPECT_EQ(S.Store.UseClock(), 0);
    EXPECT_EQ(Carrier.WaveLR(4), 2);
    EXPECT_THAT(S.Types({1, 2}), ElementsAre(BlkSilent, BlkBoth));
    const std::int32_t Stamp = S.Store.Block(2).BlkUseStamp;
    EXPECT_EQ(Carrier.WaveLR(5), 3);
    EXPECT_EQ(S.Store.Block(2).BlkUseStamp, Stamp);
    Carrier.WaveLR(Max, 1);
    EXPECT_EQ(Carrier.WaveLR(Max), 0);
}

TEST(Carrier, GrowsInSilentBlocksCutsWithinOneAndKeepsThemWhenItRefuses) {
    Shop S;
    S.State.MemorySizeToUse = 70;  // blocks of 4 samples
    BlockCarrBuffClass Carrier(S.Store);
    const auto Lens = [&] {
        Blocks Found = SetOf(Carrier);
        for (std::size_t I = 1; I < Found.size(); ++I)
            Found[I] = S.Store.Block(Found[I]).BlkLen;
        return Found;
    };
    Carrier.ReDimSize(10);
    EXPECT_THAT(Lens(), ElementsAre(0, 4, 4, 2));
    Carrier.ReDimSize(8);
    EXPECT_EQ(S.Store.BuffMemUsed(), 0) << "on a boundary nothing is loaded";
    Carrier.ReDimSize(5);
    EXPECT_THAT(Lens(), ElementsAre(0, 4, 1));
    Carrier.ReDimSize(0);
    EXPECT_THAT(S.Box.Texts, ElementsAre("Error:\r\nCan not create buffer with zero size"));
    EXPECT_THROW(Carrier.ReDimSize(-1), RuntimeFailure);
    const std::int32_t Long = S.HandOverOne({5, Max, 1});
    EXPECT_THROW(Carrier.BuffBlocksPutFresh({0, Long, Long}), RuntimeFailure);
    EXPECT_THROW(Carrier.BuffBlocksPutFresh({0, 77}), RuntimeFailure);
    S.Store.BlockFree(Long);
    EXPECT_EQ(Carrier.WaveINos(), 5);
    Carrier.BuffBlocksPutFresh({});
    EXPECT_EQ(Carrier.WaveINos() + Carrier.WaveLR(1) + S.BlocksInUse(), 0);
    S.State.MemorySizeToUse = 69;
    BlockCarrBuffClass Small(S.Store);
    Small.ReDimSize(5000);
    EXPECT_EQ(S.BlocksInUse(), 2);
    S.ExpectConsistent();
}

TEST(Carrier, CutsAndGrowsASetThatDoesNotTile) {
    Shop S;
    S.Disk.Put16("w", Wave{1, 2, 3, 4});
    BlockCarrBuffClass Carrier(S.Store);
    Carrier.BuffBlocksPutFresh(S.HandOver({{3, 3, 1, "w"}, {3, 3, 2, "w"}, {5, 2, 10}}));
    EXPECT_THAT(Heard(Carrier, 1, 11), ElementsAre(1, 1, 2, 3, 9, 9, 9, 9, 9, 0, 0));
    Carrier.ReDimSize(5);
    EXPECT_THAT(Heard(Carrier, 1, 11), ElementsAre(1, 1, 2, 3, 9, 9, 9, 9, 9, 9, 9));
    Carrier.ReDimSize(3);  // through the second block
    EXPECT_THAT(Heard(Carrier, 1, 11), ElementsAre(1, 1, 2, 9, 9, 9, 9, 9, 9, 9, 9));
    Carrier.ReDimSize(5);
    EXPECT_THAT(Heard(Carrier, 1, 11), ElementsAre(1, 1, 2, 0, 0, 9, 9, 9, 9, 9, 9));
    EXPECT_EQ(S.BlocksInUse(), 3);
    EXPECT_TRUE(S.Box.Texts.empty());  // no freed block was read
    S.ExpectConsistent();
}

// Blocks anywhere: the carrier must read as a scan over all of them, later ones on top.
TEST(Carrier, ReadsSetsThatDoNotTileAsAFullScanWould) {
    Dice D{11};
    Wave Disk(120);
    for (std::int16_t& Sample : Disk)
        Sample = static_cast<std::int16_t>(10 + D.Below(9999));
    for (int Round = 0; Round < 300; ++Round) {
        Shop S;
        S.Disk.Put16("w", Disk);
        // Everything happens within 200 positions from Low on; Low + 100 may lie at the end of all.
        const std::int32_t Low = D.Below(3) == 0 ? Max - 100 : -60;
        Wave Canvas(200, 9);
        Blocks Holders(200);
        std::vector<ListEntry> Entries;
        for (std::int32_t Entry = 1, Count = 1 + D.Below(20); Entry <= Count; ++Entry) {
            const std::int32_t Len = 1 + D.Below(D.Below(4) == 0 ? 40 : 6);
            const std::int32_t At = 55 + D.Below(40);
            const std::int32_t From = D.Below(50);
            Entries.push_back({3, Len, Low + At, "w", 1 + 2 * From});
            for (std::int32_t K = 0; K < Len; ++K) {
                Canvas.begin()[At + K] = Disk.begin()[From + K];
                auto& Holder = Holders.begin()[At + K];
                if (Holder == 0) Holder = Entry;
            }
        }
        BlockCarrBuffClass Carrier(S.Store);
        Carrier.BuffBlocksPutFresh(S.HandOver(Entries));
        const BlockSet Search(S.Store, SetOf(Carrier));
        for (int Read = 0; Read < 20; ++Read) {
            const std::int32_t At = 50 + D.Below(50);
            const std::int32_t Count = 1 + D.Below(30);
            const auto From = Canvas.begin() + At;
            ASSERT_EQ(Heard(Carrier, Low + At, static_cast<std::size_t>(Count)),
                      Wave(From, From + Count))
                << Round;
            ASSERT_EQ(Search.Find(Low + At, Low + At), Holders.begin()[At]);
        }
    }
}

class CarrierModel : public testing::TestWithParam<std::int32_t> {};

// Any sequence of operations, many with a file call that fails, against a plain array.
TEST_P(CarrierModel, HoldsTheSameSamplesAsAPlainArray) {
    Shop S;
    S.State.MemorySizeToUse = GetParam();
    Dice D{static_cast<std::uint32_t>(GetParam() + 77)};
    Wave Disk(400);
    for (std::int16_t& Sample : Disk)
        Sample = static_cast<std::int16_t>(D.Below(60000) - 30000);
    for (const char* Name : {"work", "mono", "stereo"})
        S.Disk.Put16(Name, Disk);
    const auto OnDisk = S.Disk.Content;
    BlockCarrBuffClass Carrier(S.Store);
    Wave Model;
    const auto PutFresh = [&] {
        const ListEntry Kinds[] = {
            {5}, {3, 1, 1, "work"}, {4, 1, 1, "mono"}, {4, 1, 1, "stereo", 1, 2}};
        std::vector<ListEntry> Entries;
        Model.clear();
        for (std::int32_t I = 0, Count = 1 + D.Below(12); I < Count; ++I) {
            ListEntry Entry = Kinds[D.Below(4)];
            const std::int32_t At = D.Below(150);
            Entry.Len = 1 + D.Below(30);
            Entry.Start = Size(Model) + 1;
            Entry.FilePos = 1 + 2 * At;
            Entries.push_back(Entry);
            for (std::int32_t K = 0; K < Entry.Len; ++K) {
                const std::int16_t Sample = Disk.begin()[At + Entry.Channels * K];
                Model.push_back(Entry.Type == BlkSilent ? std::int16_t{0} : Sample);
            }
        }
        Carrier.BuffBlocksPutFresh(S.HandOver(Entries));
    };
    const auto Operate = [&](std::int32_t What, int Step) {
        const std::int32_t Pos = D.Below(Size(Model) + 4) - 1;
        const bool Inside = Pos >= 1 && Pos <= Size(Model);
        if (What < 40) {
            Carrier.WaveLR(Pos, static_cast<std::int16_t>(Step));
            if (Inside) Model.begin()[Pos - 1] = static_cast<std::int16_t>(Step);
        } else if (What < 70) {
            EXPECT_EQ(Carrier.WaveLR(Pos), Inside ? Model.begin()[Pos - 1] : 0);
        } else if (What < 85) {
            const std::int32_t NewSz = 1 + D.Below(250);
            Carrier.ReDimSize(NewSz);
            Model.resize(static_cast<std::size_t>(NewSz));
        } else if (What < 92) {
            Blocks Copy;
            Carrier.BuffBlocksGetCopy(Copy);
            Carrier.BuffBlocksPutFresh(Copy);
        } else if (What < 95) {
            S.Store.BlockFree(S.Store.BlockNew(3, What == 93 ? BlkBuff : BlkFile));
        } else {
            PutFresh();
        }
    };
    PutFresh();
    int Failures = 0;
    for (int Step = 0; Step < 4000; ++Step) {
        const std::int32_t What = D.Below(100);
        S.Disk.FailAtCall = D.Below(2) == 0 ? S.Disk.Calls + 1 + D.Below(4) : 0;
        try {
            Operate(What, Step);
        } catch (const RuntimeFailure&) {
            ++Failures;
        }
        S.Disk.FailAtCall = 0;
        ASSERT_NO_FATAL_FAILURE(S.ExpectConsistent());
        ASSERT_EQ(Carrier.WaveINos(), Size(Model));
        ASSERT_EQ(Heard(Carrier, 1, Model.size()), Model) << "step " << Step << ", " << What;
        ASSERT_EQ(S.BlocksInUse(), Size(SetOf(Carrier)) - 1);
    }
    EXPECT_GT(Failures, 50);
    for (const auto& [Name, Bytes] : OnDisk)
        EXPECT_EQ(S.Disk.Content[Name], Bytes) << Name;
}

INSTANTIATE_TEST_SUITE_P(Budgets, CarrierModel, testing::Values(0, 70, 130, 400, 1'000'000));

}  // namespace
}  // namespace Tolvar::Testing
