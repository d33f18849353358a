// The server in a process of its own, as an editor finds it: host_bench SERVER.

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "bench/Table.h"
#include "host/client/PlayDllClient.h"

namespace Tolvar::Bench {
namespace {

using SteadyClock = std::chrono::steady_clock;
using Microseconds = std::chrono::duration<double, std::micro>;

double Median(int Rounds, const std::function<void()>& Work) {
    std::vector<double> Us;
    for (int Round = 0; Round < Rounds; ++Round) {
        const auto Began = SteadyClock::now();
        Work();
        Us.push_back(Microseconds(SteadyClock::now() - Began).count());
    }
    std::nth_element(Us.begin(), Us.begin() + Rounds / 2, Us.end());
    return Us[static_cast<std::size_t>(Rounds) / 2];
}

// Blocks of one sample of silence each.
std::vector<std::int32_t> ListOf(std::int32_t Blocks) {
    std::vector<std::int32_t> List{Blocks};
    for (std::int32_t Block = 0; Block < Blocks; ++Block)
        List.insert(List.end(), {1, 0, 1, 5, 1, 1, 1, 16});
    return List;
}

std::string StatusOf(int Process, const std::string& Name) {
    std::ifstream In("/proc/" + std::to_string(Process) + "/status");
    for (std::string Line; std::getline(In, Line);) {
        if (Line.starts_with(Name + ":")) return Line.substr(Name.size() + 1);
    }
    return "-1";
}

// Of user and system together; the system counts ticks.
double CpuSeconds(int Process) {
    std::ifstream In("/proc/" + std::to_string(Process) + "/stat");
    const std::string Whole{std::istreambuf_iterator<char>(In), {}};
    std::istringstream Fields(Whole.substr(Whole.rfind(')') + 2));
    const std::vector<std::string> Words{std::istream_iterator<std::string>(Fields), {}};
    constexpr std::size_t UserTicks = 11;
    return (std::stod(Words.at(UserTicks)) + std::stod(Words.at(UserTicks + 1))) /
           static_cast<double>(sysconf(_SC_CLK_TCK));
}

double WakeUps(int Process) {
    return std::stod(StatusOf(Process, "voluntary_ctxt_switches"));
}

void Print(const char* What, double Value, double Limit) {
    std::printf("%-44s %s\n", What, AgainstLimit(Value, Limit).c_str());
}

// Waits, with a poll of the position every Step if there is one.
void Pass(PlayDllClient& Player, std::chrono::milliseconds Time, int StepMs) {
    const auto Until = SteadyClock::now() + Time;
    while (SteadyClock::now() < Until) {
        poll(nullptr, 0, StepMs > 0 ? StepMs : static_cast<int>(Time.count()));
        if (StepMs > 0) Player.PlayCurrentPosition();
    }
}

void MeasureAll(const std::string& Server) {
    using namespace std::chrono_literals;
    auto Player = PlayDllClient::Start({Server, {"--device", "null"}});
    const int Process = Player.ProcessId();
    std::printf("\nthe server in a process of its own\n");

    const double IdleFrom = WakeUps(Process);
    Pass(Player, 2000ms, 0);
    Print("wake-ups in 2 s of idling", WakeUps(Process) - IdleFrom, 0);
    Print("resident MB", std::stod(StatusOf(Process, "VmRSS")) / 1024, 15);
    Print("call with one report, us", Median(4000, [&] { Player.StopPlay(); }), 200);

    const std::vector<std::int32_t> List = ListOf(100'000);
    const auto HandOver = [&] { Player.WriteWaveMemo(16, 1, 44100, 100'000, List, {}); };
    Print("100000 blocks handed over, ms", Median(9, HandOver) / 1000, 250);

    std::int32_t Window = 1;
    Player.DxObj(Window);
    Player.LoopPlayON(true);
    Player.WriteWaveMemo(16, 2, 44100, 600 * 44100, {{1, 1, 0, 600 * 44100, 5, 1, 1, 1, 16}},
                         {{1, 1, 0, 600 * 44100, 5, 1, 1, 1, 16}});
    Player.PlayAgain();
    Print("position, playing, us", Median(4000, [&] { Player.PlayCurrentPosition(); }), 100);
    const double PlainFrom = CpuSeconds(Process);
    Pass(Player, 8000ms, 0);
    const double PolledFrom = CpuSeconds(Process);
    Pass(Player, 8000ms, 20);
    const double Polled = CpuSeconds(Process) - PolledFrom;
    const double Plain = PolledFrom - PlainFrom;
    std::printf("%-44s %5.2f\n", "playing, % of a core", Plain / 8 * 100);
    Print("more with 50 polls a second, % of a core", std::max(Polled - Plain, 0.0) / 8 * 100, 1);
    Player.Release();
}

}  // namespace
}  // namespace Tolvar::Bench

int main(int Count, char** Arguments) {
    if (Count != 2) {
        std::fprintf(stderr, "usage: host_bench SERVER\n");
        return 2;
    }
    try {
        Tolvar::Bench::MeasureAll(Arguments[1]);
        return 0;
    } catch (const std::exception& Failure) {
        std::fprintf(stderr, "%s\n", Failure.what());
        return 1;
    }
}
