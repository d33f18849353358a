#include "Program.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sndfile.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

namespace Tolvar::Testing {
namespace {

constexpr const char* InputName = ".stdin";
constexpr const char* OutputName = ".stdout";

pid_t Start(const std::string& Folder, std::vector<std::string> Words, int ErrorFd) {
    std::vector<char*> Pointers;
    for (std::string& Word : Words)
        Pointers.push_back(Word.data());
    Pointers.push_back(nullptr);
    posix_spawn_file_actions_t Actions;
    posix_spawn_file_actions_init(&Actions);
    posix_spawn_file_actions_addchdir_np(&Actions, Folder.c_str());
    posix_spawn_file_actions_addopen(&Actions, 0, InputName, O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&Actions, 1, OutputName, O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_adddup2(&Actions, ErrorFd, 2);
    pid_t Process = 0;
    const int Error =
        posix_spawnp(&Process, Pointers[0], &Actions, nullptr, Pointers.data(), environ);
    posix_spawn_file_actions_destroy(&Actions);
    if (Error != 0) throw std::runtime_error("cannot start " + Words[0]);
    return Process;
}

}  // namespace

Outcome Program::RunLine(std::vector<std::string> Words, const std::vector<std::string>& Arguments,
                         const std::string& Input, const Cue& AtPlaying) const {
    Put(Path(InputName), Input);
    Words.insert(Words.end(), Arguments.begin(), Arguments.end());
    int Pipe[2];
    if (pipe2(Pipe, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    const pid_t Process = Start(Path("."), Words, Pipe[1]);
    close(Pipe[1]);
    Outcome Ran;
    Cue Waiting = AtPlaying;
    for (char Byte = 0; read(Pipe[0], &Byte, 1) == 1;) {
        Ran.Err += Byte;
        if (Waiting && Ran.Err.ends_with("Playing")) std::exchange(Waiting, {})(Process);
    }
    close(Pipe[0]);
    int Status = 0;
    waitpid(Process, &Status, 0);
    Ran.Code = WIFSIGNALED(Status) ? 128 + WTERMSIG(Status) : WEXITSTATUS(Status);
    Ran.Out = Get(Path(OutputName));
    return Ran;
}

Outcome Program::RunOnBus(const std::vector<std::string>& Arguments) const {
    std::filesystem::create_directories(Path("dbus-1/services"));
    Put(Path("dbus-1/services/org.tolvar.WaveEditor.service"),
        "[D-BUS Service]\nName=org.tolvar.WaveEditor\nExec=" SERVER_PROGRAM " --bus --device wav:" +
            Path("out.wav") + "\n");
    setenv("XDG_DATA_HOME", Path(".").c_str(), 1);
    const Outcome Ran = RunLine({"dbus-run-session", "--", WAVEPLAY_PROGRAM}, Arguments, "", {});
    unsetenv("XDG_DATA_HOME");
    return Ran;
}

pid_t ServerOf(pid_t Process) {
    const std::string Number = std::to_string(Process);
    return std::stoi(Get("/proc/" + Number + "/task/" + Number + "/children"));
}

Wav Program::Render(std::vector<std::string> Arguments) const {
    Arguments.insert(Arguments.begin(), {"render", "-o", "out.wav"});
    const Outcome Ran = Run(Arguments);
    EXPECT_EQ(Ran.Code, 0) << Ran.Err;
    return GetWav("out.wav");
}

std::vector<std::string> Program::FilesThere() const {
    auto Names = Folder.Names();
    std::erase_if(Names, [](const std::string& Name) { return Name.starts_with(".std"); });
    return Names;
}

void Program::PutWav(const std::string& Name, int Bits, int Channels, int Rate,
                     const Samples& Frames) const {
    const int Depth = Bits == 8 ? SF_FORMAT_PCM_U8 : SF_FORMAT_PCM_16;
    PutSound(Name, SF_FORMAT_WAV | Depth, Channels, Rate, FullScale(Frames));
}

std::vector<double> FullScale(const Samples& From) {
    std::vector<double> Scaled;
    for (const std::int16_t Sample : From)
        Scaled.push_back(Sample / 32768.0);
    return Scaled;
}

void Program::PutSound(const std::string& Name, int Format, int Channels, int Rate,
                       const std::vector<double>& Frames) const {
    SF_INFO Info{};
    Info.channels = Channels;
    Info.samplerate = Rate;
    Info.format = Format;
    SNDFILE* Sound = sf_open(Path(Name).c_str(), SFM_WRITE, &Info);
    if (Sound == nullptr) throw std::runtime_error("cannot make " + Name);
    const auto Count = static_cast<sf_count_t>(Frames.size());
    const int Depth = Format & SF_FORMAT_SUBMASK;
    if (Depth == SF_FORMAT_PCM_16 || Depth == SF_FORMAT_PCM_U8) {  // whose full scale would differ
        Samples Exact;
        for (const double Sample : Frames)
            Exact.push_back(static_cast<std::int16_t>(Sample * 32768));
        sf_write_short(Sound, Exact.data(), Count);
    } else {
        sf_write_double(Sound, Frames.data(), Count);
    }
    if (sf_close(Sound) != 0) throw std::runtime_error("cannot write " + Name);
}

Wav Program::GetWav(const std::string& Name) const {
    SF_INFO Info{};
    SNDFILE* Sound = sf_open(Path(Name).c_str(), SFM_READ, &Info);
    if (Sound == nullptr) throw std::runtime_error("no sound in " + Name);
    Samples Frames(static_cast<std::size_t>(Info.frames * Info.channels));
    sf_read_short(Sound, Frames.data(), static_cast<sf_count_t>(Frames.size()));
    sf_close(Sound);
    return {Info.channels, Info.samplerate, Info.format, Frames};
}

Samples Numbered(int Frames, int Channels, int Bits) {
    Samples All;
    for (int Frame = 1; Frame <= Frames; ++Frame) {
        for (int Channel = 0; Channel < Channels; ++Channel) {
            const auto Mixed = static_cast<std::uint32_t>(Frame * 2 + Channel) * 2654435761U >> 16U;
            All.push_back(static_cast<std::int16_t>(Bits == 8 ? Mixed & 0xFF00U : Mixed));
        }
    }
    return All;
}

Samples Mirrored(const Samples& Frames, int Channels) {
    Samples Turned;
    for (auto Frame = Frames.end(); Frame != Frames.begin(); Frame -= Channels)
        Turned.insert(Turned.end(), Frame - Channels, Frame);
    return Turned;
}

}  // namespace Tolvar::Testing
