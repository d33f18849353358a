// Play on a real device, in real time: live_bench [DEVICE]. Without one it is ALSA's own "null".

#include <alsa/asoundlib.h>
#include <dlfcn.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "bench/LoadedPlayer.h"
#include "bench/Table.h"
#include "host/PlayServer.h"

namespace {

using SteadyClock = std::chrono::steady_clock;

std::mutex Lock;
std::optional<SteadyClock::time_point> FirstWrite;

void SawWrite() {
    const std::lock_guard Locked(Lock);
    if (!FirstWrite) FirstWrite = SteadyClock::now();
}

std::optional<SteadyClock::time_point> TakeFirstWrite() {
    const std::lock_guard Locked(Lock);
    return std::exchange(FirstWrite, {});
}

}  // namespace

/// What the platform library calls instead of the system's: notes when the first frames are given.
extern "C" snd_pcm_sframes_t snd_pcm_writei(snd_pcm_t* Pcm, const void* Samples,
                                            snd_pcm_uframes_t Frames) {
    static const auto Write =
        reinterpret_cast<decltype(&snd_pcm_writei)>(dlsym(RTLD_NEXT, "snd_pcm_writei"));
    SawWrite();
    return Write(Pcm, Samples, Frames);
}

namespace Tolvar::Bench {
namespace {

constexpr std::int32_t WaveSeconds = 3600;

double WakeUps() {
    double Total = 0;
    for (const auto& Thread : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream In(Thread.path() / "status");
        for (std::string Word; In >> Word;) {
            if (double Value = 0; Word == "voluntary_ctxt_switches:" && In >> Value) Total += Value;
        }
    }
    return Total;
}

double CpuSeconds() {
    timespec Used{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &Used);
    return static_cast<double>(Used.tv_sec) + static_cast<double>(Used.tv_nsec) / NsPerSecond;
}

double ResidentMb() {
    std::ifstream In("/proc/self/status");
    for (std::string Word; In >> Word;) {
        if (double Kb = 0; Word == "VmRSS:" && In >> Kb) return Kb / 1024;
    }
    return -1;
}

class LivePlay {
  public:
    LivePlay(const std::string& Device, const std::string& Engine, const SampleFile& File)
        : Server_({.Device = Device, .Engine = EngineOrderOf(Engine)}) {
        std::int32_t Window = 1;
        Player().DxObj(Window);
        ChannelBlocks Blocks{.Count = WaveSeconds, .Len = Rate, .Channels = 2};
        const auto Left = ListOf(Blocks, File.Path());
        Blocks.Channel = 1;
        Player().WriteWaveMemo(16, 2, Rate, WaveSeconds * Rate, Left, ListOf(Blocks, File.Path()));
    }
    ~LivePlay() { Server_.Release(); }
    LivePlay(const LivePlay&) = delete;
    LivePlay& operator=(const LivePlay&) = delete;

    PlayDllClass& Player() { return Server_.Player(); }
    void Pass(std::int64_t Ms) {
        Apartment& Home = Server_.Home();
        Home.RunUntil(Home.Time().NowNs() + Ms * NsPerMs, [] { return false; });
    }

    /// Until the device has its first frames, or a second has gone by.
    double StartMs() {
        Player().StopPlay();
        TakeFirstWrite();  // such as the ramp of the stop
        const auto Began = SteadyClock::now();
        Player().PlayAgain();
        for (int Round = 0; Round < 1000; ++Round) {
            if (const auto At = TakeFirstWrite()) {
                return std::chrono::duration<double, std::milli>(*At - Began).count();
            }
            Pass(1);
        }
        return 1000;
    }

  private:
    PlayServer Server_;
};

void Print(const std::string& What, double Value, double Limit) {
    std::printf("%-44s %s\n", What.c_str(), AgainstLimit(Value, Limit).c_str());
    std::fflush(stdout);
}

void MeasureStarts(LivePlay& Live, const std::string& Engine) {
    constexpr int Starts = 11;
    std::vector<double> Opening;
    std::vector<double> Open;
    for (int Start = 0; Start < Starts; ++Start) {
        Opening.push_back(Live.StartMs());
        Open.push_back(Live.StartMs());
        Live.Player().StopPlay();
        Live.Pass(400);  // a device is kept open for a moment
    }
    std::ranges::nth_element(Opening, Opening.begin() + Starts / 2);
    std::ranges::nth_element(Open, Open.begin() + Starts / 2);
    Print(Engine + ": play to the device's first frame, ms", Open[Starts / 2], 10);
    Print(Engine + ": the same with opening it, ms", Opening[Starts / 2], 10);
}

void MeasureAll(const std::string& Device) {
    std::printf("\nplay on the device %s\n", Device.c_str());
    const SampleFile File;
    for (const std::string Engine : {"dx9", "dx7", "waveout"}) {
        LivePlay Live(Device, Engine, File);
        MeasureStarts(Live, Engine);
        Live.Player().PlayAgain();
        Live.Pass(1000);
        constexpr int Seconds = 8;
        const double UsedBefore = CpuSeconds();
        Live.Pass(Seconds * 1000);
        Print(Engine + ": playing, % of a core", (CpuSeconds() - UsedBefore) / Seconds * 100, 1);
        Print(Engine + ": playing, resident MB", ResidentMb(), 25);

        Live.Player().StopPlay();
        Live.Pass(1000);
        const double Before = WakeUps();
        Live.Pass(2000);  // itself the one that is not counted
        Print(Engine + ": stopped, wake-ups in 2 s", WakeUps() - Before - 1, 0);
    }
}

}  // namespace
}  // namespace Tolvar::Bench

int main(int Count, char** Arguments) {
    try {
        Tolvar::Bench::MeasureAll(Count > 1 ? Arguments[1] : "alsa:null");
        return 0;
    } catch (const std::exception& Failure) {
        std::fprintf(stderr, "%s\n", Failure.what());
        return 1;
    }
}
