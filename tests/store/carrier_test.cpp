#include <gmock/gmock.h>

#include <algorithm>
#include <limits>

#include "tests/store/Shop.h"

namespace Tolvar::Testing {
namespace {

using testing::ElementsAre;

constexpr std::int32_t Max = std::numeric_limits<std::int32_t>::max();

TEST(Carrier, ReadsAcrossBlocksAndLeavesTheRestAlone) {
    Shop S;
    S.Disk.Put16("w", Wave{1, 2, 3});
    S.Disk.Content["o"] = {129, 200};
    BlockCarrBuffClass Carrier(S.Store);
    Carrier.BuffBlocksPutFresh(S.HandOver({{3, 3, 1, "w"}, {5, 2, 4}, {4, 2, 6, "o", 1, 1, 8}}));
    EXPECT_EQ(Carrier.WaveINos(), 7);
    Wave Heard(12, 9);
    Carrier.QuickBuffGet(-1, Heard);
    EXPECT_THAT(Heard, ElementsAre(9, 9, 1, 2, 3, 0, 0, 1, 72, 9, 9, 9));
    for (const std::int32_t Beside : {8, Max, -2147483647 - 1, -11}) {
        Wave Untouched(12, 9);
        Carrier.QuickBuffGet(Beside, Untouched);
        EXPECT_EQ(Untouched, Wave(12, 9)) << Beside;
    }
    Carrier.QuickBuffGet(1, {});
    EXPECT_EQ(S.Store.UseClock(), 0);
    EXPECT_EQ(S.Store.BuffMemUsed(), 0);
}

TEST(Carrier, StampsAndLoadsTheBlockThatASampleIsReadFrom) {
    Shop S;
    S.Disk.Put16("w", Wave{1, 2, 3});
    BlockCarrBuffClass Carrier(S.Store);
    Carrier.BuffBlocksPutFresh(S.HandOver({{5, 2, 1}, {3, 3, 3, "w"}}));
    EXPECT_EQ(Carrier.WaveLR(1), 0);  // within the current block
    EXPECT_EQ(S.Store.UseClock(), 0);
    EXPECT_EQ(Carrier.WaveLR(4), 2);
    EXPECT_THAT(S.Types({1, 2}), ElementsAre(BlkSilent, BlkBoth));
    const std::int32_t Stamp = S.Store.Block(2).BlkUseStamp;
    EXPECT_EQ(Carrier.WaveLR(5), 3);
    EXPECT_EQ(S.Store.Block(2).BlkUseStamp, Stamp);
    Carrier.WaveLR(5, 30);
    EXPECT_EQ(S.Store.Block(2).BlkType, BlkBuff);
    EXPECT_EQ(Carrier.WaveLR(5), 30);
    Carrier.WaveLR(6, 1);
    EXPECT_EQ(Carrier.WaveLR(6) + Carrier.WaveLR(0) + Carrier.WaveLR(Max), 0);
    S.ExpectConsistent();
}

TEST(Carrier, ReDimSizeGrowsInSilentBlocksAndCutsWithinOne) {
    Shop S;
    S.State.MemorySizeToUse = 70;  // blocks of 4 samples
    BlockCarrBuffClass Carrier(S.Store);
    Carrier.ReDimSize(10);
    Blocks Set;
    Carrier.BuffBlocksGet(Set);
    std::vector<std::int32_t> Lens;
    for (const std::int32_t Blk : {Set[1], Set[2], Set[3]}) {
        Lens.push_back(S.Store.Block(Blk).BlkLen);
    }
    EXPECT_THAT(Lens, ElementsAre(4, 4, 2));
    Carrier.ReDimSize(8);  // on a boundary: nothing is loaded
    EXPECT_EQ(S.Store.BuffMemUsed(), 0);
    Carrier.ReDimSize(5);
    Carrier.BuffBlocksGet(Set);
    EXPECT_EQ(S.Store.Block(Set[2]).BlkLen, 1);
    EXPECT_EQ(S.BlocksInUse(), 2);
    Carrier.ReDimSize(0);
    EXPECT_THAT(S.Box.Texts, ElementsAre("Error:\r\nCan not create buffer with zero size"));
    EXPECT_THROW(Carrier.ReDimSize(-1), RuntimeFailure);
    EXPECT_EQ(Carrier.WaveINos(), 5);
    Carrier.BuffBlocksPutFresh({});
    EXPECT_EQ(Carrier.WaveINos() + Carrier.WaveLR(1) + S.BlocksInUse(), 0);
    S.State.MemorySizeToUse = 69;
    BlockCarrBuffClass Small(S.Store);
    Small.ReDimSize(5000);
    EXPECT_EQ(S.BlocksInUse(), 2);
    S.ExpectConsistent();
}

TEST(Carrier, RefusesASetThatItCannotCountAndKeepsItsOwn) {
    Shop S;
    BlockCarrBuffClass Carrier(S.Store);
    Carrier.BuffBlocksPutFresh(S.HandOver({{5, 4, 1}}));
    const std::int32_t Long = S.HandOverOne({5, Max, 1});
    EXPECT_THROW(Carrier.BuffBlocksPutFresh({0, Long, Long}), RuntimeFailure);
    EXPECT_THROW(Carrier.BuffBlocksPutFresh({0, 77}), RuntimeFailure);
    EXPECT_EQ(Carrier.WaveINos(), 4);
    EXPECT_EQ(S.BlocksInUse(), 2);
}

TEST(Carrier, CutsAndGrowsASetThatDoesNotTile) {
    Shop S;
    S.Disk.Put16("w", Wave{1, 2, 3, 4});
    BlockCarrBuffClass Carrier(S.Store);
    Carrier.BuffBlocksPutFresh(S.HandOver({{3, 3, 1, "w"}, {3, 3, 2, "w"}, {5, 2, 10}}));
    const auto Heard = [&] {
        Wave Buf(11, 9);
        Carrier.QuickBuffGet(1, Buf);
        return Buf;
    };
    EXPECT_THAT(Heard(), ElementsAre(1, 1, 2, 3, 9, 9, 9, 9, 9, 0, 0));
    Carrier.ReDimSize(5);
    EXPECT_THAT(Heard(), ElementsAre(1, 1, 2, 3, 9, 9, 9, 9, 9, 9, 9));
    Carrier.ReDimSize(3);  // through the second block
    EXPECT_THAT(Heard(), ElementsAre(1, 1, 2, 9, 9, 9, 9, 9, 9, 9, 9));
    Carrier.ReDimSize(5);
    EXPECT_THAT(Heard(), ElementsAre(1, 1, 2, 0, 0, 9, 9, 9, 9, 9, 9));
    EXPECT_EQ(S.BlocksInUse(), 3);
    S.ExpectConsistent();
}

// Blocks anywhere: the carrier must read as a scan over all of them, later ones on top.
TEST(Carrier, ReadsSetsThatDoNotTileAsAFullScanWould) {
    Dice D{11};
    for (int Round = 0; Round < 300; ++Round) {
        Shop S;
        BlockCarrBuffClass Carrier(S.Store);
        std::vector<ListEntry> Entries;
        const std::int32_t Far = D.Below(3) == 0 ? Max - 40 : 0;
        for (std::int32_t I = 0, Count = 1 + D.Below(20); I < Count; ++I) {
            Entries.push_back({3, 1 + D.Below(D.Below(4) == 0 ? 40 : 6), Far + (D.Below(40) - 5),
                               "w", 1 + 2 * D.Below(50)});
        }
        Wave Disk(120);
        for (std::size_t I = 0; I < Disk.size(); ++I)
            Disk[I] = static_cast<std::int16_t>(I + 1);
        S.Disk.Put16("w", Disk);
        Carrier.BuffBlocksPutFresh(S.HandOver(Entries));
        for (int Read = 0; Read < 20; ++Read) {
            const std::int32_t From = Far + (D.Below(50) - 10);
            Wave Heard(static_cast<std::size_t>(1 + D.Below(30)), -7);
            Wave Expected = Heard;
            std::int32_t FirstHolder = 0;
            for (std::size_t E = 0; E < Entries.size(); ++E) {
                for (std::int32_t K = 0; K < Entries[E].Len; ++K) {
                    const std::int64_t At = std::int64_t{Entries[E].Start} + K - From;
                    if (At == 0 && FirstHolder == 0) FirstHolder = static_cast<std::int32_t>(E) + 1;
                    if (At < 0 || At >= static_cast<std::int64_t>(Heard.size())) continue;
                    Expected[static_cast<std::size_t>(At)] =
                        Disk[static_cast<std::size_t>((Entries[E].FilePos - 1) / 2 + K)];
                }
            }
            Carrier.QuickBuffGet(From, Heard);
            ASSERT_EQ(Heard, Expected) << Round;
            BlockSet Search(S.Store, [&] {
                Blocks Set;
                Carrier.BuffBlocksGet(Set);
                return Set;
            }());
            ASSERT_EQ(Search.Find(From, From), FirstHolder);
        }
    }
}

class CarrierModel : public testing::TestWithParam<std::int32_t> {};

// Any sequence of operations against a plain array.
TEST_P(CarrierModel, HoldsTheSameSamplesAsAPlainArray) {
    Shop S;
    S.State.MemorySizeToUse = GetParam();
    Dice D{static_cast<std::uint32_t>(GetParam() + 77)};
    Wave Disk(400);
    for (auto& Sample : Disk)
        Sample = static_cast<std::int16_t>(D.Below(60000) - 30000);
    S.Disk.Put16("w", Disk);
    S.Disk.Put16("o", Disk);
    const auto OnDisk = S.Disk.Content;
    BlockCarrBuffClass Carrier(S.Store);
    Wave Model;
    const auto Anywhere = [&] { return D.Below(static_cast<std::int32_t>(Model.size()) + 4) - 1; };
    const auto PutFresh = [&] {
        std::vector<ListEntry> Entries;
        Model.clear();
        for (std::int32_t I = 0, Count = 1 + D.Below(12); I < Count; ++I) {
            const std::int32_t Len = 1 + D.Below(30);
            const std::int32_t Pos = D.Below(150);
            const std::int32_t Kind = D.Below(4);  // silent, work, original mono, original stereo
            Entries.push_back({Kind == 0   ? 5
                               : Kind == 1 ? 3
                                           : 4,
                               Len, static_cast<std::int32_t>(Model.size()) + 1,
                               Kind == 1   ? "w"
                               : Kind == 2 ? "o"
                                           : "O2",
                               1 + 2 * Pos, Kind == 3 ? 2 : 1, 16});
            for (std::int32_t K = 0; K < Len; ++K) {
                const auto At = static_cast<std::size_t>(Pos + (Kind == 3 ? 2 * K : K));
                Model.push_back(Kind == 0 ? std::int16_t{0} : Disk[At]);
            }
        }
        Carrier.BuffBlocksPutFresh(S.HandOver(Entries));
    };
    S.Disk.Put16("O2", Disk);
    PutFresh();
    for (int Step = 0; Step < 4000; ++Step) {
        const std::int32_t What = D.Below(100);
        if (What < 40) {
            const std::int32_t Pos = Anywhere();
            const auto Value = static_cast<std::int16_t>(Step);
            Carrier.WaveLR(Pos, Value);
            if (Pos >= 1 && Pos <= Carrier.WaveINos()) {
                Model[static_cast<std::size_t>(Pos) - 1] = Value;
            }
        } else if (What < 70) {
            const std::int32_t Pos = Anywhere();
            const bool Inside = Pos >= 1 && Pos <= Carrier.WaveINos();
            ASSERT_EQ(Carrier.WaveLR(Pos), Inside ? Model[static_cast<std::size_t>(Pos) - 1] : 0);
        } else if (What < 85) {
            const std::int32_t NewSz = 1 + D.Below(250);
            Carrier.ReDimSize(NewSz);
            Model.resize(static_cast<std::size_t>(NewSz));
        } else if (What < 95) {
            Blocks Copy;
            Carrier.BuffBlocksGetCopy(Copy);
            Carrier.BuffBlocksPutFresh(Copy);
        } else {
            PutFresh();
        }
        ASSERT_NO_FATAL_FAILURE(S.ExpectConsistent());
        ASSERT_EQ(Carrier.WaveINos(), static_cast<std::int32_t>(Model.size()));
        Wave Heard(Model.size());
        Carrier.QuickBuffGet(1, Heard);
        ASSERT_EQ(Heard, Model) << "step " << Step << ", choice " << What;
        Blocks Set;
        Carrier.BuffBlocksGet(Set);
        ASSERT_EQ(S.BlocksInUse(), static_cast<std::int32_t>(Set.size()) - 1);
    }
    Carrier.BuffBlocksPutFresh({});
    EXPECT_EQ(S.BlocksInUse(), 0);
    for (const auto& [Name, Bytes] : OnDisk)
        EXPECT_EQ(S.Disk.Content[Name], Bytes) << Name;
}

INSTANTIATE_TEST_SUITE_P(Budgets, CarrierModel, testing::Values(0, 70, 130, 400, 1'000'000));

}  // namespace
}  // namespace Tolvar::Testing
