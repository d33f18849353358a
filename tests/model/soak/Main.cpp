#include <malloc.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tests/model/Commands.h"
#include "tests/support/Studio.h"

using namespace Tolvar;
using namespace Tolvar::Testing;

namespace {

/// What this process holds of the machine.
struct Holdings {
    double Megabytes = 0;  // resident
    long Descriptors = 0;

    static Holdings Now() {
        malloc_trim(0);  // what is free is not held
        long Pages = 0;
        std::ifstream("/proc/self/statm") >> Pages >> Pages;
        const auto Bytes = static_cast<double>(Pages * sysconf(_SC_PAGESIZE));
        const std::filesystem::directory_iterator Open("/proc/self/fd");
        return {Bytes / (1 << 20), std::distance(begin(Open), end(Open))};
    }
};

}  // namespace

/// Random sessions of all three engines against the model: model_soak [COMMANDS] [SEED]
int main(int Count, char** Words) {
    const long Wanted = Count > 1 ? std::atol(Words[1]) : 1'000'000;
    const auto First = static_cast<std::uint32_t>(Count > 2 ? std::atol(Words[2]) : 1);
    const auto Start = std::chrono::steady_clock::now();
    long Done = 0;
    double Ms = 0;  // of virtual time that the commands waited
    Holdings AtATenth;
    bool Same = true;
    for (std::uint32_t Seed = First; Same && Done < Wanted; ++Seed) {
        for (const EngineOrder Engine : AllEngines) {
            const Trial Tried = RandomTrial(Engine, Seed, 250);
            Done += std::ssize(Tried.Commands);
            for (const auto& [What, Value, Wave] : Tried.Commands)
                Ms += What == "wait" ? *Value : 0;
            const std::string Difference = Tried.Difference();
            Same = Difference.empty();
            if (Same) continue;
            std::printf("%s, seed %u: %s\n%s", NameOf(Engine), Seed, Difference.c_str(),
                        Explained(Tried).c_str());
            break;
        }
        if (AtATenth.Descriptors == 0 && Done >= Wanted / 10) AtATenth = Holdings::Now();
    }
    const std::chrono::duration<double> Took = std::chrono::steady_clock::now() - Start;
    const Holdings Now = Holdings::Now();
    std::printf("%ld commands from seed %u on, %.1f hours of play, in %.1f s: %s\n", Done, First,
                Ms / 3'600'000, Took.count(), Same ? "no difference" : "a difference");
    std::printf("resident %.1f MB at a tenth, %.1f MB at the end; descriptors %ld, %ld\n",
                AtATenth.Megabytes, Now.Megabytes, AtATenth.Descriptors, Now.Descriptors);
    const bool Flat =
        Now.Descriptors == AtATenth.Descriptors && Now.Megabytes < AtATenth.Megabytes * 1.25;
    return Same && Flat ? 0 : 1;
}
