// From the command to play until the device has the first segment, the file being cached.

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/LoadedPlayer.h"
#include "bench/Sections.h"
#include "bench/Table.h"

namespace Tolvar::Bench {
namespace {

constexpr int Turns = 101;

struct Kind {
    const char* Name;
    EngineOrder Engine;
    bool ToFirstWrite;  ///< otherwise until the command returns
    bool InMemory;
};
constexpr Kind Kinds[] = {
    {"waveout to its first write, original file", EngineOrder::WaveOut, true, false},
    {"waveout to its first write, memory", EngineOrder::WaveOut, true, true},
    {"waveout until it returns, original file", EngineOrder::WaveOut, false, false},
    {"dx7 until it returns, original file", EngineOrder::Dx7, false, false},
    {"dx9 until it returns, original file", EngineOrder::Dx9, false, false},
};

double StartNs(LoadedPlayer& Ready, bool ToFirstWrite) {
    Ready.Wave.Forget();
    const auto Start = std::chrono::steady_clock::now();
    Ready.Player.PlayAgain();
    auto End = std::chrono::steady_clock::now();
    if (ToFirstWrite) End = Ready.Wave.Written().value();
    if (Ready.Player.PlayRunningDx7State() != 1) throw std::logic_error("it does not play");
    Ready.Player.StopPlay();
    return std::chrono::duration<double, std::nano>(End - Start).count();
}

void Compare(const Kind& Each, const std::string& Path) {
    LoadedPlayer Ready{.Engine = Each.Engine};
    std::int32_t Window = 1;
    Ready.Player.DxObj(Window);
    ChannelBlocks Blocks{.Len = 10 * SegFrames, .Channels = 2};
    const auto Left = ListOf(Blocks, Path);
    Blocks.Channel = 1;
    Ready.HandOver(16, Left, ListOf(Blocks, Path), Blocks.Len);
    if (Each.InMemory) Ready.LoadAll();

    constexpr std::size_t SegBytes = 4 * SegFrames;
    const std::vector<char> From(SegBytes, 'a');
    std::vector<char> To(SegBytes);
    PrintRow(Each.Name, "memcpy of a segment",
             InTurns(
                 Turns, [&] { return StartNs(Ready, Each.ToFirstWrite); },
                 [&] { return NsOf([&] { std::memcpy(To.data(), From.data(), SegBytes); }); }));
}

}  // namespace

void MeasureStart() {
    PrintHead("start of a play, 16-bit stereo");
    const SampleFile File;
    for (const Kind& Each : Kinds)
        Compare(Each, File.Path());
}

}  // namespace Tolvar::Bench
