// What a block costs when the editor hands a wave over, for waves of 10^3 to 10^6 blocks.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "bench/Limit.h"
#include "bench/LoadedPlayer.h"
#include "bench/RatioTable.h"

namespace Tolvar::Bench {
namespace {

constexpr int Thousand = 1000;
constexpr int Million = 1000 * 1000;

struct Kind {
    Source From;
    const char* Name;
    bool Flat;  ///< the cost of a block must not grow with their number
};
// A million files are a million names to keep and find, which no cache holds.
constexpr Kind Kinds[] = {{Source::Silent, "silent", true},
                          {Source::OneFile, "one original file", true},
                          {Source::WorkFile, "one work file", true},
                          {Source::ManyFiles, "a file each", false}};

// Long lists take longer to make than to hand over, and every benchmark asks several times.
const std::vector<std::int32_t>& KeptList(Source From, std::int32_t Count) {
    static Source KeptFrom = From;
    static std::int32_t KeptCount = 0;
    static std::vector<std::int32_t> Kept;
    if (KeptFrom != From || KeptCount != Count) Kept = ListOf(From, Count, "/nowhere/wave.raw");
    KeptFrom = From;
    KeptCount = Count;
    return Kept;
}

// A server that holds such a wave already: the old one goes, the new one comes.
void HandOverAgain(benchmark::State& Run, Source From) {
    const auto Count = static_cast<std::int32_t>(Run.range(0));
    const auto& List = KeptList(From, Count);
    LoadedPlayer Player;
    Player.HandOver(List, Count);
    for (auto _ : Run)
        Player.HandOver(List, Count);
}

// The first wave of a server's life: every page of memory comes from the system.
void HandOverFirst(benchmark::State& Run, Source From) {
    using Watch = std::chrono::steady_clock;
    const auto Count = static_cast<std::int32_t>(Run.range(0));
    const auto& List = KeptList(From, Count);
    for (auto _ : Run) {
        const auto Player = std::make_unique<LoadedPlayer>();
        malloc_trim(0);
        const auto Start = Watch::now();
        Player->HandOver(List, Count);
        Run.SetIterationTime(std::chrono::duration<double>(Watch::now() - Start).count());
    }
}

std::string NameOf(const std::string& When, const Kind& Each, int Count) {
    return When + ", " + Each.Name + "/" + std::to_string(Count);
}

const bool Registered = [] {
    for (const Kind& Each : Kinds) {
        for (const bool First : {true, false}) {
            const std::string Name = (First ? "first, " : "again, ") + std::string(Each.Name);
            auto* Bench = benchmark::RegisterBenchmark(
                Name.c_str(), First ? HandOverFirst : HandOverAgain, Each.From);
            Bench->RangeMultiplier(10)->Range(Thousand, Million)->MinTime(0.1)->Repetitions(5);
            if (First) Bench->UseManualTime();
        }
    }
    return true;
}();

void PrintRow(const Medians& Ran, const std::string& When, const Kind& Each) {
    const auto Few = Ran.find(NameOf(When, Each, Thousand));
    const auto Many = Ran.find(NameOf(When, Each, Million));
    if (Few == Ran.end() || Many == Ran.end()) return;
    std::printf("%-6s %-18s", When.c_str(), Each.Name);
    for (int Count = Thousand; Count <= Million; Count *= 10) {
        const auto Found = Ran.find(NameOf(When, Each, Count));
        std::printf(" %7.1f", Found == Ran.end() ? 0.0 : Found->second / Count);
    }
    const double Growth = Many->second / Million / (Few->second / Thousand);
    const double Seconds = Many->second / 1e9;
    if (Each.Flat) {
        std::printf("  %-24s %s\n", AgainstLimit(Growth, 1.5).c_str(),
                    AgainstLimit(Seconds, 1.0).c_str());
    } else {
        std::printf("  %5.2f %24.2f\n", Growth, Seconds);
    }
}

}  // namespace

void PrintHandOver(const Medians& Ran) {
    std::printf("\nhand-over, ns a block    %8s%8s%8s%8s  %-24s %s\n", "10^3", "10^4", "10^5",
                "10^6", "10^6 against 10^3", "10^6 blocks, s");
    for (const Kind& Each : Kinds)
        PrintRow(Ran, "first", Each);
    for (const Kind& Each : Kinds)
        PrintRow(Ran, "again", Each);
}

}  // namespace Tolvar::Bench
