#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "tests/model/Commands.h"

using namespace Tolvar;
using namespace Tolvar::Testing;

namespace {

constexpr int CommandsOfTrial = 250;

/// False when a trial differed; Done counts the commands.
bool Soak(std::int64_t Wanted, std::uint32_t Seed, std::int64_t& Done) {
    while (Done < Wanted) {
        for (const EngineOrder Engine :
             {EngineOrder::Dx9, EngineOrder::Dx7, EngineOrder::WaveOut}) {
            std::string Difference;
            const Trial Tried = RandomTrial(Engine, Seed, CommandsOfTrial, Difference);
            Done += std::ssize(Tried.Commands);
            if (Difference.empty()) continue;
            std::printf("%s, seed %u: %s\n", NameOf(Engine), Seed, Difference.c_str());
            std::printf("%s", Explained(Tried).c_str());
            return false;
        }
        ++Seed;
    }
    return true;
}

}  // namespace

/// Random sessions of all three engines against the model: model_soak [COMMANDS] [SEED]
int main(int Count, char** Words) try {
    const std::int64_t Wanted = Count > 1 ? std::atoll(Words[1]) : 1'000'000;
    const auto Seed = static_cast<std::uint32_t>(Count > 2 ? std::atoll(Words[2]) : 1);
    const auto Start = std::chrono::steady_clock::now();
    std::int64_t Done = 0;
    const bool Same = Soak(Wanted, Seed, Done);
    const std::chrono::duration<double> Took = std::chrono::steady_clock::now() - Start;
    std::printf("%lld commands from seed %u on in %.1f s: %s\n", static_cast<long long>(Done), Seed,
                Took.count(), Same ? "no difference" : "a difference");
    return Same ? 0 : 1;
} catch (const std::exception& Cause) {
    std::fprintf(stderr, "model_soak: %s\n", Cause.what());
    return 1;
}
