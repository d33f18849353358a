#include "tests/model/WaveMaker.h"

#include "store/BlockRec.h"

namespace Tolvar::Testing {
namespace {

constexpr std::int32_t FileFrames = 20'000;

/// One of each kind of block. The samples of the first four fit into 8 bits.
constexpr std::array<ListEntry, 7> Sources{
    {{.Type = BlkSilent},
     {.Type = BlkOrgFile, .Name = "mono8.raw", .Channels = 1, .Bits = 8},
     {.Type = BlkOrgFile, .Name = "stereo8.raw", .Channels = 2, .Bits = 8},
     {.Type = BlkFile, .Name = "quiet.tmp"},
     {.Type = BlkOrgFile, .Name = "mono16.raw", .Channels = 1, .Bits = 16},
     {.Type = BlkOrgFile, .Name = "stereo16.raw", .Channels = 2, .Bits = 16},
     {.Type = BlkFile, .Name = "loud.tmp"}}};
constexpr std::size_t QuietOnes = 4;

/// Mostly slow, so that segments are short and many of their borders are met.
std::int32_t RandomRate(Dice& Random) {
    if (Random.OneIn(100)) return 44'100;
    return Random.OneIn(5) ? Random.Between(400, 8000) : Random.Between(100, 400);
}

std::int32_t RandomLength(Dice& Random, std::int32_t SegFrames) {
    if (Random.OneIn(4)) return Random.Between(1, 20);
    if (Random.OneIn(2)) return Random.Between(1, 5 * SegFrames);
    return Random.Between(1, 4) * SegFrames + Random.Between(-3, 3);
}

ListEntry RandomBlock(Dice& Random, std::int32_t Most, std::int32_t Bits) {
    const std::span All(Sources);
    ListEntry Block = Random.Of(Bits == 8 ? All.first(QuietOnes) : All);
    Block.Len = Random.Between(1, std::min(Most, 1 << Random.Between(0, 14)));
    if (Block.Type == BlkSilent) return Block;
    const std::int32_t Frame = Random.Between(0, FileFrames - Block.Len);
    const std::int32_t Sample = Frame * Block.Channels + Random.Between(0, Block.Channels - 1);
    Block.FilePos = 1 + Sample * Block.Bits / 8;
    return Block;
}

/// The same frames' other channel.
ListEntry OtherSide(ListEntry Block) {
    const std::int32_t Bytes = Block.Bits / 8;
    if (Block.Channels == 2) Block.FilePos += (Block.FilePos - 1) / Bytes % 2 == 0 ? Bytes : -Bytes;
    return Block;
}

/// As a carrier reads them.
std::vector<std::int32_t> SamplesOf(const ListEntry& Block) {
    std::vector<std::int32_t> Samples(static_cast<std::size_t>(Block.Len));
    if (Block.Type == BlkSilent) return Samples;
    const MemoryFiles::Bytes& Raw = WaveFiles().at(std::string(Block.Name));
    auto At = static_cast<std::size_t>(Block.FilePos - 1);
    for (std::int32_t& Sample : Samples) {
        Sample = Block.Bits == 8 ? Raw[At] - 128 : std::int16_t(Raw[At] | Raw[At + 1] << 8);
        At += static_cast<std::size_t>(Block.Channels * Block.Bits / 8);
    }
    return Samples;
}

}  // namespace

const std::map<std::string, MemoryFiles::Bytes>& WaveFiles() {
    static const auto Made = [] {
        std::map<std::string, MemoryFiles::Bytes> Files;
        Dice Random(1);
        for (std::size_t File = 1; File < Sources.size(); ++File) {
            const auto& [Type, Len, Start, Name, FilePos, Channels, Bits] = Sources[File];
            const std::int32_t Loudest = File < QuietOnes ? 127 : 32767;
            MemoryFiles::Bytes& Raw = Files[std::string(Name)];
            for (std::int32_t I = 0; I < FileFrames * Channels; ++I) {
                const std::int32_t Sample = Random.Between(-Loudest - 1, Loudest);
                Raw.push_back(static_cast<std::uint8_t>(Bits == 8 ? Sample + 128 : Sample));
                if (Bits == 16) Raw.push_back(static_cast<std::uint8_t>(Sample >> 8));
            }
        }
        return Files;
    }();
    return Made;
}

std::shared_ptr<const MadeWave> MakeWave(Dice& Random) {
    MadeWave Made;
    Made.Bits = Random.OneIn(3) ? 8 : 16;
    Made.Channels = Random.Between(1, 2);
    Made.Rate = RandomRate(Random);
    const std::int32_t Length = RandomLength(Random, 4 * Made.Rate);
    Made.Frames.resize(static_cast<std::size_t>(Length));
    const bool InPairs = Random.OneIn(2);  // as sound files are edited
    for (std::size_t Channel = 0; Channel < static_cast<std::size_t>(Made.Channels); ++Channel) {
        for (std::int32_t Start = 1; Start <= Length;) {
            ListEntry Block = InPairs && Channel == 1
                                  ? OtherSide(Made.Blocks[0][Made.Blocks[1].size()])
                                  : RandomBlock(Random, Length - Start + 1, Made.Bits);
            Block.Start = Start;
            for (const std::int32_t Sample : SamplesOf(Block)) {
                Made.Frames[static_cast<std::size_t>(Start++) - 1][Channel] =
                    static_cast<std::int16_t>(Made.Bits == 8 ? Sample * 256 : Sample);
            }
            Made.Blocks[Channel].push_back(Block);
        }
    }
    return std::make_shared<MadeWave>(std::move(Made));
}

}  // namespace Tolvar::Testing
