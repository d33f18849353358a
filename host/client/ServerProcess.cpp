#include "host/client/ServerProcess.h"

#include <dlfcn.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>

namespace Tolvar {
namespace {

namespace fs = std::filesystem;

constexpr int ServerFd = 3;  // the socket's number in the server

fs::path LibraryFolder() {
    static const char Here = 0;
    Dl_info Found{};
    if (dladdr(&Here, &Found) == 0 || Found.dli_fname == nullptr) return {};
    std::error_code Ignored;
    return fs::canonical(Found.dli_fname, Ignored).parent_path();
}

std::string ProgramPath(const std::string& Given) {
    if (!Given.empty()) return Given;
    const char* const Named = std::getenv("TOLVAR_SERVER");
    if (Named != nullptr && *Named != '\0') return Named;
    std::error_code Ignored;
    const fs::path Library = LibraryFolder();
    const fs::path Beside = fs::read_symlink("/proc/self/exe", Ignored).parent_path();
    std::string Tried;
    for (const fs::path& Candidate :
         {Beside / "TolvarWaveEditorDll", Library / "TolvarWaveEditorDll",
          (Library / TOLVAR_SERVER_FROM_LIBRARY).lexically_normal()}) {
        if (access(Candidate.c_str(), X_OK) == 0) return Candidate.string();
        Tried += Tried.empty() ? Candidate.string() : ", " + Candidate.string();
    }
    throw RuntimeFailure(FailureKind::File, "no playback server found (tried " + Tried + ")");
}

// The server's end becomes descriptor 3; it gets a process group of its own, so that an interrupt
// from the terminal reaches the editor alone, which then lets go.
class SpawnSetup {
  public:
    explicit SpawnSetup(int Socket) {
        posix_spawn_file_actions_init(&Actions);
        posix_spawnattr_init(&Attributes);
        posix_spawn_file_actions_adddup2(&Actions, Socket, ServerFd);
        // A pipe of the editor's that the server held would never end for its reader.
        posix_spawn_file_actions_addclosefrom_np(&Actions, ServerFd + 1);
        sigset_t None;
        sigemptyset(&None);
        posix_spawnattr_setsigmask(&Attributes, &None);
        posix_spawnattr_setpgroup(&Attributes, 0);
        posix_spawnattr_setflags(&Attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
    }
    ~SpawnSetup() {
        posix_spawnattr_destroy(&Attributes);
        posix_spawn_file_actions_destroy(&Actions);
    }
    SpawnSetup(const SpawnSetup&) = delete;
    SpawnSetup& operator=(const SpawnSetup&) = delete;

    posix_spawn_file_actions_t Actions{};
    posix_spawnattr_t Attributes{};
};

}  // namespace

ServerProcess::ServerProcess(const std::string& Program,
                             const std::vector<std::string>& Arguments) {
    std::vector<std::string> Words{ProgramPath(Program), "--fd", std::to_string(ServerFd)};
    Words.insert(Words.end(), Arguments.begin(), Arguments.end());
    std::vector<char*> Pointers;
    Pointers.reserve(Words.size() + 1);
    for (std::string& Word : Words)
        Pointers.push_back(Word.data());
    Pointers.push_back(nullptr);

    std::array<int, 2> Pair{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, Pair.data()) != 0) {
        throw ErrnoFailure("cannot make a connection for the server", errno, FailureKind::Library);
    }
    Socket_ = Descriptor(Pair[0]);
    const Descriptor Theirs(Pair[1]);
    const SpawnSetup Setup(Theirs.Get());
    const int Error = posix_spawn(&ProcessId_, Words.front().c_str(), &Setup.Actions,
                                  &Setup.Attributes, Pointers.data(), environ);
    if (Error != 0) throw ErrnoFailure("cannot start " + Words.front(), Error);
}

ServerProcess::~ServerProcess() {
    Socket_ = Descriptor();
    Await();
}

int ServerProcess::Await(int LimitMs) noexcept {
    if (ExitCode_ >= 0) return ExitCode_;
    constexpr int StepMs = 2;
    int Status = 0;
    pid_t Reaped = waitpid(ProcessId_, &Status, WNOHANG);
    for (int WaitedMs = 0; Reaped == 0 && WaitedMs < LimitMs; WaitedMs += StepMs) {
        poll(nullptr, 0, StepMs);
        Reaped = waitpid(ProcessId_, &Status, WNOHANG);
    }
    if (Reaped == 0) {
        kill(ProcessId_, SIGKILL);
        do {
            Reaped = waitpid(ProcessId_, &Status, 0);
        } while (Reaped < 0 && errno == EINTR);
    }
    if (Reaped < 0) return ExitCode_ = 0;  // somebody else has reaped it, such as the system
    ExitCode_ = WIFEXITED(Status) ? WEXITSTATUS(Status) : 128 + WTERMSIG(Status);
    return ExitCode_;
}

}  // namespace Tolvar
