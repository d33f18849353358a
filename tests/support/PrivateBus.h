#pragma once

#include <signal.h>
#include <stdlib.h>

#include <cstdio>
#include <memory>
#include <string>

namespace Tolvar::Testing {

/// A session message bus of the test's own; none when there is no dbus-daemon.
class PrivateBus {
  public:
    explicit PrivateBus(const std::string& Options = "--session") {
        const std::string Line =
            "dbus-daemon " + Options + " --fork --print-address=1 --print-pid=1 2>/dev/null";
        const std::unique_ptr<FILE, int (*)(FILE*)> Said(popen(Line.c_str(), "r"), pclose);
        char Address[256] = "";
        if (fscanf(Said.get(), "%255s %d", Address, &Daemon) == 2) {
            setenv("DBUS_SESSION_BUS_ADDRESS", Address, 1);
        }
    }
    ~PrivateBus() {
        End();
        unsetenv("DBUS_SESSION_BUS_ADDRESS");
    }
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    explicit operator bool() const { return Daemon > 0; }
    void End() {
        if (Daemon > 0) kill(Daemon, SIGTERM);
        Daemon = 0;
    }

  private:
    pid_t Daemon = 0;
};

}  // namespace Tolvar::Testing
