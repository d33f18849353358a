// Whole renders against a tool that does the same to a file, each a process of its own, in turns:
// process_bench WAVEPLAY. Makes a stereo file of ten minutes, cached when the runs begin.

#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "bench/Table.h"

namespace Tolvar::Bench {
namespace {

namespace fs = std::filesystem;
using Command = std::vector<std::string>;

constexpr std::uint32_t Rate = 44100;
constexpr std::uint32_t Frames = 10 * 60 * Rate;
constexpr int Turns = 7;

struct Cost {
    double Ms;
    long PeakKb;
};

void Put(std::string& Bytes, std::uint32_t Value, int Count) {
    for (int Byte = 0; Byte < Count; ++Byte) {
        Bytes.push_back(static_cast<char>(Value >> (8 * Byte) & 0xFF));
    }
}

std::string WavHeader(std::uint32_t DataBytes) {
    std::string Bytes = "RIFF";
    Put(Bytes, 36 + DataBytes, 4);
    Bytes += "WAVEfmt ";
    Put(Bytes, 16, 4);
    Put(Bytes, 1, 2);  // PCM
    Put(Bytes, 2, 2);  // channels
    Put(Bytes, Rate, 4);
    Put(Bytes, Rate * 4, 4);
    Put(Bytes, 4, 2);   // bytes a frame
    Put(Bytes, 16, 2);  // bits a sample
    Bytes += "data";
    Put(Bytes, DataBytes, 4);
    return Bytes;
}

// Piece by piece: the peak that the system counts for a child begins at that of its parent.
void MakeWave(const fs::path& Path) {
    std::ofstream Out(Path, std::ios::binary);
    Out << WavHeader(Frames * 4);
    std::uint32_t Noise = 1;  // the "quick and dirty" generator of Numerical Recipes
    for (std::uint32_t Second = 0; Second < Frames / Rate; ++Second) {
        std::string Piece;
        for (std::uint32_t Frame = 0; Frame < Rate; ++Frame) {
            Noise = Noise * 1664525 + 1013904223;
            Put(Piece, Noise, 4);
        }
        Out << Piece;
    }
    if (!Out.flush()) throw std::runtime_error("cannot write " + Path.string());
}

Cost Run(const Command& Words) {
    std::vector<char*> Arguments;
    for (const std::string& Word : Words)
        Arguments.push_back(const_cast<char*>(Word.c_str()));
    Arguments.push_back(nullptr);

    const auto Start = std::chrono::steady_clock::now();
    pid_t Child = 0;
    int Status = 0;
    rusage Used{};
    if (posix_spawnp(&Child, Arguments[0], nullptr, nullptr, Arguments.data(), environ) != 0 ||
        wait4(Child, &Status, 0, &Used) != Child || Status != 0) {
        throw std::runtime_error("failed: " + Words[0] + " " + Words[1]);
    }
    const std::chrono::duration<double, std::milli> Took = std::chrono::steady_clock::now() - Start;
    return {Took.count(), Used.ru_maxrss};
}

// In turns, so that whatever else the machine does meets both alike.
void Compare(const std::string& What, const Command& Ours, const std::string& Other,
             const Command& Theirs, double Limit) {
    long PeakKb = 0;
    const auto NsOfRun = [&](const Command& Words, bool IsOurs) {
        const Cost Each = Run(Words);
        if (IsOurs) PeakKb = std::max(PeakKb, Each.PeakKb);
        return Each.Ms * 1e6;
    };
    const Comparison Ran = InTurns(
        Turns, [&] { return NsOfRun(Ours, true); }, [&] { return NsOfRun(Theirs, false); });
    PrintRow("render " + What, Other, Ran, Limit);
    const double PeakMb = static_cast<double>(PeakKb) / 1024;
    if (PeakMb > 40) std::printf("  peak MB %s\n", AgainstLimit(PeakMb, 40).c_str());
}

// A folder in the temporary one; gone, with all that is in it, when this is.
struct Scratch {
    fs::path Path = fs::temp_directory_path() / ("tolvar-bench-" + std::to_string(getpid()));
    Scratch() { fs::create_directory(Path); }
    ~Scratch() {
        std::error_code Ignored;
        fs::remove_all(Path, Ignored);
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
};

void CompareAll(const std::string& Waveplay) {
    const Scratch Folder;
    const std::string In = Folder.Path / "in.wav";
    const std::string Out = Folder.Path / "out.wav";
    MakeWave(In);
    PrintHead("ten minutes of stereo, start to end");
    const auto Render = [&](std::vector<std::string> Options) {
        Command Words{Waveplay, "render", In, "-o", Out};
        Words.insert(Words.end(), Options.begin(), Options.end());
        return Words;
    };
    Compare("forward", Render({}), "cp", {"cp", In, Out}, 3);
    Compare("forward", Render({}), "sox", {"sox", "-V1", In, Out}, 1.0);
    // Decoded and written anew, as the others do it.
    const Command Ffmpeg{"ffmpeg", "-v", "error", "-y", "-i", In, "-c:a", "pcm_s16le", Out};
    Compare("forward", Render({}), "ffmpeg", Ffmpeg, 1.0);
    Compare("reverse", Render({"--reverse"}), "cp", {"cp", In, Out}, 3);
    Compare("reverse", Render({"--reverse"}), "sox reverse", {"sox", "-V1", In, Out, "reverse"},
            0.6);
    Compare("by dx9", Render({"--engine", "dx9"}), "render by waveout",
            Render({"--engine", "waveout"}), 1.3);
    Compare("by dx7", Render({"--engine", "dx7"}), "render by waveout",
            Render({"--engine", "waveout"}), 1.3);
    Compare("tempo 1.5", Render({"--tempo", "1.5"}), "sox speed 1.5",
            {"sox", "-V1", In, Out, "speed", "1.5"}, 0.6);
}

}  // namespace
}  // namespace Tolvar::Bench

int main(int Count, char** Arguments) {
    if (Count != 2) {
        std::fprintf(stderr, "usage: process_bench WAVEPLAY\n");
        return 2;
    }
    try {
        Tolvar::Bench::CompareAll(Arguments[1]);
        return 0;
    } catch (const std::exception& Failure) {
        std::fprintf(stderr, "%s\n", Failure.what());
        return 1;
    }
}
