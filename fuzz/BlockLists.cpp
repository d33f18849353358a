#include <algorithm>
#include <cstring>
#include <memory>
#include <optional>
#include <vector>

#include "fuzz/Targets.h"
#include "platform/RuntimeFailure.h"
#include "store/BlockCarrBuffClass.h"
#include "store/BlocksFromBlkInLst.h"
#include "tests/support/Fakes.h"

namespace Tolvar::Fuzz {
namespace {

constexpr std::int32_t MostLoaded = 10'000;  // samples; a longer block is for the machine to refuse

/// False when it was refused, with a text.
template <typename Work>
bool Accepted(Work Do) {
    try {
        Do();
        return true;
    } catch (const RuntimeFailure& Cause) {
        Demand(*Cause.what() != '\0', "a refusal says why");
        return false;
    }
}

struct Shelf {
    Testing::MemoryFiles Disk;
    Testing::ListBox Box;
    StoreSettings Settings;
    WoroFileBlockMod Store{Disk, Box, Settings};

    Shelf() {
        Disk.Content["f"].resize(100);
        Settings.AppTmpDir = "t";
    }

    void HoldsNothing() const {
        for (std::int32_t Blk = 1; Blk <= Store.BlockCnt(); ++Blk)
            Demand(Store.Block(Blk).BlkType == BlkFree, "no block is left");
        for (std::int32_t Slot = 1; Slot <= Store.OrgFileCnt(); ++Slot)
            Demand(Store.OrgFile(Slot).OrgUseCnt == 0, "no original file is in use");
        for (std::int32_t Slot = 1; Slot <= Store.WorkFileCnt(); ++Slot)
            Demand(Store.WorkFile(Slot).WorkUseCnt == 0, "no work file is in use");
        Demand(Store.BuffMemUsed() == 0, "no sample is in memory");
        Demand(Disk.OpenNow == 0, "no file is open");
    }
};

/// Reads at the edges of every block, and brings them into memory if they are short.
void Read(Shelf& At, BlockCarrBuffClass& Carrier, const std::vector<std::int32_t>& Set) {
    std::vector<std::int16_t> Samples(50);
    const auto Blocks = std::span(Set).subspan(1);
    // Blocks may lie over each other, so that any of them may be the one that holds a sample.
    const bool AllShort = std::ranges::all_of(
        Blocks, [&](std::int32_t Blk) { return At.Store.Block(Blk).BlkLen <= MostLoaded; });
    for (const std::int32_t Blk : Blocks) {
        const std::int32_t Start = At.Store.Block(Blk).BlkStartPos;
        for (const std::int32_t From : {Start, Start > 20 ? Start - 20 : Start})
            Accepted([&] { Carrier.QuickBuffGet(From, Samples); });
        if (AllShort) Accepted([&] { Carrier.WaveLR(Start, 7); });
    }
}

}  // namespace

void HandOverList(Bytes Input) {
    std::vector<std::int32_t> List(Input.size() / sizeof(std::int32_t));
    if (!List.empty()) std::memcpy(List.data(), Input.data(), List.size() * sizeof(std::int32_t));

    Shelf At;
    std::optional<CheckedBlockList> Checked;
    if (!Accepted([&] { Checked.emplace(List, "left"); })) return;
    std::vector<std::int32_t> Set;
    const bool Made = Accepted([&] { Set = BlocksFromBlkInLst(At.Store, *Checked); });
    Demand(Made, "what the check accepts is made");
    Demand(At.Disk.Calls == 0, "a hand-over touches no file");
    Demand(static_cast<std::int64_t>(Set.size()) == std::int64_t{List[0]} + 1, "a block an entry");
    auto Carrier = std::make_unique<BlockCarrBuffClass>(At.Store);
    if (Accepted([&] { Carrier->BuffBlocksPutFresh(Set); })) {
        Read(At, *Carrier, Set);
    } else {
        std::for_each(Set.begin() + 1, Set.end(), [&](std::int32_t B) { At.Store.BlockFree(B); });
    }
    Carrier.reset();
    At.Store.OrgFileCloseNo(At.Store.OrgFileOpen());
    At.Store.WorkFileCloseNo(At.Store.WorkFileOpen());
    At.HoldsNothing();
}

}  // namespace Tolvar::Fuzz
