// What finding a sample and making room for a block cost, against the number of blocks.

#include <cstdint>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/LoadedPlayer.h"
#include "bench/Sections.h"
#include "bench/Table.h"
#include "store/BlockCarrBuffClass.h"
#include "stream/StreamBuffFill.h"

namespace Tolvar::Bench {
namespace {

constexpr std::int32_t Thousand = 1000;
constexpr std::int32_t Million = 1000 * 1000;
constexpr int Turns = 21;

/// A mono wave of Count blocks.
class Channel {
  public:
    Channel(ChannelBlocks Blocks, const std::string& Path) : Shape_(Blocks) {
        Loaded_.HandOver(16, ListOf(Shape_, Path), {}, Shape_.Count * Shape_.Len);
        Loaded_.SetGeometry();
        Loaded_.State.PlayDirection = 1;
    }

    /// One sample at a time from all over the channel.
    double FindNs() {
        constexpr int Finds = 2000;
        std::uniform_int_distribution<std::int32_t> AnyPos(1, Shape_.Count * Shape_.Len);
        std::vector<std::int32_t> Positions(Finds);
        for (std::int32_t& Pos : Positions)
            Pos = AnyPos(Chance_);
        std::int16_t One = 0;
        return NsOf([&] {
                   for (const std::int32_t Pos : Positions)
                       Loaded_.State.BlkCarrL->QuickBuffGet(Pos, {&One, 1});
               }) /
               Finds;
    }

    /// The same segment every time, from the middle: long and short channels find their blocks in
    /// the processor's cache, so that what differs is the finding.
    double FillNs() {
        const std::int32_t Few = SegFrames / Shape_.Len + 1;
        Loaded_.State.FillNextPos = (Shape_.Count - Few) / 2 * Shape_.Len + 1;
        return NsOf([&] {
            if (!StreamBuffFill(Loaded_.State, 1)) throw std::logic_error("nothing filled");
        });
    }

    /// Fills the memory with half of the blocks, so that every further one drives one out.
    void FillMemory() {
        Loaded_.State.MemorySizeToUse = Shape_.Count / 2 * Shape_.Len * 2;
        for (std::int32_t Blk = 1; Blk <= Shape_.Count / 2; ++Blk)
            Loaded_.Store.BlockLoad(Blk);
        NextBlk_ = Shape_.Count / 2 + 1;
    }

    /// One block comes, the one that was not used for the longest time goes.
    double EvictNs() {
        constexpr int Loads = 400;
        const std::int32_t Held = Loaded_.Store.BuffMemUsed();
        const double Ns = NsOf([&] {
            for (int Load = 0; Load < Loads; ++Load) {
                Loaded_.Store.BlockLoad(NextBlk_);
                NextBlk_ = NextBlk_ == Shape_.Count ? 1 : NextBlk_ + 1;
            }
        });
        if (Loaded_.Store.BuffMemUsed() > Held + 4 * Shape_.Len) {
            throw std::logic_error("nothing was driven out");
        }
        return Ns / Loads;
    }

  private:
    ChannelBlocks Shape_;
    LoadedPlayer Loaded_;
    std::int32_t NextBlk_ = 0;
    std::minstd_rand Chance_;
};

std::string Blocks(std::int32_t Count) {
    return std::to_string(Count) + " blocks";
}

void CompareFinding() {
    PrintHead("finding one sample in a channel");
    const ChannelBlocks Few{.Type = BlkSilent, .Count = Thousand};
    for (std::int32_t Count = 10 * Thousand; Count <= Million; Count *= 10) {
        ChannelBlocks Many = Few;
        Many.Count = Count;
        Channel Ours(Many, "");
        Channel Theirs(Few, "");
        PrintRow(Blocks(Count), Blocks(Few.Count),
                 InTurns(
                     Turns, [&] { return Ours.FindNs(); }, [&] { return Theirs.FindNs(); }));
    }
}

void CompareSegments(const SampleFile& File) {
    PrintHead("a segment of blocks of 1024 samples");
    for (const auto& [Type, Name] :
         {std::pair{BlkSilent, "silent"}, {BlkOrgFile, "original file"}, {BlkFile, "work file"}}) {
        const ChannelBlocks Few{.Type = Type, .Count = Thousand};
        ChannelBlocks Many = Few;
        Many.Count = Million;
        Channel Ours(Many, File.Path());
        Channel Theirs(Few, File.Path());
        PrintRow(std::string(Name) + ", " + Blocks(Million), Blocks(Thousand),
                 InTurns(
                     Turns, [&] { return Ours.FillNs(); }, [&] { return Theirs.FillNs(); }),
                 1.3);
    }
}

void CompareEviction(const SampleFile& File) {
    PrintHead("a block loaded, another one driven out");
    const ChannelBlocks Few{.Type = BlkFile, .Count = 2 * Thousand, .Len = 16};
    for (std::int32_t Count = 10 * Thousand; Count <= Million; Count *= 10) {
        ChannelBlocks Many = Few;
        Many.Count = 2 * Count;
        Channel Ours(Many, File.Path());
        Channel Theirs(Few, File.Path());
        Ours.FillMemory();
        Theirs.FillMemory();
        PrintRow(Blocks(Count) + " in memory", Blocks(Thousand),
                 InTurns(
                     Turns, [&] { return Ours.EvictNs(); }, [&] { return Theirs.EvictNs(); }));
    }
}

}  // namespace

void MeasureBlocks() {
    const SampleFile File;
    CompareFinding();
    CompareSegments(File);
    CompareEviction(File);
}

}  // namespace Tolvar::Bench
