#include "Program.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

namespace Tolvar::Testing {

Outcome Program::RunLine(std::vector<std::string> Words, const std::string& Input,
                         Cue AtPlaying) const {
    Put(Streams_ / "in", Input);
    std::vector<char*> Pointers;
    for (std::string& Word : Words)
        Pointers.push_back(Word.data());
    Pointers.push_back(nullptr);
    int Pipe[2];
    if (pipe2(Pipe, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    const pid_t Process = fork();
    if (Process == 0) {
        dup2(open((Streams_ / "in").c_str(), O_RDONLY), STDIN_FILENO);
        dup2(creat((Streams_ / "out").c_str(), 0600), STDOUT_FILENO);
        dup2(Pipe[1], STDERR_FILENO);
        if (chdir(Path(".").c_str()) == 0) execvp(Pointers[0], Pointers.data());
        _exit(127);
    }
    close(Pipe[1]);
    Outcome Ran;
    for (char Byte = 0; read(Pipe[0], &Byte, 1) == 1;) {
        Ran.Err += Byte;
        if (AtPlaying && Ran.Err.ends_with("Playing")) std::exchange(AtPlaying, {})(Process);
    }
    close(Pipe[0]);
    int Status = 0;
    waitpid(Process, &Status, 0);
    Ran.Code = WIFSIGNALED(Status) ? 128 + WTERMSIG(Status) : WEXITSTATUS(Status);
    Ran.Out = Get(Streams_ / "out");
    return Ran;
}

Outcome Program::RunOnBus(const std::string& Script) const {
    std::filesystem::create_directories(Path("dbus-1/services"));
    Put(Path("dbus-1/services/org.tolvar.WaveEditor.service"),
        "[D-BUS Service]\nName=org.tolvar.WaveEditor\nExec=" SERVER_PROGRAM " --bus --device wav:" +
            Path("out.wav") + "\n");
    setenv("XDG_DATA_HOME", Path(".").c_str(), 1);
    const Outcome Ran = RunLine({"dbus-run-session", "--", "sh", "-c", Script, WAVEPLAY_PROGRAM});
    unsetenv("XDG_DATA_HOME");
    return Ran;
}

pid_t ServerOf(pid_t Process) {
    const std::string Number = std::to_string(Process);
    return std::stoi(Get("/proc/" + Number + "/task/" + Number + "/children"));
}

Samples Program::Render(std::vector<std::string> Arguments) const {
    Arguments.insert(Arguments.begin(), {"render", "-o", "out.wav"});
    const Outcome Ran = Run(Arguments);
    EXPECT_EQ(Ran.Code, 0) << Ran.Err;
    return GetSound("out.wav");
}

void Program::PutWav(const std::string& Name, int Bits, int Channels, int Rate,
                     const Samples& Frames) const {
    const int Depth = Bits == 8 ? SF_FORMAT_PCM_U8 : SF_FORMAT_PCM_16;
    PutSound(Name, SF_FORMAT_WAV | Depth, Channels, Rate, Frames);
}

Samples Program::GetSound(const std::string& Name) const {
    SndfileHandle Sound(Path(Name));
    if (!Sound) throw std::runtime_error("no sound in " + Name);
    Samples Frames(static_cast<std::size_t>(Sound.frames() * Sound.channels()));
    Sound.read(Frames.data(), std::ssize(Frames));
    return Frames;
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

Samples Joined(std::initializer_list<Samples> Parts) {
    Samples All;
    for (const Samples& Each : Parts)
        All.insert(All.end(), Each.begin(), Each.end());
    return All;
}

}  // namespace Tolvar::Testing
