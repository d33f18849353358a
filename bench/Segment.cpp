// What four seconds cost out of a channel of a million blocks, and out of one that has only the
// blocks they touch.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>

#include "bench/Limit.h"
#include "bench/LoadedPlayer.h"
#include "bench/RatioTable.h"
#include "stream/StreamBuffFill.h"

namespace Tolvar::Bench {
namespace {

constexpr std::int32_t SegFrames = 4 * 44100;
constexpr std::int32_t Few = SegFrames / SamplesPerBlock + 1;
constexpr std::int32_t Many = 1000 * 1000;

void SetGeometry(PlayerState& State) {
    State.SegFrames = State.SegSamples = SegFrames;
    State.BuffFrames = State.BuffSamples = 2 * SegFrames;
    State.SegBytes = 2 * SegFrames;
    State.BuffBytes = 4 * SegFrames;
    State.PlayDirection = 1;
}

// The same segment every time, from the middle of the long channel: both find their blocks in the
// processor's cache, so that what differs is the finding.
void Segment(benchmark::State& Run, Source From) {
    const auto Count = static_cast<std::int32_t>(Run.range(0));
    const SampleFile File;
    LoadedPlayer Player;
    Player.HandOver(ListOf(From, Count, File.Path()), Count);
    SetGeometry(Player.State);
    const std::int32_t Start = (Count - Few) / 2 * SamplesPerBlock + 1;
    for (auto _ : Run) {
        Player.State.FillNextPos = Start;
        if (!StreamBuffFill(Player.State, 1)) throw std::logic_error("the segment was not filled");
    }
}

struct Kind {
    Source From;
    const char* Name;
};
constexpr Kind Kinds[] = {{Source::Silent, "segment, silent"},
                          {Source::OneFile, "segment, one original file"},
                          {Source::WorkFile, "segment, one work file"}};

const bool Registered = [] {
    for (const Kind& Each : Kinds) {
        benchmark::RegisterBenchmark(Each.Name, Segment, Each.From)
            ->Arg(Few)
            ->Arg(Many)
            ->MinTime(0.2)
            ->Repetitions(5);
    }
    return true;
}();

}  // namespace

void PrintSegments(const Medians& Ran) {
    std::printf("\nfour seconds, us           %5d blocks  %d blocks  ratio\n", Few, Many);
    for (const Kind& Each : Kinds) {
        const auto Short = Ran.find(Each.Name + ("/" + std::to_string(Few)));
        const auto Long = Ran.find(Each.Name + ("/" + std::to_string(Many)));
        if (Short == Ran.end() || Long == Ran.end()) continue;
        std::printf("%-26s %12.1f %15.1f  %s\n", Each.Name, Short->second / 1e3, Long->second / 1e3,
                    AgainstLimit(Long->second / Short->second, 1.3).c_str());
    }
}

}  // namespace Tolvar::Bench
