#pragma once

#include <signal.h>
#include <stdlib.h>

#include <cstdio>
#include <sstream>
#include <string>

namespace Tolvar::Testing {

/// What a shell's command prints on standard output; Status as wait gives it.
inline std::string OutputOf(const std::string& Command, int* Status = nullptr) {
    std::string Output;
    FILE* const Pipe = popen(Command.c_str(), "r");
    for (int Byte; (Byte = std::fgetc(Pipe)) != EOF;)
        Output += static_cast<char>(Byte);
    const int Ended = pclose(Pipe);
    if (Status != nullptr) *Status = Ended;
    return Output;
}

/// A session message bus of the test's own; none when there is no dbus-daemon.
class PrivateBus {
  public:
    explicit PrivateBus(const std::string& Options = "--session") {
        std::istringstream Said(OutputOf("dbus-daemon " + Options +
                                         " --fork --print-address=1 --print-pid=1 2>/dev/null"));
        std::string Address;
        if (Said >> Address >> Daemon_) setenv("DBUS_SESSION_BUS_ADDRESS", Address.c_str(), 1);
    }
    ~PrivateBus() {
        if (Daemon_ > 0) kill(Daemon_, SIGTERM);
        unsetenv("DBUS_SESSION_BUS_ADDRESS");
    }
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    explicit operator bool() const { return Daemon_ > 0; }

  private:
    pid_t Daemon_ = 0;
};

}  // namespace Tolvar::Testing
