#include "Program.h"

#include <fcntl.h>
#include <signal.h>
#include <sndfile.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace Tolvar::Testing {
namespace {

constexpr const char* InputName = ".stdin";
constexpr const char* OutputName = ".stdout";
constexpr const char* ErrorName = ".stderr";

void Redirect(const std::string& Path, int Flags, int Fd) {
    const int Opened = open(Path.c_str(), Flags, 0600);
    if (Opened < 0 || dup2(Opened, Fd) < 0) _exit(127);
    close(Opened);
}

}  // namespace

Program::Program() : Folder((std::filesystem::temp_directory_path() / "wpt-XXXXXX").string()) {
    if (mkdtemp(Folder.data()) == nullptr) throw std::runtime_error("no folder " + Folder);
}

Program::~Program() {
    std::error_code Ignored;
    std::filesystem::remove_all(Folder, Ignored);
}

int Program::Start(const std::vector<std::string>& Arguments, const std::string& Input) const {
    Put(InputName, Input);
    std::vector<char*> Words{const_cast<char*>(WAVEPLAY_PROGRAM)};
    for (const std::string& Word : Arguments)
        Words.push_back(const_cast<char*>(Word.c_str()));
    Words.push_back(nullptr);

    const int Process = fork();
    if (Process != 0) return Process;
    if (chdir(Folder.c_str()) != 0) _exit(127);
    Redirect(InputName, O_RDONLY, 0);
    Redirect(OutputName, O_WRONLY | O_CREAT | O_TRUNC, 1);
    Redirect(ErrorName, O_WRONLY | O_CREAT | O_TRUNC, 2);
    execv(WAVEPLAY_PROGRAM, Words.data());
    _exit(127);
}

Outcome Program::Await(int Process) const {
    int Status = 0;
    waitpid(Process, &Status, 0);
    const int Code = WIFSIGNALED(Status) ? 128 + WTERMSIG(Status) : WEXITSTATUS(Status);
    return {Code, Get(OutputName), Get(ErrorName)};
}

Outcome Program::Run(const std::vector<std::string>& Arguments, const std::string& Input) const {
    return Await(Start(Arguments, Input));
}

Outcome Program::RunAndSignal(const std::vector<std::string>& Arguments, int Signal) const {
    // Standard error becomes a pipe, so that reading it waits for what the program says.
    std::filesystem::remove(Path(ErrorName));
    if (mkfifo(Path(ErrorName).c_str(), 0600) != 0) throw std::runtime_error("no pipe");
    const int Process = Start(Arguments, "");
    std::ifstream Err(Path(ErrorName));
    std::string Said;
    for (std::string Line; std::getline(Err, Line);) {
        Said += Line + "\n";
        if (Line.starts_with("Playing")) kill(Process, Signal);
    }
    std::filesystem::remove(Path(ErrorName));
    Outcome Ended = Await(Process);
    Ended.Err = Said;
    return Ended;
}

std::vector<std::string> Program::FilesThere() const {
    std::vector<std::string> Names;
    for (const auto& Entry : std::filesystem::directory_iterator(Folder)) {
        const std::string Name = Entry.path().filename().string();
        if (Name != InputName && Name != OutputName && Name != ErrorName) Names.push_back(Name);
    }
    return Names;
}

void Program::PutWav(const std::string& Name, int Bits, int Channels, int Rate,
                     const std::vector<std::int16_t>& Samples) const {
    SF_INFO Info{};
    Info.channels = Channels;
    Info.samplerate = Rate;
    Info.format = SF_FORMAT_WAV | (Bits == 8 ? SF_FORMAT_PCM_U8 : SF_FORMAT_PCM_16);
    SNDFILE* Sound = sf_open(Path(Name).c_str(), SFM_WRITE, &Info);
    std::vector<std::int16_t> Scaled = Samples;
    if (Bits == 8) {
        for (std::int16_t& Sample : Scaled)
            Sample = static_cast<std::int16_t>(Sample * 256);
    }
    const auto Count = static_cast<sf_count_t>(Scaled.size());
    const bool Written = sf_write_short(Sound, Scaled.data(), Count) == Count;
    if (sf_close(Sound) != 0 || !Written) throw std::runtime_error("cannot write " + Name);
}

void Program::Put(const std::string& Name, const std::string& Bytes) const {
    std::ofstream(Path(Name), std::ios::binary) << Bytes;
}

std::string Program::Get(const std::string& Name) const {
    std::ifstream In(Path(Name), std::ios::binary);
    return {std::istreambuf_iterator<char>(In), {}};
}

Program::Wav Program::GetWav(const std::string& Name) const {
    SF_INFO Info{};
    SNDFILE* Sound = sf_open(Path(Name).c_str(), SFM_READ, &Info);
    if (Sound == nullptr) throw std::runtime_error("no sound in " + Name);
    std::vector<std::int16_t> Samples(static_cast<std::size_t>(Info.frames * Info.channels));
    sf_read_short(Sound, Samples.data(), static_cast<sf_count_t>(Samples.size()));
    sf_close(Sound);
    return {Info.channels, Info.samplerate, Info.format, Samples};
}

std::vector<std::int16_t> Numbered(int Frames, int Channels, int Bits) {
    std::vector<std::int16_t> Samples;
    for (int Frame = 1; Frame <= Frames; ++Frame) {
        for (int Channel = 0; Channel < Channels; ++Channel) {
            const auto Mixed = static_cast<std::uint32_t>(Frame * 2 + Channel) * 2654435761U;
            const auto Word = static_cast<std::int16_t>(Mixed >> 16U);
            Samples.push_back(Bits == 8 ? static_cast<std::int16_t>(Word >> 8) : Word);
        }
    }
    return Samples;
}

std::vector<std::int16_t> Mirrored(const std::vector<std::int16_t>& Samples, int Channels) {
    std::vector<std::int16_t> Turned;
    const auto Step = static_cast<std::ptrdiff_t>(Channels);
    for (auto Frame = Samples.end(); Frame != Samples.begin(); Frame -= Step) {
        Turned.insert(Turned.end(), Frame - Step, Frame);
    }
    return Turned;
}

}  // namespace Tolvar::Testing
