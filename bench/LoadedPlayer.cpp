#include "bench/LoadedPlayer.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <random>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "store/BlockCarrBuffClass.h"
#include "waveplay/wave/BlockListBuilder.h"

namespace Tolvar::Bench {

std::vector<std::int32_t> ListOf(const ChannelBlocks& Blocks, const std::string& Path) {
    BlockListBuilder List;
    const std::int32_t SampleBytes = Blocks.Bits / 8;
    const std::int32_t Step = Blocks.LenInFile * SampleBytes * Blocks.Channels;
    const std::int32_t Round = Step == 0 ? 1 : BytesInFile / Step;
    for (std::int32_t Blk = 0; Blk < Blocks.Count; ++Blk) {
        BlockEntry Entry;
        Entry.Code = Blocks.Type;
        Entry.Len = Blocks.Len;
        Entry.FilePos = 1 + Blk % Round * Step + Blocks.Channel * SampleBytes;
        Entry.Channels = Blocks.Channels;
        Entry.Bits = Blocks.Bits;
        if (Blocks.Type != BlkSilent) Entry.Name = Path;
        if (Blocks.NameEach) Entry.Name += std::to_string(Blk);
        List.Append(Entry);
    }
    return List.Values();
}

SampleFile::SampleFile()
    : Path_(std::filesystem::temp_directory_path() /
            ("tolvar-bench-" + std::to_string(std::uint64_t{std::random_device{}()}) + ".raw")) {
    std::string Bytes(BytesInFile, '\0');
    std::uint32_t Noise = 1;  // the "quick and dirty" generator of Numerical Recipes
    for (char& Byte : Bytes) {
        Noise = Noise * 1664525 + 1013904223;
        Byte = static_cast<char>(Noise >> 24);
    }
    std::ofstream Out(Path_, std::ios::binary);
    if (!Out.write(Bytes.data(), BytesInFile).flush()) {
        throw std::runtime_error("cannot write " + Path_);
    }
}

SampleFile::~SampleFile() {
    std::error_code Ignored;
    std::filesystem::remove(Path_, Ignored);
}

void LoadedPlayer::HandOver(std::int32_t Bits, const std::vector<std::int32_t>& Left,
                            const std::vector<std::int32_t>& Right, std::int32_t Frames) {
    Player.WriteWaveMemo(Bits, Right.empty() ? 1 : 2, Rate, Frames, Left, Right);
    if (State.WaveNos != Frames) throw std::logic_error("the wave was not taken");
}

void LoadedPlayer::LoadAll() {
    State.MemorySizeToUse = INT32_MAX;
    for (BlockCarrBuffClass* Channel : {State.BlkCarrL.get(), State.BlkCarrR.get()}) {
        std::vector<std::int32_t> Blks;
        Channel->BuffBlocksGet(Blks);
        for (std::size_t Entry = 1; Entry < Blks.size(); ++Entry)
            Store.BlockLoad(Blks[Entry]);
    }
}

void LoadedPlayer::SetGeometry() {
    State.SegFrames = SegFrames;
    State.BuffFrames = 2 * SegFrames;
    State.SegSamples = SegFrames * State.FmtChannal;
    State.BuffSamples = 2 * State.SegSamples;
    State.SegBytes = 2 * State.SegSamples;
    State.BuffBytes = 2 * State.SegBytes;
}

}  // namespace Tolvar::Bench
