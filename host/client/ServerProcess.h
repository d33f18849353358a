#pragma once

#include <string>
#include <vector>

#include "platform/posix/Posix.h"

namespace Tolvar {

/// A server process that this one has started and reaps. One thread.
class ServerProcess {
  public:
    /// Program "" as ServerStart says. RuntimeFailure when it cannot be started.
    ServerProcess(const std::string& Program, const std::vector<std::string>& Arguments);
    /// Await.
    ~ServerProcess();
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;

    int Id() const { return ProcessId_; }

    /// The editor's end of the socket that the server was given; once.
    Descriptor TakeSocket() { return std::move(Socket_); }

    /// Waits until the process is gone; one that does not end within LimitMs is killed. The exit
    /// code, or 128 + the signal's number; 0 when this program ignores SIGCHLD, since the system
    /// tells nothing then. The same at every call.
    int Await(int LimitMs = 2000) noexcept;

  private:
    Descriptor Socket_;
    int ProcessId_ = -1;
    int ExitCode_ = -1;  // -1: not awaited
};

}  // namespace Tolvar
