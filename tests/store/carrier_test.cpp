#include <numeric>

#include "tests/store/Shop.h"

namespace Tolvar::Testing {
namespace {

TEST(Carrier, StampsAndLoadsOnlyTheBlockThatASampleIsReadFrom) {
    Shop S;
    S.Disk.Put16("w", Wave{1, 2, 3});
    BlockCarrBuffClass Carrier(S.Store);
    Carrier.BuffBlocksPutFresh(S.HandOver({{5, 2, 1}, {3, 3, 3, "w"}}));
    EXPECT_EQ(Carrier.WaveLR(1), 0);  // within the current block
    EXPECT_EQ(S.Store.UseClock(), 0);
    EXPECT_EQ(Carrier.WaveLR(4), 2);
    EXPECT_THAT(S.Types({1, 2}), ElementsAre(BlkSilent, BlkBoth));
    const std::int32_t Stamp = S.Store.Block(2).BlkUseStamp;
    Carrier.WaveLR(1);
    EXPECT_GT(S.Store.Block(1).BlkUseStamp, Stamp);
    for (const std::int32_t Beside : {6, Max, -Max - 1})
        EXPECT_EQ(Heard(Carrier, Beside, 9), Wave(9, 9)) << Beside;
}

TEST(Carrier, GrowsInSilentBlocksAndKeepsWhatItHasWhenItRefuses) {
    Shop S;
    S.Settings.MemorySizeToUse = 70;  // blocks of 4 samples
    BlockCarrBuffClass Carrier(S.Store);
    Carrier.ReDimSize(10);
    EXPECT_EQ(S.BlocksInUse(), 3);
    Carrier.ReDimSize(8);
    EXPECT_EQ(S.Store.BuffMemUsed(), 0) << "on a boundary nothing is loaded";
    Carrier.ReDimSize(0);
    EXPECT_THAT(S.Box.Texts, ElementsAre("Error:\r\nCan not create buffer with zero size"));
    EXPECT_THROW(Carrier.ReDimSize(-1), RuntimeFailure);
    const std::int32_t Long = S.HandOver({{5, Max, 1}})[1];
    EXPECT_THROW(Carrier.BuffBlocksPutFresh({0, Long, Long}), RuntimeFailure);
    EXPECT_THROW(Carrier.BuffBlocksPutFresh({0, 77}), RuntimeFailure);
    S.Store.BlockFree(Long);
    EXPECT_EQ(Carrier.WaveINos(), 8);
    Carrier.BuffBlocksPutFresh({});
    EXPECT_EQ(Carrier.WaveINos() + Carrier.WaveLR(1) + S.BlocksInUse(), 0);
    S.Settings.MemorySizeToUse = 69;
    BlockCarrBuffClass Small(S.Store);
    Small.ReDimSize(5000);
    EXPECT_EQ(S.BlocksInUse(), 2);
}

TEST(Carrier, CutsAndGrowsASetThatDoesNotTile) {
    Shop S;
    S.Disk.Put16("w", Wave{1, 2, 3, 4});
    BlockCarrBuffClass Carrier(S.Store);
    Carrier.BuffBlocksPutFresh(S.HandOver({{3, 3, 1, "w"}, {3, 3, 2, "w"}, {5, 2, 7}}));
    for (const auto& [NewSz, Left] : {std::pair(5, Wave{1, 1, 2, 3, 9, 9, 9, 9}),
                                      {3, {1, 1, 2, 9, 9, 9, 9, 9}},  // through the second block
                                      {5, {1, 1, 2, 0, 0, 9, 9, 9}}}) {
        Carrier.ReDimSize(NewSz);
        EXPECT_EQ(Heard(Carrier, 1, 8), Left);
    }
    EXPECT_EQ(S.BlocksInUse(), 3);
    EXPECT_TRUE(S.Box.Texts.empty());  // no freed block was read
}

// Blocks anywhere: the carrier must read as a scan over all of them, later ones on top.
TEST(Carrier, ReadsSetsThatDoNotTileAsAFullScanWould) {
    Dice D{11};
    Wave Disk(90);
    std::iota(Disk.begin(), Disk.end(), std::int16_t{10});
    for (int Round = 0; Round < 300; ++Round) {
        Shop S;
        S.Disk.Put16("w", Disk);
        // Everything happens within 200 positions from Low on; Low + 100 may be the last of all.
        const std::int32_t Low = D.Below(3) == 0 ? Max - 100 : -60;
        Wave Canvas(200, 9);
        Blocks Holders(200);
        std::vector<ListEntry> Entries;
        for (std::int32_t Left = 1 + D.Below(20); Left > 0; --Left) {
            const std::int32_t Len = 1 + D.Below(D.Below(4) == 0 ? 40 : 6);
            const std::int32_t At = 55 + D.Below(40), From = D.Below(50);
            Entries.push_back({3, Len, Low + At, "w", 1 + 2 * From});
            std::copy_n(Disk.begin() + From, Len, Canvas.begin() + At);
            std::replace(Holders.begin() + At, Holders.begin() + At + Len, 0, Size(Entries));
        }
        BlockCarrBuffClass Carrier(S.Store);
        const Blocks Set = S.HandOver(Entries);
        Carrier.BuffBlocksPutFresh(Set);
        const BlockSet Search(S.Store, Set);
        for (int Read = 0; Read < 20; ++Read) {
            const std::int32_t At = 50 + D.Below(50);
            const auto From = Canvas.begin() + At;
            const Wave Expected(From, From + D.Below(30));
            ASSERT_EQ(Heard(Carrier, Low + At, Expected.size()), Expected) << Round;
            ASSERT_EQ(Search.Find(Low + At, Low + At), Holders.begin()[At]);
        }
    }
}

class CarrierModel : public TestWithParam<std::int32_t> {};

// Any sequence of operations, many with a file call that fails, against a plain array.
TEST_P(CarrierModel, HoldsTheSameSamplesAsAPlainArray) {
    Shop S;
    S.Settings.MemorySizeToUse = GetParam();
    Dice D{static_cast<std::uint32_t>(GetParam() + 77)};
    MemoryFiles::Bytes Raw(800);
    for (std::uint8_t& Byte : Raw)
        Byte = static_cast<std::uint8_t>(D.Below(256));
    const ListEntry Kinds[] = {{5},
                               {3, 1, 1, "work"},
                               {4, 1, 1, "mono", 1, 1},
                               {4, 1, 1, "stereo", 1, 2},
                               {4, 1, 1, "mono8", 1, 1, 8},
                               {4, 1, 1, "stereo8", 1, 2, 8}};
    for (const ListEntry& Kind : Kinds)
        S.Disk.Content[std::string(Kind.Name)] = Raw;
    BlockCarrBuffClass Carrier(S.Store);
    Wave Model;
    const auto PutFresh = [&] {
        std::vector<ListEntry> Entries;
        Model.clear();
        for (std::int32_t I = 0, Count = 1 + D.Below(12); I < Count; ++I) {
            ListEntry& Entry = Entries.emplace_back(Kinds[D.Below(6)]);
            Entry.Len = 1 + D.Below(30);
            Entry.Start = Size(Model) + 1;
            Entry.FilePos = 1 + D.Below(300);
            for (std::int32_t K = 0; K < Entry.Len; ++K) {
                const auto At =
                    Raw.begin() + Entry.FilePos - 1 + K * Entry.Channels * Entry.Bits / 8;
                const int Sample = Entry.Bits == 8 ? At[0] - 128 : At[0] | At[1] << 8;
                Model.push_back(static_cast<std::int16_t>(Entry.Type == BlkSilent ? 0 : Sample));
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
        Blocks Set;
        Carrier.BuffBlocksGet(Set);
        ASSERT_EQ(S.BlocksInUse(), Size(Set) - 1);
    }
    EXPECT_GT(Failures, 50);
    EXPECT_EQ(S.Disk.Content["work"], Raw);
}

INSTANTIATE_TEST_SUITE_P(Budgets, CarrierModel, Values(0, 70, 130, 400, 1'000'000));

}  // namespace
}  // namespace Tolvar::Testing
