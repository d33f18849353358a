#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>

#include "tests/model/Commands.h"

using namespace Tolvar;
using namespace Tolvar::Testing;

namespace {

constexpr int CommandsOfTrial = 250;

/// What this process holds of the machine.
struct Holdings {
    double Megabytes = 0;  // resident
    std::int64_t Descriptors = 0;

    static Holdings Now() {
        std::int64_t Pages = 0;
        std::ifstream("/proc/self/statm") >> Pages >> Pages;
        const auto Bytes = static_cast<double>(Pages * sysconf(_SC_PAGESIZE));
        const std::filesystem::directory_iterator Open("/proc/self/fd");
        return {Bytes / (1 << 20), std::distance(begin(Open), end(Open))};
    }
};

struct Soak {
    std::int64_t Done = 0;  // commands
    std::int64_t Ms = 0;    // of virtual time that the commands waited
    Holdings AtATenth;

    /// One trial on each engine; false when one differed.
    bool Run(std::uint32_t Seed) {
        for (const EngineOrder Engine :
             {EngineOrder::Dx9, EngineOrder::Dx7, EngineOrder::WaveOut}) {
            std::string Difference;
            const Trial Tried = RandomTrial(Engine, Seed, CommandsOfTrial, Difference);
            Done += std::ssize(Tried.Commands);
            for (const Command& Each : Tried.Commands)
                Ms += Each.What == Command::Kind::Wait ? Each.Value : 0;
            if (Difference.empty()) continue;
            std::printf("%s, seed %u: %s\n", NameOf(Engine), Seed, Difference.c_str());
            std::printf("%s", Explained(Tried).c_str());
            return false;
        }
        return true;
    }
};

}  // namespace

/// Random sessions of all three engines against the model: model_soak [COMMANDS] [SEED]
int main(int Count, char** Words) try {
    const std::int64_t Wanted = Count > 1 ? std::atoll(Words[1]) : 1'000'000;
    const auto First = static_cast<std::uint32_t>(Count > 2 ? std::atoll(Words[2]) : 1);
    const auto Start = std::chrono::steady_clock::now();
    Soak Whole;
    bool Same = true;
    for (std::uint32_t Seed = First; Same && Whole.Done < Wanted; ++Seed) {
        Same = Whole.Run(Seed);
        if (Whole.AtATenth.Descriptors == 0 && Whole.Done >= Wanted / 10) {
            Whole.AtATenth = Holdings::Now();
        }
    }
    const std::chrono::duration<double> Took = std::chrono::steady_clock::now() - Start;
    const Holdings Then = Whole.AtATenth;
    const Holdings Now = Holdings::Now();
    std::printf("%lld commands from seed %u on, %.1f hours of play, in %.1f s: %s\n",
                static_cast<long long>(Whole.Done), First,
                static_cast<double>(Whole.Ms) / 3'600'000, Took.count(),
                Same ? "no difference" : "a difference");
    std::printf("resident %.1f MB at a tenth, %.1f MB at the end; descriptors %lld, %lld\n",
                Then.Megabytes, Now.Megabytes, static_cast<long long>(Then.Descriptors),
                static_cast<long long>(Now.Descriptors));
    const bool Flat = Now.Descriptors == Then.Descriptors && Now.Megabytes < Then.Megabytes * 1.25;
    return Same && Flat ? 0 : 1;
} catch (const std::exception& Cause) {
    std::fprintf(stderr, "model_soak: %s\n", Cause.what());
    return 1;
}
