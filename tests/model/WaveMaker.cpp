#include "tests/model/WaveMaker.h"

#include <array>

#include "store/BlockRec.h"

namespace Tolvar::Testing {
namespace {

constexpr std::int32_t FileFrames = 20'000;

struct SourceFile {
    const char* Name;
    std::int32_t Type;
    std::int32_t Channels;
    std::int32_t Bits;
    bool Quiet;  ///< its samples fit into 8 bits
};

constexpr std::array<SourceFile, 6> Sources{{{"mono8.raw", BlkOrgFile, 1, 8, true},
                                             {"stereo8.raw", BlkOrgFile, 2, 8, true},
                                             {"quiet.tmp", BlkFile, 1, 16, true},
                                             {"mono16.raw", BlkOrgFile, 1, 16, false},
                                             {"stereo16.raw", BlkOrgFile, 2, 16, false},
                                             {"loud.tmp", BlkFile, 1, 16, false}}};
constexpr std::int32_t QuietOnes = 3;

/// The sample that stands at a byte of a file, as a carrier reads it.
std::int16_t SampleAt(const SourceFile& Source, std::int32_t BytePos) {
    const std::uint8_t* const At = WaveFiles().at(Source.Name).data() + BytePos - 1;
    if (Source.Bits == 8) return static_cast<std::int16_t>(*At - 128);
    return static_cast<std::int16_t>(At[0] | At[1] << 8);
}

/// Mostly slow, so that segments are short and many of their borders are met.
std::int32_t MakeRate(Dice& Random) {
    if (Random.OneIn(100)) return 44'100;
    return Random.OneIn(5) ? Random.Between(400, 8000) : Random.Between(100, 400);
}

std::int32_t MakeLength(Dice& Random, std::int32_t SegFrames) {
    if (Random.OneIn(4)) return Random.Between(1, 20);
    if (Random.OneIn(2)) return Random.Between(1, 5 * SegFrames);
    return Random.Between(1, 4) * SegFrames + Random.Between(-3, 3);
}

/// A block of at most Most samples; Put takes each of them, as a carrier reads it.
ListEntry MakeBlock(Dice& Random, std::int32_t Most, std::int32_t Bits, auto&& Put) {
    const std::int32_t Longest = 1 << Random.Between(0, 14);
    ListEntry Block{.Type = BlkSilent, .Len = Random.Between(1, std::min(Most, Longest))};
    if (Random.OneIn(6)) {
        for (std::int32_t I = 0; I < Block.Len; ++I)
            Put(std::int16_t{0});
        return Block;
    }
    const SourceFile& Source = Sources[static_cast<std::size_t>(
        Random.Between(0, (Bits == 8 ? QuietOnes : std::ssize(Sources)) - 1))];
    const std::int32_t Frame = Random.Between(0, FileFrames - Block.Len);
    const std::int32_t Side = Random.Between(0, Source.Channels - 1);
    Block.Type = Source.Type;
    Block.Name = Source.Name;
    Block.Channels = Source.Channels;
    Block.Bits = Source.Bits;
    Block.FilePos = 1 + (Frame * Source.Channels + Side) * Source.Bits / 8;
    for (std::int32_t I = 0; I < Block.Len; ++I)
        Put(SampleAt(Source, Block.FilePos + I * Source.Channels * Source.Bits / 8));
    return Block;
}

}  // namespace

const std::map<std::string, MemoryFiles::Bytes>& WaveFiles() {
    static const auto Made = [] {
        std::map<std::string, MemoryFiles::Bytes> Files;
        Dice Random(1);
        for (const SourceFile& Each : Sources) {
            MemoryFiles::Bytes& Raw = Files[Each.Name];
            for (std::int32_t I = 0; I < FileFrames * Each.Channels; ++I) {
                const std::int32_t Sample =
                    Each.Quiet ? Random.Between(-128, 127) : Random.Between(-32768, 32767);
                Raw.push_back(static_cast<std::uint8_t>(Each.Bits == 8 ? Sample + 128 : Sample));
                if (Each.Bits == 16) Raw.push_back(static_cast<std::uint8_t>(Sample >> 8));
            }
        }
        return Files;
    }();
    return Made;
}

MadeWave MakeWave(Dice& Random) {
    MadeWave Made;
    Made.Bits = Random.OneIn(3) ? 8 : 16;
    Made.Heard.Rate = MakeRate(Random);
    Made.Heard.Channels = Random.Between(1, 2);
    const std::int32_t Length = MakeLength(Random, 4 * Made.Heard.Rate);
    Made.Heard.Frames.resize(static_cast<std::size_t>(Length));
    for (int Channel = 0; Channel < Made.Heard.Channels; ++Channel) {
        auto& List = Channel == 0 ? Made.Left : Made.Right;
        for (std::int32_t Start = 1; Start <= Length; Start += List.back().Len) {
            auto At = Made.Heard.Frames.begin() + (Start - 1);
            const auto Put = [&](std::int16_t Sample) {
                (*At++)[static_cast<std::size_t>(Channel)] =
                    static_cast<std::int16_t>(Made.Bits == 8 ? Sample * 256 : Sample);
            };
            List.push_back(MakeBlock(Random, Length - Start + 1, Made.Bits, Put));
            List.back().Start = Start;
        }
    }
    return Made;
}

}  // namespace Tolvar::Testing
